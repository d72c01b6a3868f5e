// Parameters that a program declares in a table: read into its variables, and freed.

#include "stock/pfwant.h"

#include "pf/want.h"

static_assert(sizeof(Pfwant) == 80);

int pfwant(Pf *pf, const Pfwant *wants)
{
    return wants ? stock::want::read_wants(pf, wants, nullptr) : -1;
}

void pfwant_free(const Pfwant *wants)
{
    if (!wants)
        return;
    stock::want::forget_follower(wants);
    for (const Pfwant *row = wants; row->address; ++row)
        if (stock::want::is_owner(row->kind) && row->value)
            stock::want::free_value(*row, row->value);
}
