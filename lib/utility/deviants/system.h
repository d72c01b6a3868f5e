// What each system says of itself, for the code that all systems share; each has
// its own system.cpp. The signal table of deviants.h is there as well.

#pragma once

#include <cstdint>

namespace stock {

// How the file name of a shared library ends, dot included.
extern const char *const kLibraryEnding;

// Writes the path of the running program's file into a buffer of size bytes. False
// when the system does not say or the path does not fit.
bool program_file(char *buffer, unsigned size);

// Takes disk space for so many bytes of a file from its end on, so that they can
// be written to through a mapping. False, with errno set, when there is none; the
// file may then have grown or not.
bool take_disk_space(int fd, std::int64_t end, std::int64_t bytes);

// Sets of vector instructions; each has all of those before it.
enum class Vectors { none, sse41, avx2, avx512 };

// The widest that this processor runs. May be asked before main.
Vectors widest_vectors();

}  // namespace stock
