// What the functions on parameter trees share about a node.

#pragma once

#include <cstring>
#include <new>
#include <string_view>

#include "base/alloc.h"
#include "stock/pf.h"

namespace stock {

// How deep a tree is made by addresses: far deeper than text nests.
constexpr int kMaxDepth = 1000;
constexpr char kTooDeep[] = "pf tree is more than %d levels deep";

// The bytes of a record up to the first zero byte, as a string function reads them.
template <class Record>
std::string_view record_as_text(const Record *record)
{
    const char *bytes = reinterpret_cast<const char *>(record);
    return {bytes, strnlen(bytes, sizeof(Record))};
}

// The value of a node read as a string, whatever it is; it must not be null.
inline std::string_view value_as_text(const Pf &pf)
{
    switch (pf.type) {
    case PFFILE:
    case PFARR: return record_as_text(pf.value.arr);
    case PFTBL: return record_as_text(pf.value.tbl);
    case PFFUNCTION: return record_as_text(pf.value.pffunct);
    default: return pf.value.s;
    }
}

// A PFSTRING with a copy of the text; the function is the one that runs out of memory.
inline Pf *new_text(std::string_view text, const char *function)
{
    void *block = allocate(sizeof(Pf), "pf", "pfnew");
    auto *copy = static_cast<char *>(allocate(text.size() + 1, "pf->value.s", function));
    copy[text.copy(copy, text.size())] = 0;
    return new (block) Pf{PFSTRING, 0, {copy}, nullptr, nullptr, nullptr};
}

// Frees what the node owns as its value, and complains of a type that has none.
void free_value(Pf *pf);

// The node at an address, a function as it stands: pfresolve without the evaluation.
int find_node(Pf *pf, const char *address, bool create, Pf **node);

// Sets the text at an address as pfset does, and so that the written tree gives it back: a
// text that would be read as a list, a table, a literal or a function is put as a literal.
// Returns 0, or -1 where pfset does.
int set_exact_text(Pf *pf, const char *address, const char *text);

}  // namespace stock
