// Programs that really crash, by every signal and in every situation. Each ends within seconds
// and with a report, by abort or by the signal of a second crash.

#include <csignal>
#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "deviants.h"
#include "stock.h"
#include "support/child.h"
#include "support/temp_dir.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

// The faults that are caught by default and two more signals, with a part of the report of
// what the system says about them.
struct Way {
    const char *name;
    int sig;
    const char *fault;
};

// clang-format off
const Way kWays[] = {
#if defined(__x86_64__)
    {"ILL",  SIGILL,  "  Reason:illegal operand si_code="},
    {"TRAP", SIGTRAP, "  no additional information available about signal\n"},
    {"FPE",  SIGFPE,  "  integer divide by zero si_code="},
#else
    {"ILL",  SIGILL,  "  signal sent by pid "},
    {"TRAP", SIGTRAP, "  signal sent by pid "},
    {"FPE",  SIGFPE,  "  signal sent by pid "},
#endif
    {"BUS",  SIGBUS,  "  non-existent physical address\n  Attempt to reference address: 0x"},
    {"SEGV", SIGSEGV, "  address not mapped to object\n  Attempt to reference address: "},
    {"SYS",  SIGSYS,  "  signal sent by pid "},
    {"ABRT", SIGABRT, "  signal sent by pid "},
    {"USR1", SIGUSR1, "  signal sent by pid "},
};
// clang-format on

constexpr double kSeconds = 12;  // a report that gets stuck ends in less

// Runs the program; it must not hang.
Ended crashed(const Way &way, const std::string &situation,
              const std::vector<std::string> &settings = {}, const std::string &file = {})
{
    std::vector<std::string> all = {"ELOG_SIGNALS=ILL:TRAP:FPE:BUS:SEGV:SYS:ABRT:USR1",
                                    "ELOG_DELIVER",
                                    "ELOG_TAG",
                                    "ELOG_DEBUG",
                                    "ELOG_STACK",
                                    "PFPATH="};
    all.insert(all.end(), settings.begin(), settings.end());
    const double before = std_now();
    const Ended ended = run_program({CRASHER, way.name, situation, file}, "", all);
    EXPECT_LT(std_now() - before, kSeconds);
    return ended;
}

std::string described(const Way &way)
{
    return std::string("crasher: ") + strsignal(way.sig) + "\n";
}

std::string fault_message(const Way &way)
{
    return std::string("crasher *fault*: Signal ") + signal_bysig(way.sig)->name + " : " +
           strsignal(way.sig) + "\n";
}

// Expects the parts of the report in their order: stack, fault, waiting messages, description,
// fault message.
void expect_report(const Way &way, const std::string &text, const char *where)
{
    size_t at = 0;
    for (const std::string &part :
         {std::string("\n\nStack\n"), std::string(where), std::string(way.fault),
          std::string("crasher: waiting message\n"), "\n" + described(way), fault_message(way)}) {
        const size_t found = text.find(part, at);
        ASSERT_NE(found, text.npos) << "no '" << part << "' in\n" << text;
        at = found + part.size();
    }
    EXPECT_EQ(at, text.size()) << text;
}

void expect_aborts_with_report(const char *situation,
                               const char *where = "crasher::crash_here(int)")
{
    for (const Way &way : kWays) {
        SCOPED_TRACE(way.name);
        const double before = std_now();
        const Ended ended = crashed(way, situation);
        EXPECT_EQ(ended.signal, SIGABRT) << ended.status;
        expect_report(way, ended.err, where);
        EXPECT_LT(std_now() - before, 4);
    }
}

TEST(Crash, Plain)
{
    expect_aborts_with_report("plain");
}

TEST(Crash, TheTraceBeginsWhereTheFaultIs)
{
    const Ended ended = crashed(kWays[4], "plain");
    EXPECT_THAT(ended.err, MatchesRegex("\n\nStack\n[^\n]*/crasher\\(crasher::crash_here\\(int\\)"
                                        "\\+0x[0-9a-f]+\\) \\[0x[0-9a-f]+\\]\n(.|\n)*"));
}

