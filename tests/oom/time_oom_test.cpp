// What printing and reading times do when memory runs out.

#include <string>

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
