// std_now: the current time in seconds since 1970.

#include "deviants.h"

#include <sys/time.h>

double std_now(void)
{
    struct timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) / 1'000'000;
}

double now_(void)
{
    return std_now();
}
