// What pfupdate and the registry share, and what pfupdate must hear of: trees that
// are freed.

#pragma once

#include "stock/pf.h"

namespace stock {

// Forgets the tree, which is about to be freed or to become a part of another, so that
// neither pfupdate nor the registry hands it out again.
void forget_tree(const Pf *pf);

// The registry's part of that.
void forget_registered(const Pf *pf);

struct Update {
    int result;    // of pfupdate
    bool read;     // a tree was read and is in the variable
    Pf *replaced;  // what the variable had before, for the caller to free; or null
};

// pfupdate, but what it would free is left to the caller.
Update update_tree(const char *name, Pf **pf);

// A copy of the name that lives as long as the program: a tree only borrows its name,
// and one that is shared or read again outlives the caller's.
const char *lasting_name(const char *name);

}  // namespace stock
