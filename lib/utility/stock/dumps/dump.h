// What the dumps of memory share: which memory may be read, and what is printed in place of
// memory that may not.

#pragma once

#include <cstdint>
#include <cstdio>

#include "deviants.h"

namespace stock {

// Whether the n bytes at p must not be touched. *answer is set to what nomem said of them.
inline bool unreadable(const void *p, int n, const void **answer = nullptr)
{
    const void *said = nomem(p, n);
    if (answer)
        *answer = said;
    return said || (!p && n > 0);
}

constexpr std::size_t kNoMemorySize = 40;  // "no memory at ", 16 digits, newline, terminator

// Writes the text that stands in place of the dump of unreadable memory.
inline void no_memory(char (&text)[kNoMemorySize], const void *p)
{
    std::snprintf(text, sizeof text, "no memory at %lx\n",
                  static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(p)));
}

}  // namespace stock
