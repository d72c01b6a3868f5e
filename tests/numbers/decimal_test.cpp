// read_with_strtod, for standard libraries without from_chars for double, gives what from_chars
// gives.

#include "numbers/decimal.h"

#include <clocale>
#include <cmath>
#include <cstring>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace {

struct Read {
    std::ptrdiff_t length;
    std::errc error;
    double value;
};

Read with(std::from_chars_result (*read)(const char *, const char *, double &),
          std::string_view text)
{
    double value = 77;
    const auto result = read(text.data(), text.data() + text.size(), value);
    return {result.ptr - text.data(), result.ec, value};
}

std::from_chars_result standard(const char *first, const char *last, double &value)
{
    return std::from_chars(first, last, value);
}

void expect_the_same(std::string_view text)
{
    SCOPED_TRACE(text);
    const Read ours = with(stock::read_with_strtod, text);
    const Read theirs = with(standard, text);
    EXPECT_EQ(ours.length, theirs.length);
    EXPECT_EQ(ours.error, theirs.error);
    EXPECT_EQ(std::memcmp(&ours.value, &theirs.value, sizeof(double)), 0)
        << ours.value << " is not " << theirs.value;
}

}  // namespace

TEST(Decimal, IsReadAsFromCharsReadsIt)
{
    for (const char *text : {"0",
                             "1",
                             "-1",
                             "12.5",
                             ".5",
                             "5.",
                             "-.5",
                             "1e3",
                             "1e",
                             "1e+",
                             "1E-3x",
                             "1.2.3",
                             "007",
                             "0.1",
                             "123456789012345678901234567890",
                             "1.7976931348623157e308",
                             "5e-324",
                             "3abc",
                             "inf",
                             "-INF",
                             "infinity",
                             "nan",
                             "-nan",
                             "0x1p3",
                             "-0x8",
                             "0X",
                             "0x",
                             "1e5000",
                             "-1e5000",
                             "1e-5000",
                             "2.2250738585072011e-308"})
        expect_the_same(text);
}

TEST(Decimal, WhatIsNoNumberIsRefused)
{
    for (const char *text :
         {"", "-", "+1", " 1", "\t1", "--1", "-+1", "- 1", "x", "e5", ".", "-.", "i", "n", "in"})
        expect_the_same(text);
}

TEST(Decimal, EndsWhereTheCharactersEnd)
{
    expect_the_same(std::string_view("12345", 2));
    expect_the_same(std::string_view("1\0"
                                     "2",
                                     3));
    expect_the_same(std::string(100'000, '9'));
    expect_the_same("0." + std::string(100'000, '1'));
}

TEST(Decimal, IsTheSameInEveryLocale)
{
    setlocale(LC_ALL, "de_DE.UTF-8");
    expect_the_same("1.5");
    expect_the_same("1,5");
    EXPECT_EQ(stock::strtod_in_c("1.5", nullptr), 1.5);
    setlocale(LC_ALL, "C");
}
