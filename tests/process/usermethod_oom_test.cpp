// The user library when memory runs out.

#include "stock/usermethod.h"

#include <cstdlib>

#include <gtest/gtest.h>

#include "support/out_of_memory.h"

TEST(UsermethodOutOfMemory, NamesTheNameOfTheLibraryAndItsSize)
{
    setenv("USER_LIBRARY", "/gauges/methods.so", 1);
    EXPECT_EQ(said_by(0, [] { usermethod("north"); }),
              "oom_test *fatal*: " + message("take_name", "usermethod.cpp", "19", "name"));
    EXPECT_EQ(said_by(0, [] { usermethod_init(); }),
              "oom_test *fatal*: " + message("take_name", "usermethod.cpp", "19", "name"));
}
