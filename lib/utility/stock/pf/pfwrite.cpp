// Parameter trees as text: values quoted so that they read back the same, and the tree
// written to a stream or onto a string stack.
//
// TreeWriter hands the text on piece by piece: to a Gatherer in front of a stream, or to a
// GrowingText. A value that needs no quoting, as nearly all, is one piece of the tree's own
// memory.

#include "stock/pf.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/alloc.h"
#include "base/ascii.h"
#include "base/file_size_signal.h"
#include "base/fixed_text.h"
#include "base/gatherer.h"
#include "base/growing_text.h"
#include "base/guards.h"
#include "files/durable.h"
#include "pf/node.h"
#include "pf/parsing.h"
#include "stock/elog.h"
#include "stock/pushstr.h"
#include "stock/redblack.h"
#include "stock/strings.h"

namespace {

using stock::kMaxOpenContainers;
using stock::Owned;

std::string_view text_of(const char *text)
{
    return text ? text : "";
}

// ---- Quoting ----

// The characters that a reader takes for more than text.
constexpr auto kIsSpecial = [] {
    std::array<bool, 256> special{};
    for (const char c : std::string_view("#}\\\n"))
        special[static_cast<unsigned char>(c)] = true;
    return special;
}();

bool has_special(std::string_view text)
{
    for (const char c : text)
        if (kIsSpecial[static_cast<unsigned char>(c)])
            return true;
    return false;
}

bool has_blank_end(std::string_view text)
{
    return !text.empty() && (stock::is_blank(text.front()) || stock::is_blank(text.back()));
}

// With a backslash before each "\\", "#", newline and unbalanced "}".
char *escape(std::string_view text)
{
    auto *s =
        static_cast<char *>(stock::allocate(2 * text.size() + 1, "s", "pfescape_special_chars"));
    char *to = s;
    int64_t depth = 0;
    for (const char c : text) {
        if (c == '\n' || c == '#' || c == '\\' || (c == '}' && depth == 0))
            *to++ = '\\';
        else if (c == '}')
            --depth;
        depth += c == '{';
        *to++ = c;
    }
    *to = 0;
    return s;
}

// Whether the text may stand between the two delimiters: each of its own has its counterpart
// in it, in this order.
bool fits_between(std::string_view text, char open, char close)
{
    int64_t depth = 0;
    for (const char c : text) {
        depth += c == open;
        if (c == close && --depth < 0)
            return false;
    }
    return depth == 0;
}

constexpr std::string_view kLiteral = "&Literal";

// The text as a literal between two delimiters.
char *literal(std::string_view open, std::string_view text, std::string_view close)
{
    auto *s = static_cast<char *>(
        stock::allocate(kLiteral.size() + open.size() + 1 + text.size() + close.size() + 1, "s",
                        "pfoutput_literal"));
    char *to = s;
    for (const std::string_view part : {kLiteral, open, std::string_view("\n"), text, close})
        to += part.copy(to, part.size());
    *to = 0;
    return s;
}

// The first of "EndOfLiteral, "EndOfLiteral0, "EndOfLiteral1, ... that the text does not hold.
// It is built in the memory.
std::string_view end_word(std::string_view text, char (&memory)[40])
{
    constexpr std::string_view kWord = "\"EndOfLiteral";
    std::string_view word = kWord;
    for (int64_t i = 0; text.find(word) != text.npos; ++i) {
        stock::FixedText numbered(memory, sizeof memory);
        numbered.add(kWord);
        numbered.number(i);
        word = numbered.view();
    }
    return word;
}

enum { kEscaped = 1, kLiterally = 2 };  // the modes of pfoutput_literal

char *output_literal(std::string_view text, int mode)
{
    if (mode != kLiterally && text.find('\n') == text.npos)
        return escape(text);
    constexpr std::string_view kPairs = "{}()[]<>`'";
    for (std::size_t i = 0; i < kPairs.size(); i += 2)
        if (fits_between(text, kPairs[i], kPairs[i + 1]))
            return literal(kPairs.substr(i, 1), text, kPairs.substr(i + 1, 1));
    char memory[40];
    const std::string_view word = end_word(text, memory);
    return literal(word, text, word);
}

// The text as a value is written, when that differs from the text; else null.
Owned<char> quoted(std::string_view text)
{
    if (has_blank_end(text))
        return Owned<char>(output_literal(text, kLiterally));
    if (has_special(text))
        return Owned<char>(output_literal(text, kEscaped));
    return nullptr;
}

// ---- The tree ----

// A table or list of which not all children are written.
struct OpenContainer {
    const Pf *pf;
    const Rbnode *entry;  // of a table: the next to be written, or rb_null
    int64_t element;      // of a list: the next to be written
    int level;            // of its children
    bool braces;          // "}" is to close it
};

// The containers around the next child, outermost first. They do not stand on the call stack,
// for a tree may be deeper than that.
class OpenContainers {
public:
    int count() const { return count_; }
    OpenContainer &innermost() { return all_.get()[count_ - 1]; }
    void pop() { --count_; }

