// The registry of loaded parameter files, by name.

#include "stock/pf.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include "base/alloc.h"
#include "pf/trees.h"

// A name and its tree, one of the list of all names of the tree.
struct stock::Entry {
    Pf *tree;
    int32_t number;    // of the tree, as long as it has this name
    const char *name;  // borrowed: the key in Pflist
    Entry *previous;
    Entry *next;
};

namespace {

using stock::Entry;
using stock::Known;
using stock::Trees_mutex;

// Both are made on first use and guarded by Trees_mutex.
Arr *Pflist = nullptr;  // of Entry *
Arr *Names = nullptr;   // of nothing: the names that trees were read by

// The entry of the name; null when there is none. A new one takes what is spare.
Entry *entry_of(const char *name, stock::Owned<Entry> &spare)
{
    if (!Pflist)
        Pflist = rbinit(nullptr);
    if (auto *entry = static_cast<Entry *>(getarr(Pflist, name)))
        return entry;
    setarr(Pflist, name, spare.get());
    auto *entry = static_cast<Entry *>(getarr(Pflist, name));
    if (entry)
        spare.release()->name = static_cast<const char *>(rbfind(name, Pflist));
    return entry;
}

// Takes the entry from the list of its tree. Gives the tree.
Pf *detach(Entry *entry)
{
    Pf *tree = std::exchange(entry->tree, nullptr);
    if (!tree)
        return nullptr;
    Known *known = stock::known_at(entry->number);
    (entry->previous ? entry->previous->next : known->entries) = entry->next;
    if (entry->next)
        entry->next->previous = entry->previous;
    stock::drop_unused(known);
    return tree;
}

// False without memory.
bool attach(Entry *entry, Pf *tree)
{
    Known *known = stock::make_known(tree);
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

// Takes the tree of the name out of the registry.
Pf *taken_out(const char *name)
{
    const std::scoped_lock lock(Trees_mutex);
    const stock::Owned<Entry> entry(Pflist ? static_cast<Entry *>(delarr(Pflist, name)) : nullptr);
    return entry ? detach(entry.get()) : nullptr;
}

// Registers the tree and gives the one that had its name. Running out of memory must
// find the lock free: what ends then may free trees.
Pf *exchange(const char *name, Pf *pf)
{
    if (!name || !pf)
        return taken_out(name);
    stock::Owned<Entry> spare(
        static_cast<Entry *>(stock::allocate_zeroed(sizeof(Entry), "name", "putPf")));
    std::unique_lock lock(Trees_mutex);
    Entry *entry = entry_of(name, spare);
    Pf *earlier = entry ? detach(entry) : nullptr;
    const bool registered = entry && attach(entry, pf);
    lock.unlock();
    if (!registered)
        stock::out_of_memory(std::strlen(name) + 1, "name", "putPf");
    return earlier;
}

}  // namespace

void stock::forget_entries(Known *known)
{
    while (Entry *entry = known->entries) {
        known->entries = entry->next;
        delarr(Pflist, entry->name);
        std::free(entry);
    }
}

const char *stock::lasting_name(const char *name)
{
    std::unique_lock lock(Trees_mutex);
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
    const std::scoped_lock lock(Trees_mutex);
    const auto *entry = Pflist ? static_cast<const Entry *>(getarr(Pflist, name)) : nullptr;
    return entry ? entry->tree : nullptr;
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
    const stock::Update update = stock::update_tree(name, &pf, stock::Updater::registry);
    if (!update.read)
        return update.result;
    // Only the registered tree is freed, not the one that was in the variable: that may
    // have been freed or given away meanwhile.
    if (update.result == 1)
        putPf(name, pf);
    else
        pffree(pf);
    return update.result;
}

int freePf(const char *name)
{
    Pf *pf = taken_out(name);
    pffree(pf);
    return pf ? 0 : -1;
}
