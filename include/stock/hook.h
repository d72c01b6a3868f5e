/*
 * hook.h - let a function keep something between calls, for example a compiled pattern.
 *
 * A hook owns the private state of a function and knows how to free it. Such a function takes a
 * Hook **. The caller starts with a null pointer and finally calls free_hook. Running out of
 * memory ends the process. Nothing here locks the mutex; it is for callers that share a hook
 * between threads.
 */

#ifndef STOCK_HOOK_H
#define STOCK_HOOK_H

#include <pthread.h>
#include <stdint.h>

#include "export.h"

STOCK_BEGIN_DECLS

enum { HOOK_MAGIC = 0x308E0BC3 };

typedef struct Hook {
    uint32_t magic;              /* HOOK_MAGIC while the hook is valid */
    void (*free_pvt)(void *pvt); /* frees pvt; may be null */
    uintptr_t reserved;          /* zero */
    void *pvt;                   /* owned: the function's private state; null until it is set */
    pthread_mutex_t mutex;       /* for callers that share the hook between threads */
} Hook;

/*
 * Creates a hook. free_pvt, which may be null, will free its private state. Returns a hook that
 * the caller frees with free_hook.
 */
STOCK_API Hook *new_hook(void (*free_pvt)(void *pvt));

/*
 * Frees the private state with the hook's function, if there are both, and then the hook, and
 * sets *hook to null.
 *
 * A null pointer and a null hook are ignored. If *hook is not a hook, ends the process with
 * "free_hook called with bad pointer.\n".
 */
STOCK_API void free_hook(Hook **hook);

STOCK_END_DECLS

#endif
