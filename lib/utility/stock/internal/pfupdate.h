// What pfupdate must hear of: trees that are freed.

#pragma once

#include "stock/pf.h"

namespace stock {

// Forgets the tree, which is about to be freed, so that it is never handed out again.
void forget_tree(const Pf *pf);

// pfupdate; read tells whether the caller's tree was freed and one was read in its place.
int update_tree(const char *name, Pf **pf, bool *read);

}  // namespace stock
