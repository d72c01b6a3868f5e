// stock pf check, as a user runs it.

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/child.h"
#include "support/temp_dir.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class ToolPfCheck : public testing::Test {
protected:
    Ended check(std::vector<std::string> words, const std::string &input = {})
    {
        words.insert(words.begin(), {tool_path(), "pf", "check"});
        return run_program(words, input,
                           {"PFPATH=" + dir_.path(), "DATAPATH=" + dir_.path(), "WHERE=sub"});
    }

    // What is found in a file with this text, without the name of the file.
    std::string found(const std::string &text, std::vector<std::string> options = {})
    {
        const std::string path = dir_.file("x.pf", text);
        options.push_back(path);
        const Ended ended = check(options);
        EXPECT_EQ(ended.err, "");
        EXPECT_EQ(ended.status, ended.out.empty() ? 0 : 1);
        std::string out = ended.out;
        for (size_t at; (at = out.find(path + ":")) != std::string::npos;)
            out.erase(at, path.size() + 1);
        return out;
    }

    TempDir dir_;
};

}  // namespace

TEST_F(ToolPfCheck, SaysNothingOfGoodFiles)
{
    EXPECT_EQ(found("# c\na 1\nb &a\nt &Arr{\n c &a &{b}\n l &Tbl{\n  &c\n }\n}\n"), "");
}

TEST_F(ToolPfCheck, ReadsStandardInput)
{
    EXPECT_EQ(check({"-"}, "a 1\n").status, 0);
    const Ended ended = check({"-", dir_.file("y.pf", "b &a\n")}, "a 1\na 2\n}\n");
    EXPECT_EQ(ended.out, "-:2: key 'a' is given again, first on line 1\n"
                         "-:3: '}' closes nothing\n");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(check({"-x"}).status, 2);
    EXPECT_THAT(check({"--", "-x"}).err, HasSubstr("can't open parameter file '-x'"));
}

TEST_F(ToolPfCheck, FindsEveryErrorOfSyntaxWithItsLine)
{
    EXPECT_EQ(found("}\na 1\n}\nb &Arr{\n c &Tbl{\n  x\n"),
              "1: '}' closes nothing\n3: '}' closes nothing\n"
              "4: table 'b' is not closed\n5: list 'c' is not closed\n");
}

TEST_F(ToolPfCheck, FindsALiteralThatDoesNotEnd)
{
    EXPECT_EQ(found("a 1\nb &Literal{\nx\n"), "2: literal 'b' is not closed\n");
    EXPECT_EQ(found("b &Literal\"END\nx\n"), "1: literal 'b' is not closed\n");
}

TEST_F(ToolPfCheck, FindsNestingThatIsTooDeep)
{
    std::string text;
    for (int i = 0; i < 12; ++i)
        text += "a &Arr{\n";
    for (int i = 0; i < 12; ++i)
        text += "}\n";
    EXPECT_EQ(found(text), "12: nested more than 11 deep\n");
}

TEST_F(ToolPfCheck, FindsValuesThatSwallowATable)
{
    EXPECT_EQ(found("a = &Arr{\nb = &Tbl{\nc = &Literal{\n"),
              "1: the value swallows '&Arr{'\n2: the value swallows '&Tbl{'\n"
              "3: the value swallows '&Literal{'\n");
}

TEST_F(ToolPfCheck, FindsKeysThatAreGivenTwice)
{
    EXPECT_EQ(found("a 1\nt &Arr{\n a 1\n b 2\n b 3\n}\na 2\n"),
              "5: key 'b' is given again, first on line 4\n"
              "7: key 'a' is given again, first on line 1\n");
}

TEST_F(ToolPfCheck, AKeyOfTwoLinesIsToldOnOne)
{
    EXPECT_EQ(found("'a\nb' &Tbl{\n1\n"), "2: list 'a\\nb' is not closed\n");
}