    void push(const OpenContainer &open)
    {
        if (count_ == room_) {
            room_ = 2 * room_ + kMaxOpenContainers;
            all_.reset(static_cast<OpenContainer *>(stock::reallocate(
                all_.release(), static_cast<std::size_t>(room_) * sizeof(OpenContainer),
                "containers", "pfout")));
        }
        all_.get()[count_++] = open;
    }

private:
    Owned<OpenContainer> all_;
    int count_ = 0;
    int room_ = 0;
};

const Rbnode *leftmost(const Rbnode *node)
{
    while (node != rb_null && node->left != rb_null)
        node = node->left;
    return node;
}

// The node with the next greater key, or rb_null.
const Rbnode *behind(const Rbnode *node)
{
    if (node->right != rb_null)
        return leftmost(node->right);
    while (node->up != rb_null && node == node->up->right)
        node = node->up;
    return node->up;
}

enum class Layout {
    indented,  // pfout: a table has braces unless it is the whole file
    flat,      // pfappend: a table has braces at a level above 0
};

// Writes trees by add(piece), which takes text in the order in which it is to stand.
template <class Add>
class TreeWriter {
public:
    TreeWriter(Add &add, Layout layout) : add_(add), indented_(layout == Layout::indented) {}

    // Writes the tree as a child at the level. Returns how many braces stand around each other
    // at most, those around the tree included.
    int write(const Pf *pf, int level)
    {
        depth_ = deepest_ = std::max(level - 1, 0);
        write_node(pf, level);
        while (open_.count() > 0)
            if (!write_next_child(open_.innermost()))
                close();
        return deepest_;
    }

private:
    // Writes a node, but of a container only the beginning.
    void write_node(const Pf *pf, int level)
    {
        switch (pf ? pf->type : PFUNDEF) {
        case PFFILE:
        case PFARR: open_table(pf, level); break;
        case PFTBL: open(pf, rb_null, level + 1, "&Tbl{\n"); break;
        case PFSTRING: write_value(text_of(pf->value.s)); break;
        case PFFUNCTION: write_function(pf->value.pffunct); break;
        default: break;
        }
    }

    void open_table(const Pf *pf, int level)
    {
        const bool braces = indented_ ? pf->type == PFARR : level > 0;
        const bool deeper = !indented_ || braces;
        const Arr *arr = pf->value.arr;
        open(pf, arr ? leftmost(arr->root) : rb_null, level + deeper, braces ? "&Arr{\n" : "");
    }

    void open(const Pf *pf, const Rbnode *first, int level, std::string_view brace)
    {
        add_(brace);
        depth_ += !brace.empty();
        deepest_ = std::max(deepest_, depth_);
        open_.push({pf, first, 0, level, !brace.empty()});
    }

    void close()
    {
        const OpenContainer &container = open_.innermost();
        if (container.braces) {
            indent(container.level - 1);
            add_("}\n");
            --depth_;
        }
        open_.pop();
    }

    // False when all children of the container are written. `container` is not used after
    // write_node, which may move all open containers.
    bool write_next_child(OpenContainer &container)
    {
        const int level = container.level;
        if (container.pf->type == PFTBL) {
            const Pf *child = next_element(container);
            if (!child)
                return false;
            indent(level);
            write_node(child, level);
            return true;
        }
        const Rbnode *entry = container.entry;
        if (entry == rb_null)
            return false;
        container.entry = behind(entry);
        indent(level);
        write_key(text_of(static_cast<const char *>(entry->key)));
        write_node(static_cast<const Pf *>(entry->value), level);
        return true;
    }

