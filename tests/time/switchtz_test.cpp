// What switchTZ does when the environment cannot be changed.

#include <cerrno>
#include <cstdlib>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stock/str2epoch.h"
#include "support/child.h"

// Takes the place of the system's putenv for this program and the library.
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

// LOCAL must not be looked up as a zone named "LOCAL": that would need putenv.
TEST(SwitchTZ, TheSystemsOwnZoneIsTheOneWithoutAnEntry)
{
    const Ended ended = in_child([] {
        unsetenv("TZ");
        double when = 0;
        exit(is_epoch_string("2008-02-01 12:30 LOCAL", &when) == 1 ? 0 : 2);
    });
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
}
