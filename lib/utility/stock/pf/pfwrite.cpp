// Parameter trees as text: values quoted so that they read back the same, and the
// tree written to a stream or onto a string stack.
//
// One writer serves both layouts. A value that needs no quoting, which is nearly
// every one, goes from the tree to its destination as it is.

#include "stock/pf.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/alloc.h"
#include "pf/scan.h"
#include "stock/elog.h"
#include "stock/pushstr.h"
#include "stock/redblack.h"
#include "stock/strings.h"

namespace {

using stock::kMaxLexLevel;
using stock::Owned;

std::string_view text_of(const char *text)
{
    return text ? text : "";
}

// ---- Quoting ----

constexpr std::string_view kSpecial = "#}\\\n";

constexpr auto kIsSpecial = [] {
    std::array<bool, 256> special{};
    for (const char c : kSpecial)
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

bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

bool has_blank_end(std::string_view text)
{
    return !text.empty() && (is_blank(text.front()) || is_blank(text.back()));
}

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

// Whether the closing delimiter that balances an opening one before the text comes
// nowhere in it.
bool fits(std::string_view text, char open, char close)
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

char *bracketed(std::string_view text, char open, char close)
{
    auto *s = static_cast<char *>(
        stock::allocate(kLiteral.size() + text.size() + 4, "s", "pfoutput_literal"));
    char *to = s + kLiteral.copy(s, kLiteral.size());
    *to++ = open;
    *to++ = '\n';
    to += text.copy(to, text.size());
    *to++ = close;
    *to = 0;
    return s;
}

// The first of "EndOfLiteral, "EndOfLiteral0, ... that the text does not hold.
struct Terminator {
    char word[40] = "\"EndOfLiteral";
    int length = static_cast<int>(std::strlen(word));

    explicit Terminator(std::string_view text)
    {
        for (int64_t i = 0; text.find(view()) != text.npos; ++i)
            length = snprintf(word, sizeof word, "\"EndOfLiteral%ld", static_cast<long>(i));
    }
    std::string_view view() const { return {word, static_cast<std::size_t>(length)}; }
};

char *here_document(std::string_view text)
{
    const Terminator terminator(text);
    const std::string_view end = terminator.view();
    auto *s = static_cast<char *>(stock::allocate(
        kLiteral.size() + text.size() + 2 * end.size() + 2, "s", "pfoutput_literal"));
    char *to = s + kLiteral.copy(s, kLiteral.size());
    to += end.copy(to, end.size());
    *to++ = '\n';
    to += text.copy(to, text.size());
    to += end.copy(to, end.size());
    *to = 0;
    return s;
}

enum { kEscaped = 1, kLiterally = 2 };

char *output_literal(std::string_view text, int mode)
{
    if (mode != kLiterally && text.find('\n') == text.npos)
        return escape(text);
    constexpr std::string_view kPairs = "{}()[]<>`'";
    for (std::size_t i = 0; i < kPairs.size(); i += 2)
        if (fits(text, kPairs[i], kPairs[i + 1]))
            return bracketed(text, kPairs[i], kPairs[i + 1]);
    return here_document(text);
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

// ---- Destinations ----

class Stream {
public:
    explicit Stream(FILE *stream) : stream_(stream) { flockfile(stream); }
    ~Stream() { funlockfile(stream_); }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    void put(std::string_view text) { fwrite(text.data(), 1, text.size(), stream_); }

private:
    FILE *stream_;
};

// Gathers what is written in a block of its own and pushes it once: the stack grows
// by no more than it is given.
class Stack {
public:
    explicit Stack(void **stack) : stack_(stack) {}
    ~Stack()
    {
        if (text_)
            pushstr(stack_, text_.get());
    }
    Stack(const Stack &) = delete;
    Stack &operator=(const Stack &) = delete;

    void put(std::string_view text)
    {
        if (size_ - length_ <= text.size()) {
            size_ = 2 * (length_ + text.size()) + 1024;
            text_.reset(static_cast<char *>(
                stock::reallocate(text_.release(), size_, "vstk->s", "pfappend")));
        }
        length_ += text.copy(text_.get() + length_, text.size());
        text_.get()[length_] = 0;
    }

private:
    void **stack_;
    Owned<char> text_;
    std::size_t size_ = 0;
    std::size_t length_ = 0;
};

// ---- The tree ----

enum class Layout {
    indented,  // of a stream
    flat,      // of a string stack
};

// A table or list that is being written.
struct Open {
    const Pf *pf;
    const Rbnode *entry;  // of a table: the next to be written
    int64_t element;      // of a list: the next to be written
    int level;            // of its children
    bool braces;          // stand around it
};

// The containers that are open, outermost first: a tree may be deeper than the stack.
class Containers {
public:
    int count() const { return count_; }
    Open &innermost() { return all_.get()[count_ - 1]; }
    void pop() { --count_; }

    void push(const Open &open)
    {
        if (count_ == room_) {
            room_ = 2 * room_ + kMaxLexLevel;
            all_.reset(static_cast<Open *>(
                stock::reallocate(all_.release(), static_cast<std::size_t>(room_) * sizeof(Open),
                                  "containers", "pfout")));
        }
        all_.get()[count_++] = open;
    }

private:
    Owned<Open> all_;
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

template <class To, Layout layout>
class Writer {
public:
    explicit Writer(To &to) : to_(to) {}

    void tree(const Pf *pf, int level)
    {
        depth_ = deepest_ = std::max(level - 1, 0);
        node(pf, level);
        while (open_.count() > 0)
            if (!next_child(open_.innermost()))
                close();
    }

    // How many tables and lists stood around each other at most.
    int deepest() const { return deepest_; }

private:
    void node(const Pf *pf, int level)
    {
        switch (pf ? pf->type : PFUNDEF) {
        case PFFILE:
        case PFARR: open_table(pf, level); break;
        case PFTBL: open(pf, rb_null, level + 1, "&Tbl{\n"); break;
        case PFSTRING: value(text_of(pf->value.s)); break;
        case PFFUNCTION: function(pf->value.pffunct); break;
        default: break;
        }
    }

    void open_table(const Pf *pf, int level)
    {
        const bool braces = layout == Layout::indented ? pf->type == PFARR : level > 0;
        const bool deeper = layout == Layout::flat || braces;
        const Arr *arr = pf->value.arr;
        open(pf, arr ? leftmost(arr->root) : rb_null, level + deeper, braces ? "&Arr{\n" : "");
    }

    void open(const Pf *pf, const Rbnode *first, int level, std::string_view brace)
    {
        to_.put(brace);
        depth_ += !brace.empty();
        deepest_ = std::max(deepest_, depth_);
        open_.push({pf, first, 0, level, !brace.empty()});
    }

    // Writes the next child of a container, or opens it. False when there is none left.
    bool next_child(Open &container)
    {
        const int level = container.level;
        if (container.pf->type == PFTBL) {
            const Pf *child = next_element(container);
            if (!child)
                return false;
            indent(level);
            node(child, level);
            return true;
        }
        const Rbnode *entry = container.entry;
        if (entry == rb_null)
            return false;
        container.entry = behind(entry);
        indent(level);
        key(text_of(static_cast<const char *>(entry->key)));
        node(static_cast<const Pf *>(entry->value), level);
        return true;
    }

    // The next element that is no hole; null when there is none left.
    static const Pf *next_element(Open &container)
    {
        const Tbl *list = container.pf->value.tbl;
        const Pf *child = nullptr;
        while (list && !child && container.element < list->count)
            child = static_cast<const Pf *>(gettbl(list, container.element++));
        return child;
    }

    void close()
    {
        const Open &container = open_.innermost();
        if (container.braces) {
            indent(container.level - 1);
            to_.put("}\n");
            --depth_;
        }
        open_.pop();
    }

    void indent(int level)
    {
        constexpr std::string_view kBlanks = "                                            ";
        if (layout == Layout::flat)
            return;
        for (int left = 4 * level; left > 0; left -= static_cast<int>(kBlanks.size()))
            to_.put(kBlanks.substr(0, static_cast<std::size_t>(left)));
    }

    void value(std::string_view text)
    {
        const Owned<char> other = quoted(text);
        to_.put(other ? text_of(other.get()) : text);
        to_.put("\n");
    }

    void function(const Pffunction *function)
    {
        if (function)
            to_.put(text_of(function->text));
        to_.put("\n");
    }

    void key(std::string_view text)
    {
        Owned<char> escaped;
        if (layout == Layout::indented && (has_blank_end(text) || has_special(text))) {
            escaped.reset(escape(text));
            text = escaped.get();
        }
        std::string_view quote = "";
        if (text.find(' ') != text.npos)
            quote = text.find('"') == text.npos ? "\"" : "'";
        to_.put(quote);
        to_.put(text);
        to_.put(quote);
        to_.put("\t");
    }

    To &to_;
    Containers open_;
    int depth_ = 0;    // braces that are open, the caller's included
    int deepest_ = 0;  // the most that were
};

// Writes the tree at a level. Gives how deep tables and lists nest in the text.
template <Layout layout, class To>
int write_tree(To to, const Pf *pf, int level)
{
    Writer<To, layout> writer(to);
    writer.tree(pf, level);
    return writer.deepest();
}

// Called when the text is complete: a report may write to the same stream.
void complain_if_too_deep(int depth)
{
    if (depth > kMaxLexLevel)
        elog_complain(0, "pf tree is %d levels deep: its text does not read back, only %d are read",
                      depth, kMaxLexLevel);
}

}  // namespace

int pfwrite(const char *path, const Pf *pf)
{
    errno = EINVAL;
    FILE *stream = path ? std::fopen(path, "w+") : nullptr;
    if (!stream) {
        elog_log(1, "Can't open %s for writing.\n", okstr(path));
        return -1;
    }
    const int written = pfout(stream, pf);
    const bool failed = std::fflush(stream) != 0 || std::ferror(stream);
    const int reason = errno;
    if (std::fclose(stream) != 0 || failed) {
        if (failed)
            errno = reason;
        elog_log(1, "Can't close %s.\n", path);
        return -1;
    }
    return written;
}

int pfout(FILE *stream, const Pf *pf)
{
    if (!stream || !pf || !pf->value.s)
        return -1;
    const int depth = write_tree<Layout::indented>(Stream(stream), pf, 0);
    complain_if_too_deep(depth);
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
    if (!stack)
        return;
    const int depth = write_tree<Layout::flat>(Stack(stack), pf, level);
    complain_if_too_deep(depth);
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
