// The number converters by example: the tables of the header, and limits.

#include "stock/convert.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "support/child.h"
#include "support/temp_dir.h"

namespace {

template <class H>
struct Read {
    int status;
    H value;
    ptrdiff_t moved;
};

// Reads one value out of the bytes.
template <class H>
Read<H> read_one(int (*member)(char **, H *, int), std::string bytes)
{
    Read<H> read{};
    char *cursor = bytes.data();
    read.status = member(&cursor, &read.value, 1);
    read.moved = cursor - bytes.data();
    return read;
}

struct Written {
    int status;
    std::string bytes;
};

// Writes one value and gives the bytes that the cursor moved over.
template <class H>
Written write_one(int (*member)(const H *, char **, int), H value)
{
    char bytes[8];
    char *cursor = bytes;
    const int status = member(&value, &cursor, 1);
    return {status, std::string(bytes, size_t(cursor - bytes))};
}

std::string bytes(std::initializer_list<int> values)
{
    std::string text;
    for (int value : values)
        text += char(value);
    return text;
}

const std::string kBigDouble2_5 = bytes({0x40, 4, 0, 0, 0, 0, 0, 0});
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

}  // namespace

TEST(Convert, BigEndianBytes12And34AreTheShort0x1234AndMoveTheCursorByTwo)
{
    const auto read = read_one(ms2hs, "\x12\x34");
    EXPECT_EQ(read.value, 0x1234);
    EXPECT_EQ(read.status, 0);
    EXPECT_EQ(read.moved, 2);
}

TEST(Convert, LittleEndianBytes12And34AreTheShort0x3412)
{
    EXPECT_EQ(read_one(as2hs, "\x12\x34").value, 0x3412);
    EXPECT_EQ(read_one(vs2hs, "\x12\x34").value, 0x3412);
}

