// Memory as hexadecimal and text, and back: Hexdump, read_hexdump, prthexcmp.
//
// A line is built from tables, one look-up for two digits and one for a character, and a
// gatherer hands on many lines at a time. A line is read back word by word.

#include "stock/hexdump.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/ascii.h"
#include "base/gatherer.h"
#include "deviants.h"
#include "dumps/dump.h"
#include "stock/elog.h"
#include "stock/pushstr.h"

namespace {

// ---- Writing ----

constexpr int kLineWords = 8;                  // groups of four digits in a line
constexpr std::size_t kLineBytes = 16;         // that a line shows
constexpr std::size_t kHexWidth = 39;          // characters of the words with blanks between
constexpr std::size_t kMaxAddressDigits = 16;  // at least eight are printed
constexpr std::size_t kMaxLineWidth = 1 + kMaxAddressDigits + 2 + kHexWidth + 1 + kLineBytes + 1;
constexpr std::size_t kGatheredBytes = 256 * kMaxLineWidth;

using Byte = unsigned char;

// The two hexadecimal digits of a byte.
struct Digits {
    char pair[2];
};

constexpr auto kDigitPairs = [] {
    std::array<Digits, 256> digits{};
    for (std::size_t i = 0; i < digits.size(); ++i)
        digits[i] = {{"0123456789abcdef"[i >> 4], "0123456789abcdef"[i & 15]}};
    return digits;
}();

// The character of a byte in the text column.
constexpr auto kText = [] {
    std::array<char, 256> text{};
    for (std::size_t i = 0; i < text.size(); ++i)
        text[i] = stock::is_printable(static_cast<Byte>(i)) ? static_cast<char>(i) : '_';
    return text;
}();

void set_pair(char *out, Byte byte)
{
    std::memcpy(out, kDigitPairs[byte].pair, 2);
}

// The functions put_... write at `out` and give the end of what they wrote.

// Writes "%08lx".
char *put_address(char *out, unsigned long address)
{
    int bytes = 4;
    while (bytes < 8 && address >> (8 * bytes))
        ++bytes;
    const bool odd = bytes > 4 && address >> (8 * bytes - 4) == 0;
    if (odd)
        *out++ = kDigitPairs[address >> (8 * --bytes) & 0xff].pair[1];
    while (bytes-- > 0) {
        set_pair(out, static_cast<Byte>(address >> (8 * bytes)));
        out += 2;
    }
    return out;
}

// Writes n bytes as digits and as text; n is kLineBytes in all lines but the last. The blanks
// between them are there already.
char *put_bytes(char *out, const Byte *p, std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i) {
        set_pair(out + 2 * i + i / 2, p[i]);
        out[kHexWidth + 1 + i] = kText[p[i]];
    }
    return out + kHexWidth + 1 + n;
}

char *put_line(char *out, unsigned long address, const Byte *p, std::size_t n)
{
    *out++ = '\t';
    out = put_address(out, address);
    std::memset(out, ' ', 2 + kHexWidth + 1);
    out = n == kLineBytes ? put_bytes(out + 2, p, kLineBytes) : put_bytes(out + 2, p, n);
    *out++ = '\n';
    return out;
}

// Hands the dump on to the sink, many lines at a time.
template <class Sink>
void dump(unsigned long base, const void *p, std::size_t n, Sink sink)
{
    stock::Gatherer<kGatheredBytes, Sink> lines(sink);
    const auto *bytes = static_cast<const Byte *>(p);
    for (std::size_t done = 0; done < n; done += kLineBytes) {
        char *line = lines.room_for(kMaxLineWidth);
        const char *end = put_line(line, base + done, bytes + done, std::min(kLineBytes, n - done));
        lines.advance(static_cast<std::size_t>(end - line));
    }
}

// A gatherer's sink: pushes the text on a string stack.
struct ToStack {
    void **stack;

    void operator()(std::string_view text) const
    {
        pushstrn(stack, text.data(), static_cast<int64_t>(text.size()));
    }
};

// ---- Reading ----

// Reads the next line, cut to HEXDUMP_MAX_LINE characters, and skips the rest of it. False at
// the end of the stream.
bool read_line(FILE *stream, char (&line)[HEXDUMP_MAX_LINE + 1])
{
    line[HEXDUMP_MAX_LINE] = '?';  // fgets puts its terminator here when the line is too long
    if (!std::fgets(line, sizeof line, stream))
        return false;
    if (line[HEXDUMP_MAX_LINE] == 0 && line[HEXDUMP_MAX_LINE - 1] != '\n')
        for (int c = 0; c != '\n' && c != EOF;)
            c = std::getc(stream);
    return true;
}

