// Shared: the nodes of a parameter tree: made, found by an address, changed and freed.

#pragma once

#include <cstring>
#include <new>
#include <string_view>

#include "base/alloc.h"
#include "stock/pf.h"

namespace stock {

// The bytes of a record up to the first zero byte, as a string function would read them.
template <class Record>
std::string_view record_as_text(const Record *record)
{
    const char *bytes = reinterpret_cast<const char *>(record);
    return {bytes, strnlen(bytes, sizeof(Record))};
}

inline bool is_table(const Pf *pf)
{
    return pf->type == PFFILE || pf->type == PFARR;
}

// A table or a list; pf may be null.
inline bool is_container(const Pf *pf)
{
    return pf && (is_table(pf) || pf->type == PFTBL);
}

// The index that was passed as a key by pfindex.
inline int64_t index_of(const char *key)
{
    return reinterpret_cast<intptr_t>(key);
}

// The child of a container under a key or at an index, a function unevaluated; or null.
inline Pf *child_of(const Pf *pf, const char *key)
{
    return static_cast<Pf *>(pf->type == PFTBL ? gettbl(pf->value.tbl, index_of(key))
                                               : getarr(pf->value.arr, key));
}

// A copy of the text, which need not be terminated. The rest is named when memory runs out.
inline char *copy_view(std::string_view text, const char *item, const char *function = "copy_view",
                       int line = __builtin_LINE(), const char *file = __builtin_FILE())
{
    auto *copy = static_cast<char *>(allocate(text.size() + 1, item, function, line, file));
    copy[text.copy(copy, text.size())] = 0;
    return copy;
}

// A PFSTRING with a copy of the text. `function` is named when memory runs out.
inline Pf *new_text(std::string_view text, const char *function)
{
    void *block = allocate(sizeof(Pf), "pf", "pfnew");
    char *copy = copy_view(text, "pf->value.s", function);
    return new (block) Pf{PFSTRING, 0, {copy}, nullptr, nullptr, nullptr};
}

// Frees what the node owns as its value. Complains of a type that has no value.
void free_value(Pf *pf);

// Puts the node, which may be null, into a container under a key or at an index, and frees
// the node that it replaces. A table has no null key: the node itself is freed then. Running
// out of memory names pfput with the caller's line and file.
void put_child(Pf *pf, const char *key, Pf *node, int line = __builtin_LINE(),
               const char *file = __builtin_FILE());

// What becomes of a known tree.
enum class Fate {
    freed,    // the caller frees what it contains, and its block unless forget_tree keeps it
    grafted,  // it becomes a part of another tree
};

// The hook that pffree and pfput call for a tree whose `known` is not 0: pfupdate and the
// registry forget the tree and never hand it out again. Returns true when the caller must not
// free the block of a freed node, for pfupdate frees it later. Takes Trees_mutex.
bool forget_tree(Pf *pf, Fate fate);

// pfresolve without the evaluation: a function is found as it stands.
int find_node(Pf *pf, const char *address, bool create, Pf **node);

// What pfexpand returned for the node the last time it was called.
char *last_expanded(const Pf *node);

// Sets the text at an address as pfset does, and so that the written tree gives it back: a
// text that would be read as a list, a table, a literal or a function is put as a literal.
// Returns 0, or -1 where pfset does.
int set_exact_text(Pf *pf, const char *address, const char *text);

}  // namespace stock
