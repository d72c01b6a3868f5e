// Bytes as text that can be read back: asciidump, printable_string and their readers.
//
// One table holds the text of each byte, and writing copies its entries. The writer breaks a
// line when its column reaches ASCIIDUMP_WIDTH; the reader counts the same columns and so
// knows which newlines the writer put in.

#include "stock/asciidump.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/ascii.h"
#include "base/gatherer.h"
#include "base/guards.h"
#include "dumps/dump.h"
#include "stock/hexdump.h"

namespace {

using Byte = unsigned char;

constexpr int kEscapeWidth = 5;  // characters of a backslash, "0x" and two digits

// The text that stands for a byte.
struct ByteText {
    char text[7];       // seven, so that an entry is eight bytes and is copied at once
    signed char width;  // characters of it, at most kEscapeWidth
};

constexpr char kHexDigits[] = "0123456789abcdef";

constexpr ByteText escaped(Byte byte)
{
    return {{'\\', '0', 'x', kHexDigits[byte >> 4], kHexDigits[byte & 15]}, kEscapeWidth};
}

// In a printable_string, but for a newline.
constexpr auto kPrinted = [] {
    std::array<ByteText, 256> texts{};
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const auto byte = static_cast<Byte>(i);
        texts[i] = escaped(byte);
        if (stock::is_printable(byte))
            texts[i] = {{static_cast<char>(byte)}, 1};
    }
    texts['\\'] = {{'\\', '\\'}, 2};
    return texts;
}();

// In a dump: there tabs and newlines are themselves.
constexpr auto kDumped = [] {
    auto texts = kPrinted;
    texts['\t'] = {{'\t'}, 1};
    texts['\n'] = {{'\n'}, 1};
    return texts;
}();

constexpr ByteText kNewline{{'\\', 'n'}, 2};  // in a printable_string

constexpr std::size_t kPieceBytes = 1024;                              // dumped at a time
constexpr std::size_t kPieceWidth = kPieceBytes * (kEscapeWidth + 1);  // each may end a line

// Writes the byte's text at `out`, and a newline when the line is full. Gives where it ends;
// the text is copied whole, so some bytes behind its end are overwritten.
char *put_byte(char *out, Byte byte, int &column)
{
    const ByteText &shown = kDumped[byte];
    std::memcpy(out, shown.text, sizeof shown.text);
    out += shown.width;
    column = byte == '\n' ? 0 : column + shown.width;
    if (column >= ASCIIDUMP_WIDTH) {
        *out++ = '\n';
        column = 0;
    }
    return out;
}

int as_int(int64_t count)
{
    return static_cast<int>(std::min<int64_t>(count, INT_MAX));
}

// Reads what follows a backslash in a dump. Gives the byte, or EOF when it shows none.
int read_escape(FILE *stream, int &column)
{
    const int kind = getc_unlocked(stream);
    if (kind == '\\') {
        ++column;
        return '\\';
    }
    getc_unlocked(stream);  // the "x" behind the "0"
    const int high = hex2int(getc_unlocked(stream));
    const int low = hex2int(getc_unlocked(stream));
    column += kEscapeWidth - 1;
    return high < 0 || low < 0 ? EOF : 16 * high + low;
}

// Reads the next byte of a dump; gives EOF when there is none. column is counted as put_byte
// counts it.
int read_byte(FILE *stream, int &column)
{
    int byte = getc_unlocked(stream);
    if (byte == EOF)
        return EOF;
    if (byte == '\n') {
        column = 0;
        return byte;
    }
    ++column;
    if (byte == '\\')
        byte = read_escape(stream, column);
    if (column >= ASCIIDUMP_WIDTH) {
        getc_unlocked(stream);  // the newline that the writer inserted
        column = 0;
    }
    return byte;
}

