// Fault handlers, stack traces on request, the debugger, and the text about a fault.
// Real crashes are in crash_test.cpp.

#include "stock/elog_fault.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <execinfo.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "deviants.h"
#include "stock.h"
#include "support/logging.h"
#include "support/temp_dir.h"

// What signal_bysig and signal_byname give.
static enum { Everything, No_description, No_record } Signals = Everything;

// The program's own functions, which replace the library's.
extern "C" Signal *signal_bysig(int sig)
{
    static const auto real = reinterpret_cast<Signal *(*)(int)>(dlsym(RTLD_NEXT, "signal_bysig"));
    static char name[] = "NONE";
    static Signal nameless = {0, name, nullptr};
    if (Signals == No_description)
        return &nameless;
    return Signals == No_record ? nullptr : real(sig);
}

extern "C" Signal *signal_byname(const char *name)
{
    static const auto real =
        reinterpret_cast<Signal *(*)(const char *)>(dlsym(RTLD_NEXT, "signal_byname"));
    return Signals == No_record ? nullptr : real(name);
}

namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// Runs a body with expectations in a child. Those that fail there are printed to its output.
Ended checked(std::initializer_list<std::string> settings, const std::function<void()> &body)
{
    const Ended ended = logged(settings, body);
    EXPECT_EQ(ended.out, "");
    return ended;
}

volatile sig_atomic_t Caught = 0;

void catch_it(int sig, siginfo_t *, void *)
{
    Caught = sig;
}

struct sigaction action_of(int sig)
{
    struct sigaction action = {};
    sigaction(sig, nullptr, &action);
    return action;
}

bool is_caught_by_log(int sig)
{
    const struct sigaction action = action_of(sig);
    return (action.sa_flags & SA_SIGINFO) && action.sa_sigaction == _elog_fault;
}

std::string caught_signals()
{
    std::string names;
    for (int sig = 1; sig < 32; ++sig)
        if (is_caught_by_log(sig))
            names += std::string(signal_bysig(sig)->name) + " ";
    return names;
}

siginfo_t info_of(int code)
{
    siginfo_t info = {};
    info.si_code = code;
    return info;
}

std::string fault(int sig, siginfo_t info)
{
    return logged({}, [&] { show_fault(sig, &info, nullptr); }).err;
}

std::string trace(int size)
{
    std::vector<char> buffer(static_cast<size_t>(size) + 8, 'x');
    show_stack_trace_string(size, buffer.data());
    EXPECT_EQ(std::string(buffer.end() - 8, buffer.end()), "xxxxxxxx");
    return buffer.data();
}

TEST(SetupFaultHandlers, InstallsOneShotHandlersWithAnEmptyMask)
{
    checked({}, [] {
        setup_fault_handlers(catch_it, "USR1:SIGUSR2");
        for (int sig : {SIGUSR1, SIGUSR2}) {
            const struct sigaction action = action_of(sig);
            EXPECT_EQ(action.sa_sigaction, catch_it);
            EXPECT_EQ(action.sa_flags & (SA_SIGINFO | static_cast<int>(SA_RESETHAND)),
                      SA_SIGINFO | static_cast<int>(SA_RESETHAND));
            for (int other = 1; other < 32; ++other)
                EXPECT_EQ(sigismember(&action.sa_mask, other), 0);
        }
        raise(SIGUSR1);
        EXPECT_EQ(Caught, SIGUSR1);
        EXPECT_EQ(action_of(SIGUSR1).sa_handler, SIG_DFL);
    });
}

TEST(SetupFaultHandlers, TellsWhatItCannotCatchAndGoesOn)
{
    const Ended ended = checked({}, [] {
        setup_fault_handlers(catch_it, "USR1:bogus:KILL:SIGnone:SIGUSR2");
        EXPECT_EQ(action_of(SIGUSR2).sa_sigaction, catch_it);
    });
    EXPECT_EQ(ended.err, "Couldn't intercept signal bogus\n\t: Invalid argument\n"
                         "Couldn't intercept signal KILL\n\t: Invalid argument\n"
                         "Couldn't intercept signal none\n\t: Invalid argument\n");
    EXPECT_EQ(ended.status, 0);
}

