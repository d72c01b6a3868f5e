// getexecname: the program's name, as the C library's start-up code recorded it.

#include "deviants.h"

extern "C" char *__progname;

char *getexecname(void)
{
    return __progname;
}
