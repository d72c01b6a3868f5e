// Characters by their ASCII meaning.

#include "base/ascii.h"

#include <string>

#include <gtest/gtest.h>

namespace {

// All 256 characters for which holds(c) is true.
template <class Holds>
std::string all(Holds holds)
{
    std::string found;
    for (int i = 0; i < 256; ++i)
        if (const char c = static_cast<char>(i); holds(c))
            found += c;
    return found;
}

}  // namespace

TEST(Ascii, EachClassHoldsItsCharactersAndNoOthers)
{
    const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    EXPECT_EQ(all(stock::is_digit), "0123456789");
    EXPECT_EQ(all(stock::is_octal_digit), "01234567");
    EXPECT_EQ(all(stock::is_letter), letters);
    EXPECT_EQ(all(stock::is_letter_or_digit), "0123456789" + letters);
    EXPECT_EQ(all(stock::is_blank), "\t ");
    EXPECT_EQ(all(stock::is_white), "\t\n ");
    const auto is_printable = [](char c) {
        return stock::is_printable(static_cast<unsigned char>(c));
    };
    EXPECT_EQ(all(is_printable).size(), 95U);
}

TEST(Ascii, OnlyCapitalLettersHaveAnotherLowerForm)
{
    EXPECT_EQ(all([](char c) { return stock::lower(c) != c; }), "ABCDEFGHIJKLMNOPQRSTUVWXYZ");
    EXPECT_EQ(stock::lower('M'), 'm');
}

TEST(Ascii, TrimmedStripsBothEndsAndLeavesTheMiddle)
{
    constexpr auto trimmed = [](std::string_view text) {
        return stock::trimmed(text, stock::is_white);
    };
    static_assert(trimmed(" \t12 mm\n") == "12 mm");
    EXPECT_EQ(trimmed("north"), "north");
    EXPECT_EQ(trimmed("\r north"), "\r north");
    EXPECT_EQ(trimmed(" \n "), "");
    EXPECT_EQ(trimmed(""), "");
}
