// The commands "stock dump" and "stock undump" as a user runs them.

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/child.h"
#include "support/temp_dir.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

Ended stock(std::vector<std::string> words, const std::string &input = {})
{
    words.insert(words.begin(), tool_path());
    return run_program(words, input);
}

// Bytes of every kind, long runs of text among them.
std::string noise(size_t n)
{
    std::string bytes;
    uint32_t state = 12345;
    while (bytes.size() < n) {
        state = state * 1664525U + 1013904223U;
        bytes += static_cast<char>(state >> 24);
        if (state >> 21 & 1)
            bytes += "text\twith\nlines\\";
    }
    bytes.resize(n);
    return bytes;
}

}  // namespace

TEST(ToolDump, PrintsAFileInHexadecimalAndText)
{
    const TempDir dir;
    const Ended ended = stock({"dump", dir.file("f", "Hello, world!\n123")});
    EXPECT_EQ(ended.out, "\t00000000  4865 6c6c 6f2c 2077 6f72 6c64 210a 3132 Hello, world!_12\n"
                         "\t00000010  33                                      3\n");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
}

TEST(ToolDump, ReadsStandardInput)
{
    const std::string line = "\t00000000  6162                                    ab\n";
    EXPECT_EQ(stock({"dump"}, "ab").out, line);
    EXPECT_EQ(stock({"dump", "-"}, "ab").out, line);
}

TEST(ToolDump, CountsFromABase)
{
    EXPECT_THAT(stock({"dump", "--base", "4096"}, "ab").out, StartsWith("\t00001000  6162 "));
    EXPECT_THAT(stock({"dump", "--base", "0x10"}, "ab").out, StartsWith("\t00000010  6162 "));
}

TEST(ToolDump, PrintsEscapedTextOnDemand)
{
    EXPECT_EQ(stock({"dump", "--ascii"}, "a\\b\001\n").out, "a\\\\b\\0x01\n");
}

TEST(ToolDump, PrintsNothingOfAnEmptyFile)
{
    for (const char *option : {"--ascii", "-"}) {
        const Ended ended = stock({"dump", option});
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.status, 0);
    }
}

TEST(ToolUndump, GivesBackTheBytesOfEitherForm)
{
    for (size_t n : {0U, 1U, 15U, 16U, 17U, 65535U, 65536U, 65537U, 1'000'003U}) {
        SCOPED_TRACE(n);
        const std::string bytes = noise(n);
        const Ended hex = stock({"undump"}, stock({"dump", "--base", "99"}, bytes).out);
        EXPECT_TRUE(hex.out == bytes);
        EXPECT_EQ(hex.err, "");
        EXPECT_EQ(hex.status, 0);
        const Ended ascii = stock({"undump", "--ascii"}, stock({"dump", "--ascii"}, bytes).out);
        EXPECT_TRUE(ascii.out == bytes);
        EXPECT_EQ(ascii.err, "");
        EXPECT_EQ(ascii.status, 0);
    }
}

TEST(ToolUndump, ReadsAFile)
{
    const TempDir dir;
    EXPECT_EQ(stock({"undump", dir.file("f", "0 4142\n")}).out, "AB");
    EXPECT_EQ(stock({"undump", "--ascii", dir.file("f", "\\0x41")}).out, "A");
}

TEST(ToolUndump, GivesBackTheBytesAtAnyAddress)
{
    const std::string bytes = noise(1000);
    for (const char *base : {"0xfffffff8", "0x100000000", "0xfedcba9876543", "0xfffffffffffffff0"})
        EXPECT_TRUE(stock({"undump"}, stock({"dump", "--base", base}, bytes).out).out == bytes)
            << base;
}

TEST(ToolUndump, GivesBackTextThatLooksLikeWords)
{
    for (const std::string bytes : {"ab", "abcd ab", "4142 4344 4546", "   ", " a ",
                                    "12 4142 43 44  ", "0000 0000 0000 00000000 00"}) {
        const Ended ended = stock({"undump"}, stock({"dump"}, bytes).out);
        EXPECT_EQ(ended.out, bytes);
        EXPECT_EQ(ended.err, "");
    }
}

