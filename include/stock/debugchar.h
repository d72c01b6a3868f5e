/*
 * debugchar.h - print lists, arrays and text for debugging.
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
    DEBUGCHAR_DEFAULT = 50, /* characters shown if n is not positive */
    DEBUGCHARSTR_SIZE = 100 /* bytes of debugcharstr's buffer, terminator included */
};

/*
 * Print a list of strings, or an array of strings in the order of its keys, one entry on each
 * line, below a title, which may be null. A null entry is printed as "<null>".
 *
 *     debugtbl    "\t%3ld %s\n"      index, entry
 *     debugarr    "\t%-15s %s\n"     key, value
 */
STOCK_API void debugtbl(FILE *stream, const char *title, const Tbl *list);
STOCK_API void debugarr(FILE *stream, const char *title, const Arr *arr);

/*
 * Prints a title, which may be null, and the beginning of a buffer. If n is not positive, it is
 * DEBUGCHAR_DEFAULT. The codes 32 to 126 are printable.
 *
 *     the first n bytes, or those before a zero byte     printed
 *     all printable                                      the bytes
 *     none, or a null buffer                             ''
 *     some not printable                                 the hexdump of 16 bytes
 *
 * So a buffer that may contain bytes that are not printable must have 16 bytes.
 */
STOCK_API void debugchar(FILE *stream, const char *title, const char *buffer, int n);

/*
 * Returns a text that shows the beginning of a string. If n is not positive, it is
 * DEBUGCHAR_DEFAULT. The codes 32 to 126 are printable.
 *
 *     string                                          text
 *     null                                            <null>
 *     its first n characters (or all) printable       these, at most 99
 *     one of its first n characters not printable     the whole string
 *
 * In the last case, a string of DEBUGCHARSTR_SIZE bytes or more ends the process with a
 * message. The caller frees the text with free.
 */
STOCK_API char *debugcharstr(const char *string, int n);

STOCK_END_DECLS

#endif
