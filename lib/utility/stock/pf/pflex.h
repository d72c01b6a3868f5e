// Reading one text into a tree: what pfin.cpp asks of pflex.cpp.

#pragma once

#include "pf/window.h"
#include "stock/pf.h"

namespace stock {

struct Scanned {
    bool refused;  // at a syntax error, which was logged
    int line;      // of the text that was not read yet
    int open;      // lists, tables and literals that the text leaves open
};

// Adds the values of a text to a table. `filename` names the text in messages. Values that
// are not as they are written are put together in `buffer`, which may be replaced by a larger
// one.
Scanned scan_into_tree(Window &text, Pf *table, const char *filename, Buffer &buffer);

}  // namespace stock
