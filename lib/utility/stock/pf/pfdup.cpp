// Deep copies of parameter trees.
//
// A tree may be deeper than the stack, so a container is copied empty, with the node that it
// copies put on a list, and pfdup fills the containers of that list until none is left.

#include "stock/pf.h"

#include <cstddef>

#include "arrays/node.h"
#include "base/alloc.h"
#include "pf/node.h"
#include "stock/elog.h"

namespace {

// A container, and its copy to be filled.
struct EmptyCopy {
    const Pf *from;
    Pf *to;
    Tbl *waiting;  // of EmptyCopy: where copies of inner containers are put
};

Pf *copied(const Pf *pf, Tbl *waiting);

// setarr would leave the entry out when there is no memory for its key.
int copy_entry(void *key, void *value, void *argument)
{
    const auto allocate_part = [](std::size_t bytes, const char *item) {
        return stock::allocate(bytes, item, "pfdup");
    };
    const auto *copy = static_cast<const EmptyCopy *>(argument);
    stock::set_text(copy->to->value.arr, static_cast<const char *>(key),
                    copied(static_cast<const Pf *>(value), copy->waiting), allocate_part);
    return 0;
}

// Holes in the list stay holes.
void copy_elements(const EmptyCopy &copy)
{
    const Tbl *from = copy.from->value.tbl;
    for (int64_t i = 0; from && i < from->count; ++i)
        settbl(copy.to->value.tbl, i,
               copied(static_cast<const Pf *>(gettbl(from, i)), copy.waiting));
}

void fill(EmptyCopy copy)
{
    if (copy.from->type == PFTBL)
        copy_elements(copy);
    else
        applyarr(copy.from->value.arr, copy_entry, &copy);
}

// A copy of the node. That of a container is empty and put on the list.
Pf *copied(const Pf *pf, Tbl *waiting)
{
    if (!pf)
        return nullptr;
    Pf *dup = nullptr;
    switch (pf->type) {
    case PFFILE:
    case PFARR:
    case PFTBL: {
        dup = pfnew(pf->type);
        const EmptyCopy copy{pf, dup, waiting};
        pushtbl(waiting, &copy);
        break;
    }
    case PFSTRING:
        dup = pf->value.s ? stock::new_text(pf->value.s, "pfdup") : pfnew(pf->type);
        break;
    case PFFUNCTION:
        dup = pfnew(pf->type);
        // Meant: the text of the copy is the record's own bytes, the first of which
        // are the address of the text: "&env(HOME)\n" gives about six bytes.
        if (pf->value.pffunct)
            dup->value.pffunct->text = stock::copy_view(stock::record_as_text(pf->value.pffunct),
                                                        "dup->value.pffunct->text", "pfdup");
        break;
    case PFINVALID: dup = pfnew(pf->type); break;
    default: elog_die(0, "Bad type in pfdup : %d\n", pf->type);
    }
    return dup;
}

}  // namespace

Pf *pfdup(const Pf *pf)
{
    Tbl *waiting = inittbl(0, 0, 1, nullptr, sizeof(EmptyCopy));
    Pf *dup = copied(pf, waiting);
    while (waiting->count > 0)
        fill(*static_cast<const EmptyCopy *>(poptbl(waiting)));
    freetbl(waiting, nullptr);
    return dup;
}
