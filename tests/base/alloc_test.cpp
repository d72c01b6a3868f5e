// The out-of-memory message.

#include "base/alloc.h"

#include <cerrno>

#include <gtest/gtest.h>

TEST(OutOfMemoryDeathTest, NamesARunOutOfMemoryWhenTheSystemGaveNoReason)
{
    errno = 0;
    EXPECT_EXIT(stock::out_of_memory(96, "gauge", "read_gauge", 7, "north/gauge.cpp"),
                testing::ExitedWithCode(1),
                "Out of memory in read_gauge at line 7 of 'gauge.cpp'\n"
                "\tCan't malloc 96 bytes for gauge\n"
                "\tCannot allocate memory\n");
}

TEST(OutOfMemoryDeathTest, NamesTheReasonThatTheSystemGave)
{
    EXPECT_EXIT((errno = EAGAIN, stock::out_of_memory(96, "gauge", "read_gauge", 7, "gauge.cpp")),
                testing::ExitedWithCode(1), "\tResource temporarily unavailable\n");
}
