// The nodes behind the public ones, for the array that is built on the tree.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "internal/slab.h"
#include "stock/redblack.h"

namespace stock {

// A node of rbinsert is a block of its own. A node of setarr lies behind its
// key's text, which is filled up with zeros to a multiple of eight bytes, in one
// block that begins with the key: who frees the key frees the node, and where
// only the node is to go it stays until its key does. Such a block may also lie in
// a slab; its key is never the caller's to free.
//
// Which of them a node is stands in the four bytes behind its colour that no field
// uses: 0 for a node of its own, else kBehindKey, and with it in a slab the distance
// to the slab's record.
constexpr std::size_t kMark = offsetof(Rbnode, colour) + sizeof(int);
static_assert(sizeof(Rbnode) == 48 && offsetof(Rbnode, key) == kMark + sizeof(uint32_t));

constexpr uint32_t kBehindKey = uint32_t{1} << 31;

inline uint32_t mark_of(const Rbnode *node)
{
    uint32_t mark = 0;
    std::memcpy(&mark, reinterpret_cast<const char *>(node) + kMark, sizeof mark);
    return mark;
}

inline void set_mark(Rbnode *node, uint32_t mark)
{
    std::memcpy(reinterpret_cast<char *>(node) + kMark, &mark, sizeof mark);
}

inline bool behind_key(const Rbnode *node)
{
    return mark_of(node) != 0;
}

// How far it is to the record of the node's slab; 0 when it is in none.
inline uint32_t distance_of(const Rbnode *node)
{
    return mark_of(node) & ~kBehindKey;
}

inline void free_node(Rbnode *node)
{
    if (!behind_key(node))
        std::free(node);
}

inline void free_with_key(Rbnode *node)
{
    void *key = node->key;
    if (const uint32_t distance = distance_of(node))
        return release_block(key, distance);
    free_node(node);
    std::free(key);
}

// How many words a key of that length and its node take.
constexpr std::size_t words_behind_key(std::size_t length)
{
    return length / kWord + 1 + sizeof(Rbnode) / kWord;
}

// Makes a key and its node in a block of that size; distance is that of the slab, or 0.
Rbnode *make_node(char *block, std::string_view key, void *value, uint32_t distance);

// The order of a tree that was made without one: that of strcmp.
int compare_text(const void *a, const void *b);

// Whether the keys are strings in that order.
inline bool holds_text(const Rbtree *tree)
{
    return tree->compare == compare_text;
}

// The value under a key of such a tree, or null. The key need not end with a zero byte.
void *get_text(const Rbtree *tree, std::string_view key);

// Stores the value under a copy of the key. Returns the value that the key had
// before, or null.
void *set_text(Rbtree *tree, const char *key, void *value);

// The same of a key and value that have a node already. Where the key is there
// already, it keeps its own.
void *set_node(Rbtree *tree, Rbnode *node);

// Removes the key and frees it. Returns its value, or null.
void *take_out(Rbtree *tree, const char *key);

}  // namespace stock
