// The program's name, as the start-up code of the C library recorded it.

#include "deviants.h"

extern "C" char *__progname;

char *getexecname(void)
{
    return __progname;
}
