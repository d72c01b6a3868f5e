// Questions about files, listings of directories and walks of trees.
//
// A directory is read whole: its names go into one block of memory, which is sorted by the
// first eight bytes in which the names differ. Entries are examined from the directory's
// descriptor, so that the system looks up one name for each instead of a whole path. A walk
// lists, examines and closes a directory before it calls the program's function, so that it
// holds no descriptor and no lock meanwhile.

#include "stock/is_file.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <span>
#include <string_view>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/descriptor.h"
#include "base/growing_text.h"
#include "base/guards.h"
#include "base/limits.h"
#include "base/uninterrupted.h"
#include "files/files_state.h"
#include "stock/elog.h"
#include "stock/path.h"
#include "stock/restat.h"

namespace {

using stock::kPathSize;
using stock::Owned;

constexpr std::size_t kLongestRootBytes = 1000;  // bytes of the path that fstraverse takes

// Single files.

// Fills the status of what the path leads to and leaves errno alone.
bool examine(const char *path, struct stat &status)
{
    const stock::KeepErrno keep;
    return restat(path, &status) == 0;
}

bool examine_file(const char *path, struct stat &status)
{
    return examine(path, status) && S_ISREG(status.st_mode);
}

// Whether the effective user may do what `access` says (R_OK, W_OK, X_OK).
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

// Directories.

bool is_dot_or_dot_dot(const char *name)
{
    return name[0] == '.' && (!name[1] || (name[1] == '.' && !name[2]));
}

// What is known of an entry. The first three are the values of dirfiles' argument `which`.
enum EntryKind : unsigned char {
    kOther = 0,
    kFile = 1,
    kDir = 2,
    kUnknown = 4,  // the directory did not say, or said that it is a symbolic link
};

EntryKind kind_by_type(unsigned char type)
{
    switch (type) {
    case DT_REG: return kFile;
    case DT_DIR: return kDir;
    case DT_LNK:
    case DT_UNKNOWN: return kUnknown;
    default: return kOther;
    }
}

EntryKind kind_by_mode(mode_t mode)
{
    return S_ISREG(mode) ? kFile : S_ISDIR(mode) ? kDir : kOther;
}

// An open directory, closed on every way out.
class OpenDirectory {
public:
    // Opens the directory. Without one, the object is false and errno says why.
    explicit OpenDirectory(const char *path)
    {
        errno = EFAULT;  // the reason when path is null
        do
            dir_ = path ? opendir(path) : nullptr;
        while (!dir_ && errno == EINTR);
        if (!dir_ || dirfd(dir_) > STDERR_FILENO)
            return;
        closedir(dir_);
        const stock::StandardOccupied occupied;
        dir_ = opendir(path);
    }
    ~OpenDirectory()
    {
        const stock::KeepErrno keep;
        if (dir_)
            closedir(dir_);
    }
    OpenDirectory(const OpenDirectory &) = delete;
    OpenDirectory &operator=(const OpenDirectory &) = delete;

    explicit operator bool() const { return dir_ != nullptr; }

    // The next entry, without "." and "..". Null on failure, and at the end with errno 0.
    const dirent *next() const
    {
        const dirent *entry = nullptr;
        do {
            errno = 0;
            entry = readdir(dir_);
        } while (entry && is_dot_or_dot_dot(entry->d_name));
        return entry;
    }

    // Fills the status of the directory itself.
    bool status(struct stat &status) const { return refstat(dirfd(dir_), &status) == 0; }

