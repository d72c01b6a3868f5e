/*
 * ssearch.h - binary search of any sorted array of fixed-size elements.
 */

#ifndef STOCK_SSEARCH_H
#define STOCK_SSEARCH_H

#include <stdint.h>

#include "export.h"

STOCK_BEGIN_DECLS

/*
 * Looks for the key among n elements of size bytes that are sorted as compare
 * orders them. compare is called with the key as given, the address of an
 * element and pvt, and returns less than, equal to or more than 0.
 *
 * Returns the number of elements found. first and last, neither of them null,
 * receive the indexes of the first and last of the equal elements. With unique
 * not 0 any one of them is enough: both receive its index and the result is 1.
 * Without a match the result is 0, first is where the key would be inserted and
 * last is one less.
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
