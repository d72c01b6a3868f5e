/*
 * debugchar.h - lists, arrays and text as a person who looks for a fault wants to see them.
 *
 * Running out of memory ends the process. Nothing here locks.
 */

#ifndef STOCK_DEBUGCHAR_H
#define STOCK_DEBUGCHAR_H

#include <stdio.h>

#include "arr.h"
#include "export.h"
#include "tbl.h"

STOCK_BEGIN_DECLS

enum {
    DEBUGCHAR_DEFAULT = 50, /* characters shown when the caller does not say */
    DEBUGCHARSTR_SIZE = 100 /* bytes of debugcharstr's buffer, terminator included */
};

/*
 * Print a list of strings, and an array of strings in key order, one entry a
 * line, below a title that may be null. A null entry shows as "<null>".
 *
 *     debugtbl    "\t%3ld %s\n"      index, entry
 *     debugarr    "\t%-15s %s\n"     key, value
 */
STOCK_API void debugtbl(FILE *stream, const char *title, const Tbl *list);
STOCK_API void debugarr(FILE *stream, const char *title, const Arr *arr);

/*
 * Prints a title that may be null, and then what a buffer starts with. n not
 * positive means DEBUGCHAR_DEFAULT; printable are the codes 32 to 126.
 *
 *     the first n bytes, or those before a zero byte     shown as
 *     all printable                                      themselves
 *     none, or a null buffer                             ''
 *     some not printable                                 hexdump of 16 bytes
 *
 * A buffer that may hold what is not printable must be 16 bytes long.
 */
STOCK_API void debugchar(FILE *stream, const char *title, const char *buffer, int n);

/*
 * Text that shows what a string starts with. n not positive means
 * DEBUGCHAR_DEFAULT; printable are the codes 32 to 126.
 *
 *     string                                          text
 *     null                                            <null>
 *     its first n characters printable, or all        those, at most 99
 *     one of its first n characters not printable     the whole string
 *
 * In the last case a string of DEBUGCHARSTR_SIZE bytes or more ends the
 * process with a message. Returns a new string.
 */
STOCK_API char *debugcharstr(const char *string, int n);

STOCK_END_DECLS

#endif
