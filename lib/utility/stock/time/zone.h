// What is shared by those who work in a time zone for a moment.

#pragma once

#include <cstring>
#include <mutex>

#include "base/ordered_lock.h"

namespace stock {

// Held from switchTZ to restoreTZ by everybody inside the library, and by who changes
// the environment otherwise; a thread may take it again. Nothing is logged with it held:
// what ends the process gives it up first.
RecursiveLock &zone_lock();

// Whether a zone's name stays inside the directory of the zones: no component is
// empty, "." or "..". A colon before the name, which says that it is one, does not count.
inline bool stays_inside_zones(const char *name)
{
    for (name += *name == ':';; ++name) {
        const std::size_t length = std::strcspn(name, "/");
        if (length == 0 || (length <= 2 && std::strncmp(name, "..", length) == 0))
            return false;
        name += length;
        if (!*name)
            return true;
    }
}

}  // namespace stock
