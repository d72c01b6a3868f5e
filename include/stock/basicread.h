/*
 * basicread.h - reading a file without the message log.
 *
 * For what the log itself needs, and for programs that have not started it:
 * errors go straight to standard error.
 */

#ifndef STOCK_BASICREAD_H
#define STOCK_BASICREAD_H

#include <stdint.h>

#include "export.h"

STOCK_BEGIN_DECLS

/*
 * Reads a whole file.
 *
 * On success 0 comes back, *buffer is a new zero-terminated block that the
 * caller frees with free, and *size its size: the file's size + 1. On failure
 * -1 comes back, *buffer is null, *size is 0, and standard error says why, with
 * the system's words where "..." stands:
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
 * Copies one line out of a text of length bytes, from *position up to the next
 * newline or the end of the text, and terminates it.
 *
 * The line has size bytes: at most size - 1 characters are copied. *position
 * moves one past the place where the copy stopped, so of a line that is too
 * long one character is lost and the next call goes on behind it: meant.
 *
 * Returns 1 while the new position is inside the text, else 0. The last line
 * comes with 0. A position outside the text gives an empty line and 0; a line
 * of no bytes gives 0 and leaves everything alone.
 */
STOCK_API int basicgetline(const char *text, int64_t length, int64_t *position, char *line,
                           int size);

STOCK_END_DECLS

#endif
