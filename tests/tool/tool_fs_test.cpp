// The command "stock fs".

#include <sys/statvfs.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "deviants.h"
#include "support/child.h"
#include "support/owners.h"
#include "support/temp_dir.h"

namespace {

Ended run(const std::vector<std::string> &words)
{
    std::vector<std::string> argv = {tool_path(), "fs"};
    argv.insert(argv.end(), words.begin(), words.end());
    return run_program(argv);
}

}  // namespace

TEST(ToolFs, PrintsWhereAFileSystemComesFromAndItsRoom)
{
    const Ended ended = run({"/proc"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.out, "host             -\n"
                         "path             proc\n"
                         "size             0.000 Gbytes\n"
                         "available        0.000 Gbytes\n"
                         "files            0\n"
                         "files available  0\n"
                         "nfs              no\n");
}

TEST(ToolFs, PrintsTheNumbersOfTheFileSystem)
{
    const TempDir dir;
    const std::unique_ptr<Infopath, decltype(&std::free)> info(infopath(dir.path().c_str()),
                                                               std::free);
    char size[64];
    snprintf(size, sizeof size, "size             %.3f Gbytes\n", info->bytes_total / 1e9);
    const Ended ended = run({dir.path()});
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.out, testing::HasSubstr(size));
    EXPECT_THAT(ended.out,
                testing::HasSubstr(std::string("path             ") + info->path + "\n"));
}

TEST(ToolFs, ExpandsAHomeDirectory)
{
    const Text home(homedir(nullptr));
    EXPECT_EQ(run({"~"}).status, home && access(home.get(), F_OK) == 0 ? 0 : 1);
}

TEST(ToolFs, APathThatIsNotThereFailsWithTheWholeChainOfReasons)
{
    const Ended ended = run({"/none/there"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "stock: can't statfs /none/there\n"
                         "\tNo such file or directory\n"
                         "stock: can't resolve host, filesystem for /none/there\n"
                         "stock: stock fs: can't examine '/none/there'\n");
}

TEST(ToolFs, HelpSaysHowItIsUsed)
{
    const Ended ended = run({"--help"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_THAT(ended.out, testing::StartsWith("usage: stock fs PATH\n"));
    EXPECT_EQ(run({"-h"}).out, ended.out);
    EXPECT_EQ(run({"--help", "more"}).out, ended.out);
}

TEST(ToolFs, WrongUsageGivesTwo)
{
    const Ended none = run({});
    EXPECT_EQ(none.status, 2);
    EXPECT_EQ(none.out, "");
    EXPECT_EQ(none.err, "stock: stock fs: which path?\n  try 'stock fs --help'\n");
    const Ended two = run({"/", "/"});
    EXPECT_EQ(two.status, 2);
    EXPECT_EQ(two.err, "stock: stock fs: one path at a time\n  try 'stock fs --help'\n");
}
