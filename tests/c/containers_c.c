/* Lists, sort, search, tree and array from plain C. */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "stock.h"

static int by_text(const void *a, const void *b, void *pvt)
{
    (void)pvt;
    return strcmp(*(char *const *)a, *(char *const *)b);
}

static int key_to_text(const void *key, const void *slot, void *pvt)
{
    (void)pvt;
    return strcmp((const char *)key, *(char *const *)slot);
}

static int by_int(const void *a, const void *b)
{
    return *(const int *)a - *(const int *)b;
}

static int lists(void)
{
    int64_t first = 0, last = 0, found;
    Tbl *tbl = strtbl("pear", "apple", "fig", (char *)0);
    char *joined;
    int right;
    sorttbl(tbl, by_text, 0);
    joined = jointbl(tbl, " ");
    found = searchtbl("fig", tbl, key_to_text, 0, &first, &last);
    right = !strcmp(joined, "apple fig pear") && found == 1 && first == 1 && last == 1;
    free(joined);
    freetbl(tbl, 0);
    return right;
}

static int trees(void)
{
    static int keys[] = {20, 10, 30};
    static int given = 15;
    Rbtree *tree = rbinit(by_int);
    int i, right;
    for (i = 0; i < 3; ++i)
        rbinsert(&keys[i], &keys[i], tree);
    right = rblookup(RB_GE, &given, tree) == &keys[0] && tree->root != rb_null;
    rbdestroy(tree);
    return right;
}

static int arrays(void)
{
    static char value[] = "value";
    Arr *arr = newarr(0);
    int right;
    setarr(arr, "key", value);
    right = getarr(arr, "key") == value && cntarr(arr) == 1 && delarr(arr, "key") == value;
    freearr(arr, 0);
    return right;
}

static int files(void)
{
    char path[] = "/tmp/stock.XXXXXX";
    const double sample = 2.5;
    Tbl *tbl = 0;
    int fd = mkstemp(path), right;
    if (fd < 0 || close(fd) != 0 || remove(path) != 0)
        return 0;
    right = filetbl(path, "samples", 4, 0, sizeof sample, &tbl) == 0;
    pushtbl(tbl, &sample);
    freetbl(tbl, 0);
    tbl = readtbl(path, 0, 0);
    right = right && tbl && tbl->count == 1 && *(double *)gettbl(tbl, 0) == sample;
    freetbl(tbl, 0);
    remove(path);
    return right;
}

int main(void)
{
    return lists() && trees() && arrays() && files() ? 0 : 1;
}
