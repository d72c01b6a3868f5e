// A text of bounded length: what does not fit is cut.

#include "base/fixed_text.h"

#include <cstring>

#include <gtest/gtest.h>

using stock::FixedText;
using stock::FixedTextOf;

TEST(FixedText, KeepsWhatFitsAndCutsTheRest)
{
    FixedTextOf<6> text;
    text.add("rain");
    text.add('-');
    text.add('x');
    text.add("gauge");
    EXPECT_STREQ(text.c_str(), "rain-");
    EXPECT_EQ(text.size(), 5U);
    EXPECT_EQ(text.room(), 0U);
}

TEST(FixedText, WritesNothingBehindTheMemoryOfItsUser)
{
    char memory[8];
    std::memset(memory, '#', sizeof memory);
    FixedText text(memory, 4);
    text.addf("%d mm", 1234);
    text.fill(7, '0');
    EXPECT_STREQ(text.c_str(), "123");
    EXPECT_EQ(std::string_view(memory + 4, 4), "####");
}

TEST(FixedText, GoesOnBehindATextThatIsThere)
{
    char memory[16] = "north";
    FixedText text(memory, sizeof memory, std::strlen(memory));
    text.add(" gauge and more");
    EXPECT_STREQ(text.c_str(), "north gauge and");
}

TEST(FixedText, OfOneByteStaysEmpty)
{
    FixedTextOf<1> text;
    text.add("mm");
    text.addf("%s", "mm");
    EXPECT_STREQ(text.c_str(), "");
}

TEST(FixedText, PrintsNumbersAsPrintfDoes)
{
    FixedTextOf<64> text;
    text.number(-12);
    text.add(' ');
    text.zeros(-7, 4);
    text.blanks(7, 4);
    text.fixed(12.345, 8, 2);
    text.add(' ');
    text.general(0.25, 6);
    text.addf("%5.1f", 3.25);
    EXPECT_STREQ(text.c_str(), "-12 -007   7   12.35 0.25  3.2");
}
