/*
 * basicread.h - read a file without using the message log.
 *
 * The log itself uses these functions, and so can a program that has not called elog_init.
 * Errors are printed to standard error. Nothing here locks.
 */

#ifndef STOCK_BASICREAD_H
#define STOCK_BASICREAD_H

#include <stdint.h>

#include "export.h"

STOCK_BEGIN_DECLS

/*
 * Reads a whole file.
 *
 * On success returns 0: *buffer is a new block that ends in a zero byte and that the caller
 * frees with free, and *size is its size, the size of the file + 1. On failure returns -1:
 * *buffer is null, *size is 0, and one of these is printed to standard error, with the
 * system's reason for "...":
 *
 *     Can't open '%s' : ...\n
 *     fstat failed for '%s' : ...\n
 *     '%s' is empty!\n                                  an empty file is an error
 *     failed to allocate buffer to hold %s : ...        no newline: meant
 *     failed to read %s : ...                           no newline: meant
 *     failed to close '%s' : ...\n
 */
STOCK_API int basicreadfile(const char *path, char **buffer, int64_t *size);

/*
 * Copies one line of a text of length bytes, from *position to the next newline or the end of
 * the text, to line, and terminates it.
 *
 * line has size bytes, so at most size - 1 characters are copied. *position is then set to one
 * character after the place where the copy ended. So if a line is too long, one character is
 * lost and the next call continues after it: meant.
 *
 * Returns 1 if the new position is inside the text, and otherwise 0, also with the last line.
 * If *position is outside the text, line becomes empty and 0 is returned. If size is below 1,
 * nothing is changed and 0 is returned.
 */
STOCK_API int basicgetline(const char *text, int64_t length, int64_t *position, char *line,
                           int size);

STOCK_END_DECLS

#endif
