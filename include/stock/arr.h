/*
 * arr.h - the associative array from strings to pointers, in key order.
 *
 * An Arr is a red-black tree (redblack.h) that owns copies of its keys; all
 * functions of the tree may be used on it. Each copy is a string of its own from
 * malloc. What the tree's functions take out is the caller's, to be freed with free:
 * the key in removed behind rbdelete or rbinsert, and all keys when rbdestroy is to
 * free the array, be it before or after. A key that rbinsert puts in is the array's.
 *
 * Values belong to the caller, and a stored null value looks like an absent key.
 * A null array reads as an empty one, and a null key is in no array of strings.
 * Nothing here locks: threads that share an array lock it.
 */

#ifndef STOCK_ARR_H
#define STOCK_ARR_H

#include "export.h"
#include "redblack.h"
#include "tbl.h"

STOCK_BEGIN_DECLS

typedef Rbtree Arr;

/*
 * A new, empty array. compare orders the keys; null: as strcmp does. Without
 * memory the process ends with the out-of-memory message.
 *
 * Returns an array that the caller frees with freearr.
 */
STOCK_API Arr *newarr(int (*compare)(const void *a, const void *b));

/*
 * Stores a value under a copy of the key. When an equal key is there, its value is
 * replaced. Its copy stays when it is the same text; in another spelling, which the
 * comparison takes for equal, it is freed and the new one kept. removed then holds
 * the old value, and null as the key.
 *
 * Returns the value that the key had before, the caller's again; null when the key
 * is new. Without memory nothing is stored, and null returned.
 */
STOCK_API void *setarr(Arr *arr, const char *key, void *value);

/* The value stored under the key, or null. The array keeps it. */
STOCK_API void *getarr(const Arr *arr, const char *key);

/*
 * Removes a key and frees the array's copy of it. removed then holds the value, and
 * null as the key.
 *
 * Returns its value, the caller's again; null when the key is absent.
 */
STOCK_API void *delarr(Arr *arr, const char *key);

/*
 * Frees the array and its keys. free_value, when not null, is called with each
 * value, null ones included, in no particular order. Returns 0.
 */
STOCK_API int freearr(Arr *arr, void (*free_value)(void *value));

/* The number of entries, counted one by one. */
STOCK_API int64_t cntarr(const Arr *arr);

/*
 * The keys in ascending order. They are the array's own copies, each valid until
 * its entry is removed, or replaced by rbinsert or in another spelling.
 *
 * Returns an indirect list that the caller frees with freetbl(keys, null).
 */
STOCK_API Tbl *keysarr(const Arr *arr);

/* The values in ascending order of their keys, as an indirect list like that of keysarr. */
STOCK_API Tbl *valsarr(const Arr *arr);

/*
 * Calls function(key, value, argument) with every entry in ascending key order.
 * The function may set values of keys that are there, in any spelling that is equal,
 * but must not add or delete keys. Returns 0.
 */
STOCK_API int applyarr(const Arr *arr, int (*function)(void *key, void *value, void *argument),
                       void *argument);

/* The same over one node's subtree. Returns what the last call returned, 0 when there was none. */
STOCK_API int arr_walk(Rbnode *node, int (*function)(void *key, void *value, void *argument),
                       void *argument);

/*
 * A copy with the same comparison, copies of the keys, and copy(value) for each
 * value. With copy null the values themselves are shared.
 *
 * Returns an array that the caller frees with freearr.
 */
STOCK_API Arr *duparr(const Arr *arr, void *(*copy)(void *value));

/*
 * The keys that the POSIX extended regular expression matches whole, in order;
 * none when it does not compile.
 *
 * Returns an indirect list, like that of keysarr.
 */
STOCK_API Tbl *greparr(const char *pattern, const Arr *arr);

/*
 * The other way round: the keys that, read as expressions, match the whole text.
 * Keys that do not compile are skipped.
 *
 * Returns an indirect list, like that of keysarr.
 */
STOCK_API Tbl *arrgrep(const Arr *arr, const char *text);

STOCK_END_DECLS

#endif
