/*
 * hexdump.h - memory as hexadecimal and text, and back.
 *
 * A line shows 16 bytes: a tab, the address in eight digits, two blanks, the
 * bytes as pairs of digits in groups of two, a blank, and the bytes as text,
 * where "_" stands for whatever is not in 32 to 126.
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

STOCK_END_DECLS

#endif
