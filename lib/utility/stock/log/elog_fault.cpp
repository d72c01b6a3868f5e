// Faults: their handlers, the report of a crash, the debugger.
//
// The report of a crash goes the log's ordinary way, in a process of which nothing is certain:
// the heap may be broken or locked by this very thread, another thread may hold the log's
// lock for ever, standard error may be a pipe that nobody reads. So while a crash is reported
// the log does not use the heap, and two things end a report that gets stuck: a second fault
// and the timer. Both print, with nothing but write, what The_crash.phase says is missing.

#include "stock/elog_fault.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>

#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/guards.h"
#include "base/number.h"
#include "deviants.h"
#include "deviants/fault.h"
#include "deviants/system.h"
#include "log/asks.h"
#include "log/fault.h"
#include "log/log.h"

namespace stock::logging {

namespace {

// Seconds that each part of a report may take.
constexpr int kReportSeconds = 5;        // all of it; begun anew after each use of the heap
constexpr int kHeapSeconds = 1;          // one function that uses the heap
constexpr int kLockSeconds = 1;          // waiting for another thread to give the lock up
constexpr int kGivingUpSeconds = 1;      // each part of what is printed when giving up
constexpr int kOtherReportSeconds = 15;  // the report of another thread, which ends the process

constexpr std::size_t kAltStackSize = 256 * 1024;
constexpr std::size_t kEnoughStackSize = 32 * 1024;  // a stack of the program's own will do

// Signals by which printing would end the process before the report is out.
constexpr int kPrintingSignals[] = {SIGPIPE, SIGXFSZ};

// ---- The crash that is reported ----

// Whether this is the thread that reports the crash.
bool is_reporter()
{
    return pthread_equal(pthread_self(), The_crash.thread) != 0;
}

// Enters a phase. False when the report has come to it, or to a later one, before.
bool enter(Phase next)
{
    Phase now = The_crash.phase;
    while (now < next)
        if (The_crash.phase.compare_exchange_weak(now, next))
            return true;
    return false;
}

// Ends the process by this signal's default action.
[[noreturn]] void die_by(int sig)
{
    for (const int last : {sig, SIGABRT}) {
        set_action(last, SIG_DFL, 0);
        unblock(last);
        ::raise(last);
    }
    ::_exit(1);
}

// Prints the stack of this thread without standard error's buffer and lock. A signal handler
// that interrupted the report does this, and the heap is not used any more.
void print_trace()
{
    The_crash.heap = Heap::given_up;
    Trace_handlers = 1;
    show_stack_trace_string(sizeof The_crash.trace, The_crash.trace);
    write_all(STDERR_FILENO, The_crash.trace);
}

void add_fault(ErrorText &text)
{
    char words[256];
    fault_text(The_crash.sig, The_crash.info, words, sizeof words);
    text(words);
}

void add_signal(ErrorText &text)
{
    const SignalWords &signal = The_crash.words;
    const char *const name = signal.name ? signal.name : "?";
    const char *const description = signal.description ? signal.description : "a fault";
    const char *const program = The_program.name;
    for (const char *piece : {"\n", program, ": ", description, "\n", program, " *fault*: Signal ",
                              name, " : ", description, "\n"})
        text(piece);
}

// Prints what the report has not printed yet, the stack first. A fault or an alarm that
// interrupts it comes here again and goes on with the next part: the phase is entered before
// its part is printed.
void print_the_rest()
{
    if (is_reporter() && enter(Phase::tracing))
        print_trace();
    const Phase reached = The_crash.phase.exchange(Phase::giving_up);
    if (reached >= Phase::told)
        return;
    ErrorText text{ToStandardError()};
    if (reached < Phase::telling)
        add_fault(text);
    add_signal(text);
    text.flush();
    add_messages(text);
}

// ---- Using the heap ----

// Jumps back into try_on_heap when this thread is in the middle of a function there.
void leave_the_heap()
{
    Heap in_use = Heap::in_use;
    if (is_reporter() && The_crash.heap.compare_exchange_strong(in_use, Heap::given_up))
        siglongjmp(The_crash.before_heap, 1);
}

// Runs a function that uses the heap. False when it faults or takes too long: then the heap is
// given up, and no other function is run.
bool try_on_heap(void (*function)(void *argument), void *argument)
{
    if (The_crash.heap != Heap::usable)
        return false;
    if (sigsetjmp(The_crash.before_heap, 1) != 0) {
        move_limit(kReportSeconds);
        return false;
    }
    The_crash.heap = Heap::in_use;
    move_limit(kHeapSeconds);
    function(argument);
    move_limit(kReportSeconds);
    The_crash.heap = Heap::usable;
    return true;
}

// ---- A second fault, and the timer ----

// Another thread's report ends the process. When it does not, this thread does.
[[noreturn]] void await_the_reporter(int sig)
{
    wait_until(kOtherReportSeconds, [] { return false; });
    die_by(sig);
}

// The handler of faults while a crash is reported.
void second_fault(int sig)
{
    if (!is_reporter())
        await_the_reporter(sig);
    leave_the_heap();
    print_the_rest();
    die_by(sig);
}

// The handler of the alarm when the report takes too long. The alarm may come to any thread.
// The first one that another thread gets is passed on to the reporting thread, which may be
// able to go on without the heap.
void time_is_up(int)
{
    const KeepErrno keep;
    move_limit(kGivingUpSeconds);
    if (!is_reporter() && !The_crash.alarm_passed_on.exchange(true)) {
        pthread_kill(The_crash.thread, SIGALRM);
        return;
    }
    leave_the_heap();
    print_the_rest();
    die_by(SIGABRT);
}

// ---- The words for a signal ----

bool is_remembered(int sig)
{
    return sig >= 0 && sig < kRememberedSignals;
}

// Copies the words for a signal that is caught. The system may look a description up in
// another language, which uses the heap: it is asked before there is a fault.
void prepare_words(int sig)
{
    if (!is_remembered(sig))
        return;
    const SignalWords words = ask_signal_words(sig);
    if (!words.name || !words.description)
        return;
    Description &kept = The_fault_handlers.descriptions[sig];
    std::snprintf(kept.name, sizeof kept.name, "%s", words.name);
    std::snprintf(kept.text, sizeof kept.text, "%s", words.description);
}

SignalWords words_for(int sig)
{
    if (!is_remembered(sig) || !*The_fault_handlers.descriptions[sig].name)
        return ask_signal_words(sig);
    const Description &kept = The_fault_handlers.descriptions[sig];
    return {kept.name, kept.text};
}

// ---- The beginning of a report ----

void ignore_signal(int) {}

// Fills The_crash in, and takes the signals and the timer for its report.
void prepare_report(int sig, const siginfo_t *info)
{
    The_crash.thread = pthread_self();
    The_crash.sig = sig;
    if (info) {
        The_crash.info_copy = *info;
        The_crash.info = &The_crash.info_copy;
    }
    ::sigaction(SIGABRT, nullptr, &The_crash.on_abort);
    for (const int fault : kFaultSignals)
        set_action(fault, second_fault, SA_ONSTACK | SA_NODEFER);
    for (const int harmless : kPrintingSignals)
        set_action(harmless, ignore_signal, SA_ONSTACK | SA_RESTART);
    set_limit(kReportSeconds, time_is_up);
    This_thread.crashing = true;
    This_thread.reports = 0;  // the fault has cut off those that were being made
    This_thread.owed = nullptr;
    begin_change();  // from now on no other end begins in this thread
    Try_on_heap = try_on_heap;
}

// Makes this thread the one that reports a crash, which it is for good. In every other thread
// it does not return. Signals are blocked until handlers can rely on The_crash.
void begin_crash(int sig, const siginfo_t *info)
{
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const bool first = enter(Phase::preparing);
    if (first) {
        prepare_report(sig, info);
        enter(Phase::begun);
    }
    while (The_crash.phase == Phase::preparing)
        ::sched_yield();
    sigaddset(&before, SIGXFSZ);  // a report that is too large for its file goes on
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (!first)
        second_fault(sig);
    unblock(SIGALRM);
    for (const int fault : kFaultSignals)
        unblock(fault);
    The_crash.words = words_for(sig);
}

// Goes on as the holder of the lock for the rest of the process's life, even when another
// thread does not give it up in time.
void seize_lock()
{
    wait_until(kLockSeconds, [] { return Lock.try_lock(); });
    Lock.assume();
}

// ---- A thread's stack for handlers ----

// Unmaps the stack of a thread that ends, and first takes it out of use.
void free_alt_stack(void *memory)
{
    stack_t now = {};
    if (::sigaltstack(nullptr, &now) == 0 && now.ss_sp == memory) {
        stack_t none = {};
        none.ss_flags = SS_DISABLE;
        none.ss_size = kAltStackSize;
        ::sigaltstack(&none, nullptr);
    }
    ::munmap(memory, kAltStackSize);
}

void make_alt_stack_key()
{
    FaultHandlers &handlers = The_fault_handlers;
    handlers.alt_stack_key_made = pthread_key_create(&handlers.alt_stack_key, free_alt_stack) == 0;
}

// Whether the thread has a stack for handlers that is large enough.
bool has_alt_stack()
{
    stack_t now = {};
    return ::sigaltstack(nullptr, &now) != 0 ||
           (!(now.ss_flags & SS_DISABLE) && now.ss_size >= kEnoughStackSize);
}

void set_alt_stack()
{
    constexpr int kProtection = PROT_READ | PROT_WRITE;
    void *memory = ::mmap(nullptr, kAltStackSize, kProtection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return;
    const pthread_key_t key = The_fault_handlers.alt_stack_key;
    stack_t stack = {};
    stack.ss_sp = memory;
    stack.ss_size = kAltStackSize;
    const bool kept =
        The_fault_handlers.alt_stack_key_made && pthread_setspecific(key, memory) == 0;
    if (kept && ::sigaltstack(&stack, nullptr) == 0)
        return;
    if (kept)
        pthread_setspecific(key, nullptr);
    ::munmap(memory, kAltStackSize);
}

// ---- Setting handlers up ----

// Installs the action for one signal, and saves the action that it replaces unless one was
// saved for the signal before.
void intercept(const char *name, const struct sigaction &action, bool (&saved)[kRememberedSignals])
{
    if (std::strncmp(name, "SIG", 3) == 0)
        name += 3;
    int number = -1;
    if (!ask_signal_number(name, number))
        return elog_fail("Unrecognized signal name '%s'\n", name);
    const bool save = is_remembered(number) && !saved[number];
    if (::sigaction(number, &action, save ? &Old_handler[number] : nullptr) != 0)
        return elog_fail("Couldn't intercept signal %s\n", name);
    if (save)
        saved[number] = true;
    prepare_words(number);
}

// ---- The debugger ----

constexpr int kCommandSize = 1024;  // bytes that a debugger command is expanded into

void start_debugger(const char *command)
{
    char text[kCommandSize];
    elog_expand(command, ELOG_DEBUG, text, kCommandSize);
    std::fprintf(stderr, "Running debugger: '%s'\n", text);
    errno = 0;
    if (std::system(text) != 0)
        elog_fatal("Can't run debugger '%s'\n", command);
}

// Sleeps so many seconds, or until a signal handler has run, and leaves errno alone. The
// complaint is that of snooze, which does the same for programs.
void sleep_for(double seconds)
{
    const KeepErrno keep;
    if (seconds < 0)
        elog_complain(0, "*stack* invalid argument to snooze: %.3f", seconds);
    if (!(seconds > 0) || !std::isfinite(seconds))
        return;
    const double whole = std::trunc(seconds);
    const timespec span{saturated<time_t>(whole), static_cast<long>(1e9 * (seconds - whole))};
    ::nanosleep(&span, nullptr);
}

}  // namespace

void make_alt_stack()
{
    This_thread.alt_stack_tried = true;
    const KeepErrno keep;
    if (!has_alt_stack())
        set_alt_stack();
}

void crash_was_told()
{
    enter(Phase::told);
}

void abort_process()
{
    // In a crash SIGABRT has the report's handler. The program gets its own back, but not the
    // log's, which would report once more.
    if (crashing()) {
        const bool ours = (The_crash.on_abort.sa_flags & SA_SIGINFO) &&
                          The_crash.on_abort.sa_sigaction == _elog_fault;
        if (ours)
            set_action(SIGABRT, SIG_DFL, 0);
        else
            ::sigaction(SIGABRT, &The_crash.on_abort, nullptr);
    }
    std::abort();
}

}  // namespace stock::logging

using namespace stock;
using namespace stock::logging;

void setup_fault_handlers(Fault_handler handler, const char *list)
{
    std::memset(Old_handler, 0, sizeof Old_handler);
    struct sigaction action = {};
    action.sa_sigaction = handler;
    // SA_RESETHAND: a fault inside a program's own handler ends the process.
    action.sa_flags = static_cast<int>(SA_SIGINFO | SA_RESETHAND | SA_ONSTACK);
    sigemptyset(&action.sa_mask);
    The_fault_handlers.list = list ? list : "";
    if (!list)
        return;
    bool saved[kRememberedSignals] = {};
    const Owned<char> copy(copy_text(list, "list"));
    char *rest = nullptr;
    for (const char *name = strtok_r(copy.get(), ":", &rest); name;
         name = strtok_r(nullptr, ":", &rest))
        intercept(name, action, saved);
}

void elog_setup_fault_handler(const char *list)
{
    if (list && *list) {
        prepare_stack_trace();  // the system may load a library for it, now and not in a crash
        pthread_once(&The_fault_handlers.alt_stack_once, make_alt_stack_key);
        The_fault_handlers.installed = true;
        prepare_thread();
    }
    setup_fault_handlers(_elog_fault, list);
}

void elog_setup_show_stack(const char *variable)
{
    struct Letter {
        char letter;
        int severity;
    };
    // Meant: no letter selects "alert", and "a" selects "fault".
    static constexpr Letter kLetters[] = {{'l', 0}, {'D', 1}, {'n', 2}, {'c', 4},
                                          {'d', 5}, {'f', 6}, {'a', 6}};
    const char *value = variable ? stock::trusted_env(variable) : nullptr;
    for (const char *at = value ? value : ""; *at; ++at)
        for (const Letter &row : kLetters)
            if (row.letter == *at)
                The_fault_handlers.shows_stack[row.severity] = true;
}

void _elog_fault(int sig, siginfo_t *info, void *context)
{
    begin_crash(sig, info);
    Trace_after = __builtin_return_address(0);
    seize_lock();
    const auto [name, description] = The_crash.words;
    if (description)
        elog_log(0, "\n%s\n", description);
    else
        elog_log(0, "\nsignal #%d received: signal_bysig failed\n", sig);
    enter(Phase::tracing);
    show_stack_trace();
    enter(Phase::showing);
    show_fault(sig, info, context);
    enter(Phase::telling);
    if (description)
        elog_fault(1, "Signal %s : %s", name, description);
    elog_fault(1, "\nsignal #%d received: signal_bysig failed\n", sig);
}

void elog_debugger(void)
{
    need_init();
    Field command;
    {
        const Holding hold(Lock);
        store(command, The_settings.debug.fields[ELOG_FAULT]);
    }
    if (*command)
        _elog_debug(command);
}

void _elog_debug(const char *command)
{
    if (!command)
        return;
    need_init();
    const LimitPaused paused;
    if (The_fault_handlers.debugger_started) {
        ::kill(::getpid(), SIGSTOP);
    } else {
        start_debugger(command);
        The_fault_handlers.debugger_started = true;
    }
    sleep_for(The_settings.wait_seconds);
}
