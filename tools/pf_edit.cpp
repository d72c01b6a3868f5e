// stock pf set and del: changing one value of a file and no other byte.
//
// The new text is made in memory and parsed by the library. It is good when it gives the old
// tree with this one value changed. Then the file is replaced, while its lock keeps other
// edits out.

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#ifdef __linux__
#include <sys/xattr.h>
#endif
#include <unistd.h>

#include "base/ascii.h"
#include "pf_source.h"
#include "pf_tool.h"

namespace {

constexpr const char *kSetHelp =
    "usage: stock pf set FILE ADDRESS VALUE\n"
    "\n"
    "Gives a value of a parameter file another text, and leaves every other byte of the\n"
    "file as it is: comments, order and blank lines. A value that is not there yet, and\n"
    "the tables and lists around it, are added at the end of what holds them; behind\n"
    "the last element of a list a new one is added. A VALUE such as '&exec(date)' is a\n"
    "function.\n"
    "\n"
    "The new file is written beside the old one and renamed, so that nobody reads half\n"
    "of it; mode, owner and extended attributes are kept, and a symbolic link goes on\n"
    "leading to it. A file that has other names too, by hard links, that another user\n"
    "owns, or whose directory cannot be written is written in place instead. Edits of\n"
    "one file take turns, and wait 10 seconds for each other at most. The exit status\n"
    "is 1 when the value cannot be set, and the file is as it was.\n";

constexpr const char *kDelHelp =
    "usage: stock pf del FILE ADDRESS\n"
    "\n"
    "Takes a value out of a parameter file, with its key and its lines, and leaves every\n"
    "other byte of the file as it is. A key that is given twice goes in both places.\n"
    "\n"
    "The file is replaced as by 'stock pf set'. The exit status is 1 when there is no\n"
    "such value or it cannot be taken out, and the file is as it was.\n";

// ---- What the new text must give ----

// Whether two trees hold the same keys and values, functions as they are written.
bool same(const Pf *a, const Pf *b);

bool same_tables(const Pf *a, const Pf *b)
{
    const std::vector<std::string> keys = keys_of(a);
    if (keys != keys_of(b))
        return false;
    for (const std::string &key : keys)
        if (!same(child_of(a, key), child_of(b, key)))
            return false;
    return true;
}

bool same_lists(const Pf *a, const Pf *b)
{
    if (pfmaxtbl(a) != pfmaxtbl(b))
        return false;
    for (int64_t i = 0; i < pfmaxtbl(a); ++i)
        if (!same(static_cast<Pf *>(gettbl(a->value.tbl, i)),
                  static_cast<Pf *>(gettbl(b->value.tbl, i))))
            return false;
    return true;
}

bool same(const Pf *a, const Pf *b)
{
    if (a->type != b->type)
        return false;
    switch (a->type) {
    case PFFILE:
    case PFARR: return same_tables(a, b);
    case PFTBL: return same_lists(a, b);
    case PFFUNCTION: return !strcmp(a->value.pffunct->text, b->value.pffunct->text);
    default: return !strcmp(a->value.s, b->value.s);
    }
}

// A callback of the log that takes every message, so that none is delivered.
int keep_silent(int, const char *, Tbl *)
{
    return 1;
}

// Sends standard error to /dev/null for a scope: stack traces go there whatever the callback
// says.
class Muted {
public:
    Muted() : kept_(dup(STDERR_FILENO))
    {
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (kept_ >= 0 && nowhere >= 0)
            dup2(nowhere, STDERR_FILENO);
        if (nowhere >= 0)
            close(nowhere);
    }
    ~Muted()
    {
        if (kept_ < 0)
            return;
        dup2(kept_, STDERR_FILENO);
        close(kept_);
    }
    Muted(const Muted &) = delete;
    Muted &operator=(const Muted &) = delete;

private:
    int kept_;
};

// The tree of a text. Nothing is reported: what is wrong with the text was wrong before the
// edit.
PfPtr tree_of(const std::string &text)
{
    const int mark = elog_mark();
    elog_set(ELOG_CALLBACK_FN, 0, keep_silent);
    const Muted muted;
    Pf *tree = nullptr;
    pfcompile(text.c_str(), &tree);
    elog_set(ELOG_CALLBACK_FN, 0, static_cast<Elog_callback>(nullptr));
    elog_truncate(mark);
    return PfPtr(tree);
}

// The container that the last step leads from. Containers that are not there are made; null
// when a step does not fit what is there.
Pf *holder_of(Pf *tree, const std::vector<Step> &steps)
{
    Pf *node = tree;
    for (size_t i = 0; i + 1 < steps.size(); ++i) {
        const Step &step = steps[i];
        const char *key = step.index < 0 ? step.key.c_str() : pfindex(step.index);
        const bool table = node->type == PFFILE || node->type == PFARR;
        if (table != (step.index < 0) || (!table && node->type != PFTBL))
            return nullptr;
        Pf *child = nullptr;
        if (!pfvalue(node, key, &child) && (table || step.index == pfmaxtbl(node))) {
            pfput(node, key, pfnew(steps[i + 1].index < 0 ? PFARR : PFTBL), PFGRAFT);
            pfvalue(node, key, &child);
        }
        if (!child)
            return nullptr;
        node = child;
    }
    const bool table = node->type == PFFILE || node->type == PFARR;
    const bool list = node->type == PFTBL && steps.back().index <= pfmaxtbl(node);
    return (steps.back().index < 0 ? table : list) ? node : nullptr;
}

const char *key_of(const Step &step)
{
    return step.index < 0 ? step.key.c_str() : pfindex(step.index);
}

// The text of a value that is a function, without the white space around it; empty when the
// value is a plain text.
std::string function_in(const std::string &value)
{
    const PfPtr tree = tree_of("k " + value + "\n");
    const bool function = keys_of(tree.get()).size() == 1 && child_of(tree.get(), "k") &&
                          child_of(tree.get(), "k")->type == PFFUNCTION;
    if (!function)
        return {};
    return std::string(stock::trimmed(value, stock::is_white));
}

// ---- The edit ----

// Where the line of this place begins; the place itself when more than blanks stand before it.
size_t line_begin(const std::string &text, size_t place)
{
    size_t begin = place;
    while (begin > 0 && (text[begin - 1] == ' ' || text[begin - 1] == '\t'))
        --begin;
    return begin == 0 || text[begin - 1] == '\n' ? begin : place;
}

// The blanks before a place, when nothing else stands before it on its line.
std::string blanks_before(const std::string &text, size_t place)
{
    const size_t begin = line_begin(text, place);
    return text.substr(begin, place - begin);
}

// The key of a step as it is written, with a tab behind it; nothing for an index. A key that
// would not read back stands in quotes, or with escapes when it holds both kinds of quotes.
std::string written_key(const Step &step)
{
    if (step.index >= 0)
        return {};
    const std::string &key = step.key;
    const bool plain = key.find_first_of(" \t\n#\\\"'}") == std::string::npos;
    if (plain && !key.empty() && key.compare(0, 2, "__") != 0)  // which may end the text
        return key + "\t";
    for (const char quote : {'"', '\''})
        if (key.find(quote) == std::string::npos)
            return quote + key + quote + "\t";
    std::string out;
    char octal[8];
    for (const char c : key)
        if (strchr(" \t\n#\\\"'", c))
            out.append(octal, static_cast<size_t>(snprintf(octal, sizeof octal, "\\%03o",
                                                           static_cast<unsigned>(c))));
        else
            out += c;
    return out + "\t";
}

// The lines that give the value at steps[at] and the containers on the way to it.
std::string lines_of(const std::vector<Step> &steps, size_t at, const std::string &indent,
                     const std::string &written)
{
    const std::string key = indent + written_key(steps[at]);
    if (at + 1 == steps.size())
        return key + written + "\n";
    const char *open = steps[at + 1].index < 0 ? "&Arr{\n" : "&Tbl{\n";
    return key + open + lines_of(steps, at + 1, indent + "    ", written) + indent + "}\n";
}

// The text with the bytes from `begin` to `end` replaced.
std::string replaced(std::string text, size_t begin, size_t end, const std::string &with)
{
    return text.replace(begin, end - begin, with);
}

// The text with a new value behind the last one of the container.
std::string added(const SourceText &source, const SourceEntry &container,
                  const std::vector<Step> &steps, size_t at, const std::string &written)
{
    const std::string &text = source.text;
    const bool top = &container == &source.top;
    if (top && source.unfinished && source.unfinished->key == steps[at].key)
        return text + (strchr(" \t", text.back()) ? "" : "\t") +
               lines_of(steps, at, "", written).substr(written_key(steps[at]).size());
    const size_t top_end = source.unfinished ? source.unfinished->begin : source.text_end;
    const size_t end = line_begin(text, top ? top_end : container.value_end - 1);
    std::string indent = top ? "" : blanks_before(text, container.begin) + "    ";
    if (!container.children.empty())
        indent = blanks_before(text, container.children.back().begin);
    const bool in_line = end > 0 && text[end - 1] != '\n';
    return replaced(text, end, end, (in_line ? "\n" : "") + lines_of(steps, at, indent, written));
}

// The texts that may give the tree that is wanted, the best one first.
std::vector<std::string> candidates(const SourceText &source, const std::vector<Step> &steps,
                                    const std::string &written)
{
    const SourceEntry *container = &source.top;
    size_t at = 0;
    const SourceEntry *entry = nullptr;
    while ((entry = take_step(*container, steps[at])) && at + 1 < steps.size()) {
        container = entry;
        ++at;
    }
    if (!entry)
        return {added(source, *container, steps, at, written)};

    const std::string &text = source.text;
    const bool bare = entry->value_begin == entry->value_end && entry->value_begin > 0 &&
                      !strchr(" \t\n", text[entry->value_begin - 1]);
    const std::string value = (bare && !written.empty() ? "\t" : "") + written;
    std::vector<std::string> texts = {replaced(text, entry->value_begin, entry->value_end, value)};
    // The library drops what stands behind the end of a list, table or literal on its line.
    // Behind a plain text it would be part of the value, so it becomes a comment.
    const size_t line_end = std::min(text.find('\n', entry->value_end), text.size());
    const size_t rest = std::min(text.find_first_not_of(" \t", entry->value_end), line_end);
    if (rest == line_end) {
        texts.push_back(replaced(text, entry->value_begin, line_end, value));
        if (line_end == text.size())  // a function needs the newline
            texts.push_back(texts.back() + "\n");
    } else if (text[rest] != '#') {
        const std::string between = rest == entry->value_end ? " # " : "# ";
        texts.push_back(replaced(replaced(text, rest, rest, between), entry->value_begin,
                                 entry->value_end, value));
    }
    return texts;
}

// ---- The file ----

// Gives the new file the extended attributes of the old one, access lists among them, and
// complains of those that it could not give it.
#ifdef __linux__
void keep_attributes(const char *old, int fd)
{
    const ssize_t size = listxattr(old, nullptr, 0);
    std::string names(size > 0 ? static_cast<size_t>(size) : 0, '\0');
    const ssize_t length = listxattr(old, names.data(), names.size());
    names.resize(length > 0 ? static_cast<size_t>(length) : 0);
    for (size_t at = 0; at < names.size(); at += strlen(&names[at]) + 1) {
        const char *name = &names[at];
        std::string value(65536, '\0');  // the most that the system allows
        std::string now(value);
        const ssize_t bytes = getxattr(old, name, value.data(), value.size());
        const ssize_t have = fgetxattr(fd, name, now.data(), now.size());
        const auto same_bytes = static_cast<size_t>(std::max<ssize_t>(bytes, 0));
        const bool there = bytes == have && value.compare(0, same_bytes, now, 0, same_bytes) == 0;
        if (bytes >= 0 && !there &&
            fsetxattr(fd, name, value.data(), static_cast<size_t>(bytes), 0) != 0)
            elog_complain(1, "can't keep the attribute '%s' of '%s'", name, old);
    }
}
#else
void keep_attributes(const char *, int) {}
#endif

// Writes at the descriptor's offset. When a disk has room for a part only, the write of the
// rest gives the reason.
bool write_text(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = rewrite(fd, text.data(), text.size());
        if (written <= 0)
            return false;
        text.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

// The path of the file that is written beside another; the signal handler removes it.
char Beside[PATH_MAX + sizeof ".XXXXXX"];

void remove_beside(int signal)
{
    unlink(Beside);
    raise(signal);  // whose default action follows when this returns
}

// Makes a new file in the directory of the target. Unless it was renamed, it is removed at
// the end of the scope, or when a signal ends the process.
class NewFile {
public:
    explicit NewFile(const std::string &target)
    {
        constexpr size_t kMaxName = NAME_MAX - 7;  // leaves room for the ending
        const size_t name = target.rfind('/') + 1;
        const std::string path = target.substr(0, name + kMaxName) + ".XXXXXX";
        sigset_t old;
        sigprocmask(SIG_BLOCK, &signals(), &old);
        memcpy(Beside, path.c_str(), path.size() + 1);
        fd_ = mkstemp(Beside);
        const int reason = errno;
        for (size_t i = 0; fd_ >= 0 && i < std::size(kSignals); ++i) {
            struct sigaction action {};
            action.sa_handler = remove_beside;
            action.sa_flags = static_cast<int>(SA_RESETHAND);
            sigaction(kSignals[i], nullptr, &before_[i]);
            if (before_[i].sa_handler != SIG_IGN)
                sigaction(kSignals[i], &action, nullptr);
        }
        sigprocmask(SIG_SETMASK, &old, nullptr);
        errno = reason;
    }
    ~NewFile()
    {
        if (fd_ < 0)
            return;
        close(fd_);
        if (!renamed_)
            unlink(Beside);
        for (size_t i = 0; i < std::size(kSignals); ++i)
            sigaction(kSignals[i], &before_[i], nullptr);
    }
    NewFile(const NewFile &) = delete;
    NewFile &operator=(const NewFile &) = delete;

    int fd() const { return fd_; }
    // Signals are blocked: a handler that ran behind the rename, but before Beside is cleared,
    // could remove a file that another edit has made under the same name.
    bool rename_to(const std::string &target)
    {
        sigset_t old;
        sigprocmask(SIG_BLOCK, &signals(), &old);
        renamed_ = rename(Beside, target.c_str()) == 0;
        if (renamed_)
            Beside[0] = '\0';
        const int reason = errno;
        sigprocmask(SIG_SETMASK, &old, nullptr);
        errno = reason;
        return renamed_;
    }

private:
    static constexpr int kSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGXCPU, SIGXFSZ};

    static const sigset_t &signals()
    {
        static const sigset_t set = [] {
            sigset_t all;
            sigemptyset(&all);
            for (const int signal : kSignals)
                sigaddset(&all, signal);
            return all;
        }();
        return set;
    }

    int fd_ = -1;  // below 0 when the file could not be made
    bool renamed_ = false;
    struct sigaction before_[std::size(kSignals)]{};
};

// A parameter file that is locked against other edits. The lock is on the file, not on its
// name: an edit ends by giving the name to a new file.
struct Target {
    Target() = default;
    ~Target()
    {
        if (fd >= 0)
            close(fd);
    }
    Target(const Target &) = delete;
    Target &operator=(const Target &) = delete;

