/*
 * usermethod.h - functions that the user supplies in a shared library.
 *
 * The library is the one that the environment variable USER_LIBRARY names, or
 * "user"; std_dlopen (deviants.h) says where it is. It is loaded when a function
 * is first asked for and watched from then on: a user may replace the file while
 * the program runs, and the program has the new one some ten seconds later. One
 * mutex guards all of this: every function may be called from any thread.
 */

#ifndef STOCK_USERMETHOD_H
#define STOCK_USERMETHOD_H

#include "export.h"

STOCK_BEGIN_DECLS

/* The library's file is looked at again when more than so many seconds have passed. */
enum { USERMETHOD_INTERVAL = 10 };

/*
 * Finds a function of the user library. A library that is not loaded is looked
 * for at every call; a function that a library lacks is looked up in it once.
 *
 * Returns the function's address, or null: for a null or empty name, without a
 * library, or when the library has no such function. The address is good until a
 * later call finds the library replaced, so ask again rather than keep it. When
 * the old library cannot be closed, that is complained about, and it is not used.
 *
 * Some libraries stay in memory when they are closed, such as those of C++ with unique
 * symbols. The new one is then loaded from a copy, made for that moment in its own
 * directory or that of temporary files. When that fails, that is complained about once,
 * and the earlier library is used until the file is replaced again.
 */
STOCK_API void *usermethod(const char *name);

/*
 * Takes the user library's name from the environment. usermethod does so itself
 * the first time; a later call is for a program that changed USER_LIBRARY. When a
 * library is loaded already, it stays in use until its file is due to be looked at;
 * then the file of the new name is looked at instead, and loaded if it is another.
 */
STOCK_API void usermethod_init(void);

STOCK_END_DECLS

#endif
