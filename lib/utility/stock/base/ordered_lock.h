// Mutexes with a place in the order in which locks are taken.
//
// A thread that holds a lock takes only locks of later places, so that no two threads ever wait
// for each other. Builds for debugging and for the sanitizers check this: a lock taken against
// the order ends the process at once with a message that names both locks. In other builds an
// OrderedLock is no more than a std::mutex.
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
    tokens,      // the scanner of times
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

class OrderedLock {
public:
#ifdef STOCK_CHECK_LOCKS
    explicit constexpr OrderedLock(Place place) : place_(place) {}
#else
    explicit constexpr OrderedLock(Place) {}
#endif

    void lock()
    {
        lock_order::check(place());
        mutex_.lock();
        lock_order::note_taken(place());
    }
    // Needs no order, because it never waits.
    bool try_lock()
    {
        const bool taken = mutex_.try_lock();
        if (taken)
            lock_order::note_taken(place());
        return taken;
    }
    void unlock()
    {
        lock_order::note_given_up(place());
        mutex_.unlock();
    }

private:
#ifdef STOCK_CHECK_LOCKS
    Place place() const
    {
        return place_;
    }
    Place place_;
#else
    static constexpr Place place()
    {
        return Place{};
    }
#endif
    std::mutex mutex_;
};

// A lock that the thread which holds it may take again.
class RecursiveLock {
public:
    explicit constexpr RecursiveLock(Place place) : lock_(place) {}

    void lock()
    {
        const std::uint64_t self = thread_number();
        if (holder_.load(std::memory_order_relaxed) != self) {
            lock_.lock();
            holder_.store(self, std::memory_order_relaxed);
        }
        ++times_;
    }
    void unlock()
    {
        if (--times_ > 0)
            return;
        holder_.store(0, std::memory_order_relaxed);
        lock_.unlock();
    }

    // Releases the lock however often this thread has taken it. For a thread that is about to
    // end the process: reporting that may need earlier locks.
    void give_up()
    {
        if (holder_.load(std::memory_order_relaxed) != thread_number())
            return;
        times_ = 1;
        unlock();
    }

private:
    OrderedLock lock_;
    std::atomic<std::uint64_t> holder_{0};  // the thread that holds the lock; 0: none
    int times_ = 0;                         // that it took the lock
};

}  // namespace stock
