// Trees that are read again when their files change.
//
// What was read last is kept by name and by the address of the caller's variable.
// A tree may be freed by whoever has it, so every free of one is told here; a
// state without its tree is as good as none. The tree that is replaced is freed
// last: while a file is read, the program's log function may look at it.

#include "stock/pf.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include "internal/alloc.h"
#include "internal/pfupdate.h"

namespace {

constexpr int kKeySize = 1040;

// What one variable was given last.
struct State {
    Tbl *times;  // owned: of Pftime
    Pf *tree;    // the caller's; null when it was freed
    Pf *freed;   // what it was then, which the variable may still point to
};

// One update at a time. Its holder may take it again: reading reports to the log,
// and a program's own log function may update something in turn.
std::recursive_mutex Update_mutex;
std::mutex States_mutex;  // the trees of the states; held for moments only
Arr *States = nullptr;    // of State *, by name and variable

State *state_of(const char *key)
{
    const std::scoped_lock lock(States_mutex);
    return static_cast<State *>(getarr(States, key));
}

// Running out of memory must find the lock free: what ends then may free trees.
State *new_state(const char *key)
{
    auto *state = static_cast<State *>(stock::allocate_zeroed(sizeof(State), "state", "pfupdate"));
    std::unique_lock lock(States_mutex);
    if (!States)
        States = rbinit(nullptr);
    setarr(States, key, state);
    const bool kept = getarr(States, key) == state;
    lock.unlock();
    if (!kept)
        stock::out_of_memory(std::strlen(key) + 1, "state", "pfupdate");
    return state;
}

// The tree that the state has, unless there is no state or the tree was freed.
Pf *tree_of(const State *state)
{
    const std::scoped_lock lock(States_mutex);
    return state ? state->tree : nullptr;
}

int forget(void *, void *value, void *tree)
{
    auto *state = static_cast<State *>(value);
    if (state->tree == tree)
        state->freed = std::exchange(state->tree, nullptr);
    return 0;
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

stock::Update read_again(const char *name, Pf *const *pf, State *state)
{
    Pf *tree = nullptr;
    const int result = pfread(stock::lasting_name(name), &tree);
    const std::scoped_lock lock(States_mutex);
    state->tree = tree;
    Pf *freed = std::exchange(state->freed, nullptr);
    // The variable is looked at late: an update during the reading may have set it.
    return {result == 0 ? 1 : result, true, *pf != freed ? *pf : nullptr};
}

}  // namespace

namespace stock {

void forget_tree(const Pf *pf)
{
    forget_registered(pf);
    const std::scoped_lock lock(States_mutex);
    applyarr(States, forget, const_cast<Pf *>(pf));
}

Update update_tree(const char *name, Pf **pf)
{
    Update update{-1, false, nullptr};
    if (!name || !pf)
        return update;
    char key[kKeySize];
    std::snprintf(key, sizeof key, "%s-%p", name, static_cast<void *>(pf));

    const std::scoped_lock lock(Update_mutex);
    State *state = state_of(key);
    Tbl *times = pftimes(name);
    if (times->count > 0 && tree_of(state) && same_files(state->times, times)) {
        update.result = 0;
    } else if (times->count > 0) {
        if (!state)
            state = new_state(key);
        std::swap(state->times, times);
        update = read_again(name, pf, state);
    }
    freetbl(times, pffree_time);
    *pf = tree_of(state);
    return update;
}

}  // namespace stock

int pfupdate(const char *name, Pf **pf)
{
    const stock::Update update = stock::update_tree(name, pf);
    pffree(update.replaced);
    return update.result;
}
