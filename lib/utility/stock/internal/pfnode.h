// What the functions on parameter trees share about a node.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

#include "internal/alloc.h"
#include "internal/slab.h"
#include "stock/pf.h"

namespace stock {

// How deep a tree is made by addresses, and written: far deeper than text nests.
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

// How far it is from a node in a slab to the slab's record stands in the four bytes
// behind its type that no field uses; 0 for a node that is a block of its own.
constexpr std::size_t kDistance = offsetof(Pf, type) + sizeof(Pf::type);
static_assert(offsetof(Pf, value) == kDistance + sizeof(uint32_t));

inline void set_distance(Pf *pf, uint32_t distance)
{
    std::memcpy(reinterpret_cast<char *>(pf) + kDistance, &distance, sizeof distance);
}

// Frees the node alone.
inline void free_block(Pf *pf)
{
    uint32_t distance = 0;
    std::memcpy(&distance, reinterpret_cast<const char *>(pf) + kDistance, sizeof distance);
    if (distance != 0)
        release_block(pf, distance);
    else
        std::free(pf);
}

// A PFSTRING with its text behind it in the same block: trees are mostly texts, and
// this halves what they cost. The distance is that of the block's slab, or 0.
inline Pf *make_text(void *block, std::string_view text, uint32_t distance)
{
    char *copy = static_cast<char *>(block) + sizeof(Pf);
    text.copy(copy, text.size());
    copy[text.size()] = 0;
    Pf *pf = new (block) Pf{PFSTRING, {copy}, nullptr, nullptr, nullptr};
    set_distance(pf, distance);
    return pf;
}

inline Pf *new_text(std::string_view text)
{
    return make_text(allocate(sizeof(Pf) + text.size() + 1, "pf", "pfnew"), text, 0);
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
