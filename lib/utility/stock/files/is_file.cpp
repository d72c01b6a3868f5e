// Questions about files, listings of directories and walks of trees.
//
// A walk holds no descriptor and no lock while it calls the function: each
// directory is listed and examined as a whole first, then closed.

#include "stock/is_file.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/guards.h"
#include "files/listing.h"
#include "stock/elog.h"
#include "stock/path.h"
#include "stock/restat.h"

namespace {

using stock::Dir;
using stock::Entry;
using stock::Names;
using stock::Owned;

constexpr std::size_t kPathSize = 1024;  // of the buffers that parsepath fills
constexpr std::size_t kLongestRoot = 1000;

bool examine(const char *path, struct stat &status)
{
    const stock::KeepErrno keep;
    return restat(path, &status) == 0;
}

bool examine_file(const char *path, struct stat &status)
{
    return examine(path, status) && S_ISREG(status.st_mode);
}

bool may(int access, const char *path)
{
    return faccessat(AT_FDCWD, path, access, AT_EACCESS) == 0;
}

// Whether a file could be made at a path where there is none.
bool may_create(const char *path)
{
    char dir[kPathSize];
    char base[kPathSize];
    if (!*path || std::strlen(path) >= kPathSize)
        return false;
    parsepath(path, dir, base, nullptr);
    return may(W_OK | X_OK, *dir ? dir : "/");
}

// Whether names can be looked up in the directory at all.
bool searchable(const Dir &dir)
{
    struct stat status;
    return dir.examine(".", status);
}

bool wanted(const Dir &dir, const Entry &entry, int which)
{
    struct stat status;
    if (entry.kind != stock::kUnknown)
        return (entry.kind & which) != 0;
    return dir.examine(entry.name, status) && (stock::kind_by_mode(status.st_mode) & which) != 0;
}

// Enters a copy of the status under the entry's name.
void keep_status(Arr *arr, const char *name, const struct stat &status)
{
    void *record = stock::allocate(sizeof status, "entrystatbuf", "directory");
    setarr(arr, name, std::memcpy(record, &status, sizeof status));
}

constinit stock::OrderedLock Empty_mutex{stock::Place::directory};
constinit stock::OrderedLock Dirfiles_mutex{stock::Place::directory};
constinit stock::OrderedLock Directory_mutex{stock::Place::directory};

int is_empty_directory(const char *path)
{
    const std::lock_guard hold(Empty_mutex);
    const Dir dir(path);
    if (!dir)
        return -1;
    return dir.next() ? 0 : errno ? -1 : 1;
}

// One walk of fstraverse: what it was asked for, where it is, and what it got. The
// directories that it is inside of are a list on the heap, so that no depth needs stack.
class Walk {
public:
    using Function = int (*)(const char *path, const struct stat *status, void *argument);

    Walk(int flags, Function function, void *argument)
        : flags_(function ? flags : flags | FSTRAVERSE_NO_DIRS | FSTRAVERSE_NO_FILES),
          function_(function), argument_(argument)
    {
    }

    ~Walk()
    {
        while (innermost_)
            innermost_ = std::move(innermost_->outer);
    }

    int from(const char *root)
    {
        // What concatpaths puts in front of a name in this directory.
        const Owned<char> joined(concatpaths(root, "x", nullptr));
        if (*joined && enter(root)) {
            innermost_->length = std::strlen(joined.get()) - 1;
            append(0, joined.get());
            walk();
        }
        return failed_ || !*joined ? -1 : sum();
    }

private:
    // A directory that the walk is inside of, with the status of each entry that calls for one.
    struct Level {
        dev_t device;
        ino_t inode;
        Names names;
        Owned<struct stat> statuses;
        std::size_t length = 0;  // of the path in front of its entries, with the "/"
        std::size_t next = 0;    // the entry that was not looked at for subdirectories yet
        std::unique_ptr<Level> outer;
    };

    bool depth_first() const { return flags_ & FSTRAVERSE_DEPTH_FIRST; }

