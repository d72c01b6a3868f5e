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
#include <unistd.h>

#include "base/ascii.h"
#include "base/file_size_signal.h"
#include "files/durable.h"
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
    "The new file is written beside the old one, synced and renamed, so that nobody reads\n"
    "half of it, not even after a power failure; mode, owner and extended attributes are\n"
    "kept, and a symbolic link goes on leading to it. A file that has other names too, by\n"
    "hard links, that another user owns, or whose directory cannot be written is written\n"
    "in place instead, with a copy beside it if it has other names. Edits of\n"
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

// Where standard error is kept while it is muted, or -1.
int Kept_error = -1;

// A callback of the log that takes every message, so that none is delivered. The last words of
// the tool, when memory runs out for one, are printed all the same.
int keep_silent(int severity, const char *text, Tbl *)
{
    if (severity >= ELOG_DIE && Kept_error >= 0 && text)
        dprintf(Kept_error, "%s", text);
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
        Kept_error = kept_;
        if (nowhere >= 0)
            close(nowhere);
    }
    ~Muted()
    {
        Kept_error = -1;
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

// Keeps signals that end the process away while the file is written: they arrive when it is
// whole and nothing is left beside it.
class SignalsBlocked {
public:
    SignalsBlocked()
    {
        sigset_t ending;
        sigemptyset(&ending);
        for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGXCPU})
            sigaddset(&ending, signal);
        sigprocmask(SIG_BLOCK, &ending, &before_);
    }
    ~SignalsBlocked() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;

private:
    sigset_t before_;
};

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
    changed,  // another program has changed it since it was read
    failed,   // after a complaint
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

Written complain(const std::string &target)
{
    elog_complain(1, "can't write '%s'", target.c_str());
    return Written::failed;
}

// Replaces the text of the file, unless another program has changed it since it was read.
Written write_file(const Target &target, const std::string &old, const std::string &text)
{
    const stock::FileSizeSignalBlocked too_large_is_an_error;
    const SignalsBlocked blocked;
    stock::Replacing how;
    how.replaces_read_only = true;
    how.lost = [](const char *what, const char *path) {
        elog_complain(1, "can't keep %s of '%s'", what, path);
    };
    stock::ReplacedFile file(how);
    if (!file.open(target.path.c_str()) || file.is_new() || !write_text(file.fd(), text) ||
        !file.finish())
        return complain(target.path);
    if (!is_still(target, old))
        return Written::changed;
    if (file.put_in_place())
        return Written::done;
    log_damage(file);
    return complain(target.path);
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
            stock::mend_file(path.get());
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
