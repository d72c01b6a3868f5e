// The check that a time zone's name does not lead out of the directory of the zones.

#pragma once

#include <cstddef>
#include <cstring>

namespace stock {

// Whether no component of the name is empty, "." or "..". A colon before the name, as TZ has it
// before the name of a file, does not count.
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
