// Whether memory can be read: a system that cannot tell says nothing against it.

#include "deviants.h"

__attribute__((weak)) void *nomem(const void *, int)
{
    return nullptr;
}
