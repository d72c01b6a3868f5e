/*
 * deviants.h - the platform layer: what differs between operating systems.
 */

#ifndef DEVIANTS_H
#define DEVIANTS_H

#include "stock/export.h"

STOCK_BEGIN_DECLS

/*
 * The name of the running program as the C library's start-up code recorded it:
 * the base name, not a path. Borrowed, valid as long as the program runs.
 */
STOCK_API char *getexecname(void);

/*
 * Writes the name of this host up to its first "." into a buffer that holds a
 * host name of the system's longest (256 bytes are enough everywhere).
 * Returns 0, or uname's negative result, with the buffer empty.
 */
STOCK_API int my_hostname(char *buffer);

/*
 * Writes the login name of the real user into a buffer that holds a login name of
 * the system's longest (1024 bytes are enough everywhere). It is found once and
 * then kept. Returns 0, or 1, with the buffer empty, when the user has no name.
 * May be called from any thread.
 */
STOCK_API int my_username(char *buffer);

/*
 * Whether memory can be read. Null: the n bytes at the address can be, as far
 * as is known; anything else, such as the first bad address, keeps the dumps
 * from touching it. What stands here knows nothing and says null. It is a weak
 * symbol: a program that knows its memory defines its own.
 */
STOCK_API void *nomem(const void *address, int n);

/*
 * Loads a shared library of the suite, its symbols bound when they are first
 * used. A name that begins with "/" is a path; any other name is that of
 * ROOT/lib/libNAME with the system's ending, ROOT being the installation root.
 *
 * Returns the handle, or null: why is for dlerror to say, nothing is logged. A
 * null name, and one whose path exceeds 1023 bytes, is refused with null.
 */
STOCK_API void *std_dlopen(const char *name);

/* The current time: seconds since 1970-01-01 00:00:00 UTC, to the microsecond. */
STOCK_API double std_now(void);

/* The same for Fortran. */
STOCK_API double now_(void);

STOCK_END_DECLS

#endif