    void walk()
    {
        if (!depth_first())
            visit_files();
        while (innermost_)
            if (const Entry *dir = next_dir())
                visit_dir(dir->name);
            else
                leave();
    }

    const Entry *next_dir() const
    {
        const auto entries = innermost_->names.entries();
        while (innermost_->next < entries.size()) {
            const Entry &entry = entries[innermost_->next++];
            if (entry.kind == stock::kDir)
                return &entry;
        }
        return nullptr;
    }

    // Comes to the directory of that name; the walk goes on inside of it where it can be entered.
    void visit_dir(const char *name)
    {
        const std::size_t length = append(innermost_->length, name);
        if (!depth_first())
            report_dir();
        if (enter(path_.get())) {
            path_[length] = '/';
            innermost_->length = length + 1;
            if (!depth_first())
                visit_files();
        } else if (depth_first()) {
            report_dir();
        }
    }

    // Goes back to the directory around the innermost one.
    void leave()
    {
        if (depth_first())
            visit_files();
        const std::size_t length = innermost_->length;
        innermost_ = std::move(innermost_->outer);
        if (innermost_ && depth_first()) {
            path_[length - 1] = 0;
            report_dir();
        }
    }

    // Lists and examines the directory, which is then the innermost. False when there is
    // nothing to visit.
    bool enter(const char *path)
    {
        std::unique_ptr<Level> level(new (std::nothrow) Level);
        if (!level)
            stock::out_of_memory(sizeof(Level), "level", "fstraverse");
        const Dir dir(path);
        struct stat status;
        if (dir && dir.status(status)) {
            if (is_inside(status))
                return false;
            level->device = status.st_dev;
            level->inode = status.st_ino;
            if (level->names.read(dir, Directory_mutex)) {
                examine_all(dir, *level);
                level->outer = std::move(innermost_);
                innermost_ = std::move(level);
                return true;
            }
        }
        elog_log(1, "can't read directory %s", path);
        failed_ = true;
        return false;
    }

    bool is_inside(const struct stat &status) const
    {
        const Level *level = innermost_.get();
        while (level && !(level->device == status.st_dev && level->inode == status.st_ino))
            level = level->outer.get();
        return level != nullptr;
    }

    void examine_all(const Dir &dir, Level &level) const
    {
        const auto entries = level.names.entries();
        void *block =
            stock::allocate(entries.size() * sizeof(struct stat), "entrystatbuf", "fstraverse");
        level.statuses.reset(static_cast<struct stat *>(block));
        struct stat *status = level.statuses.get();
        for (Entry &entry : entries) {
            const bool found = called_for(entry.kind) && dir.examine(entry.name, *status);
            entry.kind = found ? stock::kind_by_mode(status->st_mode) : stock::kOther;
            ++status;
        }
    }

    bool called_for(stock::Kind kind) const
    {
        return kind != stock::kOther && !(kind == stock::kFile && (flags_ & FSTRAVERSE_NO_FILES));
    }

    void visit_files()
    {
        if (flags_ & FSTRAVERSE_NO_FILES)
            return;
        const struct stat *status = innermost_->statuses.get();
        for (const Entry &entry : innermost_->names.entries()) {
            if (entry.kind == stock::kFile) {
                append(innermost_->length, entry.name);
                sum_ += function_(path_.get(), status, argument_);
            }
            ++status;
        }
    }

    // Calls the function for the subdirectory that next_dir gave last.
    void report_dir()
    {
        const struct stat *status = innermost_->statuses.get() + innermost_->next - 1;
        if (!(flags_ & FSTRAVERSE_NO_DIRS))
            sum_ += function_(path_.get(), status, argument_);
    }

    int sum() const { return static_cast<int>(std::clamp<std::int64_t>(sum_, INT_MIN, INT_MAX)); }

