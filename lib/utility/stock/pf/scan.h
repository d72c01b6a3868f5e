// The scanner of parameter text: the one place that knows the grammar.
//
// The grammar is two tables of tokens at the end of this file, one for where a key is
// expected and one for where a value is. The longest token wins, at equal length the earlier
// row. The first character leaves one or two rows to try in nearly every case, and a token is
// looked at once to find its end and once more to store it. Nothing behind the line is looked
// at, except the closing quote of a key and the end of a literal.
//
// What the scanner finds it tells a sink. The sink of pflex.cpp makes the tree, that of
// pfwhere.cpp looks for one value, and that of the tool (tools/pf_source.cpp) keeps the place
// of everything. The scanner needs no memory and no object of the library, so that the tool
// can include it.
//
// A sink has these members. They are called in the order of the text.
//
//     Value                   the type of a value that was made and is not stored yet
//     in_list()               whether the innermost open container is a list; at top level
//                             and in a table it is not
//     open_containers()       how many lists and tables are open
//     token()                 a token begins where the scanner stands
//     taken(from, to)         the scanner goes on from here to there: every byte in turn
//     key(text)               behind a key. The text is valid until the next key; a zero
//                             byte stands behind it
//     no_text()               Value of a key, or of a line in a list, that stands alone
//     plain_text(text, n, m)  Value of a plain text. As it is written it ends n bytes
//                             behind the place where the scanner stands. Without m it
//                             holds no mark of swallowed_mark()
//     literal(text, n)        Value of a literal, which ends n bytes on as well
//     function(text, file)    Value of a function; file: "&file(" or "&filename("
//     store(value, line)      the line of the value is taken: it becomes the value of the
//                             last key, or the next element of the list. `line` as in line()
//     undefine()              the line is taken that takes an earlier value away
//     open(kind, line)        a list or table begins with the token
//     close()                 the line is taken that closes the innermost container
//     start_gathering()       a value has escapes: its text comes in pieces,
//     gather(text)            one after the other,
//     gathered()              and this is all of it
//     newline_missing()       the text ends in a token that a newline would complete: an
//                             escape, or a function
//     unfinished_literal()    the text ends in a literal, of which nothing is stored
//     end_mark()              the token is an end mark
//     stray_brace(line)       the token closes nothing, or opens too much. Whether to go on
//     too_deep(line)          behind it; false ends the scan

#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/ascii.h"
#include "pf/parsing.h"

namespace stock {

// A text in memory that ends with a zero byte: what Window is for a text that is read.
class WholeText {
public:
    explicit WholeText(const char *text) : start(text), end_(text + std::strlen(text)) {}

