/*
 * shellsort.h - sort an array of elements of one size in place.
 */

#ifndef STOCK_SHELLSORT_H
#define STOCK_SHELLSORT_H

#include <stdint.h>

#include "export.h"

STOCK_BEGIN_DECLS

/*
 * Sorts n elements of size bytes by Shell's method (D. L. Shell, CACM 2, 1959)
 * with Knuth's gaps 1, 4, 13, 40, ... (The Art of Computer Programming, 5.2.1).
 *
 * compare is called with the addresses of two elements and pvt. It returns less than, equal to or
 * more than 0 if the first belongs before, equals, or belongs after the second. One of them may be
 * a copy outside the array. Equal elements end up in no particular order. If n is below 2 or size
 * below 1, nothing happens. For elements of more than 256 bytes, memory for one element is
 * allocated; running out of memory ends the process. Nothing here locks.
 */
STOCK_API void shellsort(void *base, int64_t n, int size,
                         int (*compare)(const void *a, const void *b, void *pvt), void *pvt);

STOCK_END_DECLS

#endif
