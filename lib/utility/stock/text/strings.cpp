// Text in place: splitting, copying, trimming, and lines read from a stream.
//
// Every function looks at each byte once. Blanks and letters are those of ASCII, whatever the
// process's locale.

#include "stock/strings.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/alloc.h"
#include "base/ascii.h"
#include "base/guards.h"
#include "text/text_state.h"

namespace {

std::string_view text_of(const char *string)
{
    return string ? string : "";
}

// Writes the text, which may overlap the destination, and a terminator. Gives where the
// terminator stands.
char *terminated(char *destination, std::string_view text)
{
    if (!text.empty())
        std::memmove(destination, text.data(), text.size());
    destination[text.size()] = 0;
    return destination + text.size();
}

// Cuts the string where separates(c) holds: puts terminators there and lists the fields that
// are not empty.
template <class Separates>
Tbl *split_where(char *string, Separates separates)
{
    Tbl *fields = newtbl(5);
    if (!string)
        return fields;
    for (;;) {
        while (*string && separates(*string))
            *string++ = 0;
        if (!*string)
            return fields;
        pushtbl(fields, string);
        while (*string && !separates(*string))
            ++string;
    }
}

// Changes the case of the 26 letters from `first` on. Gives the string's length.
int64_t swap_case(char *string, char first)
{
    const std::size_t length = text_of(string).size();
    for (std::size_t i = 0; i < length; ++i) {
        // Without a branch, so that the loop becomes vector instructions.
        const bool letter = static_cast<unsigned char>(string[i] - first) < 26;
        string[i] = static_cast<char>(string[i] ^ (letter ? 'a' ^ 'A' : 0));
    }
    return static_cast<int64_t>(length);
}

// Whether allowed(c) holds for all characters.
template <class Allowed>
int holds_only(const char *string, Allowed allowed)
{
    const std::string_view text = text_of(string);
    return std::all_of(text.begin(), text.end(), allowed);
}

// Gives a line its first buffer, which the caller of intactline frees.
void start_line(char **buffer, int64_t *size)
{
    *size = INTACTLINE_FIRST;
    *buffer = static_cast<char *>(stock::allocate(INTACTLINE_FIRST, "*aline", "intactline"));
}

void double_line(char **buffer, int64_t *size)
{
    const std::size_t twice = stock::bytes_for(*size, 2);
    *buffer = static_cast<char *>(stock::reallocate(*buffer, twice, "*aline", "intactline"));
    *size *= 2;
}

// Reads up to the next newline and puts it into the buffer, too. Gives how many characters it
// read. There is room for a terminator behind them.
int64_t read_line(FILE *stream, char **buffer, int64_t *size)
{
    int64_t length = 0;
    for (int c = 0; c != '\n' && (c = getc_unlocked(stream)) != EOF;) {
        if (length + 1 >= *size)
            double_line(buffer, size);
        (*buffer)[length++] = static_cast<char>(c);
    }
    return length;
}

}  // namespace

Tbl *split(char *string, int character)
{
    const char separator = static_cast<char>(character);
    return split_where(string, [=](char c) { return c == separator; });
}

Tbl *splitws(char *string)
{
    return split_where(string, stock::is_white);
}

int sncopy(char *destination, const char *source, int n)
{
    if (n <= 0)
        return 0;
    const auto width = static_cast<std::size_t>(n);
    const std::size_t length = source ? strnlen(source, width) : 0;
    std::copy_n(source, length, destination);
    std::memset(destination + length, ' ', width - length);
    return n;
}

char *szcopy(char *destination, const char *source, int n)
{
    return terminated(destination, {source, source && n > 0 ? static_cast<std::size_t>(n) : 0});
}

char *copystrip(char *destination, const char *source, int n)
{
    const std::string_view text{source, source && n > 0 ? static_cast<std::size_t>(n) : 0};
    return terminated(destination, stock::trimmed(text, [](char c) { return c == ' '; }));
}

void *memdup(const void *address, size_t n)
{
    return address ? std::memcpy(stock::allocate(n, "b"), address, n) : nullptr;
}

