// Path names as text: cleaning, joining, splitting, making absolute and relative.
//
// A path is built from left to right in one buffer: each component is appended,
// dropped, or takes the last one away. What is still to do is a stack of texts,
// so that a link's target is put in front by pushing it, and nothing is joined
// or copied twice. The disk is asked as seldom as the answer allows: a path that
// exists vouches for every directory on its way.

#include "stock/path.h"

#include <algorithm>
#include <array>
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
#include "base/passwd.h"
#include "base/uninterrupted.h"
#include "deviants.h"
#include "stock/elog.h"
#include "stock/restat.h"
#include "stock/strings.h"

namespace {

using std::string_view;

constexpr size_t kPathSize = 1024;  // of every path buffer, terminator included
constexpr int kMaxLinks = 11;       // followed on the way: the twelfth fails
constexpr int kMaxLastLinks = 40;   // followed at the end of the path

enum class Outcome { clean, partly, too_long };

bool fits(string_view text)
{
    return text.size() < kPathSize;
}

// Fills a path's buffer, which may be the text's own memory. What does not fit is not cut,
// for that would be another path: the buffer is empty then.
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

// Walks along a path and gathers its clean form.
class Walk {
public:
    Walk(const char *path, uint32_t flags) : path_(path), follow_(flags & CLEANPATH_LINKS) {}

    // Cleans the path as it stands.
    Outcome run();
    // Cleans the path as seen from an absolute directory.
    Outcome run_from(const char *directory);

    // Writes what was gathered; the buffer may be the path's own memory.
    void write(char *buffer) const;

private:
    // Text still to be walked; a link's target belongs to the walk.
    struct Source {
        const char *rest;
        stock::Owned<char> owned;
    };

    const char *start();
    void start_at_home(string_view component);
    void walk();
    bool step(string_view component);
    void climb();
    bool append(string_view component);
    void examine();
    bool resolve(size_t parent);
    bool is_link();
    bool too_many_links();
    void append_rest();

    void push(const char *text, stock::Owned<char> owned = nullptr);
    bool more();
    string_view next();

    string_view text() const { return {text_, length_}; }
    void set(string_view text);
    void fail(Outcome outcome) { outcome_ = std::max(outcome_, outcome); }

    const char *path_;
    bool follow_;
    Outcome outcome_ = Outcome::clean;
    int links_ = 0;
    int last_links_ = 0;
    bool unseen_ = false;  // the end of the text was not examined yet
    size_t depth_ = 0;
    std::array<Source, kMaxLinks + kMaxLastLinks + 2> todo_;
    size_t length_ = 0;
    char text_[kPathSize + 2];  // empty for the root; "./" in front does not count
};

void Walk::push(const char *text, stock::Owned<char> owned)
{
    todo_[depth_++] = {text, std::move(owned)};
}

// Whether a component follows. A source that has none is left, but keeps its text
// until another takes its place: the present component may lie in it.
bool Walk::more()
{
    while (depth_ > 0) {
        Source &source = todo_[depth_ - 1];
        source.rest += strspn(source.rest, "/");
        if (*source.rest)
            return true;
        --depth_;
    }
    return false;
}

// Takes the next component; there must be one.
string_view Walk::next()
{
    const char *&rest = todo_[depth_ - 1].rest;
    const string_view component(rest, strcspn(rest, "/"));
    rest += component.size();
    return component;
}

void Walk::set(string_view text)
{
    if (!fits(text))
        return fail(Outcome::too_long);
    memcpy(text_, text.data(), text.size());
    length_ = text.size();
}

Outcome Walk::run()
{
    push(start());
    walk();
    return outcome_;
}

Outcome Walk::run_from(const char *directory)
{
    push(path_);
    push(directory);
    walk();
    return outcome_;
}

// Begins the text and gives what is to be walked from there.
const char *Walk::start()
{
    if (*path_ == '~') {
        const string_view component(path_, strcspn(path_, "/"));
        start_at_home(component);
        return path_ + component.size();
    }
    set(*path_ == '/' ? "" : ".");
    return path_;
}

void Walk::start_at_home(string_view component)
{
    if (!fits(component))
        return fail(Outcome::too_long);
    char user[kPathSize];
    copy_whole(component.substr(1), user);
    const stock::Owned<char> home(homedir(user));
    string_view text = home ? string_view(home.get()) : component;
    while (home && text.ends_with('/'))
        text.remove_suffix(1);
    set(text);
}

void Walk::walk()
{
    while (outcome_ != Outcome::too_long && more()) {
        const string_view component = next();
        if (component == ".")
            continue;
        if (component == "..")
            climb();
        else if (!step(component)) {
            append_rest();
            break;
        }
    }
    if (unseen_)
        examine();
    if (outcome_ == Outcome::too_long)
        report_too_long(path_);
}

// Appends an ordinary component. False when the walk ends here.
bool Walk::step(string_view component)
{
    const size_t parent = length_;
    const bool last = !more();
    if (last && unseen_)
        examine();
    if (!append(component))
        return false;
    if (follow_)
        return resolve(parent);
    unseen_ = !last;
    return true;
}

// Takes the last component away, or climbs above where the path began.
void Walk::climb()
{
    if (unseen_)
        examine();
    const size_t slash = text().rfind('/');
    const bool above = text() == ".." || text().ends_with("/..");
    if (text() == ".")
        set("..");
    else if (slash != string_view::npos && !above)
        length_ = slash;
    else if (length_ > 0)
        append("..");
}

bool Walk::append(string_view component)
{
    const bool relative = text() == "." || text().starts_with("./");
    if (length_ + 1 + component.size() >= kPathSize + (relative ? 2 : 0)) {
        fail(Outcome::too_long);
        return false;
    }
    text_[length_++] = '/';
    memcpy(text_ + length_, component.data(), component.size());
    length_ += component.size();
    return true;
}

// Asks whether the text names something that is there; what it is matters not.
void Walk::examine()
{
    struct stat status;
    unseen_ = false;
    text_[length_] = '\0';
    if (relstat(text_, &status) < 0)
        fail(Outcome::partly);
}

// When the text ends in a link, puts the link's target in its place: the text goes
// back to the parent, and the target is walked next. False when the walk ends.
bool Walk::resolve(size_t parent)
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
    auto *link = static_cast<char *>(stock::allocate(kPathSize, "link", "cleanpath"));
    memcpy(link, target, static_cast<size_t>(size));
    link[size] = '\0';
    length_ = *link == '/' ? 0 : parent;
    push(link, stock::Owned<char>(link));
    return true;
}