TEST(SetupFaultHandlers, ANullListOnlyEmptiesTheListThatIsRemembered)
{
    checked({}, [] {
        elog_init(0, nullptr);
        setup_fault_handlers(catch_it, nullptr);
        const char *list = nullptr;
        elog_query(ELOG_SIGNAL_LIST, 0, &list);
        EXPECT_STREQ(list, "");
        EXPECT_EQ(caught_signals(), "SIGILL SIGTRAP SIGBUS SIGFPE SIGSEGV SIGSYS ");
    });
}

TEST(SetupFaultHandlers, TellsWhatTheTableOfSignalsDoesNotHave)
{
    const Ended ended = checked({}, [] {
        elog_init(0, nullptr);
        Signals = No_record;
        setup_fault_handlers(catch_it, "USR1:SIGUSR2");
    });
    EXPECT_EQ(ended.err, "Unrecognized signal name 'USR1'\nUnrecognized signal name 'USR2'\n");
}

TEST(ElogFault, ASignalWithoutADescriptionIsNumbered)
{
    for (const auto missing : {No_record, No_description}) {
        const Ended ended = checked({"ELOG_SIGNALS="}, [&] {
            elog_init(0, nullptr);
            Signals = missing;
            _elog_fault(SIGUSR1, nullptr, nullptr);
        });
        const std::string said =
            "signal #" + std::to_string(SIGUSR1) + " received: signal_bysig failed\n";
        EXPECT_THAT(ended.err, EndsWith("about signal\n\nelog_fault_test: " + said +
                                        "\nelog_fault_test *fault*: " + said));
        EXPECT_EQ(ended.signal, SIGABRT);
    }
}

// Descriptions are prepared for the first fifty numbers only.
TEST(ElogFault, ReportsSignalsOfAnyNumber)
{
    for (const int sig : {-1, 0, 31, 49, 50, 64, 1000}) {
        SCOPED_TRACE(sig);
        const Ended ended = checked({"ELOG_SIGNALS="}, [&] {
            elog_init(0, nullptr);
            _elog_fault(sig, nullptr, nullptr);
        });
        const Signal *signal = signal_bysig(sig);
        EXPECT_THAT(ended.err, EndsWith(std::string("\nelog_fault_test *fault*: Signal ") +
                                        signal->name + " : " + signal->description + "\n"));
        EXPECT_EQ(ended.signal, SIGABRT);
    }
}

TEST(SetupFaultHandlers, TakesSignalsBeyondThoseThatAreRemembered)
{
    const Ended ended = checked({}, [] {
        setup_fault_handlers(catch_it, "::USR1:USR1::");
        raise(SIGUSR1);
        EXPECT_EQ(Caught, SIGUSR1);
    });
    EXPECT_EQ(ended.err, "");
}

TEST(ElogInit, CatchesTheDefaultFaults)
{
    checked({}, [] {
        elog_init(0, nullptr);
        EXPECT_EQ(caught_signals(), "SIGILL SIGTRAP SIGBUS SIGFPE SIGSEGV SIGSYS ");
    });
}

TEST(ElogInit, CatchesTheSignalsOfTheEnvironmentAndTellsOfUnknownNames)
{
    const Ended ended = checked({"ELOG_SIGNALS=SEGV:SIGFPE:bogus"}, [] {
        elog_init(0, nullptr);
        EXPECT_EQ(caught_signals(), "SIGFPE SIGSEGV ");
    });
    EXPECT_EQ(ended.err, "Couldn't intercept signal bogus\n\t: Invalid argument\n");
}

