/*
 * arr.h - the associative array from strings to pointers, in key order.
 */

#ifndef STOCK_ARR_H
#define STOCK_ARR_H

#include "export.h"
#include "redblack.h"
#include "tbl.h"

STOCK_BEGIN_DECLS

typedef Rbtree Arr;

STOCK_API Arr *newarr(int (*compare)(const void *a, const void *b));
STOCK_API void *setarr(Arr *arr, const char *key, void *value);
STOCK_API void *getarr(const Arr *arr, const char *key);
STOCK_API void *delarr(Arr *arr, const char *key);
STOCK_API int freearr(Arr *arr, void (*free_value)(void *value));
STOCK_API int64_t cntarr(const Arr *arr);
STOCK_API Tbl *keysarr(const Arr *arr);
STOCK_API Tbl *valsarr(const Arr *arr);
STOCK_API int applyarr(const Arr *arr, int (*function)(void *key, void *value, void *argument),
                       void *argument);
STOCK_API int arr_walk(Rbnode *node, int (*function)(void *key, void *value, void *argument),
                       void *argument);
STOCK_API Arr *duparr(const Arr *arr, void *(*copy)(void *value));
STOCK_API Tbl *greparr(const char *pattern, const Arr *arr);
STOCK_API Tbl *arrgrep(const Arr *arr, const char *text);

STOCK_END_DECLS

#endif
