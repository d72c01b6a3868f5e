/*
 * strmatches.h - match strings with regular expressions, which are compiled only once.
 *
 * Patterns are POSIX extended regular expressions. Both functions take the address of a Hook
 * pointer, which keeps the compiled pattern between calls:
 *
 *     the address is null     the pattern is compiled for this call only
 *     the pointer is null     a new hook is created for the compiled pattern; the caller
 *                             frees it with free_hook
 *     the pointer is a hook   its compiled pattern is used, and the argument is ignored: use
 *                             a hook for one pattern only
 *
 * Both return 1 for a match and 0 for none, -2 if the pattern does not compile, and -1 if the
 * hook's pattern did not compile in an earlier call. With -2 the reason is logged as "'%s' did not
 * compile: %s". A null string does not match, and a null pattern does not compile. Running out of
 * memory ends the process.
 *
 * Nothing here locks a hook; threads that share one must lock its mutex.
 */

#ifndef STOCK_STRMATCHES_H
#define STOCK_STRMATCHES_H

#include "export.h"
#include "hook.h"

STOCK_BEGIN_DECLS

/*
 * Tells whether the string as a whole matches: whether the first match of the pattern is the whole
 * string. So "ab" matches "a|ab", because the longest match counts, and "abc" does not match "b".
 */
STOCK_API int strmatches(const char *string, const char *pattern, Hook **hook);

/*
 * Tells whether the pattern matches anywhere in the string. *start and *length receive the offset
 * and length of the first match in bytes, or 0 if there is none. Each of the two pointers may be
 * null.
 */
STOCK_API int strcontains(const char *string, const char *pattern, Hook **hook, int *start,
                          int *length);

STOCK_END_DECLS

#endif