    const char *start;  // the first byte that is not taken
    const char *end() const { return end_; }
    static constexpr bool more(const char *) { return false; }
    static constexpr int error() { return 0; }

private:
    const char *end_;
};

// The marks that begin a container or literal. A plain value that holds one has nearly
// always swallowed it by a slip.
constexpr std::string_view kListMark = "&Tbl{";
constexpr std::string_view kTableMark = "&Arr{";
constexpr std::string_view kLiteralMark = "&Literal";

// The first such mark of a plain value, in this order; or an empty text.
inline std::string_view swallowed_mark(std::string_view text)
{
    for (const std::string_view mark : {kListMark, kTableMark, std::string_view("&Literal{")})
        if (text.find(mark) != text.npos)
            return mark;
    return {};
}

enum class ContainerKind { list, table };

namespace scan {

// ---- Classes of characters ----

enum CharacterClass : unsigned {
    kEnd = 1,  // the zero byte behind the text
    kNewline = 2,
    kBlank = 4,  // space and tab, nothing else
    kHash = 8,
    kBackslash = 16,
    kAmpersand = 32,
    kLetter = 64,
    kDigit = 128,
};

inline constexpr auto kClass = [] {
    std::array<unsigned char, 256> classes{};
    classes['\0'] = kEnd;
    classes['\n'] = kNewline;
    classes[' '] = classes['\t'] = kBlank;
    classes['#'] = kHash;
    classes['\\'] = kBackslash;
    classes['&'] = kAmpersand;
    for (unsigned c = 'a'; c <= 'z'; ++c)
        classes[c] = classes[c - 'a' + 'A'] = kLetter;
    for (unsigned c = '0'; c <= '9'; ++c)
        classes[c] = kDigit;
    return classes;
}();

constexpr bool is(char c, unsigned classes)
{
    return kClass[static_cast<unsigned char>(c)] & classes;
}

// Each opening delimiter of a literal, and behind it the closing one.
// Meant: each closes with the next of the row, so "}" closes with "(". Behind the last, the
// single quote, stands the zero byte, which no text holds.
inline constexpr char kDelimiters[] = "{}()[]<>`'";

// How a here-document ends: its quote and the word behind it, which is cut to 127 bytes.
constexpr std::size_t kMaxEndWord = 1 + 127;

// A text as an argument of a template.
template <std::size_t n>
struct Word {
    constexpr Word(const char (&text)[n]) { std::copy_n(text, n, chars); }
    constexpr std::string_view view() const { return {chars, n - 1}; }
    char chars[n];
};

}  // namespace scan

template <class Text, class Sink>
class TextScanner {
public:
    TextScanner(Text &text, Sink &sink) : text_(text), sink_(sink) { key_[0] = '\0'; }
    TextScanner(const TextScanner &) = delete;
    TextScanner &operator=(const TextScanner &) = delete;

    // Scans to the end of the text; or to a syntax error at which the sink stops: false.
    bool scan()
    {
        for (;;) {
            take_to(skip<kBlank>(text_.start));
            if (!*text_.start)
                return true;
            sink_.token();
            const AfterToken outcome = next_token();
            if (outcome != AfterToken::go_on)
                return outcome == AfterToken::ended;
        }
    }

    // The line that is read next, as messages count it: without the newlines in quoted keys,
    // in here-documents, and behind a backslash.
    int line() const { return line_; }

    // Behind a key, and throughout a list.
    bool expects_value() const { return state_ == State::value; }

private:
    using Value = typename Sink::Value;
    enum class State { key, value };
    enum class AfterToken { go_on, ended, refused };
    using enum scan::CharacterClass;

    static bool is(char c, unsigned classes) { return scan::is(c, classes); }

    // ---- Looking ----

    // The text may move when it reads on: a pointer into it is then moved along, and every
    // other one is lost.

    // The first character at or behind p that is of the classes, or the end of the text.
    template <unsigned classes>
    const char *find(const char *p)
    {
        do {
            while (!is(*p, classes | kEnd))
                ++p;
        } while (!*p && text_.more(p));
        return p;
    }

    // The first character at or behind p that is of none of the classes, or the end.
    template <unsigned classes>
    const char *skip(const char *p)
    {
        do {
            while (is(*p, classes))
                ++p;
        } while (!*p && text_.more(p));
        return p;
    }

    // The next character c, or the end of the text.
    const char *find_char(const char *p, char c)
    {
        do {
            const auto left = static_cast<std::size_t>(text_.end() - p);
            const void *found = std::memchr(p, c, left);
            p = found ? static_cast<const char *>(found) : text_.end();
        } while (!*p && text_.more(p));
        return p;
    }

    // Whether there is a character at p.
    bool more_at(const char *&p) { return *p || text_.more(p); }

    std::size_t length_to(const char *p) const { return static_cast<std::size_t>(p - text_.start); }

    bool begins_with(std::string_view word)
    {
        const char *p = text_.start;
        for (const char c : word)
            if (!more_at(p) || *p++ != c)
                return false;
        return true;
    }

    // ---- Taking ----

    void take_to(const char *p)
    {
        if (p == text_.start)
            return;
        at_line_start_ = p[-1] == '\n';
        sink_.taken(text_.start, p);
        text_.start = p;
    }

