// A failed expectation in a child process fails the test that started it.

#include "support/child.h"

#include <cstdio>
#include <cstdlib>
#include <functional>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

void expect_what_is_not_so()
{
    EXPECT_EQ(1 + 1, 3);
}

// Whether the test fails when the body runs in a child; tried in a process of its own.
bool fails_the_test(const std::function<void()> &body)
{
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        if (!freopen("/dev/null", "w", stdout))
            _exit(2);
        in_child(body);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 1;
}

}  // namespace

TEST(Child, AnExpectationThatFailsThereFailsTheTest)
{
    EXPECT_TRUE(fails_the_test(expect_what_is_not_so));
    EXPECT_TRUE(fails_the_test([] {
        expect_what_is_not_so();
        _exit(0);
    }));
    EXPECT_TRUE(fails_the_test([] {
        expect_what_is_not_so();
        abort();
    }));
    EXPECT_FALSE(fails_the_test([] { abort(); }));
}