TEST_F(ToolPfCheck, TakesNoLongerForEachOfManyProblems)
{
    std::string text;
    for (int i = 0; i < 100000; ++i)
        text += "k v\n";
    const std::string path = dir_.file("x.pf", text);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THAT(check({path}).out,
                EndsWith(":100000: key 'k' is given again, first on line 99999\n"));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

TEST_F(ToolPfCheck, TakesNoLongerForEachOfManyReferences)
{
    std::string in_table = "t &Arr{\n";
    std::string at_top = "x 1\nall";
    for (int i = 0; i < 100000; ++i) {
        const std::string line = "key" + std::to_string(i) + " v &{x}\n";
        at_top += "\n" + line.substr(0, line.size() - 1);
        in_table += line;
    }
    std::string hub = "hub";
    std::string spokes;
    for (int i = 0; i < 5000; ++i) {
        hub += " &k" + std::to_string(i);
        spokes += "k" + std::to_string(i) + " &hub\n";
    }
    std::string others;
    dir_.file("other.pf", at_top + "\n");
    for (int i = 0; i < 1000; ++i)
        others += "o" + std::to_string(i) + " &ref(other, x)\n";
    for (const std::string &text :
         {at_top + "\n", "x 1\n" + in_table + "}\n", hub + "\n" + spokes, others}) {
        const std::string path = dir_.file("x.pf", text);
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_THAT(
            run_program({tool_path(), "pf", "check", path}, "", {"PFPATH=" + dir_.path()}).err, "");
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    }
}

TEST_F(ToolPfCheck, FindsWhatIsCutBecauseTheLastLineHasNoNewline)
{
    EXPECT_EQ(found("a 1\nnorth"), "2: key 'north' is cut: the last line has no newline\n");
    EXPECT_EQ(found("a 1\n'north' "), "2: key 'north' is cut: the last line has no newline\n");
    for (const char *value : {"&exec(date)", "&exec(date) ", "&exec(grep '#' f)", "mm\\", "\\\\\\"})
        EXPECT_EQ(found("a 1\nb " + std::string(value)),
                  "2: the value is cut: the last line has no newline\n")
            << value;
    for (const char *rest :
         {"", "b 1", "b mm\\\\", "b &exec(date) x", "b &Tbl{\n}", "b &Literal{\nx\n}", "b &Undef{}",
          "# north", "  ", "__END__", "b &exec(date)\n", "b mm \\\n"})
        EXPECT_EQ(found("a 1\n" + std::string(rest)), "") << rest;
}

TEST_F(ToolPfCheck, FindsValuesThatEndInACarriageReturn)
{
    EXPECT_EQ(found("a 1\r\nb &Tbl{\r\n 2\r\n}\r\nc &exec(date)\r\nd\r\n"),
              "1: the value ends in a carriage return\n3: the value ends in a carriage return\n"
              "5: the value ends in a carriage return\n"
              "6: key 'd\\015' ends in a carriage return\n");
    EXPECT_EQ(found("a 1\\r\nb 1\r2\n"), "") << "which are meant";
}

TEST_F(ToolPfCheck, AKeyMayBeGivenAgainOnceItIsUndefined)
{
    EXPECT_EQ(found("a 1\na &Undef{}\na 2\n"), "");
}

TEST_F(ToolPfCheck, FindsReferencesThatLeadToNothing)
{
    EXPECT_EQ(found("a &no\nt &Arr{\n in 1\n b &in &{none}\n}\nc &in\nd &t\n"),
              "1: '&no' leads to nothing\n4: '&{none}' leads to nothing\n"
              "6: '&in' leads to nothing\n7: '&t' leads to nothing\n");
}

TEST_F(ToolPfCheck, FindsReferencesThatNeverEnd)
{
    EXPECT_EQ(found("a &a\nb &c\nc &{d}x\nd &b\nt &Arr{\n a &a\n}\nl fine\nm &l\n"),
              "1: references in references, more than 10 deep\n"
              "2: references in references, more than 10 deep\n"
              "3: references in references, more than 10 deep\n"
              "4: references in references, more than 10 deep\n"
              "6: references in references, more than 10 deep\n");
}

TEST_F(ToolPfCheck, FollowsReferencesAsDeepAsTheLibraryDoes)
{
    std::string text = "k0 1\n";
    for (int i = 1; i <= 10; ++i)
        text += "k" + std::to_string(i) + " &k" + std::to_string(i - 1) + "\n";
    EXPECT_EQ(found(text), "");
    EXPECT_EQ(found(text + "k11 &k10\n"), "12: references in references, more than 10 deep\n");
    EXPECT_EQ(run_program({tool_path(), "pf", "get", dir_ / "x.pf", "k10"}).out, "1\n");
    EXPECT_EQ(run_program({tool_path(), "pf", "get", dir_ / "x.pf", "k11"}).out,
              "** error ** pf massive recursion\n");
}

TEST_F(ToolPfCheck, AnAmpersandBeforeNoNameIsNoReference)
{
    EXPECT_EQ(found("a &exec(ls 2>&1 && date)\nb x & y\n"), "");
}

TEST_F(ToolPfCheck, FindsReferencesToOtherFilesThatLeadToNothing)
{
    dir_.file("other.pf", "k 1\nt &Arr{\n l &Tbl{\n 1\n }\n}\n");
    EXPECT_EQ(found("a &ref(other, k)\nb &ref(other, t{l}[0])\nc &ref(other, t{l}[1])\n"
                    "d &ref(nosuch, k)\n"),
              "3: '&ref(other, t{l}[1])' leads to nothing\n"
              "4: '&ref(nosuch, k)' leads to nothing\n");
}

TEST_F(ToolPfCheck, FindsFilesThatAreNotThere)
{
    dir_.file("sub/y", "");
    EXPECT_EQ(found("a &file(sub/y)\nb &file($WHERE/y)\nc &file(y)\nd &datafile(sub/y)\n"
                    "e &datafile(nosuch)\nf &file(sub)\n"),
              "3: '&file(y)' leads to nothing\n5: '&datafile(nosuch)' leads to nothing\n"
              "6: '&file(sub)' leads to nothing\n");
}

TEST_F(ToolPfCheck, SeveralFilesAreOneTree)
{
    const std::string first = dir_.file("1.pf", "a 1\nb &c\n");
    const std::string second = dir_.file("2.pf", "c &a\na &Undef{}\n");
    EXPECT_EQ(check({first, second}).out, second + ":1: '&a' leads to nothing\n");
}

TEST_F(ToolPfCheck, SaysNothingOfTheFilesThatComeWithIt)
{
    for (const char *file : {"data/pf/elog.pf", "data/pf/time_formats.pf",
                             "examples/loadwatch/elog.pf", "examples/loadwatch/loadwatch.pf"}) {
        const Ended ended = check({source_path(file)});
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.status, 0);
    }
}