    void take(std::size_t length) { take_to(text_.start + length); }

    enum class Count { no, yes };

    // Drops what is left of the line, with its newline.
    void skip_line(Count count = Count::yes)
    {
        const char *p = text_.start;
        if (*p != '\n')
            p = find_char(p, '\n');
        if (*p) {
            ++p;
            line_ += count == Count::yes;
        }
        take_to(p);
    }

    // Reads the escape whose backslash stands before p, and moves p past it. Gives -1
    // when nothing is left to be escaped. An escape does not reach past one of the `ends`.
    int escaped(const char *&p, unsigned ends)
    {
        if (!more_at(p) || is(*p, ends))
            return -1;
        const char c = *p++;
        if (is(c, kDigit)) {
            // Three characters are used up, whether octal or not: \1x2 gives 1.
            unsigned value = 0;
            bool octal = true;
            --p;
            for (int i = 0; i < 3 && more_at(p) && !is(*p, ends); ++i, ++p) {
                octal = octal && is_octal_digit(*p);
                if (octal)
                    value = value * 8 + static_cast<unsigned>(*p - '0');
            }
            return static_cast<unsigned char>(value);
        }
        switch (c) {
        case 'n': return '\n';
        case 'b': return '\b';
        case 'r': return '\r';
        case 't': return '\t';
        default: return static_cast<unsigned char>(c);
        }
    }

    // ---- Storing ----

    void expect_next() { state_ = sink_.in_list() ? State::value : State::key; }

    AfterToken store(Value &&value)
    {
        sink_.store(std::move(value), line_);
        expect_next();
        return AfterToken::go_on;
    }

    // ---- How long a token is: 0 when the text at the start is another ----

    template <scan::Word word>
    std::size_t match_word()
    {
        return begins_with(word.view()) ? word.view().size() : 0;
    }

    std::size_t match_one() { return 1; }

    // "__END__" and its like reach to the end of their line, newline included.
    std::size_t match_end_mark()
    {
        if (!begins_with("__END__") && !begins_with("__DATA__") && !begins_with("__EOF__"))
            return 0;
        const char *p = find_char(text_.start, '\n');
        return *p ? length_to(p + 1) : 0;
    }

    std::size_t match_quoted()
    {
        const char *p = find_char(text_.start + 1, *text_.start);
        return *p ? length_to(p + 1) : 0;
    }

    std::size_t match_plain_key() { return length_to(find<kBlank | kNewline>(text_.start)); }

    // To the newline, which is not part of it.
    std::size_t match_comment() { return length_to(find_char(text_.start, '\n')); }

    std::size_t match_comment_line() { return at_line_start_ ? match_comment() : 0; }

    // "&name(" anything ")" blanks newline; the parenthesis is the last of the line.
    std::size_t match_function()
    {
        const char *p = text_.start + 1;
        if (!more_at(p) || !is(*p, kLetter))
            return 0;
        while (more_at(p) && (is(*p, kLetter | kDigit) || *p == '_'))
            ++p;
        if (*p != '(')
            return 0;
        const char *end = find_char(p, '\n');
        for (p = end - 1; is(*p, kBlank);)
            --p;
        if (*p != ')')
            return 0;
        if (!*end)
            sink_.newline_missing();
        return *end ? length_to(end + 1) : 0;
    }

    template <scan::Word word>
    std::size_t match_function_named()
    {
        return begins_with(word.view()) ? match_function() : 0;
    }

    // "&Literal" and the character behind it, which must be on the same line.
    std::size_t match_literal()
    {
        if (!begins_with(kLiteralMark))
            return 0;
        const char *p = text_.start + kLiteralMark.size();
        return more_at(p) && *p != '\n' ? kLiteralMark.size() + 1 : 0;
    }

    // ---- What is done with a token of that length ----

    AfterToken ignore(std::size_t length)
    {
        take(length);
        return AfterToken::go_on;
    }

