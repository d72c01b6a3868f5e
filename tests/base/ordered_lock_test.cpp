// The order of the locks is checked, and a lock costs nothing more where it is not.

#include "base/ordered_lock.h"

#include <thread>

#include <gtest/gtest.h>

using stock::OrderedLock;
using stock::Place;
using stock::RecursiveLock;

TEST(OrderedLock, LocksAreTakenInTheirOrder)
{
    static OrderedLock log(Place::log), root(Place::root);
    for (int round = 0; round < 2; ++round) {
        const std::lock_guard first(log);
        const std::lock_guard second(root);
    }
}

TEST(OrderedLock, GivingUpAnEarlierLockFirstIsNoFault)
{
    static OrderedLock log(Place::log), root(Place::root), zone(Place::zone);
    log.lock();
    root.lock();
    log.unlock();
    root.unlock();
    zone.lock();
    zone.unlock();
}

TEST(OrderedLock, TheHolderMayTakeARecursiveOneAgainAlsoBehindALaterOne)
{
    static RecursiveLock zone(Place::zone);
    static OrderedLock root(Place::root);
    const std::lock_guard outer(zone);
    const std::lock_guard later(root);
    const std::lock_guard inner(zone);
}

TEST(OrderedLock, ARecursiveOneIsFreeWhenItsHolderGivesItUp)
{
    static RecursiveLock zone(Place::zone);
    zone.lock();
    zone.lock();
    zone.give_up();
    zone.give_up();
    std::thread([&] { const std::lock_guard other(zone); }).join();
}

#ifdef STOCK_CHECK_LOCKS

TEST(OrderedLockDeathTest, ALockAgainstTheOrderEndsTheProcessAndNamesBoth)
{
    static OrderedLock log(Place::log), root(Place::root), view(Place::view);
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
    static OrderedLock log(Place::log);
    EXPECT_DEATH(
        {
            log.lock();
            log.lock();
        },
        "stock: the lock 'log' is taken while 'log' is held\n");
}

TEST(OrderedLock, WhatAThreadHoldsDoesNotCountWhenItIsForgotten)
{
    static OrderedLock log(Place::log), root(Place::root);
    const std::lock_guard held(root);
    stock::lock_order::forget();
    const std::lock_guard earlier(log);
}

#endif
