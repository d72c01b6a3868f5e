// Path names as text: cleaning, joining, splitting, making absolute and relative.
//
// A path is cleaned from left to right into one buffer: each component is appended, dropped,
// or takes the last one away. A symbolic link's target is put in front of the components
// that are left. The disk is asked as seldom as the answer allows: when a path exists, so
// does every directory on its way.

#include "stock/path.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <initializer_list>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/guards.h"
#include "base/limits.h"
#include "base/passwd.h"
#include "base/uninterrupted.h"
#include "deviants.h"
#include "stock/elog.h"
#include "stock/restat.h"
#include "stock/strings.h"

namespace {

using std::string_view;
using stock::kPathSize;
using stock::Owned;

constexpr int kMaxLinks = 11;      // followed on the way: the twelfth fails
constexpr int kMaxLastLinks = 40;  // followed at the end of the path

// How cleaning a path ended. When several are true, the last one counts.
enum class Outcome {
    clean,
    partly,    // a directory on the way is missing, or a link cannot be followed
    too_long,  // the clean path does not fit a path's buffer
};

bool fits(string_view text)
{
    return text.size() < kPathSize;
}

// Fills a path's buffer, which may be the text's own memory. Text that does not fit leaves
// the buffer empty, because a part of it would be another path.
void copy_whole(string_view text, char *buffer)
{
    const size_t length = fits(text) ? text.size() : 0;
    memmove(buffer, text.data(), length);
    buffer[length] = '\0';
}

void report_too_long(const char *path)
{
    elog_log(0, "path is too long: %s\n", path);
}

// Cleans one path into a buffer of its own.
class PathCleaner {
public:
    PathCleaner(const char *path, bool follow_links) : path_(path), follow_links_(follow_links) {}

    // Cleans the path as it stands.
    Outcome run()
    {
        start();
        clean_rest();
        return outcome_;
    }

    // Cleans a relative path as seen from an absolute directory.
    Outcome run_from(const char *directory)
    {
        put_in_front(directory, path_, "path", "abspath");
        clean_rest();
        return outcome_;
    }

    // Copies the clean path, which is empty when it is too long. The buffer may be the
    // path's own memory.
    void write(char *buffer) const
    {
        if (outcome_ == Outcome::too_long)
            return copy_whole("", buffer);
        string_view clean = text();
        if (clean.starts_with("./"))
            clean.remove_prefix(2);
        if (clean.starts_with("//"))  // a home directory may be given so
            clean.remove_prefix(1);
        copy_whole(clean.empty() ? "/" : clean, buffer);
    }

private:
    // Begins the clean text by the path's first character: the root, a home directory or ".".
    void start()
    {
        rest_ = path_;
        if (*path_ == '~')
            return start_at_home(next_component());
        set(*path_ == '/' ? "" : ".");
    }

    // Begins with the home directory of "~" or "~USER", or with that text when there is none.
    void start_at_home(string_view component)
    {
        if (!fits(component))
            return fail(Outcome::too_long);
        char user[kPathSize];
        copy_whole(component.substr(1), user);
        const Owned<char> home(homedir(user));
        string_view text = home ? string_view(home.get()) : component;
        while (home && text.ends_with('/'))
            text.remove_suffix(1);
        set(text);
    }

    // Cleans the components that are left.
    void clean_rest()
    {
        while (outcome_ != Outcome::too_long && has_component()) {
            const string_view component = next_component();
            if (component == ".")
                continue;
            if (component == "..")
                climb();
            else if (!add(component)) {
                append_rest();
                break;
            }
        }
        if (unchecked_)
            check();
        if (outcome_ == Outcome::too_long)
            report_too_long(path_);
    }

    // Appends an ordinary component, or follows it when it is a link. False when the rest
    // cannot be cleaned, only appended.
    bool add(string_view component)
    {
        const size_t parent = length_;
        const bool last = !has_component();
        if (last && unchecked_)
            check();
        if (!append(component))
            return false;
        if (follow_links_)
            return follow_link(parent);
        unchecked_ = !last;  // the path itself need not exist
        return true;
    }

    // Takes the last component away, or climbs above the directory where a relative path
    // begins.
    void climb()
    {
        if (unchecked_)
            check();
        const size_t slash = text().rfind('/');
        const bool above = text() == ".." || text().ends_with("/..");
        if (text() == ".")
            set("..");
        else if (slash != string_view::npos && !above)
            length_ = slash;
        else if (length_ > 0)
            append("..");
    }