    int fd = -1;
    std::string path;  // without symbolic links
    struct stat status {};
};

// What became of an attempt to write the file.
enum class Written {
    done,
    in_place,  // no new file can take its place: it is to be written over
    changed,   // another program has changed it since it was read
    failed,    // after a complaint
};

// Whether the name still belongs to the file that was read, and the file has this text.
bool is_still(const Target &target, std::string_view text)
{
    struct stat now {};
    if (stat(target.path.c_str(), &now) != 0 || now.st_ino != target.status.st_ino ||
        now.st_dev != target.status.st_dev)
        return false;
    std::string again(text.size() + 1, '\0');
    size_t size = 0;
    for (ssize_t got = 1; got > 0 && size < again.size(); size += static_cast<size_t>(got))
        if ((got = pread(target.fd, &again[size], again.size() - size, static_cast<off_t>(size))) <
            0)
            return false;
    return std::string_view(again).substr(0, size) == text;
}

Written complain(const char *what, const std::string &target)
{
    elog_complain(1, "can't %s '%s'", what, target.c_str());
    return Written::failed;
}

// Gives the new file the owner, group, mode and attributes of the old one.
bool keep_owner_and_mode(const Target &target, int fd)
{
    const struct stat &status = target.status;
    if (fchown(fd, status.st_uid, status.st_gid) == 0)
        return keep_attributes(target.path.c_str(), fd), fchmod(fd, status.st_mode & 07777) == 0;
    // The file has another group now. Its members get no more than everyone has, and the bits
    // that change who runs a file are dropped.
    elog_complain(1, "can't keep the group of '%s'", target.path.c_str());
    const mode_t everyone = status.st_mode & 07;
    keep_attributes(target.path.c_str(), fd);
    return fchmod(fd, (status.st_mode & 0707) | (status.st_mode & everyone << 3)) == 0;
}

// Makes the new name of a file last: until its directory is synced, a crash may bring the old
// file back.
bool sync_directory(const std::string &target)
{
    const std::string directory = target.substr(0, target.rfind('/') + 1);
    const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // A directory that may not be read, or that its file system does not sync, is no failure.
    const bool synced = fd < 0 || fsync(fd) == 0 || errno == EINVAL || errno == ENOTSUP;
    const int reason = errno;
    if (fd >= 0)
        close(fd);
    errno = reason;
    return synced;
}

// Replaces the file by a new one with this text, unless another program has changed it
// since it was read.
Written write_beside(const Target &target, const std::string &old, const std::string &text)
{
    NewFile file(target.path);
    if (file.fd() < 0 && (errno == EACCES || errno == EPERM || errno == EROFS))
        return Written::in_place;
    if (file.fd() < 0)
        return complain("write beside", target.path);
    if (fchown(file.fd(), target.status.st_uid, static_cast<gid_t>(-1)) != 0)
        return Written::in_place;  // the new file would belong to another user
    if (!write_text(file.fd(), text) || !keep_owner_and_mode(target, file.fd()) ||
        fsync(file.fd()) != 0)
        return complain("write", target.path);
    if (!is_still(target, old))
        return Written::changed;
    if (!file.rename_to(target.path) || !sync_directory(target.path))
        return complain("write", target.path);
    return Written::done;
}

// Writes over the file. What lies behind the old end is written first: when the disk has no
// room for it, the file is cut back to the old text.
Written write_in_place(const Target &target, const std::string &old, std::string_view text)
{
    if (!is_still(target, old))
        return Written::changed;
    const int fd = open(target.path.c_str(), O_WRONLY | O_CLOEXEC);
    const auto old_size = static_cast<off_t>(old.size());
    const std::string_view tail = text.substr(std::min(old.size(), text.size()));
    bool written = fd >= 0 && lseek(fd, old_size, SEEK_SET) >= 0;
    if (written && !write_text(fd, tail)) {
        const int reason = errno;
        [[maybe_unused]] const int undone = ftruncate(fd, old_size);
        errno = reason;
        written = false;
    }
    written = written && lseek(fd, 0, SEEK_SET) == 0 &&
              write_text(fd, text.substr(0, text.size() - tail.size())) &&
              ftruncate(fd, static_cast<off_t>(text.size())) == 0 && fsync(fd) == 0;
    const int reason = errno;
    const bool closed = fd < 0 || close(fd) == 0;
    if (written && closed)
        return Written::done;
    errno = written ? errno : reason;
    return complain("write", target.path);
}

Written write_file(const Target &target, const std::string &old, const std::string &text)
{
    const Written written =
        target.status.st_nlink > 1 ? Written::in_place : write_beside(target, old, text);
    return written == Written::in_place ? write_in_place(target, old, text) : written;
}

// ---- Taking turns ----

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kEditSeconds{10};  // the longest wait for other edits

// Locks an open file; false, after a complaint, when another process holds the lock until the
// deadline. On a file system without locks it goes on: is_still() then finds what others write.
bool lock(int fd, const char *file, Clock::time_point deadline)
{
    for (;;) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0 || (errno != EWOULDBLOCK && errno != EINTR))
            return true;
        if (Clock::now() >= deadline)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    elog_complain(0, "'%s' is being edited by another process, for %ld seconds now\n", file,
                  static_cast<long>(kEditSeconds.count()));
    return false;
}

