// stock pf files, get, shell, and show by name, as a user runs them.

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include "support/child.h"
#include "support/temp_dir.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

// Two directories along PFPATH, a before b.
class ToolPfName : public testing::Test {
protected:
    ToolPfName()
    {
        for (const char *name : {"a", "b"})
            std::filesystem::create_directory(dir_ / name);
    }

    Ended pf(std::vector<std::string> words)
    {
        words.insert(words.begin(), {tool_path(), "pf"});
        return run_program(words, "", {"PFPATH=" + dir_ / "a" + ":" + dir_ / "b"});
    }

    std::string a(const std::string &text) { return dir_.file("a/x.pf", text); }
    std::string b(const std::string &text) { return dir_.file("b/x.pf", text); }

    TempDir dir_;
};

using ToolPfFiles = ToolPfName;
using ToolPfGet = ToolPfName;
using ToolPfShell = ToolPfName;
using ToolPfShowName = ToolPfName;

void set_time(const std::string &path, time_t seconds, long nanoseconds)
{
    const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

}  // namespace

// ---- files ----

TEST_F(ToolPfFiles, ListsTheFilesInTheOrderOfReadingWithTheirTimes)
{
    set_time(a("k 1\n"), 1201869015, 500000000);
    set_time(b("k 2\n"), 0, 0);
    const Ended ended = pf({"files", "x"});
    EXPECT_EQ(ended.out, "2008-02-01 12:30:15.500  " + dir_ / "a/x.pf" +
                             "\n"
                             "1970-01-01 00:00:00.000  " +
                             dir_ / "b/x.pf" + "\n");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
}

TEST_F(ToolPfFiles, MarksWhatIsNotThere)
{
    set_time(b("k 2\n"), 0, 0);
    EXPECT_EQ(pf({"files", "x.pf"}).out, "-                        " + dir_ / "a/x.pf" +
                                             "\n1970-01-01 00:00:00.000  " + dir_ / "b/x.pf" +
                                             "\n");
}

TEST_F(ToolPfFiles, AddsTheFileThatTheNameLeadsTo)
{
    const std::string c = dir_.file("c/x.pf", "");
    set_time(c, 0, 0);
    EXPECT_THAT(pf({"files", dir_ / "c/x"}).out, HasSubstr("\n1970-01-01 00:00:00.000  " + c));
}

TEST_F(ToolPfFiles, NoFileHasStatus1)
{
    const Ended ended = pf({"files", "x"});
    EXPECT_EQ(ended.out, "-                        " + dir_ / "a/x.pf" +
                             "\n-                        " + dir_ / "b/x.pf" + "\n");
    EXPECT_EQ(ended.err, "stock: there is no parameter file 'x'\n");
    EXPECT_EQ(ended.status, 1);
}

// ---- get ----

TEST_F(ToolPfGet, PrintsAValueOfTheMergedFiles)
{
    a("k 1\nonly a\nt &Arr{\nb &Tbl{\n x\n y z\n}\n}\n");
    b("k 2\n");
    EXPECT_EQ(pf({"get", "x", "k"}).out, "2\n");
    EXPECT_EQ(pf({"get", "x", "only"}).out, "a\n");
    EXPECT_EQ(pf({"get", "x", "t{b}[1]"}).out, "y z\n");
    EXPECT_EQ(pf({"get", "x", "t{b}"}).out, "&Tbl{\n    x\n    y z\n}\n");
    EXPECT_EQ(pf({"get", "x", "k"}).status, 0);
}

TEST_F(ToolPfGet, ExpandsReferencesAndEvaluatesFunctions)
{
    a("home /u\nd &home/data\ne &exec(echo &home)\nl &glob(" + dir_ / "a/*" + ")\n");
    EXPECT_EQ(pf({"get", "x", "d"}).out, "/u/data\n");
    EXPECT_EQ(pf({"get", "x", "e"}).out, "/u\n");
    EXPECT_EQ(pf({"get", "x", "l"}).out, "&Tbl{\n    " + dir_ / "a/x.pf" + "\n}\n");
}

