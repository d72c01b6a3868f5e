// Memory as hexadecimal and text, and back.

#include "stock/hexdump.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <map>
#include <numeric>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "deviants.h"
#include "stock/elog.h"
#include "support/child.h"
#include "support/owners.h"
#include "support/printed.h"
#include "support/temp_dir.h"

using namespace std::string_view_literals;

namespace {

void *bad_memory = nullptr;  // what nomem answers
thread_local const void *asked_for = nullptr;
thread_local int asked_bytes = -1;

std::string dumped(std::string_view bytes, unsigned long base = 0)
{
    return printed(
        [=](FILE *stream) { Hexdump(stream, base, bytes.data(), static_cast<int>(bytes.size())); });
}

std::string dumped_to_string(std::string_view bytes, unsigned long base = 0)
{
    return Text(hexdump_string(base, bytes.data(), static_cast<int>(bytes.size()))).get();
}

// The bytes that read_hexdump reads from the text into a buffer of n bytes.
std::string read_back(std::string_view text, int n)
{
    const Stream stream = stream_of(text);
    std::vector<unsigned char> buffer(static_cast<size_t>(n));
    const int count = read_hexdump(stream.get(), buffer.data(), n);
    EXPECT_LE(count, n);
    return {buffer.begin(), buffer.begin() + count};
}

std::string all_bytes()
{
    std::string bytes(256, 0);
    std::iota(bytes.begin(), bytes.end(), 0);
    return bytes;
}

std::string compared(const char *title, const std::string &a, const std::string &b)
{
    return printed([&](FILE *stream) {
        prthexcmp(stream, title, reinterpret_cast<const unsigned char *>(a.data()),
                  reinterpret_cast<const unsigned char *>(b.data()), static_cast<int>(a.size()));
    });
}

std::string address_of(const char *format, const void *p)
{
    char text[64];
    snprintf(text, sizeof text, format, p);
    return text;
}

std::string memory_message(const void *p)
{
    char text[64];
    snprintf(text, sizeof text, "no memory at %lx\n",
             static_cast<unsigned long>(reinterpret_cast<uintptr_t>(p)));
    return text;
}

}  // namespace

// Replaces the library's own, which is a weak symbol.
extern "C" void *nomem(const void *address, int n)
{
    asked_for = address;
    asked_bytes = n;
    return bad_memory;
}

TEST(Hexdump, PrintsAddressBytesAndText)
{
    EXPECT_EQ(dumped("0123456789abcdef"),
              "\t00000000  3031 3233 3435 3637 3839 6162 6364 6566 0123456789abcdef\n");
}

