// Characters by their ASCII meaning, whatever the process's locale: the tests for digits,
// letters and blanks that every room uses, and the removal of characters at both ends.
//
// Bytes above 127 are in none of the classes. Nothing here needs the library's objects, so
// that the tool may use it too.

#pragma once

#include <string_view>

namespace stock {

// Printed as it is: a space, a sign, a digit or a letter.
constexpr bool is_printable(unsigned char c)
{
    return c >= 32 && c <= 126;
}

constexpr bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

constexpr bool is_octal_digit(char c)
{
    return c >= '0' && c <= '7';
}

constexpr bool is_letter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

constexpr bool is_letter_or_digit(char c)
{
    return is_letter(c) || is_digit(c);
}

// A space or a tab.
constexpr bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

// A space, a tab or a newline. A carriage return is none.
constexpr bool is_white(char c)
{
    return is_blank(c) || c == '\n';
}

constexpr char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// The text without the characters at both ends for which drop(c) is true. When drop holds
// for all of them, the result is the empty text at the end of `text`.
template <class Drop>
constexpr std::string_view trimmed(std::string_view text, Drop drop)
{
    while (!text.empty() && drop(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && drop(text.back()))
        text.remove_suffix(1);
    return text;
}

}  // namespace stock
