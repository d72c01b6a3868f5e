/*
 * pushstr.h - build text by appending strings (the string stack), and join strings.
 *
 * The caller has one pointer, which is null at first, and passes its address:
 *
 *     void *stack = NULL;
 *     pushstr(&stack, "one");
 *     pushstrc(&stack, ',');
 *     char *text = popstr(&stack, 1);    "one,"; free it with free
 *
 * A null string counts as an empty one. A string that is pushed must not be part of the stack's
 * own text. The address of the pointer must not be null, except for popstr. Running out of memory
 * ends the process. Nothing here locks: threads that share a stack must lock it.
 */

#ifndef STOCK_PUSHSTR_H
#define STOCK_PUSHSTR_H

#include <stdint.h>

#include "export.h"

STOCK_BEGIN_DECLS

/* The record that the caller's pointer points to if the stack is not empty. */
typedef struct Vstk {
    uint64_t size;   /* bytes for the text; the allocated block may be larger */
    uint64_t length; /* characters in it, the terminator not counted */
    char *s;         /* owned: the text, terminated */
} Vstk;

/*
 * Appends a string. The first push allocates 1024 bytes or five times the length of the string,
 * whichever is larger. If a text does not fit later, the size becomes what it needs. Returns the
 * new length.
 */
STOCK_API int64_t pushstr(void **stack, const char *string);

/* Appends one character. Returns the new length. */
STOCK_API int64_t pushstrc(void **stack, int character);

/*
 * Appends at most n characters; fewer if the string ends before. It always makes room for n
 * characters. Returns the new length.
 */
STOCK_API int64_t pushstrn(void **stack, const char *string, int64_t n);

/*
 * Returns the text that was pushed.
 *
 * If release is not 0, the stack becomes empty, and the caller frees the text with free. If
 * release is 0, the text is borrowed from the stack: it is valid until the next push or release.
 * For an empty stack it returns a new empty string, which the caller frees in either case.
 */
STOCK_API char *popstr(void **stack, int release);

/*
 * Joins its arguments in order, up to a null pointer. Returns a new string that the caller frees
 * with free.
 */
STOCK_API char *strconcat(const char *first, ...) STOCK_SENTINEL;

/*
 * Joins its arguments, up to a null pointer, with the character between them. Returns a new
 * string that the caller frees with free.
 */
STOCK_API char *strjoin(int character, const char *first, ...) STOCK_SENTINEL;

/*
 * Returns the first n lines of the text, each after the prefix and with its newline, and then the
 * prefix and "...\n", even if no more text follows. The caller frees the string with free.
 *
 * If the text has fewer than n newlines, only the lines that end in a newline are returned,
 * without "...". A null prefix is an empty one. If n is below 1, only the last line is returned.
 *
 *     text     n    prefix    result
 *     a\nb\n   2    P         Pa\nPb\nP...\n
 *     a\nb     2              a\n
 *     a        1              an empty string
 */
STOCK_API char *strhead(const char *text, int n, const char *prefix);

STOCK_END_DECLS

#endif
