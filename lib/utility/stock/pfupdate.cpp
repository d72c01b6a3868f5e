// Trees that are read again when their files change.
//
// What was read last is kept by name and by the address of the caller's variable.
// A tree may be freed by whoever has it, so every free of one is told here; a
// state without its tree is as good as none.

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
};

// One update at a time. Its holder may take it again: reading reports to the log,
// and a program's own log function may update something in turn.
std::recursive_mutex Update_mutex;
std::mutex States_mutex;  // the trees of the states; held for moments only
Arr *States = nullptr;    // of State *, by name and variable

State *state_of(const char *key)
{
    const std::scoped_lock lock(States_mutex);
    if (!States)
        States = newarr(nullptr);
    return static_cast<State *>(getarr(States, key));
}

State *new_state(const char *key)
{
    auto *state = static_cast<State *>(stock::allocate_zeroed(sizeof(State), "state", "pfupdate"));
    const std::scoped_lock lock(States_mutex);
    setarr(States, key, state);
    return state;
}

int forget(void *, void *value, void *tree)
{
    auto *state = static_cast<State *>(value);
    if (state->tree == tree)
        state->tree = nullptr;
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

// Reads the name anew in place of the tree that the caller has.
int read_again(const char *name, Pf **pf, State *state)
{
    pffree(std::exchange(*pf, nullptr));
    Pf *tree = nullptr;
    const int result = pfread(name, &tree);
    pffree(std::exchange(*pf, nullptr));  // of an update during the reading
    const std::scoped_lock lock(States_mutex);
    state->tree = tree;
    return result == 0 ? 1 : result;
}

}  // namespace

namespace stock {

void forget_tree(const Pf *pf)
{
    const std::scoped_lock lock(States_mutex);
    if (States)
        applyarr(States, forget, const_cast<Pf *>(pf));
}

int update_tree(const char *name, Pf **pf, bool *read)
{
    *read = false;
    if (!name || !pf)
        return -1;
    char key[kKeySize];
    std::snprintf(key, sizeof key, "%s-%p", name, static_cast<void *>(pf));

    const std::scoped_lock lock(Update_mutex);
    State *state = state_of(key);
    Tbl *times = pftimes(name);
    int result = -1;
    if (times->count > 0 && state && state->tree && same_files(state->times, times)) {
        result = 0;
    } else if (times->count > 0) {
        if (!state)
            state = new_state(key);
        std::swap(state->times, times);
        result = read_again(name, pf, state);
        *read = true;
    }
    freetbl(times, pffree_time);
    *pf = state ? state->tree : nullptr;
    return result;
}

}  // namespace stock

int pfupdate(const char *name, Pf **pf)
{
    bool read = false;
    return stock::update_tree(name, pf, &read);
}
