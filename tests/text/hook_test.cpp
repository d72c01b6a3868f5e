// The hook: a handle that holds private data between calls.

#include "stock/hook.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/child.h"

namespace {

int freed = 0;
void count_free(void *pvt)
{
    freed += *static_cast<int *>(pvt);
}

}  // namespace

TEST(Hook, IsValidAndEmptyWhenNew)
{
    Hook *hook = new_hook(count_free);
    EXPECT_EQ(hook->magic, 0x308E0BC3U);
    EXPECT_EQ(hook->free_pvt, count_free);
    EXPECT_EQ(hook->reserved, 0U);
    EXPECT_EQ(hook->pvt, nullptr);
    free_hook(&hook);
}

TEST(Hook, HasAMutexThatLocks)
{
    Hook *hook = new_hook(nullptr);
    EXPECT_EQ(pthread_mutex_lock(&hook->mutex), 0);
    EXPECT_NE(pthread_mutex_trylock(&hook->mutex), 0);
    EXPECT_EQ(pthread_mutex_unlock(&hook->mutex), 0);
    free_hook(&hook);
}

TEST(Hook, FreesItsPrivateStateAndClearsThePointer)
{
    int state = 7;
    freed = 0;
    Hook *hook = new_hook(count_free);
    hook->pvt = &state;
    free_hook(&hook);
    EXPECT_EQ(hook, nullptr);
    EXPECT_EQ(freed, 7);
}

TEST(Hook, CallsNoFunctionWithoutPrivateState)
{
    freed = 0;
    Hook *hook = new_hook(count_free);
    free_hook(&hook);
    EXPECT_EQ(hook, nullptr);
    EXPECT_EQ(freed, 0);
}

TEST(Hook, LeavesPrivateStateAloneWithoutAFunction)
{
    int state = 7;
    Hook *hook = new_hook(nullptr);
    hook->pvt = &state;
    free_hook(&hook);
    EXPECT_EQ(hook, nullptr);
    EXPECT_EQ(state, 7);
}

TEST(Hook, IgnoresNull)
{
    Hook *hook = nullptr;
    free_hook(&hook);
    free_hook(nullptr);
    EXPECT_EQ(hook, nullptr);
}

TEST(Hook, EndsTheProcessOverABadPointer)
{
    const Ended ended = in_child([] {
        Hook bad{};
        bad.magic = 1;
        Hook *hook = &bad;
        errno = ENOENT;  // is not part of the message: no system call failed
        free_hook(&hook);
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.err, testing::EndsWith("free_hook called with bad pointer.\n"));
}