TEST_F(ToolPfGet, ReadsEveryType)
{
    a("i 0x10\nd 1.50\nt 1970-01-02\nyes Yes\nno off\nz 4k\ns a  b\n"
      "l &Tbl{\n 1\n &Arr{\n q 2\n }\n &env(NONE)\n}\nr &Arr{\n y 2\n x &s\n}\n");
    const struct {
        const char *type, *address, *out;
    } cases[] = {
        {"int", "i", "16\n"},
        {"double", "d", "1.5\n"},
        {"time", "t", "86400.00000\n"},
        {"boolean", "yes", "true\n"},
        {"boolean", "no", "false\n"},
        {"boolean", "missing", "false\n"},
        {"size", "z", "4000\n"},
        {"string", "s", "a  b\n"},
        {"tbl", "l", "1\n&Arr{\n    q\t2\n}\n\n"},
        {"arr", "r", "x\ta  b\ny\t2\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.type);
        const Ended ended = pf({"get", "--type", c.type, "x", c.address});
        EXPECT_EQ(ended.out, c.out);
        EXPECT_EQ(ended.err, "");
        EXPECT_EQ(ended.status, 0);
    }
}

TEST_F(ToolPfGet, SaysOfABadValueWhatTheLibrarySays)
{
    a("k 12abc\nt nonsense\n");
    const struct {
        const char *type, *address, *out, *err;
    } cases[] = {
        {"int", "k", "12\n", "stock: Bad integer value '12abc' for k\n"},
        {"double", "k", "12\n", "stock: Bad floating point value '12abc' for k\n"},
        {"boolean", "k", "false\n", "stock: Bad boolean value '12abc' for k\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.type);
        const Ended ended = pf({"get", "--type", c.type, "x", c.address});
        EXPECT_EQ(ended.out, c.out);
        EXPECT_THAT(ended.err, HasSubstr(c.err));
        EXPECT_EQ(ended.status, 1);
    }
    EXPECT_THAT(pf({"get", "--type", "time", "x", "t"}).err,
                HasSubstr("Bad time value 'nonsense' for t"));
}

TEST_F(ToolPfGet, SaysOfAMissingValueWhatTheLibrarySays)
{
    a("k &Tbl{\n}\n");
    const Ended ended = pf({"get", "--type", "int", "x", "none"});
    EXPECT_THAT(ended.err, HasSubstr("program needs value for 'none', not found in parameter "
                                     "file 'x'"));
    EXPECT_EQ(ended.status, 1);
    const Ended wrong = pf({"get", "--type", "int", "x", "k"});
    EXPECT_THAT(wrong.err,
                HasSubstr("wrong parameter type for 'k' : expected scalar but got table in 'x'"));
    EXPECT_EQ(wrong.status, 1);
}

TEST_F(ToolPfGet, TellsWhereAValueIsWrittenThatSomethingIsWrongWith)
{
    a("k 1\nt &Tbl{\n x\n}\nr &ref(nosuch, k)\n");
    b("\nk 12abc\n");
    const std::string k = "stock: 'k' is written in " + dir_ / "b/x.pf:2\n";
    EXPECT_EQ(pf({"get", "--type", "int", "x", "k"}).err,
              "stock: Bad integer value '12abc' for k\n" + k);
    EXPECT_THAT(pf({"get", "--type", "int", "x", "t"}).err,
                testing::StartsWith("stock: 't' is written in " + dir_ / "a/x.pf:2\n"));
    EXPECT_THAT(pf({"get", "x", "r"}).err,
                testing::EndsWith("stock: 'r' is written in " + dir_ / "a/x.pf:5\n"));
    EXPECT_EQ(pf({"get", "x", "k"}).err, "");
}

TEST_F(ToolPfGet, RefusesWhatIsNoAddress)
{
    a("t &Arr{\n k 1\n}\n");
    for (const char *address : {"t{k", "tk}", "t[", "t{k}x"}) {
        const Ended ended = pf({"get", "x", address});
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.err, "stock: stock pf get: '" + std::string(address) +
                                 "' is no address\n  try 'stock pf get --help'\n");
        EXPECT_EQ(ended.status, 2);
    }
    EXPECT_EQ(pf({"get", "x", ""}).out, "t\t&Arr{\n    k\t1\n}\n");
}

TEST_F(ToolPfGet, AMissingTextListOrTableHasStatus1)
{
    a("k 1\n");
    for (const char *type : {"string", "tbl", "arr"}) {
        SCOPED_TRACE(type);
        const Ended ended = pf({"get", "--type", type, "x", "none"});
        EXPECT_EQ(ended.err, "stock: no entry 'none' in parameter file x\n");
        EXPECT_EQ(ended.status, 1);
    }
    EXPECT_EQ(pf({"get", "x", "none"}).err, "stock: no entry 'none' in parameter file x\n");
    EXPECT_EQ(pf({"get", "x", "none"}).status, 1);
}

TEST_F(ToolPfGet, ATableThatIsNoListIsToldByTheLibrary)
{
    a("t &Arr{\n}\n");
    const Ended ended = pf({"get", "--type", "tbl", "x", "t"});
    EXPECT_THAT(ended.err, HasSubstr("expected table but got array"));
    EXPECT_EQ(ended.status, 1);
}

TEST_F(ToolPfGet, AReferenceThatLeadsNowhereAndACommandThatFailsHaveStatus1)
{
    a("r &ref(nosuch, k)\ne &exec(echo out; exit 3)\n");
    const Ended reference = pf({"get", "x", "r"});
    EXPECT_THAT(reference.err, HasSubstr("referenced pf file not found: '&ref(nosuch, k)'"));
    EXPECT_THAT(reference.err, HasSubstr("can't evaluate 'r' of parameter file x"));
    EXPECT_EQ(reference.status, 1);
    const Ended command = pf({"get", "x", "e"});
    EXPECT_EQ(command.out, "out\n");
    EXPECT_EQ(command.status, 1);
}

TEST_F(ToolPfGet, OfAFileWithAnErrorThePartBeforeItCounts)
{
    a("k 1\n}\n");
    const Ended ended = pf({"get", "x", "k"});
    EXPECT_EQ(ended.out, "1\n");
    EXPECT_THAT(ended.err, HasSubstr("invalid right brace at line #2"));
    EXPECT_EQ(ended.status, 1);
}

// ---- shell ----

TEST_F(ToolPfShell, PrintsAssignments)
{
    a("b 1\na &b it's\nt &Arr{\n x-y 2\n u &Tbl{\n  p q\n  &Arr{\n   z 3\n  }\n }\n}\n");
    const Ended ended = pf({"shell", "x", "P_"});
    EXPECT_EQ(ended.out, "P_a='1 it'\\''s'\nP_b='1'\nP_t_u='2'\nP_t_u_0='p q'\nP_t_u_1_z='3'\n"
                         "P_t_x_y='2'\n");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
}

TEST_F(ToolPfShell, WhatItPrintsIsSafeToEvaluate)
{
    const std::string value = "';`id`$(id)\"\\#$HOME\n*!";
    a("v &Literal{\n" + value + "}\n");
    const Ended ended = run_program(
        {"/bin/sh", "-c", "eval \"$('" + tool_path() + "' pf shell x p_)\"; printf %s \"$p_v\""},
        "", {"PFPATH=" + dir_ / "a"});
    EXPECT_EQ(ended.out, value);
    EXPECT_EQ(ended.err, "");
}

TEST_F(ToolPfShell, ReportsTwoValuesOfOneVariable)
{
    a("a-b 1\na_b 2\n");
    const Ended ended = pf({"shell", "x", "p_"});
    EXPECT_EQ(ended.out, "p_a_b='1'\n");
    EXPECT_EQ(ended.err, "stock: two values would be 'p_a_b'\n");
    EXPECT_EQ(ended.status, 1);
}

TEST_F(ToolPfShell, ReportsWhatHasNoValue)
{
    a("a &undef()\nb &ref(nosuch, k)\nc 1\n");
    const Ended ended = pf({"shell", "x", "p_"});
    EXPECT_EQ(ended.out, "p_c='1'\n");
    EXPECT_THAT(ended.err, HasSubstr("can't evaluate what is the value of 'p_a'"));
    EXPECT_THAT(ended.err, HasSubstr("can't evaluate what is the value of 'p_b'"));
    EXPECT_EQ(ended.status, 1);
}

TEST_F(ToolPfShell, RefusesAPrefixThatIsNoName)
{
    a("k 1\n");
    for (const char *prefix : {"", "1a", "a-b", "a;b", "a b"}) {
        SCOPED_TRACE(prefix);
        const Ended ended = pf({"shell", "x", prefix});
        EXPECT_THAT(ended.err, HasSubstr("can't begin a variable"));
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.status, 2);
    }
}

