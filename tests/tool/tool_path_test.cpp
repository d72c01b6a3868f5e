// stock path, as a user runs it.

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/child.h"
#include "support/temp_dir.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

Ended path(std::vector<std::string> words)
{
    words.insert(words.begin(), {tool_path(), "path"});
    return run_program(words);
}

}  // namespace

TEST(ToolPath, CleansPaths)
{
    const Ended ended = path({"clean", "/usr/../usr//./lib", "x", ".."});
    EXPECT_EQ(ended.out, "/usr/lib\nx\n..\n");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
}

TEST(ToolPath, CleansLinksAwayWhenTold)
{
    const TempDir dir;
    std::filesystem::create_directory(dir / "real");
    std::filesystem::create_symlink("real", dir / "link");
    EXPECT_EQ(path({"clean", dir / "link/x"}).out, dir / "link/x" + "\n");
    EXPECT_EQ(path({"clean", "--links", dir / "link/x"}).out,
              std::filesystem::canonical(dir.path()).string() + "/real/x\n");
}

TEST(ToolPath, TellsOfAComponentThatCannotBeExamined)
{
    const Ended ended = path({"clean", "/nosuchdir/./x"});
    EXPECT_EQ(ended.out, "/nosuchdir/x\n");
    EXPECT_EQ(ended.err, "stock: not every component of '/nosuchdir/./x' can be examined\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(ToolPath, TellsWhyALinkCannotBeFollowed)
{
    const TempDir dir;
    std::filesystem::create_symlink("self", dir / "self");
    const Ended ended = path({"clean", "--links", dir / "self"});
    EXPECT_EQ(ended.err, "stock: too many symbolic links (>40) for " + dir / "self" +
                             "\nstock: not every component of '" + dir / "self" +
                             "' can be examined\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(ToolPath, MakesPathsAbsolute)
{
    const std::string here = std::filesystem::current_path().string();
    const Ended ended = path({"abs", "./x", "/a/.."});
    EXPECT_EQ(ended.out, here + "/x\n/\n");
    EXPECT_EQ(ended.err, "stock: not every component of '/a/..' can be examined\n");
    EXPECT_EQ(path({"abs", "x"}).status, 0);
}

TEST(ToolPath, GivesTheWayFromADirectory)
{
    const Ended ended = path({"rel", "/usr", "/etc/x"});
    EXPECT_EQ(ended.out, "../etc/x\n");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
}

TEST(ToolPath, GivesTheWayFromWhereThereIsNoDirectoryWithStatus1)
{
    const Ended ended = path({"rel", "/nosuchdir", "/etc"});
    EXPECT_EQ(ended.out, "../etc\n");
    EXPECT_EQ(ended.err, "stock: '/nosuchdir' is not a directory to start from\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(ToolPath, SplitsPaths)
{
    const Ended ended = path({"split", "/d/f.tar.gz", ".profile"});
    EXPECT_EQ(ended.out, "directory /d\nbase      f.tar\nsuffix    gz\n"
                         "directory .\nbase      .profile\nsuffix    \n");
    EXPECT_EQ(ended.status, 0);
}

// Of a path over 1023 bytes another one was printed.
TEST(ToolPath, PrintsNothingForAPathThatIsTooLong)
{
    const std::string name(1100, 'x');
    for (const std::string &word : {name, "/etc/" + name, "~" + name, "/etc/" + name + "/.."})
        for (const char *command : {"abs", "clean"}) {
            const Ended ended = path({command, word});
            EXPECT_EQ(ended.out, "") << command;
            EXPECT_THAT(ended.err, HasSubstr("stock: there is no such form of '" + word + "'\n"));
            EXPECT_EQ(ended.status, 1);
        }
    const Ended ended = path({"rel", "/", name});
    EXPECT_EQ(ended.out, "");
    EXPECT_THAT(ended.err, HasSubstr("stock: there is no way from '/' to '" + name + "'\n"));
    EXPECT_EQ(ended.status, 1);
}

TEST(ToolPath, SplitsPathsOfAnyLength)
{
    const std::string name(1100, 'x');
    EXPECT_EQ(path({"split", "/" + name + "/" + name + "." + name}).out,
              "directory /" + name + "\nbase      " + name + "\nsuffix    " + name + "\n");
    EXPECT_EQ(path({"split", "/x", "d/", "."}).out, "directory \nbase      x\nsuffix    \n"
                                                    "directory d\nbase      \nsuffix    \n"
                                                    "directory .\nbase      .\nsuffix    \n");
}

TEST(ToolPath, PrintsNoAbsolutePathWithoutAKnownDirectory)
{
    const TempDir dir;
    std::filesystem::create_directory(dir / "gone");
    std::filesystem::current_path(dir / "gone");
    std::filesystem::remove(dir / "gone");
    const Ended abs = path({"abs", "x", "/etc"});
    const Ended rel = path({"rel", ".", "/etc"});
    std::filesystem::current_path("/");
    EXPECT_EQ(abs.out, "/etc\n");
    EXPECT_THAT(abs.err, HasSubstr("there is no such form of 'x'\n"));
    EXPECT_EQ(abs.status, 1);
    EXPECT_EQ(rel.out, "");
    EXPECT_EQ(rel.status, 1);
}

TEST(ToolPath, GivesNoWayFromAFileWhoseNameBeginsLikeAHomeDirectory)
{
    const TempDir dir;
    dir.file("~nosuchuser", "");
    std::filesystem::current_path(dir.path());
    const Ended ended = path({"rel", "~nosuchuser", "/x"});
    std::filesystem::current_path("/");
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.signal, 0);
    EXPECT_EQ(ended.status, 1);
}

TEST(ToolPath, HelpsWithEachCommand)
{
    for (const char *command : {"clean", "abs", "rel", "split"}) {
        SCOPED_TRACE(command);
        const Ended ended = path({command, "--help"});
        EXPECT_THAT(ended.out, StartsWith("usage: stock path " + std::string(command)));
        EXPECT_EQ(ended.err, "");
        EXPECT_EQ(ended.status, 0);
        EXPECT_THAT(path({"--help"}).out, HasSubstr(command));
    }
}

TEST(ToolPath, WrongUsageHasStatus2)
{
    const std::vector<std::vector<std::string>> cases = {
        {},        {"nosuch"}, {"clean"},        {"clean", "--links"},
        {"abs"},   {"rel"},    {"rel", "/only"}, {"rel", "/a", "/b", "/c"},
        {"split"},
    };
    for (const auto &words : cases) {
        const Ended ended = path(words);
        EXPECT_EQ(ended.status, 2);
        EXPECT_EQ(ended.out, "");
        EXPECT_THAT(ended.err, HasSubstr("--help'\n"));
    }
}
