/* Times read and printed from plain C. */

#include "stock/str2epoch.h"

#include <stdlib.h>
#include <string.h>

#include "deviants.h"
#include "stock/time.h"

int main(void)
{
    double epoch = 0;
    if (zstr2epoch("2008-02-01 12:30:15.5", &epoch) != 0 || epoch != 1201869015.5)
        return 1;
    if (is_epoch_string("no time", &epoch) || str2epoch("5") != 5 || !is_timezone("UTC"))
        return 2;
    char *text = epoch2str("%G %T", 1201869015.5);
    const int same = strcmp(text, "2008-02-01 12:30:15.500");
    free(text);
    char buf[FMTTIME_SIZE];
    return same || fmttime(buf, 4, NULL, 0) || strcmp(buf, "1970-001") ||
           strcmp(ordinal(22), "nd") || strcmp(Week[0], "Monday");
}
