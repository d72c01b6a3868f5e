/* The installation root and the data search from C. */

#include <stdlib.h>
#include <string.h>

#include "stock.h"

int main(void)
{
    char *found;
    Tbl *shells;

    puttaluvine("/some/root");
    if (strcmp(gettaluvine(), "/some/root") || strcmp(Taluvine_path, "/some/root"))
        return 1;
    setenv("SHELLS", "/nosuchdir:/bin", 1);
    found = datafile("SHELLS", "sh");
    if (!found || strcmp(found, "/bin/sh"))
        return 1;
    free(found);
    if (datapath("SHELLS", "nosuchdir", "sh", "x"))
        return 1;
    shells = datasearch("/bin:/nosuchdir", NULL, "sh", DATASEARCH_EXPAND | DATASEARCH_ANY);
    if (shells->count != 1 || strcmp(gettbl(shells, 0), "/bin/sh"))
        return 1;
    freetbl(shells, free);
    return 0;
}
