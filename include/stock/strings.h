/*
 * strings.h - text: splitting, copying, trimming, reading lines.
 *
 * Letters, digits and blanks are those of ASCII whatever the locale; other
 * bytes pass unchanged. A null string is taken as an empty one, unless a
 * function says otherwise. What a function makes is the caller's, who frees it
 * with free. Running out of memory ends the process. All functions work on
 * their arguments alone; spaces, which shares its buffers, locks.
 *
 * The growable text buffer is in pushstr.h, which this header includes.
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
    MAX_SPACES = 63,        /* what spaces gives at most */
    SPACES_RING = 10,       /* a string of spaces is reused by so many later calls */
    INTACTLINE_FIRST = 1024 /* bytes that intactline allocates first */
};

/*
 * Cuts the string in place at every occurrence of the character.
 *
 * Runs of the character count as one; at either end they yield nothing. The
 * character 0 leaves the string whole.
 *
 *     ::a::b:    split at ':'    a, b
 *     :::                        an empty list
 *
 * Returns a new list of pointers into the string, valid as long as the string.
 * The caller frees the list with freetbl(tbl, NULL).
 */
STOCK_API Tbl *split(char *string, int character);

/* The same with space, tab and newline all as separators. */
STOCK_API Tbl *splitws(char *string);

/*
 * Fills n bytes with the source, up to its end, and then with spaces. Writes no
 * terminator. Returns n, or 0 when n is not positive.
 */
STOCK_API int sncopy(char *destination, const char *source, int n);

/*
 * Copies exactly n bytes, zero bytes among them, and appends a terminator, for
 * which the destination has room. With n below 1 or a null source only the
 * terminator is written. Returns the address of the terminator.
 */
STOCK_API char *szcopy(char *destination, const char *source, int n);

/*
 * Copies the first n bytes of the source without the spaces at both ends
 * (spaces only) and appends a terminator. The two may overlap. With n below 1
 * or a null source only the terminator is written. Returns the address of the
 * terminator.
 */
STOCK_API char *copystrip(char *destination, const char *source, int n);

/* Returns a new block with a copy of n bytes, or null when the address is null. */
STOCK_API void *memdup(const void *address, size_t n);

/* Change case in place, a to z and A to Z. Return the length. */
STOCK_API int64_t str2upper(char *string);
STOCK_API int64_t str2lower(char *string);

/*
 * Removes spaces, tabs and newlines from both ends, in place. Carriage returns
 * stay.
 */
STOCK_API void strtrim(char *string);

/*
 * Writes the source to the destination with every occurrence of old_text, from
 * left to right and never overlapping, replaced by new_text.
 *
 *     source    old    new    destination
 *     aaa       aa     b      ba
 *     a.b       .             ab
 *     a.b              x      a.b            an empty old occurs nowhere
 *
 * The destination has room for the result and overlaps none of the others.
 * Returns the address of its terminator.
 */
STOCK_API char *strsub(const char *source, const char *old_text, const char *new_text,
                       char *destination);

/*
 * Replaces, in place, each character that occurs in from by the one at the
 * same position in to.
 *
 * Only the first min(length of from, length of to, 256) pairs count, and of
 * two pairs for one character the later.
 */
STOCK_API void strtr(char *string, const char *from, const char *to);

/* Removes one newline from the end, in place. */
STOCK_API void chomp(char *string);

/*
 * Compares as strcmp does when neither is null; 0 when both are null, 1 when
 * one is.
 */
STOCK_API int nstrcmp(const char *a, const char *b);

/* 1 when the string holds nothing, or nothing but spaces, else 0. */
STOCK_API int blank(const char *string);

/* 1 when the string holds nothing, or nothing but spaces, tabs and newlines, else 0. */
STOCK_API int whitespace(const char *string);

/* The string itself, or the constant "<null>" for null. */
STOCK_API const char *okstr(const char *string);

/*
 * A string of n spaces, from 0 to MAX_SPACES of them whatever n is.
 *
 * Returns one of SPACES_RING buffers that all threads share; it keeps its
 * content until SPACES_RING more calls were made. Not to be freed.
 */
STOCK_API char *spaces(int n);

/*
 * Reads one line of at most size - 2 characters and removes its newline. The
 * rest of a longer line is what the next call reads. The buffer's last byte is
 * zero afterwards.
 *
 * Returns the buffer; null at the end of input, on a read error, for a null
 * stream or buffer, and when size is below 3 and leaves room for nothing.
 */
STOCK_API char *getaline(FILE *stream, char *buffer, int size);

/*
 * Reads one line of any length and removes its newline.
 *
 * *buffer and *size belong together and carry over from call to call: start
 * with *size 0, whatever *buffer holds. INTACTLINE_FIRST bytes are allocated
 * then, and twice as many whenever a line does not fit. The caller frees
 * *buffer in the end. A zero byte ends the text of its line, not the line.
 *
 * Returns *buffer, valid until the next call; null when nothing was read and
 * for a null stream. A read error ends the line like the end of input; when
 * nothing was read before it, null comes back and errno tells the reason.
 * Otherwise errno is left alone.
 */
STOCK_API char *intactline(FILE *stream, char **buffer, int64_t *size);

STOCK_END_DECLS

#endif
