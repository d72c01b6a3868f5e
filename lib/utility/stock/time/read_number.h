// Decimal numbers in the text of a time, read the same in every locale and of any length.

#pragma once

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <system_error>

#include "base/ascii.h"
#include "numbers/decimal.h"

namespace stock {

// Takes the digits off the beginning of the text, at most `most` of them, and returns their
// value. A value above INT_MAX comes back as some number above INT_MAX.
inline std::int64_t take_whole(std::string_view &text, std::size_t most = SIZE_MAX)
{
    const std::size_t end = std::min(text.size(), most);
    std::int64_t value = 0;
    std::size_t i = 0;
    for (; i < end && is_digit(text[i]); ++i)
        if (value <= INT_MAX)
            value = value * 10 + (text[i] - '0');
    text.remove_prefix(i);
    return value;
}

// The place of the first digit that is not 0: 1 is just before the point and counts up to
// the left, 0 is just behind it and counts down to the right.
inline std::int64_t place_of_first_digit(std::string_view text)
{
    const std::size_t point = std::min(text.find('.'), text.size());
    const std::size_t first = std::min(text.find_first_of("123456789"), text.size());
    return static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first) + (first > point);
}

// The value of a number that no double holds: 0 for a number too small, infinite for one too
// large.
inline double read_extreme_number(std::string_view text)
{
    const bool negative = text.starts_with('-');
    text.remove_prefix(negative);
    const std::size_t e = std::min(text.find_first_of("eE"), text.size());
    std::string_view exponent = text.substr(std::min(e + 1, text.size()));
    const bool divides = exponent.starts_with('-');
    exponent.remove_prefix(divides || exponent.starts_with('+'));
    const std::int64_t power = take_whole(exponent);
    const std::int64_t place = place_of_first_digit(text.substr(0, e));
    const double value = place + (divides ? -power : power) > 0 ? HUGE_VAL : 0;
    return negative ? -value : value;
}

// Reads the number at the beginning of the text: a sign "-", digits, a point, an exponent.
// Text that begins with no number gives 0. A whole number that no double holds sets
// out_of_range; with a point, such a number is 0 or infinite as meant.
inline double read_number(std::string_view text, bool &out_of_range)
{
    double value = 0;
    const char *end = text.data() + text.size();
    if (read_short_decimal(text.data(), end, value))
        return value;
    const auto result = read_decimal(text.data(), end, value);
    if (result.ec != std::errc::result_out_of_range)
        return value;
    out_of_range |= text.find('.') == text.npos;
    return read_extreme_number(text);
}

}  // namespace stock