TEST_F(ToolPfCheck, TellsOfAZeroByteThatEndsTheText)
{
    using std::string_literals::operator""s;
    EXPECT_EQ(found("a 1\n\0b 2\n"s), "2: zero byte, behind which nothing is read\n");
    EXPECT_EQ(found("a 1\n__END__\n\0"s), "");
}

TEST_F(ToolPfCheck, AFileThatCannotBeReadHasStatus1)
{
    const Ended ended = check({dir_ / "no.pf"});
    EXPECT_THAT(ended.err, HasSubstr("can't open parameter file '" + dir_ / "no.pf"));
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(check({dir_.path()}).err, HasSubstr("can't read parameter file"));
}

TEST_F(ToolPfCheck, HelpsAndRefusesWrongUsage)
{
    EXPECT_THAT(check({"--help"}).out, StartsWith("usage: stock pf check [--with TABLE] FILE..."));
    EXPECT_EQ(check({}).status, 2);
    EXPECT_EQ(check({"--nosuch"}).status, 2);
    EXPECT_EQ(check({"--"}).status, 2);
}

namespace {

constexpr const char *kTable = "# how often\n"
                               "#: interval: duration, 0.1 s to 3600 s\n"
                               "interval 10 s\n"
                               "#: state: text, 1 to 10 bytes, required\n"
                               "#state\n"
                               "#: path: text\n"
                               "path &{directory}/x\n"
                               "#: mode: word (slow fast)\n"
                               "mode slow\n"
                               "#: since: time, at least 2008-02-01 00:00:00\n"
                               "#: depths: list of double, 0 to 100\n"
                               "#: watch: list of word (north south)\n"
                               "#: numbers: table of int, at most 9\n"
                               "net &Arr{\n"
                               "    #: net{port}: int, 1 to 65535\n"
                               "    port 80\n"
                               "}\n"
                               "#: limits: records\n"
                               "#: limits{*}{mm}: double, 0 to inf, required\n"
                               "#: limits{*}{hours}: duration, default 1 h\n"
                               "#: pumps: records, required\n"
                               "#: other: any\n";

}  // namespace

