// The last limit of an end, and what can still be said then.
//
// A fault, a stop signal or a timer that ends the process may have interrupted its own
// thread inside malloc, or wait for a disk that does not answer. So it sets a limit
// before anything else, and when that is over the process ends without heap and locks.
// All functions here may be called in a signal handler and leave errno alone.

#pragma once

#include <csignal>
#include <string_view>

namespace stock::logging {

// The signals by which what is still done near the end may fail.
inline constexpr int kFaultSignals[] = {SIGILL, SIGTRAP, SIGFPE, SIGBUS, SIGSEGV, SIGSYS, SIGABRT};

void set_action(int sig, void (*handler)(int), int flags);
void unblock(int sig);

// Has over called with SIGALRM after so many seconds, and again each second from then
// on, also when this thread blocks SIGALRM. It takes the process's timer.
void set_limit(int seconds, void (*over)(int sig));

// Gives the limit that stands another time.
void move_limit(int seconds);

// Stops the time for a scope, for a debugger; the limit that stands then begins anew.
class LimitPaused {
public:
    LimitPaused();
    ~LimitPaused();
    LimitPaused(const LimitPaused &) = delete;
    LimitPaused &operator=(const LimitPaused &) = delete;
};

// Seconds that each step of an end is given: a report, saving the state, exit.
inline constexpr int kStepSeconds = 10;

// What is said of steps.
inline constexpr char kGraceOver[] = "quitting from resurrection alarm\n";
inline constexpr char kNotSaved[] = "the state could not be saved in time\n";
inline constexpr char kNotExited[] = "could not exit in time\n";

// Begins an end that has limits. When its first step is not done in time the process
// prints the text and the messages that wait, and ends with status 1. False when a limit
// stands already; that one holds.
bool limit_end(const char *text);

// Begins the next step of such an end; does nothing when the end has no limits.
void limit_step(const char *text);

// Whether an end with limits has begun.
bool end_is_limited();

// Takes the limit away: the process is not to end after all.
void lift_limit();

// Text for standard error that is written in pieces of the buffer.
class Words {
public:
    ~Words() { flush(); }
    void operator()(std::string_view piece);
    void flush();

private:
    std::size_t used_ = 0;
    char text_[2048];
};

// The messages that wait. It takes no lock and so may fault.
void say_messages(Words &words);

}  // namespace stock::logging
