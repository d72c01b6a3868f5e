// Bytes as text that can be read back.

#include "stock/asciidump.h"

#include <climits>
#include <cstdint>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "deviants.h"
#include "support/child.h"
#include "support/printed.h"

using namespace std::string_view_literals;

namespace {

void *bad_memory = nullptr;  // what nomem answers

std::string dumped(std::string_view bytes)
{
    return printed([=](FILE *stream) {
        const int n = asciidump(stream, bytes.data(), static_cast<int>(bytes.size()));
        EXPECT_EQ(n, ftell(stream));
    });
}

std::string read_back(std::string_view text, int n)
{
    const Stream stream = stream_of(text);
    std::vector<unsigned char> buffer(static_cast<size_t>(n));
    const int count = read_asciidump(stream.get(), buffer.data(), n);
    EXPECT_LE(count, n);
    return {buffer.begin(), buffer.begin() + count};
}

std::string as_string(std::string_view bytes, int size)
{
    std::string buffer(static_cast<size_t>(size) + 2, '#');
    EXPECT_EQ(printable_string(buffer.data(), size, bytes.data(), static_cast<int>(bytes.size())),
              buffer.data());
    EXPECT_EQ(buffer.substr(static_cast<size_t>(size)),
              "##");  // nothing is written behind the buffer
    return buffer.c_str();
}

std::string shown(const char *name, const char *comment, std::string_view bytes)
{
    return printed([=](FILE *stream) {
        Xchardump(stream, name, comment, bytes.data(), static_cast<int>(bytes.size()));
    });
}

std::string noise(size_t n, unsigned seed)
{
    std::string bytes(n, 0);
    for (char &c : bytes) {
        seed = seed * 1664525U + 1013904223U;
        c = static_cast<char>(seed >> 24);
        if (seed >> 28 & 1)
            c = "\n\t\\a"[seed >> 20 & 3];
    }
    return bytes;
}

}  // namespace

// Replaces the library's own, which is a weak symbol.
extern "C" void *nomem(const void *, int)
{
    return bad_memory;
}

TEST(Asciidump, PrintsPrintableBytesAsThemselves)
{
    EXPECT_EQ(dumped(" abc~"), " abc~");
}

TEST(Asciidump, EscapesOtherBytesAndDoublesBackslashes)
{
    EXPECT_EQ(dumped("\001\\"), "\\0x01\\\\");
    EXPECT_EQ(dumped("\0\x1f\x7f\x80\xff\r"sv), "\\0x00\\0x1f\\0x7f\\0x80\\0xff\\0x0d");
}

TEST(Asciidump, LeavesTabsAndNewlines)
{
    EXPECT_EQ(dumped("a\tb\nc"), "a\tb\nc");
}

TEST(Asciidump, PrintsJustANewlineForNoBytes)
{
    EXPECT_EQ(dumped(""), "\n");
    EXPECT_EQ(printed([](FILE *stream) { EXPECT_EQ(asciidump(stream, nullptr, -1), 1); }), "\n");
}

TEST(Asciidump, InsertsANewlineAfter80Columns)
{
    EXPECT_EQ(dumped(std::string(79, 'x')), std::string(79, 'x'));
    EXPECT_EQ(dumped(std::string(80, 'x')), std::string(80, 'x') + "\n");
    EXPECT_EQ(dumped(std::string(161, 'x')),
              std::string(80, 'x') + "\n" + std::string(80, 'x') + "\nx");
    EXPECT_EQ(dumped(std::string(79, 'x') + "\nab"), std::string(79, 'x') + "\nab");
    EXPECT_EQ(dumped(std::string(80, 'x') + "\nab"), std::string(80, 'x') + "\n\nab");
}

