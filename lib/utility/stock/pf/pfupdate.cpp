// Trees that are read again when their files change.
//
// For each pair of a name and a caller's variable an UpdatedVariable keeps the times of the
// files that were read and the tree that the variable was given. The caller may free that
// tree while the variable still points to it. The block of its node is therefore kept until
// the variable is given another tree: no new tree can lie at that address, so the variable
// points either to the tree that was freed or to one that is there to be freed.
//
// No lock is held while files are read, for reading reports to the log, and a program's log
// function may call pfupdate in turn. When several readings for one variable run at once,
// the one that saw the later files gives its tree; of those that saw the same files the
// first to be ready does, so that threads which share a variable get one tree.
//
// The tree that is replaced is freed last: while the files are read, the program's log
// function may still look at it.

#include "stock/pf.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include "base/alloc.h"
#include "base/limits.h"
#include "pf/known.h"
#include "pf/pfupdate.h"

namespace {

using stock::Known_trees;
using stock::KnownTree;
using stock::Trees_mutex;
using stock::UpdatedVariable;
using stock::Updater;

// Of "NAME-ADDRESS". A longer name leads to no files, so its cut key is never stored.
constexpr std::size_t kKeySize = stock::kPathSize + 20;

// All functions here but read_again and update_tree are called with Trees_mutex held.

UpdatedVariable *variable_of(const char *key)
{
    return static_cast<UpdatedVariable *>(getarr(Known_trees.variables, key));
}

// The variable of the key; a new key takes `spare` for it. Null without memory.
UpdatedVariable *make_variable(const char *key, stock::Owned<UpdatedVariable> &spare)
{
    if (UpdatedVariable *variable = variable_of(key))
        return variable;
    if (!Known_trees.variables)
        Known_trees.variables = rbinit(nullptr);
    setarr(Known_trees.variables, key, spare.get());
    return variable_of(key) == spare.get() ? spare.release() : nullptr;
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

// Whether pfupdate gave the tree to a variable, and it was freed or grafted since.
bool is_gone(const Pf *pf)
{
    if (stock::number_of(pf) == stock::kFreed)
        return true;
    const KnownTree *known = stock::known_of(pf);
    return known && known->variable && known->variable->gone == pf;
}

// Ends the tie between a tree and its variable. The tree, which may be null, lives on.
void untie(Pf *tree)
{
    if (KnownTree *known = tree ? stock::known_of(tree) : nullptr) {
        known->variable = nullptr;
        stock::drop_unused(known);
    }
}

// Makes the tree the variable's in place of the one that it had. False without memory.
bool give(UpdatedVariable *variable, Pf *tree)
{
    untie(std::exchange(variable->tree, nullptr));
    Pf *gone = std::exchange(variable->gone, nullptr);
    if (gone && stock::number_of(gone) == stock::kFreed)
        std::free(gone);
    else
        untie(gone);
    KnownTree *known = stock::make_known(tree);
    if (!known)
        return false;
    known->variable = variable;
    variable->tree = tree;
    return true;
}

// Begins to read files with these times, which are the variable's from now on. Returns the
// number of the reading, which is a new one unless another thread is still reading the same
// files; 0 for a null variable.
int64_t begin_reading(UpdatedVariable *variable, Tbl *&times)
{
    if (!variable)
        return 0;
    if (variable->given < variable->reading && same_files(variable->times, times))
        return variable->reading;
    std::swap(variable->times, times);
    return ++variable->reading;
}

// Whether another reading, of the same files or of later ones, has given its tree already.
bool is_late(const UpdatedVariable *variable, int64_t reading)
{
    return variable->given > reading || (variable->given == reading && variable->tree);
}

// Writes only when something changes: threads that share the variable may be reading it.
void set_pointer(Pf **pf, Pf *tree)
{
    if (*pf != tree)
        *pf = tree;
}

// Reads the files and gives the variable their tree, unless another reading was faster. When the
// system refused a file, an earlier tree stays the variable's, and the next update reads again.
stock::Update read_again(const char *name, const char *key, Pf **pf, int64_t reading,
                         Updater updater)
{
    Pf *tree = nullptr;
    bool failed = false;
    const int read = stock::read_or_fail(stock::lasting_name(name), &tree, failed);
    const int result = failed ? -1 : read;
    std::unique_lock lock(Trees_mutex);
    UpdatedVariable *variable = variable_of(key);
    variable->failed = failed;
    if (failed && variable->tree) {
        set_pointer(pf, variable->tree);
        lock.unlock();
        pffree(tree);
        return {result, false, nullptr};
    }
    const bool late = is_late(variable, reading);
    Pf *replaced = nullptr;
    if (late)
        replaced = tree;
    // *pf is read only now: an update during the reading may have set it.
    else if (updater == Updater::variable && *pf && !is_gone(*pf))
        replaced = *pf;
    const bool given = late || give(variable, tree);
    if (given && !late) {
        variable->given = reading;
        variable->refused = updater == Updater::registry && result != 0 && !failed;
    }
    set_pointer(pf, variable->tree);
    lock.unlock();
    if (!given)
        stock::out_of_memory(sizeof(KnownTree), "state", "pfupdate");
    return {result == 0 ? 1 : result, true, replaced};
}

// Whether the files are those of the last reading, and its tree is still there or was refused.
bool is_current(const UpdatedVariable *variable, const Tbl *times, Updater updater)
{
    if (!variable || variable->failed || times->count == 0 || !same_files(variable->times, times))
        return false;
    return variable->tree || (updater == Updater::registry && variable->refused);
}

}  // namespace

stock::Update stock::update_tree(const char *name, Pf **pf, Updater updater)
{
    Update update{-1, false, nullptr};
    if (!name || !pf)
        return update;
    char key[kKeySize];
    std::snprintf(key, sizeof key, "%s-%p", name, static_cast<void *>(pf));

    Tbl *times = pftimes(name);
    Owned<UpdatedVariable> spare(static_cast<UpdatedVariable *>(
        allocate_zeroed(sizeof(UpdatedVariable), "state", "pfupdate")));
    std::unique_lock lock(Trees_mutex);
    const UpdatedVariable *variable = variable_of(key);
    const bool current = is_current(variable, times, updater);
    const bool read = !current && times->count > 0;
    const int64_t reading = read ? begin_reading(make_variable(key, spare), times) : 0;
    if (!read)
        set_pointer(pf, variable ? variable->tree : nullptr);
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

int pfupdate(const char *name, Pf **pf)
{
    const stock::Update update = stock::update_tree(name, pf, Updater::variable);
    pffree(update.replaced);
    return update.result;
}
