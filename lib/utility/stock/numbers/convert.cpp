// The 408 number converters: their names, and which loops carry out a call.
//
// Values that keep their type and the host's byte order are copied as one block. All others
// pass through one loop of numbers/convert.h, or through two when both the type and the byte
// order change; between the two they lie in a small block on the stack.

#include "stock/convert.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "deviants/system.h"
#include "numbers/convert.h"
#include "numbers/numbers_state.h"

namespace {

using stock::Loop;
using stock::Loops;
using stock::Number;

static_assert(sizeof(short) == 2 && sizeof(int) == 4 && sizeof(long) == 8);

constexpr std::size_t kBlockValues = 512;  // of the block between two loops
constexpr std::size_t kFewValues =
    64;  // up to here aligning to a cache line costs more than it saves
constexpr std::size_t kStreamedBytes = 32 << 20;  // from here on the caches hold too little of it

// The loops of the widest vectors that this processor has.
const Loops &choose_loops()
{
#if defined(__x86_64__)
    using stock::Vectors;
    const Vectors widest = stock::widest_vectors();
    if (widest == Vectors::avx512)
        return stock::kAvx512Loops;
    if (widest == Vectors::avx2)
        return stock::kAvx2Loops;
    if (widest == Vectors::sse41)
        return stock::kSse41Loops;
#endif
    return stock::kPortableLoops;
}

// The same, chosen in the first call. Threads that make it at once choose alike.
const Loops &loops()
{
    std::atomic<const Loops *> &kept = stock::Numbers_state.loops;
    const Loops *chosen = kept.load(std::memory_order_relaxed);
    if (!chosen)
        kept.store(chosen = &choose_loops(), std::memory_order_relaxed);
    return *chosen;
}

// The row or column of a type in the tables of loops.
template <class T>
constexpr std::size_t number()
{
    if constexpr (std::is_floating_point_v<T>)
        return std::size_t(sizeof(T) == 4 ? Number::kF32 : Number::kF64);
    else
        return std::size_t(std::is_signed_v<T> ? Number::kI8 : Number::kU8) +
               std::bit_width(sizeof(T)) - 1;
}

// The loops that values pass through on their way from one place to the other.
struct Route {
    Loop *first;
    Loop *second;            // null when one loop does it all
    std::size_t from_width;  // bytes of a value
    std::size_t to_width;
};

// Converts n values, at most kBlockValues when the route has a second loop. True when every
// value arrived exactly.
bool convert_piece(const Route &route, const char *from, char *to, std::size_t n)
{
    if (!route.second)
        return route.first(from, to, n);
    alignas(stock::kCacheLine) char block[kBlockValues * sizeof(double)];
    const bool exact = route.first(from, block, n);
    return route.second(block, to, n) && exact;
}

// Converts n values in pieces. The first piece ends where a value begins on a cache line, if
// any value does, because vectors are written fastest from there on.
bool convert(const Route &route, const char *from, char *to, std::size_t n)
{
    const std::size_t most = route.second ? kBlockValues : n;
    std::size_t piece = n > kFewValues ? stock::before_line(to, route.to_width) : 0;
    bool exact = true;
    for (; n != 0; n -= piece, piece = 0) {
        if (piece == 0)
            piece = std::min(n, most);
        exact &= convert_piece(route, from, to, piece);
        from += piece * route.from_width;
        to += piece * route.to_width;
    }
    return exact;
}

// The loop that reverses the bytes of an external value; null when its order is the host's.
template <std::endian order, class External>
Loop *reversal()
{
    constexpr bool foreign = order != std::endian::native && sizeof(External) > 1;
    return foreign ? loops().reverse[sizeof(External)] : nullptr;
}

// Moves values that keep their type; on one of the two sides the byte order may be foreign.
template <std::endian order, class T>
bool move(const char *from, char *to, std::size_t n)
{
    Loop *const reverse = reversal<order, T>();
    if (!reverse) {
        std::memmove(to, from, n * sizeof(T));
        return true;
    }
    Loop *const streaming = loops().reverse_streaming[sizeof(T)];
    const bool aligned = reinterpret_cast<std::uintptr_t>(to) % sizeof(T) == 0;
    const bool streams = n * sizeof(T) >= kStreamedBytes && aligned && streaming;
    return (streams ? streaming : reverse)(from, to, n);
}

// Reads n external values E from *src into dst and moves *src past them. Gives 0 when every
// value arrived exactly, else -1.
template <std::endian order, class E, class H>
int to_host(char **src, H *dst, int n)
{
    if (n <= 0)
        return n == 0 ? 0 : -1;
    const auto count = static_cast<std::size_t>(n);
    char *const to = reinterpret_cast<char *>(dst);
    bool exact = true;
    if constexpr (std::is_same_v<E, H>) {
        exact = move<order, E>(*src, to, count);
    } else {
        Loop *const wrap = loops().wrap[number<E>()][number<H>()];
        Loop *const reverse = reversal<order, E>();
        exact = convert({reverse ? reverse : wrap, reverse ? wrap : nullptr, sizeof(E), sizeof(H)},
                        *src, to, count);
    }
    *src += count * sizeof(E);
    return exact ? 0 : -1;
}

// Writes n values of src as external values E to *dst and moves *dst past them. Gives 0 when
// every value arrived exactly, else -1.
template <std::endian order, class E, class H>
int to_external(const H *src, char **dst, int n)
{
    if (n <= 0)
        return n == 0 ? 0 : -1;
    const auto count = static_cast<std::size_t>(n);
    const char *const from = reinterpret_cast<const char *>(src);
    bool exact = true;
    if constexpr (std::is_same_v<E, H>) {
        exact = move<order, E>(from, *dst, count);
    } else {
        Loop *const clamp = loops().clamp[number<H>()][number<E>()];
        exact = convert({clamp, reversal<order, E>(), sizeof(H), sizeof(E)}, from, *dst, count);
    }
    *dst += count * sizeof(E);
    return exact ? 0 : -1;
}

}  // namespace

