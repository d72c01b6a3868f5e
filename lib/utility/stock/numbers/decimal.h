// Shared: the one reader of decimal numbers, the same in every locale.
//
// read_decimal reads a number inside a piece of text. strtod_in_c reads one in any form that
// strtod knows; stock/fix_strtod.h adds the special values. read_short_decimal is for texts in
// which nearly all numbers are short: for these it is faster than read_decimal.

#pragma once

#include <charconv>
#include <cstdint>
#include <iterator>

#include "base/ascii.h"

namespace stock {

// What strtod does in the "C" locale.
double strtod_in_c(const char *text, char **end);

// What std::from_chars does for a double, made of strtod_in_c: for standard libraries that
// lack it, and for the test that compares the two.
std::from_chars_result read_with_strtod(const char *first, const char *last, double &value);

// Reads a number of at most 15 digits, with or without a point, that the characters begin with.
// Gives where it ends. Null, with the value left alone, when there is no such number or an
// exponent may follow it.
//
// A double holds 15 digits exactly, and so it does the powers of ten up to 1e22: their quotient
// is the double nearest to the number. The numbers that it reads it reads as read_decimal does.
inline const char *read_short_decimal(const char *first, const char *last, double &value)
{
    static constexpr double kTens[] = {1,   1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                       1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    const bool negative = first != last && *first == '-';
    const char *at = first + negative;
    std::int64_t digits = 0;
    int count = 0;
    const char *behind_point = nullptr;
    for (; at != last; ++at) {
        if (is_digit(*at) && ++count < std::ssize(kTens))
            digits = digits * 10 + (*at - '0');
        else if (*at == '.' && !behind_point)
            behind_point = at + 1;
        else
            break;
    }
    if (count == 0 || count >= std::ssize(kTens) || (at != last && lower(*at) == 'e'))
        return nullptr;
    value = static_cast<double>(digits) / kTens[behind_point ? at - behind_point : 0];
    value = negative ? -value : value;
    return at;
}

// Reads the number that the characters begin with, as std::from_chars does: no blanks or "+"
// before it, and with an error the value is left alone. D is double; it is a template argument
// so that a library without such a from_chars still compiles.
template <class D>
std::from_chars_result read_decimal(const char *first, const char *last, D &value)
{
    if constexpr (requires { std::from_chars(first, last, value, std::chars_format::general); })
        return std::from_chars(first, last, value, std::chars_format::general);
    else
        return read_with_strtod(first, last, value);
}

}  // namespace stock
