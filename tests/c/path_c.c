/* Paths from C. */

#include <stdlib.h>
#include <string.h>

#include "stock.h"

int main(void)
{
    char path[1024], dir[1024], base[1024], suffix[1024];
    char *joined = concatpaths("/a", "b", "../c", NULL);
    int ok = cleanpath("./y", 0, path) == 0;

    ok = ok && !strcmp(path, "y");
    ok = ok && !strcmp(joined, "/a/c");
    ok = ok && relpath("/", "/usr/lib", path) == 0 && !strcmp(path, "usr/lib");
    ok = ok && abspath("/usr/.", path) == 0 && !strcmp(path, "/usr");
    ok = ok && parsepath("/d/f.c", dir, base, suffix) == suffix;
    ok = ok && !strcmp(dir, "/d") && !strcmp(base, "f") && !strcmp(suffix, "c");
    dirbase("/x", dir, base);
    ok = ok && !strcmp(dir, "/") && samepath("/a/..", "/");
    ok = ok && make_pathdirs("file") == 0;
    free(joined);
    return ok ? 0 : 1;
}