TEST(ElogInit, CatchesNothingForAnEmptyList)
{
    checked({"ELOG_SIGNALS="}, [] {
        elog_init(0, nullptr);
        EXPECT_EQ(caught_signals(), "");
    });
}

TEST(ElogInit, KeepsItsListWhenTheEnvironmentChanges)
{
    checked({"ELOG_SIGNALS=USR1:FPE"}, [] {
        elog_init(0, nullptr);
        setenv("ELOG_SIGNALS", "a much longer value that takes other memory", 1);
        const char *list = nullptr;
        elog_query(ELOG_SIGNAL_LIST, 0, &list);
        EXPECT_STREQ(list, "USR1:FPE");
    });
}

TEST(ElogSet, TheSignalListInstallsHandlers)
{
    checked({"ELOG_SIGNALS="}, [] {
        EXPECT_EQ(elog_set(ELOG_SIGNAL_LIST, 0, "BUS:SIGSYS"), 0);
        EXPECT_EQ(caught_signals(), "SIGBUS SIGSYS ");
    });
}

// A letter for each severity, log first, with this ELOG_STACK: 's' when a stack follows its
// report, '-' when none does.
std::string severities_with_stack(const std::string &value)
{
    std::string found;
    for (int severity = 0; severity < 7; ++severity) {
        const Ended ended = checked({"ELOG_STACK=" + value, "ELOG_DELIVER=stderr"}, [&] {
            [](int of, const char *format, ...) {
                va_list args;
                va_start(args, format);
                elog(of, 0, format, args);
                va_end(args);
            }(severity, "x");
        });
        found += ended.err.find("x\n\n\nStack\n") != std::string::npos ? 's' : '-';
    }
    return found;
}

TEST(ElogStack, LettersSelectSeveritiesAndAMeansFault)
{
    EXPECT_EQ(severities_with_stack("ca"), "----s-s");
    EXPECT_EQ(severities_with_stack("lDncd"), "sss-ss-");
    EXPECT_EQ(severities_with_stack("f"), "------s");
    EXPECT_EQ(severities_with_stack("xyz,A 1L"), "-------");
    EXPECT_EQ(severities_with_stack(""), "-------");
}

TEST(ElogStack, SetupAddsToWhatIsSelected)
{
    const Ended ended = checked({"ELOG_STACK=n", "MORE=c"}, [] {
        elog_init(0, nullptr);
        elog_setup_show_stack("MORE");
        elog_setup_show_stack("NONE_SUCH");
        elog_setup_show_stack(nullptr);
        elog_notify(0, "one");
        elog_complain(0, "two");
        elog_alert(0, "three");
    });
    EXPECT_THAT(ended.err, AllOf(HasSubstr("one\n\n\nStack\n"), HasSubstr("two\n\n\nStack\n"),
                                 EndsWith("*alert*: three\n")));
}

TEST(ElogStack, AMessageOrATagWithThePrefixIsFollowedByATrace)
{
    const Ended text = checked({}, [] { elog_complain(0, "*stack* oh"); });
    EXPECT_THAT(text.err, StartsWith("elog_fault_test: *stack* oh\n\n\nStack\n"));
    const Ended tag = checked({"ELOG_TAG=*stack*"}, [] { elog_complain(0, "oh"); });
    EXPECT_THAT(tag.err, StartsWith("*stack*: oh\n\n\nStack\n"));
    const Ended inside = checked({}, [] { elog_complain(0, "oh *stack*"); });
    EXPECT_EQ(inside.err, "elog_fault_test: oh *stack*\n");
}

TEST(ElogStack, ALeadingNewlineHidesThePrefixOfATextButNotThatOfATag)
{
    const Ended text = checked({}, [] { elog_complain(0, "\n*stack* oh"); });
    EXPECT_EQ(text.err, "\nelog_fault_test: *stack* oh\n");
    const Ended tag = checked({"ELOG_TAG=*stack*"}, [] { elog_complain(0, "\noh"); });
    EXPECT_THAT(tag.err, StartsWith("\n*stack*: oh\n\n\nStack\n"));
}