// Opens and locks a file that is to be edited; nothing, after a complaint, when it cannot be.
std::unique_ptr<Target> open_for_edit(const char *file, Clock::time_point deadline)
{
    if (is_present(file) && !is_file(file)) {
        elog_complain(0, "'%s' is no regular file\n", file);
        return {};
    }
    for (;;) {
        auto target = std::make_unique<Target>();
        target->fd = reopen(file, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (target->fd < 0) {
            elog_complain(1, "can't open parameter file '%s'", file);
            return {};
        }
        if (!lock(target->fd, file, deadline))
            return {};
        // While this process waited for the lock, the name may have been given to a new file.
        struct stat now {};
        const std::unique_ptr<char, decltype(&free)> path(realpath(file, nullptr), free);
        if (!path) {  // the file was removed
            elog_complain(1, "can't find parameter file '%s'", file);
            return {};
        }
        if (stat(path.get(), &now) == 0 && fstat(target->fd, &target->status) == 0 &&
            now.st_ino == target->status.st_ino && now.st_dev == target->status.st_dev) {
            target->path = path.get();
            return target;
        }
    }
}

// Gives the new text of a file, or nothing after a complaint.
using Edit = std::function<std::optional<std::string>(const SourceText &source)>;

// Edits a file. When another program has changed it meanwhile, edits what it is then.
int edit_file(const char *file, const Edit &edit)
{
    const Clock::time_point deadline = Clock::now() + kEditSeconds;
    for (;;) {
        const auto target = open_for_edit(file, deadline);
        if (!target)
            return kFailed;
        const std::optional<SourceText> source = read_descriptor(target->fd, file, OnError::stop);
        if (!source)
            return kFailed;
        if (source->failed || source->text.find('\0') != std::string::npos) {
            elog_complain(0, "'%s' has errors, try 'stock pf check'\n", file);
            return kFailed;
        }
        const std::optional<std::string> text = edit(*source);
        if (!text)
            return kFailed;
        const Written written =
            *text == source->text ? Written::done : write_file(*target, source->text, *text);
        if (written == Written::done)
            return kDone;
        if (written == Written::failed)
            return kFailed;
        if (Clock::now() >= deadline) {
            elog_complain(0, "'%s' is written by another program all the time\n", file);
            return kFailed;
        }
    }
}

// The first of the texts that has no error and whose tree is good; nothing, after a complaint,
// when there is none.
std::optional<std::string> first_good(const SourceText &source,
                                      const std::vector<std::string> &texts,
                                      const std::function<bool(Pf *)> &is_good, const char *address)
{
    for (const std::string &text : texts)
        if (!scan_source(text, OnError::stop).failed && is_good(tree_of(text).get()))
            return text;
    elog_complain(0, "can't change '%s' in '%s' without changing more than that\n", address,
                  source.file.c_str());
    return {};
}

std::optional<std::string> set_value(const SourceText &source, const std::vector<Step> &steps,
                                     const char *address, const char *value)
{
    const std::string function = function_in(value);
    const PfPtr wanted = tree_of(source.text);
    Pf *holder = holder_of(wanted.get(), steps);
    if (!holder) {
        elog_complain(0, "the address '%s' does not fit '%s'\n", address, source.file.c_str());
        return {};
    }
    const char *key = key_of(steps.back());
    std::string text = function.empty() ? value : function;
    pfput(holder, key, text.data(), function.empty() ? PFSTRING : PFFUNCTION);

    std::vector<std::string> texts;
    const std::unique_ptr<char, decltype(&free)> plain(str2pf(value), free);
    const std::unique_ptr<char, decltype(&free)> literal(pfoutput_literal(value, 2), free);
    for (const char *written : {function.empty() ? plain.get() : text.data(), literal.get()})
        for (std::string &candidate : candidates(source, steps, written))
            texts.push_back(std::move(candidate));
    return first_good(
        source, texts,
        [&](Pf *tree) {
            // The text of a function includes the blanks and the newline behind it, which
            // the new file may have and `value` has not.
            Pf *set = nullptr;
            Pf *now = holder_of(tree, steps);
            if (!function.empty() && now && pfvalue(now, key, &set) && set->type == PFFUNCTION &&
                std::string_view(set->value.pffunct->text).starts_with(function))
                pfput(holder, key, set->value.pffunct->text, PFFUNCTION);
            return same(wanted.get(), tree);
        },
        address);
}

std::optional<std::string> without_value(const SourceText &source, const std::vector<Step> &steps,
                                         const char *address)
{
    const std::vector<Step> outer(steps.begin(), steps.end() - 1);
    const SourceEntry *container = take_steps(&source.top, outer, 0);
    const SourceEntry *entry = container ? take_step(*container, steps.back()) : nullptr;
    if (!entry) {
        elog_complain(0, "no entry '%s' in parameter file %s", address, source.file.c_str());
        return {};
    }
    const PfPtr wanted = tree_of(source.text);
    pffree(pfdel(holder_of(wanted.get(), steps), key_of(steps.back())));

    std::string text = source.text;
    for (auto child = container->children.rbegin(); child != container->children.rend(); ++child)
        if (&*child == entry || (steps.back().index < 0 && child->key == steps.back().key &&
                                 child->kind != SourceEntry::Kind::undef))
            text = replaced(text, line_begin(text, child->begin), child->end, "");
    return first_good(
        source, {text}, [&](Pf *tree) { return same(wanted.get(), tree); }, address);
}

}  // namespace

int pf_set(int argc, char **argv)
{
    if (helped(argc, argv, kSetHelp))
        return kDone;
    if (argc != 4)
        return wrong_usage("stock pf set", "a file, an address and a value, please");
    const auto steps = parse_address(argv[2]);
    if (!steps)
        return wrong_usage("stock pf set", "'%s' is no address", argv[2]);
    return edit_file(argv[1], [&](const SourceText &source) {
        return set_value(source, *steps, argv[2], argv[3]);
    });
}

int pf_del(int argc, char **argv)
{
    if (helped(argc, argv, kDelHelp))
        return kDone;
    if (argc != 3)
        return wrong_usage("stock pf del", "a file and an address, please");
    const auto steps = parse_address(argv[2]);
    if (!steps)
        return wrong_usage("stock pf del", "'%s' is no address", argv[2]);
    return edit_file(
        argv[1], [&](const SourceText &source) { return without_value(source, *steps, argv[2]); });
}
