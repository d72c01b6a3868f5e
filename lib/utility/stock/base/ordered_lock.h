// Mutexes that know their place in the order in which locks are taken.
//
// A thread that holds a lock takes only locks whose places come later, so that no two
// threads ever wait for each other. Builds for debugging and for the sanitizers check
// this: a lock that is taken against the order ends the process at once with a message
// that names both locks. In other builds an OrderedLock is a std::mutex and nothing more.
//
// docs/architecture.md says what each lock guards.

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

// From the first lock that a thread may take to the last. Messages are reported and memory
// is asked for with nothing held that stands behind log.
enum class Place : std::uint8_t {
    grave,       // bury.cpp
    methods,     // usermethod.cpp
    log,         // elog.cpp
    zone,        // str2epoch.cpp
    root,        // gettaluvine.cpp
    mappings,    // mapfile.cpp
    view,        // mapfile.cpp
    directory,   // is_file.cpp, one for each function
    trees,       // known.cpp
    references,  // pfinterpret.cpp
    parse,       // pfin.cpp
    tokens,      // str2epoch.cpp
    formats,     // time.cpp, time_formats.cpp
    username,    // my_username.cpp
};

namespace lock_order {

#ifdef STOCK_CHECK_LOCKS
// Ends the process when this thread holds a lock of this place or a later one.
void check(Place place);
void note_taken(Place place);
void note_given_up(Place place);

// Forgets what this thread holds. A signal handler that ends the process may have
// interrupted a thread that holds anything; its waiting is limited by a timer instead.
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
    // Never waits, so any order will do.
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

// One that its holder may take again.
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

    // Gives the lock up however often this thread has taken it: what comes next ends the
    // process, and reporting that may need other locks.
    void give_up()
    {
        if (holder_.load(std::memory_order_relaxed) != thread_number())
            return;
        times_ = 1;
        unlock();
    }

private:
    OrderedLock lock_;
    std::atomic<std::uint64_t> holder_{0};  // 0: nobody
    int times_ = 0;
};

}  // namespace stock