TEST(ElogStack, IsDecidedBeforeTheMessageIsDelivered)
{
    const Ended ended = checked({"SWITCHED_ON=c"}, [] {
        elog_set(
            ELOG_CALLBACK_FN, 0, +[](int, const char *, Tbl *) {
                elog_setup_show_stack("SWITCHED_ON");
                return 0;
            });
        elog_complain(0, "x");
    });
    EXPECT_EQ(ended.err, "elog_fault_test: x\n");
}

TEST(ElogStack, ARepetitionIsNotTracedAgain)
{
    const Ended ended = checked({"ELOG_STACK=l"}, [] {
        elog_log(0, "x");
        elog_log(0, "x");
        elog_clear();
    });
    EXPECT_EQ(ended.err.rfind("Stack\n"), ended.err.find("Stack\n"));
}

TEST(ShowStackTrace, GoesToStandardErrorInOrder)
{
    const Ended ended = checked({}, [] {
        fprintf(stderr, "before");
        errno = 7;
        show_stack_trace();
        EXPECT_EQ(errno, 7);
        fprintf(stderr, "after");
    });
    EXPECT_THAT(ended.err, AllOf(StartsWith("before\n\nStack\n"), EndsWith("]\nafter")));
}

TEST(ShowStackTrace, KeepsItsOrderOnABufferedStream)
{
    const Ended ended = checked({}, [] {
        static char buffer[65536];
        setvbuf(stderr, buffer, _IOFBF, sizeof buffer);
        fprintf(stderr, "before");
        show_stack_trace();
        _exit(0);
    });
    EXPECT_THAT(ended.err, AllOf(StartsWith("before\n\nStack\n"), EndsWith("]\n")));
}

TEST(ShowStackTraceString, BeginsWithTheCallerAndIsLaidOutAsTheSystemDoes)
{
    void *frames[128];
    const int count = backtrace(frames, 128);
    char **all = backtrace_symbols(frames, count);
    std::vector<char> buffer(65536);
    show_stack_trace_string(65536, buffer.data());
    const std::string text = buffer.data();
    ASSERT_THAT(text, StartsWith("\n\nStack\n"));
    std::vector<std::string> ours;
    for (size_t at = 8; at < text.size(); at = text.find('\n', at) + 1)
        ours.push_back(text.substr(at, text.find('\n', at) - at));
    // Compared with the trace of the C library, which leaves C++ names mangled. The first
    // addresses differ, because the two were called from different lines.
    ASSERT_GE(ours.size(), 4U);
    ASSERT_LE(ours.size(), static_cast<size_t>(count));
    // The C library's trace may begin with functions of a sanitizer.
    char **lines = all + count - ours.size();
    const auto image = [](const std::string &line) { return line.substr(0, line.find('(')); };
    EXPECT_EQ(image(ours[0]), image(lines[0]));
    bool compared = false;
    for (size_t i = 1; i < ours.size(); ++i) {
        EXPECT_EQ(image(ours[i]), image(lines[i]));
        if (std::strstr(lines[i], "(_Z"))
            continue;
        EXPECT_EQ(ours[i], lines[i]);
        compared = true;
    }
    EXPECT_TRUE(compared);
    std::free(all);
}

[[gnu::noinline]] long lines_this_deep(int depth)
{
    volatile int deeper = depth - 1;
    if (deeper > 0)
        return lines_this_deep(deeper) + deeper - deeper;
    const std::string text = trace(1 << 20);
    return std::count(text.begin(), text.end(), '\n') - 3;
}

TEST(ShowStackTraceString, HasNoMoreLinesThan128AddressesGive)
{
    EXPECT_LE(lines_this_deep(400), 128);
    EXPECT_GE(lines_this_deep(400), 120);  // without the functions that make the trace
}

