// What each system says of itself, for the code that all systems share; each has
// its own system.cpp.

#pragma once

#include <cstddef>
#include <cstdint>

namespace stock {

// How the file name of a shared library ends, dot included.
extern const char *const kLibraryEnding;

// Writes the path of the running program's file into a buffer of size bytes. False
// when the system does not say or the path does not fit.
bool program_file(char *buffer, unsigned size);

// What was added to the addresses of the image that holds this one when it was loaded.
const void *loaded_at(const void *address);

// What a stack says of one address. Without a symbol the name is null and the offset
// counts from loaded_at.
struct Frame {
    int index;
    const void *address;
    const char *image;  // null when the address is in none
    const char *name;
    std::size_t offset;
};

// Lays the frame out as the system's backtrace_symbols does. Returns what snprintf does.
int frame_text(const Frame &frame, char *buffer, std::size_t size);

// Takes disk space for so many bytes of a file from its end on, so that they can
// be written to through a mapping. False, with errno set, when there is none; the
// file may then have grown or not.
bool take_disk_space(int fd, std::int64_t end, std::int64_t bytes);

// Renames a file unless there is one of the new name. False, with errno set, when it
// keeps its name.
bool rename_new(const char *from, const char *to);

// Sets of vector instructions; each has all of those before it.
enum class Vectors { none, sse41, avx2, avx512 };

// The widest that this processor runs. May be asked before main.
Vectors widest_vectors();

}  // namespace stock
