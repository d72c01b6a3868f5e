// One value with a fallback: silent when it is missing, with its place when it is wrong.

#include <cmath>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stock/pfwant.h"
#include "support/child.h"
#include "support/pf_files.h"

namespace {

PfPtr tree(const std::string &text)
{
    Pf *pf = nullptr;
    EXPECT_EQ(pfcompile(text.c_str(), &pf), 0);
    return PfPtr(pf);
}

}  // namespace

TEST(PfgetOr, GivesTheFallbackSilentlyWhenThereIsNoValue)
{
    const PfPtr pf = tree("list &Tbl{\n1\n}\ntable &Arr{\n}\nnone &undef()\n");
    for (Pf *from : {pf.get(), static_cast<Pf *>(nullptr)})
        for (const char *address : {"x", "table{x}", "list[5]", "x{y}[2]", "none"}) {
            SCOPED_TRACE(address);
            EXPECT_EQ(pfget_int_or(from, address, 7), 7);
            EXPECT_EQ(pfget_double_or(from, address, 2.5), 2.5);
            EXPECT_EQ(pfget_boolean_or(from, address, 1), 1);
            EXPECT_STREQ(pfget_string_or(from, address, "here"), "here");
            EXPECT_EQ(pfget_string_or(from, address, nullptr), nullptr);
            EXPECT_EQ(pfget_size_or(from, address, 5), 5);
            EXPECT_EQ(pfget_time_or(from, address, 1e9), 1e9);
            EXPECT_EQ(pfget_duration_or(from, address, 60), 60);
        }
    EXPECT_EQ(take_log(), "");
}

TEST(PfgetOr, ReadsAsTheKindsDo)
{
    const PfPtr pf = tree("i 0x10\nd 2.5\nb no\ns &{d} mm\nz 64 KiB\nt 2008-02-01\nw 1 h 30 m\n"
                          "list &Tbl{\n8\n}\n");
    EXPECT_EQ(pfget_int_or(pf.get(), "i", 0), 16);
    EXPECT_EQ(pfget_double_or(pf.get(), "d", 0), 2.5);
    EXPECT_EQ(pfget_boolean_or(pf.get(), "b", 1), 0);
    EXPECT_STREQ(pfget_string_or(pf.get(), "s", ""), "2.5 mm");
    EXPECT_EQ(pfget_size_or(pf.get(), "z", 0), 65536);
    EXPECT_EQ(pfget_time_or(pf.get(), "t", 0), 1201824000);
    EXPECT_EQ(pfget_duration_or(pf.get(), "w", 0), 5400);
    Pf *list = nullptr;
    pfresolve(pf.get(), "list", 0, &list);
    EXPECT_EQ(pfget_int_or(list, pfindex(0), 0), 8);
    EXPECT_EQ(pfget_int_or(list, pfindex(1), 9), 9);
}

TEST(PfgetOr, EvaluatesAFunctionOnce)
{
    const TempDir dir;
    const PfPtr pf = tree("x &exec(echo called >> '" + dir / "calls" + "'; echo 5)\n");
    EXPECT_EQ(pfget_int_or(pf.get(), "x", 0), 5);
    EXPECT_EQ(read_file(dir / "calls"), "called\n");
}

TEST(PfgetOr, ComplainsWithThePlaceOfWhatItCannotRead)
{
    const PfPath path;
    const std::string file = path.local(
        "gauge.pf", "interval fast\nkeep 99999999999999999999\nsites &Arr{\nnorth &Tbl{\n"
                    "1\nx\n}\n}\nverbose perhaps\nroom 1.5\nsince soon\nlevel nan\n"
                    "cmd &exec(exit 1)\n");
    Pf *pf = nullptr;
    ASSERT_EQ(pfread("gauge", &pf), 0);
    const PfPtr owner(pf);
    Pf *north = nullptr;
    pfresolve(pf, "sites{north}", 0, &north);
    const Ended ended = in_child([&] {
        EXPECT_EQ(pfget_duration_or(pf, "interval", 5), 5);
        EXPECT_EQ(pfget_int_or(pf, "keep", 6), 6);
        EXPECT_EQ(pfget_int_or(pf, "sites{north}[1]", 7), 7);
        EXPECT_EQ(pfget_int_or(north, pfindex(1), 8), 8);
        EXPECT_EQ(pfget_boolean_or(pf, "verbose", 1), 1);
        EXPECT_EQ(pfget_size_or(pf, "room", 9), 9);
        EXPECT_EQ(pfget_time_or(pf, "since", 10), 10);
        EXPECT_EQ(pfget_double_or(pf, "level", 11), 11);
        EXPECT_EQ(pfget_double_or(pf, "sites{north}", 12), 12);
        EXPECT_STREQ(pfget_string_or(pf, "sites", "none"), "none");
        EXPECT_EQ(pfget_int_or(pf, "cmd", 13), 13);
    });
    EXPECT_EQ(ended.status, 0);
    std::string text = ended.err;
    const std::string tag = text.substr(0, text.find(": ") + 2);
    for (size_t at = text.find(tag); at != text.npos; at = text.find(tag, at))
        text.erase(at, tag.size());
    EXPECT_EQ(text,
              file + ":1: interval: 'fast' is not a duration\n" + file +
                  ":2: keep: '99999999999999999999' is out of range "
                  "(-9223372036854775808 to 9223372036854775807)\n" +
                  file + ":6: sites{north}[1]: 'x' is not a whole number\n" + file +
                  ":6: sites{north}[1]: 'x' is not a whole number\n" + file +
                  ":9: verbose: 'perhaps' is not yes or no\n" + file +
                  ":10: room: '1.5' is not a size\n" + file + ":11: since: 'soon' is not a time\n" +
                  file + ":12: level: 'nan' is not a number\n" + file +
                  ":4: sites{north}: is a list, not a number\n" + file +
                  ":3: sites: is a table, not a text\n" + file + ":13: cmd: the command failed\n");
}
