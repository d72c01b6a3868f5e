/*
 * asciidump.h - print bytes as escaped text, and read that text back.
 *
 * The codes 32 to 126 are printable and are printed unchanged, except that the backslash is
 * doubled. Other bytes are escaped as a backslash, "0x" and two digits: the byte 1 is \0x01.
 * Each function says which other bytes it does not escape.
 *
 * Every dump first calls nomem (deviants.h) to find out whether the memory can be read. A null
 * address with n above 0 can never be read. Nothing here locks.
 */

#ifndef STOCK_ASCIIDUMP_H
#define STOCK_ASCIIDUMP_H

#include <stdio.h>

#include "export.h"

STOCK_BEGIN_DECLS

enum {
    ASCIIDUMP_WIDTH = 80,   /* columns after which asciidump breaks a line */
    PRINTABLE_CHAR_SIZE = 6 /* bytes of the buffer of printable_char */
};

/*
 * Prints n bytes as escaped text; tabs and newlines are not escaped. Inserts a newline after
 * ASCIIDUMP_WIDTH or more columns; a tab counts as one column. If n is below 1, prints only a
 * newline. For memory that cannot be read, prints "no memory at %lx\n".
 *
 * Returns the number of characters printed, at most INT_MAX.
 */
STOCK_API int asciidump(FILE *stream, const char *p, int n);

/*
 * The same for text that is printed in pieces. *column is 0 at first, and keeps the column in
 * which the last piece ended. If n is below 1, prints nothing.
 */
STOCK_API int asciidump_piece(FILE *stream, const char *p, int n, int *column);

/*
 * Reads up to n bytes of the output of asciidump.
 *
 *     input                                  byte
 *     two backslashes                        a backslash
 *     a backslash and four more characters   the byte whose digits are the last two
 *     after ASCIIDUMP_WIDTH or more columns  none: the next character is skipped
 *     anything else                          itself
 *
 * Reading ends when n bytes have been read, at the end of input, even inside an escape, and
 * after an escape with invalid digits. Returns the number of bytes read.
 */
STOCK_API int read_asciidump(FILE *stream, unsigned char *buf, int n);

/* The same for text that is read in pieces: *column is 0 at first, as for asciidump_piece. */
STOCK_API int read_asciidump_piece(FILE *stream, unsigned char *buf, int n, int *column);

/*
 * Writes n bytes as escaped text to a buffer of size bytes; newlines become a backslash and
 * "n". After size - 5 characters the rest is omitted. If n is below 1, the text is "\n". For
 * memory that cannot be read it is "no memory at %lx\n", cut to the buffer, if size is at
 * least 26, "?" if it is at least 3, and otherwise nothing.
 *
 * Returns buf. It is terminated if size is above 0, or above 2 if the memory cannot be read.
 */
STOCK_API char *printable_string(char *buf, int size, const char *p, int n);

/*
 * Returns 2 if all n bytes are printable, 1 if the first one that is not is a zero byte (the
 * bytes are then a printable, terminated string), and otherwise 0. Returns 0 for a null
 * address with n above 0.
 */
STOCK_API int printable(const char *s, int n);

/*
 * Writes a character as a string to buf, which must have PRINTABLE_CHAR_SIZE bytes: the
 * character itself if it is printable, a newline, a tab or a carriage return, and otherwise
 * the escape of its low byte. Returns buf.
 */
STOCK_API char *printable_char(int ch, char *buf);

/*
 * Prints a value with its name. A null name or comment counts as an empty one.
 *
 *     value          printed
 *     printable      name = 'text' comment
 *     otherwise      name (n bytes) # comment, and the hexdump of the n bytes
 */
STOCK_API void Xchardump(FILE *stream, const char *name, const char *comment, const char *p, int n);

STOCK_END_DECLS

#endif
