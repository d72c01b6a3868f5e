// The state of the process that the parameter files have: all of it is defined in
// pf_state.cpp, and each object says here which lock guards it.

#pragma once

#include "base/ordered_lock.h"
#include "pf/parsing.h"  // Pf_busy
#include "pf/window.h"

namespace stock {

// Guards Kept_buffers. A parse takes it for two short moments, when it begins and when it
// ends, and holds no lock in between: it reports to the log, it may read from a pipe that
// is filled late, and a program's log function may parse in turn.
extern OrderedLock Pf_lock;

// The buffers of the largest parse so far, which the next parse takes and gives back.
// They are never freed: memory that every parse needs would only be asked for again.
struct KeptBuffers {
    Buffer window;  // of the text that is read
    Buffer value;   // of a value that differs from how it is written
};
extern KeptBuffers Kept_buffers;  // guarded by Pf_lock

}  // namespace stock