TEST(Convert, EveryOrderWritesItsBytes)
{
    EXPECT_EQ(write_one(hi2mi, 0x01020304).bytes, bytes({1, 2, 3, 4}));
    EXPECT_EQ(write_one(hi2ai, 0x01020304).bytes, bytes({4, 3, 2, 1}));
    EXPECT_EQ(write_one(hi2vi, 0x01020304).bytes, bytes({4, 3, 2, 1}));
    EXPECT_EQ(write_one(hl2ml, 0x0102030405060708L).bytes, bytes({1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(write_one(hf2mf, 1.0f).bytes, bytes({0x3f, 0x80, 0, 0}));
    EXPECT_EQ(write_one(hd2ad, 2.5).bytes, bytes({0, 0, 0, 0, 0, 0, 4, 0x40}));
    EXPECT_EQ(read_one(md2hd, kBigDouble2_5).value, 2.5);
}

TEST(Convert, Reading70000AsAShortKeepsItsLowBits4464AndReports)
{
    const auto read = read_one(mi2hs, bytes({0, 1, 0x11, 0x70}));
    EXPECT_EQ(read.value, 4464);
    EXPECT_EQ(read.status, -1);
}

TEST(Convert, Writing70000AsAShortWritesTheLimit32767AndReports)
{
    const Written written = write_one(hi2ms, 70000);
    EXPECT_EQ(written.bytes, "\x7f\xff");
    EXPECT_EQ(written.status, -1);
}

TEST(Convert, TheBytesFFFFAre65535UnsignedAndMinusOneSigned)
{
    const auto wide = read_one(ums2hi, "\xff\xff");
    EXPECT_EQ(wide.value, 65535u);
    EXPECT_EQ(wide.status, 0);
    const auto narrow = read_one(ms2hi, "\xff\xff");
    EXPECT_EQ(narrow.value, -1);
    EXPECT_EQ(narrow.status, 0);
}

// Meant: reading reports a lost fraction, writing does not.
TEST(Convert, TheFractionOf2_5IsReportedWhenReadAndNotWhenWritten)
{
    const auto read = read_one(md2hi, kBigDouble2_5);
    EXPECT_EQ(read.value, 2);
    EXPECT_EQ(read.status, -1);
    const Written written = write_one(hd2mi, 2.5);
    EXPECT_EQ(written.bytes, bytes({0, 0, 0, 2}));
    EXPECT_EQ(written.status, 0);
    EXPECT_EQ(write_one(hf2ms, 2.7f).bytes, bytes({0, 2}));
    EXPECT_EQ(write_one(hf2ms, 2.7f).status, 0);
}

TEST(Convert, Writing1e10AsAnIntWrites2147483647AndReports)
{
    const Written written = write_one(hd2mi, 1e10);
    EXPECT_EQ(written.bytes, bytes({0x7f, 0xff, 0xff, 0xff}));
    EXPECT_EQ(written.status, -1);
}

TEST(Convert, ADoubleIsReportedWhenAFloatCannotHoldIt)
{
    EXPECT_EQ(write_one(hd2mf, 0.1).status, -1);
    EXPECT_EQ(write_one(hd2mf, 0.1).bytes, bytes({0x3d, 0xcc, 0xcc, 0xcd}));
    EXPECT_EQ(write_one(hd2mf, 0.5).status, 0);
    EXPECT_EQ(write_one(hd2mf, 1e300).status, -1);
    EXPECT_EQ(write_one(hd2mf, 1e300).bytes, bytes({0x7f, 0x80, 0, 0}));
    EXPECT_EQ(write_one(hd2mf, kInfinity).status, 0);
}

TEST(Convert, WritingSaturatesAtBothLimitsOfAByte)
{
    EXPECT_EQ(write_one<short>(hs2ab, -200).bytes, "\x80");
    EXPECT_EQ(write_one<short>(hs2ab, -200).status, -1);
    EXPECT_EQ(write_one<short>(hs2ab, 300).bytes, "\x7f");
    EXPECT_EQ(write_one<short>(hs2ab, 300).status, -1);
    EXPECT_EQ(write_one<short>(hs2ab, -128).status, 0);
}

TEST(Convert, WritingMinus1_5AsUnsignedWrites0AndReports)
{
    EXPECT_EQ(write_one(uhf2ms, -1.5f).bytes, bytes({0, 0}));
    EXPECT_EQ(write_one(uhf2ms, -1.5f).status, -1);
}

TEST(Convert, UnsignedIntegersKnowOnlyTheUpperLimit)
{
    EXPECT_EQ(write_one(uhi2mb, 4294967295u).bytes, "\xff");
    EXPECT_EQ(write_one(uhi2mb, 4294967295u).status, -1);
    EXPECT_EQ(write_one(uhi2mb, 255u).status, 0);
    EXPECT_EQ(write_one(uhl2mi, 1ul << 63).bytes, "\xff\xff\xff\xff");
    EXPECT_EQ(write_one(uhl2mi, 1ul << 63).status, -1);
}

TEST(Convert, ALimitIsPassedByAFraction)
{
    EXPECT_EQ(write_one(hd2ms, 32767.5).bytes, "\x7f\xff");
    EXPECT_EQ(write_one(hd2ms, 32767.5).status, -1);
    EXPECT_EQ(write_one(hd2ms, 32767.0).status, 0);
    EXPECT_EQ(write_one(hd2ms, -32768.5).bytes, bytes({0x80, 0}));
    EXPECT_EQ(write_one(hd2ms, -32768.5).status, -1);
    EXPECT_EQ(write_one(uhd2ms, -0.5).bytes, bytes({0, 0}));
    EXPECT_EQ(write_one(uhd2ms, -0.5).status, -1);
    EXPECT_EQ(write_one(uhd2ms, -0.0).status, 0);
}

TEST(Convert, TheFloat2147483648DoesNotPassAsAnInt)
{
    EXPECT_EQ(write_one(hf2mi, 2147483648.0f).bytes, bytes({0x7f, 0xff, 0xff, 0xff}));
    EXPECT_EQ(write_one(hf2mi, 2147483648.0f).status, -1);
    EXPECT_EQ(write_one(hf2mi, 2147483520.0f).status, 0);
    const auto read = read_one(mf2hi, bytes({0x4f, 0, 0, 0}));
    EXPECT_EQ(read.value, INT_MIN);
    EXPECT_EQ(read.status, -1);
}

TEST(Convert, LongsSaturateLikeTheOthers)
{
    EXPECT_EQ(write_one(hd2ml, 1e19).bytes,
              bytes({0x7f, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}));
    EXPECT_EQ(write_one(hd2ml, 1e19).status, -1);
    EXPECT_EQ(write_one(hd2ml, -0x1p63).status, 0);
    EXPECT_EQ(write_one(uhd2ml, 1e19).bytes, bytes({0x8a, 0xc7, 0x23, 0x04, 0x89, 0xe8, 0, 0}));
    EXPECT_EQ(write_one(uhd2ml, 1e19).status, 0);
    EXPECT_EQ(write_one(uhd2ml, 0x1p64).bytes, std::string(8, '\xff'));
    EXPECT_EQ(write_one(uhd2ml, -1.0).bytes, std::string(8, '\0'));
}

TEST(Convert, AnIntegerThatFloatingCannotHoldIsReportedBothWays)
{
    EXPECT_EQ(write_one(hi2mf, 16777217).status, -1);
    EXPECT_EQ(write_one(hi2mf, 16777218).status, 0);
    EXPECT_EQ(read_one(mi2hf, bytes({1, 0, 0, 1})).status, -1);
    EXPECT_EQ(read_one(mi2hf, bytes({1, 0, 0, 1})).value, 16777216.0f);
    EXPECT_EQ(write_one(hl2md, (1L << 53) + 1).status, -1);
    EXPECT_EQ(read_one(ml2hd, bytes({0, 0x20, 0, 0, 0, 0, 0, 1})).status, -1);
    EXPECT_EQ(write_one(hl2md, LONG_MAX).status, -1);
    EXPECT_EQ(write_one(uhl2md, ULONG_MAX).status, -1);
    EXPECT_EQ(write_one(hl2md, LONG_MIN).status, 0);
}

TEST(Convert, NanWrittenToAnIntegerIsTheInstructionsResultCutToTheWidth)
{
    EXPECT_EQ(write_one(hd2mi, kNan).bytes, bytes({0x80, 0, 0, 0}));
    EXPECT_EQ(write_one(hd2mi, kNan).status, -1);
    EXPECT_EQ(write_one(hd2ms, kNan).bytes, bytes({0, 0}));
    EXPECT_EQ(write_one(hd2ms, kNan).status, -1);
    EXPECT_EQ(write_one(hd2mb, kNan).bytes, bytes({0}));
    EXPECT_EQ(write_one(uhd2mi, kNan).bytes, bytes({0, 0, 0, 0}));
    EXPECT_EQ(write_one(hd2ml, kNan).bytes, bytes({0x80, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(write_one(uhd2ml, kNan).bytes, bytes({0x80, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(Convert, WhatAnIntegerCannotHoldReadsAsTheInstructionGivesIt)
{
    const auto big = [](double value) { return write_one(hd2md, value).bytes; };
    EXPECT_EQ(read_one(md2hi, big(1e10)).value, INT_MIN);
    EXPECT_EQ(read_one(md2hi, big(kNan)).value, INT_MIN);
    EXPECT_EQ(read_one(md2hi, big(kNan)).status, -1);
    EXPECT_EQ(read_one(md2hs, big(70000)).value, 4464);
    EXPECT_EQ(read_one(md2hs, big(1e10)).value, 0);
    EXPECT_EQ(read_one(umd2hi, big(5e9)).value, 705032704u);  // the low part of a long
    EXPECT_EQ(read_one(umd2hi, big(-1)).value, UINT_MAX);
    EXPECT_EQ(read_one(umd2hb, big(-1)).value, 255);
    EXPECT_EQ(read_one(md2hl, big(kInfinity)).value, LONG_MIN);
    EXPECT_EQ(read_one(umd2hl, big(1e19)).value, 10000000000000000000ul);
    EXPECT_EQ(read_one(umd2hl, big(1e20)).value, 1ul << 63);
    EXPECT_EQ(read_one(umd2hl, big(-1)).value, ULONG_MAX);
    EXPECT_EQ(read_one(umd2hl, big(-1)).status, -1);
}

TEST(Convert, NanInItsOwnTypeKeepsItsBitsAndIsNotReported)
{
    const std::string signalling = bytes({0x7f, 0xf4, 0, 0, 0, 0, 0, 7});
    std::string source = signalling;
    char *from = source.data();
    double value;
    EXPECT_EQ(md2hd(&from, &value, 1), 0);
    char again[8];
    char *to = again;
    EXPECT_EQ(hd2md(&value, &to, 1), 0);
    EXPECT_EQ(std::string(again, 8), signalling);
}

TEST(Convert, NanBetweenFloatAndDoubleIsReportedBothWays)
{
    EXPECT_EQ(write_one(hd2mf, kNan).status, -1);
    EXPECT_EQ(write_one(hf2md, float(kNan)).status, -1);
    const auto read = read_one(mf2hd, bytes({0x7f, 0xc0, 0, 0}));
    EXPECT_TRUE(std::isnan(read.value));
    EXPECT_EQ(read.status, -1);
}

TEST(Convert, NegativeZeroReadsAsAnExactZero)
{
    const auto read = read_one(md2hi, bytes({0x80, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(read.value, 0);
    EXPECT_EQ(read.status, 0);
}

TEST(Convert, ZeroValuesLeaveTheCursorAndNeedNoPlaces)
{
    char byte = 1;
    char *cursor = &byte;
    EXPECT_EQ(ms2hs(&cursor, nullptr, 0), 0);
    EXPECT_EQ(hd2mi(nullptr, &cursor, 0), 0);
    EXPECT_EQ(ad2hd(&cursor, nullptr, 0), 0);
    EXPECT_EQ(cursor, &byte);
}

TEST(Convert, AllValuesAreConvertedAfterAnInexactOne)
{
    const int values[] = {70000, 1, -70000, 2};
    char external[8];
    char *cursor = external;
    EXPECT_EQ(hi2ms(values, &cursor, 4), -1);
    EXPECT_EQ(std::string(external, 8), bytes({0x7f, 0xff, 0, 1, 0x80, 0, 0, 2}));
}

TEST(Convert, ARecordIsWrittenAndReadFieldByFieldWithOneCursor)
{
    const short version = 3;
    const double position[] = {1.5, -2.25};
    const int count = 70000;
    char record[64];
    char *cursor = record;
    EXPECT_EQ(hs2ms(&version, &cursor, 1), 0);
    EXPECT_EQ(hd2mf(position, &cursor, 2), 0);
    EXPECT_EQ(hi2ml(&count, &cursor, 1), 0);
    EXPECT_EQ(cursor - record, 2 + 2 * 4 + 8);

    int read_version;
    float read_position[2];
    long read_count;
    cursor = record;
    EXPECT_EQ(ms2hi(&cursor, &read_version, 1), 0);
    EXPECT_EQ(mf2hf(&cursor, read_position, 2), 0);
    EXPECT_EQ(ml2hl(&cursor, &read_count, 1), 0);
    EXPECT_EQ(read_version, 3);
    EXPECT_EQ(read_position[1], -2.25f);
    EXPECT_EQ(read_count, 70000);
}

// So that an editor finds it, each stands on a line of its own.
TEST(Convert, TheHeaderDeclares408NamesOneToALine)
{
    const std::string header = read_file(source_path("include/stock/convert.h"));
    size_t lines = 0;
    for (size_t at = 0; (at = header.find("\nSTOCK_API int ", at)) != std::string::npos; ++at) {
        ++lines;
        EXPECT_EQ(header.find(");\n", at), header.find('\n', at + 1) - 2);
    }
    EXPECT_EQ(lines, 408u);
}