TEST(ToolUndump, ReadsWhatWasWrittenByHandOrPassedThroughOtherHands)
{
    const std::string bytes =
        "north 12 mm, south 7 mm, limit 30 mm          " + std::string(20, ' ');
    const std::string dump = stock({"dump"}, bytes).out;
    const auto changed = [&](const char *command) {
        return stock({"undump"}, run_program({"/bin/sh", "-c", command}, dump).out);
    };
    for (const char *command : {"expand", "sed 's/ *$//'", "sed 's/^.//'", "cut -c1-50",
                                "sed 's/$/\r/'", "sed G", "tr a-f A-F | cut -c1-50"}) {
        SCOPED_TRACE(command);
        const Ended ended = changed(command);
        EXPECT_EQ(ended.out, bytes);
        EXPECT_EQ(ended.err, "");
        EXPECT_EQ(ended.status, 0);
    }
    EXPECT_EQ(stock({"undump"}, dump.substr(0, dump.size() - 1)).out, bytes) << "no newline";
    EXPECT_EQ(stock({"undump"}, "10 41 42\n12 4344   45\n\n15 46\n").out, "ABCDEF");
    EXPECT_EQ(stock({"undump"}, "0 41 42 43 44 45 46 47 48 ABCDEFGH\n8 49 I\n").out, "ABCDEFGHI");
}

TEST(ToolUndump, RefusesADamagedDumpAndNamesTheLine)
{
    const std::string bytes = "north 12 mm, south 7 mm, limit 30 mm\x01\x02";
    const std::string dump = stock({"dump"}, bytes).out;
    const struct {
        const char *command;
        int line;
        const char *what;
    } cases[] = {
        {"sed 2d", 2, "has another address"},
        {"sed 1,2p", 2, "has another address"},
        {"sed 's/7274/72o4/'", 1, "is no line of a dump"},
        {"sed 's/7274/727/'", 1, "is no line of a dump"},
        {"sed 's/7274/7275/'", 1, "is no line of a dump"},
        {"sed 's/ 7274//'", 1, "is no line of a dump"},
        {"sed 's/3020 6d6d/3020 6d6e/'", 3, "is no line of a dump"},
        {"sed 's/00000010/00000o10/'", 2, "is no line of a dump"},
        {"sed 's/limi/lim1/'", 2, "is no line of a dump"},
        {"sed 's/$/x/'", 1, "is no line of a dump"},
        {"head -c 130", 2, "is no line of a dump"},
        {"head -c 118", 2, "is cut"},
        {"head -c 75", 2, "is no line of a dump"},
        {"cut -c1-50 | head -c 66", 2, "is cut"},
        {"sed '2s/  [ -~]*$/  6c69/'", 2, "is cut"},
        {"tr '\\n' '\\0'", 1, "is no line of a dump"},
        {"echo hello", 1, "is no line of a dump"},
        {"echo 12", 1, "is no line of a dump"},
        {"echo 0 4142; echo 1 43", 2, "has another address"},
        {"echo 0 4142 4344 4546 4748 494a 4b4c 4d4e 4f50 5152", 1, "is no line of a dump"},
        {"echo 0 4142 hello", 1, "is no line of a dump"},
        {"printf %5000d 0", 1, "is no line of a dump"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.command);
        const std::string input = run_program({"/bin/sh", "-c", c.command}, dump).out;
        ASSERT_NE(input, dump);
        const Ended ended = stock({"undump"}, input);
        EXPECT_THAT(ended.err,
                    HasSubstr("line " + std::to_string(c.line) + " of 'standard input' " + c.what));
        EXPECT_EQ(ended.status, 1);
    }
    EXPECT_EQ(stock({"undump"}, "0 4142\n1 43\n").out, "AB") << "what was before";
}

