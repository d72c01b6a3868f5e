// Runs the tests of a program, from an environment of their own.

#include <gmock/gmock.h>

#include "support/environment.h"

int main(int argc, char **argv)
{
    start_from_own_environment();
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