    // Asks the disk whether the text leads to something, a file or a directory.
    void check()
    {
        struct stat status;
        unchecked_ = false;
        text_[length_] = '\0';
        if (relstat(text_, &status) < 0)
            fail(Outcome::partly);
    }

    // When the text ends in a link, takes the link away, back to its parent's `parent`
    // characters, and puts its target in front of the rest. False when a link cannot be
    // followed; the reason is logged.
    bool follow_link(size_t parent)
    {
        char target[kPathSize];
        text_[length_] = '\0';
        const ssize_t size =
            stock::uninterrupted([&] { return readlink(text_, target, sizeof target); });
        if (size < 0 && (errno == EINVAL || !is_link()))
            return true;
        if (too_many_links())
            return false;
        if (size == sizeof target)
            errno = ENAMETOOLONG;
        if (size < 0 || size == sizeof target) {
            elog_log(1, "can't read link for %s", text_);
            fail(Outcome::partly);
            return false;
        }
        target[size] = '\0';
        length_ = *target == '/' ? 0 : parent;
        put_in_front(target, rest_, "link", "cleanpath");
        return true;
    }

    // Whether the text names a link, where reading it as one failed. What cannot be examined
    // is none, and that is a failure only when components follow.
    bool is_link()
    {
        const stock::KeepErrno keep;
        struct stat status;
        if (relstat(text_, &status) == 0)
            return S_ISLNK(status.st_mode);
        if (has_component())
            fail(Outcome::partly);
        return false;
    }

    // Counts a link. Logs and fails when it is one too many.
    bool too_many_links()
    {
        const bool on_the_way = has_component();
        int &links = on_the_way ? links_ : last_links_;
        const int most = on_the_way ? kMaxLinks : kMaxLastLinks;
        if (links < most) {
            ++links;
            return false;
        }
        elog_log(0, "too many symbolic links (>%d) for %s", on_the_way ? links + 1 : links, path_);
        fail(Outcome::partly);
        return true;
    }

    // Whether a component is left.
    bool has_component()
    {
        rest_ += strspn(rest_, "/");
        return *rest_ != '\0';
    }

    // Takes the next component, which must be there. It is valid until put_in_front.
    string_view next_component()
    {
        const string_view component(rest_, strcspn(rest_, "/"));
        rest_ += component.size();
        return component;
    }

    // Makes the text, "/" and `rest` what is left to clean; `rest` may be rest_ itself.
    void put_in_front(string_view text, string_view rest, const char *item, const char *function)
    {
        const size_t size = std::max(text.size() + 1 + rest.size() + 1, kPathSize);
        auto *joined = static_cast<char *>(stock::allocate(size, item, function));
        char *end = joined + text.copy(joined, text.size());
        *end++ = '/';
        end += rest.copy(end, rest.size());
        *end = '\0';
        rest_ = joined;
        rest_memory_.reset(joined);
    }

    void append_rest()
    {
        while (has_component() && append(next_component())) {
        }
    }

    // Appends "/" and the component. Fails when the path is too long then; "./" in front,
    // which write leaves out, does not count.
    bool append(string_view component)
    {
        const bool relative = text() == "." || text().starts_with("./");
        if (length_ + 1 + component.size() >= kPathSize + (relative ? 2 : 0)) {
            fail(Outcome::too_long);
            return false;
        }
        text_[length_++] = '/';
        length_ += component.copy(text_ + length_, component.size());
        return true;
    }

    void set(string_view text)
    {
        if (!fits(text))
            return fail(Outcome::too_long);
        length_ = text.copy(text_, text.size());
    }

    string_view text() const { return {text_, length_}; }
    void fail(Outcome outcome) { outcome_ = std::max(outcome_, outcome); }

