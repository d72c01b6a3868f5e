// Shared: the log's lock, and how an end of the process is put off while data changes.
//
// A signal handler that is to end the process may have interrupted a thread that is changing
// the log or the state file. The end would wait for that thread's locks for ever, or read
// half a change. So put_off() leaves the end in This_thread.owed, and the thread carries it
// out in end_change(), when its last change is complete.

#pragma once

#include <algorithm>
#include <mutex>

#include "base/ordered_lock.h"

namespace stock::logging {

// What the log remembers of a thread. Only the thread itself and its signal handlers use it.
struct ThreadState {
    int lock_count = 0;                   // how often the thread has taken Lock
    int reports = 0;                      // reports that it is making, one inside the other
    int last_words = 0;                   // how often it has begun say_last_words()
    bool in_callback = false;             // it runs the program's log function
    bool asking = false;                  // it expands a tag code that asks a higher room
    bool finding_reference_time = false;  // it is inside reference_time()
    bool loading_library = false;         // it loads the messaging library
    bool initialising = false;            // it is inside elog_init
    bool ending = false;                  // it is the thread that ends the process
    bool alt_stack_tried = false;         // it has a stack for signal handlers, or cannot get one
    bool crashing = false;                // it reports a fault of its own
    const char *out_of_memory = nullptr;  // the out-of-memory text that it is reporting

    volatile int changes = 0;           // changes that it is in the middle of
    void (*volatile owed)() = nullptr;  // the end to carry out when changes is 0 again
};
// In this TLS model an access never allocates: the log also reports that memory ran out.
extern constinit thread_local ThreadState This_thread __attribute__((tls_model("initial-exec")));

// Carries out This_thread.owed.
void end_as_owed();

// A change is counted before its lock is taken and until its lock is given up. A handler that
// interrupts the thread anywhere between finds it counted and never waits for that lock.
inline void begin_change()
{
    This_thread.changes = This_thread.changes + 1;
}
inline void end_change()
{
    This_thread.changes = This_thread.changes - 1;
    if (This_thread.changes == 0 && This_thread.owed) [[unlikely]]
        end_as_owed();
}

// Called by a handler that is to end the process with end(). True when the end must wait
// because the thread is busy or in the middle of a change; the thread carries it out then.
inline bool put_off(void (*end)(), bool busy = false)
{
    if (!busy && This_thread.changes == 0)
        return false;
    This_thread.owed = end;
    return true;
}

// Counts no change for a scope that runs code of the program's or of another library: the
// thread's data is consistent there, and an end may begin.
class ChangesPaused {
public:
    ChangesPaused() : changes_(This_thread.changes) { This_thread.changes = 0; }
    ~ChangesPaused() { This_thread.changes = changes_; }
    ChangesPaused(const ChangesPaused &) = delete;
    ChangesPaused &operator=(const ChangesPaused &) = delete;

private:
    int changes_;
};

// In the child of a fork: forgets what other threads of the parent were doing.
void forget_other_threads();

// The log's lock. A thread that holds it takes it again without waiting.
class LogLock {
public:
    void lock()
    {
        begin_change();
        if (This_thread.lock_count == 0)
            mutex_.lock();
        ++This_thread.lock_count;
    }
    bool try_lock()
    {
        begin_change();
        if (This_thread.lock_count == 0 && !mutex_.try_lock()) {
            end_change();
            return false;
        }
        ++This_thread.lock_count;
        return true;
    }
    void unlock()
    {
        if (--This_thread.lock_count == 0)
            mutex_.unlock();
        end_change();
    }

    // Lets this thread go on for good as if it held the lock, whoever has it.
    void assume()
    {
        begin_change();
        This_thread.lock_count = std::max(This_thread.lock_count, 1);
    }

    // Gives the lock up however often this thread has taken it. Returns how often, for retake().
    int release()
    {
        const int count = This_thread.lock_count;
        This_thread.lock_count = 0;
        if (count > 0)
            mutex_.unlock();
        return count;
    }
    void retake(int count)
    {
        if (count > 0)
            mutex_.lock();
        This_thread.lock_count = count;
    }

private:
    OrderedLock mutex_{Place::log, forget_other_threads};
};

extern constinit LogLock Lock;

using Holding = std::lock_guard<LogLock>;

// Gives the lock up for a scope. A thread that does not hold it loses nothing by this.
class LockReleased {
public:
    LockReleased() : count_(Lock.release()), changes_(This_thread.changes)
    {
        This_thread.changes = 0;
    }
    ~LockReleased()
    {
        This_thread.changes = changes_;
        Lock.retake(count_);
    }
    LockReleased(const LockReleased &) = delete;
    LockReleased &operator=(const LockReleased &) = delete;

private:
    int count_;
    int changes_;
};

}  // namespace stock::logging
