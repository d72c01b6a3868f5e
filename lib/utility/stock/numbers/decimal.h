// Decimal numbers read the same in every locale.

#pragma once

#include <charconv>

namespace stock {

// strtod as in the "C" locale.
double strtod_in_c(const char *text, char **end);

// What std::from_chars does with a double, for libraries that lack it.
std::from_chars_result read_with_strtod(const char *first, const char *last, double &value);

// Reads a number from the start of the characters as std::from_chars does. D is double.
template <class D>
std::from_chars_result read_decimal(const char *first, const char *last, D &value)
{
    if constexpr (requires { std::from_chars(first, last, value, std::chars_format::general); })
        return std::from_chars(first, last, value, std::chars_format::general);
    else
        return read_with_strtod(first, last, value);
}

}  // namespace stock
