// stock pf set and del: changing one value of a file and no other byte.
//
// An edit is tried on the text in memory and believed only when the library reads
// from the new text what it should: the old tree with this one value changed. Only
// then the file is replaced.

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>

#include <fcntl.h>
#include <sys/stat.h>
#ifdef __linux__
#include <sys/xattr.h>
#endif
#include <unistd.h>

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
    "leading to it. A file that has other names too, by hard links, is written in\n"
    "place instead, so that it stays one file. The exit status is 1 when the value\n"
    "cannot be set, and the file is as it was.\n";

constexpr const char *kDelHelp =
    "usage: stock pf del FILE ADDRESS\n"
    "\n"
    "Takes a value out of a parameter file, with its key and its lines, and leaves every\n"
    "other byte of the file as it is. A key that is given twice goes in both places.\n"
    "\n"
    "The file is replaced as by 'stock pf set'. The exit status is 1 when there is no\n"
    "such value or it cannot be taken out, and the file is as it was.\n";

// ---- What the new text must give ----

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

int keep_silent(int, const char *, Tbl *)
{
    return 1;
}

// Standard error leads nowhere for a scope: stack traces go there past the callback.
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

// What looks wrong in the text is no matter of an edit.
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

// The node at all steps but the last, made when it is not there; null when it
// cannot be.
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

// A value that reads as a function is one.
bool is_function(const std::string &value)
{
    const PfPtr tree = tree_of("k " + value + "\n");
    return keys_of(tree.get()).size() == 1 && child_of(tree.get(), "k") &&
           child_of(tree.get(), "k")->type == PFFUNCTION;
}

// ---- The edit ----

// Where the line of this place begins, when only blanks stand before the place.
size_t line_begin(const std::string &text, size_t place)
{
    size_t begin = place;
    while (begin > 0 && (text[begin - 1] == ' ' || text[begin - 1] == '\t'))
        --begin;
    return begin == 0 || text[begin - 1] == '\n' ? begin : place;
}

std::string blanks_before(const std::string &text, size_t place)
{
    const size_t begin = line_begin(text, place);
    return text.substr(begin, place - begin);
}

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

// What is written for the steps from this one on, at the indentation.
std::string lines_of(const std::vector<Step> &steps, size_t at, const std::string &indent,
                     const std::string &written)
{
    const std::string key = indent + written_key(steps[at]);
    if (at + 1 == steps.size())
        return key + written + "\n";
    const char *open = steps[at + 1].index < 0 ? "&Arr{\n" : "&Tbl{\n";
    return key + open + lines_of(steps, at + 1, indent + "    ", written) + indent + "}\n";
}

// The text with the bytes replaced.
std::string replaced(std::string text, size_t begin, size_t end, const std::string &with)
{
    return text.replace(begin, end - begin, with);
}

// The text with a value of the container added behind its last one.
std::string added(const Source &source, const Entry &container, const std::vector<Step> &steps,
                  size_t at, const std::string &written)
{
    const std::string &text = source.text;
    const bool top = &container == &source.top;
    const size_t end = line_begin(text, top ? source.text_end : container.value_end - 1);
    std::string indent = top ? "" : blanks_before(text, container.begin) + "    ";
    if (!container.children.empty())
        indent = blanks_before(text, container.children.back().begin);
    const bool in_line = end > 0 && text[end - 1] != '\n';
    return replaced(text, end, end, (in_line ? "\n" : "") + lines_of(steps, at, indent, written));
}

// The texts that may hold the value as it should be, the best one first.
std::vector<std::string> candidates(const Source &source, const std::vector<Step> &steps,
                                    const std::string &written)
{
    const Entry *container = &source.top;
    size_t at = 0;
    const Entry *entry = nullptr;
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
    // What stands behind a closing brace was dropped, and now would not be. A comment
    // stays.
    const size_t line_end = std::min(text.find('\n', entry->value_end), text.size());
    const size_t rest = text.find_first_not_of(" \t", entry->value_end);
    if (rest >= line_end || text[rest] != '#') {
        texts.push_back(replaced(text, entry->value_begin, line_end, value));
        if (line_end == text.size())  // a function needs the newline
            texts.push_back(texts.back() + "\n");
    }
    return texts;
}

// ---- The file ----

// Gives the new file the extended attributes of the old one, access lists among them,
// and says which it could not keep.
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

// Writes at the place where the descriptor stands. A disk that has room for a part
// only says why at the next attempt.
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

constexpr size_t kMaxName = NAME_MAX - 7;  // leaves room for the ending

// Replaces the file by one with this text, or complains.
bool write_beside(const char *target, const struct stat &status, const std::string &text)
{
    const std::string_view path = target;
    const size_t name = std::min(path.size() - path.rfind('/') - 1, kMaxName);
    std::string beside = std::string(path.substr(0, path.rfind('/') + 1 + name)) + ".XXXXXX";
    const int fd = mkstemp(beside.data());
    if (fd < 0) {
        elog_complain(1, "can't write beside '%s'", target);
        return false;
    }
    const bool written = write_text(fd, text) && fchown(fd, status.st_uid, status.st_gid) == 0 &&
                         fchmod(fd, status.st_mode & 07777) == 0;
    if (written)
        keep_attributes(target, fd);
    const bool safe = written && fsync(fd) == 0;
    const bool closed = close(fd) == 0;
    if (safe && closed && rename(beside.c_str(), target) == 0)
        return true;
    elog_complain(1, "can't write '%s'", target);
    unlink(beside.c_str());
    return false;
}