    AfterToken count_line(std::size_t length)
    {
        ++line_;
        return ignore(length);
    }

    AfterToken end_mark(std::size_t length)
    {
        sink_.end_mark();
        count_line(length);
        return AfterToken::ended;
    }

    AfterToken comment_line(std::size_t)
    {
        skip_line();
        return AfterToken::go_on;
    }

    // ---- Containers ----

    AfterToken close_container(std::size_t length)
    {
        const bool stray = sink_.open_containers() == 0;
        if (stray && !sink_.stray_brace(line_))
            return AfterToken::refused;
        take(length);
        skip_line();
        if (!stray)
            sink_.close();
        expect_next();
        return AfterToken::go_on;
    }

    template <ContainerKind kind>
    AfterToken open_container(std::size_t length)
    {
        if (sink_.open_containers() >= kMaxOpenContainers && !sink_.too_deep(line_))
            return AfterToken::refused;
        sink_.open(kind, line_);
        take(length);
        skip_line();
        expect_next();
        return AfterToken::go_on;
    }

    AfterToken undefine(std::size_t length)
    {
        take(length);
        skip_line();
        sink_.undefine();
        expect_next();
        return AfterToken::go_on;
    }

    // ---- Keys ----

    void set_key(std::string_view key)
    {
        key_length_ = key.copy(key_, kMaxKeyBytes);
        key_[key_length_] = '\0';
    }

    // Takes the key's text, which ends at p, and tells the sink.
    AfterToken key_ends(const char *p)
    {
        take_to(p);
        sink_.key({key_, key_length_});
        state_ = State::value;
        return AfterToken::go_on;
    }

    AfterToken quoted_key(std::size_t length)
    {
        set_key({text_.start + 1, length - 2});
        return key_ends(text_.start + length);
    }

    // A "#" in the key begins a comment, which is left in the text.
    AfterToken plain_key(std::size_t)
    {
        const char *p = find<kBlank | kNewline | kHash | kBackslash>(text_.start);
        set_key({text_.start, length_to(p)});
        return key_ends(*p == '\\' ? escaped_key(p) : p);
    }

    // Adds the rest of a key, from its first backslash at p on. Gives its end.
    const char *escaped_key(const char *p)
    {
        while (more_at(p) && !is(*p, kBlank | kNewline | kHash)) {
            int c = static_cast<unsigned char>(*p++);
            if (c == '\\')
                c = escaped(p, kBlank | kNewline);
            if (c >= 0 && key_length_ < kMaxKeyBytes)
                key_[key_length_++] = static_cast<char>(c);
        }
        key_[key_length_] = '\0';
        key_length_ = std::strlen(key_);  // an escape may have given a zero byte
        return p;
    }

    // ---- Values ----

    AfterToken empty_value(std::size_t)
    {
        Value value = sink_.no_text();
        skip_line();
        return store(std::move(value));
    }

    template <bool names_file>
    AfterToken function(std::size_t length)
    {
        Value value = sink_.function(std::string_view(text_.start, length), names_file);
        take(length);
        ++line_;
        return store(std::move(value));
    }

    // Gathers a value that has its first backslash at p, and gives where it ends. What stands
    // behind its last escape is gathered, but not taken yet.
    const char *gather_value(const char *p)
    {
        sink_.start_gathering();
        for (;;) {
            sink_.gather(std::string_view(text_.start, length_to(p)));
            if (*p != '\\')
                return p;
            take_to(p);
            int c = '\n';
            if (++p; more_at(p) && *p == '\n')
                ++p;  // the value goes on, and the line is not counted
            else
                c = escaped(p, kNewline);
            if (const char byte = static_cast<char>(c); c >= 0)
                sink_.gather(std::string_view(&byte, 1));
            else
                sink_.newline_missing();
            take_to(p);
            p = find<kNewline | kHash | kBackslash>(p);
        }
    }

