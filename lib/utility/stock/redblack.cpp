// The red-black tree after T. H. Cormen, C. E. Leiserson and R. L. Rivest,
// Introduction to Algorithms, chapter 14.
//
// One sentinel stands for every missing child. The descent is a template over
// the comparison, so that string keys are compared without a call through the
// tree's pointer.

#include "stock/redblack.h"

#include <cstdlib>
#include <cstring>

namespace {

enum { kBlack = 0, kRed = 1 };

Rbnode sentinel = {&sentinel, &sentinel, &sentinel, kBlack, nullptr, nullptr};

constexpr Rbnode *kNil = &sentinel;

using Compare = int (*)(const void *a, const void *b);
using Child = Rbnode *Rbnode::*;

int compare_text(const void *a, const void *b)
{
    return std::strcmp(static_cast<const char *>(a), static_cast<const char *>(b));
}

// Where a descent ended: at the equal node, or at the last node visited.
struct Place {
    Rbnode *node;
    int order;  // the last comparison: negative, 0 or positive
};

template <class Order>
Place descend(const void *key, const Rbtree *tree, Order order_of)
{
    Place place{kNil, -1};
    for (Rbnode *node = tree->root; node != kNil;) {
        place = {node, order_of(key, node->key)};
        if (place.order == 0)
            break;
        node = place.order < 0 ? node->left : node->right;
    }
    return place;
}

// A null key is no string: no tree of strings holds it.
Place locate(const void *key, const Rbtree *tree)
{
    if (tree->compare != compare_text)
        return descend(key, tree, tree->compare);
    if (!key)
        return {kNil, -1};
    return descend(key, tree, [](const void *a, const void *b) { return compare_text(a, b); });
}

Rbnode *find(const void *key, const Rbtree *tree)
{
    if (!tree)
        return kNil;
    const Place place = locate(key, tree);
    return place.order == 0 ? place.node : kNil;
}

// The end of the subtree in one direction; kNil when it is empty.
template <Child side>
Rbnode *outermost(Rbnode *node)
{
    while (node->*side != kNil)
        node = node->*side;
    return node;
}

// The neighbour in order: on the far side of `toward`, or the first ancestor
// that has the node on its other side.
template <Child toward, Child away>
Rbnode *neighbour(Rbnode *node)
{
    if (node->*toward != kNil)
        return outermost<away>(node->*toward);
    Rbnode *up = node->up;
    while (up != kNil && node == up->*toward) {
        node = up;
        up = up->up;
    }
    return up;
}

Rbnode *successor(Rbnode *node)
{
    return neighbour<&Rbnode::right, &Rbnode::left>(node);
}

Rbnode *predecessor(Rbnode *node)
{
    return neighbour<&Rbnode::left, &Rbnode::right>(node);
}

// Puts `with` where `node` hangs. The sentinel's own parent is left alone: it is
// shared by all trees.
void replace_child(Rbtree *tree, const Rbnode *node, Rbnode *with)
{
    Rbnode *up = node->up;
    if (up == kNil)
        tree->root = with;
    else if (node == up->left)
        up->left = with;
    else
        up->right = with;
    if (with != kNil)
        with->up = up;
}

// Turns the node down to `side`; its child on the other side takes its place.
template <Child side, Child other>
void rotate(Rbtree *tree, Rbnode *node)
{
    Rbnode *child = node->*other;
    node->*other = child->*side;
    if (child->*side != kNil)
        (child->*side)->up = node;
    replace_child(tree, node, child);
    child->*side = node;
    node->up = child;
}

// One step up from a red node with a red parent that is its grandparent's
// `side` child. Gives the node to go on from.
template <Child side, Child other>
Rbnode *mend_red(Rbtree *tree, Rbnode *node)
{
    Rbnode *grandparent = node->up->up;
    Rbnode *uncle = grandparent->*other;
    if (uncle->colour == kRed) {
        node->up->colour = kBlack;
        uncle->colour = kBlack;
        grandparent->colour = kRed;
        return grandparent;
    }
    if (node == node->up->*other) {
        node = node->up;
        rotate<side, other>(tree, node);
    }
    node->up->colour = kBlack;
    grandparent->colour = kRed;
    rotate<other, side>(tree, grandparent);
    return node;
}

void mend_after_insert(Rbtree *tree, Rbnode *node)
{
    while (node->up->colour == kRed)
        node = node->up == node->up->up->left ? mend_red<&Rbnode::left, &Rbnode::right>(tree, node)
                                              : mend_red<&Rbnode::right, &Rbnode::left>(tree, node);
    tree->root->colour = kBlack;
}

// One step up from a node (perhaps the sentinel) that lacks a black and is its
// parent's `side` child. Gives the node to go on from: the root when done.
template <Child side, Child other>
Rbnode *mend_black(Rbtree *tree, Rbnode *up)
{
    Rbnode *sibling = up->*other;
    if (sibling->colour == kRed) {
        sibling->colour = kBlack;
        up->colour = kRed;
        rotate<side, other>(tree, up);
        sibling = up->*other;
    }
    if ((sibling->*side)->colour == kBlack && (sibling->*other)->colour == kBlack) {
        sibling->colour = kRed;
        return up;
    }
    if ((sibling->*other)->colour == kBlack) {
        (sibling->*side)->colour = kBlack;
        sibling->colour = kRed;
        rotate<other, side>(tree, sibling);
        sibling = up->*other;
    }
    sibling->colour = up->colour;
    up->colour = kBlack;
    (sibling->*other)->colour = kBlack;
    rotate<side, other>(tree, up);
    return tree->root;
}

void mend_after_delete(Rbtree *tree, Rbnode *node, Rbnode *up)
{
    while (node != tree->root && node->colour == kBlack) {
        node = node == up->left ? mend_black<&Rbnode::left, &Rbnode::right>(tree, up)
                                : mend_black<&Rbnode::right, &Rbnode::left>(tree, up);
        up = node->up;
    }
    if (node != kNil)
        node->colour = kBlack;
}

void splice_out(Rbtree *tree, Rbnode *node)
{
    Rbnode *child = node->left != kNil ? node->left : node->right;
    replace_child(tree, node, child);
    if (node->colour == kBlack)
        mend_after_delete(tree, child, node->up);
    std::free(node);
}

void remember(Rbtree *tree, const Rbnode *node)
{
    tree->removed.key = node->key;
    tree->removed.value = node->value;
}

void link(Rbtree *tree, Rbnode *node, int order)
{
    if (node->up == kNil)
        tree->root = node;
    else if (order < 0)
        node->up->left = node;
    else
        node->up->right = node;
}

void free_nodes(Rbnode *node)
{
    while (node != kNil) {
        free_nodes(node->left);
        Rbnode *right = node->right;
        std::free(node);
        node = right;
    }
}

Rbnode *lookup(int mode, const Place &place)
{
    const bool match = place.order == 0;
    switch (mode) {
    case RB_EQ: return match ? place.node : kNil;
    case RB_GE: return place.order <= 0 ? place.node : successor(place.node);
    case RB_LE: return place.order >= 0 ? place.node : predecessor(place.node);
    case RB_LT: return place.order > 0 ? place.node : predecessor(place.node);
    case RB_GT: return place.order < 0 ? place.node : successor(place.node);
    case RB_NEXT: return match ? successor(place.node) : kNil;
    case RB_PREV: return match ? predecessor(place.node) : kNil;
    default: return kNil;
    }
}

}  // namespace