TEST(Hexdump, PadsAShortLineOfEveryLength)
{
    const struct {
        const char *bytes, *line;
    } cases[] = {
        {"H", "\t00000000  48                                      H\n"},
        {"He", "\t00000000  4865                                    He\n"},
        {"Hel", "\t00000000  4865 6c                                 Hel\n"},
        {"Hello", "\t00000000  4865 6c6c 6f                            Hello\n"},
        {"0123456789abcd", "\t00000000  3031 3233 3435 3637 3839 6162 6364      0123456789abcd\n"},
        {"0123456789abcde",
         "\t00000000  3031 3233 3435 3637 3839 6162 6364 65   0123456789abcde\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.bytes);
        EXPECT_EQ(dumped(c.bytes), c.line);
    }
}

TEST(Hexdump, ShowsUnprintableBytesAsUnderscores)
{
    EXPECT_EQ(dumped("\x00\x1f\x20\x7e\x7f\x80\xff\n\t\\_"sv),
              "\t00000000  001f 207e 7f80 ff0a 095c 5f             __ ~_____\\_\n");
}

TEST(Hexdump, CountsAddressesFromTheBase)
{
    const std::string bytes(33, 'x');
    EXPECT_EQ(dumped(bytes, 4096),
              "\t00001000  7878 7878 7878 7878 7878 7878 7878 7878 xxxxxxxxxxxxxxxx\n"
              "\t00001010  7878 7878 7878 7878 7878 7878 7878 7878 xxxxxxxxxxxxxxxx\n"
              "\t00001020  78                                      x\n");
}

TEST(Hexdump, WidensAddressesBeyondEightDigits)
{
    for (unsigned long base : {0UL, 1UL, 0xfUL, 0xffffffffUL, 0x100000000UL, 0xfffffffffUL,
                               0x1000000000UL, 0x123456789abUL, 0x0123456789abcdefUL, ULONG_MAX}) {
        char line[64];
        snprintf(line, sizeof line, "\t%08lx  61                                      a\n", base);
        EXPECT_EQ(dumped("a", base), line);
    }
}

TEST(Hexdump, PrintsJustANewlineForNoBytes)
{
    for (int n : {0, -1, INT_MIN}) {
        EXPECT_EQ(printed([=](FILE *stream) { Hexdump(stream, 7, "x", n); }), "\n");
        EXPECT_EQ(printed([=](FILE *stream) { Hexdump(stream, 7, nullptr, n); }), "\n");
    }
}

TEST(Hexdump, IsTheSameFromBaseZero)
{
    EXPECT_EQ(printed([](FILE *stream) { hexdump(stream, "Hello", 5); }),
              "\t00000000  4865 6c6c 6f                            Hello\n");
    EXPECT_EQ(printed([](FILE *stream) { hexdump(stream, "Hello", 0); }), "\n");
}

TEST(Hexdump, FormatsEveryByteOfLargeBlocksAsPrintfDoes)
{
    std::string bytes, expected;
    for (size_t i = 0; i < 100'003; ++i)
        bytes += static_cast<char>(i * 31 % 257);
    for (size_t line = 0; line < bytes.size(); line += 16) {
        char word[64];
        snprintf(word, sizeof word, "\t%08zx  ", line + 5);
        std::string digits, text;
        for (size_t i = line; i < std::min(line + 16, bytes.size()); ++i) {
            const auto byte = static_cast<unsigned char>(bytes[i]);
            char pair[8];
            snprintf(pair, sizeof pair, "%s%02x", i > line && i % 2 == 0 ? " " : "", byte);
            digits += pair;
            text += byte >= 32 && byte <= 126 ? bytes[i] : '_';
        }
        digits.resize(39, ' ');
        expected += word + digits + " " + text + "\n";
    }
    EXPECT_TRUE(dumped(bytes, 5) == expected);
    EXPECT_TRUE(dumped_to_string(bytes, 5) == expected);
}

TEST(HexdumpString, IsTheSameDumpAsAString)
{
    EXPECT_EQ(dumped_to_string("Hello", 16),
              "\t00000010  4865 6c6c 6f                            Hello\n");
    EXPECT_EQ(dumped_to_string(all_bytes()), dumped(all_bytes()));
}

TEST(HexdumpString, IsEmptyForNoBytes)
{
    EXPECT_EQ(dumped_to_string(""), "");
    EXPECT_STREQ(Text(hexdump_string(0, "x", -1)).get(), "");
}

TEST(Nomem, IsAskedBeforeMemoryIsTouched)
{
    const char bytes[] = "ab";
    printed([&](FILE *stream) { hexdump(stream, bytes, 2); });
    EXPECT_EQ(asked_for, bytes);
    EXPECT_EQ(asked_bytes, 2);
    Text(hexdump_string(0, bytes + 1, 1));
    EXPECT_EQ(asked_for, bytes + 1);
    EXPECT_EQ(asked_bytes, 1);
}

TEST(Nomem, KeepsTheDumpAwayFromMemoryThatItRefuses)
{
    const auto bad = reinterpret_cast<const void *>(0x1000);
    const Ended ended = in_child([=] {
        bad_memory = reinterpret_cast<void *>(0x1008);
        errno = EFAULT;
        Hexdump(stdout, 0, bad, 32);
        fputs(Text(hexdump_string(0, bad, 32)).get(), stdout);
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, "no memory at 0x1000\nno memory at 1000\n");
    EXPECT_THAT(ended.err, testing::HasSubstr("nomem returns 0x1008 for 32 bytes at 0x1000\n"));
    EXPECT_THAT(ended.err, testing::HasSubstr("Bad address"));
}

TEST(Nomem, NeedNotBeAskedAboutNull)
{
    const Ended ended = in_child([] {
        Hexdump(stdout, 0, nullptr, 5);
        fputs(Text(hexdump_string(0, nullptr, 5)).get(), stdout);
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, address_of("no memory at %p\n", nullptr) + memory_message(nullptr));
    EXPECT_THAT(ended.err,
                testing::HasSubstr(address_of("nomem returns %p for 5 bytes at ", nullptr)));
}

TEST(ReadHexdump, ReadsWhatWasDumped)
{
    for (size_t n = 0; n <= 256; ++n) {
        const std::string bytes = all_bytes().substr(256 - n);
        EXPECT_EQ(read_back(dumped(bytes), static_cast<int>(n)), bytes);
        EXPECT_EQ(read_back(dumped(bytes), 1000), bytes);
    }
}

TEST(ReadHexdump, ReadsNoTextThatLooksLikeDigits)
{
    for (const char *text :
         {"a", "ab", "abc", "abcd", "abcde", "abcd abcd abcd ", "   abcd", "  12", "f f f f f f f"})
        EXPECT_EQ(read_back(dumped(text), 1000), text);
}

TEST(ReadHexdump, ReadsNoTextBehindALongAddress)
{
    EXPECT_EQ(read_back(dumped("abcd", 0x123456789abUL), 1000), "abcd");
}

// Words that stood far apart used to be taken for the text of a short line.
TEST(ReadHexdump, TakesWordsHoweverFarApartTheyStand)
{
    const std::string gap(60, ' ');
    EXPECT_EQ(read_back("0 4142" + gap + "4344\n", 100), "ABCD");
    EXPECT_EQ(read_back("0" + gap + "4142\t\t" + gap + "4344 45" + gap + "46\n", 100), "ABCDEF");
    EXPECT_EQ(read_back("0 41 42 43 44 45 46 47" + gap + "48\n1 4b\n", 100), "ABCDEFGHK");
    EXPECT_EQ(read_back("0 4142" + gap + "AB\n", 100), "AB\xab");
}

TEST(ReadHexdump, TellsTheTextOfAShortLineByItsColumnAndItsCharacters)
{
    const std::string line = dumped("abcd ef");
    const size_t text = line.find("abcd ef");
    EXPECT_EQ(read_back(line, 100), "abcd ef");
    EXPECT_EQ(read_back(line.substr(0, text) + "abcd  f\n", 100), "abcd ef\xab\xcd");
    EXPECT_EQ(read_back(line.substr(0, text) + " abcd ef\n", 100), "abcd ef\xab\xcd\xef");
    std::string blank_behind = dumped("beef  ");
    blank_behind.erase(blank_behind.find_last_not_of(" \n") + 1);
    EXPECT_EQ(read_back(blank_behind, 100), "beef  ");
}

TEST(ReadHexdump, TakesTheFirstWordForTheAddressWhereverItStands)
{
    EXPECT_EQ(read_back("\t  3031 3233 3435 3637 3839 3a3b 3c3d 3e3f 40\n", 100),
              "23456789:;<=>?@");
}

TEST(ReadHexdump, StopsAfterNBytes)
{
    const std::string text = dumped(all_bytes());
    for (int n : {0, 1, 2, 3, 15, 16, 17, 255})
        EXPECT_EQ(read_back(text, n), all_bytes().substr(0, static_cast<size_t>(n)));
    EXPECT_EQ(read_hexdump(stream_of(text).get(), nullptr, -1), 0);
}

TEST(ReadHexdump, GoesOnWithTheNextLineInTheNextCall)
{
    const Stream stream = stream_of(dumped(all_bytes()));
    unsigned char buffer[32];
    for (size_t at = 0; at < 256; at += 32) {
        EXPECT_EQ(read_hexdump(stream.get(), buffer, 32), 32);
        EXPECT_EQ(std::string(buffer, buffer + 32), all_bytes().substr(at, 32));
    }
    EXPECT_EQ(read_hexdump(stream.get(), buffer, 32), 0);
}

TEST(ReadHexdump, TakesWordsByTheirLength)
{
    const struct {
        const char *line, *bytes;
    } cases[] = {
        {"0 4142 4344\n", "ABCD"}, {"0 41 4243\n", "ABC"},      {"0 414 42\n", "AB"},
        {"0 41424 43\n", "AC"},    {"0 4142434445 46\n", "AF"}, {"0\t4142\t4344", "ABCD"},
        {"0 6A6b 6C\n", "jkl"},    {"anything 41\n", "A"},      {"  0   41  \n", "A"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        EXPECT_EQ(read_back(c.line, 100), c.bytes);
    }
}

TEST(ReadHexdump, TakesEightWordsBehindTheAddress)
{
    EXPECT_EQ(read_back("0 41 42 43 44 45 46 47 48 49 4a\n1 4b\n", 100), "ABCDEFGHK");
    EXPECT_EQ(
        read_back("0 41------ 42------ 43------ 44------ 45------ 46------ 47------ 48\n1 4b\n",
                  100),
        "ABCDEFGHK");
}

TEST(ReadHexdump, ReadsLinesThatAreAlmostFullAndRegularWordByWord)
{
    const std::string full = "\t00000000  3031 3233 3435 3637 3839 6162 6364 6566 text\n";
    const std::string next = "0 5a\n";
    EXPECT_EQ(read_back(full + next, 100), "0123456789abcdefZ");
    for (size_t at = 0; at + 1 < full.size(); ++at) {
        SCOPED_TRACE(at);
        std::string line = full;
        line[at] = 'x';
        const std::string with_x = read_back(line + next, 100);
        line[0] = ' ';  // no longer regular
        EXPECT_EQ(with_x, read_back(line + next, 100));
    }
    EXPECT_EQ(read_back("\tab\tcd  3031 3233 3435 3637 3839 6162 6364 6566\n" + next, 100),
              "\xcd"
              "0123456789abcdZ");
}

TEST(ReadHexdump, StopsBehindALineWithFewerWords)
{
    EXPECT_EQ(read_back("0 41 42 43 44 45 46 47\n1 4b\n", 100), "ABCDEFG");
    EXPECT_EQ(read_back("\n0 41\n", 100), "");
    EXPECT_EQ(read_back("00000000\n0 41\n", 100), "");
}

TEST(ReadHexdump, StopsAtAWordThatShowsNoByte)
{
    EXPECT_EQ(read_back("0 41 4 43\n", 100), "A");
    EXPECT_EQ(read_back("0 41 x2 43\n", 100), "A");
    EXPECT_EQ(read_back("0 41 2x 43\n", 100), "A");
    EXPECT_EQ(read_back("no memory at 1000\n", 100), "");
}

TEST(ReadHexdump, TakesOneByteOfFourCharactersThatEndOtherwise)
{
    EXPECT_EQ(read_back("0 41x2 43\n", 100), "AC");
    EXPECT_EQ(read_back("0 412x 43\n", 100), "AC");
}

TEST(ReadHexdump, SurvivesRubbish)
{
    EXPECT_EQ(read_back("", 100), "");
    EXPECT_EQ(read_back("\0\0\0 41 42\n"sv, 100), "");
    EXPECT_EQ(read_back("\xff\xfe \xff\xff\n"sv, 100), "");
    EXPECT_EQ(read_back(all_bytes(), 100), "");
    EXPECT_EQ(read_back(std::string(100'000, 'a'), 100), "");
    EXPECT_EQ(read_back("0 " + std::string(100'000, '4'), 100), "D");
}

TEST(ReadHexdump, LooksAtTheFirst1024CharactersOfALine)
{
    const std::string tail = "\n0 42\n";
    EXPECT_EQ(read_back(std::string(1021, '0') + " 41" + tail, 100), "A");
    EXPECT_EQ(read_back(std::string(1022, '0') + " 41" + tail, 100), "");
    const std::string eight = " 41 42 43 44 45 46 47 48";
    EXPECT_EQ(read_back("0" + eight + std::string(100'000, ' ') + "50" + tail, 100), "ABCDEFGHB");
    for (size_t blanks : {998U, 999U, 1000U})
        EXPECT_EQ(read_back("0" + eight + std::string(blanks, ' ') + tail, 100), "ABCDEFGHB");
}

TEST(Hex2int, GivesTheValueOfADigit)
{
    for (int ch = -300; ch <= 600; ++ch) {
        const char *digits = "0123456789abcdef";
        const char *found =
            ch > 0 && ch < 128 ? strchr(digits, ch >= 'A' && ch <= 'Z' ? ch + 32 : ch) : nullptr;
        EXPECT_EQ(hex2int(ch), found ? found - digits : -1) << ch;
    }
}

TEST(Prthexcmp, PrintsTheLinesThatDiffer)
{
    const std::string a = "0123456789abcdef0123456789abcdef0123";
    std::string b = a;
    b[17] = 'x';
    b[35] = 'y';
    EXPECT_EQ(compared("Title", a, b),
              "\nTitle\n"
              "a> \t00000010  3031 3233 3435 3637 3839 6162 6364 6566 0123456789abcdef\n"
              "b> \t00000010  3078 3233 3435 3637 3839 6162 6364 6566 0x23456789abcdef\n"
              "\n"
              "a> \t00000020  3031 3233                               0123\n"
              "b> \t00000020  3031 3279                               012y\n"
              "\n");
}

TEST(Prthexcmp, PrintsTheTitleAloneForEqualBuffers)
{
    EXPECT_EQ(compared("Title", "abc", "abc"), "\nTitle\n");
    EXPECT_EQ(compared(nullptr, "abc", "abc"), "");
}

TEST(Prthexcmp, GivesTheBytesRoundedUpToLines)
{
    const unsigned char bytes[64] = {};
    const struct {
        int n, result;
    } cases[] = {{0, 0}, {-5, 0}, {INT_MIN, 0}, {1, 16}, {15, 16}, {16, 16}, {17, 32}, {64, 64}};
    for (const auto &c : cases)
        EXPECT_EQ(prthexcmp(stdout, nullptr, bytes, bytes, c.n), c.result);
}

TEST(Prthexcmp, DoesNotTouchMemoryThatCannotBeRead)
{
    const Ended ended = in_child([] {
        const unsigned char bytes[] = "ab";
        prthexcmp(stdout, nullptr, nullptr, bytes, 2);
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, "a> " + address_of("no memory at %p\n", nullptr) +
                             "b> \t00000000  6162                                    ab\n\n");
}

TEST(HexdumpThreads, TwoThatDumpToOneStreamKeepTheirLinesWhole)
{
    constexpr int kDumps = 200;
    const std::string north(64, 'n'), south(64, 's');
    const TempDir dir;
    const Stream stream(std::fopen((dir / "dump").c_str(), "w"));
    const auto dump = [&](const std::string &bytes) {
        for (int i = 0; i < kDumps; ++i)
            Hexdump(stream.get(), 0, bytes.data(), static_cast<int>(bytes.size()));
    };
    std::thread other(dump, north);
    dump(south);
    other.join();
    std::fflush(stream.get());
    const std::string text = read_file(dir / "dump");
    std::map<std::string, int> lines, expected;
    const auto count = [](std::map<std::string, int> &into, const std::string &all, int times) {
        std::istringstream in(all);
        for (std::string line; std::getline(in, line);)
            into[line] += times;
    };
    count(lines, text, 1);
    count(expected, dumped(north), kDumps);
    count(expected, dumped(south), kDumps);
    EXPECT_EQ(lines, expected);
}
