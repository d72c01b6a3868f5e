/*
 * redblack.h - ordered maps with keys of any kind, as red-black trees (Cormen, Leiserson,
 * Rivest: Introduction to Algorithms, chapter 14).
 *
 * A tree stores pointers to keys and values and owns neither; arr.h has trees that own copies
 * of their keys. A comparison function orders the keys. Its first argument is always the key
 * that is searched for, and its second a key of the tree. A key must not change while it is in
 * the tree.
 *
 * Each node is a block of its own. A replaced entry stays in its node; a deletion may move
 * another entry to the node of the deleted one. So a walk may replace entries but must not
 * delete any, and pointers to nodes are valid until the next deletion.
 *
 * Nothing here locks: threads that share a tree must lock it. Different threads may use
 * different trees at the same time.
 */

#ifndef STOCK_REDBLACK_H
#define STOCK_REDBLACK_H

#include "export.h"

STOCK_BEGIN_DECLS

/* The tree owns its nodes: a program may read them, but not change or free them. */
typedef struct Rbnode {
    struct Rbnode *left;  /* child with a smaller key, or rb_null */
    struct Rbnode *right; /* child with a greater key, or rb_null */
    struct Rbnode *up;    /* parent, or rb_null */
    int colour;           /* 1 red, 0 black */
    unsigned int start;   /* used by the tree: four bytes of a string key, see common */
    void *key;
    void *value;
} Rbnode;

typedef struct Rbtree {
    int (*compare)(const void *a, const void *b);
    int replace;    /* not 0: inserting an existing key replaces its key and value */
    int common;     /* used by the tree: the number of bytes that all string keys have in common
                       at their start; a node's start is the next four bytes as a number */
    Rbnode removed; /* key and value of the last replacement or deletion; only the tree uses
                       the other members */
    Rbnode *root;   /* rb_null if the tree is empty */
} Rbtree;

/* The key that rblookup returns. */
enum {
    RB_EQ = 0,    /* the equal key */
    RB_GE = 1,    /* the smallest key that is greater or equal */
    RB_LE = 2,    /* the greatest key that is less or equal */
    RB_LT = 3,    /* the greatest key that is less */
    RB_GT = 4,    /* the smallest key that is greater */
    RB_NEXT = 5,  /* the key after the given one, which must be in the tree */
    RB_PREV = 6,  /* the key before the given one, which must be in the tree */
    RB_FIRST = 7, /* the smallest key; the given one is ignored */
    RB_LAST = 8   /* the greatest key; the given one is ignored */
};

/* A single black node that represents every missing child in every tree. Never write to it. */
STOCK_API extern Rbnode *const rb_null;

/*
 * Creates an empty tree with replace set to 1. compare returns less than, equal to or more than
 * 0. If it is null, keys are strings in the order of strcmp, and a null key is in no tree.
 *
 * Returns a tree that the caller frees with rbdestroy, or null if there is no memory.
 */
STOCK_API Rbtree *rbinit(int (*compare)(const void *a, const void *b));

/*
 * Frees the tree and its nodes. Neither frees nor reads keys and values, so these may have been
 * freed before. Null is ignored.
 */
STOCK_API void rbdestroy(Rbtree *tree);

/*
 * Stores a key and its value in the tree.
 *
 *     key       replace    what happens                 returns
 *     new       any        stored                       the new node
 *     exists    not 0      key and value replace the    the address of removed, which
 *                          old ones                     holds the old key and value
 *     exists    0          nothing                      the existing node
 *
 * removed is valid until the next replacement or deletion in the same tree. If there is no
 * memory, the tree is null, or the key is null in a tree of strings, nothing is stored and
 * rb_null is returned.
 */
STOCK_API Rbnode *rbinsert(void *key, void *value, Rbtree *tree);

/*
 * Removes a key and its value. Neither is freed.
 *
 * Returns the address of the tree's member removed, which holds both until the next replacement
 * or deletion in the same tree. Returns null if the key is missing or the tree is null.
 */
STOCK_API Rbnode *rbdelete(const void *key, Rbtree *tree);

/*
 * Returns the value stored under an equal key, or null if there is none or the tree is null. A
 * stored null value looks like no value.
 */
STOCK_API void *rbsearch(const void *key, const Rbtree *tree);

/* Returns the stored key that equals the given one, or null if there is none or tree is null. */
STOCK_API void *rbfind(const void *key, const Rbtree *tree);

/*
 * Returns a stored key that the mode (RB_EQ ...) selects, or null if there is none, the tree is
 * null, or the mode is unknown.
 *
 *     keys 10 20 30    RB_GE 15    20      RB_NEXT 20    30
 *                      RB_LE 15    10      RB_NEXT 15    null
 *                      RB_LT 20    10      RB_PREV 10    null
 *                      RB_GT 30    null    RB_FIRST      10
 */
STOCK_API void *rblookup(int mode, const void *key, const Rbtree *tree);

/*
 * Calls function(key, value, argument) with each entry in ascending order of the keys. The
 * function may replace entries, but must not add or delete any.
 */
STOCK_API void rbtraverse(const Rbtree *tree,
                          int (*function)(void *key, void *value, void *argument), void *argument);

/*
 * The same for the subtree of one node. Returns the result of the last call, or 0 if there was
 * none.
 */
STOCK_API int rb_walk(Rbnode *node, int (*function)(void *key, void *value, void *argument),
                      void *argument);

STOCK_END_DECLS

#endif
