// The variables of this room, defined in state_state.cpp.

#pragma once

#include <atomic>

#include "base/ordered_lock.h"
#include "stock/bury.h"
#include "stock/tbl.h"

struct Pf;

namespace stock {

// Whether a bury() runs, and whether the alarm has limited it.
enum class Burial : int { none, running, limited };

// The state file.
struct StateFile {
    OrderedLock mutex{Place::grave};  // guards all of it but the atomics, and the file
    std::atomic<Grave *> grave;       // made by exhume, never freed; null before
    std::atomic<Burial> burial;
    const char *custom_name;  // given to custom_gravesite, the caller's
    Tbl *restored;            // the texts that resurrect has given out, never freed
};
extern StateFile The_state_file;

// How often this thread is inside a function that holds The_state_file.mutex. A signal handler
// looks at it. In this TLS model its first access does not allocate.
extern constinit thread_local volatile int Inside __attribute__((tls_model("initial-exec")));

// What setup_signals was given. Signal handlers read it, without a lock.
struct HaltRequest {
    volatile int *volatile flag;
    volatile int seconds;
    void (*volatile mortician)(Pf *pf);
};
extern HaltRequest The_halt_request;

}  // namespace stock
