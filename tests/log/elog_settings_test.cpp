// The settings that the log takes from elog.pf, and where the environment overrides them.

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "deviants.h"
#include "stock.h"
#include "support/child.h"
#include "support/pf_files.h"

namespace {

// What a new process reports when it finds this elog.pf.
std::string report(const std::string &settings, const std::function<void()> &body)
{
    const PfPath path;
    path.site("elog.pf", settings);
    for (const char *variable : {"ELOG_DELIVER", "ELOG_TAG", "ELOG_DEBUG", "ELOG_MAXMSG",
                                 "ELOG_WAIT", "ELOG_SIGNALS", "ELOG_REFERENCE_TIME"})
        unsetenv(variable);
    return in_child(body).err;
}

template <class T>
T setting(int code, int severity = 0)
{
    T value{};
    elog_query(code, severity, &value);
    return value;
}

}  // namespace

TEST(ElogSettings, TheTablesOfTheFileFillTheTables)
{
    EXPECT_EQ(report("ELOG_TAG &Arr{\n complain [%s]\n}\nELOG_DELIVER &Arr{\n log stderr\n}\n",
                     [] {
                         elog_log(0, "at once");
                         elog_complain(0, "complaint");
                     }),
              "elog_settings_test: at once\n[complain]: complaint\n");
}

TEST(ElogSettings, TheEnvironmentWinsOverTheFile)
{
    EXPECT_EQ(report("ELOG_TAG &Arr{\n complain file\n}\nELOG_MAXMSG 2\n",
                     [] {
                         setenv("ELOG_TAG", "environment@c", 1);
                         setenv("ELOG_MAXMSG", "0", 1);
                         elog_init(0, nullptr);
                         EXPECT_EQ(setting<int>(ELOG_MAXMSG_VALUE), 0);
                         elog_complain(0, "x");
                     }),
              "environment: x\n");
}

TEST(ElogSettings, PlainKeysSetTheLimitAndTheSignals)
{
    EXPECT_EQ(report("ELOG_MAXMSG 7\nELOG_SIGNALS SEGV\n",
                     [] {
                         elog_init(0, nullptr);
                         EXPECT_EQ(setting<int>(ELOG_MAXMSG_VALUE), 7);
                         EXPECT_STREQ(setting<char *>(ELOG_SIGNAL_LIST), "SEGV");
                     }),
              "");
}

TEST(ElogSettings, TheWaitOfTheFileIsWaited)
{
    const double before = std_now();
    EXPECT_EQ(report("ELOG_WAIT 0.3\n", [] { _elog_debug("true"); }), "Running debugger: 'true'\n");
    EXPECT_GE(std_now() - before, 0.3);
    EXPECT_LT(std_now() - before, 8);
}

TEST(ElogSettings, WhatTheFileLacksStaysBuiltIn)
{
    EXPECT_EQ(report("unknown 1\n",
                     [] {
                         elog_init(0, nullptr);
                         EXPECT_EQ(setting<int>(ELOG_MAXMSG_VALUE), 50);
                         EXPECT_STREQ(setting<char *>(ELOG_SIGNAL_LIST), "");
                         EXPECT_STREQ(setting<char *>(ELOG_TAG_FIELD, 5), "%P *fatal*");
                         EXPECT_STREQ(setting<char *>(ELOG_DEBUG_FIELD, 5), "");
                     }),
              "");
}

TEST(ElogSettings, WithoutAFileTheSixFaultSignalsAreSetUp)
{
    const PfPath path;
    unsetenv("ELOG_SIGNALS");
    const Ended ended = in_child([] {
        elog_init(0, nullptr);
        EXPECT_STREQ(setting<char *>(ELOG_SIGNAL_LIST), "ILL:TRAP:FPE:BUS:SEGV:SYS");
    });
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
}

TEST(ElogSettings, TheInstalledFileChangesNothingButTheSourceOfTheSettings)
{
    setenv("PFPATH", source_path("data/pf").c_str(), 1);
    const Ended ended = in_child([] {
        elog_init(0, nullptr);
        const char *tags[] = {"%P", "%P *debug*", "%P",        "%P *alert*",
                              "%P", "%P *fatal*", "%P *fault*"};
        for (int i = 0; i < 7; ++i) {
            EXPECT_STREQ(setting<char *>(ELOG_TAG_FIELD, i), tags[i]);
            EXPECT_STREQ(setting<char *>(ELOG_DELIVER_FIELD, i), i == 0 ? "" : "stderr");
            EXPECT_STREQ(setting<char *>(ELOG_DEBUG_FIELD, i), "");
        }
        EXPECT_EQ(setting<int>(ELOG_MAXMSG_VALUE), 50);
        EXPECT_STREQ(setting<char *>(ELOG_SIGNAL_LIST), "ILL:TRAP:FPE:BUS:SEGV:SYS");
    });
    EXPECT_EQ(ended.err + ended.out, "");
}

