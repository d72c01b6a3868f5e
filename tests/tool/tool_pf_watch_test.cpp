// stock pf watch, as a user runs it.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/child.h"
#include "support/temp_dir.h"

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

namespace {

class ToolPfWatch : public testing::Test {
protected:
    ToolPfWatch() { dir_.file("b/other", ""); }

    // Watches x until it has changed so often, while a shell goes on changing it:
    // with every turn the variable i is one more.
    std::string watch(int changes, const std::string &change)
    {
        const std::string script = "'" + tool_path() + "' pf watch --interval 0.005 --changes " +
                                   std::to_string(changes) +
                                   " x & pid=$!; i=0\n"
                                   "while kill -0 $pid 2>/dev/null; do\n"
                                   "i=$((i + 1))\n" +
                                   change + "\nsleep 0.02\ndone\nwait $pid";
        const Ended ended = run_program({"/bin/sh", "-c", "cd '" + dir_.path() + "'\n" + script},
                                        "", {"PFPATH=a:b"});
        EXPECT_EQ(ended.err, "");
        EXPECT_EQ(ended.status, 0);
        return ended.out;
    }

    TempDir dir_;
};

}  // namespace

TEST_F(ToolPfWatch, PrintsTheTimeAndWhatChanged)
{
    dir_.file("a/x.pf", "k 0\nsame 1\nt &Arr{\nl &Tbl{\n0\n}\n}\n");
    EXPECT_THAT(watch(1, "printf 'k %s\\nsame 1\\nt &Arr{\\nl &Tbl{\\n%s\\n}\\n}\\n' $i $i >t; "
                         "mv t a/x.pf"),
                MatchesRegex("# [0-9]+-[0-9]+-[0-9]+ [0-9]+:[0-9]+:[0-9]+ x\n"
                             "- k '[0-9]+'\n\\+ k '[0-9]+'\n"
                             "- t\\{l\\}\\[0\\] '[0-9]+'\n\\+ t\\{l\\}\\[0\\] '[0-9]+'\n"));
}

TEST_F(ToolPfWatch, AKeyOfTwoLinesIsPrintedOnOne)
{
    dir_.file("a/x.pf", "k 0\n");
    EXPECT_THAT(watch(1, "printf '\"k\nl\" %s\\nk 0\\n' $i >t; mv t a/x.pf"),
                ContainsRegex("\n\\+ k\\\\nl '[0-9]+'\n$"));
}

TEST_F(ToolPfWatch, SeesFilesComeAndGo)
{
    dir_.file("a/x.pf", "k 0\n");
    const std::string out =
        watch(2, "if test -f b/x.pf; then rm b/x.pf; else echo 'k &env(X)' >t; mv t b/x.pf; fi");
    EXPECT_THAT(out, HasSubstr("- k '0'\n+ k &env(X)\n"));
    EXPECT_THAT(out, HasSubstr("- k &env(X)\n+ k '0'\n"));
}

TEST_F(ToolPfWatch, WatchesANameThatHasNoFileYet)
{
    dir_.file("a/other", "");
    const std::string out = watch(1, "echo 'k 1' >t; mv t a/x.pf; sleep 0.05; rm a/x.pf");
    EXPECT_THAT(out, ContainsRegex("\n[-+] k '1'\n$"));
}

TEST_F(ToolPfWatch, AFileThatIsOnlyTouchedPrintsNothing)
{
    dir_.file("a/x.pf", "k 0\n");
    const std::string out =
        watch(1, "if test $i -lt 10; then touch a/x.pf; else echo \"k $i\" >t; mv t a/x.pf; fi");
    EXPECT_THAT(out, Not(HasSubstr("x\n#")));
    EXPECT_THAT(out, ContainsRegex("^# [^\n]*\n- k '[0-9]+'\n\\+ k '[0-9]+'\n$"));
}

TEST_F(ToolPfWatch, HelpsAndRefusesWrongUsage)
{
    EXPECT_THAT(run_program({tool_path(), "pf", "watch", "--help"}).out,
                StartsWith("usage: stock pf watch "));
    const std::vector<std::vector<std::string>> cases = {
        {},
        {""},
        {"x", "y"},
        {"--interval", "0", "x"},
        {"--interval", "x"},
        {"--changes", "none", "x"},
        {"--nosuch", "x"},
        {"x", "--"},
        {"--"},
    };
    for (std::vector<std::string> words : cases) {
        words.insert(words.begin(), {tool_path(), "pf", "watch"});
        const Ended ended = run_program(words);
        EXPECT_EQ(ended.status, 2);
        EXPECT_THAT(ended.err, HasSubstr("try 'stock pf watch --help'\n"));
    }
}
