// The suite's shared libraries, from the installation root.

#include "deviants.h"

#include <cstdio>

#include <dlfcn.h>

#include "stock/gettaluvine.h"
#include "system.h"

void *std_dlopen(const char *name)
{
    if (!name)
        return nullptr;
    if (*name == '/')
        return dlopen(name, RTLD_LAZY);
    char path[1024];
    const int length =
        snprintf(path, sizeof path, "%s/lib/lib%s%s", gettaluvine(), name, stock::kLibraryEnding);
    if (length < 0 || length >= static_cast<int>(sizeof path))
        return nullptr;
    return dlopen(path, RTLD_LAZY);
}