int64_t str2upper(char *string)
{
    return swap_case(string, 'a');
}

int64_t str2lower(char *string)
{
    return swap_case(string, 'A');
}

void strtrim(char *string)
{
    if (string)
        terminated(string, stock::trimmed(string, stock::is_white));
}

char *strsub(const char *source, const char *old_text, const char *new_text, char *destination)
{
    std::string_view rest = text_of(source);
    const std::string_view wanted = text_of(old_text);
    const std::string_view replacement = text_of(new_text);
    while (!wanted.empty()) {
        const void *found = memmem(rest.data(), rest.size(), wanted.data(), wanted.size());
        if (!found)
            break;
        const auto before =
            static_cast<std::size_t>(static_cast<const char *>(found) - rest.data());
        destination = std::copy_n(rest.data(), before, destination);
        destination = std::copy(replacement.begin(), replacement.end(), destination);
        rest.remove_prefix(before + wanted.size());
    }
    return terminated(destination, rest);
}

void strtr(char *string, const char *from, const char *to)
{
    // Meant: pairs beyond the 256th are ignored.
    constexpr std::size_t kCharacters = 256;
    if (!string || !from || !to)
        return;
    const std::size_t pairs = std::min(strnlen(from, kCharacters), strnlen(to, kCharacters));
    if (pairs == 0)
        return;
    unsigned char turns_into[kCharacters];
    for (std::size_t i = 0; i < kCharacters; ++i)
        turns_into[i] = static_cast<unsigned char>(i);
    for (std::size_t i = 0; i < pairs; ++i)
        turns_into[static_cast<unsigned char>(from[i])] = static_cast<unsigned char>(to[i]);
    for (; *string; ++string)
        *string = static_cast<char>(turns_into[static_cast<unsigned char>(*string)]);
}

void chomp(char *string)
{
    const std::size_t length = text_of(string).size();
    if (length > 0 && string[length - 1] == '\n')
        string[length - 1] = 0;
}

int nstrcmp(const char *a, const char *b)
{
    if (a && b)
        return std::strcmp(a, b);
    return a != b;
}

int blank(const char *string)
{
    return holds_only(string, [](char c) { return c == ' '; });
}

int whitespace(const char *string)
{
    return holds_only(string, stock::is_white);
}

const char *okstr(const char *string)
{
    return string ? string : "<null>";
}

char *spaces(int n)
{
    stock::TextState &state = stock::Text_state;
    std::atomic<char *> &slot = state.spaces_ring[state.spaces_calls++ % SPACES_RING];
    char *buffer = slot;
    if (!buffer) {
        auto *made = static_cast<char *>(stock::allocate(MAX_SPACES + 1, "buf[ibuf]"));
        if (slot.compare_exchange_strong(buffer, made))
            buffer = made;
        else
            std::free(made);  // another thread filled the slot first
    }
    // Filled each time, because the caller may write to the buffer.
    const int width = std::clamp<int>(n, 0, MAX_SPACES);
    std::memset(buffer, ' ', static_cast<std::size_t>(width));
    buffer[width] = 0;
    return buffer;
}

char *getaline(FILE *stream, char *buffer, int size)
{
    // Meant: the last byte is cleared and not used, so a line has at most size - 2 characters.
    if (buffer && size > 0)
        buffer[size - 1] = 0;
    if (!stream || !buffer || size < 3 || !std::fgets(buffer, size - 1, stream))
        return nullptr;
    chomp(buffer);
    return buffer;
}

char *intactline(FILE *stream, char **buffer, int64_t *size)
{
    if (!stream || !buffer || !size)
        return nullptr;
    if (*size <= 0 || !*buffer)
        start_line(buffer, size);
    const int error_before = errno;
    const stock::StreamLock lock(stream);
    const int64_t length = read_line(stream, buffer, size);
    // Only a failed read that gave nothing tells its errno.
    if (length > 0 || !ferror_unlocked(stream))
        errno = error_before;
    if (length == 0)
        return nullptr;
    char *end = *buffer + length;
    if (end[-1] == '\n')
        --end;
    *end = 0;
    return *buffer;
}
