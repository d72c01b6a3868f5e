// The tables of loops that convert numbers, one table for each set of instructions.
//
// A loop changes the type of n values or reverses their bytes; none does both, so that the
// changes of type are written for the host's byte order alone. Neither of the two places need
// be aligned.

#pragma once

#include <cstddef>
#include <cstdint>

namespace stock {

// Converts n values, first to last. True when every one arrived exactly. `from` and `to` may
// be the same address when a converted value is no wider than the original.
using Loop = bool(const char *from, char *to, std::size_t n);

// The types of values: the rows (from) and columns (to) of the tables.
enum class Number { kI8, kI16, kI32, kI64, kU8, kU16, kU32, kU64, kF32, kF64 };
inline constexpr std::size_t kNumbers = 10;

constexpr std::size_t kCacheLine = 64;  // bytes; the widest vector has as many

// How many values of that width are written before one begins on a cache line. Vectors are
// written fastest from there on.
inline std::size_t before_line(const char *to, std::size_t width)
{
    return -reinterpret_cast<std::uintptr_t>(to) % kCacheLine / width;
}

// A null entry: no member needs this loop, or the processor has no better one.
struct Loops {
    // By the width of a value, 2, 4 or 8 bytes: reverse the bytes of each value.
    Loop *reverse[9];
    Loop *reverse_streaming[9];  // past the caches; `to` is a multiple of the width

    // By [from][to]: change the type.
    Loop *wrap[kNumbers][kNumbers];   // for reading: a value that does not fit is cut
    Loop *clamp[kNumbers][kNumbers];  // for writing: it becomes the nearer limit
};

// numbers/convert_loops.h compiled for more and more instructions.
extern const Loops kPortableLoops;
#if defined(__x86_64__)
extern const Loops kSse41Loops;
extern const Loops kAvx2Loops;
extern const Loops kAvx512Loops;  // with BW, DQ and VL
#endif

}  // namespace stock