// A template cannot make a name, so these macros do, here and nowhere else. They
// name a member after its letters: u X t 2 h y, and u h y 2 X t.
// NOLINTBEGIN(bugprone-macro-parentheses): no parentheses around types and names
#define MEMBER(u, X, order, t, E, y, H)                                                            \
    int u##X##t##2h##y(char **src, H *dst, int n)                                                  \
    {                                                                                              \
        return to_host<std::endian::order, E>(src, dst, n);                                        \
    }                                                                                              \
    int u##h##y##2##X##t(const H *src, char **dst, int n)                                          \
    {                                                                                              \
        return to_external<std::endian::order, E>(src, dst, n);                                    \
    }

#define ORDERS(u, t, E, y, H)                                                                      \
    MEMBER(u, m, big, t, E, y, H)                                                                  \
    MEMBER(u, a, little, t, E, y, H)                                                               \
    MEMBER(u, v, little, t, E, y, H)

#define SIGNED(t, E)                                                                               \
    ORDERS(, t, E, b, signed char)                                                                 \
    ORDERS(, t, E, s, short)                                                                       \
    ORDERS(, t, E, i, int)                                                                         \
    ORDERS(, t, E, l, long)                                                                        \
    ORDERS(, t, E, f, float)                                                                       \
    ORDERS(, t, E, d, double)

#define UNSIGNED(t, E)                                                                             \
    ORDERS(u, t, E, b, unsigned char)                                                              \
    ORDERS(u, t, E, s, unsigned short)                                                             \
    ORDERS(u, t, E, i, unsigned int)                                                               \
    ORDERS(u, t, E, l, unsigned long)

#define FLOATING(t, E)                                                                             \
    ORDERS(u, t, E, f, float)                                                                      \
    ORDERS(u, t, E, d, double)
// NOLINTEND(bugprone-macro-parentheses)

extern "C" {

// clang-format off
SIGNED(b, std::int8_t)
SIGNED(s, std::int16_t)
SIGNED(i, std::int32_t)
SIGNED(l, std::int64_t)
SIGNED(f, float)
SIGNED(d, double)

UNSIGNED(b, std::uint8_t)   FLOATING(b, std::uint8_t)
UNSIGNED(s, std::uint16_t)  FLOATING(s, std::uint16_t)
UNSIGNED(i, std::uint32_t)  FLOATING(i, std::uint32_t)
UNSIGNED(l, std::uint64_t)  FLOATING(l, std::uint64_t)
UNSIGNED(f, float)  // no u between floating types
UNSIGNED(d, double)
// clang-format on

}  // extern "C"
