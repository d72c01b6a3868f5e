// Shared: the one reader of decimal numbers, the same in every locale.
//
// read_decimal reads a number inside a piece of text, strtod_in_c one in any form that strtod
// knows; stock/fix_strtod.h adds the special values to them.

#pragma once

#include <charconv>

namespace stock {

// What strtod does in the "C" locale.
double strtod_in_c(const char *text, char **end);

// What std::from_chars does for a double, made of strtod_in_c: for standard libraries that
// lack it, and for the test that compares the two.
std::from_chars_result read_with_strtod(const char *first, const char *last, double &value);

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
