// How the process ends in order.
//
// One thread ends it. Another that gets here meanwhile waits for that end, and the
// ending thread itself, back from something that runs at exit, leaves at once.

#pragma once

namespace stock::logging {

// Saves the program's state, flushes all streams and ends the process with status 1.
[[noreturn]] void end_with_state();

// The same without saving anything.
[[noreturn]] void end_process();

}  // namespace stock::logging
