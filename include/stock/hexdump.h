/*
 * hexdump.h - memory as hexadecimal and text, and back.
 *
 * A line shows 16 bytes: a tab, the address in eight digits (more from 2^32 on), two
 * blanks, the bytes as pairs of digits in groups of two, a blank, and the bytes as
 * text, where "_" stands for whatever is not in 32 to 126.
 *
 *     "\t00000000  4865 6c6c 6f2c 2077 6f72 6c64 210a 0001 Hello, world!___\n"
 *
 * A last line of fewer bytes is padded so that its text stands below the others.
 *
 * Every dump first asks nomem (deviants.h) whether the memory can be read, and
 * says so when it can not; a null address with bytes behind it never can.
 * Running out of memory ends the process. Nothing locks.
 */

#ifndef STOCK_HEXDUMP_H
#define STOCK_HEXDUMP_H

#include <stdio.h>

#include "export.h"

STOCK_BEGIN_DECLS

enum { HEXDUMP_MAX_LINE = 1024 /* characters of a line that read_hexdump looks at */ };

/*
 * Prints n bytes at p; the address column counts from base. n below 1 prints
 * just a newline.
 *
 * Memory that cannot be read is complained of, "nomem returns %p for %d bytes
 * at %p", and shown as "no memory at %p\n".
 */
STOCK_API void Hexdump(FILE *stream, unsigned long base, const void *p, int n);

/* The same with base 0. */
STOCK_API void hexdump(FILE *stream, const void *p, int n);

/*
 * The same dump as a new string that the caller frees with free. n below 1 gives
 * an empty string, memory that cannot be read "no memory at %lx\n".
 */
STOCK_API char *hexdump_string(unsigned long base, const void *p, int n);

/*
 * Reads back up to n bytes from lines as the dump has them.
 *
 * A line is cut at blanks and tabs; its first word, the address, is dropped,
 * and the next eight are read:
 *
 *     4865     two bytes        48       one byte
 *     486      one byte: 48     48656    one byte: 48
 *
 * Reading ends when n bytes are there, at the end of input, behind a line of
 * fewer than eight such words, and at a word that is none. Words may stand any
 * number of blanks apart. The text of a short last line is no word: it stands in
 * its column and is just the text of the bytes before it. Of a line
 * HEXDUMP_MAX_LINE characters are looked at. Each call starts with a line of its own.
 *
 * Returns how many bytes were read.
 */
STOCK_API int read_hexdump(FILE *stream, unsigned char *buf, int n);

/* The value 0 to 15 of a hexadecimal digit in either case, else -1. */
STOCK_API int hex2int(int ch);

/*
 * Shows where two buffers of n bytes differ: of each 16 bytes that do, "a> "
 * and the line of a, "b> " and the line of b, and a newline. The address is the
 * offset. A title that is not null goes before as "\n%s\n".
 *
 * Returns n rounded up to a multiple of 16; 0 when n is below 1.
 */
STOCK_API int prthexcmp(FILE *stream, const char *title, const unsigned char *a,
                        const unsigned char *b, int n);

STOCK_END_DECLS

#endif
