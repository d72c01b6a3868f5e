// Lists, arrays and text printed for debugging.

#include "stock/debugchar.h"

#include <climits>
#include <cstring>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/child.h"
#include "support/owners.h"
#include "support/printed.h"

namespace {

std::string shown(const char *title, const char *buffer, int n)
{
    return printed([=](FILE *stream) { debugchar(stream, title, buffer, n); });
}

std::string text_shown(const std::string &string, int n)
{
    return Text(debugcharstr(string.c_str(), n)).get();
}

}  // namespace

TEST(Debugtbl, PrintsTheTitleAndOneEntryALine)
{
    const TblPtr list(strtbl("a", "b %s", nullptr));
    EXPECT_EQ(printed([&](FILE *stream) { debugtbl(stream, "Title 100%:\n", list.get()); }),
              "Title 100%:\n\t  0 a\n\t  1 b %s\n");
    EXPECT_EQ(printed([&](FILE *stream) { debugtbl(stream, nullptr, list.get()); }),
              "\t  0 a\n\t  1 b %s\n");
}

TEST(Debugtbl, WidensTheIndexFrom1000On)
{
    const TblPtr list(newtbl(1001));
    settbl(list.get(), 1000, "x");
    const std::string text = printed([&](FILE *stream) { debugtbl(stream, nullptr, list.get()); });
    EXPECT_THAT(text, testing::EndsWith("\t999 <null>\n\t1000 x\n"));
}

TEST(Debugtbl, PrintsTheTitleAloneForNull)
{
    EXPECT_EQ(printed([](FILE *stream) { debugtbl(stream, "t", nullptr); }), "t");
}

TEST(Debugarr, PrintsKeysInOrderWithTheirValues)
{
    const ArrPtr arr(newarr(nullptr));
    setarr(arr.get(), "b", const_cast<char *>("two"));
    setarr(arr.get(), "a key of twenty char", const_cast<char *>("one"));
    setarr(arr.get(), "c", nullptr);
    EXPECT_EQ(
        printed([&](FILE *stream) { debugarr(stream, "Title:\n", arr.get()); }),
        "Title:\n\ta key of twenty char one\n\tb               two\n\tc               <null>\n");
    EXPECT_EQ(printed([&](FILE *stream) { debugarr(stream, nullptr, nullptr); }), "");
}

TEST(Debugchar, PrintsWhatIsPrintable)
{
    EXPECT_EQ(shown("t: ", "hello", 0), "t: hello");
    EXPECT_EQ(shown(nullptr, "hello", 0), "hello");
    EXPECT_EQ(shown("t: ", "hello", 3), "t: hel");
    EXPECT_EQ(shown("t: ", " ~", 10), "t:  ~");
}

TEST(Debugchar, LooksAt50CharactersWhenNIsNotPositive)
{
    const std::string text = std::string(50, 'x') + "\001";
    for (int n : {0, -1, INT_MIN})
        EXPECT_EQ(shown(nullptr, text.c_str(), n), std::string(50, 'x'));
    EXPECT_EQ(shown(nullptr, text.c_str(), 51),
              "\t00000000  7878 7878 7878 7878 7878 7878 7878 7878 xxxxxxxxxxxxxxxx\n");
}

TEST(Debugchar, DumpsSixteenBytesWhenOneIsNotPrintable)
{
    const char bytes[] = "ab\001\x7f\x80 0123456789abcdef";
    EXPECT_EQ(shown("t\n", bytes, 5),
              "t\n\t00000000  6162 017f 8020 3031 3233 3435 3637 3839 ab___ 0123456789\n");
}

TEST(Debugchar, PrintsTwoQuotesForNothing)
{
    EXPECT_EQ(shown("t: ", "", 0), "t: ''");
    EXPECT_EQ(shown("t: ", nullptr, 0), "t: ''");
}

TEST(Debugcharstr, GivesThePrintableStart)
{
    EXPECT_EQ(text_shown("hello", 0), "hello");
    EXPECT_EQ(text_shown("hello", 3), "hel");
    EXPECT_EQ(text_shown("hel\001", 3), "hel");
    EXPECT_EQ(text_shown("", 5), "");
}

TEST(Debugcharstr, NamesNull)
{
    EXPECT_STREQ(Text(debugcharstr(nullptr, 0)).get(), "<null>");
    EXPECT_STREQ(Text(debugcharstr(nullptr, 2)).get(), "<null>");
}

TEST(Debugcharstr, LooksAt50CharactersWhenNIsNotPositive)
{
    for (int n : {0, -1, INT_MIN})
        EXPECT_EQ(text_shown(std::string(60, 'x'), n), std::string(50, 'x'));
    EXPECT_EQ(text_shown(std::string(50, 'x') + "\001", 0), std::string(50, 'x'));
}

TEST(Debugcharstr, GivesAtMost99PrintableCharacters)
{
    for (size_t length : {99U, 100U, 101U, 100'000U})
        EXPECT_EQ(text_shown(std::string(length, 'x'), INT_MAX), std::string(99, 'x'));
}

TEST(Debugcharstr, GivesTheWholeStringWhenACharacterIsNotPrintable)
{
    EXPECT_EQ(text_shown("a\001" + std::string(90, 'x'), 3), "a\001" + std::string(90, 'x'));
    EXPECT_EQ(text_shown("\001" + std::string(98, 'x'), 0), "\001" + std::string(98, 'x'));
}

TEST(Debugcharstr, EndsTheProcessOverAStringOf100BytesThatIsNotPrintable)
{
    for (size_t length : {99U, 100U}) {
        const Ended ended = in_child([=] {
            const std::string text = "\001" + std::string(length, 'x');
            debugcharstr(text.c_str(), 0);
        });
        EXPECT_EQ(ended.status, 1);
        EXPECT_THAT(ended.err,
                    testing::EndsWith(std::to_string(length + 1) +
                                      " characters do not fit its buffer of 100 bytes\n"));
    }
}
