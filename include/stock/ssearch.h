/*
 * ssearch.h - binary search of any sorted array of fixed-size elements.
 */

#ifndef STOCK_SSEARCH_H
#define STOCK_SSEARCH_H

#include <stdint.h>

#include "export.h"

STOCK_BEGIN_DECLS

STOCK_API int64_t ssearch(const void *key, int size, const void *base, int64_t n, int unique,
                          int (*compare)(const void *key, const void *element, void *pvt),
                          void *pvt, int64_t *first, int64_t *last);

STOCK_END_DECLS

#endif
