// nomem: whether memory can be read. This one does not know and refuses no memory. A program
// that knows more defines a nomem of its own, which takes the place of this weak symbol.

#include "deviants.h"

__attribute__((weak)) void *nomem(const void *, int)
{
    return nullptr;
}
