// Shared: how the process ends, and the limit on how long that may take.
//
// One thread ends the process. Another thread that comes here meanwhile waits for that end.
// An end that a stop signal or a timer begins may have interrupted its own thread inside
// malloc, or wait for a disk that does not answer. So it sets a limit before anything else:
// when a step takes longer than kStepSeconds, the process ends without the heap and locks.

#pragma once

namespace stock::logging {

// Saves the program's state, flushes all streams and ends the process with status 1.
[[noreturn]] void end_with_state();

// The same without saving the state.
[[noreturn]] void end_process();

// The functions below may be called in a signal handler and leave errno alone.

// Each step of an end - reporting, saving the state, exit - may take so long.
inline constexpr int kStepSeconds = 10;

// What is printed when a step takes longer.
inline constexpr char kGraceOver[] = "quitting from resurrection alarm\n";
inline constexpr char kNotSaved[] = "the state could not be saved in time\n";
inline constexpr char kNotExited[] = "could not exit in time\n";

// Begins an end with a limit. When its first step takes too long, the process prints the text
// and the messages on the stack and ends with status 1. False when a limit is set already:
// that one stays.
bool limit_end(const char *text);

// Begins the next step of such an end. Does nothing when the end has no limit.
void limit_step(const char *text);

// Whether an end with a limit has begun.
bool end_is_limited();

// Removes the limit: the process is not to end after all.
void lift_limit();

}  // namespace stock::logging
