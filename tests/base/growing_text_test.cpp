// A text that grows in the heap.

#include "base/growing_text.h"

#include <string>

#include <gtest/gtest.h>

#include "support/owners.h"

using stock::GrowingText;

TEST(GrowingText, HoldsAllThatIsAdded)
{
    GrowingText text(0, "report");
    std::string expected;
    for (int i = 0; i < 10'000; ++i) {
        text.add("north 12 mm\n");
        expected += "north 12 mm\n";
    }
    EXPECT_EQ(text.size(), expected.size());
    EXPECT_EQ(text.view(), expected);
    EXPECT_STREQ(Text(text.finish()).get(), expected.c_str());
}

TEST(GrowingText, WithoutAnyPieceIsTheEmptyText)
{
    GrowingText text(0, "report");
    EXPECT_EQ(text.view(), "");
    EXPECT_STREQ(text.c_str(), "");
    EXPECT_STREQ(Text(text.finish()).get(), "");
}

TEST(GrowingText, CanBeReadBetweenPieces)
{
    GrowingText text(4, "report");
    text.add("one ");
    EXPECT_STREQ(text.c_str(), "one ");
    text.add("two");
    EXPECT_STREQ(text.c_str(), "one two");
}

TEST(GrowingText, GrowsToJustWhatIsKnownToFollow)
{
    GrowingText text(4, "report");
    text.add("abc");
    EXPECT_EQ(text.room(), 1U);
    text.add("12345", 10);
    EXPECT_EQ(text.room(), 10U + 2);
}

TEST(GrowingText, ReservesRoomForPiecesToCome)
{
    GrowingText text(0, "report");
    text.reserve(5000);
    EXPECT_GT(text.room(), 5000U);
    const char *before = text.c_str();
    text.add(std::string(5000, 'x'));
    EXPECT_EQ(text.c_str(), before);
}

TEST(GrowingTextDeathTest, NamesTheItemAndTheFunctionWhenMemoryRunsOut)
{
    GrowingText text(0, "report", "print_report", 7, "gauges/report.cpp");
    EXPECT_EXIT(text.reserve(SIZE_MAX / 4), testing::ExitedWithCode(1),
                "Out of memory in print_report at line 7 of 'report.cpp'\n"
                "\tCan't malloc [0-9]+ bytes for report\n");
}
