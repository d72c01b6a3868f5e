// The suite's shared libraries, from the installation root.

#include "deviants.h"

#include <cstdio>

#include <dlfcn.h>

#include "deviants/library.h"
#include "deviants/system.h"
#include "stock/gettaluvine.h"

bool stock::library_path(const char *name, char *path)
{
    const int length = *name == '/' ? snprintf(path, kLibraryPathSize, "%s", name)
                                    : snprintf(path, kLibraryPathSize, "%s/lib/lib%s%s",
                                               gettaluvine(), name, stock::kLibraryEnding);
    return length >= 0 && length < kLibraryPathSize;
}

void *std_dlopen(const char *name)
{
    char path[stock::kLibraryPathSize];
    return name && stock::library_path(name, path) ? dlopen(path, RTLD_LAZY) : nullptr;
}