// Writes the printable_string of memory that cannot be read. A buffer of fewer than three
// bytes is left alone.
void name_memory(char *buf, int size, const char *p)
{
    constexpr int kLeastSize = 26;  // of a buffer that gets the text
    char text[stock::kNoMemorySize];
    stock::no_memory(text, p);
    if (size >= kLeastSize)
        std::snprintf(buf, static_cast<std::size_t>(size), "%s", text);
    else if (size >= 3)
        std::memcpy(buf, "?", 2);
}

}  // namespace

int asciidump(FILE *stream, const char *p, int n)
{
    if (stock::unreadable(p, n)) {
        char text[stock::kNoMemorySize];
        stock::no_memory(text, p);
        return std::fputs(text, stream) < 0 ? 0 : static_cast<int>(std::strlen(text));
    }
    if (n <= 0)
        return std::fputc('\n', stream) == EOF ? 0 : 1;
    int column = 0;
    return asciidump_piece(stream, p, n, &column);
}

int asciidump_piece(FILE *stream, const char *p, int n, int *column)
{
    stock::Gatherer<16384, stock::ToStream> dump(stock::ToStream{stream});
    int at = *column;  // a copy, which stays in a register
    int64_t printed = 0;
    std::string_view rest(p, static_cast<std::size_t>(std::max(n, 0)));
    while (!rest.empty()) {
        char *piece = dump.room_for(kPieceWidth + sizeof(ByteText));
        char *out = piece;
        for (const char c : rest.substr(0, kPieceBytes))
            out = put_byte(out, static_cast<Byte>(c), at);
        rest.remove_prefix(std::min(kPieceBytes, rest.size()));
        dump.advance(static_cast<std::size_t>(out - piece));
        printed += out - piece;
    }
    *column = at;
    return as_int(printed);
}

int read_asciidump(FILE *stream, unsigned char *buf, int n)
{
    int column = 0;
    return read_asciidump_piece(stream, buf, n, &column);
}

int read_asciidump_piece(FILE *stream, unsigned char *buf, int n, int *column)
{
    int at = *column;
    int count = 0;
    const stock::StreamLock lock(stream);
    for (int byte = 0; count < n && (byte = read_byte(stream, at)) != EOF; ++count)
        buf[count] = static_cast<Byte>(byte);
    *column = at;
    return count;
}

char *printable_string(char *buf, int size, const char *p, int n)
{
    if (stock::unreadable(p, n)) {
        name_memory(buf, size, p);
        return buf;
    }
    if (size <= 0)
        return buf;
    char *out = buf;
    if (n <= 0 && size > 1)
        *out++ = '\n';
    for (int i = 0; i < n && out - buf < size - kEscapeWidth; ++i) {
        const ByteText &shown = p[i] == '\n' ? kNewline : kPrinted[static_cast<Byte>(p[i])];
        out = std::copy_n(shown.text, shown.width, out);
    }
    *out = 0;
    return buf;
}

int printable(const char *s, int n)
{
    if (!s)
        return n <= 0 ? 2 : 0;
    for (int i = 0; i < n; ++i)
        if (!stock::is_printable(static_cast<Byte>(s[i])))
            return s[i] == 0;
    return 2;
}

char *printable_char(int ch, char *buf)
{
    const bool itself = (ch >= 32 && ch <= 126) || ch == '\n' || ch == '\t' || ch == '\r';
    const ByteText shown =
        itself ? ByteText{{static_cast<char>(ch)}, 1} : escaped(static_cast<Byte>(ch & 0xff));
    *std::copy_n(shown.text, shown.width, buf) = 0;
    return buf;
}

void Xchardump(FILE *stream, const char *name, const char *comment, const char *p, int n)
{
    if (!name)
        name = "";
    if (!comment)
        comment = "";
    if (!stock::unreadable(p, n) && printable(p, n) != 0) {
        std::fprintf(stream, "%s = '%.*s' %s\n", name, std::max(n, 0), p ? p : "", comment);
        return;
    }
    std::fprintf(stream, "%s (%d bytes) # %s\n", name, n, comment);
    hexdump(stream, p, n);
}
