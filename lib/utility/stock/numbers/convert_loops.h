// The loops of the number converters, written once for every set of instructions.
//
// Each file convert_LEVEL.cpp compiles them for its own instructions: every function here is
// inlined into one function of that file, which carries the target attribute. The compiler
// turns a loop into vector instructions only when it has no branches. So choices between
// values are made with bit masks, and losses are collected in a mask as well.
//
// A floating value that an integer type cannot hold is read, on every processor, as x86-64's
// conversion instructions read it. For a value out of range they give their least integer.
// Integers of 8, 16 and 32 bits take the low bits of what the 32-bit instruction gives;
// unsigned 32 and signed 64 bits take those of the 64-bit instruction. Unsigned 64 bits also
// hold every value below 2^64.

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

// yes ? a : b, written with masks because the compiler would make the operator a branch.
template <class T>
STOCK_INLINE T choose(bool yes, T a, T b)
{
    using B = Bits<sizeof(T)>;
    const B ones = mask<B>(yes);
    const B bits = static_cast<B>((__builtin_bit_cast(B, a) & ones) |
                                  (__builtin_bit_cast(B, b) & static_cast<B>(~ones)));
    return __builtin_bit_cast(T, bits);
}

// Integers that take the 64-bit instruction. A floating value is compared with them as a
// double, which holds every float and every unsigned integer of 32 bits.
template <Integer I>
constexpr bool kLong = sizeof(I) == 8 || std::is_same_v<I, std::uint32_t>;
template <Floating F, Integer I>
using Common = std::conditional_t<kLong<I>, double, F>;

// The floating value nearest to the integer. Only signed integers are converted by one
// instruction everywhere. An unsigned one of 64 bits that has its highest bit set is halved
// and doubled afterwards; its lowest bit is kept in the half so that it rounds the same.
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

// Whether the floating type holds the integer exactly: whether there are no more bits from
// its highest set bit to its lowest than the type has digits.
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

// The floating value without its fraction, which the integer type must be able to hold.
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

// The integer that x86-64's instructions give for a floating value, see the top of the file.
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

// A rule converts one value and sets `exact` to whether it is still the same value. (`exact`
// is an argument because compilers do not vectorise a record that is returned.)

// The rule for reading: a value that does not fit is cut as the language's conversion cuts it.
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

// The rule for writing: a value that an integer type cannot hold becomes the nearer limit of
// that type. A lost fraction alone leaves the value exact: 3.5 is written as 3. All other
// conversions are those of the rule for reading.
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

// Reverses the bytes of each value: value by value up to the start of a cache line, then four
// vectors at a time, then one, then short vectors, then value by value again. The vectors of
// one step are all read before any of them is written, so `from` and `to` may be the same.
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
    // Shuffles `count` vectors of `size` bytes at a time while they end within `bytes`. Gives
    // where it stopped.
    template <std::size_t count, std::size_t size>
    STOCK_INLINE static std::size_t shuffle(const char *from, char *to, std::size_t at,
                                            std::size_t bytes)
    {
        for (; at + count * size <= bytes; at += count * size)
            shuffle_once<count>(from + at, to + at, std::make_index_sequence<size>());
        return at;
    }

    // Goes on to the end with short vectors and single values.
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
// The same for more bytes than the caches hold. The streaming store writes whole lines without
// reading them first and without keeping them in a cache. Writing several pages in turn lets
// the processor fetch from several of them at once.
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

// Whether a converter goes from the one type to the other: none changes between signed and
// unsigned integers.
template <class From, class To>
constexpr bool kChanges =
    !std::is_same_v<From, To> &&
    (Floating<From> || Floating<To> || std::is_signed_v<From> == std::is_signed_v<To>);

// Whether the rule for writing differs from that for reading.
template <class From, class To>
constexpr bool kClamps = Integer<To> && (Floating<From> || sizeof(To) < sizeof(From));

// The table of all loops, each compiled as Level::run<LOOP>. Level::kVector is the width of
// the level's vectors in bytes, 0 when it has no instruction that shuffles bytes.
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