// ---- show ----

TEST_F(ToolPfShowName, MergesTheFilesOfAName)
{
    a("k 1\nonly a\ngone 1\n");
    b("k 2\ngone &Undef{}\n");
    EXPECT_EQ(pf({"show", "x"}).out, "k\t2\nonly\ta\n");
    EXPECT_EQ(pf({"show", "x", dir_ / "a/x.pf"}).out, "gone\t1\nk\t1\nonly\ta\n");
}

TEST_F(ToolPfShowName, TellsWhereEachValueIsFrom)
{
    const std::string first = a("k 1\nonly &Tbl{\n 1\n}\n");
    const std::string second = b("k 2\n");
    const Ended ended = pf({"show", "--from", "x"});
    EXPECT_EQ(ended.out, "# " + second + "\nk\t2\n# " + first + "\nonly\t&Tbl{\n    1\n}\n");
    EXPECT_EQ(ended.status, 0);
}

TEST_F(ToolPfShowName, PrintsJson)
{
    a("s a \"b\" \\\\\ne\nt &Arr{\n n &Tbl{\n  1\n }\n v &Tbl{\n }\n}\nf &exec(date) \n"
      "u \xc3\xa9\x80\x01\n");
    EXPECT_EQ(pf({"show", "--json", "x"}).out,
              "{\n    \"e\": \"\",\n    \"f\": \"&exec(date)\",\n"
              "    \"s\": \"a \\\"b\\\" \\\\\",\n"
              "    \"t\": {\n        \"n\": [\n            \"1\"\n        ],\n"
              "        \"v\": []\n    },\n"
              "    \"u\": \"\xc3\xa9\\ufffd\\u0001\"\n}\n");
}