    const char *const path_;
    const bool follow_links_;
    Outcome outcome_ = Outcome::clean;
    int links_ = 0;            // followed on the way
    int last_links_ = 0;       // followed at the end
    bool unchecked_ = false;   // the text has grown since the disk was asked for it
    const char *rest_ = "";    // the components that are left
    Owned<char> rest_memory_;  // holds them, unless they are the path's own
    size_t length_ = 0;
    char text_[kPathSize + 2];  // the clean path without terminator; empty for the root
};

// Makes the path absolute and clean, as abspath says. It begins with "/", unless nobody
// knows the user in front or the current directory.
Outcome absolute_path(const char *path, char *absolute)
{
    const bool relative = *path != '/' && *path != '~';
    char directory[kPathSize];
    if (relative && !getcwd(directory, sizeof directory)) {
        elog_log(1, "Can't discover current directory: getcwd(3) fails\n");
        copy_whole(path, absolute);
        return *absolute || !*path ? Outcome::partly : Outcome::too_long;
    }
    PathCleaner cleaner(path, false);
    const Outcome outcome = relative ? cleaner.run_from(directory) : cleaner.run();
    cleaner.write(absolute);
    return outcome;
}

// Like absolute_path, but with the empty text for the root, so that every component has a
// "/" in front. False, with the reason logged, when the path has no absolute form.
bool rooted_path(const char *path, char *absolute)
{
    absolute_path(path, absolute);
    if (*absolute == '~')
        elog_log(0, "there is no home directory for %s\n", absolute);
    if (*absolute != '/')
        return false;
    if (!strcmp(absolute, "/"))
        *absolute = '\0';
    return true;
}

bool at_boundary(char c)
{
    return c == '/' || c == '\0';
}

// Counts the bytes that two absolute paths have in common, up to the end of a component.
size_t common_prefix(const char *a, const char *b)
{
    size_t n = 0;
    while (a[n] && a[n] == b[n])
        ++n;
    if (at_boundary(a[n]) && at_boundary(b[n]))
        return n;
    const size_t slash = string_view(a, n).rfind('/');
    return slash == string_view::npos ? 0 : slash;
}

// Writes the relative path between two absolute ones: "../" for each component of `from`
// behind the common part, then what `to` has behind it. False when that does not fit.
bool write_relative(const char *from, const char *to, char *relative)
{
    const size_t prefix = common_prefix(from, to);
    size_t length = 0;
    for (const char *c = from + prefix; *c; ++c) {
        if (*c != '/')
            continue;
        if (length + 3 >= kPathSize)
            return false;
        strcpy(relative + length, "../");
        length += 3;
    }
    const char *rest = to + prefix;
    if (*rest == '/')
        ++rest;
    if (!*rest && length > 0)
        --length;  // no "/" at the end
    const size_t size = strlen(rest);
    if (length + size >= kPathSize)
        return false;
    memcpy(relative + length, rest, size + 1);
    if (!*relative)
        strcpy(relative, ".");
    return true;
}

// The two sides of a path's last "/", cut out of its text.
struct DirAndBase {
    string_view dir;
    string_view base;
};

// Splits a path at its last "/". `root` is what "/x" has for a directory. A null path counts
// as an empty one.
DirAndBase split_path(const char *text, string_view root)
{
    const string_view path = text ? text : "";
    const size_t slash = path.rfind('/');
    if (slash == string_view::npos)
        return {".", path};
    return {slash == 0 ? root : path.substr(0, slash), path.substr(slash + 1)};
}

// Fills the buffers of parsepath or dirbase; a null one is left out. When a part does not
// fit, all are empty.
void write_parts(const char *path, std::initializer_list<std::pair<string_view, char *>> parts)
{
    const bool whole =
        std::all_of(parts.begin(), parts.end(), [](const auto &part) { return fits(part.first); });
    for (const auto &[text, buffer] : parts)
        if (buffer)
            copy_whole(whole ? text : "", buffer);
    if (!whole)
        report_too_long(path);
}

bool is_missing(const char *path)
{
    struct stat status;
    return restat(path, &status) < 0 && errno == ENOENT;
}

// Returns 0 when there is a directory that may be written to, else -1 with the reason logged.
int check_dir(const char *dir)
{
    struct stat status;
    if (restat(dir, &status) < 0)
        elog_log(0, "Can't open or create directory %s\n", dir);
    else if (!S_ISDIR(status.st_mode))
        elog_log(0, "%s is not a directory\n", dir);
    else if (faccessat(AT_FDCWD, dir, W_OK, AT_EACCESS) < 0)
        elog_log(0, "can't write to directory %s\n", dir);
    else
        return 0;
    return -1;
}

constexpr mode_t kDirMode = 0775;  // of new directories, before the umask

// Makes a directory and those above it that are missing. Returns what check_dir returns. The
// text is changed meanwhile.
int create_dir(char *dir)
{
    if (is_missing(dir))
        mkdir(dir, kDirMode);
    if (is_missing(dir)) {
        char *slash = strrchr(dir, '/');
        if (slash && slash != dir) {
            *slash = '\0';
            create_dir(dir);
            *slash = '/';
        }
        mkdir(dir, kDirMode);
    }
    return check_dir(dir);
}

}  // namespace

