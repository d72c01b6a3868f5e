// Printing one value of a parameter file.
//
// This stands above both the reading of files and the evaluation of values, which know
// nothing of each other here: pfget needs no pfread, and pfread no pfget.

#include "stock/pf.h"

#include <cstdio>

#include "stock/elog.h"
#include "stock/strings.h"

void pfprint(const char *name, const char *address)
{
    Pf *pf = nullptr;
    if (pfread(name, &pf) != 0)
        elog_complain(1, "Can't read parameter file %s", okstr(name));
    else if (const char *text = pfget_string(pf, address))
        std::puts(text);
    else
        elog_complain(0, "no entry '%s' in parameter file %s", okstr(address), okstr(name));
    pffree(pf);
}
