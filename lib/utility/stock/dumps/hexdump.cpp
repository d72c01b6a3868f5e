// Memory as hexadecimal and text.
//
// Lines are put together by table, two digits or one character a look-up, in a
// block of many lines that is handed on whole: nothing is formatted by printf.

#include "stock/hexdump.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/ascii.h"
#include "deviants.h"
#include "dumps/dump.h"
#include "stock/elog.h"
#include "stock/pushstr.h"

namespace {

// Writing.

constexpr int kGroups = 8;               // of a line
constexpr std::size_t kWidth = 16;       // bytes of a line
constexpr std::size_t kHexWidth = 39;    // groups of four digits with a blank between
constexpr std::size_t kMaxAddress = 16;  // digits
constexpr std::size_t kMaxLine = 1 + kMaxAddress + 2 + kHexWidth + 1 + kWidth + 1;
constexpr std::size_t kLines = 256;  // handed on at a time

using Byte = unsigned char;

struct Digits {
    char pair[2];
};

constexpr auto kDigits = [] {
    std::array<Digits, 256> digits{};
    for (std::size_t i = 0; i < digits.size(); ++i)
        digits[i] = {{"0123456789abcdef"[i >> 4], "0123456789abcdef"[i & 15]}};
    return digits;
}();

constexpr auto kText = [] {
    std::array<char, 256> text{};
    for (std::size_t i = 0; i < text.size(); ++i)
        text[i] = stock::is_printable(static_cast<Byte>(i)) ? static_cast<char>(i) : '_';
    return text;
}();

void put_pair(char *out, Byte byte)
{
    std::memcpy(out, kDigits[byte].pair, 2);
}

// "%08lx"
char *put_address(char *out, unsigned long address)
{
    int bytes = 4;
    while (bytes < 8 && address >> (8 * bytes))
        ++bytes;
    const bool odd = bytes > 4 && address >> (8 * bytes - 4) == 0;
    if (odd)
        *out++ = kDigits[address >> (8 * --bytes) & 0xff].pair[1];
    while (bytes-- > 0) {
        put_pair(out, static_cast<Byte>(address >> (8 * bytes)));
        out += 2;
    }
    return out;
}

// The bytes as digits and as text; n is kWidth but for the last line.
char *put_bytes(char *out, const Byte *p, std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i) {
        put_pair(out + 2 * i + i / 2, p[i]);
        out[kHexWidth + 1 + i] = kText[p[i]];
    }
    return out + kHexWidth + 1 + n;
}

char *put_line(char *out, unsigned long address, const Byte *p, std::size_t n)
{
    *out++ = '\t';
    out = put_address(out, address);
    std::memset(out, ' ', 2 + kHexWidth + 1);
    out = n == kWidth ? put_bytes(out + 2, p, kWidth) : put_bytes(out + 2, p, n);
    *out++ = '\n';
    return out;
}

// Hands the dump on in blocks of whole lines.
template <class Sink>
void dump(unsigned long base, const Byte *p, std::size_t n, Sink sink)
{
    char block[kLines * kMaxLine];
    for (std::size_t done = 0; done < n;) {
        char *out = block;
        for (std::size_t line = 0; line < kLines && done < n; ++line) {
            const std::size_t bytes = std::min(kWidth, n - done);
            out = put_line(out, base + done, p + done, bytes);
            done += bytes;
        }
        sink(block, static_cast<std::size_t>(out - block));
    }
}

// Reading.

// The next line, cut to HEXDUMP_MAX_LINE characters; the rest of it is dropped.
bool next_line(FILE *stream, char (&line)[HEXDUMP_MAX_LINE + 1])
{
    line[HEXDUMP_MAX_LINE] = '?';  // zero afterwards when the line reaches so far
    if (!std::fgets(line, sizeof line, stream))
        return false;
    if (line[HEXDUMP_MAX_LINE] == 0 && line[HEXDUMP_MAX_LINE - 1] != '\n')
        for (int c = 0; c != '\n' && c != EOF;)
            c = std::getc(stream);
    return true;
}

// 0 to 15, or -1 for what is no digit.
constexpr auto kValues = [] {
    std::array<short, 256> values{};
    for (short &value : values)
        value = -1;
    for (short i = 0; i < 16; ++i) {
        values[static_cast<Byte>("0123456789abcdef"[i])] = i;
        values[static_cast<Byte>("0123456789ABCDEF"[i])] = i;
    }
    return values;
}();

// The byte that two characters show; negative when they are no digits.
int byte_of(const char *digits)
{
    const int high = kValues[static_cast<Byte>(digits[0])];
    return high < 0 ? high : high * 16 | kValues[static_cast<Byte>(digits[1])];
}

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\n';
}

bool ends_word(char c)
{
    return c == 0 || is_blank(c);
}

const char *blanks_end(const char *at)
{
    while (is_blank(*at))
        ++at;
    return at;
}