TEST(Crash, WithAFullStack)
{
    for (const Way &way : kWays) {
        SCOPED_TRACE(way.name);
        const Ended ended = crashed(way, "overflow");
        EXPECT_EQ(ended.signal, SIGABRT);
        Way here = way;
        if (way.sig == SIGSEGV)
            here.fault = "Attempt to reference address: 0x";
        expect_report(here, ended.err, "crasher::with_a_full_stack(char const*)");
    }
}

TEST(Crash, InsideMalloc)
{
    // Turning C++ names into plain ones needs the heap: they stay mangled.
    expect_aborts_with_report("malloc", "crash_here");
}

TEST(Crash, InsideMallocATagThatNeedsTheHeapGoesWithoutItsTime)
{
    const TempDir dir;
    const std::string log = dir / "log";
    for (const Way &way : kWays) {
        SCOPED_TRACE(way.name);
        std::filesystem::remove(log);
        const double before = std_now();
        const Ended ended = crashed(
            way, "malloc", {"ELOG_TAG=%P%t *fault*@f", "ELOG_DELIVER=stderr " + log + "@f"});
        EXPECT_LT(std_now() - before, 4);
        EXPECT_EQ(ended.signal, SIGABRT);
        expect_report(way, ended.err, "crash_here");
        EXPECT_EQ(read_file(log),
                  "crasher: waiting message\n\n" + described(way) + fault_message(way));
    }
}

TEST(Crash, WithABrokenHeap)
{
    expect_aborts_with_report("heap", "");
}

TEST(Crash, HoldingTheLogsLock)
{
    expect_aborts_with_report("lock");
}

TEST(Crash, WhileAnotherThreadHoldsTheLogsLockForEver)
{
    expect_aborts_with_report("otherlock");
}

TEST(Crash, AnotherThreadMayFinishItsReportFirst)
{
    const Way &way = kWays[4];
    const Ended ended = crashed(way, "moment");
    EXPECT_EQ(ended.signal, SIGABRT);
    EXPECT_LT(ended.err.find("crasher: a complaint\n"), ended.err.find("\n\nStack\n"));
    EXPECT_THAT(ended.err, HasSubstr("\n" + described(way) + fault_message(way)));
}

TEST(Crash, InASecondThread)
{
    expect_aborts_with_report("thread");
}

TEST(Crash, InASecondThreadWithAFullStack)
{
    for (const Way &way : kWays) {
        SCOPED_TRACE(way.name);
        const Ended ended = crashed(way, "threadoverflow");
        EXPECT_EQ(ended.signal, SIGABRT);
        EXPECT_THAT(ended.err,
                    AllOf(HasSubstr("with_a_full_stack"), HasSubstr(fault_message(way))));
    }
}

TEST(Crash, InASecondThreadInsideMalloc)
{
    // The alarm that stops the use of the heap may come to the first thread instead.
    const Way &way = kWays[4];
    const Ended ended = crashed(way, "threadmalloc");
    EXPECT_EQ(ended.signal, SIGABRT);
    expect_report(way, ended.err, "crash_here");
}

TEST(Crash, InTwoThreadsAtOnce)
{
    for (const Way &way : kWays)
        for (int i = 0; i < 5; ++i) {
            SCOPED_TRACE(way.name);
            const Ended ended = crashed(way, "two");
            // The second fault may come before the first thread has set handlers for it.
            EXPECT_TRUE(ended.signal == SIGABRT || ended.signal == way.sig) << ended.signal;
            if (ended.signal == SIGABRT && way.sig != SIGABRT)
                expect_report(way, ended.err, "crasher::");
        }
}

