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

#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <tuple>
#include <type_traits>
#include <utility>

#include "internal/convert.h"

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

// A value where it has arrived.
template <class T>
struct Arrived {
    T value;
    bool exact;
};

// Reading: what does not fit is cut as the plain conversions of the types cut it.
struct Wrap {
    template <class To, class From>
    STOCK_INLINE static Arrived<To> one(From from)
    {
        if constexpr (Floating<From> && Integer<To>) {
            using C = Common<From, To>;
            const To to = converted<To>(from);
            return {to, nearest<C>(to) == static_cast<C>(from)};
        } else if constexpr (Integer<From> && Floating<To>) {
            return {nearest<To>(from), holds<To>(from)};
        } else if constexpr (Integer<From> && sizeof(To) > sizeof(From)) {
            // NOLINTNEXTLINE(bugprone-signed-char-misuse): a number, no character
            return {static_cast<To>(from), true};
        } else {
            const To to = static_cast<To>(from);
            return {to, static_cast<From>(to) == from};
        }
    }
};

// Writing: what an integer cannot hold becomes the nearer of its limits; a lost
// fraction is nothing to report. All else is as in reading.
struct Clamp {
    template <Integer To, Integer From>
    requires(sizeof(To) < sizeof(From)) STOCK_INLINE static Arrived<To> one(From from)
    {
        constexpr From high = std::numeric_limits<To>::max();
        constexpr From low = std::is_signed_v<To> ? -high - 1 : 0;
        const From not_below = from < low ? low : from;
        const From inside = not_below > high ? high : not_below;
        return {static_cast<To>(inside), inside == from};
    }

    template <Integer To, Floating From>
    STOCK_INLINE static Arrived<To> one(From from)
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
        const bool exact = inside == value;  // never true of NaN
        To to = whole<To>(nan == low ? inside : choose(__builtin_isnan(value), nan, inside));
        if constexpr (!has_limit)
            to = choose(value > high, Limits::max(), to);
        return {to, exact};
    }
};

template <class Rule, class From, class To>
struct Change {
    STOCK_INLINE static bool run(const char *from, char *to, std::size_t n)
    {
        using Mask = Bits<sizeof(From)>;
        Mask lost = 0;
        for (std::size_t i = 0; i < n; ++i) {
            const auto arrived = Rule::template one<To>(load<From>(from + i * sizeof(From)));
            store(to + i * sizeof(To), arrived.value);
            lost |= mask<Mask>(!arrived.exact);
        }
        return lost == 0;
    }
};

// Turns the bytes of each value round. Whole vectors are shuffled four at a time,
// all read before the first is written; the rest goes value by value.
template <std::size_t width, std::size_t vector>
struct Reverse {
    STOCK_INLINE static bool run(const char *from, char *to, std::size_t n)
    {
        const std::size_t bytes = n * width;
        std::size_t at = 0;
        if constexpr (vector != 0)
            for (; at + 4 * vector <= bytes; at += 4 * vector)
                shuffle(from + at, to + at, std::make_index_sequence<vector>());
        for (; at < bytes; at += width)
            store(to + at, turned(load<Bits<width>>(from + at)));
        return true;
    }

private:
    template <std::size_t... i>
    STOCK_INLINE static void shuffle(const char *from, char *to, std::index_sequence<i...>)
    {
        typedef char Vector __attribute__((vector_size(vector)));
        Vector v[4];
        for (std::size_t k = 0; k < 4; ++k)
            std::memcpy(&v[k], from + k * vector, vector);
        for (std::size_t k = 0; k < 4; ++k)
            v[k] = __builtin_shufflevector(v[k], v[k], (i ^ (width - 1))...);
        for (std::size_t k = 0; k < 4; ++k)
            std::memcpy(to + k * vector, &v[k], vector);
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
    loops.reverse[2] = Level::template run<Reverse<2, Level::kVector>>;
    loops.reverse[4] = Level::template run<Reverse<4, Level::kVector>>;
    loops.reverse[8] = Level::template run<Reverse<8, Level::kVector>>;

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
