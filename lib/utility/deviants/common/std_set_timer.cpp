// std_set_timer: sets the process's one interval timer and its handler.

#include "deviants.h"

#include <cerrno>
#include <cmath>
#include <csignal>

#include <sys/time.h>

#include "stock/elog.h"

namespace {

constexpr double kMaxSeconds = 1e18;  // more than any system takes, and within time_t

int arm(double seconds)
{
    struct itimerval timer;
    if (getitimer(ITIMER_REAL, &timer) < 0) {
        elog_log(1, "getitimer fails");
        return -1;
    }
    const double whole = std::floor(seconds);
    const bool countable = std::fabs(whole) < kMaxSeconds;  // false for NaN
    timer.it_value.tv_sec = countable ? static_cast<time_t>(whole) : -1;
    timer.it_value.tv_usec =
        countable ? static_cast<suseconds_t>((seconds - whole) * 1'000'000) : 0;
    timer.it_interval = {};
    if (setitimer(ITIMER_REAL, &timer, nullptr) < 0) {
        elog_log(1, "setitimer fails");
        return -1;
    }
    return 0;
}

}  // namespace

int std_set_timer(void (*handler)(int signal), double seconds)
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    if (sigaction(SIGALRM, &action, nullptr) < 0)
        elog_die(1, "Couldn't intercept signal SIGALRM\n");
    return arm(seconds);
}
