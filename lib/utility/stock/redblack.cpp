// The red-black tree after T. H. Cormen, C. E. Leiserson and R. L. Rivest,
// Introduction to Algorithms, chapter 14.
//
// One sentinel stands for every missing child; nothing ever writes to it. The
// mending after a deletion is told the parent of what may be the sentinel.
// What is done to one side is a template over the two children and does the
// other side as well. The descent is a template over the comparison, so that
// string keys are compared without a call through the tree's pointer.

#include "stock/redblack.h"

#include <bit>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "internal/rbnode.h"

namespace {

enum { kBlack = 0, kRed = 1 };

Rbnode sentinel = {&sentinel, &sentinel, &sentinel, kBlack, nullptr, nullptr};

constexpr Rbnode *kNil = &sentinel;

using stock::kWord;
static_assert(kWord == sizeof(uint64_t));

using Child = Rbnode *Rbnode::*;

// Where a descent ended: at the equal node, or at the last node visited.
struct Place {
    Rbnode *node = kNil;
    int order = -1;  // the last comparison: negative, 0 or positive

    bool found() const { return node != kNil && order == 0; }
};

// A string that is looked for. Strings compare like the big-endian numbers that
// their bytes make, eight at a time, as long as zeros follow their ends.
class Probe {
public:
    explicit Probe(std::string_view key) : key_(key.data()), length_(key.size())
    {
        const size_t rest = length_ % kWord;
        last_at_ = length_ - rest;
        if (length_ < kWord)
            last_ = short_word(key);
        else if (rest > 0)
            last_ = word(key_ + length_ - kWord) << 8 * (kWord - rest);
        first_ = length_ < kWord ? last_ : word(key_);
    }

    int operator()(const Rbnode *node) const
    {
        const auto *its = static_cast<const char *>(node->key);
        if (!stock::behind_key(node))
            return order(its);
        // The first words differ most often.
        const uint64_t first = word(its);
        if (first_ != first)
            return first_ < first ? -1 : 1;
        if ((first & 0xff) == 0)
            return 0;
        for (size_t at = kWord;; at += kWord) {
            const uint64_t mine = at < last_at_ ? word(key_ + at) : last_;
            const uint64_t other = word(its + at);
            if (mine != other)
                return mine < other ? -1 : 1;
            if ((mine & 0xff) == 0)
                return 0;
        }
    }

private:
    int order(const char *other) const
    {
        const int order = std::strncmp(key_, other, length_);
        return order != 0 ? order : -(other[length_] != 0);
    }

    // A text of fewer bytes than a word holds, with zeros behind it. It is put
    // together from pieces that overlap: copying it first would be slower.
    static uint64_t short_word(std::string_view text)
    {
        const size_t n = text.size();
        const auto at = [=](size_t i, uint64_t bytes) { return bytes << 8 * (kWord - 1 - i); };
        const auto byte = [=](size_t i) { return static_cast<unsigned char>(text[i]); };
        if (n >= 4)
            return uint64_t{big_endian<uint32_t>(&text[0])} << 32 |
                   uint64_t{big_endian<uint32_t>(&text[n - 4])} << 8 * (kWord - n);
        return n == 0 ? 0 : at(0, byte(0)) | at(n / 2, byte(n / 2)) | at(n - 1, byte(n - 1));
    }

    template <class Number>
    static Number big_endian(const char *bytes)
    {
        Number number = 0;
        std::memcpy(&number, bytes, sizeof number);
        if (std::endian::native == std::endian::big)
            return number;
        return sizeof number == kWord
                   ? static_cast<Number>(__builtin_bswap64(number))
                   : static_cast<Number>(__builtin_bswap32(static_cast<uint32_t>(number)));
    }

    static uint64_t word(const char *bytes) { return big_endian<uint64_t>(bytes); }

