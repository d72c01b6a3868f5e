// Pausing a program for a number of seconds or until a time: one call of nanosleep, which a
// signal ends early.

#include "stock/wait_for_time.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "base/alloc.h"
#include "base/fixed_text.h"
#include "base/guards.h"
#include "base/number.h"
#include "deviants.h"
#include "stock/elog.h"
#include "stock/time.h"

namespace {

constexpr long kNanosecondsPerSecond = 1000000000;

struct timespec span_of(double seconds)
{
    const double whole = std::trunc(seconds);
    struct timespec span = {};
    span.tv_sec = stock::saturated<time_t>(whole);
    span.tv_nsec = static_cast<long>(std::trunc(0.5 + kNanosecondsPerSecond * (seconds - whole)));
    // nanosleep refuses a whole second here, which 0.9999999999 rounds to.
    if (span.tv_nsec == kNanosecondsPerSecond) {
        span.tv_nsec = 0;
        ++span.tv_sec;
    }
    return span;
}

// Reports that nanosleep failed with some seconds left, unless a signal ended it.
// Meant: the message speaks of a signal nevertheless.
void report_failure(const struct timespec &left)
{
    const double seconds =
        static_cast<double>(left.tv_sec) + 1e-9 * static_cast<double>(left.tv_nsec);
    if (!(seconds > 0) || errno == 0 || errno == EINTR)
        return;
    const int reason = errno;
    const stock::Owned<char> text(strtdelta(seconds));
    errno = reason;
    elog_complain(1, "nanosleep interrupted by signal: %s remaining (%ld seconds)", text.get(),
                  static_cast<long>(left.tv_sec));
}

}  // namespace

void snooze(double seconds)
{
    const stock::KeepErrno keep;
    if (seconds > 0 && std::isfinite(seconds)) {
        const struct timespec span = span_of(seconds);
        struct timespec left = {};
        const int result = nanosleep(&span, &left);
        if (result < 0)
            report_failure(left);
        else if (result > 0)
            elog_complain(1, "nanosleep fails: result=%d", result);
    }
    if (seconds < 0)
        elog_complain(0, "*stack* invalid argument to snooze: %.3f", seconds);
}

void wait_for_time(int verbose, double when)
{
    const double delay = when - std_now();
    if (delay <= 0)
        return;
    if (verbose) {
        const stock::Owned<char> span(strtdelta(delay));
        const stock::Owned<char> until(strtime(when));
        stock::FixedTextOf<400> seconds;  // "%.3f" whatever the locale; a double has 309 digits
        seconds.fixed(delay, 0, 3);
        std::fprintf(stderr, "waiting %s seconds (%s) until %s\n", seconds.c_str(), span.get(),
                     until.get());
    }
    snooze(delay);
}
