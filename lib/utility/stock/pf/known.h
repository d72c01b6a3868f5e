// The trees that pfupdate gave or that the registry has, each under the number in its
// member `known`: both forget a tree that is freed, and find it without a search.
//
// A number counts only for the tree that it was given to, so a copied record, or one
// with any other number, is a tree that nobody knows. All of this is read and changed
// with Trees_mutex held, but for `known` itself: pffree looks at it without the lock,
// and whoever frees a known tree waits for the lock before the memory goes.

#pragma once

#include <cstdint>
#include <mutex>

#include "base/ordered_lock.h"
#include "stock/pf.h"

namespace stock {

struct State;  // of a variable of pfupdate
struct Entry;  // of a name of the registry

struct Known {
    Pf *tree;        // null while the number is free
    State *state;    // the one that gave the tree, or null
    Entry *entries;  // the names of the tree, linked; or null
    int32_t next_free;
};

// Held for moments only, and never while memory runs out: what ends then may free trees.
extern OrderedLock Trees_mutex;

// `known` of a tree that was freed and whose block pfupdate keeps.
constexpr int32_t kFreed = -1;

// The C++ library of macOS has no atomic_ref.
inline int32_t number_of(const Pf *pf)
{
    return __atomic_load_n(&pf->known, __ATOMIC_ACQUIRE);
}

inline void set_number(Pf *pf, int32_t number)
{
    __atomic_store_n(&pf->known, number, __ATOMIC_RELEASE);
}

// What is known of the tree, or null. Valid until another tree becomes known.
Known *known_of(const Pf *pf);

// The same by a number that was given to a tree and not given back: for who must find it
// when the program has written another record over the tree's, with another `known`.
Known *known_at(int32_t number);

// The same, and makes the tree known. Null without memory.
Known *make_known(Pf *pf);

// Gives the tree's number back when neither a state nor an entry is left.
void drop_unused(Known *known);

}  // namespace stock
