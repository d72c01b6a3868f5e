/* Declared parameters from plain C: rows of a table in columns and by name. */

#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "stock.h"

typedef struct Limit {
    double mm;
    char *who;
} Limit;

static double interval;
static int keep, verbose, mode, port;
static int64_t room;
static char *state;
static Tbl *gauges, *watch;
static Arr *limits;

static const Pfwant LimitWants[] = {
    {"mm", PFWANT_DOUBLE(PFWANT_AT(Limit, mm)), PFWANT_REQUIRED, 0, 1000, "rain"},
    {"who", PFWANT_TEXT(PFWANT_AT(Limit, who)), "nobody", 0, 0, "who is told"},
    PFWANT_END,
};

static const Pfwant Wants[] = {
    {"interval", PFWANT_DURATION(&interval), "10 s", 0.1, 3600, "from sample to sample"},
    {"keep", PFWANT_INT(&keep), "100", 1, 1e6, "samples that are kept"},
    {"verbose", PFWANT_BOOLEAN(&verbose), "no", 0, 0, "tell more"},
    {"mode", PFWANT_WORD(&mode, "slow fast"), "slow", 0, 0, "how"},
    {"room", PFWANT_SIZE(&room), "64 KiB", 0, 0, NULL},
    {"gauges", PFWANT_LIST(&gauges, PFWANT_TEXT), "north\nsouth", 0, 0, "what is read"},
    {"watch", PFWANT_WORDS(&watch, "north south"), "", 0, 0, "what is watched"},
    {"limits", PFWANT_RECORDS(&limits, LimitWants, Limit), "", 0, 0, "limits by gauge"},
    {.address = "state", .kind = PFWANT_TEXT, .value = &state, .fallback = "/tmp/state"},
    {.address = "net{port}", .kind = PFWANT_INT, .value = &port, .fallback = "80", .high = 65535},
    {0},
};

int main(int argc, char **argv)
{
    Pf *pf = NULL;
    elog_init(argc, argv);
    if (pfcompile("keep 5\nmode fast\nlimits &Arr{\nnorth &Arr{\nmm 3\n}\n}\n", &pf) != 0)
        return 1;
    if (pfwant(pf, Wants) != 0 || keep != 5 || mode != 1 || interval != 10 || room != 65536)
        return 2;
    if (strcmp(state, "/tmp/state") != 0 || port != 80 || gauges->count != 2 || watch->count != 0)
        return 3;
    const Limit *north = getarr(limits, "north");
    if (!north || north->mm != 3 || strcmp(north->who, "nobody") != 0)
        return 4;
    if (pfget_int_or(pf, "keep", 1) != 5 || pfget_duration_or(pf, "interval", 2.5) != 2.5)
        return 5;
    if (strcmp(pfget_string_or(pf, "title", "none"), "none") != 0)
        return 6;
    if (pfset(pf, "keep", "none") != 0 || pfwant(pf, Wants) != -1 || keep != 5)
        return 7;
    elog_clear();
    if (pffollow("no such file", Wants) != -1 || pffollowed("no such file", Wants))
        return 8;
    elog_clear();
    FILE *stream = tmpfile();
    if (pfwant_print(Wants, stream) != 0 || ftell(stream) < 500)
        return 9;
    fclose(stream);
    pffree(pf);
    pfwant_free(Wants);
    return state || gauges || limits ? 10 : 0;
}