TEST(ShowStackTraceString, CutsTheHeading)
{
    EXPECT_EQ(trace(1), "");
    EXPECT_EQ(trace(2), "\n");
    EXPECT_EQ(trace(5), "\n\nSt");
    EXPECT_EQ(trace(8), "\n\nStack");
    EXPECT_EQ(trace(9), "\n\nStack\n");
}

TEST(ShowStackTraceString, CutsTheLastLineAndEndsItWithANewline)
{
    const std::string whole = trace(65536);
    // The addresses in the first two lines differ from call to call.
    const size_t line = whole.find('\n', whole.find('\n', 8) + 1) + 1;
    for (int size = 10; size < 600 && size < static_cast<int>(whole.size()); ++size) {
        const std::string text = trace(size);
        ASSERT_LT(text.size(), static_cast<size_t>(size));
        EXPECT_EQ(text.back(), '\n') << size;
        if (text.size() <= line + 1)
            continue;
        EXPECT_EQ(text.substr(line, text.size() - 1 - line),
                  whole.substr(line, text.size() - 1 - line));
    }
}

TEST(ShowStackTraceString, FillsTheBufferWithZeros)
{
    char buffer[4096];
    std::memset(buffer, 'x', sizeof buffer);
    show_stack_trace_string(sizeof buffer, buffer);
    for (size_t i = std::strlen(buffer); i < sizeof buffer; ++i)
        EXPECT_EQ(buffer[i], '\0');
    buffer[0] = 'x';
    show_stack_trace_string(0, buffer);
    show_stack_trace_string(-1, buffer);
    EXPECT_EQ(buffer[0], 'x');
}

struct Fault {
    int sig;
    int code;
    const char *text;  // "%d" stands for the code
};

// clang-format off
const Fault kFaults[] = {
    {SIGILL, ILL_ILLOPC, "  Reason:illegal opcode si_code=%d\n"},
    {SIGILL, ILL_ILLTRP, "  Reason:unrecognized SIGILL si_code=%d\n"},
    {SIGILL, ILL_PRVOPC, "  Reason:priviledged opcom si_code=%d\n"},
    {SIGILL, ILL_ILLOPN, "  Reason:illegal operand si_code=%d\n"},
    {SIGILL, ILL_ILLADR, "  Reason:illegal addressing mode si_code=%d\n"},
    {SIGILL, ILL_PRVREG, "  Reason:priviledged register si_code=%d\n"},
    {SIGILL, ILL_COPROC, "  Reason:co-processor error si_code=%d\n"},
    {SIGILL, ILL_BADSTK, "  Reason:internal stack error si_code=%d\n"},
    {SIGILL, 99,         "  Reason:unrecognized SIGILL si_code=%d\n"},
    {SIGFPE, FPE_FLTDIV, "  floating point divide by zero si_code=%d\n"},
    {SIGFPE, FPE_FLTOVF, "  floating point overflow si_code=%d\n"},
    {SIGFPE, FPE_FLTUND, "  floating point underflow si_code=%d\n"},
    {SIGFPE, FPE_FLTRES, "  floating point inexact result si_code=%d\n"},
    {SIGFPE, FPE_FLTINV, "  floating point invalid operation si_code=%d\n"},
    {SIGFPE, FPE_FLTSUB, "  subscript out of range si_code=%d\n"},
    {SIGFPE, FPE_INTDIV, "  integer divide by zero si_code=%d\n"},
    {SIGFPE, FPE_INTOVF, "  integer overflow si_code=%d\n"},
    {SIGFPE, 99,         "  unrecognized SIGFPE si_code=%d\n"},
    {SIGBUS, BUS_ADRALN, "  invalid address alignment\n"},
    {SIGBUS, BUS_ADRERR, "  non-existent physical address\n  Attempt to reference address: 0x1234\n"},
    {SIGBUS, BUS_OBJERR, "  object specific hardware error\n  Attempt to reference address: 0x1234\n"},
    {SIGBUS, 99,         ""},
    {SIGSEGV, SEGV_MAPERR, "  address not mapped to object\n  Attempt to reference address: 0x1234\n"},
    {SIGSEGV, SEGV_ACCERR, "  invalid permissions for mapped object\n  Attempt to reference address: 0x1234\n"},
    {SIGSEGV, 99,        "  unrecognized SIGSEGV si->si_code = %d\n  Attempt to reference address: 0x1234\n"},
    {SIGTRAP, 1,         "  no additional information available about signal\n"},
    {SIGSYS, 1,          "  no additional information available about signal\n"},
    {SIGTERM, 0,         "  no additional information available about signal\n"},
};
// clang-format on

