// The table of known trees, and what becomes of a known tree that is freed or grafted.
//
// This file stands below pffree and pfput, which tell it of such trees, and below pflist
// and pfupdate, which make trees known.

#include "pf/known.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include "base/alloc.h"
#include "pf/node.h"

namespace stock {

namespace {

bool grow_table()
{
    const int32_t room = std::max(2 * Known_trees.room, 16);
    void *grown = std::realloc(Known_trees.all, static_cast<std::size_t>(room) * sizeof(KnownTree));
    if (!grown)
        return false;
    Known_trees.all = static_cast<KnownTree *>(grown);
    Known_trees.room = room;
    return true;
}

// A number that no tree has, or 0 without memory.
int32_t new_number()
{
    if (const int32_t number = Known_trees.first_free) {
        Known_trees.first_free = known_at(number)->next_free;
        return number;
    }
    return Known_trees.count < Known_trees.room || grow_table() ? ++Known_trees.count : 0;
}

// Takes every name of the tree out of the registry.
void forget_entries(KnownTree *known)
{
    while (RegistryEntry *entry = known->entries) {
        known->entries = entry->next;
        delarr(Known_trees.registry, entry->name);
        std::free(entry);
    }
}

}  // namespace

KnownTree *known_at(int32_t number)
{
    return &Known_trees.all[number - 1];
}

KnownTree *known_of(const Pf *pf)
{
    const int32_t number = number_of(pf);
    if (number < 1 || number > Known_trees.count)
        return nullptr;
    KnownTree *known = known_at(number);
    return known->tree == pf ? known : nullptr;
}

KnownTree *make_known(Pf *pf)
{
    if (KnownTree *known = known_of(pf))
        return known;
    const int32_t number = new_number();
    if (number == 0)
        return nullptr;
    KnownTree *known = known_at(number);
    *known = {pf, nullptr, nullptr, 0};
    set_number(pf, number);
    return known;
}

void drop_unused(KnownTree *known)
{
    if (known->variable || known->entries)
        return;
    if (known_of(known->tree) == known)
        set_number(known->tree, 0);
    known->tree = nullptr;
    known->next_free = Known_trees.first_free;
    Known_trees.first_free = static_cast<int32_t>(known - Known_trees.all) + 1;
}

bool forget_tree(Pf *pf, Fate fate)
{
    const std::scoped_lock lock(Trees_mutex);
    KnownTree *known = known_of(pf);
    if (!known)
        return false;
    forget_entries(known);
    UpdatedVariable *variable = known->variable;
    if (variable && (fate == Fate::freed || variable->tree == pf)) {
        variable->tree = nullptr;
        variable->gone = pf;
    }
    if (fate == Fate::grafted) {  // stays known while it is a variable's
        drop_unused(known);
        return false;
    }
    known->variable = nullptr;
    drop_unused(known);
    if (variable)
        set_number(pf, kFreed);
    return variable != nullptr;
}

const char *lasting_name(const char *name)
{
    std::unique_lock lock(Trees_mutex);
    if (!Known_trees.names)
        Known_trees.names = rbinit(nullptr);
    if (!rbfind(name, Known_trees.names))
        setarr(Known_trees.names, name, nullptr);
    const auto *lasting = static_cast<const char *>(rbfind(name, Known_trees.names));
    lock.unlock();
    if (name && !lasting)
        out_of_memory(std::strlen(name) + 1, "name", "getPf");
    return lasting;
}

}  // namespace stock
