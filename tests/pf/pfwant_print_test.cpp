// A table of declared parameters, written as the parameter file of its defaults.

#include <cmath>
#include <cstdio>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stock/pfwant.h"
#include "support/pf_text.h"

namespace {

struct Limit {
    double mm;
    double hours;
};

const Pfwant kLimitWants[] = {
    {"mm", PFWANT_DOUBLE(PFWANT_AT(Limit, mm)), PFWANT_REQUIRED, 0, 1000, "rain"},
    {"hours", PFWANT_DURATION(PFWANT_AT(Limit, hours)), "1 h", 1, 0, nullptr},
    PFWANT_END,
};

std::string printed(const Pfwant *wants)
{
    char *text = nullptr;
    size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    EXPECT_EQ(pfwant_print(wants, stream), 0);
    fclose(stream);
    const Text owner(text);
    return text;
}

}  // namespace

TEST(PfwantPrint, WritesDefaultsWithKindsAndBoundsAsComments)
{
    int keep = 0, port = 0, mode = 0;
    double interval = 0, since = 0;
    int64_t room = 0;
    char *state = nullptr, *title = nullptr;
    Tbl *gauges = nullptr, *watch = nullptr;
    Arr *limits = nullptr, *names = nullptr;
    const Pfwant wants[] = {
        {"keep", PFWANT_INT(&keep), "100", 1, 1e6, "samples that are kept"},
        {"interval", PFWANT_DURATION(&interval), "1 h 30 m", 0.1, INFINITY, "from one to the next"},
        {"net{port}", PFWANT_INT(&port), "80", 1, 65535, nullptr},
        {"mode", PFWANT_WORD(&mode, "slow  fast"), "fast", 0, 0, nullptr},
        {"net{log{deep}}", PFWANT_ANY(), nullptr, 0, 0, nullptr},
        {"net{peer}{room}", PFWANT_SIZE(&room), "1k", -INFINITY, 1e6, "of the peer"},
        {"since", PFWANT_TIME(&since), "1 Feb 2008", 0, 2e9, nullptr},
        {"state", PFWANT_TEXT(&state), PFWANT_REQUIRED, 0, 0, "the state file"},
        {"two words", PFWANT_TEXT(&title), "rain # heavy", 0, 20, nullptr},
        {"gauges", PFWANT_LIST(&gauges, PFWANT_TEXT), "north\nsouth", 0, 0, nullptr},
        {"watch", PFWANT_WORDS(&watch, "a b"), PFWANT_REQUIRED, 0, 0, nullptr},
        {"names", PFWANT_TABLE(&names, PFWANT_TEXT), "north on the hill", 0, 0, nullptr},
        {"limits", PFWANT_RECORDS(&limits, kLimitWants, Limit), "", 0, 0, "by gauge"},
        {"other", PFWANT_ANY(), nullptr, 0, 0, "of another program"},
        PFWANT_END,
    };
    EXPECT_EQ(printed(wants), "# samples that are kept\n"
                              "#: keep: int, 1 to 1000000\n"
                              "keep            100\n"
                              "\n"
                              "# from one to the next\n"
                              "#: interval: duration, at least 0.1 s\n"
                              "interval        1 h 30 m\n"
                              "\n"
                              "net             &Arr{\n"
                              "    #: net{port}: int, 1 to 65535\n"
                              "    port            80\n"
                              "\n"
                              "    #: net{log{deep}}: any\n"
                              "\n"
                              "    peer            &Arr{\n"
                              "        # of the peer\n"
                              "        #: net{peer}{room}: size, at most 1000000\n"
                              "        room            1k\n"
                              "    }\n"
                              "}\n"
                              "\n"
                              "#: mode: word (slow fast)\n"
                              "mode            fast\n"
                              "\n"
                              "#: since: time, 1970-01-01 00:00:00 to 2033-05-18 03:33:20\n"
                              "since           1 Feb 2008\n"
                              "\n"
                              "# the state file\n"
                              "#: state: text, required\n"
                              "#state           \n"
                              "\n"
                              "#: two words: text, 0 to 20 bytes\n"
                              "\"two words\"     rain \\# heavy\n"
                              "\n"
                              "#: gauges: list of text\n"
                              "gauges          &Tbl{\n"
                              "    north\n"
                              "    south\n"
                              "}\n"
                              "\n"
                              "#: watch: list of word (a b), required\n"
                              "#watch           &Tbl{\n"
                              "#}\n"
                              "\n"
                              "#: names: table of text\n"
                              "names           &Arr{\n"
                              "    north on the hill\n"
                              "}\n"
                              "\n"
                              "# by gauge\n"
                              "#: limits: records\n"
                              "# rain\n"
                              "#: limits{*}{mm}: double, 0 to 1000, required\n"
                              "#: limits{*}{hours}: duration, at least 1 s, default 1 h\n"
                              "limits          &Arr{\n"
                              "}\n"
                              "\n"
                              "# of another program\n"
                              "#: other: any\n");
}

TEST(PfwantPrint, WhatItWritesIsReadWithTheSameTable)
{
    double interval = 0;
    int port = 0;
    char *state = nullptr, *title = nullptr;
    Tbl *gauges = nullptr;
    Arr *names = nullptr;
    const Pfwant wants[] = {
        {"interval", PFWANT_DURATION(&interval), "1 h 30 m", 0.1, 86400, "from one to the next"},
        {"net{port}", PFWANT_INT(&port), "80", 1, 65535, nullptr},
        {"state", PFWANT_TEXT(&state), "&{dir}/state #1", 0, 0, nullptr},
        {"dir", PFWANT_TEXT(&title), " /tmp\n{x", 0, 0, nullptr},
        {"gauges", PFWANT_LIST(&gauges, PFWANT_TEXT), "north\nsouth", 0, 0, nullptr},
        {"names", PFWANT_TABLE(&names, PFWANT_TEXT), "north &Literal{\n a}\nsouth b", 0, 0,
         nullptr},
        PFWANT_END,
    };
    Pf *pf = nullptr;
    ASSERT_EQ(pfcompile(printed(wants).c_str(), &pf), 0);
    const PfPtr owner(pf);
    EXPECT_EQ(pfwant(pf, wants), 0) << take_log();
    EXPECT_EQ(interval, 5400);
    EXPECT_EQ(port, 80);
    EXPECT_STREQ(state, " /tmp\n{x/state #1");
    EXPECT_EQ(gauges->count, 2);
    EXPECT_STREQ(static_cast<char *>(getarr(names, "north")), " a");
    // The same values by default: nothing is new.
    const char *before = state;
    EXPECT_EQ(pfwant(pf, wants), 0);
    EXPECT_EQ(state, before);
    pfwant_free(wants);
}

TEST(PfwantPrint, RefusesNullAndKeepsToTheStream)
{
    const Pfwant wants[] = {PFWANT_END};
    EXPECT_EQ(printed(wants), "");
    EXPECT_EQ(pfwant_print(nullptr, stdout), -1);
    EXPECT_EQ(pfwant_print(wants, nullptr), -1);
}
