// The one way to allocate memory that outlives a call: it succeeds or ends the process.
//
// A failure ends the process with a message that names the item, the calling function, its
// line and its file. The default arguments fill in the last three; a function whose message
// has a fixed name or line passes them.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace stock {

// Ends the process with the out-of-memory message. When reporting it runs out of memory as
// well, the message is printed on standard error without the log.
[[noreturn]] void out_of_memory(std::size_t bytes, const char *item,
                                const char *function = __builtin_FUNCTION(),
                                int line = __builtin_LINE(), const char *file = __builtin_FILE());

// A new block of at least one byte, never null. The caller frees it with free.
inline void *allocate(std::size_t bytes, const char *item,
                      const char *function = __builtin_FUNCTION(), int line = __builtin_LINE(),
                      const char *file = __builtin_FILE())
{
    void *block = std::malloc(std::max<std::size_t>(bytes, 1));
    if (!block)
        out_of_memory(bytes, item, function, line, file);
    return block;
}

// The same, filled with zero bytes.
void *allocate_zeroed(std::size_t bytes, const char *item,
                      const char *function = __builtin_FUNCTION(), int line = __builtin_LINE(),
                      const char *file = __builtin_FILE());

// The block with a new size, moved if need be: the old address is no longer valid. A null
// block gives a new one.
void *reallocate(void *block, std::size_t bytes, const char *item,
                 const char *function = __builtin_FUNCTION(), int line = __builtin_LINE(),
                 const char *file = __builtin_FILE());

// A copy of the text, which must not be null. The caller frees it with free.
char *copy_text(const char *text, const char *item, const char *function = __builtin_FUNCTION(),
                int line = __builtin_LINE(), const char *file = __builtin_FILE());

// The bytes of `count` items of `size` bytes. When the product overflows, the largest number,
// which no allocation grants.
constexpr std::size_t bytes_for(std::int64_t count, std::int64_t size)
{
    std::size_t bytes = 0;
    if (count < 0 || size < 0 || __builtin_mul_overflow(count, size, &bytes))
        return SIZE_MAX;
    return bytes;
}

// Dies with the finished text of the out-of-memory message. A port: the log defines it
// (log/elog_end.cpp), and out_of_memory calls it.
[[noreturn]] void report_out_of_memory(const char *text);

struct Free {
    void operator()(void *block) const noexcept { std::free(block); }
};

// Owns a block that came from malloc.
template <class T>
using Owned = std::unique_ptr<T, Free>;

}  // namespace stock
