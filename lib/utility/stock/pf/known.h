// The trees that the process knows: those that pfupdate gave to a variable and those
// of the registry.
//
// A known tree has a number, which stands in its member `known` and is its place in
// Known_trees.all. So pffree and pfput find out without a search, and for most trees without
// a lock, whether somebody must forget the tree. A number counts only for the tree that it
// was given to: a copied record, or one with any other number, is an unknown tree.
//
// Everything here is read and changed with Trees_mutex held, but for `known` itself: pffree
// reads it without the lock, and frees a known tree only after it had the lock.

#pragma once

#include <cstdint>

#include "pf/pf_state.h"
#include "stock/pf.h"

namespace stock {

// One name of the registry. A tree may have several; they are linked.
struct RegistryEntry {
    Pf *tree;          // null while the entry is moved from one tree to another
    int32_t number;    // of the tree
    const char *name;  // borrowed: the key in Known_trees.registry
    RegistryEntry *previous;
    RegistryEntry *next;
};

// What pfupdate gave last to one variable of the program.
struct UpdatedVariable {
    Tbl *times;       // owned: of Pftime, the files of the last reading that was begun
    Pf *tree;         // the caller's; null once it was freed or grafted
    Pf *gone;         // that tree then. Of one that was freed the block is owned
    bool refused;     // updatePf did not take the tree, for its files have faults
    bool failed;      // the last reading lacked a file that the system refused: read again
    int64_t reading;  // the number of the last reading that was begun
    int64_t given;    // the reading that gave the last tree
};

struct KnownTree {
    Pf *tree;                   // null while the number is free
    UpdatedVariable *variable;  // that the tree was given to, or null
    RegistryEntry *entries;     // the tree's names in the registry, or null
    int32_t next_free;          // the next number that is free, or 0
};

// `known` of a tree that was freed and whose block its UpdatedVariable keeps.
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

// The record of a known tree, or null. Valid until another tree becomes known.
KnownTree *known_of(const Pf *pf);

// The record by a number that was given to a tree and not given back. The tree's own
// `known` may have been overwritten, as when the program copied another record over it.
KnownTree *known_at(int32_t number);

// The record of the tree, which becomes known unless it was. Null without memory.
KnownTree *make_known(Pf *pf);

// Gives the number back when the tree has neither a variable nor a name.
void drop_unused(KnownTree *known);

// A copy of the name that lives as long as the process, for `filename` of a tree: the tree
// only borrows its name and may outlive the caller's. Called without Trees_mutex.
const char *lasting_name(const char *name);

}  // namespace stock
