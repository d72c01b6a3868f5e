// The string stack: a text that grows at its end, and what is built with it.

#include "stock/pushstr.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/alloc.h"

static_assert(offsetof(Vstk, size) == 0);
static_assert(offsetof(Vstk, length) == 8);
static_assert(offsetof(Vstk, s) == 16);

namespace {

constexpr uint64_t kFirst = 1024;  // the least that a stack starts with

// Set for good when a rounded block was refused: afterwards a block may be just as
// large as its size says.
std::atomic<bool> Blocks_are_exact = false;

std::string_view text_of(const char *string)
{
    return string ? string : "";
}

uint64_t times_five(uint64_t n)
{
    uint64_t product = 0;
    return __builtin_mul_overflow(n, 5, &product) ? UINT64_MAX : product;
}

// What is allocated for a size while there is memory. A size grows by just the text that
// is pushed, its block by a quarter or less at a time, so that most texts move nothing.
constexpr uint64_t block_for(uint64_t size)
{
    size = std::max(size, kFirst);
    const uint64_t mask = std::bit_floor(size) / 4 - 1;
    return size > UINT64_MAX / 2 ? size : (size + mask) & ~mask;
}

// The text in a block for the size; a null text is a new one.
char *resized(char *text, uint64_t size, const char *function)
{
    if (!Blocks_are_exact) {
        if (auto *block = static_cast<char *>(std::realloc(text, block_for(size))))
            return block;
        Blocks_are_exact = true;
    }
    auto *block = static_cast<char *>(std::realloc(text, size));
    if (!block)
        stock::out_of_memory(size, "vstk->s", function);
    return block;
}

// The stack's record, made with that many bytes for the text when there is none yet.
Vstk *opened(void **stack, uint64_t first, const char *function)
{
    if (*stack)
        return static_cast<Vstk *>(*stack);
    auto *vstk = static_cast<Vstk *>(stock::allocate(sizeof(Vstk), "vstk", function));
    vstk->size = std::max(kFirst, first);
    vstk->length = 0;
    vstk->s = resized(nullptr, vstk->size, function);
    vstk->s[0] = 0;
    *stack = vstk;
    return vstk;
}

// Gives the text `bytes` behind it when it lacks room for n characters and a terminator.
void make_room(Vstk *vstk, uint64_t n, uint64_t bytes, const char *function)
{
    if (n < vstk->size - vstk->length)
        return;
    const uint64_t size = vstk->length + bytes;
    if (Blocks_are_exact || block_for(size) > block_for(vstk->size))
        vstk->s = resized(vstk->s, size, function);
    vstk->size = size;
}

int64_t append(Vstk *vstk, std::string_view text)
{
    text.copy(vstk->s + vstk->length, text.size());
    vstk->length += text.size();
    vstk->s[vstk->length] = 0;
    return static_cast<int64_t>(vstk->length);
}

char *put(char *out, std::string_view text)
{
    return out + text.copy(out, text.size());
}

// The first n lines of a text, or those of them that end in a newline.
struct Head {
    std::size_t lines = 0;
    std::size_t bytes = 0;  // up to and with the last newline
    bool complete = false;  // all n of them
};

Head head_of(const char *text, int n)
{
    Head head;
    const char *end = text;
    while (n > 0 && (end = std::strchr(text + head.bytes, '\n')) != nullptr) {
        head.bytes = static_cast<std::size_t>(end + 1 - text);
        ++head.lines;
        --n;
    }
    head.complete = n <= 0;
    return head;
}

}  // namespace

int64_t pushstr(void **stack, const char *string)
{
    const std::string_view text = text_of(string);
    Vstk *vstk = opened(stack, times_five(text.size()), "pushstr");
    make_room(vstk, text.size(), text.size() + 1, "pushstr");
    return append(vstk, text);
}

int64_t pushstrc(void **stack, int character)
{
    const char c = static_cast<char>(character);
    Vstk *vstk = opened(stack, kFirst, "pushstrc");
    make_room(vstk, 1, 2, "pushstrc");
    return append(vstk, {&c, 1});
}

int64_t pushstrn(void **stack, const char *string, int64_t n)
{
    const auto most = static_cast<uint64_t>(std::max<int64_t>(n, 0));
    Vstk *vstk = opened(stack, times_five(most), "pushstrn");
    make_room(vstk, most, most + 2, "pushstrn");
    return append(vstk, {string, string ? strnlen(string, most) : 0});
}

char *popstr(void **stack, int release)
{
    auto *vstk = stack ? static_cast<Vstk *>(*stack) : nullptr;
    if (!vstk)
        return stock::copy_text("", "vstk->s");
    char *text = vstk->s;
    if (release) {
        std::free(vstk);
        *stack = nullptr;
    }
    return text;
}

char *strconcat(const char *first, ...)
{
    void *stack = nullptr;
    va_list rest;
    va_start(rest, first);
    for (const char *text = first; text; text = va_arg(rest, const char *))
        pushstr(&stack, text);
    va_end(rest);
    return popstr(&stack, 1);
}

char *strjoin(int character, const char *first, ...)
{
    void *stack = nullptr;
    va_list rest;
    va_start(rest, first);
    for (const char *text = first; text; text = va_arg(rest, const char *)) {
        if (stack)
            pushstrc(&stack, character);
        pushstr(&stack, text);
    }
    va_end(rest);
    return popstr(&stack, 1);
}

char *strhead(const char *text, int n, const char *prefix)
{
    const std::string_view before = text_of(prefix);
    const Head head = head_of(text ? text : "", n);
    const std::string_view closing = head.complete ? "...\n" : "";
    const std::size_t prefixes = (head.lines + head.complete) * before.size();
    auto *result =
        static_cast<char *>(stock::allocate(head.bytes + prefixes + closing.size() + 1, "result"));
    char *out = result;
    for (std::string_view rest(text, head.bytes); !rest.empty();) {
        const std::size_t line = rest.find('\n') + 1;
        out = put(put(out, before), rest.substr(0, line));
        rest.remove_prefix(line);
    }
    if (head.complete)
        out = put(put(out, before), closing);
    *out = 0;
    return result;
}
