// The hook: a handle that holds the private data of a function between its calls, and the
// function that frees them.

#include "stock/hook.h"

#include <cstddef>
#include <cstdlib>

#include "base/alloc.h"
#include "stock/elog.h"

static_assert(offsetof(Hook, magic) == 0);
static_assert(offsetof(Hook, free_pvt) == sizeof(void *));
static_assert(offsetof(Hook, reserved) == 2 * sizeof(void *));
static_assert(offsetof(Hook, pvt) == 3 * sizeof(void *));
static_assert(offsetof(Hook, mutex) == 4 * sizeof(void *));

Hook *new_hook(void (*free_pvt)(void *pvt))
{
    auto *hook = static_cast<Hook *>(stock::allocate_zeroed(sizeof(Hook), "hook"));
    hook->magic = HOOK_MAGIC;
    hook->free_pvt = free_pvt;
    pthread_mutex_init(&hook->mutex, nullptr);
    return hook;
}

void free_hook(Hook **hook)
{
    if (!hook || !*hook)
        return;
    Hook *old = *hook;
    if (old->magic != HOOK_MAGIC)
        elog_die(0, "free_hook called with bad pointer.\n");
    if (old->free_pvt && old->pvt)
        old->free_pvt(old->pvt);
    old->magic = 0;  // the freed block no longer looks like a hook
    pthread_mutex_destroy(&old->mutex);
    std::free(old);
    *hook = nullptr;
}
