// read_short_decimal, and read_with_strtod, which is for standard libraries without from_chars
// for double, give what from_chars gives.

#include "numbers/decimal.h"

#include <clocale>
#include <cmath>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

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

void expect_read_alike(std::from_chars_result (*read)(const char *, const char *, double &),
                       std::string_view text)
{
    SCOPED_TRACE(text);
    const Read ours = with(read, text);
    const Read theirs = with(standard, text);
    EXPECT_EQ(ours.length, theirs.length);
    EXPECT_EQ(ours.error, theirs.error);
    EXPECT_EQ(std::memcmp(&ours.value, &theirs.value, sizeof(double)), 0)
        << ours.value << " is not " << theirs.value;
}

// The short reader, and for the numbers that it leaves alone the other one.
std::from_chars_result short_or_any(const char *first, const char *last, double &value)
{
    if (const char *end = stock::read_short_decimal(first, last, value))
        return {end, std::errc()};
    return stock::read_decimal(first, last, value);
}

void expect_the_same(std::string_view text)
{
    expect_read_alike(stock::read_with_strtod, text);
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

// Texts of few characters, of which most are numbers of some kind, in all combinations.
TEST(Decimal, ShortNumbersAreReadAsFromCharsReadsThem)
{
    const std::string_view characters = "019.-ex";
    std::vector<std::string> texts{""};
    for (size_t i = 0; texts[i].size() < 5; ++i)
        for (const char c : characters)
            texts.push_back(texts[i] + c);
    for (const std::string &text : texts)
        expect_read_alike(short_or_any, text);
}

TEST(Decimal, NumbersOfAboutFifteenDigitsAreReadAsFromCharsReadsThem)
{
    const std::string digits = "98765432109876543210";
    for (size_t count = 13; count <= digits.size(); ++count)
        for (size_t point = 0; point <= count; ++point)
            for (const char *sign : {"", "-"})
                for (const char *behind : {"", ".", "e1", " ", "x"})
                    expect_read_alike(short_or_any, sign + digits.substr(0, point) + "." +
                                                        digits.substr(point, count - point) +
                                                        behind);
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

TEST(Decimal, OfMoreThanFifteenDigitsOrWithAnExponentIsNotShort)
{
    for (const char *text :
         {"1234567890123456", "1.234567890123456", "1e3", "-2E3", "", "-", "."}) {
        SCOPED_TRACE(text);
        double value = 77;
        EXPECT_EQ(stock::read_short_decimal(text, text + std::strlen(text), value), nullptr);
        EXPECT_EQ(value, 77);
    }
}

TEST(Decimal, IsTheSameInEveryLocale)
{
    setlocale(LC_ALL, "de_DE.UTF-8");
    expect_the_same("1.5");
    expect_the_same("1,5");
    EXPECT_EQ(stock::strtod_in_c("1.5", nullptr), 1.5);
    setlocale(LC_ALL, "C");
}
