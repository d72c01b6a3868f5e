// Memory as hexadecimal and text.
//
// Lines are put together by table, two digits or one character a look-up, in a
// block of many lines that is handed on whole: nothing is formatted by printf.

#include "stock/hexdump.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "deviants.h"
#include "internal/dump.h"
#include "stock/elog.h"
#include "stock/pushstr.h"

namespace {

constexpr std::size_t kWidth = 16;       // bytes of a line
constexpr std::size_t kHexWidth = 39;    // eight groups of four digits with a blank between
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
