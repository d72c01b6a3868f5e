// What happens when the environment cannot be changed.

#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stock/str2epoch.h"
#include "support/child.h"

// Stands in for the system's, here and in the library.
extern "C" int putenv(char *)
{
    errno = ENOMEM;
    return -1;
}

TEST(SwitchTZ, EndsTheProcessWhenTheEnvironmentCannotBeChanged)
{
    const Ended ended = in_child([] { switchTZ("US/Pacific"); });
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.err,
                testing::ContainsRegex(
                    "[*]stack[*]Unexpected failure: switchTZ in file str2epoch, line [0-9]+\n"));
}