TEST(Crash, InsideTheReport)
{
    for (const Way &way : kWays) {
        SCOPED_TRACE(way.name);
        const Ended ended = crashed(way, "twice");
        EXPECT_EQ(ended.signal, way.sig == SIGSEGV ? SIGFPE : SIGSEGV);
        EXPECT_THAT(ended.err,
                    AllOf(HasSubstr("\n\nStack\n"), HasSubstr(way.fault),
                          HasSubstr("\n" + described(way)), HasSubstr(fault_message(way)),
                          HasSubstr("crasher: waiting message\n")));
    }
}

TEST(Crash, InsideTheReportByTheSameSignal)
{
    for (const Way &way : kWays) {
        SCOPED_TRACE(way.name);
        const Ended ended = crashed(way, "again");
        // USR1 stays blocked until its handler returns, which it never does.
        EXPECT_EQ(ended.signal, way.sig == SIGUSR1 ? SIGABRT : way.sig);
        EXPECT_THAT(ended.err,
                    AllOf(HasSubstr("\n\nStack\n"), HasSubstr(way.fault),
                          HasSubstr("\n" + described(way)), HasSubstr(fault_message(way)),
                          HasSubstr("crasher: waiting message\n")));
    }
}

TEST(Crash, AReportThatBlocksIsEnded)
{
    const Way &way = kWays[4];
    const Ended ended = crashed(way, "block");
    EXPECT_EQ(ended.signal, SIGABRT);
    EXPECT_THAT(ended.err, AllOf(HasSubstr("\n\nStack\n"), HasSubstr(way.fault),
                                 HasSubstr("\n" + described(way)), HasSubstr(fault_message(way)),
                                 HasSubstr("crasher: waiting message\n")));
}

TEST(Crash, AReportThatBlocksBeforeTheTraceStillSaysIt)
{
    for (const Way &way : {kWays[2], kWays[4]}) {
        SCOPED_TRACE(way.name);
        const Ended ended = crashed(way, "blockatonce");
        EXPECT_EQ(ended.signal, SIGABRT);
        size_t at = 0;
        for (const std::string &part :
             {std::string("\n\nStack\n"), std::string("crash_here"), std::string(way.fault),
              "\n" + described(way), fault_message(way),
              std::string("crasher: waiting message\n")}) {
            const size_t found = ended.err.find(part, at);
            ASSERT_NE(found, std::string::npos) << "no '" << part << "' in\n" << ended.err;
            at = found + part.size();
        }
        EXPECT_EQ(ended.err.find("Stack\n"), ended.err.rfind("Stack\n"));
        EXPECT_THAT(ended.err, Not(HasSubstr("callback_that_blocks")));  // it begins at the fault
        EXPECT_EQ(ended.err.find("\n\nStack\n"), 0u);
    }
}

TEST(Crash, AFaultInAnotherThreadWaitsForTheReportThatIsMade)
{
    for (const char *situation : {"elsewhere", "signalelsewhere"})
        for (const Way &way : kWays) {
            if (way.sig == SIGUSR1)
                continue;
            SCOPED_TRACE(std::string(way.name) + " " + situation);
            const Ended ended = crashed(way, situation);
            EXPECT_EQ(ended.signal, SIGABRT);
            expect_report(way, ended.err, "crasher::crash_here(int)");
            EXPECT_EQ(ended.err.find("Stack\n"), ended.err.rfind("Stack\n"));
        }
}

TEST(Crash, AHandlerThatRefusesToAbortIsEnded)
{
    const Way &way = kWays[4];
    const Ended ended = crashed(way, "noabort");
    EXPECT_EQ(ended.signal, SIGABRT);
    expect_report(way, ended.err, "crasher::crash_here(int)");
}

TEST(Crash, WithStandardErrorClosedTheReportStillGoesElsewhere)
{
    const BlanklessDir dir;
    for (const char *situation : {"closed", "closedpipe", "full"})
        for (const Way &way : kWays) {
            SCOPED_TRACE(std::string(way.name) + " " + situation);
            std::filesystem::remove(dir / "log");
            const Ended ended = crashed(way, situation, {"ELOG_DELIVER=" + dir / "log" + "@f"});
            EXPECT_EQ(ended.signal, SIGABRT);
            EXPECT_EQ(ended.err, "");
            EXPECT_EQ(read_file(dir / "log"),
                      "crasher: waiting message\n\n" + described(way) + fault_message(way));
        }
}

