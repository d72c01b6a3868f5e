// Mutexes with a place in the order in which locks are taken.
//
// A thread that holds a lock takes only locks of later places, so that no two threads ever wait
// for each other. Builds for debugging and for the sanitizers check this: a lock taken against
// the order ends the process at once with a message that names both locks.
//
// A fork takes every lock in this order and gives them back in the parent and in the child, so
// that no child waits for a thread which it does not have. What the forking thread holds already
// it keeps.
//
// docs/architecture.md says which lock each place has and what it guards.

#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "base/thread.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define STOCK_CHECK_LOCKS 1
#endif
#endif
#if !defined(NDEBUG) || defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define STOCK_CHECK_LOCKS 1
#endif

namespace stock {

// From the first lock that a thread may take to the last. A thread that holds one of a place
// behind `log` reports no message and asks for no memory.
enum class Place : std::uint8_t {
    grave,       // the state file
    methods,     // the library of user methods
    log,         // the messages and the log's settings
    zone,        // the environment, TZ above all
    root,        // the installation root
    mappings,    // the mapped files
    view,        // the last view of a mapped file
    directory,   // the reading of a directory
    trees,       // the registered parameter trees
    references,  // parameter trees that other trees refer to
    parse,       // the buffers of parsing
    formats,     // the default formats of times
    username,    // the user's name
};

namespace lock_order {

#ifdef STOCK_CHECK_LOCKS
// Ends the process when this thread holds a lock of this place or a later one.
void check(Place place);
void note_taken(Place place);
void note_given_up(Place place);

// Empties this thread's set of held locks. For a signal handler that ends the process: it may
// have interrupted its thread while that held any locks, and a timer limits its waiting.
void forget();
#else
constexpr void check(Place) {}
constexpr void note_taken(Place) {}
constexpr void note_given_up(Place) {}
constexpr void forget() {}
#endif

}  // namespace lock_order

// It has static storage: a fork knows every lock that was ever taken.
class OrderedLock {
public:
    // in_child: called in the child of a fork, before it goes on, to mend what the lock's data
    // says of threads that the child does not have. It takes no lock and asks for no memory.
    explicit constexpr OrderedLock(Place place, void (*in_child)() = nullptr)
        : place_(place), in_child_(in_child)
    {
    }

    void lock()
    {
        make_known();
        lock_order::check(place_);
        mutex_.lock();
        note_taken();
    }
    // Needs no order, because it never waits.
    bool try_lock()
    {
        make_known();
        const bool taken = mutex_.try_lock();
        if (taken)
            note_taken();
        return taken;
    }
    void unlock()
    {
        lock_order::note_given_up(place_);
        holder_.store(0, std::memory_order_relaxed);
        mutex_.unlock();
    }

    bool is_held_by_this_thread() const
    {
        return holder_.load(std::memory_order_relaxed) == thread_number();
    }

private:
    friend class LocksForFork;

    void make_known()
    {
        if (!known_.load(std::memory_order_acquire)) [[unlikely]]
            add_to_known();
    }
    void add_to_known();
    void note_taken()
    {
        holder_.store(thread_number(), std::memory_order_relaxed);
        lock_order::note_taken(place_);
    }

    std::mutex mutex_;
    std::atomic<std::uint64_t> holder_{0};  // the thread that holds the lock; 0: none
    Place place_;
    std::atomic<bool> known_{false};  // it is in the list of the locks for a fork
    bool taken_for_fork_ = false;     // its holder took it to fork
    void (*in_child_)();
    OrderedLock *next_ = nullptr;  // in that list
};

// A lock that the thread which holds it may take again.
class RecursiveLock {
public:
    explicit constexpr RecursiveLock(Place place) : lock_(place) {}

    void lock()
    {
        if (!lock_.is_held_by_this_thread())
            lock_.lock();
        ++times_;
    }
    void unlock()
    {
        if (--times_ == 0)
            lock_.unlock();
    }

    // Releases the lock however often this thread has taken it. For a thread that is about to
    // end the process: reporting that may need earlier locks.
    void give_up()
    {
        if (!lock_.is_held_by_this_thread())
            return;
        times_ = 1;
        unlock();
    }

private:
    OrderedLock lock_;
    int times_ = 0;  // that its holder took the lock
};

}  // namespace stock
