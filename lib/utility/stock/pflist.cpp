// The registry of loaded parameter files, by name.

#include "stock/pf.h"

#include <cstring>
#include <mutex>

#include "internal/alloc.h"
#include "internal/pfupdate.h"

namespace {

std::mutex Pflist_mutex;
Arr *Pflist = nullptr;  // of Pf *, made on first use
Arr *Names = nullptr;   // of nothing: the names that trees were read by

// Registers the tree and gives the one that had its name. Running out of memory must
// find the lock free: what ends then may free trees.
Pf *exchange(const char *name, Pf *pf)
{
    std::unique_lock lock(Pflist_mutex);
    if (!Pflist)
        Pflist = rbinit(nullptr);
    auto *earlier = static_cast<Pf *>(setarr(Pflist, name, pf));
    const bool registered = getarr(Pflist, name) == pf;
    lock.unlock();
    if (name && !registered)
        stock::out_of_memory(std::strlen(name) + 1, "name", "putPf");
    return earlier;
}

Pf *taken_out(const char *name)
{
    const std::scoped_lock lock(Pflist_mutex);
    return Pflist ? static_cast<Pf *>(delarr(Pflist, name)) : nullptr;
}

struct Search {
    const void *tree;
    const char *name;  // of the last one found
};

int look_at(void *key, void *tree, void *argument)
{
    auto *search = static_cast<Search *>(argument);
    if (tree == search->tree)
        search->name = static_cast<const char *>(key);
    return 0;
}

// A name of the tree, or null.
const char *name_of(const Pf *pf)
{
    Search search{pf, nullptr};
    applyarr(Pflist, look_at, &search);
    return search.name;
}

}  // namespace

void stock::forget_registered(const Pf *pf)
{
    const std::scoped_lock lock(Pflist_mutex);
    while (const char *name = name_of(pf))
        delarr(Pflist, name);
}

const char *stock::lasting_name(const char *name)
{
    std::unique_lock lock(Pflist_mutex);
    if (!Names)
        Names = rbinit(nullptr);
    if (!rbfind(name, Names))
        setarr(Names, name, nullptr);
    const auto *lasting = static_cast<const char *>(rbfind(name, Names));
    lock.unlock();
    if (name && !lasting)
        stock::out_of_memory(std::strlen(name) + 1, "name", "getPf");
    return lasting;
}

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
    if (pfread(stock::lasting_name(name), &pf) != 0) {
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
    const stock::Update update = stock::update_tree(name, &pf);
    // What was read takes the place of the registered tree. Only that one is freed: the
    // one replaced may have been freed or given away meanwhile. When nothing was read
    // the registered one stays, whatever tree of the name was read before it.
    if (update.read)
        putPf(name, pf);
    return update.result;
}

int freePf(const char *name)
{
    Pf *pf = taken_out(name);
    pffree(pf);
    return pf ? 0 : -1;
}
