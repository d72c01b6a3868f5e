// The command "stock pf" as a user runs it.

#include <string>

#include <gtest/gtest.h>

#include "support/child.h"
#include "support/temp_dir.h"
#include "support/traces.h"

namespace {

const std::string kFamilyHelp = "usage: stock pf COMMAND [ARGUMENT...]\n";

Ended stock(std::vector<std::string> words, const std::string &input = {})
{
    words.insert(words.begin(), tool_path());
    return run_program(words, input);
}

Ended show(std::vector<std::string> files, const std::string &input = {})
{
    files.insert(files.begin(), {"pf", "show"});
    return stock(files, input);
}

}  // namespace

TEST(ToolPfShow, PrintsTheTreeOfAFile)
{
    const TempDir dir;
    const std::string path = dir.file("x.pf", "b &Tbl{\n x # comment\n}\na 1\n");
    const Ended ended = show({path});
    EXPECT_EQ(ended.out, "a\t1\nb\t&Tbl{\n    x\n}\n");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
}

TEST(ToolPfShow, MergesItsFilesInOrder)
{
    const TempDir dir;
    const std::string first = dir.file("1.pf", "a 1\nb 1\nt &Arr{\nx 1\n}\n");
    const std::string second = dir.file("2.pf", "b 2\na &Undef{}\nt &Arr{\ny 2\n}\n");
    EXPECT_EQ(show({first, second}).out, "b\t2\nt\t&Arr{\n    y\t2\n}\n");
    EXPECT_EQ(show({second, first}).out, "a\t1\nb\t1\nt\t&Arr{\n    x\t1\n}\n");
}

TEST(ToolPfShow, ReadsStandardInput)
{
    const TempDir dir;
    const std::string path = dir.file("x.pf", "a 1\nb 1\n");
    EXPECT_EQ(show({"-"}, "a 2\n").out, "a\t2\n");
    EXPECT_EQ(show({path, "-"}, "a 2\n").out, "a\t2\nb\t1\n");
    EXPECT_EQ(show({"-", path}, "a 2\n").out, "a\t1\nb\t1\n");
}

TEST(ToolPfShow, PrintsNothingOfAnEmptyFile)
{
    const Ended ended = show({"-"}, "# nothing\n");
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.status, 0);
}

TEST(ToolPfShow, WhatItPrintsReadsBack)
{
    const std::string text = "k\t&Literal(\n{ x\n)\nl\t&Tbl{\n    \\#\n}\n";
    EXPECT_EQ(show({"-"}, text).out, text);
}

