// Where the shared libraries of the installation are.

#pragma once

#include "base/limits.h"

namespace stock {

inline constexpr std::size_t kLibraryPathSize = kPathSize;

// Writes the path that std_dlopen opens for the name into a buffer of kPathSize bytes. False
// when it does not fit.
bool library_path(const char *name, char *path);

}  // namespace stock