int cleanpath(const char *path, uint32_t flags, char *clean)
{
    const stock::KeepErrno keep;
    if (!path) {
        *clean = '\0';
        return -1;
    }
    PathCleaner cleaner(path, (flags & CLEANPATH_LINKS) != 0);
    const Outcome outcome = cleaner.run();
    cleaner.write(clean);
    return outcome == Outcome::clean ? 0 : -1;
}

char *concatpaths(const char *first, ...)
{
    va_list parts;
    size_t size = sizeof ".";
    va_start(parts, first);
    for (const char *part = first; part; part = va_arg(parts, const char *))
        size += strlen(part) + 1;
    va_end(parts);

    const Owned<char> joined(
        static_cast<char *>(stock::allocate(std::max(size, kPathSize), "new")));
    char *end = stpcpy(joined.get(), first && *first ? first : ".");
    va_start(parts, first);
    const char *part = first;
    while (part && (part = va_arg(parts, const char *))) {
        if (*part == '/')
            end = joined.get();
        else if (end[-1] != '/')
            *end++ = '/';
        end = stpcpy(end, part);
    }
    va_end(parts);

    auto *clean = static_cast<char *>(stock::allocate(kPathSize, "new2"));
    cleanpath(joined.get(), 0, clean);
    return clean;
}

int abspath(const char *path, char *absolute)
{
    if (!path) {
        *absolute = '\0';
        return -1;
    }
    const stock::KeepErrno keep;
    return absolute_path(path, absolute) == Outcome::clean ? 0 : -1;
}

int relpath(const char *from, const char *to, char *relative)
{
    const stock::KeepErrno keep;
    char start[kPathSize];
    char end[kPathSize];
    if (!from || !to || !rooted_path(from, start) || !rooted_path(to, end)) {
        *relative = '\0';
        return -1;
    }
    struct stat status;
    int result = 0;
    if (restat(*start ? start : "/", &status) < 0)
        result = -1;
    else if (!S_ISDIR(status.st_mode)) {
        result = -1;
        *strrchr(start, '/') = '\0';
    }
    if (!write_relative(start, end, relative)) {
        report_too_long(to);
        *relative = '\0';
        return -1;
    }
    return result;
}

char *parsepath(const char *path, char *dir, char *base, char *suffix)
{
    // Meant: the directory of "/x" is empty here; dirbase gives "/".
    auto [before, name] = split_path(path, "");
    string_view ending = "";
    const size_t dot = name.rfind('.');
    if (suffix && dot != string_view::npos && dot > 0) {
        ending = name.substr(dot + 1);
        name = name.substr(0, dot);
    }
    write_parts(path, {{ending, suffix}, {name, base}, {before, dir}});
    return suffix;
}

void dirbase(const char *path, char *dir, char *base)
{
    const auto [before, name] = split_path(path, "/");
    write_parts(path, {{name, base}, {before, dir}});
}

int samepath(const char *a, const char *b)
{
    const stock::KeepErrno keep;
    char absolute_a[kPathSize];
    char absolute_b[kPathSize];
    return a && b && absolute_path(a, absolute_a) != Outcome::too_long &&
           absolute_path(b, absolute_b) != Outcome::too_long && !strcmp(absolute_a, absolute_b);
}

char *homedir(const char *user)
{
    char name[kPathSize];
    if (!user || !*user) {
        if (my_username(name) != 0)
            return nullptr;
        user = name;
    }
    char *home = nullptr;
    stock::with_passwd([user](auto... rest) { return getpwnam_r(user, rest...); },
                       [&](const struct passwd &entry) {
                           home = stock::copy_text(entry.pw_dir, "home", "homedir");
                       });
    return home;
}

int makedir(const char *dir)
{
    if (!dir || strlen(dir) >= kPathSize) {
        elog_log(0, "Can't open or create directory %s\n", okstr(dir));
        return -1;
    }
    char path[kPathSize];
    strcpy(path, dir);
    return create_dir(path);
}

int make_pathdirs(const char *path)
{
    const char *slash = path ? strrchr(path, '/') : nullptr;
    if (!slash)
        return 0;
    if (slash == path)
        return makedir("/");
    const Owned<char> dir(stock::copy_text(path, "dir"));
    dir.get()[slash - path] = '\0';
    return makedir(dir.get());
}
