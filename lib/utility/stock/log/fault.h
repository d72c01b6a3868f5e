// What the rest of the log knows of faults.

#pragma once

#include <csignal>

#include "log/log.h"

namespace stock::logging {

inline constexpr int kOldHandlers = 50;

extern struct sigaction Old_handler[kOldHandlers];  // as found, by signal number
extern int Show_stack[kSeverities];

// Whether this thread reports a crash. Then the heap may be broken: what would be
// allocated is kept in static memory and nothing is freed.
inline bool crashing()
{
    return This_thread.crashing;
}

// Gives this thread a stack for the report of a fault, once handlers are installed.
void prepare_thread_slowly();
extern std::atomic<bool> Faults_caught;
inline void prepare_thread()
{
    if (!This_thread.prepared && Faults_caught.load(std::memory_order_acquire)) [[unlikely]]
        prepare_thread_slowly();
}

// Tells the crash path that its messages have been delivered.
void crash_was_told();

// Ends the process by abort, whatever was done to SIGABRT for the report's sake.
[[noreturn]] void abort_process();

}  // namespace stock::logging