    // The gathered text up to its first zero byte, without the white space around it.
    std::string_view gathered_text()
    {
        const std::string_view text = sink_.gathered();
        return trimmed(text.substr(0, text.find('\0')), is_white);
    }

    AfterToken plain_value(std::size_t)
    {
        const char *p = find<kNewline | kHash | kBackslash | kAmpersand>(text_.start);
        const bool has_ampersand = *p == '&';
        if (has_ampersand)
            p = find<kNewline | kHash | kBackslash>(p);
        const bool as_written = *p != '\\';
        if (!as_written)
            p = gather_value(p);
        if (!*p && text_.error())
            return AfterToken::ended;  // what was read of it is not all of it
        const char *end = p;
        while (end != text_.start && is(end[-1], kBlank))
            --end;
        const std::size_t written = length_to(end);
        Value value = as_written ? sink_.plain_text(std::string_view(text_.start, written), written,
                                                    has_ampersand)
                                 : sink_.plain_text(gathered_text(), written, true);
        take_to(p);
        skip_line();
        return store(std::move(value));
    }

    // ---- Literals ----

    AfterToken unfinished_literal(const char *end)
    {
        take_to(end);
        sink_.unfinished_literal();
        return AfterToken::ended;
    }

    AfterToken store_literal(const char *end, std::size_t closing, Count count)
    {
        const std::size_t length = length_to(end);
        Value value = sink_.literal(std::string_view(text_.start, length), length + closing);
        take(length + closing);
        if (!at_line_start_)
            skip_line(count);
        return store(std::move(value));
    }

    // From the line behind a quote and a word to the same quote and word.
    AfterToken here_document(std::size_t length)
    {
        take(length - 1);
        const char *newline = find_char(text_.start, '\n');
        char end_word[scan::kMaxEndWord];
        const std::size_t n = std::min(length_to(newline), sizeof end_word);
        std::memcpy(end_word, text_.start, n);
        if (!*newline)
            return unfinished_literal(newline);
        take_to(newline + 1);

        const char *p = text_.start;
        for (;;) {
            const auto left = static_cast<std::size_t>(text_.end() - p);
            const void *found = memmem(p, left, end_word, n);
            if (found)
                return store_literal(static_cast<const char *>(found), n, Count::no);
            // The next look begins where a word that is cut by the end could begin.
            const std::size_t back = std::min(left, n - 1);
            p = text_.end();
            if (!text_.more(p))
                return unfinished_literal(p);
            p -= back;
        }
    }

    // From the line behind an opening delimiter to the closing one that balances it. A pair
    // that is not in the row of delimiters stands in the text, the closing one second.
    AfterToken bracketed(std::size_t length)
    {
        const char open = text_.start[length - 1];
        take(length);
        const std::size_t i = std::string_view(scan::kDelimiters).find(open);
        const bool in_row = i != std::string_view::npos;
        if (const char *p = text_.start; !in_row && !more_at(p))
            return unfinished_literal(p);
        const char close = in_row ? scan::kDelimiters[i + 1] : *text_.start;
        if (!in_row) {
            line_ += close == '\n';
            take(1);
        }
        if (!at_line_start_)
            skip_line();
        return balanced_text(open, close);
    }

    AfterToken balanced_text(char open, char close)
    {
        std::int64_t depth = 1;
        for (const char *p = text_.start;; ++p) {
            if (!more_at(p))
                return unfinished_literal(p);
            line_ += *p == '\n';
            if (*p == close && --depth == 0)
                return store_literal(p, 1, Count::yes);
            depth += *p == open;
        }
    }

    // ---- The two tables ----

    struct Token {
        std::string_view first;  // what it may begin with; empty: anything but kNotPlain
        std::size_t (TextScanner::*match)();
        AfterToken (TextScanner::*act)(std::size_t length);
    };

    using Self = TextScanner;
    using Kind = ContainerKind;