TEST(Asciidump, CountsTabsOneBackslashesTwoAndEscapesFive)
{
    EXPECT_EQ(dumped(std::string(79, 'x') + "\ty"), std::string(79, 'x') + "\t\ny");
    EXPECT_EQ(dumped(std::string(78, 'x') + "\\y"), std::string(78, 'x') + "\\\\\ny");
    EXPECT_EQ(dumped(std::string(79, 'x') + "\\y"), std::string(79, 'x') + "\\\\\ny");
    EXPECT_EQ(dumped(std::string(75, 'x') + "\001y"), std::string(75, 'x') + "\\0x01\ny");
    EXPECT_EQ(dumped(std::string(74, 'x') + "\001y"), std::string(74, 'x') + "\\0x01y\n");
    EXPECT_EQ(dumped(std::string(79, 'x') + "\001y"), std::string(79, 'x') + "\\0x01\ny");
}

TEST(Asciidump, StartsTheColumnsAnewBehindANewline)
{
    const std::string text = std::string(40, 'x') + "\n" + std::string(79, 'y') + "z!";
    EXPECT_EQ(dumped(text), std::string(40, 'x') + "\n" + std::string(79, 'y') + "z\n!");
}

TEST(AsciidumpPiece, GoesOnWhereTheLastPieceEnded)
{
    const std::string bytes = noise(5000, 1);
    for (int size : {1, 7, 80, 1000}) {
        const std::string pieces = printed([&](FILE *stream) {
            int column = 0;
            for (size_t at = 0; at < bytes.size(); at += static_cast<size_t>(size))
                asciidump_piece(stream, bytes.data() + at,
                                std::min(size, static_cast<int>(bytes.size() - at)), &column);
            EXPECT_EQ(asciidump_piece(stream, nullptr, 0, &column), 0);
        });
        EXPECT_TRUE(pieces == dumped(bytes));
    }
}

