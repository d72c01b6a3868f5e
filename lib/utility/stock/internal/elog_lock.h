// The log's lock, which a thread that holds it never waits for.

#pragma once

#include <algorithm>
#include <mutex>

#include "internal/ordered_lock.h"

namespace stock::logging {

// What the log remembers of each thread. The model keeps the access from
// allocating: the log also speaks when there is no memory left.
struct Thread {
    int held = 0;                         // how often it has taken the lock
    int reports = 0;                      // how many reports it is in the middle of
    int last_words = 0;                   // how often it has begun to say its last words
    bool in_callback = false;             // it is inside the program's callback
    bool expanding = false;               // it is inside a tag code that calls other families
    bool ending = false;                  // it is the one that ends the process
    bool prepared = false;                // it has, or cannot have, a stack for handlers
    bool crashing = false;                // it reports a fault of its own
    const char *out_of_memory = nullptr;  // the report that it is making of that
};
extern constinit thread_local Thread This_thread __attribute__((tls_model("initial-exec")));

class HolderLock {
public:
    void lock()
    {
        if (This_thread.held == 0)
            mutex_.lock();
        ++This_thread.held;
    }
    bool try_lock()
    {
        if (This_thread.held == 0 && !mutex_.try_lock())
            return false;
        ++This_thread.held;
        return true;
    }
    void unlock()
    {
        if (--This_thread.held == 0)
            mutex_.unlock();
    }

    // Lets this thread go on as if it held the lock, for good.
    void assume() { This_thread.held = std::max(This_thread.held, 1); }

    // Gives the lock up, however often this thread has taken it. Returns how often.
    int release()
    {
        const int held = This_thread.held;
        This_thread.held = 0;
        if (held > 0)
            mutex_.unlock();
        return held;
    }
    void retake(int held)
    {
        if (held > 0)
            mutex_.lock();
        This_thread.held = held;
    }

private:
    OrderedLock mutex_{Place::log};
};

extern constinit HolderLock Lock;

using Holding = std::lock_guard<HolderLock>;

// Gives the lock up for a scope.
class Released {
public:
    Released() : held_(Lock.release()) {}
    ~Released() { Lock.retake(held_); }
    Released(const Released &) = delete;
    Released &operator=(const Released &) = delete;

private:
    int held_;
};

}  // namespace stock::logging
