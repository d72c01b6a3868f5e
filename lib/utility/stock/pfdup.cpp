// Deep copies of parameter trees.

#include "stock/pf.h"

#include <cstring>

#include "internal/alloc.h"
#include "internal/pfnode.h"
#include "stock/elog.h"

namespace {

int copy_entry(void *key, void *value, void *argument)
{
    setarr(static_cast<Arr *>(argument), static_cast<const char *>(key),
           pfdup(static_cast<const Pf *>(value)));
    return 0;
}

// Holes in the list stay holes.
void copy_elements(const Tbl *from, Tbl *to)
{
    for (int64_t i = 0; from && i < from->count; ++i)
        settbl(to, i, pfdup(static_cast<const Pf *>(gettbl(from, i))));
}

char *copy_bytes(std::string_view bytes)
{
    char *copy =
        static_cast<char *>(stock::allocate(bytes.size() + 1, "dup->value.pffunct->text", "pfdup"));
    std::memcpy(copy, bytes.data(), bytes.size());
    copy[bytes.size()] = 0;
    return copy;
}

}  // namespace

Pf *pfdup(const Pf *pf)
{
    if (!pf)
        return nullptr;
    Pf *dup = nullptr;
    switch (pf->type) {
    case PFFILE:
    case PFARR:
        dup = pfnew(pf->type);
        applyarr(pf->value.arr, copy_entry, dup->value.arr);
        break;
    case PFTBL:
        dup = pfnew(pf->type);
        copy_elements(pf->value.tbl, dup->value.tbl);
        break;
    case PFSTRING: dup = pf->value.s ? stock::new_text(pf->value.s) : pfnew(pf->type); break;
    case PFFUNCTION:
        dup = pfnew(pf->type);
        // Meant: the text of the copy is the record's own bytes, the first of which
        // are the address of the text: "&env(HOME)\n" gives about six bytes.
        if (pf->value.pffunct)
            dup->value.pffunct->text = copy_bytes(stock::record_as_text(pf->value.pffunct));
        break;
    case PFINVALID: dup = pfnew(pf->type); break;
    default: elog_die(0, "Bad type in pfdup : %d\n", pf->type);
    }
    return dup;
}
