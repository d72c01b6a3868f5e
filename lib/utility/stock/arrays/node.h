// Shared: what associative arrays and parameter trees ask of the red-black tree beyond its
// public functions. They look up and store string keys without a call through the comparison.

#pragma once

#include <cstddef>
#include <string_view>

#include "stock/redblack.h"

namespace stock {

// The comparison of a tree that was made without one: strcmp.
int compare_text(const void *a, const void *b);

// Whether the tree's keys are strings in the order of strcmp.
inline bool holds_text(const Rbtree *tree)
{
    return tree->compare == compare_text;
}

// The value under a key of a tree for which holds_text is true, or null. The key need not end
// with a zero byte.
void *get_text(const Rbtree *tree, std::string_view key);

// Allocates a block that free takes. Without memory it gives null or ends the process with a
// message that names the item.
using Allocate = void *(*)(std::size_t bytes, const char *item);

// Stores the value under a copy of the key; the tree owns the copy, a block of its own. When
// the tree has an equal key, its node gets the new value, and the new copy too if the two texts
// differ (an own comparison may call different texts equal). The key has no zero byte in it,
// and one behind it.
//
// Returns the value that the key had. Returns null when the key is new, or when allocate gave
// null and nothing is stored.
void *set_text(Rbtree *tree, std::string_view key, void *value, Allocate allocate);

}  // namespace stock