Rbnode *const rb_null = &sentinel;

Rbtree *rbinit(int (*compare)(const void *a, const void *b))
{
    auto *tree = static_cast<Rbtree *>(std::malloc(sizeof(Rbtree)));
    if (tree)
        *tree = {compare ? compare : compare_text, 1, sentinel, kNil};
    return tree;
}

void rbdestroy(Rbtree *tree)
{
    if (!tree)
        return;
    free_nodes(tree->root);
    std::free(tree);
}

Rbnode *rbinsert(void *key, void *value, Rbtree *tree)
{
    if (!key && tree->compare == compare_text)
        return kNil;
    const Place place = locate(key, tree);
    if (place.node != kNil && place.order == 0) {
        if (!tree->replace)
            return place.node;
        remember(tree, place.node);
        place.node->key = key;
        place.node->value = value;
        return &tree->removed;
    }
    auto *node = static_cast<Rbnode *>(std::malloc(sizeof(Rbnode)));
    if (!node)
        return kNil;
    *node = {kNil, kNil, place.node, kRed, key, value};
    link(tree, node, place.order);
    mend_after_insert(tree, node);
    return node;
}

Rbnode *rbdelete(const void *key, Rbtree *tree)
{
    Rbnode *node = find(key, tree);
    if (node == kNil)
        return nullptr;
    remember(tree, node);
    if (node->left != kNil && node->right != kNil) {
        Rbnode *next = successor(node);
        node->key = next->key;
        node->value = next->value;
        node = next;
    }
    splice_out(tree, node);
    return &tree->removed;
}

void *rbsearch(const void *key, const Rbtree *tree)
{
    return find(key, tree)->value;
}

void *rbfind(const void *key, const Rbtree *tree)
{
    return find(key, tree)->key;
}

void *rblookup(int mode, const void *key, const Rbtree *tree)
{
    if (!tree || tree->root == kNil)
        return nullptr;
    if (mode == RB_FIRST)
        return outermost<&Rbnode::left>(tree->root)->key;
    if (mode == RB_LAST)
        return outermost<&Rbnode::right>(tree->root)->key;
    const Place place = locate(key, tree);
    return place.node == kNil ? nullptr : lookup(mode, place)->key;
}

void rbtraverse(const Rbtree *tree, int (*function)(void *key, void *value, void *argument),
                void *argument)
{
    if (tree)
        rb_walk(tree->root, function, argument);
}

int rb_walk(Rbnode *node, int (*function)(void *key, void *value, void *argument), void *argument)
{
    int result = 0;
    for (; node && node != kNil; node = node->right) {
        rb_walk(node->left, function, argument);
        result = function(node->key, node->value, argument);
    }
    return result;
}