    // Puts the name behind so much of the path; gives the new length.
    std::size_t append(std::size_t length, const char *name)
    {
        const std::size_t bytes = std::strlen(name);
        if (length + bytes + 2 > size_) {
            size_ = 2 * (length + bytes + 2);
            path_.reset(static_cast<char *>(stock::reallocate(path_.release(), size_, "path")));
        }
        std::memcpy(&path_[length], name, bytes + 1);
        return length + bytes;
    }

    const int flags_;
    const Function function_;
    void *const argument_;
    std::unique_ptr<Level> innermost_;
    std::unique_ptr<char[], stock::Free> path_;
    std::size_t size_ = 0;
    std::int64_t sum_ = 0;
    bool failed_ = false;
};

}  // namespace

int is_present(const char *path)
{
    struct stat status;
    return examine(path, status);
}

int is_file(const char *path)
{
    struct stat status;
    return examine_file(path, status);
}

int is_dir(const char *path)
{
    struct stat status;
    return examine(path, status) && S_ISDIR(status.st_mode);
}

int is_executable_file(const char *path)
{
    struct stat status;
    return examine_file(path, status) && (status.st_mode & 0111);
}

int is_writable_file(const char *path)
{
    const stock::KeepErrno keep;
    struct stat status;
    if (restat(path, &status) == 0)
        return S_ISREG(status.st_mode) && may(W_OK, path);
    return errno == ENOENT && may_create(path);
}

int is_filename(const char *name)
{
    const std::string_view text = name ? name : "";
    return text.starts_with("/") || text.starts_with("./") || text.starts_with("../");
}

int is_empty(const char *path)
{
    const stock::KeepErrno keep;
    struct stat status;
    if (!examine(path, status))
        return 0;
    if (S_ISDIR(status.st_mode))
        return is_empty_directory(path);
    return S_ISREG(status.st_mode) && status.st_size == 0;
}

int64_t filetime(const char *path)
{
    struct stat status;
    return examine(path, status) ? status.st_mtime : 0;
}

int64_t filesize(const char *path)
{
    struct stat status;
    return examine_file(path, status) ? status.st_size : 0;
}

mode_t filemode(const char *path)
{
    struct stat status;
    return examine_file(path, status) ? status.st_mode : 0;
}

double Gbytes(double x)
{
    return x / 1e9;
}

double Mbytes(double x)
{
    return x / 1e6;
}

double kbytes(double x)
{
    return x / 1e3;
}

Tbl *dirfiles(const char *path, int which)
{
    const Dir dir(path);
    Names names;
    if (!dir || !names.read(dir, Dirfiles_mutex))
        return newtbl(0);
    const auto entries = names.entries();
    Tbl *list = newtbl(static_cast<std::int64_t>(entries.size()));
    if (which && !searchable(dir))
        return list;
    for (const Entry &entry : entries)
        if (!which || wanted(dir, entry, which))
            pushtbl(list, stock::copy_text(entry.name, "name"));
    return list;
}

int directory(const char *path, Arr **dirs, Arr **files)
{
    Arr *const found_dirs = dirs ? *dirs = newarr(nullptr) : nullptr;
    Arr *const found_files = files ? *files = newarr(nullptr) : nullptr;
    const Dir dir(path);
    Names names;
    if (!dir || !names.read(dir, Directory_mutex))
        return -1;
    for (const Entry &entry : names.entries()) {
        struct stat status;
        if (entry.kind == stock::kOther || !dir.examine(entry.name, status))
            continue;
        const stock::Kind kind = stock::kind_by_mode(status.st_mode);
        Arr *const arr = kind == stock::kDir    ? found_dirs
                         : kind == stock::kFile ? found_files
                                                : nullptr;
        if (arr)
            keep_status(arr, entry.name, status);
    }
    return 0;
}

int fstraverse(const char *path, int flags,
               int (*function)(const char *path, const struct stat *status, void *argument),
               void *argument)
{
    if (!path)
        return -1;
    if (std::strlen(path) > kLongestRoot) {
        elog_log(0, "path is too long: %s\n", path);
        return -1;
    }
    return Walk(flags, function, argument).from(path);
}
