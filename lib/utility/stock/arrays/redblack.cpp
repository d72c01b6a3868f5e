// The red-black tree after T. H. Cormen, C. E. Leiserson and R. L. Rivest,
// Introduction to Algorithms, chapter 14.
//
// One constant node, the sentinel, stands for every missing child in every tree. The book's
// deletion writes the sentinel's parent; here mend_after_delete takes the parent as an
// argument instead, so that threads may use different trees at the same time.
//
// The mirrored halves of each algorithm are one template over the two sides. The descent is a
// template over the comparison, so that string keys are compared without a call through the
// tree's pointer.
//
// The keys of a file mostly come in ascending order. A tree therefore keeps the node that was
// inserted last in removed.up, and in removed.colour whether that node became a neighbour of
// the one inserted before it. If so, a new string key is first compared with that node and its
// successor, and the tree is descended only when the key does not go between the two.

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

constinit const Rbnode sentinel = {
    const_cast<Rbnode *>(&sentinel),
    const_cast<Rbnode *>(&sentinel),
    const_cast<Rbnode *>(&sentinel),
    kBlack,
    0,
    nullptr,
    nullptr,
};

// Nodes point to the sentinel without const, as to other nodes; nothing writes to it.
constexpr Rbnode *kNil = const_cast<Rbnode *>(&sentinel);

using Child = Rbnode *Rbnode::*;  // &Rbnode::left or &Rbnode::right

// Where a key is: at the node with order 0. Or where it goes: below the node, on the left when
// order is negative, else on the right.
struct KeyPlace {
    Rbnode *node = kNil;
    int order = -1;      // the last comparison: negative, 0 or positive
    uint32_t start = 0;  // what Rbnode::start of a new node with a string key will be

    bool found() const { return node != kNil && order == 0; }
};

constexpr size_t kStartBytes = sizeof(Rbnode::start);
static_assert(kStartBytes == 4 && sizeof(Rbnode) == 48);

