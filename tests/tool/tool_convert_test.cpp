// The command "stock convert".

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/child.h"
#include "support/temp_dir.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

Ended convert(const std::string &member, const std::string &input)
{
    return run_program({tool_path(), "convert", member}, input);
}

std::string bytes(std::initializer_list<int> values)
{
    std::string text;
    for (int value : values)
        text += char(value);
    return text;
}

void expect_done(const Ended &ended, const std::string &out)
{
    EXPECT_EQ(ended.out, out);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
}

void expect_failed(const Ended &ended, const std::string &out, const std::string &reason)
{
    EXPECT_EQ(ended.out, out);
    EXPECT_THAT(ended.err, HasSubstr(reason));
    EXPECT_EQ(ended.status, 1);
}

}  // namespace

TEST(ToolConvert, PrintsPackedNumbersOneALine)
{
    expect_done(convert("ms2hd", bytes({0x12, 0x34, 0xff, 0xff})), "4660\n-1\n");
    expect_done(convert("ums2hi", bytes({0xff, 0xff})), "65535\n");
    expect_done(convert("ab2hb", bytes({1, 0x80})), "1\n-128\n");
    expect_done(convert("uab2hb", bytes({1, 0x80})), "1\n128\n");
    expect_done(convert("umb2hd", bytes({0x80})), "128\n");
    expect_done(convert("umd2hl", bytes({0x43, 0xe0, 0, 0, 0, 0, 0, 0})), "9223372036854775808\n");
}

TEST(ToolConvert, WritesLinesAsPackedNumbers)
{
    expect_done(convert("hd2ms", "4660\n-1\n"), bytes({0x12, 0x34, 0xff, 0xff}));
    expect_done(convert("hi2ai", "16909060"), bytes({4, 3, 2, 1}));
    expect_done(convert("uhl2vb", "255\n"), bytes({0xff}));
}

TEST(ToolConvert, TakesSignsBlanksEmptyLinesAndCarriageReturns)
{
    expect_done(convert("hs2mb", "+1\n\n  2 \r\n\t-3"), bytes({1, 2, 0xfd}));
}

TEST(ToolConvert, FloatingNumbersComeBackTheSame)
{
    const std::string lines = "0.1\n-2.5\n1e+300\n5e-324\n-0\ninf\n-inf\nnan\n";
    const Ended packed = convert("hd2ad", lines);
    EXPECT_EQ(packed.status, 0);
    EXPECT_EQ(packed.out.size(), 64u);
    expect_done(convert("ad2hd", packed.out), lines);
}

TEST(ToolConvert, ASingleIsPrintedWithAsFewDigitsAsItNeeds)
{
    expect_done(convert("mf2hf", bytes({0x3d, 0xcc, 0xcc, 0xcd})), "0.1\n");
}

TEST(ToolConvert, NoInputIsNoNumbers)
{
    expect_done(convert("ms2hd", ""), "");
    expect_done(convert("hd2ms", ""), "");
}

TEST(ToolConvert, TellsWhichValueReadWasNotExact)
{
    expect_failed(convert("mi2hs", bytes({0, 0, 0, 1, 0, 1, 0x11, 0x70, 0x7f, 0, 0, 0})),
                  "1\n4464\n0\n",
                  "stock convert: mi2hs: 2 of 3 values not exact, the first is number 2");
}

TEST(ToolConvert, TellsWhichValueWrittenWasNotExact)
{
    expect_failed(convert("hi2mb", "1\n300\n2\n"), bytes({1, 127, 2}),
                  "stock convert: hi2mb: 1 of 3 values not exact, the first is number 2");
}

TEST(ToolConvert, BytesLeftOverAreReportedAfterTheValues)
{
    expect_failed(convert("mi2hi", bytes({0, 0, 0, 7, 1, 2, 3})), "7\n",
                  "stock convert: mi2hi: 3 bytes left over at the end, a value has 4");
}

