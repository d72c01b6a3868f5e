// What the dumps of memory share: which memory may be read, what is printed in place of memory
// that may not, and how a dump reaches a stream.

#pragma once

#include <cstdint>
#include <cstdio>
#include <string_view>

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

// A gatherer's sink: writes the text to a stream.
struct ToStream {
    std::FILE *stream;

    void operator()(std::string_view text) const
    {
        std::fwrite(text.data(), 1, text.size(), stream);
    }
};

}  // namespace stock
