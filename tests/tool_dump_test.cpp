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

TEST(ToolUndump, FailsWhenTheInputGoesOnBehindWhatIsNoDump)
{
    const Ended hex = stock({"undump"}, "0 4142\n1 43\n");
    EXPECT_EQ(hex.out, "AB");
    EXPECT_THAT(hex.err, EndsWith("'standard input' is no such dump behind the first 2 bytes\n"));
    EXPECT_EQ(hex.status, 1);
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
