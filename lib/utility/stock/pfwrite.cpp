// Parameter trees as text: values quoted so that they read back the same, and the
// tree written to a stream or onto a string stack.
//
// One writer serves both layouts. A value that needs no quoting, which is nearly
// every one, goes from the tree to its destination as it is.

#include "stock/pf.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "internal/alloc.h"
#include "internal/pfnode.h"
#include "stock/elog.h"
#include "stock/pushstr.h"
#include "stock/strings.h"

namespace {

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
        if (!text_)
            return;
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

template <class To, Layout layout>
class Writer {
public:
    explicit Writer(To &to) : to_(to) {}

    void node(const Pf *pf, int level)
    {
        switch (pf ? pf->type : PFUNDEF) {
        case PFFILE:
        case PFARR: nested(pf, level, &Writer::table); break;
        case PFTBL: nested(pf, level, &Writer::list); break;
        case PFSTRING: value(text_of(pf->value.s)); break;
        case PFFUNCTION: function(pf->value.pffunct); break;
        default: break;
        }
    }

    bool too_deep() const { return too_deep_; }

private:
    // What is too deep is written as the empty text.
    void nested(const Pf *pf, int level, void (Writer::*write)(const Pf *, int))
    {
        if (depth_ == stock::kMaxDepth) {
            too_deep_ = true;
            return to_.put("\n");
        }
        ++depth_;
        (this->*write)(pf, level);
        --depth_;
    }

    // A walk over the children of one container.
    struct Children {
        Writer *writer;
        int indent;  // of the line that the child begins
        int level;   // at which the child is written
    };

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

    static int entry(void *text, void *child, void *argument)
    {
        const auto &children = *static_cast<Children *>(argument);
        children.writer->indent(children.indent);
        children.writer->key(text_of(static_cast<const char *>(text)));
        children.writer->node(static_cast<const Pf *>(child), children.level);
        return 0;
    }

    static int element(void *child, void *argument)
    {
        const auto &children = *static_cast<Children *>(argument);
        children.writer->indent(children.indent);
        children.writer->node(static_cast<const Pf *>(child), children.level);
        return 0;
    }

    void table(const Pf *pf, int level)
    {
        const bool braces = layout == Layout::indented ? pf->type == PFARR : level > 0;
        Children children{this, level + braces,
                          layout == Layout::flat ? level + 1 : level + braces};
        if (braces)
            to_.put("&Arr{\n");
        if (pf->value.arr)
            applyarr(pf->value.arr, entry, &children);
        if (braces)
            close(level);
    }

    void list(const Pf *pf, int level)
    {
        Children children{this, level + 1, level + 1};
        to_.put("&Tbl{\n");
        if (pf->value.tbl)
            applytbl(pf->value.tbl, element, &children);
        close(level);
    }

    void close(int level)
    {
        indent(level);
        to_.put("}\n");
    }

    To &to_;
    int depth_ = 0;  // containers that are open
    bool too_deep_ = false;
};

// Writes the tree. False, after logging it, when there was more than can be written.
template <Layout layout, class To>
bool write_tree(To &to, const Pf *pf, int level)
{
    Writer<To, layout> writer(to);
    writer.node(pf, level);
    if (writer.too_deep())
        elog_log(0, stock::kTooDeep, stock::kMaxDepth);
    return !writer.too_deep();
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
    Stream to(stream);
    return write_tree<Layout::indented>(to, pf, 0) ? 0 : -1;
}

char *pf2string(const Pf *pf)
{
    void *stack = nullptr;
    pfappend(&stack, 0, pf);
    return popstr(&stack, 1);
}

void pfappend(void **stack, int level, const Pf *pf)
{
    Stack to(stack);
    write_tree<Layout::flat>(to, pf, level);
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
