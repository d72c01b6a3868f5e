// A time zone that the system has but cannot read at the moment is an error, not UTC.

#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "stock.h"
#include "support/logging.h"

#ifndef __SANITIZE_ADDRESS__  // the sanitizer needs descriptors of its own

namespace {

void leave_no_descriptor()
{
    const rlimit none = {3, 3};
    setrlimit(RLIMIT_NOFILE, &none);
}

}  // namespace

TEST(ZoneRefused, PrintingInItIsAnErrorThatSaysWhy)
{
    const Ended ended = untagged([] {
        leave_no_descriptor();
        int year, doy, month, day, hour, minute;
        double second;
        char *name = nullptr;
        EXPECT_EQ(e2hz("US/Pacific", &year, &doy, &month, &day, &hour, &minute, &second, &name, 0),
                  -1);
        free(name);
        printf("%s", stack_text().c_str());
    });
    EXPECT_EQ(ended.out, "Can't read timezone 'US/Pacific'\n\tToo many open files\n");
}

TEST(ZoneRefused, ReadingATimeInItIsAnErrorThatNamesIt)
{
    const Ended ended = untagged([] {
        leave_no_descriptor();
        double when = 0;
        EXPECT_NE(zstr2epoch("2026-11-22 03:00 US/Pacific", &when), 0);
        printf("%s", stack_text().c_str());
    });
    EXPECT_NE(ended.out.find("str2epoch: Can't read timezone 'US/Pacific'"), std::string::npos)
        << ended.out;
}

#endif
