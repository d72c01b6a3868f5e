// The state file: read, written, locked, and saved when the program is stopped.
// A process has one grave, so nearly every test is a child.

#include "stock/bury.h"

#include <cerrno>
#include <cfloat>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "deviants.h"
#include "support/child.h"
#include "support/logging.h"
#include "support/nobody.h"
#include "support/owners.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;

namespace {

constexpr char kInUse[] = "' for exclusive use: it is already in use.\n";

// A state file that may be there, and programs that use it one after the other.
class Bury : public testing::Test {
protected:
    const TempDir dir;
    const std::string state = dir / "state";

    int open(volatile int *flag = nullptr, int grace = 0, void (*extra)(Pf *) = nullptr) const
    {
        return exhume(state.c_str(), flag, grace, extra);
    }
    std::string text() const { return read_file(state); }
    // What is printed by a program that opens the state file first.
    std::string program(const std::function<void()> &body) const
    {
        const Ended ended = untagged([&] {
            std::printf("%d\n", open());
            body();
        });
        EXPECT_EQ(ended.err, "");
        EXPECT_EQ(ended.status, 0);
        return ended.out;
    }
};

// What comes back of a value, and the text of the state file in between.
template <class T>
T there_and_back(T value, int type, std::string *text = nullptr)
{
    const TempDir dir;
    const std::string state = dir / "state";
    untagged([&] {
        exhume(state.c_str(), nullptr, 0, nullptr);
        resurrect("value", &value, type);
        bury();
    });
    if (text)
        *text = read_file(state);
    const Ended ended = untagged([&] {
        T back{};
        exhume(state.c_str(), nullptr, 0, nullptr);
        if (resurrect("value", &back, type) == 0)
            fwrite(&back, sizeof back, 1, stdout);
    });
    T back{};
    EXPECT_EQ(ended.out.size(), sizeof back);
    if (ended.out.size() == sizeof back)
        memcpy(&back, ended.out.data(), sizeof back);
    return back;
}

std::string string_and_back(std::string value, std::string *text = nullptr)
{
    const TempDir dir;
    const std::string state = dir / "state";
    untagged([&] {
        exhume(state.c_str(), nullptr, 0, nullptr);
        char *variable = value.data();
        resurrect("value", &variable, RELIC_STRING);
        bury();
    });
    if (text)
        *text = read_file(state);
    return untagged([&] {
               char *variable = nullptr;
               exhume(state.c_str(), nullptr, 0, nullptr);
               if (resurrect("value", &variable, RELIC_STRING) == 0)
                   fputs(variable, stdout);
           })
        .out;
}

}  // namespace

// ---- Opening ----

TEST_F(Bury, TheFirstRunMakesTheDirectoriesAndAnEmptyFile)
{
    const std::string deep = dir / "a/b/state";
    const Ended ended = untagged([&] {
        int count = 7;
        double last = 1.5;
        const char *name = "as it was";
        std::printf("%d", exhume(deep.c_str(), nullptr, 0, nullptr));
        std::printf(" %d", resurrect("count", &count, RELIC_INT));
        std::printf(" %d", resurrect("last", &last, RELIC_DOUBLE));
        std::printf(" %d", resurrect("name", &name, RELIC_STRING));
        std::printf(" %d %g %s", count, last, name);
    });
    EXPECT_EQ(ended.out, "0 1 1 1 7 1.5 as it was");
    EXPECT_EQ(ended.err, "");
    EXPECT_TRUE(fs::is_empty(deep));
}

TEST_F(Bury, AStateFileThatIsThereIsRead)
{
    dir.file("state", "count 12\n");
    EXPECT_EQ(program([] {
                  int count = 7;
                  std::printf("%d", resurrect("count", &count, RELIC_INT));
                  std::printf(" %d", count);
              }),
              "1\n0 12");
}

TEST_F(Bury, AFileThatIsNoParameterTextGives2AndRestoresNothing)
{
    dir.file("state", "count 12\nlist &Tbl{\n");
    const Ended ended = untagged([&] {
        int count = 7;
        std::printf("%d", open());
        std::printf(" %d", resurrect("count", &count, RELIC_INT));
        std::printf(" %d", count);
        elog_flush(1, 0);
    });
    EXPECT_EQ(ended.out, "2 1 7");
    EXPECT_THAT(ended.err, HasSubstr("Unterminated arrays or tables"));
}

TEST_F(Bury, ASecondExhumeGivesMinus2)
{
    EXPECT_EQ(program([&] { std::printf("%d", open()); }), "0\n-2");
}