const char *word_end(const char *at)
{
    while (!ends_word(*at))
        ++at;
    return at;
}

std::string_view without_blanks_behind(std::string_view text)
{
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    return text;
}

// Whether the column holds just the text of the n bytes, as a dump has it.
bool shows_text_of(const char *column, const Byte *bytes, int n)
{
    char text[kWidth];
    std::transform(bytes, bytes + n, text, [](Byte byte) { return kText[byte]; });
    return without_blanks_behind(column) ==
           without_blanks_behind({text, static_cast<std::size_t>(n)});
}

// Puts the bytes that the word shows, one or two and at most n, into buf and counts them;
// none when it shows none.
int bytes_of_word(const char *word, Byte *buf, int n)
{
    const int first = byte_of(word);
    if (first < 0 || n < 1)
        return 0;
    buf[0] = static_cast<Byte>(first);
    const int second = n < 2 ? -1 : byte_of(word + 2);
    if (second < 0 || !ends_word(word[4]))
        return 1;
    buf[1] = static_cast<Byte>(second);
    return 2;
}

// Puts the bytes that a line shows, at most n, into buf and counts them in
// *count. Gives whether the line has all its words.
bool bytes_of_line(const char *line, Byte *buf, int n, int *count)
{
    constexpr std::ptrdiff_t kToText = 2 + kHexWidth + 1;  // in a line as dump writes it
    const char *address_end = word_end(blanks_end(line));
    const char *at = address_end;
    const int before = *count;
    for (int i = 0; i < kGroups; ++i) {
        const char *word = blanks_end(at);
        // The text of a short line may look like digits.
        if (word - address_end >= kToText &&
            shows_text_of(address_end + kToText, buf + before, *count - before))
            return false;
        const int got = bytes_of_word(word, buf + *count, n - *count);
        if (got == 0)
            return false;
        *count += got;
        at = word_end(word + 2);
    }
    return true;
}

// Comparing.

void print_both(FILE *stream, unsigned long offset, const Byte *a, const Byte *b, int n)
{
    std::fputs("a> ", stream);
    Hexdump(stream, offset, a, n);
    std::fputs("b> ", stream);
    Hexdump(stream, offset, b, n);
    std::fputc('\n', stream);
}

// n in whole lines, as far as an int goes.
int rounded_up(int n)
{
    constexpr int64_t kLine = kWidth;
    return static_cast<int>(
        std::min<int64_t>((std::max<int64_t>(n, 0) + kLine - 1) / kLine * kLine, INT_MAX));
}

}  // namespace

void Hexdump(FILE *stream, unsigned long base, const void *p, int n)
{
    const void *answer = nullptr;
    if (stock::unreadable(p, n, &answer)) {
        elog_complain(1, "nomem returns %p for %d bytes at %p", answer, n, p);
        std::fprintf(stream, "no memory at %p\n", p);
        return;
    }
    if (n <= 0)
        std::fputc('\n', stream);
    else
        dump(base, static_cast<const Byte *>(p), static_cast<std::size_t>(n),
             [=](const char *block, std::size_t bytes) { std::fwrite(block, 1, bytes, stream); });
}

void hexdump(FILE *stream, const void *p, int n)
{
    Hexdump(stream, 0, p, n);
}

char *hexdump_string(unsigned long base, const void *p, int n)
{
    void *stack = nullptr;
    if (stock::unreadable(p, n)) {
        char text[stock::kNoMemorySize];
        stock::no_memory(text, p);
        pushstr(&stack, text);
    } else {
        dump(base, static_cast<const Byte *>(p), static_cast<std::size_t>(std::max(n, 0)),
             [&](const char *block, std::size_t bytes) {
                 pushstrn(&stack, block, static_cast<int64_t>(bytes));
             });
    }
    return popstr(&stack, 1);
}

int read_hexdump(FILE *stream, unsigned char *buf, int n)
{
    char line[HEXDUMP_MAX_LINE + 1];
    int count = 0;
    while (count < n && next_line(stream, line) && bytes_of_line(line, buf, n, &count)) {
    }
    return count;
}

int hex2int(int ch)
{
    return ch >= 0 && ch < 256 ? kValues[static_cast<std::size_t>(ch)] : -1;
}

int prthexcmp(FILE *stream, const char *title, const unsigned char *a, const unsigned char *b,
              int n)
{
    if (title)
        std::fprintf(stream, "\n%s\n", title);
    if (stock::unreadable(a, n) || stock::unreadable(b, n)) {
        print_both(stream, 0, a, b, n);
        return rounded_up(n);
    }
    for (int64_t done = 0; done < n; done += kWidth) {
        const int bytes = static_cast<int>(std::min<int64_t>(kWidth, n - done));
        if (std::memcmp(a + done, b + done, static_cast<std::size_t>(bytes)) != 0)
            print_both(stream, static_cast<unsigned long>(done), a + done, b + done, bytes);
    }
    return rounded_up(n);
}
