// Where the suite's shared libraries are.

#pragma once

namespace stock {

constexpr int kLibraryPathSize = 1024;

// Writes the path that std_dlopen opens for the name into a buffer of
// kLibraryPathSize bytes. False when it does not fit.
bool library_path(const char *name, char *path);

}  // namespace stock
