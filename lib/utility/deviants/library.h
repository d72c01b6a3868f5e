// Where the shared libraries of the installation are.

#pragma once

#include "base/limits.h"

namespace stock {

// Writes the path that std_dlopen opens for the name. False when it does not fit.
bool library_path(const char *name, char (&path)[kPathSize]);

}  // namespace stock
