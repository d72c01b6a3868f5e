/*
 * convert.hpp - convert packed numbers, with the converter chosen by types and byte order.
 * convert.h says what happens to values that do not fit.
 */

#ifndef STOCK_CONVERT_HPP
#define STOCK_CONVERT_HPP

#include <algorithm>
#include <bit>
#include <concepts>
#include <cstddef>
#include <ranges>
#include <span>
#include <type_traits>
#include <utility>

#include "stock/convert.h"

namespace stock {

/* The result of a conversion. */
enum class [[nodiscard]] converted{
    exact = 0,    /* every value was converted exactly */
    inexact = -1, /* one was not; all are converted */
    no_room = -2  /* the number of bytes does not fit the numbers: nothing is converted */
};

namespace detail {

/*
 * The two functions of convert.h for a byte order, an external type and a host type. The primary
 * template is for combinations that do not exist.
 */
template <std::endian order, class External, class Host>
struct converter {
    static constexpr bool exists = false;
};

// clang-format off
#define STOCK_CONVERTER(order, u, o, x, External, y, Host)                                          \
    template <>                                                                                     \
    struct converter<std::endian::order, External, Host> {                                          \
        static constexpr bool exists = true;                                                        \
        static int read(char **from, Host *to, int n) { return u##o##x##2h##y(from, to, n); }       \
        static int write(const Host *from, char **to, int n) { return u##h##y##2##o##x(from, to, n); } \
    };
#define STOCK_CONVERTERS_FLOATING(order, u, o, x, External)             \
    STOCK_CONVERTER(order, u, o, x, External, f, float)                 \
    STOCK_CONVERTER(order, u, o, x, External, d, double)
#define STOCK_CONVERTERS_SIGNED(order, o, x, External)                  \
    STOCK_CONVERTER(order, , o, x, External, b, signed char)            \
    STOCK_CONVERTER(order, , o, x, External, s, short)                  \
    STOCK_CONVERTER(order, , o, x, External, i, int)                    \
    STOCK_CONVERTER(order, , o, x, External, l, long)
#define STOCK_CONVERTERS_UNSIGNED(order, o, x, External)                \
    STOCK_CONVERTER(order, u, o, x, External, b, unsigned char)         \
    STOCK_CONVERTER(order, u, o, x, External, s, unsigned short)        \
    STOCK_CONVERTER(order, u, o, x, External, i, unsigned int)          \
    STOCK_CONVERTER(order, u, o, x, External, l, unsigned long)
#define STOCK_CONVERTERS_INTEGER(order, o, x, Integer)                  \
    STOCK_CONVERTERS_SIGNED(order, o, x, signed Integer)                \
    STOCK_CONVERTERS_FLOATING(order, , o, x, signed Integer)            \
    STOCK_CONVERTERS_UNSIGNED(order, o, x, unsigned Integer)            \
    STOCK_CONVERTERS_FLOATING(order, u, o, x, unsigned Integer)
#define STOCK_CONVERTERS_REAL(order, o, x, External)                    \
    STOCK_CONVERTERS_SIGNED(order, o, x, External)                      \
    STOCK_CONVERTERS_UNSIGNED(order, o, x, External)                    \
    STOCK_CONVERTERS_FLOATING(order, , o, x, External)
#define STOCK_CONVERTERS(order, o)                                      \
    STOCK_CONVERTERS_INTEGER(order, o, b, char)                         \
    STOCK_CONVERTERS_INTEGER(order, o, s, short)                        \
    STOCK_CONVERTERS_INTEGER(order, o, i, int)                          \
    STOCK_CONVERTERS_INTEGER(order, o, l, long)                         \
    STOCK_CONVERTERS_REAL(order, o, f, float)                           \
    STOCK_CONVERTERS_REAL(order, o, d, double)
STOCK_CONVERTERS(big, m)
STOCK_CONVERTERS(little, a)
#undef STOCK_CONVERTERS
#undef STOCK_CONVERTERS_REAL
#undef STOCK_CONVERTERS_INTEGER
#undef STOCK_CONVERTERS_UNSIGNED
#undef STOCK_CONVERTERS_SIGNED
#undef STOCK_CONVERTERS_FLOATING
#undef STOCK_CONVERTER
// clang-format on

/* The converter for an external type; if that is void, it is the host type. */
template <std::endian order, class External, class Host>
using converter_of =
    converter<order, std::conditional_t<std::is_void_v<External>, Host, External>, Host>;

template <class Range>
using number_of = std::remove_cv_t<std::ranges::range_value_t<Range>>;

/* Compares the sizes at compile time if both are spans of fixed extent, such as arrays. */
template <class Bytes, class Numbers>
constexpr bool may_fit(std::size_t size)
{
    constexpr std::size_t bytes = decltype(std::span(std::declval<Bytes &>()))::extent;
    constexpr std::size_t numbers = decltype(std::span(std::declval<Numbers &>()))::extent;
    return bytes == std::dynamic_extent || numbers == std::dynamic_extent ||
           bytes == numbers * size;
}

/* Calls step(first, count) for all numbers, in parts whose count fits into an int. */
template <class External, class Bytes, class Numbers, class Step>
converted in_steps(const Bytes &bytes, const Numbers &numbers, Step step)
{
    using Host = number_of<Numbers>;
    constexpr std::size_t size =
        sizeof(std::conditional_t<std::is_void_v<External>, Host, External>);
    static_assert(may_fit<Bytes, Numbers>(size), "as many bytes as the numbers take");
    const std::size_t n = std::ranges::size(numbers);
    if (std::ranges::size(bytes) != n * size)
        return converted::no_room;
    constexpr std::size_t most = std::size_t{1} << 30;
    int result = 0;
    for (std::size_t done = 0; done < n; done += most)
        result |= step(done, static_cast<int>(std::min(n - done, most)));
    return result == 0 ? converted::exact : converted::inexact;
}

template <class Range>
concept byte_source = std::ranges::contiguous_range<Range> && std::ranges::sized_range<Range> &&
    std::same_as<number_of<Range>, std::byte>;

template <class Range>
concept byte_destination = byte_source<Range> &&
    !std::is_const_v<std::remove_reference_t<std::ranges::range_reference_t<Range>>>;

template <class Range, std::endian order, class External>
concept number_source = std::ranges::contiguous_range<Range> && std::ranges::sized_range<Range> &&
    converter_of<order, External, number_of<Range>>::exists;

template <class Range, std::endian order, class External>
concept number_destination = number_source<Range, order, External> &&
    !std::is_const_v<std::remove_reference_t<std::ranges::range_reference_t<Range>>>;

}  // namespace detail

/*
 * Reads packed numbers into numbers of the host. Calls a function of convert.h, which is chosen at
 * compile time:
 *
 *     convert<std::endian::big>(bytes, ints)              mi2hi
 *     convert<std::endian::big, short>(bytes, doubles)    ms2hd
 *     convert<std::endian::little, unsigned short>(bytes, unsigned_ints)    uas2hi
 *
 * External is the type of the external values; by default it is the host type. If both are
 * integers, both must be signed or both unsigned. The types are those of convert.h; char, long
 * long, bool and others do not compile. The bytes must be std::byte.
 *
 * Both arguments are contiguous ranges: spans, arrays, vectors, direct lists. The number of bytes
 * must be the number that the numbers need; otherwise nothing is converted, or, if both have a
 * fixed extent, it does not compile. convert.h says when they may overlap.
 */
template <std::endian order, class External = void, detail::byte_source Bytes,
          detail::number_destination<order, External> Numbers>
converted convert(Bytes &&bytes, Numbers &&numbers)
{
    using Host = detail::number_of<Numbers>;
    // The functions take a pointer to char that is not const, but do not change the bytes.
    auto *from = const_cast<char *>(reinterpret_cast<const char *>(std::ranges::data(bytes)));
    Host *to = std::ranges::data(numbers);
    return detail::in_steps<External>(bytes, numbers, [&](std::size_t done, int count) {
        return detail::converter_of<order, External, Host>::read(&from, to + done, count);
    });
}

/*
 * Writes packed numbers, the reverse:
 *
 *     convert<std::endian::big>(ints, bytes)              hi2mi
 *     convert<std::endian::big, short>(doubles, bytes)    hd2ms
 */
template <std::endian order, class External = void, detail::number_source<order, External> Numbers,
          detail::byte_destination Bytes>
converted convert(Numbers &&numbers, Bytes &&bytes)
{
    using Host = detail::number_of<Numbers>;
    const Host *from = std::ranges::data(numbers);
    auto *to = reinterpret_cast<char *>(std::ranges::data(bytes));
    return detail::in_steps<External>(bytes, numbers, [&](std::size_t done, int count) {
        return detail::converter_of<order, External, Host>::write(from + done, &to, count);
    });
}

}  // namespace stock

#endif
