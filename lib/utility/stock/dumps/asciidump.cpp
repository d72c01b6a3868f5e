// Bytes as text that can be read back.
//
// What each byte turns into stands in one table; the writer copies entries into
// a block and hands that on whole. Writer and reader count the same columns.

#include "stock/asciidump.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>

#include "base/ascii.h"
#include "dumps/dump.h"
#include "stock/hexdump.h"

namespace {

using Byte = unsigned char;

constexpr int kEscape = 5;  // characters of a backslash, "0x" and two digits

// What stands for a byte.
struct Shown {
    char text[7];
    signed char width;  // characters, at most kEscape
};

constexpr char kDigits[] = "0123456789abcdef";

constexpr Shown escaped(Byte byte)
{
    return {{'\\', '0', 'x', kDigits[byte >> 4], kDigits[byte & 15]}, kEscape};
}

constexpr auto kShown = [] {
    std::array<Shown, 256> shown{};
    for (std::size_t i = 0; i < shown.size(); ++i) {
        const auto byte = static_cast<Byte>(i);
        shown[i] = escaped(byte);
        if (stock::is_printable(byte))
            shown[i] = {{static_cast<char>(byte)}, 1};
    }
    shown['\\'] = {{'\\', '\\'}, 2};
    return shown;
}();

constexpr auto kDumped = [] {
    auto shown = kShown;
    shown['\t'] = {{'\t'}, 1};
    shown['\n'] = {{'\n'}, 1};
    return shown;
}();

constexpr Shown kNewline{{'\\', 'n'}, 2};  // in a printable_string

// Characters collected for a stream.
class Block {
public:
    explicit Block(FILE *stream) : stream_(stream) {}

    // A byte, and a newline behind it when the line is full.
    void add(Byte byte, int &column)
    {
        const Shown &shown = kDumped[byte];
        std::memcpy(text_ + length_, shown.text, sizeof shown.text);
        length_ += static_cast<std::size_t>(shown.width);
        column = byte == '\n' ? 0 : column + shown.width;
        if (column >= ASCIIDUMP_WIDTH) {
            text_[length_++] = '\n';
            column = 0;
        }
        if (length_ > kFull)
            flush();
    }

    // Prints what was collected; gives the characters printed so far.
    int64_t flush()
    {
        std::fwrite(text_, 1, length_, stream_);
        printed_ += static_cast<int64_t>(length_);
        length_ = 0;
        return printed_;
    }

private:
    static constexpr std::size_t kFull = 16384;

    FILE *stream_;
    int64_t printed_ = 0;
    std::size_t length_ = 0;
    char text_[kFull + sizeof(Shown) + 1];  // an entry is copied whole
};

int as_int(int64_t count)
{
    return static_cast<int>(std::min<int64_t>(count, INT_MAX));
}

// What stands behind a backslash in a dump: the byte, or EOF when it is none.
int read_escape(FILE *stream, int &column)
{
    const int kind = getc_unlocked(stream);
    if (kind == '\\') {
        ++column;
        return '\\';
    }
    getc_unlocked(stream);  // the "x"
    const int high = hex2int(getc_unlocked(stream));
    const int low = hex2int(getc_unlocked(stream));
    column += kEscape - 1;
    return high < 0 || low < 0 ? EOF : 16 * high + low;
}

// The next byte of a dump, EOF when there is none.
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

// printable_string of memory that cannot be read
void name_memory(char *buf, int size, const char *p)
{
    constexpr int kWorthIt = 26;
    char text[stock::kNoMemorySize];
    stock::no_memory(text, p);
    if (size >= kWorthIt)
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
    Block block(stream);
    int at = *column;
    for (int i = 0; i < n; ++i)
        block.add(static_cast<Byte>(p[i]), at);
    *column = at;
    return as_int(block.flush());
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
    flockfile(stream);
    for (int byte = 0; count < n && (byte = read_byte(stream, at)) != EOF; ++count)
        buf[count] = static_cast<Byte>(byte);
    funlockfile(stream);
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
    for (int i = 0; i < n && out - buf < size - kEscape; ++i) {
        const Shown &shown = p[i] == '\n' ? kNewline : kShown[static_cast<Byte>(p[i])];
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
    const Shown shown =
        itself ? Shown{{static_cast<char>(ch)}, 1} : escaped(static_cast<Byte>(ch & 0xff));
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
