// The red-black tree after T. H. Cormen, C. E. Leiserson and R. L. Rivest,
// Introduction to Algorithms, chapter 14.
//
// One sentinel stands for every missing child; nothing ever writes to it. The
// mending after a deletion is told the parent of what may be the sentinel.
// What is done to one side is a template over the two children and does the
// other side as well. The descent is a template over the comparison, so that
// string keys are compared without a call through the tree's pointer.
//
// The keys of a file mostly come in ascending order. So a tree remembers the node that
// was put in last, in removed.up, and in removed.colour whether that one went beside the
// node before it. If so, a new string key is compared with it and with its successor
// before the tree is descended.

#include "stock/redblack.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "arrays/node.h"

namespace {

enum { kBlack = 0, kRed = 1 };

Rbnode sentinel = {&sentinel, &sentinel, &sentinel, kBlack, 0, nullptr, nullptr};

constexpr Rbnode *kNil = &sentinel;

using Child = Rbnode *Rbnode::*;

// Where a key is or goes: at the equal node, or below the last node visited.
struct Place {
    Rbnode *node = kNil;
    int order = -1;      // the last comparison: negative, 0 or positive
    uint32_t start = 0;  // the start of a new node with a string key

    bool found() const { return node != kNil && order == 0; }
};

constexpr size_t kStart = sizeof(Rbnode::start);
static_assert(kStart == 4 && sizeof(Rbnode) == 48);

// Text orders as its first bytes do when they are read as a big-endian number, with
// zeros behind its end.
uint32_t start_of(std::string_view text)
{
    uint32_t start = 0;
    for (size_t i = 0; i < kStart; ++i)
        start = start << 8 | (i < text.size() ? static_cast<unsigned char>(text[i]) : 0);
    return start;
}

const char *text_of(const Rbnode *node)
{
    return static_cast<const char *>(node->key);
}

// Whether the text begins with the bytes that all keys of the tree begin with.
bool begins_as_all(std::string_view text, const Rbtree *tree)
{
    const auto common = static_cast<size_t>(tree->common);
    return common == 0 || text.starts_with({text_of(tree->root), common});
}

// Compares a string with the keys of a tree that is not empty. Most comparisons are
// decided by `start` and do not read the node's key.
class Probe {
public:
    Probe(std::string_view text, const Rbtree *tree)
        : text_(text), common_(static_cast<size_t>(tree->common)),
          begins_as_all_(begins_as_all(text, tree))
    {
        if (begins_as_all_)
            start_ = start_of(text.substr(common_));
    }

    // Of a text that begins as all do, with its start.
    Probe(std::string_view text, const Rbtree *tree, uint32_t start)
        : text_(text), common_(static_cast<size_t>(tree->common)), begins_as_all_(true),
          start_(start)
    {
    }

    int operator()(const Rbnode *node) const
    {
        if (!begins_as_all_)
            return order_from(0, node);
        if (start_ != node->start)
            return start_ < node->start ? -1 : 1;
        if ((start_ & 0xff) == 0)  // both texts end here
            return 0;
        return order_from(common_ + kStart, node);
    }

private:
    int order_from(size_t at, const Rbnode *node) const
    {
        const char *other = text_of(node) + at;
        const size_t length = text_.size() - at;
        const int order = std::strncmp(text_.data() + at, other, length);
        return order != 0 ? order : -(other[length] != 0);
    }

