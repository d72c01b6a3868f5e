/*
 * Example of a list, an array and the log in C: sorts the tasks of a day, and reports what could
 * not be done, with all reasons.
 */

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "stock.h"

static int by_name(const void *a, const void *b, void *pvt)
{
    (void)pvt;
    return strcmp(*(char *const *)a, *(char *const *)b);
}

/* This function knows the reason of the failure, so it logs the reason. Nothing is printed yet. */
static int open_archive(const char *path)
{
    FILE *stream = fopen(path, "r");
    if (!stream) {
        elog_log(1, "can't open %s", path);
        return -1;
    }
    fclose(stream);
    return 0;
}

int main(int argc, char **argv)
{
    elog_init(argc, argv);

    Tbl *tasks = strtbl("sweep", "archive", "measure", NULL);
    sorttbl(tasks, by_name, NULL);

    Arr *minutes = newarr(NULL);
    setarr(minutes, "archive", "30");
    setarr(minutes, "measure", "10");

    for (int64_t i = 0; i < tasks->count; i++) {
        const char *task = gettbl(tasks, i);
        const char *time = getarr(minutes, task);
        printf("%s: %s minutes\n", task, time ? time : "no");
    }

    /* The caller decides that the failure matters and complains: the reasons are printed first. */
    if (open_archive("/nowhere/archive.dat") < 0)
        elog_complain(0, "the archive is left out");

    freearr(minutes, NULL);
    freetbl(tasks, NULL);
    return 0;
}