TEST(ToolConvert, ALineThatIsNoNumberEndsTheWriting)
{
    expect_failed(convert("hs2ms", "1\n\nabc\n2\n"), bytes({0, 1}),
                  "stock convert: line 3: 'abc' is no 16-bit integer");
    expect_failed(convert("hs2ms", "1.5"), "", "line 1: '1.5' is no 16-bit integer");
    expect_failed(convert("hs2ms", "1 2"), "", "line 1: '1 2' is no 16-bit integer");
    expect_failed(convert("hs2ms", "40000"), "", "line 1: '40000' is no 16-bit integer");
    expect_failed(convert("uhi2mi", "-1"), "", "line 1: '-1' is no unsigned 32-bit integer");
    expect_failed(convert("hd2md", "1e999"), "", "line 1: '1e999' is no double precision number");
    expect_failed(convert("hf2mf", "+-1"), "", "line 1: '+-1' is no single precision number");
    expect_failed(convert("hs2ms", std::string("1\0", 2)), "", "is no 16-bit integer");
}

TEST(ToolConvert, AnEndlessLineIsRefusedAndNotKept)
{
    expect_failed(convert("hd2md", std::string(10'000'000, '1')), "",
                  "line 1: '" + std::string(60, '1') + "...' is no double precision number");
}

TEST(ToolConvert, MoreValuesThanOneBatchPassThrough)
{
    std::string lines, packed;
    for (int i = 0; i < 20000; ++i) {
        lines += std::to_string(i) + "\n";
        packed += bytes({i >> 8, i & 255});
    }
    expect_done(convert("hl2ms", lines), packed);
    expect_done(convert("ms2hl", packed), lines);
}

TEST(ToolConvert, TheNumberOfTheFirstInexactValueCountsAllBatches)
{
    std::string lines;
    for (int i = 0; i < 9000; ++i)
        lines += i == 8999 ? "1000\n" : "1\n";
    EXPECT_THAT(convert("hi2mb", lines).err,
                HasSubstr("1 of 9000 values not exact, the first is number 9000"));
}

TEST(ToolConvert, EveryNameThatIsNoMemberIsWrongUsage)
{
    for (const char *name : {"", "u", "2", "ms2hx", "xs2hs", "hs2hs", "ms2ms", "ms3hs", "ums2h",
                             "umf2hd", "uhd2mf", "uums2hs", "ms2hs ", "malloc", "mh2hs"}) {
        SCOPED_TRACE(name);
        const Ended ended = convert(name, "");
        EXPECT_EQ(ended.status, 2);
        EXPECT_EQ(ended.out, "");
        EXPECT_THAT(ended.err, HasSubstr(std::string("stock convert: no member '") + name + "'"));
    }
}

TEST(ToolConvert, WantsOneMember)
{
    const Ended none = run_program({tool_path(), "convert"});
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(none.err, HasSubstr("stock convert: which member?"));
    const Ended two = run_program({tool_path(), "convert", "ms2hs", "hs2ms"});
    EXPECT_EQ(two.status, 2);
    EXPECT_THAT(two.err, HasSubstr("stock convert: one member at a time"));
}

TEST(ToolConvert, HelpNamesTheLetters)
{
    const Ended ended = run_program({tool_path(), "convert", "--help"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.out, StartsWith("usage: stock convert MEMBER\n"));
    EXPECT_THAT(ended.out, HasSubstr("m most significant first"));
}

TEST(ToolConvert, InputThatCannotBeReadAndOutputThatIsFullAreFailures)
{
    const std::string tool = shell_word(tool_path());
    const Ended directory = run_program({"/bin/sh", "-c", tool + " convert ms2hs </"});
    EXPECT_EQ(directory.status, 1);
    EXPECT_THAT(directory.err, HasSubstr("stock convert: can't read standard input"));
    const Ended lines = run_program({"/bin/sh", "-c", tool + " convert hs2ms </"});
    EXPECT_EQ(lines.status, 1);
    const Ended full =
        run_program({"/bin/sh", "-c", tool + " convert mb2hb </dev/zero >/dev/full"});
    EXPECT_EQ(full.status, 1);
    EXPECT_THAT(full.err, HasSubstr("can't write to standard output"));
}
