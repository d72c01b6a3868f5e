// The registry of loaded parameter files, by name.
//
// The registry maps a name to an entry, and the record of each known tree links the entries
// that have the tree (known.h), so that freeing a tree finds its names without a search.

#include "stock/pf.h"

#include <cstring>
#include <mutex>
#include <utility>

#include "base/alloc.h"
#include "pf/known.h"
#include "pf/pfupdate.h"

namespace {

using stock::Known_trees;
using stock::KnownTree;
using stock::RegistryEntry;
using stock::Trees_mutex;

// The entry of the name, or null. Trees_mutex is held.
RegistryEntry *entry_of(const char *name)
{
    Arr *registry = Known_trees.registry;
    return registry ? static_cast<RegistryEntry *>(getarr(registry, name)) : nullptr;
}

// The entry of the name; a new name takes `spare` as its entry. Null without memory.
RegistryEntry *make_entry(const char *name, stock::Owned<RegistryEntry> &spare)
{
    if (!Known_trees.registry)
        Known_trees.registry = rbinit(nullptr);
    if (RegistryEntry *entry = entry_of(name))
        return entry;
    setarr(Known_trees.registry, name, spare.get());
    RegistryEntry *entry = entry_of(name);
    if (entry)
        spare.release()->name = static_cast<const char *>(rbfind(name, Known_trees.registry));
    return entry;
}

// Takes the entry from the list of its tree. Returns the tree.
Pf *detach(RegistryEntry *entry)
{
    Pf *tree = std::exchange(entry->tree, nullptr);
    if (!tree)
        return nullptr;
    KnownTree *known = stock::known_at(entry->number);
    (entry->previous ? entry->previous->next : known->entries) = entry->next;
    if (entry->next)
        entry->next->previous = entry->previous;
    stock::drop_unused(known);
    return tree;
}

// Puts the entry into the list of the tree. False without memory.
bool attach(RegistryEntry *entry, Pf *tree)
{
    KnownTree *known = stock::make_known(tree);
    if (!known)
        return false;
    entry->tree = tree;
    entry->number = stock::number_of(tree);
    entry->previous = nullptr;
    entry->next = std::exchange(known->entries, entry);
    if (entry->next)
        entry->next->previous = entry;
    return true;
}

// Takes the name out of the registry. Returns its tree, or null.
Pf *take_out(const char *name)
{
    const std::scoped_lock lock(Trees_mutex);
    if (!Known_trees.registry)
        return nullptr;
    const stock::Owned<RegistryEntry> entry(
        static_cast<RegistryEntry *>(delarr(Known_trees.registry, name)));
    return entry ? detach(entry.get()) : nullptr;
}

// Registers the tree under the name; a null tree takes the name out. Returns the tree that
// had the name. Running out of memory is reported without the lock: what the report runs
// may free trees.
Pf *exchange(const char *name, Pf *pf)
{
    if (!name || !pf)
        return take_out(name);
    stock::Owned<RegistryEntry> spare(static_cast<RegistryEntry *>(
        stock::allocate_zeroed(sizeof(RegistryEntry), "name", "putPf")));
    std::unique_lock lock(Trees_mutex);
    RegistryEntry *entry = make_entry(name, spare);
    Pf *earlier = entry ? detach(entry) : nullptr;
    const bool registered = entry && attach(entry, pf);
    lock.unlock();
    if (!registered)
        stock::out_of_memory(std::strlen(name) + 1, "name", "putPf");
    return earlier;
}

}  // namespace

Pf *existsPf(const char *name)
{
    const std::scoped_lock lock(Trees_mutex);
    const RegistryEntry *entry = entry_of(name);
    return entry ? entry->tree : nullptr;
}

Pf *getPf(const char *name)
{
    if (Pf *registered = existsPf(name))
        return registered;
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
    const stock::Update update = stock::update_tree(name, &pf, stock::Updater::registry);
    if (!update.read)
        return update.result;
    // Only the registered tree is freed, by putPf, not the one that getPf gave: another
    // thread may have freed that or given it away meanwhile.
    if (update.result == 1)
        putPf(name, pf);
    else
        pffree(pf);
    return update.result;
}

int freePf(const char *name)
{
    Pf *pf = take_out(name);
    pffree(pf);
    return pf ? 0 : -1;
}
