/*
 * ssearch.h - search a sorted array of elements of one size (binary search).
 */

#ifndef STOCK_SSEARCH_H
#define STOCK_SSEARCH_H

#include <stdint.h>

#include "export.h"

STOCK_BEGIN_DECLS

/*
 * Searches n elements of size bytes, sorted in the order of compare, for a key. compare is called
 * with the key, the address of an element and pvt, and returns less than, equal to or more than 0.
 *
 * Returns the number of elements that equal the key. *first and *last, which must not be null,
 * receive the indexes of the first and last of them. If unique is not 0, the search stops at any
 * equal element: both receive its index and the result is 1. If there is none, the result is 0,
 * *first is the index at which the key would be inserted, and *last one less.
 *
 *     elements       key    unique    result    first    last
 *     1 3 3 3 7      3      0         3         1        3
 *     1 3 3 3 7      3      1         1         2        2
 *     1 3 3 3 7      5      0         0         4        3
 *     none           5      0         0         0        -1
 */
STOCK_API int64_t ssearch(const void *key, int size, const void *base, int64_t n, int unique,
                          int (*compare)(const void *key, const void *element, void *pvt),
                          void *pvt, int64_t *first, int64_t *last);

STOCK_END_DECLS

#endif
