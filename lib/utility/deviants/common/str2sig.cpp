// str2sig and sig2str: signals by name and by number.

#include "deviants.h"

#include <cstring>

int str2sig(const char *name, int *number)
{
    if (!name)
        return -1;
    if (!strncmp(name, "SIG", 3))
        name += 3;
    for (int i = 0; i < Nsig; ++i)
        if (!strcmp(Siglist[i].name, name)) {
            *number = Siglist[i].number;
            return 0;
        }
    return -1;
}

int sig2str(int number, char *buffer)
{
    *buffer = '\0';
    for (int i = 0; i < Nsig; ++i)
        if (Siglist[i].number == number) {
            strcpy(stpcpy(buffer, "SIG"), Siglist[i].name);
            return 0;
        }
    return -1;
}
