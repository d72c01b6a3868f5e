// Stopping in order without a state file: flags, real timers, and how they end the process.

#include "stock/halt.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <thread>
#include <utility>

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include "deviants.h"
#include "stock/bury.h"
#include "stock/elog.h"
#include "stock/wait_for_time.h"
#include "support/child.h"
#include "support/logging.h"
#include "support/temp_dir.h"

using testing::AllOf;
using testing::Ge;
using testing::HasSubstr;
using testing::Lt;

namespace {

int refused_signal = 0;
bool no_timer = false;
bool in_a_hurry = false;       // a timer of ten seconds runs out after one
void (*in_write)() = nullptr;  // called once, before something is written

}  // namespace

// System calls that the tests replace.
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
    struct itimerval set = *timer;
    if (in_a_hurry && set.it_value.tv_sec == 10)
        set.it_value.tv_sec = 1;
    const int result = real(which, &set, old);
    if (result == 0)
        errno = EDOM;  // a call that succeeds may leave any errno
    return result;
}

extern "C" ssize_t write(int fd, const void *bytes, size_t count)
{
    static const auto real = reinterpret_cast<decltype(&write)>(dlsym(RTLD_NEXT, "write"));
    if (in_write)
        std::exchange(in_write, nullptr)();
    return real(fd, bytes, count);
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

// ---- Ends that get stuck ----

namespace {

constexpr char kDieSoon[] = "halt_test *fatal*: quitting from die_soon alarm\n";
constexpr char kGrace[] = "halt_test *fatal*: quitting from resurrection alarm\n";

int wait_in_callback(int, const char *, Tbl *)
{
    for (;;)
        pause();
}

}  // namespace

TEST(LastLimit, AReportThatNeverEndsIsGivenUpWithItsText)
{
    const auto [ended, seconds] = timed([] {
        elog_log(0, "a message that waits");
        elog_set(ELOG_CALLBACK_FN, 0, wait_in_callback);
        die_soon(0.1);
        wait_for_the_end();
    });
    EXPECT_EQ(ended.err, std::string(kDieSoon) + "a message that waits\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(seconds, AllOf(Ge(10), Lt(14)));
}

TEST(LastLimit, AMorticianThatNeverReturnsIsGivenUp)
{
    const Ended ended = untagged([] {
        in_a_hurry = true;
        setup_signals(
            nullptr, [](Pf *) { wait_for_the_end(); }, 1);
        std::raise(SIGTERM);
        wait_for_the_end();
    });
    EXPECT_EQ(ended.err, kGrace);
    EXPECT_EQ(ended.status, 1);
}

TEST(LastLimit, EachStepOfAnEndHasItsOwnTime)
{
    const Ended ended = untagged([] {
        in_a_hurry = true;
        setup_signals(
            nullptr,
            [](Pf *) {
                for (const double end = std_now() + 0.7; std_now() < end;)
                    snooze(0.1);
            },
            1);
        std::atexit([] {
            for (const double end = std_now() + 0.7; std_now() < end;)
                snooze(0.1);
            std::printf("done");
        });
        std::raise(SIGTERM);
        wait_for_the_end();
    });
    EXPECT_EQ(ended.err, "quitting from resurrection alarm\n");
    EXPECT_EQ(ended.out, "done");
    EXPECT_EQ(ended.status, 1);
}

TEST(LastLimit, SignalsDoNotPutItOff)
{
    const auto [ended, seconds] = timed([] {
        in_a_hurry = true;
        setup_signals(
            nullptr,
            [](Pf *) {
                for (;;) {
                    std::raise(SIGTERM);
                    snooze(0.05);
                }
            },
            1);
        std::raise(SIGTERM);
        wait_for_the_end();
    });
    EXPECT_EQ(ended.err, kGrace);
    EXPECT_EQ(ended.status, 1);
    EXPECT_LT(seconds, 5);
}

// Nothing reads what is printed at the limit. The process ends all the same.
TEST(LastLimit, StandardErrorThatBlocksDoesNotStopIt)
{
    const auto [ended, seconds] = timed([] {
        in_a_hurry = true;
        int fds[2];
        if (pipe2(fds, O_NONBLOCK) != 0)
            std::_Exit(9);
        char block[4096] = "";
        while (write(fds[1], block, sizeof block) > 0) {
        }
        fcntl(fds[1], F_SETFL, 0);
        dup2(fds[1], STDERR_FILENO);
        die_soon(0.1);
        wait_for_the_end();
    });
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(seconds, AllOf(Ge(1), Lt(6)));
}

TEST(LastLimit, ADebuggerTakesTheTimeThatItTakes)
{
    const Ended ended = logged(
        {"ELOG_TAG=@d", "ELOG_WAIT=0", "ELOG_DEBUG=sleep 1.5; echo stopped at a breakpoint@d"}, [] {
            in_a_hurry = true;
            die_soon(0.1);
            wait_for_the_end();
        });
    EXPECT_EQ(ended.out, "stopped at a breakpoint\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.err, testing::Not(HasSubstr("could not")));
}

// ---- Ends that interrupt the log ----

namespace {

// Raises a signal in this thread while it writes a message to a file.
void interrupt_delivery(const TempDir &dir, int sig)
{
    static int interrupting;
    interrupting = sig;
    elog_log(0, "north 2 mm");
    elog_set(ELOG_DELIVER_FIELD, ELOG_NOTIFY, (dir / "rain.log").c_str());
    in_write = [] {
        std::raise(interrupting);
        std::printf("went on, ");
    };
    elog_notify(0, "south 3 mm");
    std::printf("came back");
}

std::string text_of(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

constexpr char kDelivered[] = "north 2 mm\nsouth 3 mm\n";

}  // namespace

TEST(OwedEnd, ATimerLetsTheInterruptedDeliveryBeDoneFirst)
{
    const BlanklessDir dir;
    const Ended ended = untagged([&] {
        die_soon(60);
        interrupt_delivery(dir, SIGALRM);
    });
    EXPECT_EQ(text_of(dir / "rain.log"), kDelivered);
    EXPECT_EQ(ended.out, "went on, ");
    EXPECT_EQ(ended.err, "quitting from die_soon alarm\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(OwedEnd, TheGraceOfAStopSignalDoesSo)
{
    const BlanklessDir dir;
    const Ended ended = untagged([&] {
        setup_signals(
            nullptr, [](Pf *) { std::printf("mortician"); }, 60);
        std::raise(SIGTERM);
        interrupt_delivery(dir, SIGALRM);
    });
    EXPECT_EQ(text_of(dir / "rain.log"), kDelivered);
    EXPECT_EQ(ended.out, "went on, mortician");
    EXPECT_EQ(ended.err, "quitting from resurrection alarm\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(OwedEnd, AStopSignalWithoutGraceAndTheGraceOfAStateFileDoSo)
{
    for (const int grace : {0, 60}) {
        SCOPED_TRACE(grace);
        const BlanklessDir dir;
        const Ended ended = untagged([&] {
            static volatile int stop = 0;
            static int rounds = 7;
            exhume((dir / "state").c_str(), &stop, grace, nullptr);
            resurrect("rounds", &rounds, RELIC_INT);
            if (grace)
                std::raise(SIGTERM);
            interrupt_delivery(dir, grace ? SIGALRM : SIGTERM);
        });
        EXPECT_EQ(text_of(dir / "rain.log"), kDelivered);
        EXPECT_EQ(ended.out, "went on, ");
        EXPECT_EQ(ended.err, grace ? "quitting from resurrection alarm\n" : "");
        EXPECT_EQ(ended.status, 1);
        EXPECT_THAT(text_of(dir / "state"), HasSubstr("rounds\t7\n"));
    }
}

TEST(OwedEnd, ADeliveryThatBlocksIsGivenUpAtTheLimit)
{
    const BlanklessDir dir;
    const auto [ended, seconds] = timed([&] {
        in_a_hurry = true;
        elog_set(ELOG_DELIVER_FIELD, ELOG_NOTIFY, (dir / "rain.log").c_str());
        elog_log(0, "north 2 mm");
        in_write = wait_for_the_end;
        die_soon(0.1);
        elog_notify(0, "south 3 mm");
    });
    EXPECT_EQ(ended.err, std::string(kDieSoon) + "north 2 mm\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(seconds, AllOf(Ge(1), Lt(6)));
}

TEST(OwedEnd, NothingWaitsForALogFunction)
{
    const Ended ended = untagged([] {
        elog_set(
            ELOG_CALLBACK_FN, 0, +[](int, const char *, Tbl *) {
                errno = 0;
                std::raise(SIGALRM);
                std::printf("went on");
                return 1;
            });
        die_soon(60);
        elog_notify(0, "north 2 mm");
    });
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "quitting from die_soon alarm\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(OwedEnd, WhicheverChangeOfTheLogIsInterruptedTheStatusIs1)
{
    for (int i = 0; i < 150; ++i) {
        const auto [ended, seconds] = timed([i] {
            die_soon(0.001 + 0.00002 * i);
            for (;;) {
                elog_log(0, "north %d mm", 1);
                elog_log(0, "south %d mm", 2);
                elog_clear();
            }
        });
        ASSERT_EQ(ended.status, 1) << "run " << i;
        ASSERT_THAT(ended.err, HasSubstr("quitting from die_soon alarm\n"));
        ASSERT_LT(seconds, 8);
    }
}
