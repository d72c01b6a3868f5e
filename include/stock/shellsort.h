/*
 * shellsort.h - sorting any array of fixed-size elements in place.
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
 * compare is called with the addresses of two elements and pvt, and returns
 * less than, equal to or more than 0 as the first belongs before, with or
 * behind the second. One of the two may be a copy outside the array. Equal
 * elements end in no particular order. Nothing happens with n below 2 or size
 * below 1. Elements above 256 bytes take memory for one element; without it the
 * process ends with the out-of-memory message.
 */
STOCK_API void shellsort(void *base, int64_t n, int size,
                         int (*compare)(const void *a, const void *b, void *pvt), void *pvt);

STOCK_END_DECLS

#endif
