/*
 * arr.h - associative arrays: ordered maps from strings to pointers.
 *
 * An Arr keeps its entries in the order of the keys. It owns copies of the keys; the caller
 * owns the values. A stored null value looks like a missing key. A null array counts as an
 * empty one, and a null key is never found in an array of strings.
 *
 * An Arr is a red-black tree, and all functions of redblack.h may be used on it. Each copy of
 * a key is a string of its own from malloc. If those functions remove keys, the caller must
 * free them with free: the key in removed after rbdelete or rbinsert, and, before or after
 * rbdestroy, all keys of the array. A key that rbinsert stores belongs to the array.
 *
 * Nothing here locks: threads that share an array must lock it.
 */

#ifndef STOCK_ARR_H
#define STOCK_ARR_H

#include "export.h"
#include "redblack.h"
#include "tbl.h"

STOCK_BEGIN_DECLS

typedef Rbtree Arr;

/*
 * Creates an empty array. compare orders the keys; if it is null, the order is that of
 * strcmp. Running out of memory ends the process.
 *
 * Returns an array that the caller frees with freearr.
 */
STOCK_API Arr *newarr(int (*compare)(const void *a, const void *b));

/*
 * Stores a value under a copy of the key. If the array has an equal key, its value is
 * replaced. The array keeps its copy of the key if the text is the same; if the texts differ
 * but compare finds them equal, the new key replaces the old copy, which is freed. Afterwards
 * removed holds the old value, and null as the key.
 *
 * Returns the earlier value of the key, which the caller owns, or null if the key is new. If
 * there is no memory, stores nothing and returns null.
 */
STOCK_API void *setarr(Arr *arr, const char *key, void *value);

/* Returns the value stored under the key, or null. The value stays in the array. */
STOCK_API void *getarr(const Arr *arr, const char *key);

/*
 * Removes a key and frees the array's copy of it. Afterwards removed holds the value, and
 * null as the key.
 *
 * Returns the value, which the caller owns, or null if the key is missing.
 */
STOCK_API void *delarr(Arr *arr, const char *key);

/*
 * Frees the array and its keys. If free_value is not null, it is called with each value,
 * including null values, in no particular order. Returns 0.
 */
STOCK_API int freearr(Arr *arr, void (*free_value)(void *value));

/* Counts the entries, one by one, and returns their number. */
STOCK_API int64_t cntarr(const Arr *arr);

/*
 * Lists the keys in ascending order. The keys are borrowed from the array: each is valid
 * until its entry is removed, or its key is replaced by rbinsert or by a key with another
 * text.
 *
 * Returns an indirect list that the caller frees with freetbl(keys, NULL).
 */
STOCK_API Tbl *keysarr(const Arr *arr);

/*
 * Lists the values in ascending order of their keys.
 *
 * Returns an indirect list that the caller frees with freetbl(values, NULL).
 */
STOCK_API Tbl *valsarr(const Arr *arr);

/*
 * Calls function(key, value, argument) with each entry in ascending order of the keys. The
 * function may set the value of a key that the array has, but must not add or delete keys.
 * Returns 0.
 */
STOCK_API int applyarr(const Arr *arr, int (*function)(void *key, void *value, void *argument),
                       void *argument);

/*
 * The same for the subtree of one node. Returns the result of the last call, or 0 if there was
 * none.
 */
STOCK_API int arr_walk(Rbnode *node, int (*function)(void *key, void *value, void *argument),
                       void *argument);

/*
 * Copies an array with the same comparison, copies of the keys, and copy(value) for each
 * value. If copy is null, both arrays share the values.
 *
 * Returns an array that the caller frees with freearr.
 */
STOCK_API Arr *duparr(const Arr *arr, void *(*copy)(void *value));

/*
 * Lists, in order, the keys that match the POSIX extended regular expression as a whole; none
 * if it does not compile.
 *
 * Returns an indirect list that the caller frees with freetbl(keys, NULL). The keys are
 * borrowed as those of keysarr.
 */
STOCK_API Tbl *greparr(const char *pattern, const Arr *arr);

/*
 * The reverse: takes the keys as regular expressions, and lists those that the text matches
 * as a whole. Keys that do not compile are skipped.
 *
 * Returns a list like that of greparr.
 */
STOCK_API Tbl *arrgrep(const Arr *arr, const char *text);

STOCK_END_DECLS

#endif
