// The environment of the tests themselves.

#include <cstdlib>

#include <gtest/gtest.h>

TEST(Environment, NothingOfTheMachinesSettingsReachesATest)
{
    for (const char *name : {"PFPATH", "DATAPATH", "ELOG_DELIVER", "ELOG_TAG", "TZ", "LANG",
                             "LC_ALL", "EUROPEAN_DATE", "USER_LIBRARY", "ZONEINFO", "HOME"})
        EXPECT_EQ(getenv(name), nullptr) << name;
    EXPECT_STREQ(getenv("TALUVINE"), "/no/installation");
}
