// An expectation in a child process is one of the test's.

#include "support/child.h"

#include <cstdlib>

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

// Runs one of the tests below that are to fail.
Ended run(const char *name)
{
    return run_program({"/proc/self/exe", "--gtest_also_run_disabled_tests",
                        std::string("--gtest_filter=Child.DISABLED_") + name});
}

}  // namespace

TEST(Child, DISABLED_FailsAndReturns)
{
    in_child([] { EXPECT_EQ(1 + 1, 3); });
}

TEST(Child, DISABLED_FailsAndEnds)
{
    in_child([] {
        EXPECT_EQ(1 + 1, 3);
        _exit(0);
    });
}

TEST(Child, DISABLED_HoldsAndEnds)
{
    in_child([] {
        EXPECT_EQ(1 + 1, 2);
        abort();
    });
}

TEST(Child, AnExpectationThatFailsThereFailsTheTest)
{
    for (const char *name : {"FailsAndReturns", "FailsAndEnds"}) {
        const Ended ended = run(name);
        EXPECT_EQ(ended.status, 1);
        EXPECT_NE(ended.out.find("in a child process:"), std::string::npos) << ended.out;
    }
    EXPECT_EQ(run("HoldsAndEnds").status, 0);
}
