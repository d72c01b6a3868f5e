// The nodes behind the public ones, for the array that is built on the tree.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "stock/redblack.h"

namespace stock {

// A node of rbinsert is a block of its own. A node of setarr lies behind its
// key's text, which is filled up with zeros to a multiple of eight bytes, in one
// block that begins with the key: who frees the key frees the node, and where
// only the node is to go it stays until its key does.
//
// How many words of text lie in front of a node, 0 for a node of its own, is kept
// in the four bytes behind its colour that no field uses.
constexpr std::size_t kTextWords = offsetof(Rbnode, colour) + sizeof(int);
static_assert(sizeof(Rbnode) == 48 && offsetof(Rbnode, key) == kTextWords + sizeof(uint32_t));

inline uint32_t text_words(const Rbnode *node)
{
    uint32_t words = 0;
    std::memcpy(&words, reinterpret_cast<const char *>(node) + kTextWords, sizeof words);
    return words;
}

inline void set_text_words(Rbnode *node, uint32_t words)
{
    std::memcpy(reinterpret_cast<char *>(node) + kTextWords, &words, sizeof words);
}

inline void free_node(Rbnode *node)
{
    if (text_words(node) == 0)
        std::free(node);
}

inline void free_with_key(Rbnode *node)
{
    void *key = node->key;
    free_node(node);
    std::free(key);
}

// Stores the value under a copy of the key. Returns the value that the key had
// before, or null.
void *set_text(Rbtree *tree, const char *key, void *value);

}  // namespace stock