TEST(ToolPfShow, ReportsAFileThatIsNotThere)
{
    const TempDir dir;
    const std::string path = dir.file("x.pf", "a 1\n");
    const Ended ended = show({dir / "no.pf", path});
    EXPECT_EQ(ended.err, "stock: can't open parameter file '" + (dir / "no.pf") +
                             "'\n\tNo such file or directory\n");
    EXPECT_EQ(ended.out, "a\t1\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(ToolPfShow, ReportsADirectory)
{
    const TempDir dir;
    const Ended ended = show({dir.path()});
    EXPECT_EQ(ended.err, "stock: read failed in pf input routine for file " + dir.path() +
                             "\n\tIs a directory\nstock: can't parse parameter file '" +
                             dir.path() + "'\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(ToolPfShow, ReportsSyntaxErrorsWithFileAndLineAndShowsWhatStandsBefore)
{
    const TempDir dir;
    const std::string path = dir.file("x.pf", "a 1\n}\nb 2\n");
    const Ended ended = show({path});
    EXPECT_EQ(ended.out, "a\t1\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(without_traces(ended.err),
              "stock: *stack* invalid right brace at line #2 in pf file " + path +
                  "\nstock: can't parse parameter file '" + path + "'\n");
}

TEST(ToolPfShow, ReportsWhatIsLeftOpen)
{
    const Ended ended = show({"-"}, "a &Arr{\nb 1\n");
    EXPECT_EQ(ended.out, "a\t&Arr{\n    b\t1\n}\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find("*stack* Unterminated arrays or tables in parameter file standard "
                             "input at last line #3: depth = 1\n"),
              std::string::npos);
}

TEST(ToolPfShow, ComplainsOfAValueThatSwallowsATableAndGoesOn)
{
    const Ended ended = show({"-"}, "a = &Arr{\nb 1\n");
    EXPECT_EQ(ended.err, "stock: value contains '&Arr{'\n\t'= &Arr{'\n");
    EXPECT_EQ(ended.out, "a\t= &Arr{\nb\t1\n");
    EXPECT_EQ(ended.status, 0);
}

TEST(ToolPfShow, WantsAFile)
{
    const Ended ended = show({});
    EXPECT_EQ(ended.err, "stock: stock pf show: which file?\n  try 'stock pf show --help'\n");
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.status, 2);
}

TEST(ToolPfShow, TakesAFileThatLooksLikeAnOptionBehindTwoDashes)
{
    const Ended ended = show({"--", "--no-such-file"});
    EXPECT_EQ(ended.err, "stock: can't open parameter file '--no-such-file'\n"
                         "\tNo such file or directory\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(ToolPfShow, SaysWhenItCannotWrite)
{
    const Ended ended =
        run_program({"/bin/sh", "-c", "echo 'a 1' | '" + tool_path() + "' pf show - >/dev/full"});
    EXPECT_NE(ended.err.find("can't write to standard output"), std::string::npos);
    EXPECT_EQ(ended.status, 1);
}

TEST(ToolPf, HelpsAtEveryLevel)
{
    for (const char *word : {"--help", "-h"}) {
        Ended ended = stock({"pf", "show", word});
        EXPECT_EQ(ended.out.find("usage: stock pf show [--from] [--json] FILE|NAME...\n"), 0U);
        EXPECT_EQ(ended.status, 0);
        ended = stock({"pf", word});
        EXPECT_EQ(ended.out.find(kFamilyHelp), 0U);
        EXPECT_NE(ended.out.find("\n  show FILE|NAME...  "), std::string::npos);
        EXPECT_EQ(ended.status, 0);
        ended = stock({word});
        EXPECT_EQ(ended.out.find("usage: stock COMMAND [ARGUMENT...]\n"), 0U);
        EXPECT_NE(ended.out.find("\n  pf COMMAND ...  "), std::string::npos);
        EXPECT_EQ(ended.status, 0);
    }
}

TEST(ToolPf, SaysItsVersion)
{
    const Ended ended = stock({"--version"});
    EXPECT_EQ(ended.out, "stock 5.3.0\n");
    EXPECT_EQ(ended.status, 0);
    const Ended full = run_program({"/bin/sh", "-c", "\"$0\" --version >/dev/full", tool_path()});
    EXPECT_EQ(full.err, "stock: can't write to standard output\n\tNo space left on device\n");
    EXPECT_EQ(full.status, 1);
}

TEST(ToolPf, RefusesWordsThatItDoesNotKnow)
{
    EXPECT_EQ(stock({"pf", "shew"}).status, 2);
    EXPECT_EQ(stock({"pf", "shew"}).err,
              "stock: stock pf: no command 'shew'\n  try 'stock pf --help'\n");
    EXPECT_EQ(stock({"pf"}).status, 2);
    EXPECT_EQ(stock({}).status, 2);
}

// ---- The installed files ----

TEST(ToolPfShow, ReadsTheInstalledFilesWithoutComplaint)
{
    for (const char *name : {"elog", "time_formats"}) {
        SCOPED_TRACE(name);
        const Ended ended = show({source_path("data/pf/" + std::string(name) + ".pf")});
        EXPECT_EQ(ended.err, "");
        EXPECT_EQ(ended.status, 0);
    }
}

TEST(ToolPfShow, PrintsTheSettingsOfTheLog)
{
    EXPECT_EQ(show({source_path("data/pf/elog.pf")}).out,
              "ELOG_DEBUG\t&Arr{\n"
              "    alert\t\n    complain\t\n    debug\t\n    die\t\n    fault\t\n    log\t\n"
              "    notify\t\n"
              "}\n"
              "ELOG_DELIVER\t&Arr{\n"
              "    alert\tstderr\n    complain\tstderr\n    debug\tstderr\n    die\tstderr\n"
              "    fault\tstderr\n    log\t\n    notify\tstderr\n"
              "}\n"
              "ELOG_MAXMSG\t50\n"
              "ELOG_SIGNALS\tILL:TRAP:FPE:BUS:SEGV:SYS\n"
              "ELOG_TAG\t&Arr{\n"
              "    alert\t%P *alert*\n    complain\t%P\n    debug\t%P *debug*\n"
              "    die\t%P *fatal*\n    fault\t%P *fault*\n    log\t%P\n    notify\t%P\n"
              "}\n"
              "ELOG_WAIT\t10.0\n"
              "t_format\t%a %b %e %H:%M:%S %Y\n"
              "u_format\t%Y-%j %H:%M:%S\n");
}

TEST(ToolPfShow, PrintsTheTimeFormats)
{
    EXPECT_EQ(show({source_path("data/pf/time_formats.pf")}).out,
              "date\t%m/%d/%Y\n"
              "european\t&Arr{\n"
              "    date\t%d/%m/%Y\n"
              "    month_first\tfalse\n"
              "    time\t%d/%m/%Y  %H:%M:%S.%s\n"
              "    uydtime\t%d/%m/%Y  (%j) %H:%M:%S.%u\n"
              "    ydtime\t%d/%m/%Y  (%j) %H:%M:%S.%s\n"
              "}\n"
              "month_first\ttrue\n"
              "time\t%m/%d/%Y  %H:%M:%S.%s\n"
              "uydtime\t%m/%d/%Y  (%j) %H:%M:%S.%u\n"
              "ydtime\t%m/%d/%Y  (%j) %H:%M:%S.%s\n");
}
