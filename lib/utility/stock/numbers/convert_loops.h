// The loops of the number converters, written once for every set of instructions.
//
// Each file convert_LEVEL.cpp compiles them with its own instructions: what is
// here is inlined into one function that carries the target attribute. So that
// the compiler turns a loop into vectors a value meets no branch on its way:
// choices are made in bits, and what went wrong is gathered in a mask.
//
// A floating value that an integer cannot hold reads as what the conversion
// instructions of x86-64 make of it, on every processor: each gives its least
// integer for what it cannot hold. Integers of 8, 16 and 32 bits take the low part
// of what the 32-bit instruction gives, unsigned 32 and signed 64 bits that of
// the 64-bit one. Unsigned 64 bits hold all below 2^64 besides.

#pragma once

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <tuple>
#include <type_traits>
#include <utility>

#if defined(__x86_64__)
#include <emmintrin.h>
#endif

#include "numbers/convert.h"

#define STOCK_INLINE [[gnu::always_inline]] inline

namespace stock {

static_assert(std::numeric_limits<float>::is_iec559 && std::numeric_limits<double>::is_iec559);

template <class T>
concept Integer = std::is_integral_v<T>;
template <class T>
concept Floating = std::is_floating_point_v<T>;

// The unsigned integer of so many bytes.
template <std::size_t width>
using Bits = std::conditional_t<
    width == 1, std::uint8_t,
    std::conditional_t<width == 2, std::uint16_t,
                       std::conditional_t<width == 4, std::uint32_t, std::uint64_t>>>;

template <class T>
STOCK_INLINE T load(const char *from)
{
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

template <class T>
STOCK_INLINE void store(char *to, T value)
{
    std::memcpy(to, &value, sizeof value);
}

// All ones or all zeros.
template <class Mask>
STOCK_INLINE Mask mask(bool yes)
{
    return static_cast<Mask>(-static_cast<Mask>(yes));
}

// yes ? a : b, which the compiler would make a branch of.
template <class T>
STOCK_INLINE T choose(bool yes, T a, T b)
{
    using B = Bits<sizeof(T)>;
    const B ones = mask<B>(yes);
    const B bits = static_cast<B>((__builtin_bit_cast(B, a) & ones) |
                                  (__builtin_bit_cast(B, b) & static_cast<B>(~ones)));
    return __builtin_bit_cast(T, bits);
}

// An integer that is wide enough to need the 64-bit instruction is compared as a
// double, which holds any float and any unsigned integer of 32 bits.
template <Integer I>
constexpr bool kLong = sizeof(I) == 8 || std::is_same_v<I, std::uint32_t>;
template <Floating F, Integer I>
using Common = std::conditional_t<kLong<I>, double, F>;

// The nearest floating value. Only the signed conversion is one instruction
// everywhere; a halved unsigned integer keeps its last bit for the rounding.
template <Floating F, Integer I>
STOCK_INLINE F nearest(I value)
{
    if constexpr (std::is_same_v<I, std::uint64_t>) {
        const std::uint64_t top = value >> 63;
        const auto half = static_cast<std::int64_t>((value >> top) | (value & top));
        return static_cast<F>(half) * static_cast<F>(static_cast<std::int64_t>(top + 1));
    } else if constexpr (std::is_same_v<I, std::uint32_t>) {
        return static_cast<F>(static_cast<double>(value));
    } else {
        return static_cast<F>(value);
    }
}

// Whether the floating type holds the integer: from its highest bit to its lowest
// there are no more than the type has.
template <Floating F, Integer I>
STOCK_INLINE bool holds(I value)
{
    constexpr int digits = std::numeric_limits<F>::digits;
    if constexpr (std::numeric_limits<I>::digits <= digits) {
        return true;
    } else {
        using B = Bits<sizeof(I)>;
        const B sign = mask<B>(value < 0);
        const B magnitude = static_cast<B>((static_cast<B>(value) ^ sign) - sign);
        const B lowest = magnitude & (0 - magnitude);
        return (magnitude >> digits) <= lowest - 1;  // of zero: all ones
    }
}

// The integer of a floating value without its fraction, which the integer holds.
template <Integer I, Floating F>
STOCK_INLINE I whole(F value)
{
    using S = std::make_signed_t<I>;
    if constexpr (sizeof(I) < 4) {
        return static_cast<I>(static_cast<std::int32_t>(value));
    } else if constexpr (std::is_signed_v<I>) {
        return static_cast<I>(value);
    } else {
        constexpr F half = -static_cast<F>(std::numeric_limits<S>::min());
        const bool high = value >= half;
        const I low = static_cast<I>(static_cast<S>(value - choose<F>(high, half, 0)));
        return low ^ static_cast<I>(static_cast<I>(high) << std::numeric_limits<S>::digits);
    }
}

// The integer that x86-64 makes of a floating value, see above.
template <Integer I, Floating F>
STOCK_INLINE I converted(F value)
{
    using Instruction = std::conditional_t<kLong<I>, std::int64_t, std::int32_t>;
    using Result = std::conditional_t<std::is_same_v<I, std::uint64_t>, I, Instruction>;
    constexpr F low = static_cast<F>(std::numeric_limits<Instruction>::min());
    constexpr F past = std::is_same_v<Result, Instruction> ? -low : -2 * low;
    const F not_below = choose(value > low, value, low);  // never true of NaN
    const F inside = choose(not_below < past, not_below, low);
    if constexpr (std::is_same_v<Result, Instruction>)
        return static_cast<I>(static_cast<Instruction>(inside));
    else
        return whole<I>(inside);
}

// A rule takes one value to its new type and tells whether it is still the same.
// (The answer is an argument: compilers make no vectors of a record that is returned.)

// Reading: what does not fit is cut as the plain conversions of the types cut it.
struct Wrap {
    template <class To, class From>
    STOCK_INLINE static To one(From from, bool &exact)
    {
        if constexpr (Floating<From> && Integer<To>) {
            using C = Common<From, To>;
            const To to = converted<To>(from);
            exact = nearest<C>(to) == static_cast<C>(from);
            return to;
        } else if constexpr (Integer<From> && Floating<To>) {
            exact = holds<To>(from);
            return nearest<To>(from);
        } else if constexpr (Integer<From> && sizeof(To) > sizeof(From)) {
            exact = true;
            return static_cast<To>(from);  // NOLINT(bugprone-signed-char-misuse): no character
        } else {
            const To to = static_cast<To>(from);
            exact = static_cast<From>(to) == from;
            return to;
        }
    }
};

// Writing: what an integer cannot hold becomes the nearer of its limits; a lost
// fraction is nothing to report. All else is as in reading.
struct Clamp {
    template <Integer To, Integer From>
    requires(sizeof(To) < sizeof(From)) STOCK_INLINE static To one(From from, bool &exact)
    {
        constexpr From high = std::numeric_limits<To>::max();
        constexpr From low = std::is_signed_v<To> ? static_cast<From>(-high - 1) : From{0};
        const From not_below = from < low ? low : from;
        const From inside = not_below > high ? high : not_below;
        exact = inside == from;
        return static_cast<To>(inside);
    }

    template <Integer To, Floating From>
    STOCK_INLINE static To one(From from, bool &exact)
    {
        using C = Common<From, To>;
        using Limits = std::numeric_limits<To>;
        constexpr bool has_limit = Limits::digits <= std::numeric_limits<C>::digits;
        constexpr C low = static_cast<C>(Limits::min());
        constexpr C past = 2 * static_cast<C>(To{1} << (Limits::digits - 1));
        // The highest value that To holds.
        constexpr C high =
            has_limit ? past - 1 : past - past * std::numeric_limits<C>::epsilon() / 2;
        // Of NaN, what the conversion instruction gives, cut to the width.
        constexpr C nan = std::is_same_v<To, std::uint64_t> ? past / 2 : sizeof(To) < 4 ? 0 : low;

        const C value = from;
        const C not_below = choose(value > low, value, low);
        const C inside = choose(not_below < high, not_below, high);
        exact = inside == value;  // never true of NaN
        To to = whole<To>(nan == low ? inside : choose(__builtin_isnan(value), nan, inside));
        if constexpr (!has_limit)
            to = choose(value > high, Limits::max(), to);
        return to;
    }
};

template <class Rule, class From, class To>
struct Change {
    STOCK_INLINE static bool run(const char *from, char *to, std::size_t n)
    {
        using Mask = Bits<sizeof(From)>;
        Mask lost = 0;
        for (std::size_t i = 0; i < n; ++i) {
            bool exact;
            store(to + i * sizeof(To),
                  Rule::template one<To>(load<From>(from + i * sizeof(From)), exact));
            lost |= mask<Mask>(!exact);
        }
        return lost == 0;
    }
};

// Turns the bytes of each value round: up to where a cache line begins, then four
// vectors at a time, then one, then short ones, then value by value. What is
// shuffled at a time is read before any of it is written.
template <std::size_t width, std::size_t vector>
struct Reverse {
    STOCK_INLINE static bool run(const char *from, char *to, std::size_t n)
    {
        const std::size_t bytes = n * width;
        std::size_t at = 0;
        if constexpr (vector != 0) {
            if (bytes > 4 * vector)
                at = one_by_one(from, to, at, before_line(to, width) * width);
            at = shuffle<4, vector>(from, to, at, bytes);
            at = shuffle<1, vector>(from, to, at, bytes);
        }
        one_by_one(from, to, at, bytes);
        return true;
    }

private:
    // Shuffles so many vectors of that size at a time, as long as all are within the bytes.
    template <std::size_t count, std::size_t size>
    STOCK_INLINE static std::size_t shuffle(const char *from, char *to, std::size_t at,
                                            std::size_t bytes)
    {
        for (; at + count * size <= bytes; at += count * size)
            shuffle_once<count>(from + at, to + at, std::make_index_sequence<size>());
        return at;
    }

    // As far as the end, where vectors no longer fit.
    STOCK_INLINE static std::size_t one_by_one(const char *from, char *to, std::size_t at,
                                               std::size_t end)
    {
        if constexpr (vector != 0)
            at = shuffle<1, 16>(from, to, at, end);
        for (; at < end; at += width)
            store(to + at, turned(load<Bits<width>>(from + at)));
        return at;
    }

    template <std::size_t count, std::size_t... i>
    STOCK_INLINE static void shuffle_once(const char *from, char *to, std::index_sequence<i...>)
    {
        constexpr std::size_t size = sizeof...(i);
        typedef char Vector __attribute__((vector_size(size)));
        Vector v[count];
        for (std::size_t k = 0; k < count; ++k)
            std::memcpy(&v[k], from + k * size, size);
        for (std::size_t k = 0; k < count; ++k)
            v[k] = __builtin_shufflevector(v[k], v[k], (i ^ (width - 1))...);
        for (std::size_t k = 0; k < count; ++k)
            std::memcpy(to + k * size, &v[k], size);
    }

    STOCK_INLINE static auto turned(Bits<width> bits)
    {
        if constexpr (width == 2)
            return __builtin_bswap16(bits);
        else if constexpr (width == 4)
            return __builtin_bswap32(bits);
        else
            return __builtin_bswap64(bits);
    }
};

#if defined(__x86_64__)
// The same for more than the caches hold: what is written is neither read before nor
// kept. Walking several pages side by side keeps more of the memory at work.
template <std::size_t width>
struct ReverseStreaming {
    STOCK_INLINE static bool run(const char *from, char *to, std::size_t n)
    {
        using Short = Reverse<width, sizeof(__m128i)>;
        const std::size_t bytes = n * width;
        const std::size_t head = std::min(n, before_line(to, width));
        Short::run(from, to, head);
        std::size_t at = head * width;
        for (; at + kPages * kPage <= bytes; at += kPages * kPage)
            for (std::size_t line = 0; line < kPage; line += kCacheLine)
                for (std::size_t page = 0; page < kPages; ++page)
                    stream(from + at + page * kPage + line, to + at + page * kPage + line);
        _mm_sfence();
        return Short::run(from + at, to + at, n - at / width);
    }

private:
    static constexpr std::size_t kPages = 8;
    static constexpr std::size_t kPage = 4096;

    STOCK_INLINE static void stream(const char *from, char *to)
    {
        for (std::size_t at = 0; at < kCacheLine; at += sizeof(__m128i)) {
            alignas(__m128i) char turned[sizeof(__m128i)];
            Reverse<width, sizeof turned>::run(from + at, turned, sizeof turned / width);
            _mm_stream_si128(reinterpret_cast<__m128i *>(to + at),
                             _mm_load_si128(reinterpret_cast<const __m128i *>(turned)));
        }
    }
};
#endif

// In the order of Number.
using Numbers = std::tuple<std::int8_t, std::int16_t, std::int32_t, std::int64_t, std::uint8_t,
                           std::uint16_t, std::uint32_t, std::uint64_t, float, double>;
static_assert(std::tuple_size_v<Numbers> == kNumbers);

// Whether a member goes from the one type to the other: never from signed to unsigned or back.
template <class From, class To>
constexpr bool kChanges =
    !std::is_same_v<From, To> &&
    (Floating<From> || Floating<To> || std::is_signed_v<From> == std::is_signed_v<To>);

// Whether writing differs from reading.
template <class From, class To>
constexpr bool kClamps = Integer<To> && (Floating<From> || sizeof(To) < sizeof(From));

// The table of all loops, each run by Level::run<LOOP>. Level::kVector is the
// width of its vectors in bytes, 0 when it has no shuffle of bytes.
template <class Level>
constexpr Loops loops_of()
{
    Loops loops{};
    const auto reverse = [&]<std::size_t width>() {
        loops.reverse[width] = Level::template run<Reverse<width, Level::kVector>>;
#if defined(__x86_64__)
        if constexpr (Level::kVector != 0)
            loops.reverse_streaming[width] = Level::template run<ReverseStreaming<width>>;
#endif
    };
    reverse.template operator()<2>();
    reverse.template operator()<4>();
    reverse.template operator()<8>();

    const auto change = [&]<std::size_t from, std::size_t to>() {
        using From = std::tuple_element_t<from, Numbers>;
        using To = std::tuple_element_t<to, Numbers>;
        if constexpr (kChanges<From, To>) {
            loops.wrap[from][to] = Level::template run<Change<Wrap, From, To>>;
            loops.clamp[from][to] = loops.wrap[from][to];
        }
        if constexpr (kChanges<From, To> && kClamps<From, To>)
            loops.clamp[from][to] = Level::template run<Change<Clamp, From, To>>;
    };
    [&]<std::size_t... pair>(std::index_sequence<pair...>)
    {
        (change.template operator()<pair / kNumbers, pair % kNumbers>(), ...);
    }
    (std::make_index_sequence<kNumbers * kNumbers>());
    return loops;
}

}  // namespace stock
