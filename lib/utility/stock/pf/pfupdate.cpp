// Trees that are read again when their files change.
//
// What was read last is kept by name and by the address of the caller's variable.
// A tree may be freed by whoever has it, and the variable may still point to it
// then. So that no new tree can come to lie at that address, the memory of the
// node is kept until the variable is given another tree: what the variable points
// to is the tree that was freed or one that is there to be freed, never in doubt.
//
// No lock is held while files are read: reading reports to the log, and a program's log
// function may update something in turn. Of readings for one variable at once the one
// that saw the later files gives it its tree; of those that saw the same files the one
// that is ready first, so that threads which share a variable are given one tree.
//
// The tree that is replaced is freed last: while a file is read, the program's log
// function may look at it.

#include "stock/pf.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include "base/alloc.h"
#include "pf/trees.h"

// What one variable was given last; under Trees_mutex.
struct stock::State {
    Tbl *times;       // owned: of Pftime
    Pf *tree;         // the caller's; null when it was freed or grafted
    Pf *gone;         // what it was then; of a tree that was freed the memory is owned
    bool refused;     // the registry did not take the tree
    int64_t reading;  // the last that was begun; times is of it
    int64_t given;    // the one that gave the last tree
};

namespace {

using stock::State;
using stock::Trees_mutex;
using stock::Updater;

constexpr int kKeySize = 1040;

Arr *States = nullptr;  // of State *, by name and variable; under Trees_mutex

State *state_of(const char *key)
{
    return static_cast<State *>(getarr(States, key));
}

// The state of the key, which takes the spare one when it is new. Null without memory.
State *make_state(const char *key, stock::Owned<State> &spare)
{
    if (State *state = state_of(key))
        return state;
    if (!States)
        States = rbinit(nullptr);
    setarr(States, key, spare.get());
    return state_of(key) == spare.get() ? spare.release() : nullptr;
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

// Begins to read files with these times, which the state has from now on. Gives the number
// of the reading, the same while nobody is ready with these files; or 0 without memory.
int64_t begin(State *state, Tbl *&times)
{
    if (!state)
        return 0;
    if (state->given < state->reading && same_files(state->times, times))
        return state->reading;
    std::swap(state->times, times);
    return ++state->reading;
}

// Whether another reading of the same files or of later ones has given its tree.
bool is_late(const State *state, int64_t reading)
{
    return state->given > reading || (state->given == reading && state->tree);
}

// Threads that share a variable may look at it when nothing changes.
void set_variable(Pf **pf, Pf *tree)
{
    if (*pf != tree)
        *pf = tree;
}

// Reads the files and gives the variable their tree, unless another reading was before it.
stock::Update read_again(const char *name, const char *key, Pf **pf, int64_t reading,
                         Updater updater)
{
    Pf *tree = nullptr;
    const int result = pfread(stock::lasting_name(name), &tree);
    std::unique_lock lock(Trees_mutex);
    State *state = state_of(key);
    const bool late = is_late(state, reading);
    Pf *replaced = nullptr;
    if (late)
        replaced = tree;
    // The variable is looked at late: an update during the reading may have set it.
    else if (updater == Updater::variable && *pf && !is_gone(*pf))
        replaced = *pf;
    const bool given = late || give(state, tree);
    if (given && !late) {
        state->given = reading;
        state->refused = updater == Updater::registry && result != 0;
    }
    set_variable(pf, state->tree);
    lock.unlock();
    if (!given)
        stock::out_of_memory(sizeof(stock::Known), "state", "pfupdate");
    return {result == 0 ? 1 : result, true, replaced};
}

// Whether what was read last from these files is still to be had.
bool is_current(const State *state, const Tbl *times, Updater updater)
{
    if (!state || times->count == 0 || !same_files(state->times, times))
        return false;
    return state->tree || (updater == Updater::registry && state->refused);
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

    Tbl *times = pftimes(name);
    Owned<State> spare(static_cast<State *>(allocate_zeroed(sizeof(State), "state", "pfupdate")));
    std::unique_lock lock(Trees_mutex);
    const State *state = state_of(key);
    const bool current = is_current(state, times, updater);
    const bool read = !current && times->count > 0;
    const int64_t reading = read ? begin(make_state(key, spare), times) : 0;
    if (!read)
        set_variable(pf, state ? state->tree : nullptr);
    lock.unlock();
    freetbl(times, pffree_time);
    if (current)
        update.result = 0;
    if (!read)
        return update;
    if (reading == 0)
        out_of_memory(std::strlen(key) + 1, "state", "pfupdate");
    return read_again(name, key, pf, reading, updater);
}

}  // namespace stock

int pfupdate(const char *name, Pf **pf)
{
    const stock::Update update = stock::update_tree(name, pf, Updater::variable);
    pffree(update.replaced);
    return update.result;
}