    // Fills the status of what the entry leads to.
    bool examine(const char *name, struct stat &status) const
    {
        const int fd = dirfd(dir_);
        return stock::uninterrupted([&] { return fstatat(fd, name, &status, 0); }) == 0;
    }

private:
    DIR *dir_ = nullptr;
};

struct DirectoryEntry {
    std::uint64_t key;  // eight bytes of the name, as a number that orders like them
    const char *name;
    EntryKind kind;
};

// The number whose order is that of the first eight bytes. Reads behind a shorter text.
std::uint64_t key_at(const char *text)
{
    std::uint64_t key = 0;
    for (int i = 0; i < 8; ++i)
        key = key << 8 | static_cast<unsigned char>(text[i]);
    return key;
}

// The sorted names of one directory, with what the directory itself tells of each.
class Listing {
public:
    // Reads all that is left of the directory. The lock is held around the reading alone and
    // not while memory is asked for, because running out of memory must find it free.
    bool read(const OpenDirectory &dir, stock::OrderedLock &lock)
    {
        for (;;) {
            grow();
            switch (fill(dir, lock)) {
            case Filled::whole: sort(); return true;
            case Filled::failed: return false;
            case Filled::part: break;
            }
        }
    }

    std::span<DirectoryEntry> entries() const { return {entries_.get(), count_}; }

private:
    enum class Filled { whole, part, failed };

    static constexpr std::size_t kChunkBytes = 8192;        // of memory asked for at once, or more
    static constexpr std::size_t kLongestNameBytes = 4096;  // with the terminator
    // key_at reads this far behind a name.
    static constexpr char kPaddingBytes[8] = {};
    static constexpr std::string_view kPadding{kPaddingBytes, sizeof kPaddingBytes};

    void grow() { block_.reserve(kChunkBytes); }

    // Adds entries to the block until it is nearly full: a byte for the kind, then the name
    // with its terminator.
    Filled fill(const OpenDirectory &dir, stock::OrderedLock &lock)
    {
        const std::lock_guard hold(lock);
        while (block_.room() > 1 + kLongestNameBytes + kPadding.size()) {
            const dirent *entry = dir.next();
            if (!entry)
                return errno ? Filled::failed : Filled::whole;
            const char kind = static_cast<char>(kind_by_type(entry->d_type));
            block_.add({&kind, 1});
            block_.add({entry->d_name, strnlen(entry->d_name, kLongestNameBytes - 1)});
            block_.add(kPadding.substr(0, 1));
            ++count_;
        }
        return Filled::part;
    }

    void sort()
    {
        list();
        const std::size_t shared = shared_length();
        for (DirectoryEntry &entry : entries())
            entry.key = key_at(entry.name + shared);
        const auto before = [shared](const DirectoryEntry &a, const DirectoryEntry &b) {
            return a.key != b.key ? a.key < b.key
                                  : std::strcmp(a.name + shared, b.name + shared) < 0;
        };
        const auto same = [](const DirectoryEntry &a, const DirectoryEntry &b) {
            return !std::strcmp(a.name, b.name);
        };
        std::sort(entries().begin(), entries().end(), before);
        // A directory that changes meanwhile may give a name twice.
        const auto end = std::unique(entries().begin(), entries().end(), same);
        count_ = static_cast<std::size_t>(end - entries().begin());
    }

    // Makes an entry for each name of the block, which does not move any more.
    void list()
    {
        block_.add(kPadding);
        void *entries = stock::allocate(count_ * sizeof(DirectoryEntry), "entries");
        entries_.reset(static_cast<DirectoryEntry *>(entries));
        const char *next = block_.c_str();
        for (DirectoryEntry &entry : this->entries()) {
            entry = {0, next + 1, static_cast<EntryKind>(*next)};
            next = entry.name + std::strlen(entry.name) + 1;
        }
    }

    // How many bytes all names have in common at their beginning.
    std::size_t shared_length() const
    {
        if (!count_)
            return 0;
        std::string_view shared = entries()[0].name;
        for (const DirectoryEntry &entry : entries()) {
            std::size_t length = 0;
            while (length < shared.size() && entry.name[length] == shared[length])
                ++length;
            shared = shared.substr(0, length);
        }
        return shared.size();
    }

