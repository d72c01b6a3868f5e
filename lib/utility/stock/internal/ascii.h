// Characters as ASCII knows them, whatever the locale.

#pragma once

namespace stock {

constexpr bool is_printable(unsigned char c)
{
    return c >= 32 && c <= 126;
}

constexpr char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace stock
