// Stopping in order without a state file: flags, real timers, and the ends they make.

#include "stock/halt.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <limits>
#include <thread>

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include "deviants.h"
#include "support/child.h"
#include "support/logging.h"

using testing::AllOf;
using testing::Ge;
using testing::HasSubstr;
using testing::Lt;

namespace {

int refused_signal = 0;
bool no_timer = false;

}  // namespace

// What the system answers, replaced where a test needs another answer.
extern "C" int sigaction(int sig, const struct sigaction *action, struct sigaction *old)
{
    if (sig == refused_signal) {
        errno = EINVAL;
        return -1;
    }
    static const auto real = reinterpret_cast<decltype(&sigaction)>(dlsym(RTLD_NEXT, "sigaction"));
    return real(sig, action, old);
}

extern "C" int setitimer(__itimer_which_t which, const struct itimerval *timer,
                         struct itimerval *old)
{
    if (no_timer) {
        errno = EINVAL;
        return -1;
    }
    using Real = int (*)(__itimer_which_t, const struct itimerval *, struct itimerval *);
    static const auto real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "setitimer"));
    return real(which, timer, old);
}

namespace {

struct Timed {
    Ended ended;
    double seconds;
};

Timed timed(const std::function<void()> &body)
{
    const double start = std_now();
    const Ended ended = untagged(body);
    return {ended, std_now() - start};
}

[[noreturn]] void wait_for_the_end()
{
    for (;;)
        pause();
}

}  // namespace

TEST(SetupSignals, ASignalSetsTheFlagTo1AndLeavesErrno)
{
    for (const int sig : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
        SCOPED_TRACE(sig);
        const Ended ended = untagged([=] {
            volatile int flag = 0;
            std::printf("%d", setup_signals(&flag, nullptr, 5));
            errno = EIO;
            std::raise(sig);
            std::printf(" %d %d", flag, errno);
        });
        EXPECT_EQ(ended.out, "0 1 5");
        EXPECT_EQ(ended.status, 0);
    }
}

TEST(SetupSignals, TheProgramDiesWhenItsSecondsAreOver)
{
    const auto [ended, seconds] = timed([] {
        volatile int flag = 0;
        setup_signals(&flag, nullptr, 1);
        std::raise(SIGTERM);
        errno = EIO;
        wait_for_the_end();
    });
    EXPECT_EQ(ended.err, "quitting from resurrection alarm\n\tInput/output error\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(seconds, AllOf(Ge(1), Lt(5)));
}

TEST(SetupSignals, WithLessThanOneSecondNothingIsEnded)
{
    for (const int grace : {0, -1, -100}) {
        const Ended ended = untagged([=] {
            volatile int flag = 0;
            setup_signals(&flag, nullptr, grace);
            std::raise(SIGINT);
            struct itimerval timer;
            getitimer(ITIMER_REAL, &timer);
            std::printf("%d %ld %ld", flag, static_cast<long>(timer.it_value.tv_sec),
                        static_cast<long>(timer.it_value.tv_usec));
        });
        EXPECT_EQ(ended.out, "1 0 0");
        EXPECT_EQ(ended.status, 0);
    }
}

TEST(SetupSignals, TheMorticianGetsAnEmptyTreeBeforeTheEnd)
{
    const Ended ended = untagged([] {
        setup_signals(
            nullptr,
            [](Pf *pf) { std::printf("%d keys in type %d", int(pfkeys(pf)->count), pf->type); }, 1);
        std::raise(SIGTERM);
        wait_for_the_end();
    });
    EXPECT_EQ(ended.out, "0 keys in type 0");
    EXPECT_EQ(ended.status, 1);
}

TEST(SetupSignals, DiesWhenTheAlarmCannotBeSet)
{
    const Ended ended = untagged([] {
        volatile int flag = 0;
        setup_signals(&flag, nullptr, 1);
        no_timer = true;
        std::raise(SIGTERM);
    });
    EXPECT_EQ(ended.err, "setitimer fails\n\tInvalid argument\n"
                         "received signal #15 but failed to set alarm timer\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(SetupSignalHandlers, DiesOfTheSignalThatTheSystemRefuses)
{
    const struct {
        int sig;
        const char *name;
    } cases[] = {
        {SIGHUP, "SIGHUP"}, {SIGINT, "SIGINT"}, {SIGQUIT, "SIGQUIT"}, {SIGTERM, "SIGTERM"}};
    for (const auto &c : cases) {
        const Ended ended = untagged([&] {
            refused_signal = c.sig;
            setup_signal_handlers(halt_signal_handler);
        });
        EXPECT_EQ(ended.err,
                  std::string("Couldn't intercept signal ") + c.name + "\n\tInvalid argument\n");
        EXPECT_EQ(ended.status, 1);
    }
}

TEST(SetupSignalHandlers, InterruptsSystemCallsAndBlocksNoOtherSignal)
{
    const Ended ended = untagged([] {
        setup_signal_handlers([](int) {});
        for (const int sig : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
            struct sigaction action;
            sigaction(sig, nullptr, &action);
            std::printf("%u %d\n",
                        static_cast<unsigned>(action.sa_flags) &
                            unsigned{SA_RESTART | SA_NODEFER | SA_RESETHAND},
                        sigismember(&action.sa_mask, SIGTERM));
        }
    });
    EXPECT_EQ(ended.out, "0 0\n0 0\n0 0\n0 0\n");
}

TEST(DieSoon, EndsTheProcessAfterTheTime)
{
    const auto [ended, seconds] = timed([] {
        std::printf("%d", die_soon(0.25));
        errno = EIO;
        wait_for_the_end();
    });
    EXPECT_EQ(ended.out, "0");
    EXPECT_EQ(ended.err, "quitting from die_soon alarm\n\tInput/output error\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(seconds, AllOf(Ge(0.25), Lt(4)));
}

TEST(DieSoon, EndsAtOnceAfterNoTime)
{
    for (const double none : {0.0, 1e-7, 1e-6}) {
        const Ended ended = untagged([=] {
            errno = 0;
            die_soon(none);
            wait_for_the_end();
        });
        EXPECT_EQ(ended.err, "quitting from die_soon alarm\n");
    }
}

TEST(DieSoon, AProgramThatIsDoneBeforeExits)
{
    const Ended ended = untagged([] { die_soon(60); });
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
}

TEST(DieSoon, WithoutATimerItSleepsAndDies)
{
    const auto [ended, seconds] = timed([] {
        no_timer = true;
        die_soon(0.25);
    });
    EXPECT_EQ(ended.err, "setitimer fails\n\tInvalid argument\nfailed to setup timer to die\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(seconds, AllOf(Ge(0.25), Lt(4)));
}

TEST(DieSoon, ATimeThatIsNoneEndsItToo)
{
    for (const double none : {-1.0, std::numeric_limits<double>::quiet_NaN()}) {
        const Ended ended = untagged([=] { die_soon(none); });
        EXPECT_THAT(ended.err, HasSubstr("failed to setup timer to die\n"));
        EXPECT_EQ(ended.status, 1);
    }
}
