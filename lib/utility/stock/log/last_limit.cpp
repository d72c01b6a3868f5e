// The last limit of an end: one timer, and what is said when it runs out.

#include "log/last_limit.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <utility>

#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include "base/guards.h"
#include "base/ordered_lock.h"
#include "log/log.h"

namespace stock::logging {

namespace {

using Handler = void (*)(int);

std::atomic<Handler> Over{nullptr};  // of the limit that stands
std::atomic<int> Seconds{0};         // that it was given
std::atomic<const char *> Text{""};  // what is said when a step takes too long
struct sigaction Before;             // for SIGALRM, before the limit was set

void arm(int seconds)
{
    const itimerval timer = {{seconds > 0, 0}, {seconds, 0}};
    ::setitimer(ITIMER_REAL, &timer, nullptr);
}

bool timer_runs()
{
    itimerval timer = {};
    return ::getitimer(ITIMER_REAL, &timer) == 0 &&
           (timer.it_value.tv_sec > 0 || timer.it_value.tv_usec > 0);
}

// A step of the end has taken too long. What may block is said before what may fault,
// and whichever does so is interrupted by the next alarm or by the fault.
void end_now(int)
{
    static std::atomic_flag Begun;
    if (Begun.test_and_set())
        ::_exit(1);
    for (const int fault : kFaultSignals)
        set_action(fault, end_now, SA_ONSTACK | SA_NODEFER);
    Words words;
    const char *const program = Program_Name;
    for (const char *piece : {program, " *fatal*: ", Text.load()})
        words(piece);
    words.flush();
    say_messages(words);
    words.flush();
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
    lock_order::forget();
    if (!Over)
        ::sigaction(SIGALRM, nullptr, &Before);
    Over = over;
    Seconds = seconds;
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
    if (Over)
        move_limit(0);
}

LimitPaused::~LimitPaused()
{
    if (Over)
        move_limit(Seconds);
}

bool limit_end(const char *text)
{
    const KeepErrno keep;
    if (Over && timer_runs())
        return false;
    Text = text;
    set_limit(kStepSeconds, end_now);
    return true;
}

void limit_step(const char *text)
{
    if (!end_is_limited())
        return;
    Text = text;
    set_limit(kStepSeconds, end_now);
}

bool end_is_limited()
{
    return Over == end_now;
}

void lift_limit()
{
    const KeepErrno keep;
    Handler ours = end_now;
    if (!Over.compare_exchange_strong(ours, nullptr))
        return;
    arm(0);
    ::sigaction(SIGALRM, &Before, nullptr);
}

void Words::operator()(std::string_view piece)
{
    while (!piece.empty()) {
        if (used_ == sizeof text_)
            flush();
        const std::size_t length = piece.copy(text_ + used_, sizeof text_ - used_);
        used_ += length;
        piece.remove_prefix(length);
    }
}

void Words::flush()
{
    write_all(STDERR_FILENO, {text_, std::exchange(used_, 0)});
}

void say_messages(Words &words)
{
    for (std::int64_t i = 0; i < Elog_tbl->count; ++i)
        if (const Elog_msg *msg = message(i))
            lay_out(*msg, "\t", std::ref(words));
}

}  // namespace stock::logging
