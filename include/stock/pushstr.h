/*
 * pushstr.h - the string stack: text that grows at its end.
 *
 * The caller holds one pointer, null for "empty", and passes its address:
 *
 *     void *stack = NULL;
 *     pushstr(&stack, "one");
 *     pushstrc(&stack, ',');
 *     char *text = popstr(&stack, 1);    "one,"; free it with free
 *
 * A null string is taken as an empty one. What is pushed must not be the
 * stack's own text. Running out of memory ends the process. Nothing locks:
 * threads that share a stack lock it.
 */

#ifndef STOCK_PUSHSTR_H
#define STOCK_PUSHSTR_H

#include <stdint.h>

#include "export.h"

STOCK_BEGIN_DECLS

/* What a stack that is not empty points at. */
typedef struct Vstk {
    uint64_t size;   /* bytes for the text; what is allocated may be more */
    uint64_t length; /* characters in it, the terminator not counted */
    char *s;         /* owned: the text, terminated */
} Vstk;

/*
 * Appends a string. The first push allocates the larger of 1024 and five times
 * the string's length; of a text that does not fit the size becomes what it needs.
 * Returns the new length.
 */
STOCK_API int64_t pushstr(void **stack, const char *string);

/* Appends one character. Returns the new length. */
STOCK_API int64_t pushstrc(void **stack, int character);

/*
 * Appends at most n characters, fewer when the string ends before. Room is made
 * for n characters however short the string is. Returns the new length.
 */
STOCK_API int64_t pushstrn(void **stack, const char *string, int64_t n);

/*
 * The text that was pushed.
 *
 * With release not 0 the stack becomes empty and the text is the caller's, who
 * frees it with free. With release 0 it is borrowed from the stack, valid until
 * the next push or release. An empty stack gives a new empty string, the
 * caller's in either case.
 */
STOCK_API char *popstr(void **stack, int release);

/* A new string: all arguments in order, up to a null one. The caller frees it with free. */
STOCK_API char *strconcat(const char *first, ...) STOCK_SENTINEL;

/*
 * A new string: the arguments up to a null one with the character between
 * them. The caller frees it with free.
 */
STOCK_API char *strjoin(int character, const char *first, ...) STOCK_SENTINEL;

/*
 * A new string: the first n lines of the text, each behind the prefix and with
 * its newline, and then prefix and "...\n" even when no more text follows.
 *
 * When the text holds fewer than n newlines, the lines that have one are all
 * that comes back: no "...", and not what follows the last newline. A null
 * prefix is an empty one; n below 1 gives the closing line alone.
 *
 *     text     n    prefix    result
 *     a\nb\n   2    P         Pa\nPb\nP...\n
 *     a\nb     2              a\n
 *     a        1              an empty string
 */
STOCK_API char *strhead(const char *text, int n, const char *prefix);

STOCK_END_DECLS

#endif
