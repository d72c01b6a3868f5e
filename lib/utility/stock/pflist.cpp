// The registry of loaded parameter files, by name.

#include "stock/pf.h"

#include <mutex>
#include <utility>

#include "internal/pfupdate.h"

namespace {

std::mutex Pflist_mutex;
Arr *Pflist = nullptr;  // of Pf *, made on first use

// Registers the tree and gives the one that had its name.
Pf *exchange(const char *name, Pf *pf)
{
    const std::scoped_lock lock(Pflist_mutex);
    if (!Pflist)
        Pflist = newarr(nullptr);
    return static_cast<Pf *>(setarr(Pflist, name, pf));
}

Pf *taken_out(const char *name)
{
    const std::scoped_lock lock(Pflist_mutex);
    return Pflist ? static_cast<Pf *>(delarr(Pflist, name)) : nullptr;
}

}  // namespace

Pf *existsPf(const char *name)
{
    const std::scoped_lock lock(Pflist_mutex);
    return Pflist ? static_cast<Pf *>(getarr(Pflist, name)) : nullptr;
}

Pf *getPf(const char *name)
{
    if (Pf *known = existsPf(name))
        return known;
    Pf *pf = nullptr;
    if (pfread(name, &pf) != 0) {
        pffree(pf);
        return nullptr;
    }
    exchange(name, pf);
    return pf;
}

void putPf(const char *name, Pf *pf)
{
    Pf *earlier = exchange(name, pf);
    if (earlier != pf)
        pffree(earlier);
}

void putPf_nofree(const char *name, Pf *pf)
{
    exchange(name, pf);
}

int updatePf(const char *name)
{
    Pf *pf = getPf(name);
    if (!pf)
        return -1;
    bool read = false;
    const int result = stock::update_tree(name, &pf, &read);
    // What was read takes the place of the registered tree, which is freed. Otherwise
    // that one stays, whatever tree of the name was read before it.
    if (read)
        exchange(name, pf);
    return result;
}

int freePf(const char *name)
{
    Pf *pf = taken_out(name);
    pffree(pf);
    return pf ? 0 : -1;
}
