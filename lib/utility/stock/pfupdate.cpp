// Trees that are read again when their files change.
//
// What was read last is kept by name and by the address of the caller's variable.
// A tree may be freed by whoever has it, and the variable may still point to it
// then. So that no new tree can come to lie at that address, the memory of the
// node is kept until the variable is given another tree: what the variable points
// to is the tree that was freed or one that is there to be freed, never in doubt.
//
// The tree that is replaced is freed last: while a file is read, the program's log
// function may look at it.

#include "stock/pf.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include "internal/alloc.h"
#include "internal/pfupdate.h"

// What one variable was given last. The trees are guarded by Trees_mutex, the rest by
// Update_mutex.
struct stock::State {
    Tbl *times;    // owned: of Pftime
    Pf *tree;      // the caller's; null when it was freed or grafted
    Pf *gone;      // what it was then; of a tree that was freed the memory is owned
    bool refused;  // the registry did not take the tree
};

namespace {

using stock::State;
using stock::Trees_mutex;
using stock::Updater;

constexpr int kKeySize = 1040;

// One update at a time. Its holder may take it again: reading reports to the log,
// and a program's own log function may update something in turn.
std::recursive_mutex Update_mutex;
Arr *States = nullptr;  // of State *, by name and variable; guarded by Update_mutex

State *state_of(const char *key)
{
    return static_cast<State *>(getarr(States, key));
}

State *new_state(const char *key)
{
    auto *state = static_cast<State *>(stock::allocate_zeroed(sizeof(State), "state", "pfupdate"));
    if (!States)
        States = rbinit(nullptr);
    setarr(States, key, state);
    if (state_of(key) != state)
        stock::out_of_memory(std::strlen(key) + 1, "state", "pfupdate");
    return state;
}

// The tree that the state has, unless there is no state or the tree is gone.
Pf *tree_of(const State *state)
{
    const std::scoped_lock lock(Trees_mutex);
    return state ? state->tree : nullptr;
}

bool same_files(const Tbl *a, const Tbl *b)
{
    if (a->count != b->count)
        return false;
    for (int64_t i = 0; i < a->count; ++i) {
        const auto *x = static_cast<const Pftime *>(gettbl(a, i));
        const auto *y = static_cast<const Pftime *>(gettbl(b, i));
        if (x->mtime != y->mtime || std::strcmp(x->path, y->path) != 0)
            return false;
    }
    return true;
}

// Whether a variable gave the tree, which was freed or grafted since.
bool is_gone(const Pf *pf)
{
    if (stock::number_of(pf) == stock::kFreed)
        return true;
    const stock::Known *known = stock::known_of(pf);
    return known && known->state && known->state->gone == pf;
}

// Leaves a tree, which lives, to whoever has it.
void leave(Pf *tree)
{
    if (stock::Known *known = tree ? stock::known_of(tree) : nullptr) {
        known->state = nullptr;
        stock::drop_unused(known);
    }
}

// Makes the tree the state's, in place of the one that it had. False without memory.
bool give(State *state, Pf *tree)
{
    leave(std::exchange(state->tree, nullptr));
    Pf *gone = std::exchange(state->gone, nullptr);
    if (gone && stock::number_of(gone) == stock::kFreed)
        std::free(gone);
    else
        leave(gone);
    stock::Known *known = stock::make_known(tree);
    if (!known)
        return false;
    known->state = state;
    state->tree = tree;
    return true;
}

stock::Update read_again(const char *name, Pf *const *pf, State *state, Updater updater)
{
    Pf *tree = nullptr;
    const int result = pfread(stock::lasting_name(name), &tree);
    std::unique_lock lock(Trees_mutex);
    // The variable is looked at late: an update during the reading may have set it.
    Pf *replaced = updater == Updater::variable ? *pf : nullptr;
    if (replaced && is_gone(replaced))
        replaced = nullptr;
    const bool given = give(state, tree);
    lock.unlock();
    if (!given)
        stock::out_of_memory(sizeof(stock::Known), "state", "pfupdate");
    state->refused = updater == Updater::registry && result != 0;
    return {result == 0 ? 1 : result, true, replaced};
}

// Whether what was read last from these files is still to be had.
bool is_current(const State *state, const Tbl *times, Updater updater)
{
    if (!state || !same_files(state->times, times))
        return false;
    return tree_of(state) || (updater == Updater::registry && state->refused);
}

}  // namespace

namespace stock {

void forget_grafted(const Pf *pf)
{
    const std::scoped_lock lock(Trees_mutex);
    Known *known = known_of(pf);
    if (!known)
        return;
    forget_entries(known);
    if (known->state && known->state->tree == pf)
        known->state->gone = std::exchange(known->state->tree, nullptr);
    drop_unused(known);
}

bool forget_freed(Pf *pf)
{
    const std::scoped_lock lock(Trees_mutex);
    Known *known = known_of(pf);
    if (!known)
        return false;
    forget_entries(known);
    State *state = std::exchange(known->state, nullptr);
    drop_unused(known);
    if (!state)
        return false;
    state->tree = nullptr;
    state->gone = pf;
    set_number(pf, kFreed);
    return true;
}

Update update_tree(const char *name, Pf **pf, Updater updater)
{
    Update update{-1, false, nullptr};
    if (!name || !pf)
        return update;
    char key[kKeySize];
    std::snprintf(key, sizeof key, "%s-%p", name, static_cast<void *>(pf));

    const std::scoped_lock lock(Update_mutex);
    State *state = state_of(key);
    Tbl *times = pftimes(name);
    if (times->count > 0 && is_current(state, times, updater)) {
        update.result = 0;
    } else if (times->count > 0) {
        if (!state)
            state = new_state(key);
        std::swap(state->times, times);
        update = read_again(name, pf, state, updater);
    }
    freetbl(times, pffree_time);
    *pf = tree_of(state);
    return update;
}

}  // namespace stock

int pfupdate(const char *name, Pf **pf)
{
    const stock::Update update = stock::update_tree(name, pf, Updater::variable);
    pffree(update.replaced);
    return update.result;
}
