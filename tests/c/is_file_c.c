/* Questions about files, listings and walks, from plain C. */

#include "stock/is_file.h"

#include <stdlib.h>
#include <string.h>

static int count(const char *path, const struct stat *status, void *argument)
{
    int *calls = argument;
    (void)path;
    (void)status;
    return ++*calls > 0;
}

int main(int argc, char **argv)
{
    char dir[1024];
    Arr *dirs, *files;
    Tbl *names;
    char *slash;
    int calls = 0;
    if (argc < 1 || strlen(argv[0]) >= sizeof dir || !is_executable_file(argv[0]))
        return 1;
    strcpy(dir, argv[0]);
    slash = strrchr(dir, '/');
    if (!slash || !is_filename(argv[0]))
        return 2;
    *slash = '\0';
    if (!is_dir(dir) || is_empty(dir) || filesize(argv[0]) <= 0 || filetime(argv[0]) <= 0)
        return 3;
    names = dirfiles(dir, 1);
    if (directory(dir, &dirs, &files) != 0 || cntarr(files) != names->count)
        return 4;
    if (getarr(files, slash + 1) == NULL)
        return 5;
    freetbl(names, free);
    freearr(dirs, free);
    freearr(files, free);
    return fstraverse(dir, FSTRAVERSE_NO_DIRS, count, &calls) == calls && calls > 0 ? 0 : 6;
}
