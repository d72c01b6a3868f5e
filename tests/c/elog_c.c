/* The message log, called from plain C. */

#include "stock/elog.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

static int took;

static int take(int severity, const char *text, Tbl *stack)
{
    took = severity == 4 && stack->count == 1 && strstr(text, "why\n") && strstr(text, "x\n");
    return 1;
}

int main(int argc, char **argv)
{
    int count = 0;
    char *text = NULL;
    if (elog_init(argc, argv) != 0 || elog_set(ELOG_TAG_FIELD, -1, "%s") != 0)
        return 1;
    errno = ENOENT;
    elog_log(1, "can't open %s", "f");
    text = elog_string(0);
    if (errno != 0 || strcmp(text, "log: can't open f\n\tNo such file or directory\n") != 0)
        return 2;
    free(text);
    elog_flush(0, 0);
    if (elog_mark() != 0 || elog_query(6, 0, &count) != -1)
        return 3;
    elog_set(ELOG_CALLBACK_FN, 0, take);
    elog_set(ELOG_DELIVER_FIELD, 0, "log");
    elog_clear();
    elog_set(ELOG_CALLBACK_FN, 0, (Elog_callback)NULL);
    elog_log(0, "why");
    elog_set(ELOG_CALLBACK_FN, 0, take);
    elog_complain(0, "x");
    if (!took || elog_query(ELOG_COUNT, 0, &count) != 0 || count != 0)
        return 4;
    return strcmp(elog_severity(4), "complain") == 0 ? 0 : 5;
}