    std::string_view text_;
    size_t common_;
    bool begins_as_all_;
    uint32_t start_ = 0;
};

template <class Order>
Place descend(const Rbtree *tree, const Order &order)
{
    Place place;
    for (Rbnode *node = tree->root; node != kNil;) {
        // The next node is fetched while the keys are compared.
        __builtin_prefetch(node->left);
        __builtin_prefetch(node->right);
        place.node = node;
        place.order = order(node);
        if (place.order == 0)
            break;
        node = place.order < 0 ? node->left : node->right;
    }
    return place;
}

Place locate_text(std::string_view text, const Rbtree *tree)
{
    return tree->root == kNil ? Place() : descend(tree, Probe(text, tree));
}

Place locate_untyped(const void *key, const Rbtree *tree)
{
    return descend(tree, [=](const Rbnode *node) { return tree->compare(key, node->key); });
}

// A null key is no string: no tree of strings holds it.
Place locate(const void *key, const Rbtree *tree)
{
    if (!stock::holds_text(tree))
        return locate_untyped(key, tree);
    return key ? locate_text(static_cast<const char *>(key), tree) : Place();
}

Rbnode *find(const void *key, const Rbtree *tree)
{
    if (!tree)
        return kNil;
    const Place place = locate(key, tree);
    return place.found() ? place.node : kNil;
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

// Takes the node out of its place, which its only child takes, and frees it.
void splice_out(Rbtree *tree, Rbnode *node)
{
    Rbnode *child = node->left != kNil ? node->left : node->right;
    if (node == tree->removed.up)
        tree->removed.up = kNil;
    replace_child(tree, node, child);
    if (node->colour == kBlack)
        mend_after_delete(tree, child, node->up);
    std::free(node);
}

void move_entry(const Rbnode *from, Rbnode *to)
{
    to->start = from->start;
    to->key = from->key;
    to->value = from->value;
}

// Removes the node's entry. With two children it takes over its successor's, whose
// node goes instead.
void remove_entry(Rbtree *tree, Rbnode *node)
{
    if (node->left != kNil && node->right != kNil) {
        Rbnode *next = successor(node);
        move_entry(next, node);
        node = next;
    }
    splice_out(tree, node);
}

// Keeps an entry for the caller before it is replaced or removed.
void remember(Rbtree *tree, const Rbnode *node)
{
    tree->removed.key = node->key;
    tree->removed.value = node->value;
}

void set_starts(Rbnode *node, size_t common)
{
    for (; node != kNil; node = node->right) {
        set_starts(node->left, common);
        const char *text = text_of(node) + common;
        node->start = start_of({text, strnlen(text, kStart)});
    }
}

// Lets `common` count only bytes that the text begins with too. When it shares less with
// the keys than they shared so far, all nodes get new starts. `common` never grows in a
// tree that is not empty, so this happens once for a byte of the first key at most.
void share_start(Rbtree *tree, std::string_view text)
{
    if (tree->root == kNil) {
        tree->common = static_cast<int>(std::min<size_t>(text.size(), INT_MAX));
    } else if (!begins_as_all(text, tree)) {
        const char *other = text_of(tree->root);
        const auto differ = std::mismatch(text.begin(), text.end(), other).first;
        tree->common = static_cast<int>(differ - text.begin());
        set_starts(tree->root, static_cast<size_t>(tree->common));
    }
}

// The place between the node that was put in last and its successor; none when the
// key does not go there.
Place locate_behind_last(const Rbtree *tree, const Probe &order)
{
    Rbnode *last = tree->removed.up;
    if (last == kNil || order(last) <= 0)
        return {};
    if (last->right == kNil) {
        const Rbnode *next = successor(last);
        return next == kNil || order(next) < 0 ? Place{last, 1} : Place();
    }
    Rbnode *next = outermost<&Rbnode::left>(last->right);
    return order(next) < 0 ? Place{next, -1} : Place();
}

// Where a string is, or goes if it is going to be inserted.
Place locate_new_text(std::string_view text, Rbtree *tree)
{
    share_start(tree, text);
    const uint32_t start = start_of(text.substr(static_cast<size_t>(tree->common)));
    const Probe probe(text, tree, start);
    Place place = tree->removed.colour ? locate_behind_last(tree, probe) : Place();
    if (place.node == kNil) {
        place = descend(tree, probe);
        tree->removed.colour = place.node == tree->removed.up;
    }
    place.start = start;
    return place;
}

// Puts a new entry in the block where the key goes.
Rbnode *add_entry(Rbtree *tree, void *block, void *key, void *value, const Place &place)
{
    auto *node = new (block) Rbnode{kNil, kNil, place.node, kRed, place.start, key, value};
    if (place.node == kNil)
        tree->root = node;
    else if (place.order < 0)
        place.node->left = node;
    else
        place.node->right = node;
    tree->removed.up = node;
    mend_after_insert(tree, node);
    return node;
}

// A copy with a zero byte behind it, null when allocate gives none.
char *copy_key(std::string_view key, stock::Allocate allocate)
{
    auto *copy = static_cast<char *>(allocate(key.size() + 1, "key"));
    if (copy)
        copy[key.copy(copy, key.size())] = 0;
    return copy;
}

// Replaces an entry of a tree that owns its keys. Gives the old value; null, with the
// entry as it was, without memory.
void *replace_text(Rbtree *tree, Rbnode *node, std::string_view key, void *value,
                   stock::Allocate allocate)
{
    if (key != text_of(node)) {
        char *copy = copy_key(key, allocate);
        if (!copy)
            return nullptr;
        std::free(std::exchange(node->key, copy));
    }
    tree->removed.key = nullptr;
    tree->removed.value = std::exchange(node->value, value);
    return tree->removed.value;
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

namespace stock {

void *get_text(const Rbtree *tree, std::string_view key)
{
    const Place place = locate_text(key, tree);
    return place.found() ? place.node->value : nullptr;
}

int compare_text(const void *a, const void *b)
{
    return std::strcmp(static_cast<const char *>(a), static_cast<const char *>(b));
}

void *set_text(Rbtree *tree, std::string_view key, void *value, Allocate allocate)
{
    const Place place =
        holds_text(tree) ? locate_new_text(key, tree) : locate_untyped(key.data(), tree);
    if (place.found())
        return tree->replace ? replace_text(tree, place.node, key, value, allocate)
                             : place.node->value;
    char *copy = copy_key(key, allocate);
    void *block = copy ? allocate(sizeof(Rbnode), "node") : nullptr;
    if (block)
        add_entry(tree, block, copy, value, place);
    else
        std::free(copy);
    return nullptr;
}

}  // namespace stock

Rbtree *rbinit(int (*compare)(const void *a, const void *b))
{
    auto *tree = static_cast<Rbtree *>(std::malloc(sizeof(Rbtree)));
    if (tree)
        *tree = {compare ? compare : stock::compare_text, 1, 0, sentinel, kNil};
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
    if (!tree)
        return kNil;
    const bool text = stock::holds_text(tree);
    if (text && !key)
        return kNil;
    const Place place =
        text ? locate_new_text(static_cast<const char *>(key), tree) : locate_untyped(key, tree);
    if (place.found()) {
        if (!tree->replace)
            return place.node;
        remember(tree, place.node);
        place.node->key = key;
        place.node->value = value;
        return &tree->removed;
    }
    void *block = std::malloc(sizeof(Rbnode));
    return block ? add_entry(tree, block, key, value, place) : kNil;
}

Rbnode *rbdelete(const void *key, Rbtree *tree)
{
    Rbnode *node = find(key, tree);
    if (node == kNil)
        return nullptr;
    remember(tree, node);
    remove_entry(tree, node);
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
