// What printing and reading times do when memory runs out.

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stock.h"
#include "support/out_of_memory.h"
#include "support/temp_dir.h"

TEST(TimeOutOfMemory, NamesTheTextTheProblemTheZoneAndTheFormat)
{
    EXPECT_THAT(said_by(0, [] { epoch2str("%Y", 0); }),
                testing::EndsWith(message("copied", "time.cpp", "5", "time text")));
    EXPECT_THAT(said_by(0, [] { strtdelta(0); }),
                testing::EndsWith(message("copied", "time.cpp", "22", "time text")));
    EXPECT_THAT(said_by(0,
                        [] {
                            double epoch = 0;
                            zstr2epoch("!", &epoch);
                        }),
                testing::EndsWith(message("problem", "str2epoch.cpp", "32", "time problem")));
    EXPECT_THAT(said_by(0, [] { switchTZ("UTC"); }),
                testing::EndsWith(message("switchTZ", "str2epoch.cpp", "7", "time zone")));
}

// The report of the failure reads the reference time, with the functions that ran out of memory.
TEST(TimeOutOfMemory, WithAReferenceTimeTheReportStillEnds)
{
    for (const char *reference : {"1", "2008-02-01 12:30 US/Pacific", "02/01/2008"}) {
        SCOPED_TRACE(reference);
        setenv("ELOG_REFERENCE_TIME", reference, 1);
        EXPECT_THAT(said_by(0,
                            [] {
                                alarm(20);
                                double epoch = 0;
                                zstr2epoch("!", &epoch);
                            }),
                    testing::EndsWith(message("problem", "str2epoch.cpp", "32", "time problem")));
        EXPECT_THAT(said_by(0,
                            [] {
                                alarm(20);
                                str2epoch("2008-02-01 12:30 US/Pacific");
                            }),
                    testing::EndsWith(message("switchTZ", "str2epoch.cpp", "14", "time zone")));
    }
    unsetenv("ELOG_REFERENCE_TIME");
}

// Another thread holds the log's lock and waits for environment_lock, to print a time in its tag.
TEST(TimeOutOfMemoryThreads, InAZoneTheReportDoesNotWaitForAThreadThatPrintsTheTime)
{
    const Ended ended = in_child([] {
        alarm(20);
        setenv("ELOG_TAG", "%u", 1);
        setenv("ELOG_DELIVER", "/dev/null@c", 1);
        elog_init(0, nullptr);
        std::atomic<bool> begun{false};
        std::thread([&] {
            for (;;) {
                elog_complain(0, "x");
                begun = true;
            }
        }).detach();
        while (!begun) {
        }
        for (int i = 0; i < 300; ++i)
            str2epoch("2008-02-01 12:30 US/Pacific");
        fail_allocations_after(0);
        str2epoch("2008-02-01 12:30 US/Pacific");
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find("Out of memory in switchTZ"), std::string::npos) << ended.err;
}

TEST(TimeOutOfMemory, LoadingTheFormatsNamesTheFormat)
{
    const TempDir dir;
    dir.file("time_formats.pf", "time a\nydtime b\nuydtime c\ndate d\n");
    setenv("PFPATH", dir.path().c_str(), 1);
    bool named = false;
    int status = -1;
    for (long successes = 0; status != 0 && successes < 1000; ++successes) {
        const Ended ended = in_child([&] {
            fail_allocations_after(successes);
            set_time_formats();
            fail_allocations_after(-1);
            _exit(Strdate_format[0] == 'd' ? 0 : 9);
        });
        status = ended.status;
        named |= ended.err.find("Out of memory in keep ") != std::string::npos &&
                 ended.err.find(" bytes for time format\n") != std::string::npos;
    }
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(named);
}
