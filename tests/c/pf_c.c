/* Parameter text from plain C: read, look, copy, write. */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "stock/pf.h"

int main(void)
{
    Pf *pf = NULL;
    if (pfcompile("host example.org # where\nports &Tbl{\n80\n443\n}\n", &pf) != 0)
        return 1;
    if (pfcompile_counted("host localhost\nrest", 14, &pf) != 0)
        return 2;
    const Pf *host = getarr(pf->value.arr, "host");
    if (pf->type != PFFILE || host->type != PFSTRING || strcmp(host->value.s, "localhost") != 0)
        return 3;

    Pf *copy = pfdup(pf);
    pffree(pf);
    char *text = pf2string(copy);
    if (strcmp(text, "host\tlocalhost\nports\t&Tbl{\n80\n443\n}\n") != 0)
        return 4;
    free(text);
    pffree(copy);

    text = str2pf("a#b");
    if (strcmp(text, "a\\#b") != 0)
        return 5;
    free(text);

    FILE *stream = tmpfile();
    fputs("key &env(HOME)\n", stream);
    rewind(stream);
    pf = NULL;
    if (pfin(stream, &pf) != 0)
        return 6;
    const Pf *key = getarr(pf->value.arr, "key");
    if (key->type != PFFUNCTION || strcmp(key->value.pffunct->text, "&env(HOME)\n") != 0)
        return 7;
    pffree(pf);
    fclose(stream);

    char path[1024];
    int line = 0;
    setenv("PFPATH", "/nowhere", 1);
    if (pfwhere("rain", "north", path, &line) != -1)
        return 8;
    return 0;
}
