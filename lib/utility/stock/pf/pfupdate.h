// pfupdate for updatePf, which replaces trees of the registry by its own rules.

#pragma once

#include "stock/pf.h"

namespace stock {

// Who updates, and what becomes of the tree that is replaced.
enum class Updater {
    variable,  // pfupdate: it replaces the tree that the variable points to
    registry,  // updatePf: it takes only what was read without a fault
};

struct Update {
    int result;    // of pfupdate
    bool read;     // the files were read, and the variable has their tree
    Pf *replaced;  // the tree that the caller frees: the one that a program's variable had
                   // before, or the one just read when another thread was faster; or null
};

// As pfupdate, but the caller frees what is replaced.
Update update_tree(const char *name, Pf **pf, Updater updater);

// As pfread. `failed` tells that the system refused to open or read a file: then the tree may
// lack its values, and reading again may succeed.
int read_or_fail(const char *name, Pf **pf, bool &failed);

}  // namespace stock