TEST(ReadAsciidump, ReadsWhatWasDumped)
{
    std::string all(256, 0);
    std::iota(all.begin(), all.end(), 0);
    EXPECT_EQ(read_back(dumped(all), 256), all);
    EXPECT_EQ(read_back(dumped(all), 1000), all);
    for (unsigned seed = 0; seed < 50; ++seed) {
        const std::string bytes = noise(2000 + seed, seed);
        EXPECT_TRUE(read_back(dumped(bytes), 3000) == bytes);
    }
    const std::string large = noise(200'000, 3);
    EXPECT_TRUE(read_back(dumped(large), 300'000) == large);
}

TEST(ReadAsciidump, ReadsBackLinesOfEveryLengthAround80)
{
    for (size_t n = 70; n < 90; ++n)
        for (const char *end : {"", "\n", "\n\n", "\\", "\001", "\t", "\\\n", "\001\n", "\t\n"}) {
            const std::string bytes = std::string(n, 'x') + end + std::string(90, 'y');
            EXPECT_EQ(read_back(dumped(bytes), 1000), bytes);
        }
}

TEST(ReadAsciidump, StopsAfterNBytes)
{
    EXPECT_EQ(read_back("abcdef", 3), "abc");
    EXPECT_EQ(read_back("abcdef", 0), "");
    EXPECT_EQ(read_asciidump(stream_of("abc").get(), nullptr, -1), 0);
}

TEST(ReadAsciidump, TakesTheLastTwoOfFourCharactersBehindABackslash)
{
    EXPECT_EQ(read_back("\\0x41\\0X42\\1234", 100), "AB4");
    EXPECT_EQ(read_back("\\\\\\\\", 100), "\\\\");
    EXPECT_EQ(read_back("\\0xfF", 100), "\xff");
}

TEST(ReadAsciidump, DropsTheCharacterBehind80ColumnsWhateverItIs)
{
    EXPECT_EQ(read_back(std::string(80, 'x') + "\ny", 100), std::string(80, 'x') + "y");
    EXPECT_EQ(read_back(std::string(80, 'x') + "?y", 100), std::string(80, 'x') + "y");
    EXPECT_EQ(read_back(std::string(80, 'x'), 100), std::string(80, 'x'));
}

TEST(ReadAsciidump, StopsInsideAnEscapeAtTheEnd)
{
    for (const char *end : {"\\", "\\0", "\\0x", "\\0x4"})
        EXPECT_EQ(read_back(std::string("ab") + end, 100), "ab") << end;
}

TEST(ReadAsciidump, StopsAtAnEscapeWithoutDigits)
{
    EXPECT_EQ(read_back("ab\\0xg1cd", 100), "ab");
    EXPECT_EQ(read_back("ab\\0x1gcd", 100), "ab");
    EXPECT_EQ(read_back("ab\\nnnncd", 100), "ab");
}

TEST(ReadAsciidump, SurvivesRubbish)
{
    EXPECT_EQ(read_back("", 100), "");
    EXPECT_EQ(read_back("a\0b\xff"sv, 100), "a\0b\xff"sv);
    EXPECT_EQ(read_back(std::string(100'000, '\\'), 100'000), std::string(49'383, '\\'));
    EXPECT_EQ(read_back(std::string(100'000, 'x'), 100'000).size(), 98'766U);  // one in 81 dropped
}

TEST(ReadAsciidumpPiece, GoesOnWhereTheLastPieceEnded)
{
    const std::string bytes = noise(5000, 2);
    for (int size : {1, 7, 80, 1000}) {
        const Stream stream = stream_of(dumped(bytes));
        std::vector<unsigned char> buffer(static_cast<size_t>(size));
        std::string result;
        int column = 0;
        for (int got = size; got == size;) {
            got = read_asciidump_piece(stream.get(), buffer.data(), size, &column);
            result.append(buffer.begin(), buffer.begin() + got);
        }
        EXPECT_TRUE(result == bytes);
    }
}

TEST(PrintableString, EscapesIntoTheBuffer)
{
    EXPECT_EQ(as_string("abc", 80), "abc");
    EXPECT_EQ(as_string("a\nb\\c\td\001", 80), "a\\nb\\\\c\\0x09d\\0x01");
    EXPECT_EQ(as_string(" ~\x7f\xff\0"sv, 80), " ~\\0x7f\\0xff\\0x00");
}

TEST(PrintableString, StopsAfter3CharactersWithSize8)
{
    EXPECT_EQ(as_string("abcdefgh", 8), "abc");
    EXPECT_EQ(as_string("ab\001cd", 8), "ab\\0x01");
    EXPECT_EQ(as_string("ab\\cd", 8), "ab\\\\");
    EXPECT_EQ(as_string("\001\002\003", 8), "\\0x01");
    EXPECT_EQ(as_string("abc\001", 8), "abc");
}

TEST(PrintableString, IsEmptyInABufferOf1To5Bytes)
{
    for (int size : {1, 2, 5})
        EXPECT_EQ(as_string("abc", size), "");
    EXPECT_EQ(as_string("abc", 6), "a");
}

TEST(PrintableString, IsANewlineForNoBytes)
{
    EXPECT_EQ(as_string("", 80), "\n");
    EXPECT_EQ(as_string("", 2), "\n");
    EXPECT_EQ(as_string("", 1), "");
}

TEST(PrintableString, LeavesABufferOfNoBytesAlone)
{
    for (int size : {0, -1, INT_MIN}) {
        char buffer[] = "##";
        EXPECT_EQ(printable_string(buffer, size, "abc", 3), buffer);
        EXPECT_EQ(printable_string(buffer, size, "abc", 0), buffer);
        EXPECT_STREQ(buffer, "##");
    }
}

TEST(Nomem, KeepsTheDumpsAwayFromMemoryThatItRefuses)
{
    const Ended ended = in_child([] {
        bad_memory = &bad_memory;
        const auto *bad = reinterpret_cast<const char *>(0x1000);
        asciidump(stdout, bad, 32);
        Xchardump(stdout, "name", "comment", bad, 32);
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, "no memory at 1000\nname (32 bytes) # comment\nno memory at 0x1000\n");
}

TEST(Nomem, MakesPrintableStringSayAsMuchAsFits)
{
    bad_memory = &bad_memory;
    const auto *bad = reinterpret_cast<const char *>(0x1000);
    const struct {
        int size;
        const char *text;
    } cases[] = {{80, "no memory at 1000\n"},
                 {26, "no memory at 1000\n"},
                 {25, "?"},
                 {3, "?"},
                 {2, "##"},
                 {0, "##"}};
    for (const auto &c : cases) {
        char buffer[81] = "##";
        EXPECT_EQ(printable_string(buffer, c.size, bad, 5), buffer);
        EXPECT_STREQ(buffer, c.text);
    }
    bad_memory = nullptr;
}

TEST(Nomem, CutsALongAddressToTheBufferOf26Bytes)
{
    bad_memory = &bad_memory;
    const auto *bad = reinterpret_cast<const char *>(0x7ffff1234567);
    char buffer[32];
    memset(buffer, '#', sizeof buffer);
    printable_string(buffer, 26, bad, 5);
    EXPECT_EQ(std::string(buffer, 28), "no memory at 7ffff1234567\0##"sv);
    bad_memory = nullptr;
}

TEST(Nomem, NeedNotBeAskedAboutNull)
{
    EXPECT_EQ(printed([](FILE *stream) { EXPECT_EQ(asciidump(stream, nullptr, 5), 15); }),
              "no memory at 0\n");
    char buffer[40];
    EXPECT_STREQ(printable_string(buffer, 40, nullptr, 5), "no memory at 0\n");
}

TEST(Printable, IsTwoWhenAllBytesArePrintable)
{
    EXPECT_EQ(printable("abc", 3), 2);
    EXPECT_EQ(printable(" ~", 2), 2);
    EXPECT_EQ(printable("", 0), 2);
    EXPECT_EQ(printable(nullptr, 0), 2);
    EXPECT_EQ(printable("ab\001", 2), 2);
}

TEST(Printable, IsOneWhenTheFirstOtherByteIsZero)
{
    EXPECT_EQ(printable("ab\0", 3), 1);
    EXPECT_EQ(printable("ab\0\001", 4), 1);
    EXPECT_EQ(printable("", 1), 1);
}

TEST(Printable, IsZeroOtherwise)
{
    EXPECT_EQ(printable("a\001", 2), 0);
    EXPECT_EQ(printable("a\001\0", 3), 0);
    EXPECT_EQ(printable("a\x7f", 2), 0);
    EXPECT_EQ(printable("a\xff", 2), 0);
    EXPECT_EQ(printable("a\n", 2), 0);
    EXPECT_EQ(printable(nullptr, 3), 0);
}

TEST(PrintableChar, IsTheCharacterOrItsEscape)
{
    const struct {
        int ch;
        const char *text;
    } cases[] = {
        {'a', "a"},
        {' ', " "},
        {'~', "~"},
        {'\\', "\\"},
        {'\n', "\n"},
        {'\t', "\t"},
        {'\r', "\r"},
        {0, "\\0x00"},
        {31, "\\0x1f"},
        {127, "\\0x7f"},
        {255, "\\0xff"},
        {-1, "\\0xff"},
        {256 + 'a', "\\0x61"},
        {INT_MAX, "\\0xff"},
        {INT_MIN, "\\0x00"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.ch);
        char buffer[PRINTABLE_CHAR_SIZE + 1] = "######";
        EXPECT_EQ(printable_char(c.ch, buffer), buffer);
        EXPECT_STREQ(buffer, c.text);
    }
}

TEST(Xchardump, ShowsPrintableBytesAsText)
{
    EXPECT_EQ(shown("name", "comment", "abc"), "name = 'abc' comment\n");
    EXPECT_EQ(shown("name", "comment", "ab\0\001\002"sv), "name = 'ab' comment\n");
    EXPECT_EQ(shown("name", "", ""), "name = '' \n");
    EXPECT_EQ(shown("100%s", "%d", "%n"), "100%s = '%n' %d\n");
}

TEST(Xchardump, ShowsOtherBytesAsADump)
{
    EXPECT_EQ(shown("name", "comment", "a\001"),
              "name (2 bytes) # comment\n\t00000000  6101                                    a_\n");
}

TEST(Xchardump, TakesNullNamesAndCommentsForEmpty)
{
    EXPECT_EQ(shown(nullptr, nullptr, "abc"), " = 'abc' \n");
    EXPECT_EQ(printed([](FILE *stream) { Xchardump(stream, "n", "c", nullptr, 0); }), "n = '' c\n");
    EXPECT_EQ(printed([](FILE *stream) { Xchardump(stream, "n", "c", "x", -3); }), "n = '' c\n");
}