TEST(ShowFault, DescribesEachCodeByTheSystemsNames)
{
    for (const Fault &row : kFaults) {
        siginfo_t info = info_of(row.code);
        info.si_addr = reinterpret_cast<void *>(0x1234);
        std::string text = row.text;
        if (const size_t at = text.find("%d"); at != std::string::npos)
            text.replace(at, 2, std::to_string(row.code));
        EXPECT_EQ(fault(row.sig, info), text) << row.sig << ' ' << row.code;
    }
}

TEST(ShowFault, ANegativeCodeNamesTheSender)
{
    for (int sig : {SIGSEGV, SIGFPE, SIGTERM})
        for (int code : {-1, -6, -2147483647 - 1}) {
            siginfo_t info = info_of(code);
            info.si_pid = 123;
            info.si_uid = 45;
            EXPECT_EQ(fault(sig, info),
                      "  signal sent by pid 123, user 45\n  Type: unrecognized si->si_code = " +
                          std::to_string(code) + "\n");
        }
    // Meant: a code above 0 is read as that of a fault, also when a process sent the signal.
    EXPECT_EQ(fault(SIGTERM, info_of(0x10001)),
              "  no additional information available about signal\n");
}

TEST(ShowFault, LeavesErrnoAlone)
{
    checked({}, [] {
        siginfo_t info = info_of(1);
        errno = 7;
        show_fault(SIGSEGV, &info, nullptr);
        EXPECT_EQ(errno, 7);
    });
}

TEST(ElogDebug, RunsTheExpandedCommandAndWaits)
{
    const TempDir dir;
    const double before = std_now();
    const Ended ended = logged({"ELOG_WAIT=0.3", "HERE=" + dir.path()}, [] {
        elog_init(0, nullptr);
        _elog_debug("echo %s %p %P >$HERE/ran");
        printf("%d", static_cast<int>(getpid()));
    });
    const std::string expanded = "debug " + ended.out + " elog_fault_test";
    EXPECT_EQ(ended.err, "Running debugger: 'echo " + expanded + " >$HERE/ran'\n");
    EXPECT_EQ(read_file(dir / "ran"), expanded + "\n");
    EXPECT_GE(std_now() - before, 0.3);
    EXPECT_EQ(ended.status, 0);
}

TEST(ElogDebug, ANegativeWaitIsComplainedAboutAndOneWithoutEndIsNone)
{
    const std::string started = "Running debugger: 'true'\n";
    const auto debug = [] { _elog_debug("true"); };
    EXPECT_THAT(checked({"ELOG_WAIT=-1"}, debug).err,
                StartsWith(started + "elog_fault_test: *stack* invalid argument to snooze: "
                                     "-1.000\n\n\nStack\n"));
    for (const char *wait : {"ELOG_WAIT=inf", "ELOG_WAIT=nan", "ELOG_WAIT=0"})
        EXPECT_EQ(checked({wait}, debug).err, started) << wait;
}

