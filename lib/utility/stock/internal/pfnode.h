// What the functions on parameter trees share about a node.

#pragma once

#include <cstring>
#include <string_view>

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

}  // namespace stock
