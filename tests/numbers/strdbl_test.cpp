// A double as short text.

#include "stock/strdbl.h"

#include <bit>
#include <cfloat>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "stock/fix_strtod.h"
#include "stock/ieee754.h"
#include "support/comma_locale.h"

namespace {

std::string text_of(double x)
{
    char buffer[STRDBL_SIZE + 1];
    buffer[STRDBL_SIZE] = '#';
    EXPECT_EQ(strdbl(buffer, x), buffer);
    EXPECT_EQ(buffer[STRDBL_SIZE], '#');
    return buffer;
}

}  // namespace

TEST(Strdbl, PrintsPlainNumbers)
{
    EXPECT_EQ(text_of(0), "0");
    EXPECT_EQ(text_of(-0.0), "0");
    EXPECT_EQ(text_of(1), "1");
    EXPECT_EQ(text_of(-1), "-1");
    EXPECT_EQ(text_of(1234), "1234");
    EXPECT_EQ(text_of(1234.5), "1234.5");
    EXPECT_EQ(text_of(-1234.5), "-1234.5");
    EXPECT_EQ(text_of(1.0 / 3), ".333333333333333");
    EXPECT_EQ(text_of(2.0 / 3 * 1000), "666.666666666667");
}

TEST(Strdbl, DropsTheZeroBeforeThePointOfPositiveNumbersOnly)
{
    EXPECT_EQ(text_of(0.5), ".5");
    EXPECT_EQ(text_of(-0.5), "-0.5");
    EXPECT_EQ(text_of(1e-3), ".001");
    EXPECT_EQ(text_of(-1e-3), "-0.001");
}

TEST(Strdbl, SplitsAnExponentOffAbove1e10)
{
    EXPECT_EQ(text_of(1e10), "10000000000");
    EXPECT_EQ(text_of(10000000001), "10.000000001e9");
    EXPECT_EQ(text_of(1.5e12), "1.5e12");
    EXPECT_EQ(text_of(-1.5e12), "-1.5e12");
    EXPECT_EQ(text_of(1e15), "1e15");
    EXPECT_EQ(text_of(1.234e20), "123.4e18");
    EXPECT_EQ(text_of(1e100), "10e99");
    EXPECT_EQ(text_of(DBL_MAX), "179.769313486232e306");
}

TEST(Strdbl, SplitsAnExponentOffBelow1eMinus3)
{
    EXPECT_EQ(text_of(2e-5), "20e-6");
    EXPECT_EQ(text_of(-2e-5), "-20e-6");
    EXPECT_EQ(text_of(0.00099), "990e-6");
    EXPECT_EQ(text_of(1e-6), "1e-6");
    EXPECT_EQ(text_of(1.5e-10), "150e-12");
}

TEST(Strdbl, CutsTowardsZeroBelow1eMinus99So1eMinus100IsPoint1eMinus99)
{
    EXPECT_EQ(text_of(1e-99), "1e-99");
    EXPECT_EQ(text_of(1e-100), ".1e-99");
    EXPECT_EQ(text_of(-1e-100), "-0.1e-99");
    EXPECT_EQ(text_of(1.5e-101), ".015e-99");
}

TEST(Strdbl, PrintsTheSmallestNumbers)
{
    EXPECT_EQ(text_of(DBL_MIN), ".022250738585072e-306");
    EXPECT_EQ(text_of(DBL_TRUE_MIN), ".00495049504950495e-321");
}

TEST(Strdbl, NamesTheSpecialValues)
{
    EXPECT_EQ(text_of(an_infinity()), "Inf");
    EXPECT_EQ(text_of(-an_infinity()), "-Inf");
    EXPECT_EQ(text_of(a_quiet_nan()), "Nan");
    EXPECT_EQ(text_of(-a_quiet_nan()), "Nan");
    EXPECT_EQ(text_of(a_signaling_nan()), "Nan");
}

TEST(Strdbl, FitsItsBufferAndReadsBackAsTheSameNumberTo14Digits)
{
    uint64_t state = 1;
    for (int i = 0; i < 200'000; ++i) {
        state = state * 6364136223846793005U + 1442695040888963407U;
        const auto x = std::bit_cast<double>(state ^ state >> 29);
        if (!std::isfinite(x) || std::fabs(x) < 1e-300)
            continue;
        const std::string text = text_of(x);
        const double back = fix_strtod(text.c_str(), nullptr);
        ASSERT_LE(std::fabs(back - x), std::fabs(x) * 1e-14) << text;
    }
}

TEST(Strdbl, WritesAPointInEveryLocale)
{
    const CommaLocale locale;
    EXPECT_EQ(text_of(1.5), "1.5");
    EXPECT_EQ(text_of(1.5e12), "1.5e12");
}
