// What each system says of itself: constants and tables that the code shared by
// all systems (common/) works with. Each system's system.cpp defines them.

#pragma once

namespace stock {

// How the file name of a shared library ends, dot included.
extern const char *const kLibraryEnding;

// The running program's own file, as the system knows it, into a buffer of size
// bytes. False when the system does not say or the path does not fit.
bool program_file(char *buffer, unsigned size);

}  // namespace stock
