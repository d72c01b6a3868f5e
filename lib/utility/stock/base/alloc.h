// The one way to allocate what lives past a call.
//
// A failure ends the process through elog_die with the out-of-memory message,
// which names the item, the calling function, its line and its file. The last
// three are the caller's own, filled in by the default arguments; a function
// whose message carries a fixed name or line passes them.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace stock {

// Ends the process with the out-of-memory message. Nothing is allocated for it that
// can be done without; should the report itself need memory that is not there, the
// finished text goes straight to standard error.
[[noreturn]] void out_of_memory(std::size_t bytes, const char *item,
                                const char *function = __builtin_FUNCTION(),
                                int line = __builtin_LINE(), const char *file = __builtin_FILE());

// Never null and never less than one byte. Release with free.
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

// The block grown or shrunk to bytes; the old address is no longer valid.
void *reallocate(void *block, std::size_t bytes, const char *item,
                 const char *function = __builtin_FUNCTION(), int line = __builtin_LINE(),
                 const char *file = __builtin_FILE());

// A copy of the text, which must not be null.
char *copy_text(const char *text, const char *item, const char *function = __builtin_FUNCTION(),
                int line = __builtin_LINE(), const char *file = __builtin_FILE());

// count items of size bytes; a product that overflows is more than there is.
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
