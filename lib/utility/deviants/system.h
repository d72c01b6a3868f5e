// What each system says of itself, for the code that all systems share; each has
// its own system.cpp. The signal table of deviants.h is there as well.

#pragma once

#include <ctime>

struct stat;

namespace stock {

// How the file name of a shared library ends, dot included.
extern const char *const kLibraryEnding;

// When the file was last written to, as exactly as the system tells.
timespec modification_time(const struct stat &status);

// Writes the path of the running program's file into a buffer of size bytes. False
// when the system does not say or the path does not fit.
bool program_file(char *buffer, unsigned size);

}  // namespace stock
