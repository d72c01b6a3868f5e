// stock find, as a user runs it.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/child.h"
#include "support/temp_dir.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

class ToolFind : public testing::Test {
protected:
    Ended find(std::vector<std::string> words)
    {
        words.insert(words.begin(), {tool_path(), "find"});
        return run_program(words, "",
                           {"DATAPATH=" + dir_ / "a" + ":" + dir_ / "b", "OTHER=" + dir_ / "b"});
    }

    TempDir dir_;
};

}  // namespace

TEST_F(ToolFind, MarksTheFirstCandidateAndListsTheOthers)
{
    const std::string a = dir_.file("a/x", "");
    const std::string b = dir_.file("b/x", "");
    const Ended ended = find({"x"});
    EXPECT_EQ(ended.out, "* " + a + "\n  " + b + "\n");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
}

TEST_F(ToolFind, ListsWhatIsNotThereWhenTold)
{
    dir_.file("a/other", "");
    const std::string b = dir_.file("b/x", "");
    EXPECT_EQ(find({"--all", "x"}).out, "- " + dir_ / "a/x" + "\n* " + b + "\n");
    EXPECT_EQ(find({"x"}).out, "* " + b + "\n");
}

TEST_F(ToolFind, TriesANameWithAndWithoutItsDirectory)
{
    const std::string with = dir_.file("a/t/x", "");
    const std::string without = dir_.file("a/x", "");
    EXPECT_EQ(find({"t/x"}).out, "* " + with + "\n  " + without + "\n");
}

TEST_F(ToolFind, LooksAlongAnotherVariableAndInASubdirectory)
{
    dir_.file("a/sub/x", "");
    const std::string b = dir_.file("b/sub/x", "");
    EXPECT_EQ(find({"--path", "OTHER", "--dir", "sub", "x"}).out, "* " + b + "\n");
}

TEST_F(ToolFind, NothingFoundHasStatus1)
{
    dir_.file("a/other", "");
    const Ended ended = find({"--all", "x"});
    EXPECT_EQ(ended.out, "- " + dir_ / "a/x" + "\n");
    EXPECT_EQ(ended.err, "stock: there is no file 'x' along the data path\n");
    EXPECT_EQ(ended.status, 1);
}

TEST_F(ToolFind, ANameThatBeginsWithADashStandsBehindTwo)
{
    const std::string path = dir_.file("a/-x", "");
    EXPECT_EQ(find({"--", "-x"}).out, "* " + path + "\n");
    EXPECT_EQ(find({"--all", "--", "-x"}).out, "* " + path + "\n");
}

TEST_F(ToolFind, Helps)
{
    const Ended ended = find({"--help"});
    EXPECT_THAT(ended.out, StartsWith("usage: stock find"));
    EXPECT_EQ(ended.status, 0);
}

TEST_F(ToolFind, WrongUsageHasStatus2)
{
    const std::vector<std::vector<std::string>> cases = {
        {}, {""}, {"--all"}, {"--path"}, {"--nosuch", "x"}, {"x", "y"}, {"x", "--dir"},
    };
    for (const auto &words : cases) {
        const Ended ended = find(words);
        EXPECT_EQ(ended.status, 2);
        EXPECT_EQ(ended.out, "");
        EXPECT_THAT(ended.err, HasSubstr("try 'stock find --help'\n"));
    }
}
