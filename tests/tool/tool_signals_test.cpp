// stock signals, as a user runs it.

#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/child.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

Ended signals(std::vector<std::string> words)
{
    words.insert(words.begin(), {tool_path(), "signals"});
    return run_program(words);
}

}  // namespace

TEST(ToolSignals, ListsTheTable)
{
    const Ended ended = signals({});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(std::count(ended.out.begin(), ended.out.end(), '\n'), 30);
    EXPECT_THAT(ended.out, StartsWith("  1  SIGHUP     Hangup\n  9  SIGKILL    Killed\n"));
    EXPECT_THAT(ended.out, HasSubstr("  6  SIGIOT     Aborted\n  6  SIGABRT    Aborted\n"));
}

TEST(ToolSignals, PrintsThoseThatAreAskedFor)
{
    const Ended ended = signals({"11", "SIGTERM", "INT"});
    EXPECT_EQ(ended.out, " 11  SIGSEGV    Segmentation fault\n"
                         " 15  SIGTERM    Terminated\n"
                         "  2  SIGINT     Interrupt\n");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
}

TEST(ToolSignals, AnUnknownSignalHasStatus1)
{
    for (const char *word : {"99", "sigint", "", "11x", "99999999999999999999", "4294967307"}) {
        SCOPED_TRACE(word);
        const Ended ended = signals({word, "1"});
        EXPECT_EQ(ended.out, "  1  SIGHUP     Hangup\n");
        EXPECT_EQ(ended.err, "stock: no signal is called '" + std::string(word) + "'\n");
        EXPECT_EQ(ended.status, 1);
    }
}

TEST(ToolSignals, Helps)
{
    const Ended ended = signals({"--help"});
    EXPECT_THAT(ended.out, StartsWith("usage: stock signals"));
    EXPECT_EQ(ended.status, 0);
}

TEST(ToolSignals, WrongUsageHasStatus2)
{
    const Ended ended = signals({"--nosuch"});
    EXPECT_EQ(ended.status, 2);
    EXPECT_THAT(ended.err, HasSubstr("try 'stock signals --help'\n"));
}
