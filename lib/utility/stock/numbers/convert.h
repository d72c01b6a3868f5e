// The loops behind the number converters, in a table for each set of instructions.
//
// A loop takes values from one place to another, neither of which need be aligned.
// Byte orders are turned round by loops of their own, so that changes of type are
// written for the order of the host alone.

#pragma once

#include <cstddef>
#include <cstdint>

namespace stock {

// Takes n values from one place to the other, first to last. Tells whether every
// one arrived exactly. The two places may begin at the same address when a value
// is no wider where it arrives.
using Loop = bool(const char *from, char *to, std::size_t n);

// The types of values, which number the rows and the columns of a table.
enum class Number { kI8, kI16, kI32, kI64, kU8, kU16, kU32, kU64, kF32, kF64 };
inline constexpr std::size_t kNumbers = 10;

constexpr std::size_t kCacheLine = 64;  // bytes, as many as the widest vector has

// Values of that width before the one that begins a cache line, from where on vectors
// are written best.
inline std::size_t before_line(const char *to, std::size_t width)
{
    return -reinterpret_cast<std::uintptr_t>(to) % kCacheLine / width;
}

// The first two tables go by the width of a value, the others by [from][to].
struct Loops {
    Loop *reverse[9];                 // the bytes of each value turned round
    Loop *reverse_streaming[9];       // the same past the caches, to whole cache lines; may be null
    Loop *wrap[kNumbers][kNumbers];   // as in reading: what does not fit is cut
    Loop *clamp[kNumbers][kNumbers];  // as in writing: it becomes the nearer limit
};

// The same source compiled for more and more instructions.
extern const Loops kPortableLoops;
#if defined(__x86_64__)
extern const Loops kSse41Loops;
extern const Loops kAvx2Loops;
extern const Loops kAvx512Loops;  // with BW, DQ and VL
#endif

}  // namespace stock