TEST_F(ToolPfShowName, PrintsJsonWithTheFileOfEachValue)
{
    const std::string path = a("k 1\n");
    EXPECT_EQ(pf({"show", "--json", "--from", "x"}).out,
              "{\n    \"k\": {\n        \"file\": \"" + path +
                  "\",\n        \"value\": \"1\"\n    }\n}\n");
    a("# nothing\n");
    EXPECT_EQ(pf({"show", "--json", "--from", "x"}).out, "{}\n");
    EXPECT_EQ(pf({"show", "--json", "x"}).out, "{}\n");
}

TEST_F(ToolPfShowName, RefusesOtherOptions)
{
    const Ended ended = pf({"show", "--nosuch", "x"});
    EXPECT_EQ(ended.err,
              "stock: stock pf show: no option '--nosuch'\n  try 'stock pf show --help'\n");
    EXPECT_EQ(ended.status, 2);
}

// ---- All of them ----

TEST_F(ToolPfName, HelpsWithEach)
{
    for (const char *command : {"files", "get", "shell", "show"}) {
        SCOPED_TRACE(command);
        const Ended ended = pf({command, "--help"});
        EXPECT_THAT(ended.out, StartsWith(std::string("usage: stock pf ") + command + " "));
        EXPECT_EQ(ended.status, 0);
    }
}

TEST_F(ToolPfName, WrongUsageHasStatus2)
{
    const std::vector<std::vector<std::string>> cases = {
        {"files"},
        {"files", "x", "y"},
        {"files", ""},
        {"get"},
        {"get", "x"},
        {"get", "x", "k", "l"},
        {"get", "--type"},
        {"get", "--nosuch", "x", "k"},
        {"get", "--type", "nosuch", "x", "k"},
        {"shell"},
        {"shell", "x"},
        {"shell", "x", "p", "q"},
    };
    for (const auto &words : cases) {
        const Ended ended = pf(words);
        EXPECT_EQ(ended.status, 2);
        EXPECT_EQ(ended.out, "");
        EXPECT_THAT(ended.err, HasSubstr("try 'stock pf " + words[0] + " --help'\n"));
    }
}

TEST_F(ToolPfName, ANameThatBeginsWithADashStandsBehindTwo)
{
    dir_.file("a/-x.pf", "k 1\n");
    EXPECT_EQ(pf({"get", "--", "-x", "k"}).out, "1\n");
    EXPECT_EQ(pf({"get", "--type", "int", "--", "-x", "k"}).out, "1\n");
    EXPECT_EQ(pf({"get", "-x", "k"}).status, 2);
}

TEST_F(ToolPfName, ANameWithoutAFileHasStatus1)
{
    for (const auto &words :
         std::vector<std::vector<std::string>>{{"get", "x", "k"}, {"shell", "x", "p"}}) {
        const Ended ended = pf(words);
        EXPECT_EQ(ended.err, "stock: there is no parameter file 'x'\n");
        EXPECT_EQ(ended.status, 1);
    }
}
