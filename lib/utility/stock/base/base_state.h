// The variables of this room but environment_lock, which environment.h declares for all rooms.

#pragma once

#include <cstdint>
#include <mutex>

#include "base/ordered_lock.h"

namespace stock {

// The locks that were ever taken, in the order of their places. A fork takes them all.
struct KnownLocks {
    std::mutex mutex;  // guards the rest; taken behind all locks of the list
    OrderedLock *first = nullptr;
    int count = 0;
};
extern constinit KnownLocks Known_locks;

#ifdef STOCK_CHECK_LOCKS
// The places whose locks this thread holds, one bit each. With the initial-exec model its first
// use does not allocate.
extern constinit thread_local std::uint32_t Held_places __attribute__((tls_model("initial-exec")));
#endif

}  // namespace stock
