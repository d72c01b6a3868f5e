/*
 * usermethod.h - find functions that the user supplies in a shared library.
 *
 * The environment variable USER_LIBRARY names the library; the default is "user". std_dlopen
 * (deviants.h) says where it is searched for. It is loaded when the first function is asked for.
 * The user may replace the file while the program runs: the program checks the file when more than
 * USERMETHOD_INTERVAL seconds have passed since the last check, and loads the new library. A mutex
 * protects all of this, so every function may be called from any thread.
 */

#ifndef STOCK_USERMETHOD_H
#define STOCK_USERMETHOD_H

#include "export.h"

STOCK_BEGIN_DECLS

/* Seconds that must have passed before the library's file is checked again. */
enum { USERMETHOD_INTERVAL = 10 };

/*
 * Finds a function of the user library. If the library is not loaded, every call tries to load it.
 * If the library lacks a function, that is remembered, and the library is not searched again.
 *
 * Returns the function's address. Returns null if the name is null or empty, if there is no
 * library, or if the library has no such function. The address is valid until a later call finds
 * that the library was replaced, so call usermethod again instead of keeping it. If the old
 * library cannot be closed then, this is complained about, and the new one is used.
 *
 * Some libraries stay in memory when they are closed, for example C++ libraries with unique
 * symbols. In that case the new library is loaded from a temporary copy, in its own directory or
 * in the directory for temporary files. If that fails, this is reported once, and the earlier
 * library is used until the file is replaced again.
 */
STOCK_API void *usermethod(const char *name);

/*
 * Reads the user library's name from the environment. The first usermethod does this itself; call
 * it after the program has changed USER_LIBRARY. A library that is already loaded stays in use
 * until the next check of its file. That check then looks at the file of the new name, and loads
 * it if it is another file.
 */
STOCK_API void usermethod_init(void);

STOCK_END_DECLS

#endif