    const char *key_;
    size_t length_;
    size_t last_at_;  // where the last word begins, the one that holds the end
    uint64_t last_ = 0;
    uint64_t first_;
};

template <class Order>
Place descend(const Rbtree *tree, const Order &order)
{
    Place place;
    for (Rbnode *node = tree->root; node != kNil;) {
        // The next node is fetched while the keys are compared.
        __builtin_prefetch(node->left);
        __builtin_prefetch(node->right);
        place = {node, order(node)};
        if (place.order == 0)
            break;
        node = place.order < 0 ? node->left : node->right;
    }
    return place;
}

// A null key is no string: no tree of strings holds it.
Place locate(const void *key, const Rbtree *tree)
{
    if (!stock::holds_text(tree))
        return descend(tree, [=](const Rbnode *node) { return tree->compare(key, node->key); });
    if (!key)
        return {};
    return descend(tree, Probe(static_cast<const char *>(key)));
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

// Puts `with` into the tree as the node was: same place, colour and children.
void take_place(Rbtree *tree, const Rbnode *node, Rbnode *with)
{
    with->left = node->left;
    with->right = node->right;
    with->colour = node->colour;
    replace_child(tree, node, with);
    if (with->left != kNil)
        with->left->up = with;
    if (with->right != kNil)
        with->right->up = with;
}

void splice_out(Rbtree *tree, Rbnode *node)
{
    Rbnode *child = node->left != kNil ? node->left : node->right;
    replace_child(tree, node, child);
    if (node->colour == kBlack)
        mend_after_delete(tree, child, node->up);
}

// Takes the node out of the tree. With two children its successor is spliced
// out and takes its place: nodes move, since a node may be one block with its key.
void unlink(Rbtree *tree, Rbnode *node)
{
    if (node->left == kNil || node->right == kNil) {
        splice_out(tree, node);
        return;
    }
    Rbnode *next = successor(node);
    splice_out(tree, next);
    take_place(tree, node, next);
}

// Keeps what is going to be taken out; the key is the caller's from then on, so one
// in a slab is copied. False without memory.
bool remember(Rbtree *tree, const Rbnode *node)
{
    void *key = node->key;
    if (stock::distance_of(node) != 0 && !(key = strdup(static_cast<const char *>(key))))
        return false;
    tree->removed.key = key;
    tree->removed.value = node->value;
    return true;
}

// Hangs a new node below the place where the descent for its key ended.
void link(Rbtree *tree, Rbnode *node, const Place &place)
{
    node->left = node->right = kNil;
    node->up = place.node;
    node->colour = kRed;
    if (node->up == kNil)
        tree->root = node;
    else if (place.order < 0)
        node->up->left = node;
    else
        node->up->right = node;
    mend_after_insert(tree, node);
}

Rbnode *new_node(void *key, void *value)
{
    void *block = std::malloc(sizeof(Rbnode));
    if (!block)
        return nullptr;
    auto *node = new (block) Rbnode{kNil, kNil, kNil, kRed, key, value};
    stock::set_mark(node, 0);
    return node;
}

// The key's copy and behind it the node, one block that begins with the copy.
Rbnode *new_node_behind(std::string_view key, void *value)
{
    auto *block = static_cast<char *>(std::malloc(stock::words_behind_key(key.size()) * kWord));
    return block ? stock::make_node(block, key, value, 0) : nullptr;
}

// Leaves a key to the caller, who has its copy when it lies in a slab.
void free_removed(Rbnode *node)
{
    if (stock::distance_of(node) != 0)
        stock::free_with_key(node);
    else
        stock::free_node(node);
}

// Gives the node another key and remembers the old one. One that lies behind its
// key leaves with it, and an ordinary one takes its place.
bool replace_key(Rbtree *tree, Rbnode *node, void *key, void *value)
{
    if (!stock::behind_key(node)) {
        remember(tree, node);
        node->key = key;
        node->value = value;
        return true;
    }
    Rbnode *other = new_node(key, value);
    if (!other || !remember(tree, node)) {
        std::free(other);
        return false;
    }
    take_place(tree, node, other);
    free_removed(node);
    return true;
}

// Hangs the node where the descent for its key ended, or in the place of a node whose
// key is equal by the tree's own comparison, but another text. Gives that one's value.
void *put_node(Rbtree *tree, Rbnode *node, const Place &place)
{
    if (!place.found()) {
        link(tree, node, place);
        return nullptr;
    }
    void *old = place.node->value;
    take_place(tree, place.node, node);
    stock::free_with_key(place.node);
    return old;
}

void free_nodes(Rbnode *node)
{
    while (node != kNil) {
        free_nodes(node->left);
        Rbnode *right = node->right;
        stock::free_node(node);
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

Rbnode *make_node(char *block, std::string_view key, void *value, uint32_t distance)
{
    const size_t offset = (key.size() / kWord + 1) * kWord;
    std::memset(block + offset - kWord, 0, kWord);
    key.copy(block, key.size());
    auto *node = new (block + offset) Rbnode{kNil, kNil, kNil, kRed, block, value};
    set_mark(node, kBehindKey | distance);
    return node;
}

void *get_text(const Rbtree *tree, std::string_view key)
{
    const Place place = descend(tree, Probe(key));
    return place.found() ? place.node->value : nullptr;
}

int compare_text(const void *a, const void *b)
{
    return std::strcmp(static_cast<const char *>(a), static_cast<const char *>(b));
}

void *set_text(Rbtree *tree, const char *key, void *value)
{
    const Place place = locate(key, tree);
    const bool found = place.found();
    if (found && !tree->replace)
        return place.node->value;
    if (found && std::strcmp(key, static_cast<const char *>(place.node->key)) == 0)
        return std::exchange(place.node->value, value);
    Rbnode *node = new_node_behind(key, value);
    return node ? put_node(tree, node, place) : nullptr;
}

void *set_node(Rbtree *tree, Rbnode *node)
{
    const Place place = locate(node->key, tree);
    if (!place.found())
        return put_node(tree, node, place);
    const auto *key = static_cast<const char *>(node->key);
    void *old = place.node->value;
    if (tree->replace && std::strcmp(key, static_cast<const char *>(place.node->key)) != 0)
        return put_node(tree, node, place);
    if (tree->replace)
        place.node->value = node->value;
    free_with_key(node);
    return old;
}

void *take_out(Rbtree *tree, const char *key)
{
    Rbnode *node = find(key, tree);
    if (node == kNil)
        return nullptr;
    void *value = node->value;
    tree->removed.key = nullptr;
    tree->removed.value = value;
    unlink(tree, node);
    free_with_key(node);
    return value;
}

}  // namespace stock

Rbtree *rbinit(int (*compare)(const void *a, const void *b))
{
    auto *tree = static_cast<Rbtree *>(std::malloc(sizeof(Rbtree)));
    if (tree)
        *tree = {compare ? compare : stock::compare_text, 1, sentinel, kNil};
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
    if (!tree || (!key && stock::holds_text(tree)))
        return kNil;
    const Place place = locate(key, tree);
    if (place.found()) {
        if (!tree->replace)
            return place.node;
        return replace_key(tree, place.node, key, value) ? &tree->removed : kNil;
    }
    Rbnode *node = new_node(key, value);
    if (!node)
        return kNil;
    link(tree, node, place);
    return node;
}

Rbnode *rbdelete(const void *key, Rbtree *tree)
{
    Rbnode *node = find(key, tree);
    if (node == kNil || !remember(tree, node))
        return nullptr;
    unlink(tree, node);
    free_removed(node);
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
