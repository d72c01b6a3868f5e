// strdbl: a double as short text, its exponent a multiple of three.
//
// Very large and very small values are divided by a power of 1000, printed with 15 digits,
// and the power is put behind them as an exponent.

#include "stock/strdbl.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

namespace {

constexpr double kLargest = 1e10;    // greater values get an exponent
constexpr double kSmallest = 0.001;  // so do smaller ones, but for 0

// A third of the exponent that x gets; 0 when it gets none. x is not negative.
// Meant: below 1e-99 the division cuts towards zero and 1e-100 gives ".1e-99".
int thousands(double x)
{
    if (x == 0 || (x <= kLargest && x >= kSmallest))
        return 0;
    return static_cast<int>(99 + std::log10(x)) / 3 - 33;
}

// Writes the mantissa as "%.15g" does in the C locale, without the "0" before a point. Gives
// the end of what it wrote.
char *put_mantissa(char *out, double mantissa)
{
    char text[STRDBL_SIZE];
    const auto [end, error] =
        std::to_chars(text, text + sizeof text, mantissa, std::chars_format::general, 15);
    const bool leading_zero = text[0] == '0' && end - text > 1;
    const char *start = text + leading_zero;
    return std::copy(start, static_cast<const char *>(end), out);
}

}  // namespace

char *strdbl(char *buf, double x)
{
    if (std::isnan(x))
        return std::strcpy(buf, "Nan");
    if (std::isinf(x))
        return std::strcpy(buf, x < 0 ? "-Inf" : "Inf");
    const double size = std::fabs(x);
    const int k = thousands(size);
    const double mantissa = k ? size / std::pow(10.0, 3 * k) : size;
    char *out = put_mantissa(buf, x < 0 ? -mantissa : mantissa);
    if (k) {
        *out++ = 'e';
        out = std::to_chars(out, buf + STRDBL_SIZE - 1, 3 * k).ptr;
    }
    *out = 0;
    return buf;
}
