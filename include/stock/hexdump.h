/*
 * hexdump.h - print bytes in hexadecimal and as text, and read such dumps back.
 *
 * A line shows 16 bytes. It has a tab, the address in eight digits (more from 2^32 on), two
 * blanks, the bytes in pairs of digits and groups of two bytes, a blank, and the bytes as text,
 * with "_" for every byte outside the codes 32 to 126:
 *
 *     "\t00000000  4865 6c6c 6f2c 2077 6f72 6c64 210a 0001 Hello, world!___\n"
 *
 * A last line with fewer bytes is padded so that its text is below the others.
 *
 * Every dump first calls nomem (deviants.h) to find out whether the memory can be read. If it
 * cannot, the dump says so. A null address with n above 0 can never be read. Running out of memory
 * ends the process. Nothing here locks.
 */

#ifndef STOCK_HEXDUMP_H
#define STOCK_HEXDUMP_H

#include <stdio.h>

#include "export.h"

STOCK_BEGIN_DECLS

enum { HEXDUMP_MAX_LINE = 1024 /* characters of a line that read_hexdump uses */ };

/*
 * Prints n bytes at p; the address column counts from base. If n is below 1, prints only a
 * newline.
 *
 * If the memory cannot be read, complains "nomem returns %p for %d bytes at %p" and prints
 * "no memory at %p\n".
 */
STOCK_API void Hexdump(FILE *stream, unsigned long base, const void *p, int n);

/* The same with base 0. */
STOCK_API void hexdump(FILE *stream, const void *p, int n);

/*
 * Returns the same dump as a new string that the caller frees with free. If n is below 1, the
 * string is empty. For memory that cannot be read it is "no memory at %lx\n".
 */
STOCK_API char *hexdump_string(unsigned long base, const void *p, int n);

/*
 * Reads up to n bytes from the lines of a dump.
 *
 * A line is split into words at blanks and tabs, any number of them. The first word, the address,
 * is ignored, and the next eight words are read:
 *
 *     4865     two bytes        48       one byte
 *     486      one byte: 48     48656    one byte: 48
 *
 * Reading ends when n bytes have been read, at the end of input, after a line with fewer than
 * eight such words, and at a word that is not hexadecimal. The text at the end of a short last
 * line is recognised by its column, and because it is the text of the bytes before it; it is not
 * read as a word. Only the first HEXDUMP_MAX_LINE characters of a line are used. Each call starts
 * with a new line.
 *
 * Returns the number of bytes read, at most n.
 */
STOCK_API int read_hexdump(FILE *stream, unsigned char *buf, int n);

/* Returns the value 0 to 15 of a hexadecimal digit in upper or lower case, or -1. */
STOCK_API int hex2int(int ch);

/*
 * Shows where two buffers of n bytes differ. For each block of 16 bytes that differs, prints
 * "a> " and the line of a, "b> " and the line of b, and a newline. The addresses are offsets in
 * the buffers. If title is not null, it is printed first, as "\n%s\n".
 *
 * Returns n rounded up to a multiple of 16; 0 when n is below 1.
 */
STOCK_API int prthexcmp(FILE *stream, const char *title, const unsigned char *a,
                        const unsigned char *b, int n);

STOCK_END_DECLS

#endif