// The first four bytes of a text as a big-endian number, with zeros behind its end. Texts
// whose numbers differ are ordered as these numbers.
uint32_t start_of(std::string_view text)
{
    uint32_t start = 0;
    for (size_t i = 0; i < kStartBytes; ++i)
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

// Compares one string with the keys of a tree that is not empty. Most comparisons are decided
// by the nodes' `start` and do not read their keys.
class TextOrder {
public:
    TextOrder(std::string_view text, const Rbtree *tree)
        : text_(text), common_(static_cast<size_t>(tree->common)),
          begins_as_all_(begins_as_all(text, tree))
    {
        if (begins_as_all_)
            start_ = start_of(text.substr(common_));
    }

    // For a text that begins as all keys do; start is that of the text behind the common bytes.
    TextOrder(std::string_view text, const Rbtree *tree, uint32_t start)
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
        return order_from(common_ + kStartBytes, node);
    }

private:
    // Compares from the byte `at` on; the texts are equal up to there.
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

// Goes down from the root; order(node) compares the key with that of a node.
template <class Order>
KeyPlace descend(const Rbtree *tree, const Order &order)
{
    KeyPlace place;
    for (Rbnode *node = tree->root; node != kNil;) {
        // The processor fetches both children while the keys are compared.
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

KeyPlace locate_text(std::string_view text, const Rbtree *tree)
{
    return tree->root == kNil ? KeyPlace() : descend(tree, TextOrder(text, tree));
}

KeyPlace locate_untyped(const void *key, const Rbtree *tree)
{
    return descend(tree, [=](const Rbnode *node) { return tree->compare(key, node->key); });
}

// Null is no string, so a tree of strings does not hold it.
KeyPlace locate(const void *key, const Rbtree *tree)
{
    if (!stock::holds_text(tree))
        return locate_untyped(key, tree);
    return key ? locate_text(static_cast<const char *>(key), tree) : KeyPlace();
}

Rbnode *find(const void *key, const Rbtree *tree)
{
    if (!tree)
        return kNil;
    const KeyPlace place = locate(key, tree);
    return place.found() ? place.node : kNil;
}

// The last node of a subtree in the direction of that side; kNil when the subtree is empty.
template <Child side>
Rbnode *outermost(Rbnode *node)
{
    while (node->*side != kNil)
        node = node->*side;
    return node;
}

// The next node in the order of keys, in the direction of `toward`: the nearest one below the
// node, or the first ancestor that has the node on its `away` side. kNil when there is none.
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

// Makes `with` the child of node's parent in place of `node`. `with` may be the sentinel, whose
// parent is never set.
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

// Rotates the node down to `side`; its child on the other side takes its place.
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

// One step of the insertion's repair: the node and its parent are red, and the parent is its
// own parent's `side` child. Gives the node to continue with.
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

// One step of the deletion's repair: the paths through the `side` child of `up`, which may be
// the sentinel, have one black node too few. Gives the node to continue with, the root when the
// tree is right again.
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

// Removes the node, which has one child at most, from the tree and frees it.
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

// Removes the node's entry. A node with two children takes over the entry of its successor,
// and that node is removed instead.
void remove_entry(Rbtree *tree, Rbnode *node)
{
    if (node->left != kNil && node->right != kNil) {
        Rbnode *next = successor(node);
        move_entry(next, node);
        node = next;
    }
    splice_out(tree, node);
}

// Copies an entry to tree->removed, where the caller finds it when it is replaced or removed.
void remember(Rbtree *tree, const Rbnode *node)
{
    tree->removed.key = node->key;
    tree->removed.value = node->value;
}

// Sets the start of every node of a subtree, for keys that have so many bytes in common.
void set_starts(Rbnode *node, size_t common)
{
    for (; node != kNil; node = node->right) {
        set_starts(node->left, common);
        const char *text = text_of(node) + common;
        node->start = start_of({text, strnlen(text, kStartBytes)});
    }
}

// Lowers tree->common to the number of bytes that the text has in common with all keys; then
// all nodes get new starts. It never rises in a tree that is not empty, so this happens at
// most once for each byte of the first key.
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

// The place between the node that was inserted last and its successor; an empty KeyPlace when the
// key does not go there.
KeyPlace locate_behind_last(const Rbtree *tree, const TextOrder &order)
{
    Rbnode *last = tree->removed.up;
    if (last == kNil || order(last) <= 0)
        return {};
    if (last->right == kNil) {
        const Rbnode *next = successor(last);
        return next == kNil || order(next) < 0 ? KeyPlace{last, 1} : KeyPlace();
    }
    Rbnode *next = outermost<&Rbnode::left>(last->right);
    return order(next) < 0 ? KeyPlace{next, -1} : KeyPlace();
}

// Where a string is or goes. It counts as inserted: tree->common and the starts of all nodes
// are made to fit it, and whether it follows the last one is noted in removed.colour.
KeyPlace locate_new_text(std::string_view text, Rbtree *tree)
{
    share_start(tree, text);
    const uint32_t start = start_of(text.substr(static_cast<size_t>(tree->common)));
    const TextOrder order(text, tree, start);
    KeyPlace place = tree->removed.colour ? locate_behind_last(tree, order) : KeyPlace();
    if (place.node == kNil) {
        place = descend(tree, order);
        tree->removed.colour = place.node == tree->removed.up;
    }
    place.start = start;
    return place;
}

// Makes a node of the block and inserts it at the place.
Rbnode *add_entry(Rbtree *tree, void *block, void *key, void *value, const KeyPlace &place)
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

// A copy of the key with a zero byte behind it; null when allocate gives null.
char *copy_key(std::string_view key, stock::Allocate allocate)
{
    auto *copy = static_cast<char *>(allocate(key.size() + 1, "key"));
    if (copy)
        copy[key.copy(copy, key.size())] = 0;
    return copy;
}

// Replaces the value, and the key when the two texts differ, of a node in a tree that owns its
// keys. Gives the old value; null, with nothing changed, when there is no memory.
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

// The node that a mode of rblookup asks for, by the place of its key; kNil when there is none.
Rbnode *lookup(int mode, const KeyPlace &place)
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

Rbnode *const rb_null = kNil;

namespace stock {

void *get_text(const Rbtree *tree, std::string_view key)
{
    const KeyPlace place = locate_text(key, tree);
    return place.found() ? place.node->value : nullptr;
}

int compare_text(const void *a, const void *b)
{
    return std::strcmp(static_cast<const char *>(a), static_cast<const char *>(b));
}

void *set_text(Rbtree *tree, std::string_view key, void *value, Allocate allocate)
{
    const KeyPlace place =
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
    const KeyPlace place =
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
    const KeyPlace place = locate(key, tree);
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
