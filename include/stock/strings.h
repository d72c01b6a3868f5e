/*
 * strings.h - split, copy, trim and compare strings, and read lines.
 *
 * Letters, digits and blanks are those of ASCII in every locale; other bytes are not changed.
 * Unless a function says otherwise, a null string counts as an empty one, and the caller frees a
 * new block with free. Running out of memory ends the process. The functions use only their
 * arguments, except spaces, which locks the buffers that it shares.
 *
 * pushstr.h, which this header includes, has functions that build text.
 */

#ifndef STOCK_STRINGS_H
#define STOCK_STRINGS_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "export.h"
#include "pushstr.h"
#include "tbl.h"

STOCK_BEGIN_DECLS

enum {
    MAX_SPACES = 63,        /* the largest number of spaces that spaces returns */
    SPACES_RING = 10,       /* the number of buffers that spaces uses in turn */
    INTACTLINE_FIRST = 1024 /* bytes that intactline allocates first */
};

/*
 * Splits the string in place at every occurrence of the character.
 *
 * Several in a row count as one, and those at the ends add no empty parts. The character 0 does not
 * split the string.
 *
 *     ::a::b:    split at ':'    a, b
 *     :::                        an empty list
 *
 * Returns a new list of pointers into the string, which are valid as long as the string. The caller
 * frees the list with freetbl(tbl, NULL).
 */
STOCK_API Tbl *split(char *string, int character);

/* The same with space, tab and newline as separators. */
STOCK_API Tbl *splitws(char *string);

/*
 * Copies the source, at most n bytes, and fills the rest of the n bytes with spaces. Writes no
 * terminator. Returns n, or 0 if n is not positive.
 */
STOCK_API int sncopy(char *destination, const char *source, int n);

/*
 * Copies exactly n bytes, including zero bytes, and appends a terminator. The destination must have
 * room for it. If n is below 1 or the source is null, writes only the terminator. Returns the
 * address of the terminator.
 */
STOCK_API char *szcopy(char *destination, const char *source, int n);

/*
 * Copies the first n bytes of the source without the spaces at both ends, and appends a terminator.
 * Removes no other white space. Source and destination may overlap. If n is below 1 or the source
 * is null, writes only the terminator. Returns the address of the terminator.
 */
STOCK_API char *copystrip(char *destination, const char *source, int n);

/* Returns a new block with a copy of n bytes, or null if the address is null. */
STOCK_API void *memdup(const void *address, size_t n);

/* Change the case of the letters a to z and A to Z, in place. Return the length of the string. */
STOCK_API int64_t str2upper(char *string);
STOCK_API int64_t str2lower(char *string);

/*
 * Removes spaces, tabs and newlines from both ends, in place. Carriage returns
 * stay.
 */
STOCK_API void strtrim(char *string);

/*
 * Copies the source to the destination and replaces every occurrence of old_text, from left to
 * right and without overlaps, by new_text.
 *
 *     source    old    new    destination
 *     aaa       aa     b      ba
 *     a.b       .             ab
 *     a.b              x      a.b            an empty old_text never occurs
 *
 * The destination must have room for the result and must not overlap the other strings. Returns the
 * address of its terminator.
 */
STOCK_API char *strsub(const char *source, const char *old_text, const char *new_text,
                       char *destination);

/*
 * Replaces, in place, each character that occurs in from by the character at the same position in
 * to.
 *
 * The shorter of the two determines how many pairs there are, 256 at most. If a character is in two
 * pairs, the later pair is used.
 */
STOCK_API void strtr(char *string, const char *from, const char *to);

/* Removes one newline from the end, in place. */
STOCK_API void chomp(char *string);

/*
 * Compares two strings as strcmp does; either may be null. Returns 0 if both are null, 1 if one is,
 * and otherwise the result of strcmp.
 */
STOCK_API int nstrcmp(const char *a, const char *b);

/* Returns 1 if the string is empty or contains only spaces, else 0. */
STOCK_API int blank(const char *string);

/* Returns 1 if the string is empty or contains only spaces, tabs and newlines, else 0. */
STOCK_API int whitespace(const char *string);

/* Returns the string itself, or the constant "<null>" for null. */
STOCK_API const char *okstr(const char *string);

/*
 * Returns a string of n spaces, at least 0 and at most MAX_SPACES.
 *
 * It is one of SPACES_RING buffers, which all threads share. It is valid until SPACES_RING more
 * calls were made, and must not be freed.
 */
STOCK_API char *spaces(int n);

/*
 * Reads one line of at most size - 2 characters and removes its newline. The next call reads the
 * rest of a longer line. The last byte of the buffer is set to zero.
 *
 * Returns the buffer, or null at the end of input, on a read error, for a null stream or buffer,
 * and if size is below 3.
 */
STOCK_API char *getaline(FILE *stream, char *buffer, int size);

/*
 * Reads one line of any length and removes its newline.
 *
 * *buffer and *size belong together and are passed from call to call: start with *size 0, whatever
 * *buffer is, and free *buffer at the end. First, INTACTLINE_FIRST bytes are allocated, and twice
 * as many whenever a line does not fit. A zero byte ends the text of its line, but the line is read
 * to its end.
 *
 * Returns *buffer, which is valid until the next call, or null if nothing was read or the stream is
 * null. A read error ends the line as the end of input does. If nothing was read before the error,
 * returns null and errno is the reason; otherwise errno is left unchanged.
 */
STOCK_API char *intactline(FILE *stream, char **buffer, int64_t *size);

STOCK_END_DECLS

#endif
