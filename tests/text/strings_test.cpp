// Text: splitting, copying, trimming, and reading lines.

#include "stock/strings.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/owners.h"
#include "support/printed.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> texts_of(const Tbl *tbl)
{
    std::vector<std::string> texts;
    for (int64_t i = 0; i < tbl->count; ++i)
        texts.emplace_back(static_cast<const char *>(gettbl(tbl, i)));
    return texts;
}

std::vector<std::string> split_copy(std::string text, int character)
{
    const TblPtr fields(split(text.data(), character));
    return texts_of(fields.get());
}

std::vector<std::string> splitws_copy(std::string text)
{
    const TblPtr fields(splitws(text.data()));
    return texts_of(fields.get());
}

std::string trimmed(std::string text)
{
    strtrim(text.data());
    return text.c_str();
}

std::string replaced(const char *source, const char *old_text, const char *new_text)
{
    char result[256];
    char *const end = strsub(source, old_text, new_text, result);
    EXPECT_EQ(*end, 0);
    return std::string(result, end);
}

std::string translated(std::string text, const char *from, const char *to)
{
    strtr(text.data(), from, to);
    return text.c_str();
}

std::string chomped(std::string text)
{
    chomp(text.data());
    return text.c_str();
}

// All lines that getaline reads with that size.
std::vector<std::string> lines_of(std::string_view text, int size)
{
    const Stream stream = stream_of(text);
    std::vector<char> buffer(static_cast<size_t>(size), 'x');
    std::vector<std::string> lines;
    while (getaline(stream.get(), buffer.data(), size))
        lines.emplace_back(buffer.data());
    return lines;
}

// A buffer that intactline owns.
struct Line {
    char *text = nullptr;
    int64_t size = 0;
    ~Line() { free(text); }
};

}  // namespace

TEST(Split, GivesTheNonEmptyFields)
{
    EXPECT_THAT(split_copy("::a::b:", ':'), ElementsAre("a", "b"));
    EXPECT_THAT(split_copy("a", ':'), ElementsAre("a"));
    EXPECT_THAT(split_copy("a:b", ':'), ElementsAre("a", "b"));
    EXPECT_THAT(split_copy("a b\tc", ' '), ElementsAre("a", "b\tc"));
}

TEST(Split, GivesAListThatGrowsByFiveFields)
{
    char text[] = "a b";
    const TblPtr fields(split(text, ' '));
    EXPECT_EQ(fields->nalloc, 5);
    char other[] = "a b";
    EXPECT_EQ(TblPtr(splitws(other))->nalloc, 5);
}

TEST(Split, FindsNoFieldInSeparatorsAlone)
{
    EXPECT_THAT(split_copy("", ':'), IsEmpty());
    EXPECT_THAT(split_copy(":::", ':'), IsEmpty());
    const TblPtr fields(split(nullptr, ':'));
    EXPECT_EQ(fields->count, 0);
}

TEST(Split, WritesZeroesOverEverySeparatorAndPointsIntoTheString)
{
    char text[] = "::a::b:";
    const TblPtr fields(split(text, ':'));
    EXPECT_EQ(std::string(text, 7), std::string("\0\0a\0\0b\0", 7));
    EXPECT_EQ(gettbl(fields.get(), 0), text + 2);
    EXPECT_EQ(gettbl(fields.get(), 1), text + 5);
}

TEST(Split, LeavesTheStringWholeForTheCharacterZero)
{
    EXPECT_THAT(split_copy("a:b", 0), ElementsAre("a:b"));
}

TEST(Split, SeparatesAtBytesAbove127)
{
    EXPECT_THAT(split_copy("a\xffg", 0xff), ElementsAre("a", "g"));
    EXPECT_THAT(split_copy("a\xffg", '\xff'), ElementsAre("a", "g"));
}