TEST(ToolUndump, RefusesALineWhoseTextIsBlankWhereItsBytesAreNot)
{
    std::string dump = stock({"dump"}, std::string(40, ' ')).out;
    dump.replace(dump.find("2020"), 4, "2060");
    const Ended ended = stock({"undump"}, dump);
    EXPECT_THAT(ended.err, HasSubstr("line 1 of 'standard input' is no line of a dump"));
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.status, 1);
}

TEST(ToolUndump, FailsWhenTheInputGoesOnBehindWhatIsNoEscape)
{
    const Ended ascii = stock({"undump", "--ascii"}, "AB\\0xyzC");
    EXPECT_EQ(ascii.out, "AB");
    EXPECT_THAT(ascii.err, EndsWith("'standard input' is no such dump behind the first 2 bytes\n"));
    EXPECT_EQ(ascii.status, 1);
}

TEST(ToolDump, FailsWhenTheFileCannotBeRead)
{
    for (const char *command : {"dump", "undump"}) {
        const Ended missing = stock({command, "/nowhere/f"});
        EXPECT_THAT(missing.err,
                    HasSubstr("can't open '/nowhere/f'\n\tNo such file or directory\n"));
        EXPECT_EQ(missing.status, 1);
        const Ended directory = stock({command, "/"});
        EXPECT_THAT(directory.err, HasSubstr("can't read '/'\n\tIs a directory\n"));
        EXPECT_EQ(directory.status, 1);
    }
}

TEST(ToolDump, FailsWhenTheOutputIsFull)
{
    const TempDir dir;
    const std::string dump = dir.file("f", stock({"dump"}, noise(100'000)).out);
    for (const char *command : {"dump", "undump"}) {
        const Ended ended = run_program(
            {"/bin/sh", "-c",
             shell_word(tool_path()) + " " + command + " " + shell_word(dump) + " >/dev/full"});
        EXPECT_THAT(ended.err, HasSubstr("can't write to standard output\n"));
        EXPECT_EQ(ended.status, 1);
    }
}

TEST(ToolDump, RefusesWrongWords)
{
    const struct {
        std::vector<std::string> words;
        const char *text;
    } cases[] = {
        {{"dump", "--what"}, "stock dump: no option '--what'\n"},
        {{"dump", "--base"}, "stock dump: --base needs a number\n"},
        {{"dump", "--base", "x"}, "stock dump: --base needs a number\n"},
        {{"dump", "--base", "1x"}, "stock dump: --base needs a number\n"},
        {{"dump", "--base", "-1"}, "stock dump: --base needs a number\n"},
        {{"dump", "--base", "99999999999999999999"}, "stock dump: --base needs a number\n"},
        {{"dump", "a", "b"}, "stock dump: one file at a time\n"},
        {{"undump", "--base", "1"}, "stock undump: no option '--base'\n"},
        {{"undump", "a", "b"}, "stock undump: one file at a time\n"},
    };
    for (const auto &c : cases) {
        const Ended ended = stock(c.words);
        EXPECT_THAT(ended.err, HasSubstr(c.text));
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.status, 2);
    }
}

TEST(ToolDump, TakesAFileThatLooksLikeAnOptionBehindTwoDashes)
{
    const TempDir dir;
    dir.file("--ascii", "ab");
    const Ended ended = run_program(
        {"/bin/sh", "-c",
         "cd " + shell_word(dir.path()) + " && " + shell_word(tool_path()) + " dump -- --ascii"});
    EXPECT_THAT(ended.out, StartsWith("\t00000000  6162 "));
}

TEST(ToolDump, SaysHowItIsUsed)
{
    const Ended dump = stock({"dump", "--help"});
    EXPECT_THAT(dump.out, StartsWith("usage: stock dump [--ascii] [--base NUMBER] [FILE]\n\n"));
    EXPECT_EQ(dump.status, 0);
    const Ended undump = stock({"undump", "--help"});
    EXPECT_THAT(undump.out, StartsWith("usage: stock undump [--ascii] [FILE]\n\n"));
    EXPECT_EQ(undump.status, 0);
}
