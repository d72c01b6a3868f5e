// The locks of parameter trees: which calls wait for none, and how running parses are counted.

#include <string>
#include <thread>

#include <unistd.h>

#include <gtest/gtest.h>

#include "pf/known.h"
#include "pf/pf_state.h"
#include "stock.h"

TEST(PfLocks, ATreeThatNobodyKnowsIsMadeCopiedShownAndFreedWithoutALock)
{
    const std::scoped_lock trees(stock::Trees_mutex);
    const std::scoped_lock parse(stock::Pf_lock);
    alarm(20);
    std::thread([] {
        Pf *top = pfnew(PFFILE);
        pfput_string(top, "north", "12.5");
        Pf *copy = pfdup(top);
        Pf *text = nullptr;
        pfvalue(copy, "north", &text);
        showpf("north", text);
        pfput(top, "copy", copy, PFGRAFT);
        pffree(top);
    }).join();
    alarm(0);
}

TEST(PfLocks, ATreeIsFreedWithoutALockOnceNobodyKnowsItAnyMore)
{
    Pf *top = pfnew(PFFILE);
    putPf("rain", top);
    putPf_nofree("rain", nullptr);
    const std::scoped_lock trees(stock::Trees_mutex);
    alarm(20);
    std::thread([top] { pffree(top); }).join();
    alarm(0);
}

TEST(PfLocks, AParseIsCountedUntilItEnds)
{
    int (*look)(int, const char *, Tbl *) = [](int, const char *, Tbl *) {
        EXPECT_EQ(stock::Pf_busy, 1);
        Pf *inner = nullptr;
        EXPECT_EQ(pfcompile("south 3\n", &inner), 0);
        pffree(inner);
        EXPECT_EQ(stock::Pf_busy, 1);
        return 1;
    };
    elog_set(ELOG_CALLBACK_FN, 0, look);
    EXPECT_EQ(stock::Pf_busy, 0);
    Pf *pf = nullptr;
    EXPECT_EQ(pfcompile("north 1\n}\n", &pf), -2);
    EXPECT_EQ(stock::Pf_busy, 0);
    elog_set(ELOG_CALLBACK_FN, 0, nullptr);
    pffree(pf);
}

// A number that was given back is given to another tree. A record that still has the number
// is an unknown tree.
TEST(PfLocks, AStaleNumberForgetsNothing)
{
    Pf *first = pfnew(PFFILE);
    putPf("rain", first);
    const int32_t number = first->known;
    EXPECT_EQ(freePf("rain"), 0);
    Pf *second = pfnew(PFFILE);
    putPf("rain", second);
    EXPECT_EQ(second->known, number);
    for (const int32_t stale : {number, number + 1, 1'000'000, -1, -7}) {
        Pf *made = pfnew(PFFILE);
        made->known = stale;
        pffree(made);
        EXPECT_EQ(existsPf("rain"), second);
    }
    EXPECT_EQ(freePf("rain"), 0);
}
