// Entries of the password list, of any length.

#pragma once

#include <cerrno>
#include <cstddef>

#include <pwd.h>

#include "base/alloc.h"

namespace stock {

// Calls look as getpwnam_r and getpwuid_r are called behind their first argument, with as
// large a buffer as the entry needs, and then use(entry) when there is one.
template <class Look, class Use>
void with_passwd(Look look, Use use)
{
    char first[1024];
    Owned<char> larger;
    char *text = first;
    std::size_t size = sizeof first;
    for (;;) {
        struct passwd entry;
        struct passwd *found = nullptr;
        const int result = look(&entry, text, size, &found);
        if (result == 0 && found)
            return use(*found);
        if (result != ERANGE)
            return;
        size *= 2;
        larger.reset(static_cast<char *>(allocate(size, "entry", "with_passwd")));
        text = larger.get();
    }
}

}  // namespace stock
