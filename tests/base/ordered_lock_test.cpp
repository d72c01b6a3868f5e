// The order of the locks is checked, and a lock costs nothing more where it is not.

#include "base/ordered_lock.h"

#include <thread>

#include <gtest/gtest.h>

using stock::OrderedLock;
using stock::Place;
using stock::RecursiveLock;

TEST(OrderedLock, LocksAreTakenInTheirOrder)
{
    OrderedLock log(Place::log), root(Place::root);
    for (int round = 0; round < 2; ++round) {
        const std::lock_guard first(log);
        const std::lock_guard second(root);
    }
}

TEST(OrderedLock, GivingUpAnEarlierLockFirstIsNoFault)
{
    OrderedLock log(Place::log), root(Place::root), zone(Place::zone);
    log.lock();
    root.lock();
    log.unlock();
    root.unlock();
    zone.lock();
    zone.unlock();
}

TEST(OrderedLock, TheHolderMayTakeARecursiveOneAgainAlsoBehindALaterOne)
{
    RecursiveLock zone(Place::zone);
    OrderedLock root(Place::root);
    const std::lock_guard outer(zone);
    const std::lock_guard later(root);
    const std::lock_guard inner(zone);
}

TEST(OrderedLock, ARecursiveOneIsFreeWhenItsHolderGivesItUp)
{
    RecursiveLock zone(Place::zone);
    zone.lock();
    zone.lock();
    zone.give_up();
    zone.give_up();
    std::thread([&] { const std::lock_guard other(zone); }).join();
}

#ifdef STOCK_CHECK_LOCKS

TEST(OrderedLockDeathTest, ALockAgainstTheOrderEndsTheProcessAndNamesBoth)
{
    OrderedLock log(Place::log), root(Place::root), view(Place::view);
    EXPECT_DEATH(
        {
            root.lock();
            view.lock();
            log.lock();
        },
        "stock: the lock 'log' is taken while 'root' is held\n");
}

TEST(OrderedLockDeathTest, ALockThatIsTakenTwiceEndsTheProcess)
{
    OrderedLock log(Place::log);
    EXPECT_DEATH(
        {
            log.lock();
            log.lock();
        },
        "stock: the lock 'log' is taken while 'log' is held\n");
}

TEST(OrderedLock, WhatAThreadHoldsDoesNotCountWhenItIsForgotten)
{
    OrderedLock log(Place::log), root(Place::root);
    const std::lock_guard held(root);
    stock::lock_order::forget();
    const std::lock_guard earlier(log);
}

#else

TEST(OrderedLock, IsAMutexAndNothingMore)
{
    static_assert(sizeof(OrderedLock) == sizeof(std::mutex));
}

#endif
