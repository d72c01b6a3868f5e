/*
 * redblack.h - an ordered map from untyped keys to values, kept as a red-black
 * tree (Cormen, Leiserson, Rivest: Introduction to Algorithms, chapter 14).
 *
 * The tree keeps pointers to keys and values and owns neither. A comparison
 * function orders the keys; its first argument is always the key that is looked
 * for, its second one of the tree. A key must not change while it is in the tree.
 *
 * Nodes are blocks of their own. Replacing leaves an entry in its node; a deletion
 * may move another entry to the node of the one that is removed. So a walk may
 * replace entries and must not delete any.
 *
 * Nothing here locks: threads that share a tree lock it. Different trees may be
 * used by different threads at the same time.
 */

#ifndef STOCK_REDBLACK_H
#define STOCK_REDBLACK_H

#include "export.h"

STOCK_BEGIN_DECLS

/* A node is the tree's own: read it until the next deletion, never change or free it. */
typedef struct Rbnode {
    struct Rbnode *left;  /* child with a smaller key, or rb_null */
    struct Rbnode *right; /* child with a greater key, or rb_null */
    struct Rbnode *up;    /* parent, or rb_null */
    int colour;           /* 1 red, 0 black */
    unsigned int start;   /* the tree's own: four bytes of a string key, see common */
    void *key;
    void *value;
} Rbnode;

typedef struct Rbtree {
    int (*compare)(const void *a, const void *b);
    int replace;    /* not 0: inserting an existing key replaces its key and value */
    int common;     /* the tree's own: so many bytes are the same at the start of all string
                       keys; a node's start is the number that the next four make */
    Rbnode removed; /* key and value: what the last replacement or deletion took out; the
                       rest is the tree's own */
    Rbnode *root;   /* rb_null when the tree is empty */
} Rbtree;

/* What rblookup looks for. */
enum {
    RB_EQ = 0,    /* the equal key */
    RB_GE = 1,    /* the smallest key that is greater or equal */
    RB_LE = 2,    /* the greatest key that is less or equal */
    RB_LT = 3,    /* the greatest key that is less */
    RB_GT = 4,    /* the smallest key that is greater */
    RB_NEXT = 5,  /* the key behind the given one, which must be present */
    RB_PREV = 6,  /* the key before the given one, which must be present */
    RB_FIRST = 7, /* the smallest key; the given one is ignored */
    RB_LAST = 8   /* the greatest key; the given one is ignored */
};

/* The one black node that stands for every missing child, in every tree. Never write to it. */
STOCK_API extern Rbnode *const rb_null;

/*
 * A new, empty tree with replace set to 1. compare returns less than, equal to or
 * more than 0; with compare null, keys are strings in the order of strcmp, and a
 * null key is in no tree.
 *
 * Returns a tree that the caller frees with rbdestroy; null without memory.
 */
STOCK_API Rbtree *rbinit(int (*compare)(const void *a, const void *b));

/*
 * Frees the nodes and the tree, but no key or value, and looks at none: they may have
 * been freed already. Null is ignored.
 */
STOCK_API void rbdestroy(Rbtree *tree);

/*
 * Puts a key and its value into the tree.
 *
 *     key         replace    effect                       returns
 *     is new      any        stored                       the new node
 *     is there    not 0      key and value take the       the address of removed, which
 *                            place of the old ones        holds the old key and value
 *     is there    0          none                         the node that is there
 *
 * What removed holds is valid until the next replacement or deletion in the
 * same tree. Without memory, with a null tree, or with a null key in a tree of
 * strings, nothing is stored and rb_null returned.
 */
STOCK_API Rbnode *rbinsert(void *key, void *value, Rbtree *tree);

/*
 * Removes a key and its value; neither is freed.
 *
 * Returns the address of the tree's removed node, which holds both until the
 * next replacement or deletion in the same tree. Null when the key is absent or
 * the tree null.
 */
STOCK_API Rbnode *rbdelete(const void *key, Rbtree *tree);

/*
 * The value stored under an equal key. Null when there is none, which a stored
 * null looks like too, or when the tree is null.
 */
STOCK_API void *rbsearch(const void *key, const Rbtree *tree);

/* The stored key that equals the given one; null when there is none or the tree is null. */
STOCK_API void *rbfind(const void *key, const Rbtree *tree);

/*
 * The stored key that the mode (RB_EQ ...) chooses by the given one. Null when
 * there is none, when the tree is null and for every other mode.
 *
 *     keys 10 20 30    RB_GE 15    20      RB_NEXT 20    30
 *                      RB_LE 15    10      RB_NEXT 15    null
 *                      RB_LT 20    10      RB_PREV 10    null
 *                      RB_GT 30    null    RB_FIRST      10
 */
STOCK_API void *rblookup(int mode, const void *key, const Rbtree *tree);

/*
 * Calls function(key, value, argument) with every entry in ascending key order.
 * The function may replace entries, but must not add or delete any.
 */
STOCK_API void rbtraverse(const Rbtree *tree,
                          int (*function)(void *key, void *value, void *argument), void *argument);

/* The same over one node's subtree. Returns what the last call returned, 0 when there was none. */
STOCK_API int rb_walk(Rbnode *node, int (*function)(void *key, void *value, void *argument),
                      void *argument);

STOCK_END_DECLS

#endif
