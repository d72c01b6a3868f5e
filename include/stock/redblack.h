/*
 * redblack.h - an ordered map from untyped keys to values, kept as a red-black tree.
 */

#ifndef STOCK_REDBLACK_H
#define STOCK_REDBLACK_H

#include "export.h"

STOCK_BEGIN_DECLS

typedef struct Rbnode {
    struct Rbnode *left;
    struct Rbnode *right;
    struct Rbnode *up;
    int colour; /* 1 red, 0 black */
    void *key;
    void *value;
} Rbnode;

typedef struct Rbtree {
    int (*compare)(const void *a, const void *b);
    int replace;    /* not 0: inserting an existing key replaces its key and value */
    Rbnode removed; /* what the last replacement or deletion took out */
    Rbnode *root;
} Rbtree;

enum {
    RB_EQ = 0,
    RB_GE = 1,
    RB_LE = 2,
    RB_LT = 3,
    RB_GT = 4,
    RB_NEXT = 5,
    RB_PREV = 6,
    RB_FIRST = 7,
    RB_LAST = 8
};

/* The one node that stands for every missing child, in every tree. */
STOCK_API extern Rbnode *const rb_null;

STOCK_API Rbtree *rbinit(int (*compare)(const void *a, const void *b));
STOCK_API void rbdestroy(Rbtree *tree);
STOCK_API Rbnode *rbinsert(void *key, void *value, Rbtree *tree);
STOCK_API Rbnode *rbdelete(const void *key, Rbtree *tree);
STOCK_API void *rbsearch(const void *key, const Rbtree *tree);
STOCK_API void *rbfind(const void *key, const Rbtree *tree);
STOCK_API void *rblookup(int mode, const void *key, const Rbtree *tree);
STOCK_API void rbtraverse(const Rbtree *tree, int (*function)(void *key, void *value, void *argument),
                          void *argument);
STOCK_API int rb_walk(Rbnode *node, int (*function)(void *key, void *value, void *argument),
                      void *argument);

STOCK_END_DECLS

#endif