    stock::GrowingText block_{0, "names", "grow"};
    Owned<DirectoryEntry> entries_;
    std::size_t count_ = 0;
};

// Whether names can be looked up in the directory at all.
bool searchable(const OpenDirectory &dir)
{
    struct stat status;
    return dir.examine(".", status);
}

// Whether the entry is of one of the kinds in `which`.
bool wanted(const OpenDirectory &dir, const DirectoryEntry &entry, int which)
{
    struct stat status;
    if (entry.kind != kUnknown)
        return (entry.kind & which) != 0;
    return dir.examine(entry.name, status) && (kind_by_mode(status.st_mode) & which) != 0;
}

// Enters a copy of the status under the entry's name.
void keep_status(Arr *arr, const char *name, const struct stat &status)
{
    void *record = stock::allocate(sizeof status, "entrystatbuf", "directory");
    setarr(arr, name, std::memcpy(record, &status, sizeof status));
}

// 1 for a directory without entries, 0 for one with entries, -1 when it cannot be read.
int is_empty_directory(const char *path)
{
    const OpenDirectory dir(path);
    if (!dir)
        return -1;
    const std::lock_guard hold(stock::directory_locks.is_empty);
    return dir.next() ? 0 : errno ? -1 : 1;
}

// Walks of trees.

// One call of fstraverse. The directories that the walk is inside of are a list on the
// heap, innermost first, so that no depth of the tree needs stack.
class TreeWalk {
public:
    using Function = int (*)(const char *path, const struct stat *status, void *argument);

    TreeWalk(int flags, Function function, void *argument)
        : flags_(function ? flags : flags | FSTRAVERSE_NO_DIRS | FSTRAVERSE_NO_FILES),
          function_(function), argument_(argument)
    {
    }

    // Frees the list step by step: its destructors would call each other as deep as
    // the tree is.
    ~TreeWalk()
    {
        while (innermost_)
            innermost_ = std::move(innermost_->outer);
    }

    // Walks the tree and returns what fstraverse returns.
    int from(const char *root)
    {
        // The clean path of an entry "x", without the "x", is what stands before each entry.
        const Owned<char> joined(concatpaths(root, "x", nullptr));
        if (*joined && enter(root)) {
            innermost_->length = std::strlen(joined.get()) - 1;
            append(0, joined.get());
            walk();
        }
        return failed_ || !*joined ? -1 : sum();
    }

private:
    // A directory that the walk is inside of.
    struct Level {
        dev_t device;
        ino_t inode;
        Listing listing;
        Owned<struct stat> statuses;  // of the entries; set for those that are called_for
        std::size_t length = 0;       // of the path in front of its entries, with the "/"
        std::size_t next = 0;         // the first entry that next_dir has not looked at
        std::unique_ptr<Level> outer;
    };

    bool depth_first() const { return flags_ & FSTRAVERSE_DEPTH_FIRST; }

    void walk()
    {
        if (!depth_first())
            visit_files();
        while (innermost_)
            if (const DirectoryEntry *dir = next_dir())
                visit_dir(dir->name);
            else
                leave();
    }

    // The next subdirectory of the innermost directory; null when there is none.
    const DirectoryEntry *next_dir() const
    {
        const auto entries = innermost_->listing.entries();
        while (innermost_->next < entries.size()) {
            const DirectoryEntry &entry = entries[innermost_->next++];
            if (entry.kind == kDir)
                return &entry;
        }
        return nullptr;
    }

    // Enters the subdirectory of that name. When it cannot be entered it is only reported.
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

