// The string stack: a text that grows at its end, and the texts that are built with it.
//
// A stack has two sizes. vstk->size is what its record tells; it grows by just the text that
// is pushed. The block behind vstk->s is that size rounded up, so that most pushes neither
// allocate nor move anything. Only when a rounded block is refused, blocks become exact.

#include "stock/pushstr.h"

#include <algorithm>
#include <bit>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/alloc.h"
#include "text/text_state.h"

static_assert(offsetof(Vstk, size) == 0);
static_assert(offsetof(Vstk, length) == 8);
static_assert(offsetof(Vstk, s) == 16);

namespace {

constexpr uint64_t kFirstSize = 1024;  // the least that a stack starts with

std::string_view text_of(const char *string)
{
    return string ? string : "";
}

// Five times n, or the largest number when that is less.
uint64_t times_five(uint64_t n)
{
    uint64_t product = 0;
    return __builtin_mul_overflow(n, 5, &product) ? UINT64_MAX : product;
}

// The bytes of the block for a stack of that size: rounded up by a quarter at most.
uint64_t block_size(uint64_t size)
{
    if (stock::Text_state.exact_blocks || size > UINT64_MAX / 2)
        return size;
    const uint64_t least = std::max(size, kFirstSize);
    const uint64_t mask = std::bit_floor(least) / 4 - 1;
    return (least + mask) & ~mask;
}

// Gives the text a block for the size; a null text gets a new block.
char *resized(char *text, uint64_t size, const char *function)
{
    void *block = std::realloc(text, block_size(size));
    if (!block) {
        stock::Text_state.exact_blocks = true;
        block = std::realloc(text, size);
    }
    if (!block)
        stock::out_of_memory(size, "vstk->s", function);
    return static_cast<char *>(block);
}

Vstk *new_stack(uint64_t size, const char *function)
{
    auto *vstk = static_cast<Vstk *>(stock::allocate(sizeof(Vstk), "vstk", function));
    vstk->size = size;
    vstk->length = 0;
    vstk->s = resized(nullptr, size, function);
    vstk->s[0] = 0;
    return vstk;
}

// The stack with room for n more characters and a terminator. A new stack starts with five
// times n; one without that room grows to just n and `extra` bytes behind its text.
Vstk *with_room(void **stack, uint64_t n, uint64_t extra, const char *function)
{
    auto *vstk = static_cast<Vstk *>(*stack);
    if (!vstk) {
        vstk = new_stack(std::max(kFirstSize, times_five(n)), function);
        *stack = vstk;
    } else if (n >= vstk->size - vstk->length) {
        const uint64_t size = vstk->length + n + extra;
        if (block_size(size) != block_size(vstk->size))
            vstk->s = resized(vstk->s, size, function);
        vstk->size = size;
    }
    return vstk;
}

// Appends a text for which there is room. Gives the new length.
int64_t append(Vstk *vstk, std::string_view text)
{
    text.copy(vstk->s + vstk->length, text.size());
    vstk->length += text.size();
    vstk->s[vstk->length] = 0;
    return static_cast<int64_t>(vstk->length);
}

// Writes the text and gives where it ends.
char *put(char *out, std::string_view text)
{
    return out + text.copy(out, text.size());
}

// The first lines of a text, of which only those count that end in a newline.
struct Head {
    std::size_t lines = 0;
    std::size_t bytes = 0;  // of all these lines, newlines included
    bool complete = false;  // there are as many lines as were wanted
};

// The first n lines.
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
    return append(with_room(stack, text.size(), 1, "pushstr"), text);
}

int64_t pushstrc(void **stack, int character)
{
    const char c = static_cast<char>(character);
    return append(with_room(stack, 1, 1, "pushstrc"), {&c, 1});
}

int64_t pushstrn(void **stack, const char *string, int64_t n)
{
    const auto most = static_cast<uint64_t>(std::max<int64_t>(n, 0));
    // Meant: room is made for n characters even when the string is shorter.
    Vstk *vstk = with_room(stack, most, 2, "pushstrn");
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