TEST_F(Bury, BeforeExhumeNothingCanBeRegisteredOrBuried)
{
    const Ended ended = untagged([] {
        int count = 0;
        std::printf("%d %d", resurrect("count", &count, RELIC_INT), bury());
    });
    EXPECT_EQ(ended.out, "-1 -1");
}

TEST_F(Bury, TheGravesiteIsTheCustomOneUntilExhume)
{
    const Ended ended = untagged([&] {
        std::printf("%s", gravesite() ? "some" : "none");
        custom_gravesite("elsewhere");
        std::printf(" %s", gravesite());
        open();
        std::printf(" %s", gravesite() == state ? "state" : gravesite());
    });
    EXPECT_EQ(ended.out, "none elsewhere state");
}

TEST_F(Bury, ExhumeClearsTheFlagAndErrno)
{
    const Ended ended = untagged([&] {
        volatile int flag = 9;
        errno = EIO;
        open(&flag);
        std::printf("%d %d", flag, errno);
    });
    EXPECT_EQ(ended.out, "0 0");
}

// ---- Writing ----

TEST_F(Bury, EntriesStandInTheOrderOfTheirNames)
{
    program([] {
        static int count = 3;
        static double size = 0.5, start = 1.2e9;
        static const char *name = "two words";
        resurrect("start", &start, RELIC_TIME);
        resurrect("size", &size, RELIC_DOUBLE);
        resurrect("name", &name, RELIC_STRING);
        resurrect("count", &count, RELIC_INT);
        EXPECT_EQ(bury(), 0);
    });
    EXPECT_EQ(text(), "count\t3\n"
                      "name\ttwo words\n"
                      "size\t.5\n"
                      "start\t&Literal{\n"
                      " 1200000000.000 (010) 2008-01-10  21:20:00.00000 UTC Thursday}\n");
}

TEST_F(Bury, ExtraValuesStandInTheFileAndGiveWayToRelics)
{
    const Ended ended = untagged([&] {
        int count = 5;
        open(nullptr, 0, [](Pf *pf) {
            pfput_string(pf, "extra", "more");
            pfput_string(pf, "count", "replaced");
        });
        resurrect("count", &count, RELIC_INT);
        std::printf("%d", bury());
    });
    EXPECT_EQ(ended.out, "0");
    EXPECT_EQ(text(), "count\t5\nextra\tmore\n");
}

TEST_F(Bury, ASecondRegistrationReplacesTheFirst)
{
    program([] {
        int first = 1, second = 2;
        resurrect("count", &first, RELIC_INT);
        resurrect("count", &second, RELIC_INT);
        bury();
    });
    EXPECT_EQ(text(), "count\t2\n");
}

TEST_F(Bury, WhatIsNotRegisteredAnyMoreIsGone)
{
    dir.file("state", "old 1\n");
    program([] { bury(); });
    EXPECT_EQ(text(), "");
}

