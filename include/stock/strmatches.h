/*
 * strmatches.h - regular expressions that are compiled once.
 *
 * Patterns are POSIX extended regular expressions. Both functions take the
 * address of a Hook pointer that keeps the compiled pattern:
 *
 *     hook        null address    compiled for this call only
 *                 holding null    a new hook is made and compiled into; the
 *                                 caller frees it with free_hook
 *                 holding a hook  used as it is; the pattern is not looked at,
 *                                 so a hook serves one pattern all its life
 *
 * Results: 1 a match, 0 none, -2 the pattern does not compile, -1 the hook's
 * pattern did not compile on an earlier call. With -2 the reason is logged as
 * "'%s' did not compile: %s". A null string matches nothing and a null pattern
 * does not compile. Running out of memory ends the process.
 *
 * A hook is not locked here; threads that share one lock its mutex.
 */

#ifndef STOCK_STRMATCHES_H
#define STOCK_STRMATCHES_H

#include "export.h"
#include "hook.h"

STOCK_BEGIN_DECLS

/*
 * Whether the first match of the pattern is the whole string. So "ab" matches
 * "a|ab", whose longest match counts, and "abc" does not match "b".
 */
STOCK_API int strmatches(const char *string, const char *pattern, Hook **hook);

/*
 * Whether the pattern matches anywhere. *start and *length receive the offset
 * and the length of the first match in bytes, 0 when there is none; each of the
 * two pointers may be null.
 */
STOCK_API int strcontains(const char *string, const char *pattern, Hook **hook, int *start,
                          int *length);

STOCK_END_DECLS

#endif
