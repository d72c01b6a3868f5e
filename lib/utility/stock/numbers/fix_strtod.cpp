// Text to a double, special values included, whatever the locale.
//
// A plain decimal number is read by from_chars; all that the two readers see
// differently, and what is at the edge of a double's range, is left to strtod.

#include "stock/fix_strtod.h"

#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/ascii.h"
#include "numbers/decimal.h"
#include "stock/ieee754.h"

namespace {

// clang-format off
constexpr struct {
    std::string_view name;  // lower case
    double (*value)();
} kSpecials[] = {
    {"inf",  an_infinity},
    {"-inf", [] { return -an_infinity(); }},
    {"nan",  a_quiet_nan},
    {"-nan", [] { return -a_quiet_nan(); }},
};
// clang-format on

constexpr std::size_t kPlain = 64;  // characters that a plain number is looked for in

// Whether the text starts with the name, in either case.
bool starts_with(const char *text, std::string_view name)
{
    for (const char c : name)
        if (stock::lower(*text++) != c)
            return false;
    return true;
}

// Whether the number may go on behind what from_chars took: at an "x" of a hexadecimal
// number, and at an "e" whose exponent lies behind the kPlain characters.
bool may_go_on(char c)
{
    return stock::lower(c) == 'x' || stock::lower(c) == 'e';
}

// Reads a decimal number that lies inside kPlain characters and well inside the
// range of a double; gives where it ends, null when there is none.
const char *read_plain(const char *s, double &value)
{
    const char *last = s + strnlen(s, kPlain);
    const auto [stop, error] = stock::read_decimal(s, last, value);
    if (error != std::errc() || stop == s + kPlain || may_go_on(*stop))
        return nullptr;
    return value == 0 || std::fabs(value) >= DBL_MIN ? stop : nullptr;
}

// The number that s starts with; *end is set behind it.
double read_double(const char *s, const char **end)
{
    const char *start = s + std::strspn(s, " \t\n\v\f\r");
    for (const auto &special : kSpecials)
        if (starts_with(start, special.name)) {
            *end = start + special.name.size();
            return special.value();
        }
    double value = 0;
    if ((*end = read_plain(start, value)) != nullptr)
        return value;
    char *stop = nullptr;
    value = stock::strtod_in_c(s, &stop);
    *end = stop;
    return value;
}

}  // namespace

double fix_strtod(const char *s, char **end)
{
    const char *stop = nullptr;
    const double value = s ? read_double(s, &stop) : 0;
    if (end)
        *end = const_cast<char *>(stop);
    return value;
}
