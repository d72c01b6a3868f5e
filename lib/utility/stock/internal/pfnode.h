// What the functions on parameter trees share about a node.

#pragma once

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "internal/alloc.h"
#include "stock/pf.h"

namespace stock {

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

// A PFSTRING with its text behind it in the same block: trees are mostly texts, and
// this halves what they cost.
inline Pf *new_text(std::string_view text)
{
    auto *pf = static_cast<Pf *>(allocate(sizeof(Pf) + text.size() + 1, "pf", "pfnew"));
    char *copy = reinterpret_cast<char *>(pf + 1);
    text.copy(copy, text.size());
    copy[text.size()] = 0;
    *pf = Pf{PFSTRING, {copy}, nullptr, nullptr, nullptr};
    return pf;
}

// Frees the text of a node, unless it stands in the node's block.
inline void free_text(Pf *pf)
{
    if (pf->value.s != reinterpret_cast<char *>(pf + 1))
        std::free(pf->value.s);
    pf->value.s = nullptr;
}

// Frees what the node owns as its value, and complains of a type that has none.
void free_value(Pf *pf);

// The node at an address, a function as it stands: pfresolve without the evaluation.
int find_node(Pf *pf, const char *address, bool create, Pf **node);

}  // namespace stock
