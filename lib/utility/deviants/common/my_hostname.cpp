// my_hostname: the name of this host up to its first point.

#include "deviants.h"

#include <cstring>

#include <sys/utsname.h>

int my_hostname(char *buffer)
{
    struct utsname system;
    const int result = uname(&system);
    if (result < 0) {
        *buffer = '\0';
        return result;
    }
    const size_t length = strcspn(system.nodename, ".");
    memcpy(buffer, system.nodename, length);
    buffer[length] = '\0';
    return 0;
}