// Writes over a file that has other names, which would stay with the old text. What
// makes it longer comes first: when there is no room for that, the old text stays.
bool write_in_place(const char *target, const struct stat &status, std::string_view text)
{
    const auto old_size = static_cast<size_t>(status.st_size);
    const int fd = open(target, O_WRONLY | O_CLOEXEC);
    const std::string_view tail = text.substr(std::min(old_size, text.size()));
    bool written = fd >= 0 && lseek(fd, status.st_size, SEEK_SET) >= 0;
    if (written && !write_text(fd, tail)) {
        written = false;
        [[maybe_unused]] const int undone = ftruncate(fd, status.st_size);
    }
    written = written && lseek(fd, 0, SEEK_SET) == 0 &&
              write_text(fd, text.substr(0, text.size() - tail.size())) &&
              ftruncate(fd, static_cast<off_t>(text.size())) == 0 && fsync(fd) == 0;
    const bool closed = fd < 0 || close(fd) == 0;
    if (written && closed)
        return true;
    elog_complain(1, "can't write '%s'", target);
    return false;
}

bool write_file(const char *file, const std::string &text)
{
    const std::unique_ptr<char, decltype(&free)> target(realpath(file, nullptr), free);
    struct stat status {};
    if (!target || stat(target.get(), &status) != 0) {
        elog_complain(1, "can't find '%s'", file);
        return false;
    }
    return status.st_nlink > 1 ? write_in_place(target.get(), status, text)
                               : write_beside(target.get(), status, text);
}

// Replaces the file by the first text from which the library reads the tree.
int write_first_good(const Source &source, const std::vector<std::string> &texts,
                     const std::function<bool(Pf *)> &is_good, const char *address)
{
    for (const std::string &text : texts) {
        if (scan_source(text, OnError::stop).failed || !is_good(tree_of(text).get()))
            continue;
        if (text == source.text)
            return kDone;
        return write_file(source.file.c_str(), text) ? kDone : kFailed;
    }
    elog_complain(0, "can't change '%s' in '%s' without changing more than that\n", address,
                  source.file.c_str());
    return kFailed;
}

// Reads a file that is to be edited; nothing, after a complaint, when it cannot be.
std::optional<Source> read_for_edit(const char *file)
{
    if (is_present(file) && !is_file(file)) {
        elog_complain(0, "'%s' is no regular file\n", file);
        return {};
    }
    std::optional<Source> source = read_source(file, OnError::stop);
    const bool good = source && !source->failed && source->text.find('\0') == std::string::npos;
    if (source && !good)
        elog_complain(0, "'%s' has errors, try 'stock pf check'\n", file);
    return good ? std::move(source) : std::nullopt;
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
    const std::optional<Source> source = read_for_edit(argv[1]);
    if (!source)
        return kFailed;

    const std::string value = argv[3];
    const bool function = is_function(value);
    const PfPtr wanted = tree_of(source->text);
    Pf *holder = holder_of(wanted.get(), *steps);
    if (!holder) {
        elog_complain(0, "the address '%s' does not fit '%s'\n", argv[2], argv[1]);
        return kFailed;
    }
    const char *key = key_of(steps->back());
    pfput(holder, key, argv[3], function ? PFFUNCTION : PFSTRING);

    std::vector<std::string> texts;
    const std::unique_ptr<char, decltype(&free)> plain(str2pf(argv[3]), free);
    const std::unique_ptr<char, decltype(&free)> literal(pfoutput_literal(argv[3], 2), free);
    for (const char *written : {function ? argv[3] : plain.get(), literal.get()})
        for (std::string &text : candidates(*source, *steps, written))
            texts.push_back(std::move(text));
    return write_first_good(
        *source, texts,
        [&](Pf *tree) {
            // Of a function, the blanks and the newline behind it are part of the text.
            Pf *set = nullptr;
            Pf *now = holder_of(tree, *steps);
            if (function && now && pfvalue(now, key, &set) && set->type == PFFUNCTION &&
                std::string_view(set->value.pffunct->text).substr(0, value.size()) == value)
                pfput(holder, key, set->value.pffunct->text, PFFUNCTION);
            return same(wanted.get(), tree);
        },
        argv[2]);
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
    const std::optional<Source> source = read_for_edit(argv[1]);
    if (!source)
        return kFailed;

    std::vector<Step> outer(steps->begin(), steps->end() - 1);
    const Entry *container = take_steps(&source->top, outer, 0);
    const Entry *entry = container ? take_step(*container, steps->back()) : nullptr;
    if (!entry) {
        elog_complain(0, "no entry '%s' in parameter file %s", argv[2], argv[1]);
        return kFailed;
    }
    const PfPtr wanted = tree_of(source->text);
    pffree(pfdel(holder_of(wanted.get(), *steps), key_of(steps->back())));

    std::string text = source->text;
    for (auto child = container->children.rbegin(); child != container->children.rend(); ++child)
        if (&*child == entry || (steps->back().index < 0 && child->key == steps->back().key &&
                                 child->kind != Entry::Kind::undef))
            text = replaced(text, line_begin(text, child->begin), child->end, "");
    return write_first_good(
        *source, {text}, [&](Pf *tree) { return same(wanted.get(), tree); }, argv[2]);
}
