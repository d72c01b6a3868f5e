// Which names of time zones are safe to give to the system.

#pragma once

#include <cstddef>
#include <cstring>

namespace stock {

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
