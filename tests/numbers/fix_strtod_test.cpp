// Text to a double, special values included.

#include "stock/fix_strtod.h"

#include <bit>
#include <cerrno>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "stock/ieee754.h"
#include "support/comma_locale.h"

namespace {

uint64_t bits(double x)
{
    return std::bit_cast<uint64_t>(x);
}

// A value and the text behind it.
struct Read {
    uint64_t value;
    std::string rest;
    bool operator==(const Read &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Read &read)
{
    return out << std::bit_cast<double>(read.value) << " and \"" << read.rest << '"';
}

Read read(const std::string &text)
{
    char *end = nullptr;
    const double value = fix_strtod(text.c_str(), &end);
    return {bits(value), end};
}

Read is(double value, const char *rest)
{
    return {bits(value), rest};
}

}  // namespace

TEST(FixStrtod, KnowsTheSpecialValuesInEitherCase)
{
    EXPECT_EQ(read("Inf"), is(an_infinity(), ""));
    EXPECT_EQ(read("INF"), is(an_infinity(), ""));
    EXPECT_EQ(read("inf,"), is(an_infinity(), ","));
    EXPECT_EQ(read("-Inf"), is(-an_infinity(), ""));
    EXPECT_EQ(read("-inF x"), is(-an_infinity(), " x"));
    EXPECT_EQ(read("NaN"), is(a_quiet_nan(), ""));
    EXPECT_EQ(read("nan0"), is(a_quiet_nan(), "0"));
    EXPECT_EQ(read("-NaN"), is(-a_quiet_nan(), ""));
}

TEST(FixStrtod, EndsASpecialValueWhereItsNameDoes)
{
    EXPECT_EQ(read("Infinity"), is(an_infinity(), "inity"));
    EXPECT_EQ(read("-infinity"), is(-an_infinity(), "inity"));
    EXPECT_EQ(read("nan(1)"), is(a_quiet_nan(), "(1)"));
}

TEST(FixStrtod, SkipsLeadingBlanks)
{
    EXPECT_EQ(read("  nan"), is(a_quiet_nan(), ""));
    EXPECT_EQ(read("\t -inf"), is(-an_infinity(), ""));
    EXPECT_EQ(read(" \t\n\v\f\r1.5"), is(1.5, ""));
}

TEST(FixStrtod, ReadsNumbersAsStrtodDoes)
{
    for (const char *text : {"0",
                             "-0",
                             "1",
                             "-1",
                             "+1",
                             "1.5",
                             ".5",
                             "-.5",
                             "5.",
                             "1e3",
                             "1E3",
                             "1e+3",
                             "1e-3",
                             "1e",
                             "1e+",
                             "1.5e3km",
                             "1.5.5",
                             "1,5",
                             "0x10",
                             "0X1p4",
                             "-0x1.8p1",
                             "0x",
                             "0xg",
                             "0.1",
                             "00012",
                             "1e308",
                             "1.7976931348623157e308",
                             "2.2250738585072014e-308",
                             "123456789012345678901234567890",
                             "0.30000000000000004",
                             "1e23",
                             "9007199254740993",
                             "1 2",
                             "1d3",
                             "+inf",
                             "+Infinity",
                             "+nan",
                             "+0x1p1",
                             "",
                             " ",
                             "abc",
                             "-",
                             "+",
                             ".",
                             "e5",
                             "--1",
                             "+-1",
                             "i",
                             "in",
                             "-in",
                             "n",
                             "na",
                             "-na",
                             "1x",
                             "0b1"}) {
        SCOPED_TRACE(text);
        char *end = nullptr;
        const double value = strtod(text, &end);
        EXPECT_EQ(read(text), is(value, end));
    }
}

TEST(FixStrtod, LeavesTextThatIsNoNumber)
{
    EXPECT_EQ(read("abc"), is(0, "abc"));
    EXPECT_EQ(read("  abc"), is(0, "  abc"));
    EXPECT_EQ(read(""), is(0, ""));
}

TEST(FixStrtod, SetsErrnoAtTheEndsOfTheRange)
{
    for (const char *text : {"1e400", "-1e400", "1e-400", "4.9e-324", "1e-310", "1e99999999999"}) {
        SCOPED_TRACE(text);
        errno = 0;
        const double value = strtod(text, nullptr);
        const int expected = errno;
        errno = 0;
        EXPECT_EQ(read(text), is(value, ""));
        EXPECT_EQ(errno, expected);
    }
    errno = 0;
    read("1.5");
    EXPECT_EQ(errno, 0);
}

TEST(FixStrtod, ReadsEveryDigitOfLongNumbers)
{
    for (size_t n : {50U, 62U, 63U, 64U, 65U, 66U, 100U, 300U, 10'000U}) {
        SCOPED_TRACE(n);
        const std::string one = "1." + std::string(n, '0') + "5rest";
        EXPECT_EQ(read(one), is(strtod(one.c_str(), nullptr), "rest"));
        const std::string many = std::string(std::min<size_t>(n, 300), '7') + " rest";
        EXPECT_EQ(read(many), is(strtod(many.c_str(), nullptr), " rest"));
        const std::string exponent = std::string(n, '0') + "12e5rest";
        EXPECT_EQ(read(exponent), is(12e5, "rest"));
    }
}

TEST(FixStrtod, ReadsWhatPrintfWritesBitByBit)
{
    uint64_t state = 7;
    for (int i = 0; i < 100'000; ++i) {
        state = state * 6364136223846793005U + 1442695040888963407U;
        const auto x = std::bit_cast<double>(state ^ state >> 31);
        if (std::isnan(x))
            continue;
        char text[64];
        snprintf(text, sizeof text, i % 2 ? "%.17g" : "%a", x);
        ASSERT_EQ(read(text), is(x, "")) << text;
    }
}

// An exponent used to be lost when its "e" was the 62nd to the 64th character.
TEST(FixStrtod, ReadsTheExponentBehindAnyNumberOfDigits)
{
    EXPECT_EQ(read("1." + std::string(60, '5') + "e-05"), is(1.5555555555555556e-05, ""));
    for (size_t n = 1; n <= 140; ++n)
        for (const char *exponent :
             {"e5", "E5", "e-5", "e+05", "e-05mm", "e", "e-", "e+x", "e-310"})
            for (const char *sign : {"", "-", "+", " "}) {
                const std::string text = sign + std::string("2.") + std::string(n, '4') + exponent;
                char *end = nullptr;
                const double value = strtod(text.c_str(), &end);
                ASSERT_EQ(read(text), is(value, end)) << text;
            }
}

TEST(FixStrtod, ReadsWhatPrintfWritesWithAnyNumberOfDigits)
{
    uint64_t state = 11;
    for (int i = 0; i < 50'000; ++i) {
        state = state * 6364136223846793005U + 1442695040888963407U;
        const auto x = std::bit_cast<double>(state ^ state >> 31);
        if (std::isnan(x))
            continue;
        char text[512];
        snprintf(text, sizeof text, "%.*e", i % 100, x);
        ASSERT_EQ(read(text), is(strtod(text, nullptr), "")) << text;
    }
}

TEST(FixStrtod, NeedsNoEnd)
{
    EXPECT_EQ(fix_strtod("1.5x", nullptr), 1.5);
    EXPECT_EQ(fix_strtod("inf", nullptr), an_infinity());
    EXPECT_EQ(fix_strtod("0x10", nullptr), 16);
}

TEST(FixStrtod, TakesNullForEmpty)
{
    char *end = const_cast<char *>("x");
    EXPECT_EQ(fix_strtod(nullptr, &end), 0);
    EXPECT_EQ(end, nullptr);
}

TEST(FixStrtod, ReadsAPointInEveryLocale)
{
    const CommaLocale locale;
    EXPECT_EQ(read("1.5"), is(1.5, ""));
    EXPECT_EQ(read("1,5"), is(1, ",5"));
    EXPECT_EQ(read("0x1.8p0"), is(1.5, ""));
    EXPECT_EQ(read("+1.5"), is(1.5, ""));
}
