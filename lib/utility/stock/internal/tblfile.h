// What the list needs of its file image: a mapped list grows and ends differently.

#pragma once

#include <cstdint>

#include "stock/tbl.h"

namespace stock {

// Adds so many slots at the end of a mapped list's file and mapping. The slots
// and all that lies before them keep their addresses. Ends the process when the
// list was opened read-only, the disk is full or the addresses behind are taken.
// The caller counts the new slots in nalloc.
void extend_mapped(Tbl *tbl, std::int64_t slots);

// Ends the process when the list is mapped and was opened read-only.
void check_extensible(const Tbl *tbl);

// Ends a mapped list: its record when that is not part of the file, its
// descriptor and its mapping.
void release_mapped(Tbl *tbl);

}  // namespace stock
