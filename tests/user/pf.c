/* A user library with a function for parameter files. */

#include "stock.h"

Pf *pfuser(const char *text);

/* "&left(2)" gives the function "&left(1)", and "&left(0)" gives the text "end". */
Pf *pfuser(const char *text)
{
    char next[] = "&left(0)\n";
    Pf *table = pfnew(PFARR);
    Pf *result;

    if (text[6] == '0') {
        pfput_string(table, "k", "end");
    } else {
        next[6] = (char)(text[6] - 1);
        pfput(table, "k", next, PFFUNCTION);
    }
    result = pfdel(table, "k");
    pffree(table);
    return result;
}
