// What a fork does with all locks, and the check of the order in which locks are taken, in builds
// that have it.
//
// A lock enters the list for forks before it is taken for the first time. The list has a mutex
// of its own, which stands behind all places: a fork takes it last, and begins again when the
// list has grown meanwhile.
//
// For the check each thread has a set of the places whose locks it holds. Taking a lock is
// refused when the set has the same place or a later one.

#include "base/ordered_lock.h"

#include <csignal>
#include <mutex>

#include <pthread.h>

#ifdef STOCK_CHECK_LOCKS
#include <bit>
#include <cstdlib>
#include <iterator>
#include <string_view>

#include <unistd.h>
#endif

#include "base/base_state.h"

namespace stock {

// Its functions are what the system calls before and after a fork.
class LocksForFork {
public:
    static void add(OrderedLock &lock)
    {
        const std::lock_guard hold(Known_locks.mutex);
        if (lock.known_.load(std::memory_order_relaxed))
            return;
        OrderedLock **at = &Known_locks.first;
        while (*at && (*at)->place_ <= lock.place_)
            at = &(*at)->next_;
        lock.next_ = *at;
        *at = &lock;
        ++Known_locks.count;
        lock.known_.store(true, std::memory_order_release);
    }

    static void before_fork()
    {
        for (;;) {
            const int count = take_all();
            Known_locks.mutex.lock();
            if (Known_locks.count == count)
                return;
            Known_locks.mutex.unlock();
            give_back_all();
        }
    }

    static void in_parent()
    {
        Known_locks.mutex.unlock();
        give_back_all();
    }

    static void in_child()
    {
        for (const OrderedLock *lock = Known_locks.first; lock; lock = lock->next_)
            if (lock->in_child_)
                lock->in_child_();
        in_parent();
    }

private:
    // The log's lock when its holder gave it up to wait for an earlier one.
    struct GivenUp {
        OrderedLock *lock = nullptr;
        sigset_t signals = {};  // the thread's mask before
    };

    // The next lock of the list, or the first. The list may grow while it is walked.
    static OrderedLock *after(const OrderedLock *lock)
    {
        const std::lock_guard hold(Known_locks.mutex);
        return lock ? lock->next_ : Known_locks.first;
    }

    // Takes all locks of the list but those that this thread holds, and counts both.
    static int take_all()
    {
        int count = 0;
        GivenUp given_up;
        for (OrderedLock *lock = nullptr; (lock = after(lock)); ++count) {
            if (lock == given_up.lock)
                take_again(given_up);
            else if (!lock->is_held_by_this_thread())
                take(*lock, given_up);
        }
        return count;
    }

    static void take(OrderedLock &lock, GivenUp &given_up)
    {
        if (!lock.mutex_.try_lock()) {
            if (lock.place_ < Place::log && !given_up.lock)
                give_up_log(given_up);
            lock.mutex_.lock();
        }
        lock.holder_.store(thread_number(), std::memory_order_relaxed);
        lock.taken_for_fork_ = true;
    }

    // The program's log function may fork, and its thread holds the log's lock. It gives that up
    // while it waits for an earlier one, whose holder may have to report. A signal handler in
    // this thread would believe that the lock is held: signals wait until it is so again.
    static void give_up_log(GivenUp &given_up)
    {
        for (OrderedLock *lock = nullptr; (lock = after(lock));) {
            if (lock->place_ != Place::log || !lock->is_held_by_this_thread())
                continue;
            sigset_t all;
            sigfillset(&all);
            pthread_sigmask(SIG_SETMASK, &all, &given_up.signals);
            given_up.lock = lock;
            lock->holder_.store(0, std::memory_order_relaxed);
            lock->mutex_.unlock();
            return;
        }
    }

    static void take_again(GivenUp &given_up)
    {
        given_up.lock->mutex_.lock();
        given_up.lock->holder_.store(thread_number(), std::memory_order_relaxed);
        pthread_sigmask(SIG_SETMASK, &given_up.signals, nullptr);
    }

    static void give_back_all()
    {
        for (OrderedLock *lock = nullptr; (lock = after(lock));) {
            if (!lock->is_held_by_this_thread() || !lock->taken_for_fork_)
                continue;
            lock->taken_for_fork_ = false;
            lock->holder_.store(0, std::memory_order_relaxed);
            lock->mutex_.unlock();
        }
    }
};

namespace {

// When the library is loaded, and not with the first lock: a fork that had begun before would
// copy the locks that another thread takes meanwhile.
__attribute__((constructor)) void follow_forks()
{
    pthread_atfork(LocksForFork::before_fork, LocksForFork::in_parent, LocksForFork::in_child);
}

}  // namespace

void OrderedLock::add_to_known()
{
    LocksForFork::add(*this);
}

}  // namespace stock

#ifdef STOCK_CHECK_LOCKS
namespace stock::lock_order {

namespace {

// In the order of Place.
constexpr std::string_view kNames[] = {
    "grave",     "methods", "log",        "zone",  "root",    "mappings", "view",
    "directory", "trees",   "references", "parse", "formats", "username",
};
static_assert(std::size(kNames) == static_cast<std::size_t>(Place::username) + 1);

constexpr std::uint32_t bit_of(Place place)
{
    return std::uint32_t{1} << static_cast<unsigned>(place);
}

// Prints with write alone, because the log would take locks itself, and ends the process.
[[noreturn]] void refuse(std::string_view taken, std::string_view held)
{
    for (const std::string_view piece :
         {std::string_view("stock: the lock '"), taken, std::string_view("' is taken while '"),
          held, std::string_view("' is held\n")})
        (void)!::write(STDERR_FILENO, piece.data(), piece.size());
    std::abort();
}

}  // namespace

void check(Place place)
{
    const std::uint32_t later = Held_places & ~(bit_of(place) - 1);
    if (later)
        refuse(kNames[static_cast<unsigned>(place)],
               kNames[static_cast<unsigned>(std::countr_zero(later))]);
}

void note_taken(Place place)
{
    Held_places |= bit_of(place);
}

void note_given_up(Place place)
{
    Held_places &= ~bit_of(place);
}

void forget()
{
    Held_places = 0;
}

}  // namespace stock::lock_order

#endif