    // Lists and examines the directory and makes it the innermost one. False when it cannot
    // be read, which is logged, or when the walk is inside of it already.
    bool enter(const char *path)
    {
        std::unique_ptr<Level> level(new (std::nothrow) Level);
        if (!level)
            stock::out_of_memory(sizeof(Level), "level", "fstraverse");
        const OpenDirectory dir(path);
        struct stat status;
        if (dir && dir.status(status)) {
            if (is_inside(status))
                return false;
            level->device = status.st_dev;
            level->inode = status.st_ino;
            if (level->listing.read(dir, stock::directory_locks.directory)) {
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

    // Whether the directory is one that the walk is inside of, so that a link leads back.
    bool is_inside(const struct stat &status) const
    {
        const Level *level = innermost_.get();
        while (level && !(level->device == status.st_dev && level->inode == status.st_ino))
            level = level->outer.get();
        return level != nullptr;
    }

    // Fills the statuses of the entries and settles their kinds.
    void examine_all(const OpenDirectory &dir, Level &level) const
    {
        const auto entries = level.listing.entries();
        void *block =
            stock::allocate(entries.size() * sizeof(struct stat), "entrystatbuf", "fstraverse");
        level.statuses.reset(static_cast<struct stat *>(block));
        struct stat *status = level.statuses.get();
        for (DirectoryEntry &entry : entries) {
            const bool found = called_for(entry.kind) && dir.examine(entry.name, *status);
            entry.kind = found ? kind_by_mode(status->st_mode) : kOther;
            ++status;
        }
    }

    // Whether entries of the kind may be visited, or must be examined to know.
    bool called_for(EntryKind kind) const
    {
        return kind != kOther && !(kind == kFile && (flags_ & FSTRAVERSE_NO_FILES));
    }

    // Calls the function for every file of the innermost directory.
    void visit_files()
    {
        if (flags_ & FSTRAVERSE_NO_FILES)
            return;
        const struct stat *status = innermost_->statuses.get();
        for (const DirectoryEntry &entry : innermost_->listing.entries()) {
            if (entry.kind == kFile) {
                append(innermost_->length, entry.name);
                sum_ += function_(path_.get(), status, argument_);
            }
            ++status;
        }
    }

    // Calls the function for the subdirectory that next_dir returned last.
    void report_dir()
    {
        const struct stat *status = innermost_->statuses.get() + innermost_->next - 1;
        if (!(flags_ & FSTRAVERSE_NO_DIRS))
            sum_ += function_(path_.get(), status, argument_);
    }

    int sum() const { return static_cast<int>(std::clamp<std::int64_t>(sum_, INT_MIN, INT_MAX)); }

    // Replaces what stands behind the first `length` bytes of the path by the name. Returns
    // the new length.
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
    std::unique_ptr<char[], stock::Free> path_;  // of what is visited
    std::size_t size_ = 0;                       // of the memory of path_
    std::int64_t sum_ = 0;                       // of the function's results
    bool failed_ = false;                        // a directory could not be read
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
    const OpenDirectory dir(path);
    Listing listing;
    if (!dir || !listing.read(dir, stock::directory_locks.dirfiles))
        return newtbl(0);
    const auto entries = listing.entries();
    Tbl *list = newtbl(static_cast<std::int64_t>(entries.size()));
    if (which && !searchable(dir))
        return list;
    for (const DirectoryEntry &entry : entries)
        if (!which || wanted(dir, entry, which))
            pushtbl(list, stock::copy_text(entry.name, "name"));
    return list;
}

int directory(const char *path, Arr **dirs, Arr **files)
{
    Arr *const found_dirs = dirs ? *dirs = newarr(nullptr) : nullptr;
    Arr *const found_files = files ? *files = newarr(nullptr) : nullptr;
    const OpenDirectory dir(path);
    Listing listing;
    if (!dir || !listing.read(dir, stock::directory_locks.directory))
        return -1;
    for (const DirectoryEntry &entry : listing.entries()) {
        struct stat status;
        if (entry.kind == kOther || !dir.examine(entry.name, status))
            continue;
        const EntryKind kind = kind_by_mode(status.st_mode);
        Arr *const arr = kind == kDir ? found_dirs : kind == kFile ? found_files : nullptr;
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
    if (std::strlen(path) > kLongestRootBytes) {
        elog_log(0, "path is too long: %s\n", path);
        return -1;
    }
    return TreeWalk(flags, function, argument).from(path);
}
