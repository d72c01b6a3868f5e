/*
 * asciidump.h - bytes as text that can be read back.
 *
 * The codes 32 to 126 are printable and stand for themselves, but for the
 * backslash, which is doubled. Other bytes are escaped as a backslash, "0x" and
 * two digits: the byte 1 is \0x01. What a function leaves as it is besides is
 * said there.
 *
 * Every dump first asks nomem (deviants.h) whether the memory can be read; a
 * null address with bytes behind it never can. Nothing locks.
 */

#ifndef STOCK_ASCIIDUMP_H
#define STOCK_ASCIIDUMP_H

#include <stdio.h>

#include "export.h"

STOCK_BEGIN_DECLS

enum {
    ASCIIDUMP_WIDTH = 80,   /* columns after which asciidump breaks a line */
    PRINTABLE_CHAR_SIZE = 6 /* bytes that printable_char fills at most */
};

/*
 * Prints n bytes as escaped text, tabs and newlines as themselves. A newline is
 * inserted whenever a line has ASCIIDUMP_WIDTH columns or more; a tab counts as
 * one. n below 1 prints just a newline. Memory that cannot be read is shown as
 * "no memory at %lx\n".
 *
 * Returns the number of characters printed, at most INT_MAX.
 */
STOCK_API int asciidump(FILE *stream, const char *p, int n);

/*
 * The same for text that comes piece by piece: *column, 0 at first, is where
 * the last piece ended. n below 1 prints nothing.
 */
STOCK_API int asciidump_piece(FILE *stream, const char *p, int n, int *column);

/*
 * Reads back up to n bytes of what asciidump printed.
 *
 *     two backslashes                        one
 *     a backslash and four more characters   the byte with the last two as digits
 *     after ASCIIDUMP_WIDTH columns or more  the next character is dropped
 *     anything else                          itself
 *
 * Reading ends when n bytes are there, at the end of input, also inside an
 * escape, and behind an escape whose digits are none. Returns how many bytes
 * were read.
 */
STOCK_API int read_asciidump(FILE *stream, unsigned char *buf, int n);

/* The same piece by piece: *column, 0 at first, is where the last piece ended. */
STOCK_API int read_asciidump_piece(FILE *stream, unsigned char *buf, int n, int *column);

/*
 * Writes n bytes as escaped text into a buffer of size bytes, newlines as a
 * backslash and "n". Once size - 5 characters are written the rest is left
 * out. n below 1 gives "\n". Memory that cannot be read gives "no memory at %lx\n",
 * cut to the buffer, from a size of 26 on, "?" from 3 on, and else nothing.
 *
 * Returns buf, terminated when size is above 0 (above 2 without memory).
 */
STOCK_API char *printable_string(char *buf, int size, const char *p, int n);

/*
 * 2 when all n bytes are printable, 1 when the first that is not is a zero
 * byte: a printable, terminated string; else 0. A null address with bytes
 * behind it gives 0.
 */
STOCK_API int printable(const char *s, int n);

/*
 * A character as a string in buf, of PRINTABLE_CHAR_SIZE bytes: itself when it
 * is printable, a newline, a tab or a carriage return, else the escape of its
 * low byte. Returns buf.
 */
STOCK_API char *printable_char(int ch, char *buf);

/*
 * Shows a value by name. A null name or comment is taken as empty.
 *
 *     printable     name = 'text' comment
 *     else          name (n bytes) # comment, and hexdump of the n bytes
 */
STOCK_API void Xchardump(FILE *stream, const char *name, const char *comment, const char *p, int n);

STOCK_END_DECLS

#endif
