// Shared: lists whose slots lie in a mapped file: mapping the file, growing it, closing it.
//
// A list is mapped when its mapaddr is not null. Which bytes of the file are what is known
// to files/tblfile only.

#pragma once

#include <cstdint>

#include "stock/tbl.h"

namespace stock {

// Maps a whole file of `length` bytes. Behind a writable mapping addresses are reserved, so
// that the file can grow without moving. Null with errno when it cannot be mapped.
char *map_list_file(int fd, std::int64_t length, bool writable);

// Ends the process when the list is mapped and was opened read-only.
void check_extensible(const Tbl *tbl);

// Lengthens the file and the mapping of a mapped list by `slots` slots of zero bytes. No
// slot moves; the caller adds the new ones to nalloc. When it will move the entries too
// (`moves`), the file with its new length is on the disk first, so that a power failure does not
// take entries away that were there before. Without that, such a failure costs the new entries
// alone, which nobody was promised: opening the list takes what is whole. Ends the process when
// the list is read-only, the disk is full or the addresses that follow are in use.
void extend_mapped(Tbl *tbl, std::int64_t slots, bool moves);

// Closes a mapped list: frees what lies outside the file, closes its descriptor, which
// gives up the writer's lock, and unmaps it. Logs a complaint when unmapping fails.
void release_mapped(Tbl *tbl);

}  // namespace stock
