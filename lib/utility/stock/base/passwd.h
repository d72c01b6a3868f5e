// Entries of the password list, of any length.

#pragma once

#include <cerrno>
#include <cstddef>

#include <pwd.h>

#include "base/alloc.h"

namespace stock {

// Calls look(entry, buffer, size, found), which are the arguments of getpwnam_r and getpwuid_r
// behind the first, with larger and larger buffers until the entry fits. Then calls use(entry),
// or nothing when there is no entry.
template <class Look, class Use>
void with_passwd(Look look, Use use)
{
    char first[1024];  // fits nearly every entry without an allocation
    Owned<char> larger;
    char *buffer = first;
    std::size_t size = sizeof first;
    for (;;) {
        struct passwd entry;
        struct passwd *found = nullptr;
        const int result = look(&entry, buffer, size, &found);
        if (result == 0 && found)
            return use(*found);
        if (result != ERANGE)
            return;
        size *= 2;
        larger.reset(static_cast<char *>(allocate(size, "entry", "with_passwd")));
        buffer = larger.get();
    }
}

}  // namespace stock
