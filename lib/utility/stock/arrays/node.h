// What the associative array and the parameter trees use of the tree.

#pragma once

#include <cstddef>
#include <string_view>

#include "stock/redblack.h"

namespace stock {

// The order of a tree that was made without one: that of strcmp.
int compare_text(const void *a, const void *b);

// Whether the keys are strings in that order.
inline bool holds_text(const Rbtree *tree)
{
    return tree->compare == compare_text;
}

// The value under a key of such a tree, or null. The key need not end with a zero byte.
void *get_text(const Rbtree *tree, std::string_view key);

// Gives a block for the item, which free takes; null, or the end of the process, without
// memory.
using Allocate = void *(*)(std::size_t bytes, const char *item);

// Stores the value under a copy of the key, a block of its own. A key that is there
// keeps its node, and its copy is freed for the new one, unless both are the same text.
// A zero byte stands behind the key, none in it.
// Returns the value that the key had; null of a new key, and without memory, when
// nothing is stored.
void *set_text(Rbtree *tree, std::string_view key, void *value, Allocate allocate);

}  // namespace stock
