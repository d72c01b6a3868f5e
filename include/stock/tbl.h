/*
 * tbl.h - the ordered list.
 *
 * A Tbl grows at both ends and counts from 0. An indirect list holds pointers,
 * a direct list holds fixed-size records in place. Reading outside the list
 * gives its null value; writing past the end grows it. Running out of memory
 * ends the process. Nothing here locks: threads that share a list lock it.
 */

#ifndef STOCK_TBL_H
#define STOCK_TBL_H

#include <stdint.h>

#include "export.h"

STOCK_BEGIN_DECLS

typedef struct Tbl {
    void *base;         /* address of entry 0 */
    void *mapaddr;      /* start of the file mapping, null for an ordinary list */
    void *null_value;   /* the list's own copy of its null value, or null */
    void *deleted;      /* what deltbl took from a direct list last, or null */
    int64_t left;       /* minus the number of free slots in front of entry 0 */
    int64_t count;      /* number of entries */
    int64_t nalloc;     /* slots from entry 0 to the end of the block */
    int32_t size;       /* bytes per entry, 8 for an indirect list */
    uint32_t direct;    /* not 0: records in place; 0: pointers */
    int64_t maplen;     /* bytes mapped, 0 when not mapped */
    int32_t fd;         /* descriptor of the backing file, or -1 */
    uint32_t prot;      /* protection of the mapping: 1 readable, 2 writable */
    int64_t left_grow;  /* slots added by the next reallocation at the front */
    int64_t right_grow; /* slots added by the next reallocation at the back */
} Tbl;

STOCK_API Tbl *inittbl(int64_t left_grow, int64_t right_grow, int direct, const void *null_value,
                       int size);
STOCK_API Tbl *newtbl(int64_t right_grow);
STOCK_API int64_t settbl(Tbl *tbl, int64_t i, const void *entry);
STOCK_API void *gettbl(const Tbl *tbl, int64_t i);
STOCK_API void *addrtbl(const Tbl *tbl, int64_t i);
STOCK_API int64_t pushtbl(Tbl *tbl, const void *entry);
STOCK_API void *poptbl(Tbl *tbl);
STOCK_API int64_t unshifttbl(Tbl *tbl, const void *entry);
STOCK_API void *shifttbl(Tbl *tbl);
STOCK_API int64_t instbl(Tbl *tbl, int64_t i, const void *entry);
STOCK_API void *deltbl(Tbl *tbl, int64_t i);
STOCK_API void freetbl(Tbl *tbl, void (*free_entry)(void *entry));
STOCK_API void trunctbl(Tbl *tbl, int64_t count, void (*free_entry)(void *entry));
STOCK_API void clrtbl(Tbl *tbl, void (*free_entry)(void *entry));
STOCK_API int applytbl(Tbl *tbl, int (*function)(void *entry, void *argument), void *argument);
STOCK_API int cattbl(Tbl *tbl, const Tbl *source);
STOCK_API int cmptbl(const Tbl *a, const Tbl *b);
STOCK_API int64_t searchtbl(const void *key, const Tbl *tbl,
                            int (*compare)(const void *key, const void *entry, void *pvt),
                            void *pvt, int64_t *first, int64_t *last);
STOCK_API void sorttbl(Tbl *tbl, int (*compare)(const void *a, const void *b, void *pvt),
                       void *pvt);
STOCK_API Tbl *duptbl(const Tbl *tbl, void *(*copy)(void *entry));
STOCK_API Tbl *strtbl(const char *first, ...) STOCK_SENTINEL;
STOCK_API char *jointbl(const Tbl *tbl, const char *separator);
STOCK_API Tbl *greptbl(const char *pattern, const Tbl *tbl);
STOCK_API Tbl *tblgrep(const Tbl *patterns, const char *text);
STOCK_API int dumptbl(const char *title, const Tbl *tbl, int (*print)(const void *entry));

STOCK_END_DECLS

#endif
