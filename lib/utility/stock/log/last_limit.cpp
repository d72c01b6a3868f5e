// The limit on an end of the process: one timer, and what is printed when its time is over.
//
// All of it runs in signal handlers too, which may have interrupted a thread that holds any
// lock or is inside malloc. So it takes no lock, allocates nothing and leaves errno alone.

#include <cstdint>
#include <functional>

#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include "base/file_size_signal.h"
#include "base/guards.h"
#include "base/ordered_lock.h"
#include "log/end.h"
#include "log/fault.h"
#include "log/log.h"

namespace stock::logging {

namespace {

// Starts the timer, which then runs out again every second, or stops it with 0 seconds.
void arm(int seconds)
{
    const itimerval timer = {{seconds > 0, 0}, {seconds, 0}};
    ::setitimer(ITIMER_REAL, &timer, nullptr);
}

// The limit's timer may have been stopped: a program may have set the interval timer anew.
bool timer_runs()
{
    itimerval timer = {};
    return ::getitimer(ITIMER_REAL, &timer) == 0 &&
           (timer.it_value.tv_sec > 0 || timer.it_value.tv_usec > 0);
}

// The handler of the alarm when a step of the end has taken too long. Prints the step's text,
// which may block, then the messages, which may fault. The next alarm interrupts the one and
// the fault the other, and both come here again and end the process.
void end_now(int)
{
    if (The_end.printing.test_and_set())
        ::_exit(1);
    for (const int fault : kFaultSignals)
        set_action(fault, end_now, SA_ONSTACK | SA_NODEFER);
    const FileSizeSignalBlocked blocked;
    ErrorText text{ToStandardError()};
    const char *const program = The_program.name;
    for (const char *piece : {program, " *fatal*: ", The_end.text.load()})
        text(piece);
    text.flush();
    add_messages(text);
    text.flush();
    ::_exit(1);
}

}  // namespace

void set_action(int sig, void (*handler)(int), int flags)
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigemptyset(&action.sa_mask);
    ::sigaction(sig, &action, nullptr);
}

void unblock(int sig)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, sig);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

void set_limit(int seconds, void (*over)(int sig))
{
    const KeepErrno keep;
    // The end may come while this thread holds any lock. The limit makes up for a deadlock.
    lock_order::forget();
    if (!The_end.over)
        ::sigaction(SIGALRM, nullptr, &The_end.before);
    The_end.over = over;
    The_end.seconds = seconds;
    set_action(SIGALRM, SIG_IGN, 0);  // discards an earlier alarm that is pending
    arm(seconds);
    set_action(SIGALRM, over, SA_ONSTACK | SA_NODEFER);
    unblock(SIGALRM);
}

void move_limit(int seconds)
{
    const KeepErrno keep;
    arm(seconds);
}

LimitPaused::LimitPaused()
{
    if (The_end.over)
        move_limit(0);
}

LimitPaused::~LimitPaused()
{
    if (The_end.over)
        move_limit(The_end.seconds);
}

bool limit_end(const char *text)
{
    const KeepErrno keep;
    // A limit that stands holds, and its step keeps the time that is left to it.
    if (The_end.over && timer_runs())
        return false;
    The_end.text = text;
    set_limit(kStepSeconds, end_now);
    return true;
}

void limit_step(const char *text)
{
    if (!end_is_limited())
        return;
    The_end.text = text;
    set_limit(kStepSeconds, end_now);
}

bool end_is_limited()
{
    return The_end.over == end_now;
}

void lift_limit()
{
    const KeepErrno keep;
    // The limit of a crash is not lifted.
    void (*ours)(int) = end_now;
    if (!The_end.over.compare_exchange_strong(ours, nullptr))
        return;
    arm(0);
    ::sigaction(SIGALRM, &The_end.before, nullptr);
}

void add_messages(ErrorText &text)
{
    for (std::int64_t i = 0; i < The_stack.messages->count; ++i)
        if (const Elog_msg *msg = message(i))
            lay_out(*msg, "\t", std::ref(text));
}

}  // namespace stock::logging
