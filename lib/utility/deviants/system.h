// Small questions that each system answers in its own way: SYSTEM/system.cpp defines them.

#pragma once

#include <cstddef>
#include <cstdint>

namespace stock {

// How the file name of a shared library ends, dot included.
extern const char *const kLibraryEnding;

// Writes the path of the running program's file into a buffer of size bytes. False when the
// system does not tell it or it does not fit.
bool program_file(char *buffer, unsigned size);

// The load address of the program or library that holds the address: what was added to the
// addresses in its file. Null when none holds it.
const void *loaded_at(const void *address);

// One line of a stack trace.
struct Frame {
    int index;  // from 0
    const void *address;
    const char *image;   // the program or library that holds it, or null
    const char *name;    // of the function; null when it has no symbol
    std::size_t offset;  // from the function's start, without a symbol from loaded_at
};

// Prints the frame as the system's backtrace_symbols does. Returns what snprintf returns.
int frame_text(const Frame &frame, char *buffer, std::size_t size);

// Reserves disk space for so many bytes behind the end of a file, so that writing them through
// a mapping cannot fail. False, with errno set, when the disk has not that much; the file may
// then have grown or not.
bool take_disk_space(int fd, std::int64_t end, std::int64_t bytes);

// A variable of the environment that decides which files are read or run. Null when it is not
// set, and in a process that has more rights than whoever started it, such as a set-user-id
// program: there the environment is a stranger's.
const char *trusted_env(const char *name);

// Renames a file unless a file of the new name exists. False, with errno set, when the file
// keeps its old name.
bool rename_new(const char *from, const char *to);

// Sets of vector instructions; each has all of those before it.
enum class Vectors { none, sse41, avx2, avx512 };

// The widest set that this processor has. May be called before main.
Vectors widest_vectors();

}  // namespace stock
