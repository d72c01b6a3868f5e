// What the list needs of its file image: a mapped list grows and ends differently.

#pragma once

#include <cstdint>

#include "stock/tbl.h"

namespace stock {

// Ends the process when the list is mapped and was opened read-only.
void check_extensible(const Tbl *tbl);

// Adds so many slots, zero bytes, at the end of a mapped list's file and mapping.
// All slots keep their addresses; the caller counts the new ones in nalloc. Ends
// the process when the disk is full or the addresses behind are taken.
void extend_mapped(Tbl *tbl, std::int64_t slots);

// Ends a mapped list: its record when that is not part of the file, its
// descriptor and its mapping.
void release_mapped(Tbl *tbl);

}  // namespace stock