TEST(ElogSettings, AValueMayReferToAnother)
{
    EXPECT_EQ(
        report("word hello\nELOG_TAG &Arr{\n complain &word\n}\n", [] { elog_complain(0, "x"); }),
        "hello: x\n");
}

TEST(ElogSettings, AReportFromTheParseOfTheFileItselfComesThrough)
{
    const std::string text = report("}\n", [] { elog_complain(0, "x"); });
    EXPECT_NE(text.find("*stack* invalid right brace at line #1 in pf file "), text.npos) << text;
    EXPECT_NE(text.find("elog_settings_test: x\n"), text.npos) << text;
}

TEST(ElogSettings, AParseThatReportsFirstDoesNotReadTheFile)
{
    EXPECT_NE(report("ELOG_TAG &Arr{\n complain file\n}\n",
                     [] {
                         Pf *pf = nullptr;
                         pfcompile("a x &Tbl{\n", &pf);
                         pffree(pf);
                     })
                  .find("elog_settings_test: value contains '&Tbl{'\n"),
              std::string::npos);
}

TEST(ElogSettings, TheTimeCodesUseTheFormatsOfTheFile)
{
    EXPECT_EQ(report("t_format T%%!\nu_format U%%\nELOG_TAG &Arr{\n complain %t %u\n}\n",
                     [] { elog_complain(0, "x"); }),
              "T%! U%: x\n");
}

TEST(ElogSettings, TheTextOfATimeCodeIsCutTo64Characters)
{
    const std::string t(100, 't'), u(65, 'u');
    EXPECT_EQ(
        report("t_format " + t + "\nu_format " + u + "\nELOG_TAG &Arr{\n complain [%t][%u]\n}\n",
               [] { elog_complain(0, "x"); }),
        "[" + t.substr(0, 64) + "][" + u.substr(0, 64) + "]: x\n");
}

TEST(ElogSettings, ADebuggerThatTheTableOfTheFileLacksIsTheDefaultOne)
{
    EXPECT_EQ(report("ELOG_DEBUG &Arr{\n complain true\n}\n",
                     [] {
                         elog_init(0, nullptr);
                         EXPECT_STREQ(setting<char *>(ELOG_DEBUG_FIELD, 3), "");
                         EXPECT_STREQ(setting<char *>(ELOG_DEBUG_FIELD, 4), "true");
                         EXPECT_STREQ(setting<char *>(ELOG_DEBUG_FIELD, 5), "gdb %r %p");
                     }),
              "");
}

TEST(ElogSettings, TheSignalsOfTheEnvironmentWinOverTheFile)
{
    EXPECT_EQ(report("ELOG_SIGNALS SEGV\n",
                     [] {
                         setenv("ELOG_SIGNALS", "FPE", 1);
                         elog_init(0, nullptr);
                         EXPECT_STREQ(setting<char *>(ELOG_SIGNAL_LIST), "FPE");
                     }),
              "");
}

TEST(ElogSettings, ByDefaultTheTimeCodesGiveLocalTimeAndUtc)
{
    setenv("TZ", "UTC", 1);
    const std::string text =
        report("ELOG_TAG &Arr{\n complain %t|%u\n}\n", [] { elog_complain(0, "x"); });
    EXPECT_TRUE(testing::internal::RE::FullMatch(
        text, "[A-Z][a-z]+ [A-Z][a-z]+ [ 0-9]+:[0-9]+:[0-9]+ 20[0-9]+\\|"
              "20[0-9]+-[0-9]+ [0-9]+:[0-9]+:[0-9]+: x\n"))
        << text;
}

TEST(ElogSettings, TheReferenceTimeOfTheEnvironmentIsATimeString)
{
    EXPECT_EQ(report("a 1\n",
                     [] {
                         setenv("ELOG_REFERENCE_TIME", "2008-02-01 12:30:15", 1);
                         elog_init(0, nullptr);
                         EXPECT_EQ(setting<double>(ELOG_REFERENCE), 1201869015.0);
                     }),
              "");
}
