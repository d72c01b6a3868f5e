// The special values of a double.

#include "stock/ieee754.h"

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "support/printed.h"

namespace {

uint64_t bits(double x)
{
    return std::bit_cast<uint64_t>(x);
}

double from_bits(uint64_t value)
{
    return std::bit_cast<double>(value);
}

std::string shown(double x)
{
    return printed([=](FILE *stream) { EXPECT_EQ(showdouble(stream, x), 17); });
}

std::string shown_float(float x)
{
    return printed([=](FILE *stream) { EXPECT_EQ(showfloat(stream, x), 9); });
}

}  // namespace

TEST(Ieee754, MakesTheSpecialValuesBitByBit)
{
    EXPECT_EQ(bits(an_infinity()), 0x7FF0000000000000U);
    EXPECT_EQ(bits(a_signaling_nan()), 0x7FF0000000000001U);
    EXPECT_EQ(bits(a_quiet_nan()), 0x7FFFFFFFFFFFFFFFU);
    EXPECT_EQ(bits(a_nan()), 0x7FFFFFFFFFFFFFFFU);
    EXPECT_TRUE(std::isinf(an_infinity()));
    EXPECT_TRUE(std::isnan(a_signaling_nan()));
    EXPECT_TRUE(std::isnan(a_quiet_nan()));
}

TEST(Ieee754, TellsTheInfinitiesFromAllElse)
{
    const struct {
        uint64_t value;
        int positive, negative;
    } cases[] = {
        {0x7FF0000000000000, 1, 0}, {0xFFF0000000000000, 0, 1}, {0x7FF0000000000001, 0, 0},
        {0xFFF0000000000001, 0, 0}, {0x7FFFFFFFFFFFFFFF, 0, 0}, {0x7FEFFFFFFFFFFFFF, 0, 0},
        {0xFFEFFFFFFFFFFFFF, 0, 0}, {0x0000000000000000, 0, 0}, {0x8000000000000000, 0, 0},
        {0x3FF0000000000000, 0, 0}, {0x7FF8000000000000, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.value);
        EXPECT_EQ(is_infinity(from_bits(c.value)), c.positive);
        EXPECT_EQ(is_negative_infinity(from_bits(c.value)), c.negative);
        EXPECT_EQ(is_inf(from_bits(c.value)), c.positive | c.negative);
    }
}

TEST(Ieee754, CallsZeroAndWhatHasNoExponentDenormalized)
{
    for (double x : {0.0, -0.0, DBL_TRUE_MIN, -DBL_TRUE_MIN, std::nextafter(DBL_MIN, 0)})
        EXPECT_EQ(is_denormalized(x), 1) << x;
    for (double x : {DBL_MIN, -DBL_MIN, 1.0, -1.0, DBL_MAX, HUGE_VAL, a_quiet_nan()})
        EXPECT_EQ(is_denormalized(x), 0) << x;
}

TEST(Showdouble, PrintsTheBytesInBigEndianOrder)
{
    EXPECT_EQ(shown(1.0), " 3ff0000000000000");
    EXPECT_EQ(shown(-0.0), " 8000000000000000");
    EXPECT_EQ(shown(an_infinity()), " 7ff0000000000000");
    EXPECT_EQ(shown(a_signaling_nan()), " 7ff0000000000001");
    EXPECT_EQ(shown(from_bits(0x0123456789ABCDEF)), " 0123456789abcdef");
}

TEST(Showfloat, PrintsTheBytesInBigEndianOrder)
{
    EXPECT_EQ(shown_float(1.0F), " 3f800000");
    EXPECT_EQ(shown_float(-HUGE_VALF), " ff800000");
    EXPECT_EQ(shown_float(std::bit_cast<float>(0x12345678U)), " 12345678");
}
