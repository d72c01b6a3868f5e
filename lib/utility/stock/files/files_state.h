// The state of the process that the questions to files and the mappings of files keep.

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "base/limits.h"
#include "base/ordered_lock.h"
#include "stock/arr.h"

namespace stock {

// Held while a directory is read, one lock for each public function; fstraverse shares that
// of directory. No thread holds two of them.
struct DirectoryLocks {
    OrderedLock is_empty{Place::directory};
    OrderedLock dirfiles{Place::directory};
    OrderedLock directory{Place::directory};
};
extern DirectoryLocks directory_locks;

// The mappings that functions of mapfile make without a cache of the caller's own, and two
// counts that all caches share.
struct MappedFiles {
    OrderedLock lock{Place::mappings};
    Arr *cache = nullptr;         // from name to Mapdata, guarded by lock; made by the first call
                                  // that needs it, freed by unmaparr(NULL)
    std::atomic<int> uses{0};     // the number of the last mapping or reuse; wraps around
    std::atomic<int> granted{0};  // mappings that vmapfile may make before it asks the system
                                  // again how many it would give
};
extern MappedFiles mapped_files;

// What lmapfile mapped last, guarded by lock; unmapped by the next lmapfile. Size -1: nothing.
struct LastView {
    OrderedLock lock{Place::view};
    void *address = nullptr;
    std::int64_t size = -1;
    char file[kPathSize] = "";  // for the message that unmapping it failed; a longer name is cut
};
extern LastView last_view;

}  // namespace stock