TEST(Split, GivesAMillionFields)
{
    std::string text;
    for (int i = 0; i < 1'000'000; ++i)
        text += "x,";
    const TblPtr fields(split(text.data(), ','));
    EXPECT_EQ(fields->count, 1'000'000);
    EXPECT_STREQ(static_cast<char *>(gettbl(fields.get(), 999'999)), "x");
}

TEST(Splitws, SeparatesAtSpacesTabsAndNewlines)
{
    EXPECT_THAT(splitws_copy(" \t\na b\tc\n\n d "), ElementsAre("a", "b", "c", "d"));
    EXPECT_THAT(splitws_copy("a\rb\vc\fd"), ElementsAre("a\rb\vc\fd"));
    EXPECT_THAT(splitws_copy(""), IsEmpty());
    EXPECT_THAT(splitws_copy(" \t\n"), IsEmpty());
    const TblPtr fields(splitws(nullptr));
    EXPECT_EQ(fields->count, 0);
}

TEST(Sncopy, PadsWithSpacesAndWritesNoTerminator)
{
    char buffer[] = "######";
    EXPECT_EQ(sncopy(buffer, "ab", 4), 4);
    EXPECT_STREQ(buffer, "ab  ##");
}

TEST(Sncopy, CutsALongSource)
{
    char buffer[] = "######";
    EXPECT_EQ(sncopy(buffer, "abcdefgh", 4), 4);
    EXPECT_STREQ(buffer, "abcd##");
}

TEST(Sncopy, ReadsNoFurtherThanNBytesOfTheSource)
{
    const char source[2] = {'a', 'b'};  // no terminator
    char buffer[] = "######";
    EXPECT_EQ(sncopy(buffer, source, 2), 2);
    EXPECT_STREQ(buffer, "ab####");
}

TEST(Sncopy, FillsWithSpacesForANullSource)
{
    char buffer[] = "######";
    EXPECT_EQ(sncopy(buffer, nullptr, 3), 3);
    EXPECT_STREQ(buffer, "   ###");
}

TEST(Sncopy, DoesNothingWhenNIsNotPositive)
{
    char buffer[] = "######";
    for (int n : {0, -1, INT_MIN}) {
        EXPECT_EQ(sncopy(buffer, "ab", n), 0);
        EXPECT_STREQ(buffer, "######");
    }
}

TEST(Szcopy, CopiesExactlyNBytesAndTerminates)
{
    char buffer[] = "########";
    EXPECT_EQ(szcopy(buffer, "a\0b#", 3), buffer + 3);
    EXPECT_EQ(std::string(buffer, 8), std::string("a\0b\0####", 8));
}

TEST(Szcopy, WritesTheTerminatorAloneWithoutBytes)
{
    for (int n : {0, -1, INT_MIN}) {
        char buffer[] = "##";
        EXPECT_EQ(szcopy(buffer, "ab", n), buffer);
        EXPECT_EQ(std::string(buffer, 2), std::string("\0#", 2));
    }
    char buffer[] = "##";
    EXPECT_EQ(szcopy(buffer, nullptr, 2), buffer);
    EXPECT_STREQ(buffer, "");
}

TEST(Copystrip, DropsTheSpacesAtBothEnds)
{
    const struct {
        const char *source;
        int n;
        const char *result;
    } cases[] = {
        {"  ab  ", 6, "ab"}, {"  a b  x", 7, "a b"}, {"ab", 2, "ab"},         {"    ", 4, ""},
        {"ab", 0, ""},       {"ab", -1, ""},         {"\tab\n", 4, "\tab\n"}, {nullptr, 4, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(okstr(c.source));
        char buffer[16] = "###############";
        const char *end = copystrip(buffer, c.source, c.n);
        EXPECT_STREQ(buffer, c.result);
        EXPECT_EQ(end, buffer + strlen(c.result));
    }
}

TEST(Copystrip, WorksInPlace)
{
    char buffer[] = "  ab  ";
    EXPECT_EQ(copystrip(buffer, buffer, 6), buffer + 2);
    EXPECT_STREQ(buffer, "ab");
}

TEST(Memdup, CopiesBytesIntoANewBlock)
{
    const char bytes[] = {1, 0, 2};
    const Text copy(static_cast<char *>(memdup(bytes, 3)));
    EXPECT_NE(copy.get(), bytes);
    EXPECT_EQ(std::string(copy.get(), 3), std::string(bytes, 3));
}

TEST(Memdup, GivesABlockForNoBytesAndNullForNull)
{
    const Text none(static_cast<char *>(memdup("", 0)));
    EXPECT_NE(none, nullptr);
    EXPECT_EQ(memdup(nullptr, 3), nullptr);
}

TEST(Str2upper, ChangesTheLettersOfAscii)
{
    char text[] = "azAZ 09@[`{\xe4\xff";
    EXPECT_EQ(str2upper(text), 13);
    EXPECT_STREQ(text, "AZAZ 09@[`{\xe4\xff");
    EXPECT_EQ(str2upper(nullptr), 0);
}

TEST(Str2lower, ChangesTheLettersOfAscii)
{
    char text[] = "azAZ 09@[`{\xc4\xff";
    EXPECT_EQ(str2lower(text), 13);
    EXPECT_STREQ(text, "azaz 09@[`{\xc4\xff");
    EXPECT_EQ(str2lower(nullptr), 0);
}

TEST(Str2lower, ChangesLongTextsOfEveryLength)
{
    for (size_t length = 0; length < 100; ++length) {
        std::string text(length, 'Q');
        EXPECT_EQ(str2lower(text.data()), static_cast<int64_t>(length));
        EXPECT_EQ(text, std::string(length, 'q'));
    }
}

TEST(Strtrim, RemovesSpacesTabsAndNewlinesFromBothEnds)
{
    EXPECT_EQ(trimmed(" \tx \n"), "x");
    EXPECT_EQ(trimmed("x"), "x");
    EXPECT_EQ(trimmed(" a b "), "a b");
    EXPECT_EQ(trimmed(""), "");
}

TEST(Strtrim, MakesABlankStringEmpty)
{
    EXPECT_EQ(trimmed(" \t\n \n"), "");
    EXPECT_EQ(trimmed(" "), "");
}

TEST(Strtrim, KeepsCarriageReturns)
{
    EXPECT_EQ(trimmed("\rx\r\n"), "\rx\r");
    EXPECT_EQ(trimmed(" \r x"), "\r x");
}

TEST(Strtrim, IgnoresNull)
{
    strtrim(nullptr);
    SUCCEED();
}

TEST(Strsub, ReplacesFromLeftToRightWithoutOverlap)
{
    EXPECT_EQ(replaced("a.b.c", ".", "::"), "a::b::c");
    EXPECT_EQ(replaced("aaa", "aa", "b"), "ba");
    EXPECT_EQ(replaced("aaaa", "aa", "a"), "aa");
    EXPECT_EQ(replaced("a.b", ".", ""), "ab");
    EXPECT_EQ(replaced("", ".", "x"), "");
    EXPECT_EQ(replaced("abc", "abc", "xyzzy"), "xyzzy");
    EXPECT_EQ(replaced("abc", "abcd", "x"), "abc");
}

TEST(Strsub, FindsAnEmptyOldTextNowhere)
{
    EXPECT_EQ(replaced("a.b", "", "x"), "a.b");
    EXPECT_EQ(replaced("a.b", nullptr, "x"), "a.b");
}

TEST(Strsub, TakesNullForEmpty)
{
    EXPECT_EQ(replaced(nullptr, "a", "x"), "");
    EXPECT_EQ(replaced("a.b", ".", nullptr), "ab");
}

TEST(Strtr, ReplacesCharactersByThoseAtTheSamePosition)
{
    EXPECT_EQ(translated("hello", "elo", "ipa"), "hippa");
    EXPECT_EQ(translated("abc", "ab", "ba"), "bac");
    EXPECT_EQ(translated("a\xff", "\xff", "b"), "ab");
}

TEST(Strtr, CountsOnlyThePairsOfTheShorterList)
{
    EXPECT_EQ(translated("abc", "abc", "x"), "xbc");
    EXPECT_EQ(translated("abc", "a", "xyz"), "xbc");
    EXPECT_EQ(translated("abc", "", "xyz"), "abc");
    EXPECT_EQ(translated("abc", "abc", ""), "abc");
}

TEST(Strtr, TakesTheLaterOfTwoPairsForOneCharacter)
{
    EXPECT_EQ(translated("aa", "aba", "123"), "33");
}

TEST(Strtr, IgnoresPairsBeyondThe256th)
{
    const std::string from = std::string(255, 'a') + "bc";
    const std::string to = std::string(255, '1') + "23";
    EXPECT_EQ(translated("abc", from.c_str(), to.c_str()), "12c");
}

TEST(Strtr, LeavesNullAndEmptyStringsAlone)
{
    strtr(nullptr, "a", "b");
    EXPECT_EQ(translated("", "a", "b"), "");
    EXPECT_EQ(translated("a", nullptr, "b"), "a");
    EXPECT_EQ(translated("a", "a", nullptr), "a");
}

TEST(Chomp, RemovesOneNewlineFromTheEnd)
{
    EXPECT_EQ(chomped("a\n"), "a");
    EXPECT_EQ(chomped("a\n\n"), "a\n");
    EXPECT_EQ(chomped("a"), "a");
    EXPECT_EQ(chomped("\na"), "\na");
    EXPECT_EQ(chomped("\n"), "");
    EXPECT_EQ(chomped(""), "");
    chomp(nullptr);
}

TEST(Nstrcmp, ComparesWhenNeitherIsNull)
{
    EXPECT_EQ(nstrcmp("a", "a"), 0);
    EXPECT_LT(nstrcmp("a", "b"), 0);
    EXPECT_GT(nstrcmp("b", "a"), 0);
}

TEST(Nstrcmp, GivesZeroForTwoNullsAndOneForOne)
{
    EXPECT_EQ(nstrcmp(nullptr, nullptr), 0);
    EXPECT_EQ(nstrcmp("a", nullptr), 1);
    EXPECT_EQ(nstrcmp(nullptr, "a"), 1);
}

TEST(Blank, IsTrueOfNothingButSpaces)
{
    EXPECT_TRUE(blank(""));
    EXPECT_TRUE(blank("   "));
    EXPECT_TRUE(blank(nullptr));
    EXPECT_FALSE(blank(" x "));
    EXPECT_FALSE(blank("\t"));
    EXPECT_FALSE(blank(" \n"));
}

TEST(Whitespace, IsTrueOfNothingButSpacesTabsAndNewlines)
{
    EXPECT_TRUE(whitespace(""));
    EXPECT_TRUE(whitespace(" \t\n"));
    EXPECT_TRUE(whitespace(nullptr));
    EXPECT_FALSE(whitespace(" x "));
    EXPECT_FALSE(whitespace("\r"));
    EXPECT_FALSE(whitespace(" \v"));
}

TEST(Okstr, IsTheStringOrTheWordNull)
{
    const char *text = "a";
    EXPECT_EQ(okstr(text), text);
    EXPECT_STREQ(okstr(nullptr), "<null>");
}

TEST(Spaces, GivesNoneTo63Spaces)
{
    EXPECT_STREQ(spaces(0), "");
    EXPECT_STREQ(spaces(-1), "");
    EXPECT_STREQ(spaces(INT_MIN), "");
    EXPECT_EQ(spaces(1), std::string(1, ' '));
    EXPECT_EQ(spaces(62), std::string(62, ' '));
    EXPECT_EQ(spaces(63), std::string(63, ' '));
    EXPECT_EQ(spaces(64), std::string(63, ' '));
    EXPECT_EQ(spaces(100), std::string(63, ' '));
    EXPECT_EQ(spaces(INT_MAX), std::string(63, ' '));
}

TEST(Spaces, ReusesABufferEveryTenthCall)
{
    std::vector<char *> given;
    for (int i = 1; i <= 10; ++i)
        given.push_back(spaces(i));
    for (int i = 1; i <= 10; ++i)
        EXPECT_EQ(strlen(given[static_cast<size_t>(i - 1)]), static_cast<size_t>(i));
    EXPECT_EQ(std::set<char *>(given.begin(), given.end()).size(), 10U);
    EXPECT_EQ(spaces(3), given[0]);
}

TEST(SpacesThreads, GiveEachOfTenThreadsABufferOfItsOwn)
{
    // Ten calls from ten threads: ten buffers, none handed out twice.
    std::vector<char *> given(10);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < given.size(); ++i)
        threads.emplace_back([&given, i] { given[i] = spaces(static_cast<int>(i)); });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(std::set<char *>(given.begin(), given.end()).size(), 10U);
    for (size_t i = 0; i < given.size(); ++i)
        EXPECT_EQ(given[i], std::string(i, ' '));
}

TEST(Getaline, ReadsLinesWithoutTheirNewline)
{
    EXPECT_THAT(lines_of("one\n\ntwo\nlast", 80), ElementsAre("one", "", "two", "last"));
    EXPECT_THAT(lines_of("", 80), IsEmpty());
}

TEST(Getaline, ReadsAtMostSizeMinusTwoCharacters)
{
    EXPECT_THAT(lines_of("abcdefgh\n", 5), ElementsAre("abc", "def", "gh"));
    EXPECT_THAT(lines_of("abc\n", 5), ElementsAre("abc", ""));  // the newline is the fourth
    EXPECT_THAT(lines_of("ab", 3), ElementsAre("a", "b"));
}

TEST(Getaline, ZeroesTheLastByteAndWritesNothingBehindIt)
{
    const Stream stream = stream_of("abcdefgh\n");
    char buffer[] = "########";
    EXPECT_EQ(getaline(stream.get(), buffer, 6), buffer);
    EXPECT_EQ(std::string(buffer, 8), std::string("abcd\0\0##", 8));
}

TEST(Getaline, GivesNullWhenTheSizeLeavesRoomForNothing)
{
    for (int size : {2, 1, 0, -1, INT_MIN}) {
        const Stream stream = stream_of("abc\n");
        char buffer[] = "####";
        EXPECT_EQ(getaline(stream.get(), buffer, size), nullptr);
        EXPECT_EQ(buffer[3], '#');
    }
}

TEST(Getaline, GivesNullWithoutStreamOrBuffer)
{
    char buffer[10];
    EXPECT_EQ(getaline(nullptr, buffer, 10), nullptr);
    const Stream stream = stream_of("abc\n");
    EXPECT_EQ(getaline(stream.get(), nullptr, 10), nullptr);
}

TEST(Getaline, EndsTheTextOfALineAtAZeroByte)
{
    using namespace std::string_view_literals;
    EXPECT_THAT(lines_of("\0a\nb\0c\nd\n"sv, 80), ElementsAre("", "b", "d"));
}

TEST(Intactline, ReadsLinesOfAnyLength)
{
    for (size_t length :
         {0U, 1U, 1021U, 1022U, 1023U, 1024U, 1025U, 2046U, 2047U, 2048U, 100'000U, 5'000'000U}) {
        SCOPED_TRACE(length);
        const std::string text(length, 'x');
        const Stream stream = stream_of(text + "\nnext\n");
        Line line;
        ASSERT_EQ(intactline(stream.get(), &line.text, &line.size), line.text);
        EXPECT_TRUE(line.text == text);
        ASSERT_NE(intactline(stream.get(), &line.text, &line.size), nullptr);
        EXPECT_STREQ(line.text, "next");
        EXPECT_EQ(intactline(stream.get(), &line.text, &line.size), nullptr);
    }
}

TEST(Intactline, StartsWith1024BytesAndDoubles)
{
    const struct {
        size_t length;
        int64_t size;
    } cases[] = {{0, 1024}, {1022, 1024}, {1024, 2048}, {5000, 8192}};
    for (const auto &c : cases) {
        const Stream stream = stream_of(std::string(c.length, 'x') + "\n");
        Line line;
        intactline(stream.get(), &line.text, &line.size);
        EXPECT_EQ(line.size, c.size);
    }
}

TEST(Intactline, DoesNotLookAtABufferOfSizeZero)
{
    const Stream stream = stream_of("a\n");
    char *buffer = reinterpret_cast<char *>(8);
    int64_t size = 0;
    EXPECT_STREQ(intactline(stream.get(), &buffer, &size), "a");
    free(buffer);
}

TEST(Intactline, GrowsABufferOfOneByte)
{
    const Stream stream = stream_of("hello\n");
    Line line{static_cast<char *>(malloc(1)), 1};
    EXPECT_STREQ(intactline(stream.get(), &line.text, &line.size), "hello");
    EXPECT_EQ(line.size, 8);
}

TEST(Intactline, GivesTheLastLineWithoutNewline)
{
    for (size_t length : {1U, 1023U, 1024U, 3000U}) {
        const Stream stream = stream_of(std::string(length, 'x'));
        Line line;
        ASSERT_NE(intactline(stream.get(), &line.text, &line.size), nullptr);
        EXPECT_EQ(line.text, std::string(length, 'x'));
        EXPECT_EQ(intactline(stream.get(), &line.text, &line.size), nullptr);
    }
}

TEST(Intactline, EndsTheTextOfALineAtAZeroByteAndReadsOnBehindTheLine)
{
    const Stream stream = stream_of(std::string("a\0b", 3) + std::string(3000, 'x') + "\nnext\n");
    Line line;
    EXPECT_STREQ(intactline(stream.get(), &line.text, &line.size), "a");
    EXPECT_STREQ(intactline(stream.get(), &line.text, &line.size), "next");
}

// A stream that gives the text and then fails with the error.
Stream failing_stream(std::string_view text, int error)
{
    struct Cookie {
        std::string text;
        int error;
    };
    cookie_io_functions_t functions = {};
    functions.read = [](void *p, char *buffer, size_t size) -> ssize_t {
        auto *cookie = static_cast<Cookie *>(p);
        const size_t got = cookie->text.copy(buffer, size);
        cookie->text.erase(0, got);
        if (got == 0) {
            errno = cookie->error;
            return -1;
        }
        return static_cast<ssize_t>(got);
    };
    functions.close = [](void *p) {
        delete static_cast<Cookie *>(p);
        return 0;
    };
    return Stream(fopencookie(new Cookie{std::string(text), error}, "r", functions));
}

// A read that failed with ENOMEM used to end the process.
TEST(Intactline, AReadErrorGivesWhatWasReadAndThenNull)
{
    for (int error : {ENOMEM, EIO}) {
        const Stream stream = failing_stream("first\nrest", error);
        Line line;
        EXPECT_STREQ(intactline(stream.get(), &line.text, &line.size), "first");
        EXPECT_STREQ(intactline(stream.get(), &line.text, &line.size), "rest");
        errno = 0;
        EXPECT_EQ(intactline(stream.get(), &line.text, &line.size), nullptr);
        EXPECT_EQ(errno, error);
    }
}

TEST(Intactline, LeavesErrnoAloneUnlessReadingFails)
{
    const Stream stream = stream_of("a\n" + std::string(5000, 'x'));
    Line line;
    for (bool more = true; more;) {
        errno = EDOM;
        more = intactline(stream.get(), &line.text, &line.size) != nullptr;
        EXPECT_EQ(errno, EDOM);
    }
    const Stream failing = failing_stream("rest", EIO);
    errno = EDOM;
    EXPECT_STREQ(intactline(failing.get(), &line.text, &line.size), "rest");
    EXPECT_EQ(errno, EDOM);
}

TEST(Intactline, GivesNullWithoutStream)
{
    Line line;
    EXPECT_EQ(intactline(nullptr, &line.text, &line.size), nullptr);
}
