/*
 * A list, an array and the log, in C: sorts the tasks of the day and reports
 * what could not be done, with the whole chain of reasons.
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

/* Whoever knows the reason logs it; nothing is printed yet. */
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

    /* Whoever decides that it matters complains, and the reasons come out in order. */
    if (open_archive("/nowhere/archive.dat") < 0)
        elog_complain(0, "the archive is left out");

    freearr(minutes, NULL);
    freetbl(tasks, NULL);
    return 0;
}