// The value of a hexadecimal digit, 0 to 15; -1 for other characters.
constexpr auto kDigitValues = [] {
    std::array<short, 256> values{};
    for (short &value : values)
        value = -1;
    for (short i = 0; i < 16; ++i) {
        values[static_cast<Byte>("0123456789abcdef"[i])] = i;
        values[static_cast<Byte>("0123456789ABCDEF"[i])] = i;
    }
    return values;
}();

// The byte that two digits show; negative when they are not both digits.
int byte_of(const char *digits)
{
    const int high = kDigitValues[static_cast<Byte>(digits[0])];
    return high < 0 ? high : high * 16 | kDigitValues[static_cast<Byte>(digits[1])];
}

bool ends_word(char c)
{
    return c == 0 || stock::is_white(c);
}

const char *skip_white(const char *at)
{
    while (stock::is_white(*at))
        ++at;
    return at;
}

const char *skip_word(const char *at)
{
    while (!ends_word(*at))
        ++at;
    return at;
}

std::string_view without_white_at_end(std::string_view text)
{
    while (!text.empty() && stock::is_white(text.back()))
        text.remove_suffix(1);
    return text;
}

// Whether the rest of a line is the text of the n bytes, as a dump shows it, and nothing else.
bool shows_text_of(const char *column, const Byte *bytes, int n)
{
    char text[kLineBytes];
    std::transform(bytes, bytes + n, text, [](Byte byte) { return kText[byte]; });
    return without_white_at_end(column) ==
           without_white_at_end({text, static_cast<std::size_t>(n)});
}

// Writes the bytes that the word shows to buf, at most n. Gives how many these are: two for a
// word of four digits, none when the word does not begin with two digits, else one.
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

// Writes the bytes that a line shows to buf behind the *count that are there, and counts them:
// at most n in all. False when the line has fewer than kLineWords words.
bool bytes_of_line(const char *line, Byte *buf, int n, int *count)
{
    constexpr std::ptrdiff_t kToText = 2 + kHexWidth + 1;  // from the address, in a line of a dump
    const char *address_end = skip_word(skip_white(line));
    const char *at = address_end;
    const int before = *count;
    for (int i = 0; i < kLineWords; ++i) {
        const char *word = skip_white(at);
        // In a short line the text comes before the eighth word, and may look like digits.
        if (word - address_end >= kToText &&
            shows_text_of(address_end + kToText, buf + before, *count - before))
            return false;
        const int got = bytes_of_word(word, buf + *count, n - *count);
        if (got == 0)
            return false;
        *count += got;
        at = skip_word(word + 2);
    }
    return true;
}

// ---- Comparing ----

void print_both(FILE *stream, unsigned long offset, const Byte *a, const Byte *b, int n)
{
    std::fputs("a> ", stream);
    Hexdump(stream, offset, a, n);
    std::fputs("b> ", stream);
    Hexdump(stream, offset, b, n);
    std::fputc('\n', stream);
}

// n rounded up to whole lines, cut to the largest int.
int rounded_up(int n)
{
    constexpr int64_t kLine = kLineBytes;  // signed
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
        dump(base, p, static_cast<std::size_t>(n), stock::ToStream{stream});
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
        dump(base, p, static_cast<std::size_t>(std::max(n, 0)), ToStack{&stack});
    }
    return popstr(&stack, 1);
}

int read_hexdump(FILE *stream, unsigned char *buf, int n)
{
    char line[HEXDUMP_MAX_LINE + 1];
    int count = 0;
    while (count < n && read_line(stream, line) && bytes_of_line(line, buf, n, &count)) {
    }
    return count;
}

int hex2int(int ch)
{
    return ch >= 0 && ch < 256 ? kDigitValues[static_cast<std::size_t>(ch)] : -1;
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
    for (int64_t done = 0; done < n; done += kLineBytes) {
        const int bytes = static_cast<int>(std::min<int64_t>(kLineBytes, n - done));
        if (std::memcmp(a + done, b + done, static_cast<std::size_t>(bytes)) != 0)
            print_both(stream, static_cast<unsigned long>(done), a + done, b + done, bytes);
    }
    return rounded_up(n);
}
