// The scanner of parameter text: two tables of tokens, one for where a key is
// expected and one for where a value is.
//
// The longest token wins, at equal length the earlier row. The first character
// leaves one or two rows to try in nearly every case, and a token is looked at
// once to find its end and once to store it. Nothing is looked for beyond the
// line, except the closing quote of a key and the end of a literal.

#include "pf/scan.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "arrays/node.h"
#include "base/alloc.h"
#include "pf/node.h"
#include "stock/elog.h"
#include "stock/strings.h"

__thread const char *Pffilename = nullptr;
int Pf_show_replacements = 0;

namespace stock {

namespace {

// ---- Characters ----

enum : unsigned {
    kEnd = 1,  // the zero byte behind the text
    kNewline = 2,
    kBlank = 4,  // space and tab, nothing else
    kHash = 8,
    kBackslash = 16,
    kAmpersand = 32,
    kLetter = 64,
    kDigit = 128,
};

constexpr auto kClass = [] {
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

bool is(char c, unsigned classes)
{
    return kClass[static_cast<unsigned char>(c)] & classes;
}

// The first character at or behind p that is of the classes, or the end.
template <unsigned classes>
const char *find(Scanner &s, const char *p)
{
    do {
        while (!is(*p, classes | kEnd))
            ++p;
    } while (!*p && s.window.more(p));
    return p;
}

// The first one that is not.
template <unsigned classes>
const char *skip(Scanner &s, const char *p)
{
    do {
        while (is(*p, classes))
            ++p;
    } while (!*p && s.window.more(p));
    return p;
}

// The next character c, or the end.
const char *find_char(Scanner &s, const char *p, char c)
{
    do {
        const auto left = static_cast<std::size_t>(s.window.end() - p);
        const void *found = std::memchr(p, c, left);
        p = found ? static_cast<const char *>(found) : s.window.end();
    } while (!*p && s.window.more(p));
    return p;
}

bool more_at(Scanner &s, const char *&p)
{
    return *p || s.window.more(p);
}

// ---- Taking text ----

void take_to(Scanner &s, const char *p)
{
    if (p == s.window.start)
        return;
    s.at_line_start = p[-1] == '\n';
    s.window.start = p;
}

void take(Scanner &s, std::size_t length)
{
    take_to(s, s.window.start + length);
}

enum class Count { no, yes };

// Drops what is left of the line, with its newline.
void skip_line(Scanner &s, Count count)
{
    const char *p = s.window.start;
    if (*p != '\n')
        p = find_char(s, p, '\n');
    if (*p) {
        ++p;
        s.Lex_lineno += count == Count::yes;
    }
    take_to(s, p);
}

void fix_String_buf(Scanner &s, std::size_t size)
{
    if (size <= s.StringSz)
        return;
    s.StringSz = std::bit_ceil(std::max<std::size_t>(size, 128));
    s.String_buf =
        static_cast<char *>(reallocate(s.String_buf, s.StringSz, "String_buf", "fix_String_buf"));
}

void gather(Scanner &s, std::string_view text)
{
    fix_String_buf(s, s.string_length + text.size());
    std::memcpy(s.String_buf + s.string_length, text.data(), text.size());
    s.string_length += text.size();
}

// Reads the escape whose backslash stands before p, and moves p past it. Gives -1
// where nothing is left to be escaped. The ends are what no escape reaches past.
int escaped(Scanner &s, const char *&p, unsigned ends)
{
    if (!more_at(s, p) || is(*p, ends))
        return -1;
    const char c = *p++;
    if (is(c, kDigit)) {
        // Three characters are used up, whether octal or not: \1x2 gives 1.
        unsigned value = 0;
        bool octal = true;
        --p;
        for (int i = 0; i < 3 && more_at(s, p) && !is(*p, ends); ++i, ++p) {
            octal = octal && *p >= '0' && *p <= '7';
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

void expect_next(Scanner &s)
{
    s.state = s.Lex_pf->type == PFTBL ? LexState::value : LexState::key;
}

Pf *text_value(std::string_view text)
{
    return new_text(text, "PF_lex");
}

char *copied(std::string_view text, const char *item)
{
    char *copy = static_cast<char *>(allocate(text.size() + 1, item, "PF_lex"));
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = 0;
    return copy;
}

// Stores the value under the current key. Gives the value that the key had, or null.
Pf *set_in_table(const Scanner &s, Pf *pf)
{
    const auto allocate_part = [](std::size_t bytes, const char *item) {
        return allocate(bytes, item, "PF_lex");
    };
    const std::string_view key(s.Lex_key, s.key_length);
    return static_cast<Pf *>(set_text(s.Lex_pf->value.arr, key, pf, allocate_part));
}

void store(Scanner &s, Pf *pf)
{
    pf->parent = s.Lex_pf;
    if (s.Lex_pf->type == PFTBL) {
        pushtbl(s.Lex_pf->value.tbl, pf);
    } else if (Pf *old = set_in_table(s, pf)) {
        if (Pf_show_replacements)
            fprintf(stderr, "replacing key '%s' at line #%d of %s\n", s.Lex_key, s.Lex_lineno,
                    s.Pffilename);
        pffree(old);
    }
    expect_next(s);
}

void set_key(Scanner &s, std::string_view key)
{
    s.key_length = key.copy(s.Lex_key, kMaxKeyBytes);
    s.Lex_key[s.key_length] = 0;
    s.state = LexState::value;
}

// ---- Tokens ----

enum class Next { token, done, failed };

// How much of the text at the window's start is this token; 0 when it is another.
using Match = std::size_t (*)(Scanner &s);

// Stores the token of that length and takes it out of the text.
using Act = Next (*)(Scanner &s, std::size_t length);

std::size_t length_to(const Scanner &s, const char *p)
{
    return static_cast<std::size_t>(p - s.window.start);
}

bool begins_with(Scanner &s, std::string_view word)
{
    const char *p = s.window.start;
    for (const char c : word)
        if (!more_at(s, p) || *p++ != c)
            return false;
    return true;
}

template <std::size_t n>
struct Word {
    constexpr Word(const char (&text)[n]) { std::copy_n(text, n, chars); }
    constexpr std::string_view view() const { return {chars, n - 1}; }
    char chars[n];
};

template <Word word>
std::size_t match_word(Scanner &s)
{
    return begins_with(s, word.view()) ? word.view().size() : 0;
}

std::size_t match_one(Scanner &)
{
    return 1;
}

// "__END__" and its like reach to the end of their line, newline included.
std::size_t match_end_mark(Scanner &s)
{
    if (!begins_with(s, "__END__") && !begins_with(s, "__DATA__") && !begins_with(s, "__EOF__"))
        return 0;
    const char *p = find_char(s, s.window.start, '\n');
    return *p ? length_to(s, p + 1) : 0;
}

std::size_t match_quoted(Scanner &s)
{
    const char *p = find_char(s, s.window.start + 1, *s.window.start);
    return *p ? length_to(s, p + 1) : 0;
}

std::size_t match_plain_key(Scanner &s)
{
    return length_to(s, find<kBlank | kNewline>(s, s.window.start));
}

// To the newline, which is not part of it.
std::size_t match_comment(Scanner &s)
{
    return length_to(s, find_char(s, s.window.start, '\n'));
}

std::size_t match_comment_line(Scanner &s)
{
    return s.at_line_start ? match_comment(s) : 0;
}

// "&name(" anything ")" blanks newline; the parenthesis is the last of the line.
std::size_t match_function(Scanner &s)
{
    const char *p = s.window.start + 1;
    if (!more_at(s, p) || !is(*p, kLetter))
        return 0;
    while (more_at(s, p) && (is(*p, kLetter | kDigit) || *p == '_'))
        ++p;
    if (*p != '(')
        return 0;
    const char *newline = find_char(s, p, '\n');
    if (!*newline)
        return 0;
    for (p = newline - 1; is(*p, kBlank);)
        --p;
    return *p == ')' ? length_to(s, newline + 1) : 0;
}

template <Word word>
std::size_t match_function_named(Scanner &s)
{
    return begins_with(s, word.view()) ? match_function(s) : 0;
}

// "&Literal" and the character behind it, which must be on the same line.
std::size_t match_literal(Scanner &s)
{
    constexpr std::string_view kLiteral = "&Literal";
    if (!begins_with(s, kLiteral))
        return 0;
    const char *p = s.window.start + kLiteral.size();
    return more_at(s, p) && *p != '\n' ? kLiteral.size() + 1 : 0;
}

// ---- What the tokens do ----

Next ignore(Scanner &s, std::size_t length)
{
    take(s, length);
    return Next::token;
}

Next count_line(Scanner &s, std::size_t length)
{
    ++s.Lex_lineno;
    return ignore(s, length);
}

Next stop(Scanner &s, std::size_t length)
{
    count_line(s, length);
    return Next::done;
}

Next close_container(Scanner &s, std::size_t length)
{
    if (s.Lex_level < 1) {
        elog_log(0, "*stack* invalid right brace at line #%d in pf file %s", s.Lex_lineno,
                 s.Pffilename);
        return Next::failed;
    }
    s.Lex_pf = s.Lex_stack[static_cast<std::size_t>(--s.Lex_level)];
    take(s, length);
    skip_line(s, Count::yes);
    expect_next(s);
    return Next::token;
}

template <int type>
Next open_container(Scanner &s, std::size_t length)
{
    if (s.Lex_level == kMaxOpenContainers) {
        elog_log(0, "*stack* too many Lex_levels of nesting at line #%d in pf file %s",
                 s.Lex_lineno, s.Pffilename);
        return Next::failed;
    }
    Pf *Lex_value = pfnew(type);
    store(s, Lex_value);
    s.Lex_stack[static_cast<std::size_t>(s.Lex_level++)] = s.Lex_pf;
    s.Lex_pf = Lex_value;
    take(s, length);
    skip_line(s, Count::yes);
    expect_next(s);
    return Next::token;
}

Next undefine(Scanner &s, std::size_t length)
{
    // poptbl would leave the freed node in its slot, for a later settbl to bring back.
    void *removed = s.Lex_pf->type == PFTBL
                        ? deltbl(s.Lex_pf->value.tbl, s.Lex_pf->value.tbl->count - 1)
                        : delarr(s.Lex_pf->value.arr, s.Lex_key);
    pffree(static_cast<Pf *>(removed));
    take(s, length);
    skip_line(s, Count::yes);
    expect_next(s);
    return Next::token;
}

Next quoted_key(Scanner &s, std::size_t length)
{
    set_key(s, {s.window.start + 1, length - 2});
    take(s, length);
    return Next::token;
}

// The rest of a key from its first backslash at p on; the key before it is stored.
const char *escaped_key(Scanner &s, const char *p)
{
    std::size_t written = std::min(length_to(s, p), kMaxKeyBytes);
    while (more_at(s, p) && !is(*p, kBlank | kNewline | kHash)) {
        int c = static_cast<unsigned char>(*p++);
        if (c == '\\')
            c = escaped(s, p, kBlank | kNewline);
        if (c >= 0 && written < kMaxKeyBytes)
            s.Lex_key[written++] = static_cast<char>(c);
    }
    s.Lex_key[written] = 0;
    s.key_length = std::strlen(s.Lex_key);  // an escape may have given a zero byte
    return p;
}

// A "#" in the key begins a comment, which is left in the text.
Next plain_key(Scanner &s, std::size_t)
{
    const char *p = find<kBlank | kNewline | kHash | kBackslash>(s, s.window.start);
    set_key(s, {s.window.start, length_to(s, p)});
    if (*p == '\\')
        p = escaped_key(s, p);
    take_to(s, p);
    return Next::token;
}

Next comment_line(Scanner &s, std::size_t)
{
    skip_line(s, Count::yes);
    return Next::token;
}

Next empty_value(Scanner &s, std::size_t)
{
    skip_line(s, Count::yes);
    store(s, text_value(""));
    return Next::token;
}

Next function(Scanner &s, std::size_t length)
{
    Pf *pf = pfnew(PFFUNCTION);
    pf->value.pffunct->text = copied({s.window.start, length}, "pf->value.pffunct->text");
    take(s, length);
    ++s.Lex_lineno;
    store(s, pf);
    return Next::token;
}

// A function that names a file keeps in its hook which file it stands in.
Next file_function(Scanner &s, std::size_t length)
{
    Pf *pf = pfnew(PFFUNCTION);
    Pffunction *record = pf->value.pffunct;
    record->text = copied({s.window.start, length}, "pf->value.pffunct->text");
    record->hook = new_hook(std::free);
    record->hook->pvt = copied(s.Pffilename, "filename");
    take(s, length);
    ++s.Lex_lineno;
    store(s, pf);
    return Next::token;
}

std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && is(text.front(), kBlank | kNewline))
        text.remove_prefix(1);
    while (!text.empty() && is(text.back(), kBlank | kNewline))
        text.remove_suffix(1);
    return text;
}

// Complains of a value that swallowed the start of a table or list.
void check_value(const char *text)
{
    if (std::strstr(text, "&Tbl{"))
        elog_complain(0, "value contains '&Tbl{'\n\t'%s'\n", text);
    // Meant: a swallowed "&Literal{" is called an '&Arr{' as well.
    else if (std::strstr(text, "&Arr{") || std::strstr(text, "&Literal{"))
        elog_complain(0, "value contains '&Arr{'\n\t'%s'\n", text);
}

// Gathers a value from its first backslash at p on, up to and not including the
// newline, "#" or end behind it.
std::string_view gather_value(Scanner &s, const char *&p)
{
    s.string_length = 0;
    fix_String_buf(s, 1);
    for (;;) {
        gather(s, {s.window.start, length_to(s, p)});
        take_to(s, p);
        if (*p != '\\')
            break;
        int c = '\n';
        if (++p; more_at(s, p) && *p == '\n')
            ++p;  // the value goes on, and the line is not counted
        else
            c = escaped(s, p, kNewline);
        if (const char byte = static_cast<char>(c); c >= 0)
            gather(s, {&byte, 1});
        take_to(s, p);
        p = find<kNewline | kHash | kBackslash>(s, p);
    }
    return {s.String_buf, strnlen(s.String_buf, s.string_length)};
}

Next plain_value(Scanner &s, std::size_t)
{
    const char *p = find<kNewline | kHash | kBackslash | kAmpersand>(s, s.window.start);
    const bool has_ampersand = *p == '&';
    if (has_ampersand)
        p = find<kNewline | kHash | kBackslash>(s, p);
    const bool as_written = *p != '\\';
    const std::string_view text = trimmed(
        as_written ? std::string_view(s.window.start, length_to(s, p)) : gather_value(s, p));
    if (!*p && s.window.error())
        return Next::done;  // what was read of it is not all of it
    Pf *pf = text_value(text);
    if (as_written)
        take_to(s, p);
    skip_line(s, Count::yes);
    if (has_ampersand || !as_written)
        check_value(pf->value.s);
    store(s, pf);
    return Next::token;
}

// A literal's end was not found: what was gathered is dropped with the text.
Next unfinished_literal(Scanner &s, const char *end)
{
    s.unfinished = true;
    take_to(s, end);
    return Next::done;
}

Next store_literal(Scanner &s, const char *end, std::size_t closing, Count count)
{
    Pf *pf = text_value({s.window.start, length_to(s, end)});
    take_to(s, end + closing);
    if (!s.at_line_start)
        skip_line(s, count);
    store(s, pf);
    return Next::token;
}

// From a quote to the word of the first line behind a quote.
Next here_document(Scanner &s, std::size_t length)
{
    take(s, length - 1);
    const char *newline = find_char(s, s.window.start, '\n');
    char end_word[1 + 127];  // the quote and the word; a longer word is cut
    const std::size_t n = std::min(length_to(s, newline), sizeof end_word);
    std::memcpy(end_word, s.window.start, n);
    if (!*newline)
        return unfinished_literal(s, newline);
    take_to(s, newline + 1);

    const char *p = s.window.start;
    for (;;) {
        const auto left = static_cast<std::size_t>(s.window.end() - p);
        const void *found = memmem(p, left, end_word, n);
        if (found)
            return store_literal(s, static_cast<const char *>(found), n, Count::no);
        // The next look begins where a word that is cut by the end could begin.
        const std::size_t back = std::min(left, n - 1);
        p = s.window.end();
        if (!s.window.more(p))
            return unfinished_literal(s, p);
        p -= back;
    }
}

// The closing delimiter that goes with an opening one; 0 when the text gives it.
// Meant: each of these closes with the next of the list, so "}" closes with "(".
// Behind the last, the single quote, stands nothing that could close it.
constexpr std::string_view kDelimiters = "{}()[]<>`'";

Next bracketed(Scanner &s, std::size_t length)
{
    const char open = s.window.start[length - 1];
    take(s, length);
    const std::size_t i = kDelimiters.find(open);
    char close = 0;
    if (i != kDelimiters.npos) {
        close = i + 1 < kDelimiters.size() ? kDelimiters[i + 1] : '\0';
    } else {
        const char *p = s.window.start;
        if (!more_at(s, p))
            return unfinished_literal(s, p);
        close = *p;
        s.Lex_lineno += close == '\n';
        take_to(s, p + 1);
    }
    if (!s.at_line_start)
        skip_line(s, Count::yes);

    int64_t depth = 1;
    for (const char *p = s.window.start;; ++p) {
        if (!more_at(s, p))
            return unfinished_literal(s, p);
        s.Lex_lineno += *p == '\n';
        if (*p == close && --depth == 0)
            return store_literal(s, p, 1, Count::yes);
        depth += *p == open;
    }
}

// ---- The two tables ----

struct Token {
    std::string_view first;  // what it may begin with; empty: anything
    Match match;
    Act act;
};

// clang-format off
// Where a key is expected: in a PFARR and at top level.
constexpr Token kKeyTokens[] = {
    {"\n",   match_one,         count_line},
    {"_",    match_end_mark,    stop},
    {"}",    match_one,         close_container},
    {"\"'",  match_quoted,      quoted_key},
    {"",     match_plain_key,   plain_key},
    {"#",    match_comment,     ignore},
};

// Behind a key, and throughout a PFTBL.
constexpr Token kValueTokens[] = {
    {"}",    match_one,                          close_container},
    {"&",    match_word<"&Tbl{">,                open_container<PFTBL>},
    {"&",    match_word<"&Arr{">,                open_container<PFARR>},
    {"&",    match_word<"&Undef{}">,             undefine},
    {"&",    match_function_named<"&filename(">, file_function},
    {"&",    match_function_named<"&file(">,     file_function},
    {"&",    match_function,                     function},
    {"#",    match_comment_line,                 comment_line},
    {"#",    match_comment,                      empty_value},
    {"\n",   match_one,                          empty_value},
    {"&",    match_word<"&Literal\"">,           here_document},
    {"&",    match_literal,                      bracketed},
    {"",     match_one,                          plain_value},
};
// clang-format on

// A row for anything leaves these to the others.
constexpr std::string_view kNotPlain = "}#\n";

constexpr bool may_begin(const Token &token, char c)
{
    return token.first.empty() ? kNotPlain.find(c) == kNotPlain.npos
                               : token.first.find(c) != token.first.npos;
}

// For each first character the rows that it leaves to try, a bit for each.
template <std::size_t n>
constexpr auto rows_by_first(const Token (&tokens)[n])
{
    std::array<uint16_t, 256> rows{};
    for (std::size_t c = 1; c < rows.size(); ++c)
        for (std::size_t i = 0; i < n; ++i)
            if (may_begin(tokens[i], static_cast<char>(c)))
                rows[c] = static_cast<uint16_t>(rows[c] | 1U << i);
    return rows;
}

constexpr auto kKeyRows = rows_by_first(kKeyTokens);
constexpr auto kValueRows = rows_by_first(kValueTokens);

// Most keys and values begin with what only the row for anything takes.
constexpr uint16_t kPlainKey = kKeyRows['a'];
constexpr uint16_t kPlainValue = kValueRows['a'];
static_assert(std::has_single_bit(kPlainKey) && std::has_single_bit(kPlainValue));

Next longest_token(Scanner &s, const Token *tokens, unsigned rows)
{
    const Token *longest = &tokens[std::countr_zero(rows)];
    std::size_t length = 0;
    for (; rows; rows &= rows - 1) {
        const Token &token = tokens[std::countr_zero(rows)];
        const std::size_t matched = token.match(s);
        if (matched > length) {
            longest = &token;
            length = matched;
        }
    }
    return longest->act(s, length);
}

Next next_token(Scanner &s)
{
    const auto first = static_cast<unsigned char>(*s.window.start);
    if (s.state == LexState::key) {
        const unsigned rows = kKeyRows[first];
        return rows == kPlainKey ? plain_key(s, 0) : longest_token(s, kKeyTokens, rows);
    }
    const unsigned rows = kValueRows[first];
    return rows == kPlainValue ? plain_value(s, 0) : longest_token(s, kValueTokens, rows);
}

}  // namespace

int PF_lex(Scanner &s)
{
    for (;;) {
        take_to(s, skip<kBlank>(s, s.window.start));
        if (!*s.window.start)
            return 0;
        const Next next = next_token(s);
        if (next != Next::token)
            return next == Next::failed ? -1 : 0;
    }
}

}  // namespace stock
