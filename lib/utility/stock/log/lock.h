// The log's lock, which a thread that holds it never waits for.
//
// A signal handler that is to end the process may have interrupted its own thread while
// that changes the log, or the state file. It puts the end off then: the thread carries it
// out as soon as it has left both.

#pragma once

#include <algorithm>
#include <mutex>

#include "base/ordered_lock.h"

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

    // What handlers of this thread look at.
    volatile int changing = 0;          // how many changes it is in the middle of
    void (*volatile owed)() = nullptr;  // the end that waits until they are done
};
extern constinit thread_local Thread This_thread __attribute__((tls_model("initial-exec")));

// Carries out the end that this thread owes.
void end_as_owed();

// Counts a change before the lock that it needs is taken and until that is given up: there
// is no moment at which a handler could wait for its own thread.
inline void begin_change()
{
    This_thread.changing = This_thread.changing + 1;
}
inline void end_change()
{
    This_thread.changing = This_thread.changing - 1;
    if (This_thread.changing == 0 && This_thread.owed) [[unlikely]]
        end_as_owed();
}

// Puts an end off when this thread is busy or in the middle of a change. True when it is
// owed from now on.
inline bool put_off(void (*end)(), bool busy = false)
{
    if (!busy && This_thread.changing == 0)
        return false;
    This_thread.owed = end;
    return true;
}

// Counts no change for a scope: nothing is half changed while the program's code, or
// another library's, runs in the middle of one.
class NothingChanges {
public:
    NothingChanges() : changing_(This_thread.changing) { This_thread.changing = 0; }
    ~NothingChanges() { This_thread.changing = changing_; }
    NothingChanges(const NothingChanges &) = delete;
    NothingChanges &operator=(const NothingChanges &) = delete;

private:
    int changing_;
};

class HolderLock {
public:
    void lock()
    {
        begin_change();
        if (This_thread.held == 0)
            mutex_.lock();
        ++This_thread.held;
    }
    bool try_lock()
    {
        begin_change();
        if (This_thread.held == 0 && !mutex_.try_lock()) {
            end_change();
            return false;
        }
        ++This_thread.held;
        return true;
    }
    void unlock()
    {
        if (--This_thread.held == 0)
            mutex_.unlock();
        end_change();
    }

    // Lets this thread go on as if it held the lock, for good.
    void assume()
    {
        begin_change();
        This_thread.held = std::max(This_thread.held, 1);
    }

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
    Released() : held_(Lock.release()), changing_(This_thread.changing)
    {
        This_thread.changing = 0;
    }
    ~Released()
    {
        This_thread.changing = changing_;
        Lock.retake(held_);
    }
    Released(const Released &) = delete;
    Released &operator=(const Released &) = delete;

private:
    int held_;
    int changing_;
};

}  // namespace stock::logging