TEST(Crash, WithAFullDisk)
{
    const TempDir dir;
    for (const Way &way : kWays) {
        SCOPED_TRACE(way.name);
        std::filesystem::remove(dir / "err");
        EXPECT_EQ(crashed(way, "fsize", {}, dir / "err").signal, SIGABRT);
        EXPECT_EQ(read_file(dir / "err").size(), 100U);
    }
}

TEST(Crash, IntoAPipeThatNobodyReads)
{
    EXPECT_EQ(crashed(kWays[4], "fullpipe").signal, SIGABRT);
}

TEST(Crash, WhileTheProgramExits)
{
    expect_aborts_with_report("exit");
}

TEST(Crash, WithAsManyMessagesAsMayWait)
{
    const Way &way = kWays[4];
    const Ended ended = crashed(way, "many", {"ELOG_MAXMSG=49"});
    EXPECT_EQ(ended.signal, SIGABRT);
    expect_report(way, ended.err, "crasher::crash_here(int)");
    EXPECT_THAT(ended.err, HasSubstr("crasher: message 47\n"));
}

TEST(Crash, ATagThatNeedsOtherFamiliesComesOut)
{
    const Ended ended = crashed(kWays[4], "plain", {"ELOG_TAG=%P %t@f"});
    EXPECT_EQ(ended.signal, SIGABRT);
    EXPECT_THAT(ended.err, HasSubstr(": Signal SIGSEGV : Segmentation fault\n"));
}

TEST(Crash, TheDebuggerOfFaultsRunsBeforeTheAbort)
{
    const Ended ended =
        crashed(kWays[4], "plain", {"ELOG_DEBUG=echo the debugger >&2@f", "ELOG_WAIT=0"});
    EXPECT_EQ(ended.signal, SIGABRT);
    EXPECT_THAT(ended.err, HasSubstr(fault_message(kWays[4]) +
                                     "Running debugger: 'echo the debugger >&2'\nthe debugger\n"));
}

// The end prints without the heap what it can: its text and the waiting messages.
TEST(Crash, AnEndThatATimerBeginsInsideMallocComesToItsEnd)
{
    const struct {
        const char *situation, *text;
    } cases[] = {{"diemalloc", "quitting from die_soon alarm\n"},
                 {"gracemalloc", "quitting from resurrection alarm\n"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.situation);
        const Ended ended = crashed(kWays[4], c.situation, {"ELOG_TAG=%P *fatal* %t@d"});
        EXPECT_EQ(ended.status, 1);
        EXPECT_EQ(ended.err,
                  std::string("crasher *fatal*: ") + c.text + "crasher: waiting message\n");
    }
}

TEST(Crash, AnEndThatATimerBeginsAtAnyMomentComesToItsEnd)
{
    for (const char *tag : {"ELOG_TAG", "ELOG_TAG=%P *fatal* %t@d"})
        for (int i = 0; i < 15; ++i) {
            const std::string seconds = std::to_string(0.02 + 0.0017 * i);
            SCOPED_TRACE(tag + (" " + seconds));
            const Ended ended = crashed(kWays[4], "die", {tag}, seconds);
            EXPECT_EQ(ended.status, 1);
            EXPECT_THAT(ended.err, HasSubstr(": quitting from die_soon alarm\n"));
        }
}

TEST(Crash, OfASignalThatIsNotCaughtIsNotReported)
{
    const Ended ended = crashed(kWays[4], "plain", {"ELOG_SIGNALS="});
    EXPECT_EQ(ended.signal, SIGSEGV);
    EXPECT_EQ(ended.err, "");
}

}  // namespace