// Whether the text names a link, where reading it as one failed. What cannot be
// examined is none; that fails only when other components follow.
bool Walk::is_link()
{
    const stock::KeepErrno keep;
    struct stat status;
    if (relstat(text_, &status) == 0)
        return S_ISLNK(status.st_mode);
    if (more())
        fail(Outcome::partly);
    return false;
}

bool Walk::too_many_links()
{
    const bool on_the_way = more();
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

void Walk::append_rest()
{
    while (more() && append(next())) {
    }
}

void Walk::write(char *buffer) const
{
    if (outcome_ == Outcome::too_long)
        return copy_whole("", buffer);
    string_view clean = text();
    if (clean.starts_with("./"))
        clean.remove_prefix(2);
    if (clean.starts_with("//"))
        clean.remove_prefix(1);
    copy_whole(clean.empty() ? "/" : clean, buffer);
}

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
    Walk walk(path, 0);
    const Outcome outcome = relative ? walk.run_from(directory) : walk.run();
    walk.write(absolute);
    return outcome;
}

// The same with the root as the empty text, so that every component has a "/" in
// front. False when there is no such form; the reason is logged.
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

// How many bytes the two paths have in common, up to the end of a component.
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

// The way between two absolute paths. False when it does not fit.
bool write_way(const char *from, const char *to, char *way)
{
    const size_t prefix = common_prefix(from, to);
    size_t length = 0;
    for (const char *c = from + prefix; *c; ++c) {
        if (*c != '/')
            continue;
        if (length + 3 >= kPathSize)
            return false;
        strcpy(way + length, "../");
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
    memcpy(way + length, rest, size + 1);
    if (!*way)
        strcpy(way, ".");
    return true;
}

// The two sides of a path's last "/".
struct Split {
    string_view dir;
    string_view base;
};

// Splits at the last "/"; root is the directory of "/x". A null path is an empty one.
Split split_path(const char *text, string_view root)
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

// Whether there is a directory to write to; if not, the reason is logged.
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

constexpr mode_t kDirMode = 0775;

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
    Walk walk(path, flags);
    const Outcome outcome = walk.run();
    walk.write(clean);
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

    const stock::Owned<char> joined(
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
    if (!write_way(start, end, relative)) {
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
    const stock::Owned<char> dir(stock::copy_text(path, "dir"));
    dir.get()[slash - path] = '\0';
    return makedir(dir.get());
}
