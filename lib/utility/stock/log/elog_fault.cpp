// Faults: the handlers, the report of a crash, the debugger.
//
// The report goes the ordinary way of the log, in a process of which nothing is
// certain: the heap may be broken or locked by this very thread, another thread may
// hold the log's lock for ever, standard error may be a pipe that nobody reads. So
// the ordinary way does without the heap while a crash is reported, and two things
// stand ready to end it: another fault and the last limit. Both say, with nothing but
// write, what the report still had to say.

#include "stock/elog_fault.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csetjmp>
#include <cstdlib>
#include <cstring>

#include <pthread.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/guards.h"
#include "deviants.h"
#include "deviants/fault.h"
#include "log/fault.h"
#include "log/last_limit.h"
#include "stock/signal_desc.h"
#include "stock/strings.h"
#include "stock/wait_for_time.h"

namespace stock::logging {

struct sigaction Old_handler[kOldHandlers];
int Show_stack[kSeverities];
std::atomic<bool> Faults_caught{false};

namespace {

constexpr std::size_t kAltStack = 256 * 1024;
constexpr std::size_t kEnoughStack = 32 * 1024;  // a stack of the program's that will do

constexpr int kPatience = 5;         // seconds that a report may take
constexpr int kHeapPatience = 1;     // seconds that an attempt on the heap may take
constexpr int kLockPatience = 100;   // hundredths of a second that another may hold the lock
constexpr int kOthersPatience = 15;  // seconds that another thread's report may take

// What must not end the process before the report is out.
constexpr int kHarmless[] = {SIGPIPE, SIGXFSZ};

std::atomic<int> Debugger_running{0};

// The crash that is reported. It is written by the one thread that reports it.
struct Crash {
    pthread_t thread;
    int sig;
    const Signal *signal;  // null as long as it is looked for
    siginfo_t info;
    bool informed;  // whether there is such information
    struct sigaction on_abort;
    std::atomic<bool> traced;     // the stack is out, or was tried
    volatile bool shown;          // the system's words about the fault are out
    std::atomic<bool> told;       // the messages are out
    std::atomic<bool> giving_up;  // somebody says what is left
    std::atomic<bool> trying;     // on_heap may be jumped to
    bool heap_is_broken;          // an attempt on the heap has failed
    sigjmp_buf on_heap;
};
Crash The_crash;
std::atomic<bool> Crashed{false};

void restore_mask(const sigset_t &mask)
{
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

// Ends the process by this signal's default action.
[[noreturn]] void die_by(int sig)
{
    set_action(sig, SIG_DFL, 0);
    unblock(sig);
    ::raise(sig);
    set_action(SIGABRT, SIG_DFL, 0);
    unblock(SIGABRT);
    ::raise(SIGABRT);
    ::_exit(1);
}

bool is_reporter()
{
    return pthread_equal(pthread_self(), The_crash.thread) != 0;
}

// The stack of this thread, without standard error's own buffer and lock. A handler that
// interrupted the report says it.
void say_trace()
{
    static char Trace[64 * 1024];
    The_crash.heap_is_broken = true;  // nothing is tried on it any more
    Trace_handlers = 1;
    show_stack_trace_string(sizeof Trace, Trace);
    write_all(STDERR_FILENO, Trace);
}

// Says what the report has not said yet, the stack first. Who is interrupted by a fault
// or by the timer while he does so comes here again and goes on with what is next.
void say_the_rest()
{
    if (The_crash.told)
        return;
    if (is_reporter() && !The_crash.traced.exchange(true))
        say_trace();
    if (The_crash.giving_up.exchange(true))
        return;
    Words words;
    if (!The_crash.shown) {
        char text[256];
        fault_text(The_crash.sig, The_crash.informed ? &The_crash.info : nullptr, text,
                   sizeof text);
        words(text);
    }
    static constexpr Signal kNameless = {0, "?", "a fault"};
    const Signal *signal = The_crash.signal ? The_crash.signal : &kNameless;
    const char *const program = Program_Name;
    for (const char *piece : {"\n", program, ": ", signal->description, "\n", program,
                              " *fault*: Signal ", signal->name, " : ", signal->description, "\n"})
        words(piece);
    words.flush();
    say_messages(words);
}

// Goes back to where an attempt on the heap was made, if this thread is in one.
void leave_the_heap()
{
    if (is_reporter() && The_crash.trying.exchange(false))
        siglongjmp(The_crash.on_heap, 1);
}

// Another thread's report ends the process; should it not, this does.
[[noreturn]] void await_the_end(int sig)
{
    const timespec second{1, 0};
    for (int i = 0; i < kOthersPatience; ++i)
        ::nanosleep(&second, nullptr);
    die_by(sig);
}

// A fault while another is reported.
void second_fault(int sig)
{
    if (!is_reporter())
        await_the_end(sig);
    leave_the_heap();
    say_the_rest();
    die_by(sig);
}

// The time of the report is up. The timer is the process's and its signal may come to
// any thread; the one that reports is given a chance to go on by itself.
void time_is_up(int)
{
    const KeepErrno keep;
    static std::atomic<int> Elsewhere{0};
    move_limit(kHeapPatience);
    if (!is_reporter() && Elsewhere++ < 1) {
        pthread_kill(The_crash.thread, SIGALRM);
        return;
    }
    leave_the_heap();
    say_the_rest();
    die_by(SIGABRT);
}

// Runs a function that needs the heap; gives up when it faults or takes too long.
bool try_on_heap(void (*function)(void *argument), void *argument)
{
    if (The_crash.heap_is_broken)
        return false;
    if (sigsetjmp(The_crash.on_heap, 1) != 0) {
        The_crash.heap_is_broken = true;
        move_limit(kPatience);
        return false;
    }
    The_crash.trying = true;
    move_limit(kHeapPatience);
    function(argument);
    move_limit(kPatience);
    The_crash.trying = false;
    return true;
}

void do_nothing(int) {}

// What signal_bysig says of the signals that are caught. The system may look its words
// up in another language, which needs the heap: it is asked before there is a fault.
struct Description {
    Signal signal;
    char name[SIGNAL_NAME_SIZE];
    char text[kErrorSize];
};
Description Descriptions[kOldHandlers];

void prepare_description(int sig)
{
    if (sig < 0 || sig >= kOldHandlers)
        return;
    Description &kept = Descriptions[sig];
    const Signal *signal = signal_bysig(sig);
    std::snprintf(kept.name, sizeof kept.name, "%s", signal->name);
    std::snprintf(kept.text, sizeof kept.text, "%s", signal->description);
    kept.signal = {sig, kept.name, kept.text};
}

const Signal *describe_signal(int sig)
{
    const bool prepared = sig >= 0 && sig < kOldHandlers && Descriptions[sig].signal.name;
    return prepared ? &Descriptions[sig].signal : signal_bysig(sig);
}

// Makes this thread the one that reports. Does not return to a second one.
void begin_crash(int sig, const siginfo_t *info)
{
    static std::atomic_flag Begun;
    sigset_t all, mask;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &mask);  // nothing comes between until all is ready
    if (Begun.test_and_set()) {
        while (!Crashed)
            sched_yield();
        restore_mask(mask);
        second_fault(sig);
    }
    The_crash.thread = pthread_self();
    The_crash.sig = sig;
    The_crash.informed = info != nullptr;
    if (info)
        The_crash.info = *info;
    Crashed = true;
    ::sigaction(SIGABRT, nullptr, &The_crash.on_abort);
    for (int second : kFaultSignals)
        set_action(second, second_fault, SA_ONSTACK | SA_NODEFER);
    for (int harmless : kHarmless)
        set_action(harmless, do_nothing, SA_ONSTACK | SA_RESTART);
    set_limit(kPatience, time_is_up);
    This_thread.crashing = true;
    This_thread.reports = 0;  // those that the fault has cut off do not count
    This_thread.owed = nullptr;
    begin_change();  // from now on no other end begins in this thread
    Try_on_heap = try_on_heap;
    restore_mask(mask);
    unblock(SIGALRM);
    for (int second : kFaultSignals)
        unblock(second);
    The_crash.signal = describe_signal(sig);
}

// Takes the lock for the rest of the process's life, from another thread if need be.
void seize_lock()
{
    const timespec hundredth{0, 10'000'000};
    for (int i = 0; i < kLockPatience && !Lock.try_lock(); ++i)
        ::nanosleep(&hundredth, nullptr);
    Lock.assume();
}

// The alternate stack of a thread is given back when the thread ends.
pthread_key_t Alt_stack_key;
pthread_once_t Alt_stack_once = PTHREAD_ONCE_INIT;
bool Alt_stack_key_is_there = false;

void give_back(void *memory)
{
    stack_t now = {};
    if (::sigaltstack(nullptr, &now) == 0 && now.ss_sp == memory) {
        const stack_t none = {nullptr, SS_DISABLE, kAltStack};
        ::sigaltstack(&none, nullptr);
    }
    ::munmap(memory, kAltStack);
}

void make_key()
{
    Alt_stack_key_is_there = pthread_key_create(&Alt_stack_key, give_back) == 0;
}

// Whether the thread has a stack for handlers that is large enough.
bool has_alt_stack()
{
    stack_t now = {};
    return ::sigaltstack(nullptr, &now) != 0 ||
           (!(now.ss_flags & SS_DISABLE) && now.ss_size >= kEnoughStack);
}

void set_alt_stack()
{
    void *memory =
        ::mmap(nullptr, kAltStack, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return;
    stack_t stack = {};
    stack.ss_sp = memory;
    stack.ss_size = kAltStack;
    const bool kept = Alt_stack_key_is_there && pthread_setspecific(Alt_stack_key, memory) == 0;
    if (kept && ::sigaltstack(&stack, nullptr) == 0)
        return;
    if (kept)
        pthread_setspecific(Alt_stack_key, nullptr);
    ::munmap(memory, kAltStack);
}

std::string_view without_sig(std::string_view name)
{
    return name.substr(name.starts_with("SIG") ? 3 : 0);
}

// Installs the action for one signal and keeps the one that it replaces.
void intercept(const char *full_name, const struct sigaction &action, bool (&saved)[kOldHandlers])
{
    const char *name = without_sig(full_name).data();
    const Signal *signal = signal_byname(name);
    if (!signal)
        return elog_fail("Unrecognized signal name '%s'\n", name);
    const int number = signal->number;
    const bool save = number >= 0 && number < kOldHandlers && !saved[number];
    if (::sigaction(number, &action, save ? &Old_handler[number] : nullptr) != 0)
        return elog_fail("Couldn't intercept signal %s\n", name);
    if (save)
        saved[number] = true;
    prepare_description(number);
}

constexpr int kCommandMax = 1024;  // most that a debugger command is expanded to

void start_debugger(const char *command)
{
    char text[kCommandMax];
    elog_expand(command, kDebug, text, kCommandMax);
    std::fprintf(stderr, "Running debugger: '%s'\n", text);
    errno = 0;
    if (std::system(text) != 0)
        elog_fatal("Can't run debugger '%s'\n", command);
}

}  // namespace

void prepare_thread_slowly()
{
    This_thread.prepared = true;
    const KeepErrno keep;
    if (!has_alt_stack())
        set_alt_stack();
}

void crash_was_told()
{
    The_crash.told = true;
}

void abort_process()
{
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
    action.sa_flags = static_cast<int>(SA_SIGINFO | SA_RESETHAND | SA_ONSTACK);
    sigemptyset(&action.sa_mask);
    Faults = list ? list : "";
    if (!list)
        return;
    bool saved[kOldHandlers] = {};
    const Owned<char> copy(copy_text(list, "list"));
    Tbl *names = split(copy.get(), ':');
    for (std::int64_t i = 0; i < names->count; ++i)
        intercept(static_cast<const char *>(gettbl(names, i)), action, saved);
    freetbl(names, nullptr);
}

void elog_setup_fault_handler(const char *list)
{
    if (list && *list) {
        prepare_stack_trace();
        pthread_once(&Alt_stack_once, make_key);
        Faults_caught = true;
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
    const char *value = variable ? std::getenv(variable) : nullptr;
    for (const char *at = value ? value : ""; *at; ++at)
        for (const Letter &row : kLetters)
            if (row.letter == *at)
                Show_stack[row.severity] = 1;
}

void _elog_fault(int sig, siginfo_t *info, void *context)
{
    begin_crash(sig, info);
    Trace_after = __builtin_return_address(0);
    seize_lock();
    const Signal *signal = The_crash.signal;
    if (signal && signal->description)
        elog_log(0, "\n%s\n", signal->description);
    else
        elog_log(0, "\nsignal #%d received: signal_bysig failed\n", sig);
    if (!The_crash.traced.exchange(true))
        show_stack_trace();
    show_fault(sig, info, context);
    The_crash.shown = true;
    if (signal && signal->description)
        elog_fault(1, "Signal %s : %s", signal->name, signal->description);
    elog_fault(1, "\nsignal #%d received: signal_bysig failed\n", sig);
}

void elog_debugger(void)
{
    need_init();
    Field command;
    {
        const Holding hold(Lock);
        store(command, Debug[kFault]);
    }
    if (*command)
        _elog_debug(command);
}

void _elog_debug(const char *command)
{
    if (!command)
        return;
    need_init();
    const LimitPaused paused;  // a debugger takes the time that it takes
    if (Debugger_running) {
        ::kill(::getpid(), SIGSTOP);
    } else {
        start_debugger(command);
        Debugger_running = 1;
    }
    snooze(Elog_wait);
}
