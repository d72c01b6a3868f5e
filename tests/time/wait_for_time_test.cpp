// Pausing: what nanosleep is asked for, and what its answers lead to.

#include "stock/wait_for_time.h"

#include <cerrno>
#include <cmath>
#include <csignal>
#include <ctime>
#include <limits>
#include <string>

#include <sys/time.h>

#include <gtest/gtest.h>

#include "deviants.h"
#include "stock/time.h"
#include "support/child.h"
#include "support/comma_locale.h"
#include "support/logging.h"
#include "support/owners.h"

namespace {

// Takes the place of the system's nanosleep for this program and the library.
struct Sleep {
    int calls = 0;
    struct timespec asked = {};
    int result = 0;
    int error = 0;
    struct timespec left = {};
};
Sleep slept;

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

void expect_asked(double seconds, long whole, long nanoseconds)
{
    slept = {};
    snooze(seconds);
    EXPECT_EQ(slept.calls, 1) << seconds;
    EXPECT_EQ(slept.asked.tv_sec, whole) << seconds;
    EXPECT_EQ(slept.asked.tv_nsec, nanoseconds) << seconds;
}

// Returns what snooze prints when nanosleep answers as set.
Ended answered(int result, int error, struct timespec left)
{
    return untagged([=] {
        slept = {0, {}, result, error, left};
        errno = 77;
        snooze(10);
        if (errno != 77)
            exit(9);
    });
}

}  // namespace

extern "C" int nanosleep(const struct timespec *asked, struct timespec *left)
{
    ++slept.calls;
    slept.asked = *asked;
    if (left)
        *left = slept.left;
    errno = slept.error;
    return slept.result;
}

TEST(Snooze, AsksForWholeSecondsAndNanoseconds)
{
    expect_asked(0.25, 0, 250000000);
    expect_asked(2, 2, 0);
    expect_asked(3.75, 3, 750000000);
    expect_asked(1e-9, 0, 1);
    expect_asked(1e-10, 0, 0);
    expect_asked(86400.5, 86400, 500000000);
}

TEST(Snooze, AFractionThatRoundsUpToASecondCarriesOver)
{
    expect_asked(0.9999999999, 1, 0);
    expect_asked(std::nextafter(5.0, 0.0), 5, 0);
}

TEST(Snooze, TakesTheLargestSpan)
{
    expect_asked(1e300, std::numeric_limits<time_t>::max(), 0);
}

TEST(Snooze, ReturnsSilentlyForZeroInfinityAndWhatIsNoNumber)
{
    const Ended ended = in_child([] {
        slept = {};
        for (const double seconds : {0.0, -0.0, kInf, kNan})
            snooze(seconds);
        exit(slept.calls);
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
}

TEST(Snooze, ComplainsAboutNegativeSpansAndDoesNotSleep)
{
    for (const double seconds : {-1.0, -kInf}) {
        const Ended ended = untagged([=] {
            slept = {};
            errno = EIO;
            snooze(seconds);
            exit(slept.calls + (errno != EIO));
        });
        EXPECT_EQ(ended.status, 0);
        EXPECT_EQ(ended.err.rfind("*stack* invalid argument to snooze: " +
                                      std::string(seconds == -1 ? "-1.000\n" : "-inf\n"),
                                  0),
                  0U)
            << ended.err;
        EXPECT_EQ(ended.err.find("Input/output error"), std::string::npos) << ended.err;
    }
}

TEST(Snooze, ASignalEndsItWithoutAMessage)
{
    EXPECT_EQ(answered(-1, EINTR, {5, 0}).err, "");
    EXPECT_EQ(answered(-1, EINTR, {5, 0}).status, 0);
    EXPECT_EQ(answered(-1, 0, {5, 0}).err, "");
}

TEST(Snooze, OtherErrorsAreWordedForASignal)
{
    const Ended ended = answered(-1, EINVAL, {303, 500000000});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err,
              "nanosleep interrupted by signal:   5:04 minutes        remaining (303 seconds)\n"
              "\tInvalid argument\n");
    EXPECT_EQ(answered(-1, EINVAL, {0, 1}).err,
              "nanosleep interrupted by signal:    1.000 nanoseconds  remaining (0 seconds)\n"
              "\tInvalid argument\n");
}

TEST(Snooze, AnErrorWithNothingLeftIsSilent)
{
    EXPECT_EQ(answered(-1, EINVAL, {0, 0}).err, "");
}

TEST(Snooze, APositiveResultIsComplainedAbout)
{
    const Ended ended = answered(1, EIO, {5, 0});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "nanosleep fails: result=1\n\tInput/output error\n");
    EXPECT_EQ(answered(0, EIO, {5, 0}).err, "");
}

TEST(WaitForTime, ReturnsAtOnceWhenTheTimeHasPassed)
{
    const Ended ended = in_child([] {
        slept = {};
        wait_for_time(1, std_now() - 1);
        wait_for_time(1, 0);
        wait_for_time(1, -kInf);
        exit(slept.calls);
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
}

TEST(WaitForTime, SleepsUntilTheTimeAndSaysSoOnlyWhenVerbose)
{
    slept = {};
    wait_for_time(0, std_now() + 90);
    EXPECT_EQ(slept.calls, 1);
    EXPECT_NEAR(static_cast<double>(slept.asked.tv_sec) +
                    1e-9 * static_cast<double>(slept.asked.tv_nsec),
                90, 5);
    slept = {};
    wait_for_time(0, std_now() + 0.75);
    EXPECT_EQ(slept.calls, 1);
    EXPECT_EQ(in_child([] { wait_for_time(0, std_now() + 90); }).err, "");
}

TEST(WaitForTime, SaysHowLongAndUntilWhen)
{
    const double when = std::floor(std_now()) + 90.5;
    const Ended ended = in_child([=] { wait_for_time(1, when); });
    const Text until(strtime(when));
    EXPECT_EQ(ended.err.rfind("waiting ", 0), 0U) << ended.err;
    const double delay = atof(ended.err.c_str() + 8);
    EXPECT_GT(delay, 80);
    EXPECT_LE(delay, 90.5);
    const size_t open = ended.err.find(" seconds (");
    ASSERT_NE(open, std::string::npos);
    EXPECT_EQ(ended.err.substr(open + 31), std::string(") until ") + until.get() + "\n");
}

TEST(WaitForTime, WritesAPointInEveryLocale)
{
    const CommaLocale comma;
    const Ended ended = in_child([] { wait_for_time(1, std_now() + 90); });
    EXPECT_EQ(ended.err.rfind("waiting ", 0), 0U) << ended.err;
    EXPECT_EQ(ended.err.find(','), std::string::npos) << ended.err;
}

TEST(WaitForTime, EndsForWhatIsNoTime)
{
    const Ended ended = in_child([] {
        slept = {};
        wait_for_time(1, kNan);
        wait_for_time(1, kInf);
        exit(slept.calls);
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(
        ended.err,
        "waiting nan seconds ( nan picoseconds     ) until ** Nan **\n"
        "waiting inf seconds ( inf years           ) until ** The End of Time (+infinity) **\n");
}
