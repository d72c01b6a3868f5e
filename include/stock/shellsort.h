/*
 * shellsort.h - sorting any array of fixed-size elements in place.
 */

#ifndef STOCK_SHELLSORT_H
#define STOCK_SHELLSORT_H

#include <stdint.h>

#include "export.h"

STOCK_BEGIN_DECLS

STOCK_API void shellsort(void *base, int64_t n, int size,
                         int (*compare)(const void *a, const void *b, void *pvt), void *pvt);

STOCK_END_DECLS

#endif
