// Stopping in order: stop signals that set a flag, and timers that end the process.
//
// A timer first sets the limit on the end that it begins. When it has interrupted a thread
// that is changing the log or the state file, the thread carries the end out itself.

#include "stock/halt.h"

#include <csignal>

#include "base/guards.h"
#include "deviants.h"
#include "log/end.h"
#include "log/lock.h"
#include "state/state_state.h"
#include "stock/elog.h"
#include "stock/wait_for_time.h"

using namespace stock::logging;
using stock::The_halt_request;

namespace {

constexpr char kTimeOver[] = "quitting from die_soon alarm\n";
constexpr double kShortestTimerSeconds = 2e-6;  // a shorter timer would never run out

// The timer of die_soon has run out.
void end_in_time()
{
    limit_end(kTimeOver);
    if (!put_off(end_in_time))
        die_now();
}

// The timer that a stop signal has set has run out.
void end_grace()
{
    limit_end(kGraceOver);
    if (!put_off(end_grace))
        halt_alarm_handler();
}

}  // namespace

int setup_signals(volatile int *flag, void (*mortician)(Pf *pf), int seconds)
{
    The_halt_request.flag = flag;
    The_halt_request.mortician = mortician;
    The_halt_request.seconds = seconds;
    return setup_signal_handlers(halt_signal_handler);
}

int setup_signal_handlers(void (*handler)(int sig))
{
    // The messages stand whole, so that a search for one finds it.
    static constexpr struct {
        int number;
        const char *refusal;
    } kSignals[] = {
        {SIGHUP, "Couldn't intercept signal SIGHUP\n"},
        {SIGINT, "Couldn't intercept signal SIGINT\n"},
        {SIGQUIT, "Couldn't intercept signal SIGQUIT\n"},
        {SIGTERM, "Couldn't intercept signal SIGTERM\n"},
    };

    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    for (const auto &signal : kSignals)
        if (sigaction(signal.number, &action, nullptr) < 0)
            elog_die(1, "%s", signal.refusal);
    return 0;
}

int die_soon(double seconds)
{
    const bool at_once = seconds >= 0 && seconds < kShortestTimerSeconds;
    if (std_set_timer([](int) { end_in_time(); }, at_once ? kShortestTimerSeconds : seconds) == 0)
        return 0;
    // Without a timer the calling thread waits and dies itself.
    snooze(seconds);
    elog_die(0, "failed to setup timer to die");
}

void halt_signal_handler(int sig)
{
    const stock::KeepErrno keep;
    if (volatile int *flag = The_halt_request.flag)  // several threads may be signalled at once
        __atomic_store_n(flag, 1, __ATOMIC_RELAXED);
    const int seconds = The_halt_request.seconds;
    if (seconds >= 1 && !end_is_limited() && std_set_timer([](int) { end_grace(); }, seconds) != 0)
        elog_die(0, "received signal #%d but failed to set alarm timer", sig);
}

void halt_alarm_handler()
{
    limit_end(kGraceOver);
    Pf *pf = pfnew(PFFILE);
    if (The_halt_request.mortician)
        The_halt_request.mortician(pf);
    {
        const stock::KeepErrno keep;  // the message below describes the mortician's errno
        pffree(pf);
    }
    limit_step(kGraceOver);
    elog_die(1, kGraceOver);
}

void die_now()
{
    limit_end(kTimeOver);
    elog_die(1, kTimeOver);
}