TEST_F(ToolPfCheck, HoldsFilesToATableOfWhatAProgramWants)
{
    const std::string table = dir_.file("table.pf", kTable);
    const auto found_with = [&](const std::string &text) { return found(text, {"--with", table}); };
    EXPECT_EQ(found_with("state here\npumps &Arr{\n}\n"), "");
    EXPECT_EQ(
        found_with("state here\ndirectory /tmp\nother &Arr{\na 1\n}\nmode fast\n"
                   "since 2008-02-02\ndepths &Tbl{\n1\n2.5\n}\nwatch &Tbl{\nsouth\n}\n"
                   "numbers &Arr{\na -5\n}\nlimits &Arr{\nnorth &Arr{\nmm 3\n}\n}\n"
                   "n 443\nnet &Arr{\nport &n\n}\npumps &Arr{\n}\npf_revision_time 2008-02-02\n"),
        "");
    EXPECT_EQ(found_with("# nothing\n\n"),
              "2: state: is missing (a text)\n2: pumps: is missing (a table)\n");
    EXPECT_EQ(found_with("intreval 5\nstate much too long\ninterval 0\nmode faster\n"
                         "since 1999-01-01\ndepths &Tbl{\n1\nx\n101\n}\nwatch north\n"
                         "numbers &Arr{\na 10\n}\nnet 5\nn x\n"
                         "limits &Arr{\nnorth &Arr{\nmn 3\nhours &n\n}\nsouth 4\n}\npumps 5\n"),
              "1: intreval: nothing wants this; did you mean 'interval'?\n"
              "2: state: 'much too long' is too long (1 to 10 bytes)\n"
              "3: interval: '0' is out of range (0.1 s to 3600 s)\n"
              "4: mode: 'faster' is none of slow, fast\n"
              "5: since: '1999-01-01' is out of range (at least 2008-02-01 00:00:00)\n"
              "8: depths[1]: 'x' is not a number (0 to 100)\n"
              "9: depths[2]: '101' is out of range (0 to 100)\n"
              "11: watch: 'north' is not a list\n"
              "13: numbers{a}: '10' is out of range (at most 9)\n"
              "15: net{port}: is missing: what it should stand in is no table\n"
              "18: limits{north}{mm}: is missing (a number)\n"
              "19: limits{north}{mn}: nothing wants this; did you mean 'limits{north}{mm}'?\n"
              "20: limits{north}{hours}: 'x' is not a duration\n"
              "22: limits{south}: '4' is not a table\n"
              "24: pumps: '5' is not a table\n");
}

TEST_F(ToolPfCheck, EvaluatesNoFunctionToHoldAFileToATable)
{
    const std::string table = dir_.file("table.pf", kTable);
    const std::string touch = "&exec(touch '" + dir_ / "ran" + "')\n";
    const std::string path = dir_.file("x.pf", "pumps " + touch + "state &n\nn " + touch +
                                                   "interval " + touch + "depths &Tbl{\n" + touch +
                                                   "x\n}\n" + "limits &Arr{\nnorth &Arr{\nmm " +
                                                   touch + "}\nsouth " + touch + "}\n");
    const Ended ended = check({"--with", table, path});
    EXPECT_EQ(ended.out, path + ":7: depths[1]: 'x' is not a number (0 to 100)\n");
    EXPECT_FALSE(std::filesystem::exists(dir_ / "ran"));
}

TEST_F(ToolPfCheck, SeveralFilesAreHeldToATableAsOne)
{
    const std::string table = dir_.file("table.pf", kTable);
    const std::string one = dir_.file("one.pf", "state here\ninterval 0\npumps &Arr{\n}\n");
    const std::string two = dir_.file("two.pf", "interval 5\nmode faster\n");
    EXPECT_EQ(check({"--with", table, one, two}).out,
              two + ":2: mode: 'faster' is none of slow, fast\n");
    EXPECT_EQ(check({"--with", table, "-", one}, "interval 1\n").out,
              one + ":2: interval: '0' is out of range (0.1 s to 3600 s)\n");
}

TEST_F(ToolPfCheck, RefusesATableThatNoProgramPrinted)
{
    const std::string file = dir_.file("x.pf", "a 1\n");
    Ended ended = check({"--with", file, file});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.err, HasSubstr("x.pf: no line begins with '#: '"));
    for (const char *line : {"a", "a: thing", "a: int, 5", "a: int, x to y", "a: list",
                             "a: list of list", "a: word", "a: int (x)", "a: word (x", ": int"}) {
        const std::string table =
            dir_.file("table.pf", "#: b: int\n#: " + std::string(line) + "\n");
        ended = check({"--with", table, file});
        EXPECT_EQ(ended.status, 1);
        EXPECT_THAT(ended.err, HasSubstr("table.pf:2: this is no line of pfwant_print")) << line;
    }
    EXPECT_EQ(check({"--with"}).status, 2);
    EXPECT_EQ(check({"--with", file}).status, 2);
    EXPECT_EQ(check({"--with", dir_ / "nosuch", file}).status, 1);
}
