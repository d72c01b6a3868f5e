// The special values of a double: infinities, and what is not a number.
//
// A value is taken apart into its eight bytes in big-endian order and compared with the
// patterns below, so that no comparison of floating values, which NaN always fails, is needed.

#include "stock/ieee754.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "stock/convert.h"

namespace {

using Pattern = std::array<unsigned char, 8>;  // big-endian

constexpr Pattern infinity = {0x7f, 0xf0};
constexpr Pattern negative_infinity = {0xff, 0xf0};
constexpr Pattern signaling_nan = {0x7f, 0xf0, 0, 0, 0, 0, 0, 0x01};
constexpr Pattern quiet_nan = {0x7f, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

double value_of(Pattern pattern)
{
    double x = 0;
    char *from = reinterpret_cast<char *>(pattern.data());
    md2hd(&from, &x, 1);
    return x;
}

Pattern pattern_of(double x)
{
    Pattern pattern{};
    char *to = reinterpret_cast<char *>(pattern.data());
    hd2md(&x, &to, 1);
    return pattern;
}

// Prints a blank and the bytes as two digits each. Gives how many characters it printed.
int show_bytes(FILE *stream, const unsigned char *bytes, std::size_t n)
{
    int printed = std::fprintf(stream, " ");
    for (std::size_t i = 0; i < n; ++i)
        printed += std::fprintf(stream, "%02x", bytes[i]);
    return printed;
}

}  // namespace

double an_infinity()
{
    return value_of(infinity);
}

double a_signaling_nan()
{
    return value_of(signaling_nan);
}

double a_quiet_nan()
{
    return value_of(quiet_nan);
}

double a_nan()
{
    return a_quiet_nan();
}

int is_infinity(double x)
{
    return pattern_of(x) == infinity;
}

int is_negative_infinity(double x)
{
    return pattern_of(x) == negative_infinity;
}

int is_inf(double x)
{
    Pattern pattern = pattern_of(x);
    pattern[0] &= 0x7f;  // without the sign
    return pattern == infinity;
}

int is_denormalized(double x)
{
    const Pattern pattern = pattern_of(x);
    // Meant: true of 0 and -0 as well.
    return (pattern[0] & 0x7f) == 0 && (pattern[1] & 0xf0) == 0;
}

int showdouble(FILE *stream, double x)
{
    return show_bytes(stream, pattern_of(x).data(), sizeof x);
}

int showfloat(FILE *stream, float x)
{
    unsigned char bytes[sizeof x];
    char *to = reinterpret_cast<char *>(bytes);
    hf2mf(&x, &to, 1);
    return show_bytes(stream, bytes, sizeof bytes);
}
