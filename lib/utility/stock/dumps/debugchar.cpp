// Lists, arrays and text printed for debugging.
//
// Text is printed as long as its characters are printable; bytes that are not are shown as a
// hexadecimal dump.

#include "stock/debugchar.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/alloc.h"
#include "base/ascii.h"
#include "stock/elog.h"
#include "stock/hexdump.h"
#include "stock/strings.h"

namespace {

constexpr int kDumpedBytes = 16;                  // of a buffer that is not printable
constexpr int kMostText = DEBUGCHARSTR_SIZE - 1;  // characters of debugcharstr's result

int print_pair(void *key, void *value, void *stream)
{
    std::fprintf(static_cast<FILE *>(stream), "\t%-15s %s\n", okstr(static_cast<char *>(key)),
                 okstr(static_cast<char *>(value)));
    return 0;
}

void print_title(FILE *stream, const char *title)
{
    if (title)
        std::fprintf(stream, "%s", title);
}

// How many characters from the start on are printable, n at most. A terminator is not.
int leading_printable(const char *text, int n)
{
    int count = 0;
    while (count < n && stock::is_printable(static_cast<unsigned char>(text[count])))
        ++count;
    return count;
}

}  // namespace

void debugtbl(FILE *stream, const char *title, const Tbl *list)
{
    print_title(stream, title);
    const int64_t count = list ? list->count : 0;
    for (int64_t i = 0; i < count; ++i)
        std::fprintf(stream, "\t%3ld %s\n", static_cast<long>(i),
                     okstr(static_cast<char *>(gettbl(list, i))));
}

void debugarr(FILE *stream, const char *title, const Arr *arr)
{
    print_title(stream, title);
    if (arr)
        applyarr(const_cast<Arr *>(arr), print_pair, stream);
}

void debugchar(FILE *stream, const char *title, const char *buffer, int n)
{
    print_title(stream, title);
    const int wanted = n > 0 ? n : DEBUGCHAR_DEFAULT;
    const int count = buffer ? leading_printable(buffer, wanted) : 0;
    if (buffer && count < wanted && buffer[count])
        hexdump(stream, buffer, kDumpedBytes);
    else if (count == 0)
        std::fputs("''", stream);
    else
        std::fwrite(buffer, 1, static_cast<std::size_t>(count), stream);
}

char *debugcharstr(const char *string, int n)
{
    const char *text = okstr(string);
    const int wanted = n > 0 ? n : DEBUGCHAR_DEFAULT;
    const int count = leading_printable(text, wanted);
    // Meant: a text with a character that is not printable is copied whole.
    const bool whole = !string || (count < wanted && text[count]);
    const std::size_t length =
        whole ? std::strlen(text) : static_cast<std::size_t>(std::min(count, kMostText));
    if (length > kMostText)
        elog_die(0, "debugcharstr: %lu characters do not fit its buffer of %d bytes\n",
                 static_cast<unsigned long>(length), DEBUGCHARSTR_SIZE);
    auto *result = static_cast<char *>(stock::allocate(length + 1, "result"));
    result[length] = 0;
    return static_cast<char *>(std::memcpy(result, text, length));
}
