// std_dlopen: loads a shared library of the installation.

#include "deviants.h"

#include <cstdio>

#include <dlfcn.h>

#include "deviants/library.h"
#include "deviants/system.h"
#include "stock/gettaluvine.h"

bool stock::library_path(const char *name, char (&path)[kPathSize])
{
    const int length = *name == '/' ? snprintf(path, kPathSize, "%s", name)
                                    : snprintf(path, kPathSize, "%s/lib/lib%s%s", gettaluvine(),
                                               name, kLibraryEnding);
    return length >= 0 && static_cast<std::size_t>(length) < kPathSize;
}

void *std_dlopen(const char *name)
{
    char path[stock::kPathSize];
    return name && stock::library_path(name, path) ? dlopen(path, RTLD_LAZY) : nullptr;
}
