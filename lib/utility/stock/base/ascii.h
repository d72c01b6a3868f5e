// Characters as ASCII knows them, whatever the locale.

#pragma once

namespace stock {

constexpr bool is_printable(unsigned char c)
{
    return c >= 32 && c <= 126;
}

constexpr bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

constexpr bool is_letter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

constexpr char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace stock
