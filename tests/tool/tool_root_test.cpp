// stock root, as a user runs it.

#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "stock/gettaluvine.h"
#include "support/child.h"
#include "support/temp_dir.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

namespace fs = std::filesystem;

// Whether this machine has the default root, which then goes before the program's.
bool default_is_installed()
{
    return fs::is_directory(Default_taluvinepath);
}

const std::string kDefault = std::string(Default_taluvinepath) + "\nfound as the default root\n";

}  // namespace

TEST(ToolFileSize, AWriteThatIsTooLargeFailsWithItsMessage)
{
    const TempDir dir;
    const Ended ended = run_program(
        {"/bin/sh", "-c", "ulimit -f 0; exec \"$0\" --version > \"$1\"", tool_path(), dir / "out"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "stock: can't write to standard output\n\tFile too large\n");
}

TEST(ToolRoot, IsGivenByTheEnvironment)
{
    const Ended ended = run_program({tool_path(), "root"}, "", {"TALUVINE=/some/root"});
    EXPECT_EQ(ended.out, "/some/root\nfound as the environment variable TALUVINE\n");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
}

TEST(ToolRoot, IsAboveTheBinThatTheProgramLiesIn)
{
    const TempDir dir;
    fs::create_directory(dir / "bin");
    fs::copy(tool_path(), dir / "bin/stock");
    const Ended ended = run_program({dir / "bin/stock", "root"}, "", {"TALUVINE"});
    EXPECT_EQ(ended.out, default_is_installed()
                             ? kDefault
                             : fs::canonical(dir.path()).string() +
                                   "\nfound as the directory above the program's bin\n");
    EXPECT_EQ(ended.status, 0);
}

TEST(ToolRoot, WithoutAnyTheStatusIs1)
{
    const bool any = fs::exists("/opt/taluvine");
    const Ended ended = run_program({tool_path(), "root"}, "", {"TALUVINE", "PATH=/nosuchdir"});
    EXPECT_EQ(ended.status, any ? 0 : 1);
    EXPECT_EQ(ended.err, any ? "" : "stock: there is no installation root; set TALUVINE\n");
}

TEST(ToolRoot, Helps)
{
    const Ended ended = run_program({tool_path(), "root", "--help"});
    EXPECT_THAT(ended.out, StartsWith("usage: stock root"));
    EXPECT_EQ(ended.status, 0);
}

TEST(ToolRoot, WrongUsageHasStatus2)
{
    const Ended ended = run_program({tool_path(), "root", "x"});
    EXPECT_EQ(ended.status, 2);
    EXPECT_THAT(ended.err, HasSubstr("stock root: what is 'x'?\n  try 'stock root --help'\n"));
}
