// What the report of a crash shares with the rest of the log, and the timer that limits it.

#pragma once

#include <atomic>
#include <csetjmp>
#include <csignal>
#include <string_view>

#include <pthread.h>
#include <unistd.h>

#include "base/gatherer.h"
#include "log/asks.h"
#include "log/log.h"

namespace stock::logging {

// Signals are remembered up to this number.
inline constexpr int kRememberedSignals = 50;

// ---- State, defined in log_state.cpp ----

// The actions that setup_fault_handlers has replaced, by signal number. No lock guards them:
// handlers are set up before there are threads.
extern struct sigaction Old_handler[kRememberedSignals];

// The name and description of a signal that is caught, copied before there is a fault.
struct Description {
    char name[64];  // empty: the signal is not caught
    char text[kErrorSize];
};

// The handlers of faults. No lock guards this, but atomics may change while threads run.
struct FaultHandlers {
    std::atomic<bool> installed;    // threads need a stack for handlers from now on
    const char *list;               // the signals that are caught, as the caller gave them
    bool shows_stack[kSeverities];  // severities whose messages a stack trace follows
    Description descriptions[kRememberedSignals];
    pthread_once_t alt_stack_once;
    pthread_key_t alt_stack_key;  // frees a thread's stack for handlers when it ends
    bool alt_stack_key_made;
    std::atomic<bool> debugger_started;
};
extern FaultHandlers The_fault_handlers;

// What the report of a crash does. It goes through the phases in this order; giving_up may
// follow any of them.
enum class Phase : int {
    none,       // there is no crash
    preparing,  // a thread takes the signals and the timer; all signals are blocked
    begun,      // it waits for the lock and logs the signal
    tracing,    // it prints the stack
    showing,    // it prints what the system says about the fault
    telling,    // it delivers the messages
    told,       // only abort is left
    giving_up,  // a second fault or the timer prints what was not printed yet
};

// Whether the report may call functions that need the heap.
enum class Heap : int { usable, in_use, given_up };

// The one crash that is reported. The thread that reports it writes all of it but the atomics.
struct Crash {
    std::atomic<Phase> phase;
    std::atomic<Heap> heap;
    std::atomic<bool> alarm_passed_on;  // another thread got the alarm and sent it to this one
    pthread_t thread;
    int sig;
    const siginfo_t *info;  // points to info_copy, or null
    siginfo_t info_copy;
    SignalWords words;                         // of the signal; null until they are looked up
    struct sigaction on_abort;                 // the program's action for SIGABRT
    sigjmp_buf before_heap;                    // with heap in_use: where to go on without it
    char record[kMessageSize + 2 * kTagSize];  // a message that is written to a file
    char trace[64 * 1024];                     // the stack as text, when giving up
};
extern Crash The_crash;

// ---- Crashes ----

// Whether this thread reports a crash. Then the heap may be broken: what would be
// allocated is kept in static memory, and nothing is freed.
inline bool crashing()
{
    return This_thread.crashing;
}

// Gives this thread a stack on which handlers of faults run, once they are installed.
void make_alt_stack();
inline void prepare_thread()
{
    if (!This_thread.alt_stack_tried &&
        The_fault_handlers.installed.load(std::memory_order_acquire)) [[unlikely]]
        make_alt_stack();
}

// Enters Phase::told: the messages of the crash have been delivered.
void crash_was_told();

// Ends the process by abort, with the program's action for SIGABRT.
[[noreturn]] void abort_process();

// ---- What is printed when the end takes too long ----

struct ToStandardError {
    void operator()(std::string_view text) const { write_all(STDERR_FILENO, text); }
};
using ErrorText = Gatherer<2048, ToStandardError>;

// Adds the messages on the stack. It takes no lock, and so may read what another thread is
// changing, and fault.
void add_messages(ErrorText &text);

// ---- The timer ----
// All of this may be called in a signal handler and leaves errno alone.

// The signals that a fault of the end itself may raise.
inline constexpr int kFaultSignals[] = {SIGILL, SIGTRAP, SIGFPE, SIGBUS, SIGSEGV, SIGSYS, SIGABRT};

void set_action(int sig, void (*handler)(int), int flags);
void unblock(int sig);

// Has over() called with SIGALRM after so many seconds and then every second, even when this
// thread blocks SIGALRM. It takes the process's interval timer.
void set_limit(int seconds, void (*over)(int sig));

// Starts the time of the limit anew, with so many seconds.
void move_limit(int seconds);

// Stops the time of the limit for a scope, and starts it anew at its end: for a debugger.
class LimitPaused {
public:
    LimitPaused();
    ~LimitPaused();
    LimitPaused(const LimitPaused &) = delete;
    LimitPaused &operator=(const LimitPaused &) = delete;
};

}  // namespace stock::logging
