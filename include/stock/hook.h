/*
 * hook.h - a handle that owns private state and the function that frees it.
 *
 * A function that wants to remember something between calls takes a Hook **:
 * the caller starts with null and in the end calls free_hook, without knowing
 * what was kept. Running out of memory ends the process. Nothing here locks
 * the mutex: it serves callers that share a hook between threads.
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
    void *pvt;                   /* the owner's private state; null until the owner sets it */
    pthread_mutex_t mutex;       /* for owners and callers that need it */
} Hook;

/*
 * Makes a hook whose private state the function will free; the function may be
 * null. Returns the hook, freed with free_hook.
 */
STOCK_API Hook *new_hook(void (*free_pvt)(void *pvt));

/*
 * Frees the private state with the hook's function when both are there, then
 * the hook, and sets *hook to null.
 *
 * A null pointer and a null hook are ignored. What is not a hook ends the
 * process with "free_hook called with bad pointer.\n".
 */
STOCK_API void free_hook(Hook **hook);

STOCK_END_DECLS

#endif