    // The next element that is no hole; null when there is none left.
    static const Pf *next_element(OpenContainer &container)
    {
        const Tbl *list = container.pf->value.tbl;
        const Pf *child = nullptr;
        while (list && !child && container.element < list->count)
            child = static_cast<const Pf *>(gettbl(list, container.element++));
        return child;
    }

    void indent(int level)
    {
        constexpr std::string_view kBlanks = "                                            ";
        if (!indented_)
            return;
        for (int left = 4 * level; left > 0; left -= static_cast<int>(kBlanks.size()))
            add_(kBlanks.substr(0, static_cast<std::size_t>(left)));
    }

    void write_key(std::string_view text)
    {
        Owned<char> escaped;
        if (indented_ && (has_blank_end(text) || has_special(text))) {
            escaped.reset(escape(text));
            text = escaped.get();
        }
        std::string_view quote = "";
        if (text.find(' ') != text.npos)
            quote = text.find('"') == text.npos ? "\"" : "'";
        add_(quote);
        add_(text);
        add_(quote);
        add_("\t");
    }

    void write_value(std::string_view text)
    {
        const Owned<char> other = quoted(text);
        add_(other ? text_of(other.get()) : text);
        add_("\n");
    }

    void write_function(const Pffunction *function)
    {
        if (function)
            add_(text_of(function->text));
        add_("\n");
    }

    Add &add_;
    const bool indented_;
    OpenContainers open_;
    int depth_ = 0;    // braces that are open, those around the tree included
    int deepest_ = 0;  // the most that were
};

// ---- Destinations ----

// Writes the tree in one piece, whatever other threads write. Returns the depth.
int write_to_stream(FILE *stream, const Pf *pf)
{
    const stock::StreamLock lock(stream);
    stock::Gatherer<4096, stock::ToStream> gather({stream});
    return TreeWriter(gather, Layout::indented).write(pf, 0);
}

// Builds the text in a block of its own and pushes it once, so that the stack grows by no
// more than the text. Returns the depth.
int push_on_stack(void **stack, const Pf *pf, int level)
{
    stock::GrowingText text(0, "vstk->s", "pfappend");
    const auto add = [&text](std::string_view piece) { text.add(piece); };
    const int depth = TreeWriter(add, Layout::flat).write(pf, level);
    const bool added = text.room() > 0;  // if only the empty text
    if (added)
        pushstr(stack, text.c_str());
    return depth;
}

// Called when the whole text is written, for a report may go to the same stream.
void complain_if_too_deep(int depth)
{
    if (depth > kMaxOpenContainers)
        elog_complain(0, "pf tree is %d levels deep: its text does not read back, only %d are read",
                      depth, kMaxOpenContainers);
}

}  // namespace

int pfwrite(const char *path, const Pf *pf)
{
    const stock::FileSizeSignalBlocked blocked;
    stock::ReplacedFile file({});
    errno = EINVAL;
    FILE *stream = path && file.open(path) ? file.stream() : nullptr;
    if (!stream) {
        elog_log(1, "Can't open %s for writing.\n", okstr(path));
        return -1;
    }
    const int written = pfout(stream, pf);
    const bool failed = std::fflush(stream) != 0 || std::ferror(stream);
    const int reason = errno;
    if (std::fclose(stream) != 0 || failed || !file.finish() || !file.put_in_place()) {
        if (failed)
            errno = reason;
        log_damage(file);
        elog_log(1, "Can't close %s.\n", path);
        return -1;
    }
    file.tell_if_unguarded();
    return written;
}

int pfout(FILE *stream, const Pf *pf)
{
    if (!stream || !pf || !pf->value.s)
        return -1;
    complain_if_too_deep(write_to_stream(stream, pf));
    return 0;
}

char *pf2string(const Pf *pf)
{
    void *stack = nullptr;
    pfappend(&stack, 0, pf);
    return popstr(&stack, 1);
}

void pfappend(void **stack, int level, const Pf *pf)
{
    if (stack)
        complain_if_too_deep(push_on_stack(stack, pf, level));
}

char *str2pf(const char *text)
{
    const std::string_view view = text_of(text);
    Owned<char> other = quoted(view);
    return other ? other.release() : stock::copy_text(text_of(text).data(), "s");
}

char *pfescape_special_chars(const char *text)
{
    return escape(text_of(text));
}

char *pfoutput_literal(const char *text, int mode)
{
    return output_literal(text_of(text), mode);
}