TEST_F(Bury, DyingThroughTheLogSavesTheState)
{
    const Ended ended = untagged([&] {
        static int count = 4;
        open();
        resurrect("count", &count, RELIC_INT);
        elog_die(0, "that was it");
    });
    EXPECT_EQ(ended.err, "that was it\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(text(), "count\t4\n");
}

// ---- Values there and back ----

TEST(BuryValues, IntsComeBack)
{
    for (const int value : {0, -1, INT_MAX, INT_MIN}) {
        SCOPED_TRACE(value);
        EXPECT_EQ(there_and_back(value, RELIC_INT), value);
    }
}

TEST(BuryValues, DoublesComeBackTo15Digits)
{
    for (const double value : {0.0, -0.5, 1e10, 1e-10, -123456.789, DBL_MIN, DBL_MAX, -DBL_MAX}) {
        SCOPED_TRACE(value);
        EXPECT_NEAR(there_and_back(value, RELIC_DOUBLE), value, std::fabs(value) * 1e-14);
    }
    EXPECT_EQ(there_and_back(HUGE_VAL, RELIC_DOUBLE), HUGE_VAL);
    EXPECT_EQ(there_and_back(-HUGE_VAL, RELIC_DOUBLE), -HUGE_VAL);
    EXPECT_TRUE(std::isnan(there_and_back(std::nan(""), RELIC_DOUBLE)));
}

TEST(BuryValues, TimesComeBackToTheMillisecond)
{
    for (const double value : {0.0, -0.5, -1.0, -1e9 - 0.25, 1.2e9 + 0.125, 1763731029.999, 4e9}) {
        SCOPED_TRACE(value);
        EXPECT_DOUBLE_EQ(there_and_back(value, RELIC_TIME), value);
    }
}

TEST(BuryValues, StringsComeBackExactly)
{
    for (const char *value : {"plain",
                              "",
                              " blanks around ",
                              "\ttab\t",
                              "a # no comment",
                              "#",
                              "{",
                              "}",
                              "{}",
                              "}{",
                              "two\nlines",
                              "\n",
                              "ends in newline\n",
                              "back\\slash",
                              "\\",
                              "\"quoted\"",
                              "it's",
                              "}\n{ \"EndOfLiteral ` ' ( [ <\n",
                              "&",
                              "a & b",
                              "\x01\x7f\xff",
                              "\xc3\xa4"}) {
        SCOPED_TRACE(value);
        EXPECT_EQ(string_and_back(value), value);
    }
}

// ---- Locking ----

// A process that did something and then waits; it is killed at the end of the scope.
class Waiting {
public:
    explicit Waiting(const std::function<void()> &body)
    {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        pid_ = fork();
        if (pid_ == 0) {
            body();
            if (write(ready[1], "", 1) == 1)
                for (;;)
                    pause();
            _exit(1);
        }
        close(ready[1]);
        char byte;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
    }
    ~Waiting()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Waiting(const Waiting &) = delete;
    Waiting &operator=(const Waiting &) = delete;

private:
    pid_t pid_;
};

TEST_F(Bury, ASecondProcessIsRefused)
{
    const Waiting first([&] { open(); });
    const Ended second = untagged([&] { open(); });
    EXPECT_EQ(second.err, "*fatal* Can't lock state file '" + state + kInUse +
                              "\tResource temporarily unavailable\n");
    EXPECT_EQ(second.status, 1);
}

TEST_F(Bury, ASecondProcessIsRefusedAfterBurialsToo)
{
    for (int burials = 1; burials <= 3; ++burials) {
        const Waiting first([&] {
            open();
            for (int i = 0; i < burials; ++i)
                bury();
        });
        EXPECT_THAT(untagged([&] { open(); }).err, HasSubstr(kInUse));
    }
    EXPECT_EQ(program([] {}), "1\n");
}

// ---- Stop signals ----

TEST_F(Bury, WithoutGraceTheSignalSavesAndEnds)
{
    for (const int sig : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
        SCOPED_TRACE(sig);
        const Ended ended = untagged([&] {
            static volatile int flag;
            static int count;
            open(&flag, 0);
            resurrect("count", &count, RELIC_INT);
            count = sig;
            std::atexit([] { std::printf("flag %d", flag); });
            std::raise(sig);
        });
        EXPECT_EQ(ended.status, 1);
        EXPECT_EQ(ended.out, "flag " + std::to_string(sig));
        EXPECT_EQ(ended.err, "");
        EXPECT_EQ(text(), "count\t" + std::to_string(sig) + "\n");
    }
}

TEST_F(Bury, WithNegativeGraceTheSignalOnlySetsTheFlag)
{
    const Ended ended = untagged([&] {
        volatile int flag;
        int count = 1;
        open(&flag, -1);
        resurrect("count", &count, RELIC_INT);
        errno = EIO;
        std::raise(SIGTERM);
        std::printf("%d %d", flag, errno);
    });
    EXPECT_EQ(ended.out, "15 5");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(text(), "");
}

TEST_F(Bury, WithGraceTheStateIsSavedAndTheProgramDiesInTime)
{
    const Ended ended = untagged([&] {
        volatile int flag;
        int count = 2;
        open(&flag, 1);
        resurrect("count", &count, RELIC_INT);
        std::raise(SIGHUP);
        std::printf("%d\n", flag);
        for (;;)
            pause();
    });
    EXPECT_EQ(ended.out, "1\n");
    EXPECT_THAT(ended.err, HasSubstr("quitting from resurrection alarm\n"));
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(text(), "count\t2\n");
}

TEST_F(Bury, ABurialWithinTheGraceStopsTheAlarm)
{
    const Ended ended = untagged([&] {
        volatile int flag;
        open(&flag, 1);
        std::raise(SIGTERM);
        bury();
        std::this_thread::sleep_for(std::chrono::milliseconds(1300));
        std::printf("alive");
    });
    EXPECT_EQ(ended.out, "alive");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
}

TEST_F(Bury, WithoutAFlagSignalsAreLeftAlone)
{
    const Ended ended = untagged([&] {
        open();
        std::raise(SIGTERM);
    });
    EXPECT_EQ(ended.signal, SIGTERM);
}

TEST_F(Bury, TheHandlerDiesWithoutAGrave)
{
    const Ended ended = untagged([] { signal_handler(SIGTERM); });
    EXPECT_THAT(ended.err, HasSubstr("*stack*Unexpected failure: signal_handler in file "));
    EXPECT_THAT(ended.err, HasSubstr("bury.cpp, line 129\n"));
    EXPECT_EQ(ended.status, 1);
}
