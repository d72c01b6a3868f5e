// What pfupdate and the registry share, and what they must hear of: trees that are
// freed or become parts of others.

#pragma once

#include "pf/known.h"
#include "stock/pf.h"

namespace stock {

// Forgets a known tree that becomes a part of another, so that neither pfupdate nor
// the registry hands it out again.
void forget_grafted(const Pf *pf);

// Forgets a known tree that is freed. When it gives true the memory of the node itself
// is pfupdate's from now on, else the caller frees it.
bool forget_freed(Pf *pf);

// The registry's part of that, with Trees_mutex held.
void forget_entries(Known *known);

// Who updates, and what becomes of a tree that is replaced.
enum class Updater {
    variable,  // pfupdate: what the variable has is replaced
    registry,  // updatePf: takes only what was read without a fault, and frees the earlier
};

struct Update {
    int result;    // of pfupdate
    bool read;     // a tree was read and is in the variable
    Pf *replaced;  // what a program's variable had before, for the caller to free; or null
};

// pfupdate, but what it would free is left to the caller.
Update update_tree(const char *name, Pf **pf, Updater updater);

// A copy of the name that lives as long as the program: a tree only borrows its name,
// and one that is shared or read again outlives the caller's.
const char *lasting_name(const char *name);

}  // namespace stock
