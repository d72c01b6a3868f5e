// What Linux says of itself.

#include "system.h"

#include <unistd.h>

namespace stock {

const char *const kLibraryEnding = ".so";

bool program_file(char *buffer, unsigned size)
{
    const ssize_t length = readlink("/proc/self/exe", buffer, size);
    if (length <= 0 || length == static_cast<ssize_t>(size))
        return false;
    buffer[length] = '\0';
    return true;
}

}  // namespace stock
