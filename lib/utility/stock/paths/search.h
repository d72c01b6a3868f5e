// Searching a list of paths for a file: what datasearch and the search for the running
// program have in common. Only datasearch has a list of its own to fall back on.

#pragma once

#include "base/alloc.h"
#include "stock/tbl.h"

namespace stock {

// Returns a new list of new strings, freed with freetbl(tbl, free): the paths that `name` may
// mean along `paths`, a list separated by ":", in the order of the list. A null or empty
// subdirectory is none. With `any`, paths that cannot be read count too.
Tbl *search_paths(Owned<char> paths, const char *subdir, const char *name, bool any);

// Takes the first string out of such a list and frees the rest. Null when there is none.
Owned<char> take_first(Tbl *found);

}  // namespace stock