    // clang-format off
    // Where a key is expected: at top level and in a table.
    static constexpr Token kKeyTokens[] = {
        {"\n",   &Self::match_one,         &Self::count_line},
        {"_",    &Self::match_end_mark,    &Self::end_mark},
        {"}",    &Self::match_one,         &Self::close_container},
        {"\"'",  &Self::match_quoted,      &Self::quoted_key},
        {"",     &Self::match_plain_key,   &Self::plain_key},
        {"#",    &Self::match_comment,     &Self::ignore},
    };

    // Behind a key, and throughout a list.
    static constexpr Token kValueTokens[] = {
        {"}",    &Self::match_one,                          &Self::close_container},
        {"&",    &Self::match_word<"&Tbl{">,                &Self::open_container<Kind::list>},
        {"&",    &Self::match_word<"&Arr{">,                &Self::open_container<Kind::table>},
        {"&",    &Self::match_word<"&Undef{}">,             &Self::undefine},
        {"&",    &Self::match_function_named<"&filename(">, &Self::function<true>},
        {"&",    &Self::match_function_named<"&file(">,     &Self::function<true>},
        {"&",    &Self::match_function,                     &Self::function<false>},
        {"#",    &Self::match_comment_line,                 &Self::comment_line},
        {"#",    &Self::match_comment,                      &Self::empty_value},
        {"\n",   &Self::match_one,                          &Self::empty_value},
        {"&",    &Self::match_word<"&Literal\"">,           &Self::here_document},
        {"&",    &Self::match_literal,                      &Self::bracketed},
        {"",     &Self::match_one,                          &Self::plain_value},
    };
    // clang-format on

    // A row for anything leaves these to the others.
    static constexpr std::string_view kNotPlain = "}#\n";

    static constexpr bool may_begin(const Token &token, char c)
    {
        return token.first.empty() ? kNotPlain.find(c) == kNotPlain.npos
                                   : token.first.find(c) != token.first.npos;
    }

    // For each first character the rows that it leaves to try, a bit for each.
    template <std::size_t n>
    static constexpr auto rows_by_first(const Token (&tokens)[n])
    {
        std::array<std::uint16_t, 256> rows{};
        for (std::size_t c = 1; c < rows.size(); ++c)
            for (std::size_t i = 0; i < n; ++i)
                if (may_begin(tokens[i], static_cast<char>(c)))
                    rows[c] = static_cast<std::uint16_t>(rows[c] | 1U << i);
        return rows;
    }

    AfterToken longest_token(const Token *tokens, unsigned rows)
    {
        const Token *longest = &tokens[std::countr_zero(rows)];
        std::size_t length = 0;
        for (; rows; rows &= rows - 1) {
            const Token &token = tokens[std::countr_zero(rows)];
            const std::size_t matched = (this->*token.match)();
            if (matched > length) {
                longest = &token;
                length = matched;
            }
        }
        return (this->*longest->act)(length);
    }

    AfterToken next_token()
    {
        static constexpr auto kKeyRows = rows_by_first(kKeyTokens);
        static constexpr auto kValueRows = rows_by_first(kValueTokens);
        // Most keys and values begin with a character that only the row for anything takes.
        constexpr std::uint16_t kPlainKey = kKeyRows['a'];
        constexpr std::uint16_t kPlainValue = kValueRows['a'];
        static_assert(std::has_single_bit(kPlainKey) && std::has_single_bit(kPlainValue));

        const auto first = static_cast<unsigned char>(*text_.start);
        if (state_ == State::key) {
            const unsigned rows = kKeyRows[first];
            return rows == kPlainKey ? plain_key(0) : longest_token(kKeyTokens, rows);
        }
        const unsigned rows = kValueRows[first];
        return rows == kPlainValue ? plain_value(0) : longest_token(kValueTokens, rows);
    }

    Text &text_;
    Sink &sink_;
    State state_ = State::key;
    bool at_line_start_ = true;
    int line_ = 1;
    std::size_t key_length_ = 0;
    char key_[kMaxKeyBytes + 1];  // the last key, behind which stands a zero byte
};

}  // namespace stock
