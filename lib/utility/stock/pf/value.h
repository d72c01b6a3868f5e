// What the sources of pf share about reading values.

#pragma once

#include "stock/pf.h"

namespace stock {

// The child under a key of a table or at an index of a list, as it stands; null when
// there is none. Of a text or a function it is the node itself.
Pf *direct_child(Pf *pf, const char *key);

// What pfexpand gave of the node the last time, without expanding it again.
char *last_expanded(const Pf *node);

// The prompt function that pfconfig has set, or null.
char *(*prompt_function())(const char *prompt);

}  // namespace stock
