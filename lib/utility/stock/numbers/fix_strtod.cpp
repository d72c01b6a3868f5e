// fix_strtod: text to a double, "inf" and "nan" included, the same in every locale.
//
// Most texts are plain decimal numbers, which read_decimal reads several times faster than
// strtod. The others are left to strtod: those that the two read differently (hexadecimal
// numbers, a "+", very long ones) and those at the edge of a double's range.

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
// The first row whose name the text starts with gives the value.
constexpr struct {
    std::string_view name;  // lower case; the text may have either case
    double (*value)();
} kSpecials[] = {
    {"inf",  an_infinity},
    {"-inf", [] { return -an_infinity(); }},
    {"nan",  a_quiet_nan},
    {"-nan", [] { return -a_quiet_nan(); }},
};
// clang-format on

constexpr std::size_t kPlainLength = 64;  // longer numbers are left to strtod

// Whether the text starts with the name, in either case. A shorter text ends the comparison
// with its terminator.
bool starts_with(const char *text, std::string_view name)
{
    for (const char c : name)
        if (stock::lower(*text++) != c)
            return false;
    return true;
}

// Whether strtod may read on where read_decimal stopped: at the "x" of a hexadecimal number,
// or at an "e" whose exponent is cut by the end of the kPlainLength characters.
bool may_go_on(char c)
{
    return stock::lower(c) == 'x' || stock::lower(c) == 'e';
}

// Reads a number of fewer than kPlainLength characters that is 0 or a normal double. Gives
// where it ends; null when the text begins with no such number.
const char *read_plain(const char *s, double &value)
{
    const char *last = s + strnlen(s, kPlainLength);
    const auto [stop, error] = stock::read_decimal(s, last, value);
    if (error != std::errc() || stop == s + kPlainLength || may_go_on(*stop))
        return nullptr;
    return value == 0 || std::fabs(value) >= DBL_MIN ? stop : nullptr;
}

// The number that s starts with. *end is set to the character behind it, or to s when there
// is no number.
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