TEST(ElogDebug, ACommandThatFailsEndsTheProcess)
{
    const Ended ended = checked({"ELOG_WAIT=0"}, [] {
        elog_log(0, "waiting");
        _elog_debug("exit %%3");
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.err, HasSubstr("Running debugger: 'exit %3'\n"));
    EXPECT_THAT(ended.err, EndsWith("Can't run debugger 'exit %%3'\nelog_fault_test: waiting\n"));
}

TEST(ElogDebug, TheSecondTimeTheProcessStops)
{
    const Ended ended = logged({"ELOG_WAIT=0"}, [] {
        const pid_t pid = fork();
        if (pid == 0) {
            _elog_debug("true");
            _elog_debug("true");
            _exit(5);
        }
        int status = 0;
        waitpid(pid, &status, WUNTRACED);
        printf("%d ", WIFSTOPPED(status) && WSTOPSIG(status) == SIGSTOP);
        kill(pid, SIGCONT);
        waitpid(pid, &status, 0);
        printf("%d", WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    });
    EXPECT_EQ(ended.out, "1 5");
    EXPECT_EQ(ended.err, "Running debugger: 'true'\n");
}

TEST(ElogDebug, AStoppedProcessWaitsWhenItGoesOn)
{
    checked({"ELOG_WAIT=0.4"}, [] {
        const pid_t pid = fork();
        if (pid == 0) {
            _elog_debug("true");
            _elog_debug("true");
            _exit(5);
        }
        int status = 0;
        waitpid(pid, &status, WUNTRACED);
        const double before = std_now();
        kill(pid, SIGCONT);
        waitpid(pid, &status, 0);
        EXPECT_GE(std_now() - before, 0.3);
    });
}

TEST(ElogDebug, ALongCommandIsCutAt1024Characters)
{
    const Ended ended =
        checked({"ELOG_WAIT=0"}, [] { _elog_debug((": " + std::string(2000, 'x')).c_str()); });
    EXPECT_EQ(ended.err, "Running debugger: ': " + std::string(923, 'x') + " *...'\n");
}

TEST(ElogDebug, FollowsAMessageWhoseSeverityHasACommand)
{
    const Ended ended = checked({"ELOG_WAIT=0", "ELOG_DEBUG=echo ran >&2@c"}, [] {
        elog_alert(0, "one");
        elog_complain(0, "two");
    });
    EXPECT_EQ(ended.err, "elog_fault_test *alert*: one\nelog_fault_test: two\n"
                         "Running debugger: 'echo ran >&2'\nran\n");
}

TEST(ElogDebug, ComesAfterTheStackTraceAndLeavesErrnoAtZero)
{
    const Ended ended = checked({"ELOG_WAIT=0", "ELOG_STACK=c", "ELOG_DEBUG=sleep .2@c"}, [] {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, nullptr);
        ualarm(100000, 0);
        elog_complain(0, "x");
        EXPECT_EQ(errno, 0);
    });
    EXPECT_THAT(ended.err, AllOf(StartsWith("elog_fault_test: x\n\n\nStack\n"),
                                 EndsWith("]\nRunning debugger: 'sleep .2'\n")));
}

TEST(ElogDebugThreads, OtherThreadsMayReportWhileTheDebuggerStarts)
{
    const TempDir dir;
    const Ended ended =
        checked({"ELOG_WAIT=1", "ELOG_DEBUG=echo >$F@c", "F=" + dir / "started"}, [&] {
            elog_init(0, nullptr);
            std::atomic<bool> marked{false};
            std::thread other([&] {
                while (access((dir / "started").c_str(), F_OK) != 0)
                    usleep(1000);
                elog_mark();
                marked = true;
            });
            elog_complain(0, "x");
            EXPECT_TRUE(marked);
            other.join();
        });
    EXPECT_EQ(ended.status, 0);
}

TEST(ElogDebugger, RunsTheCommandOfFaults)
{
    const Ended ended = checked({"ELOG_WAIT=0", "ELOG_DEBUG=echo ran >&2@f"}, elog_debugger);
    EXPECT_EQ(ended.err, "Running debugger: 'echo ran >&2'\nran\n");
    EXPECT_EQ(logged({"ELOG_WAIT=0"}, elog_debugger).err, "");
}

}  // namespace
