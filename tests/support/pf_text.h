// Parameter trees and the log as plain text, for tests to compare whole.

#pragma once

#include <string>

#include "support/logged.h"
#include "support/owners.h"

// A tree on one line: {key: "text", list: ["a" {b: ""}]}, functions as &"text", other
// types as <type>, no node as <none>.
inline std::string tree_text(const Pf *pf)
{
    if (!pf)
        return "<none>";
    std::string text;
    switch (pf->type) {
    case PFSTRING: return '"' + std::string(pf->value.s ? pf->value.s : "<null>") + '"';
    case PFFUNCTION: return "&\"" + std::string(pf->value.pffunct->text) + '"';
    case PFTBL:
        for (int64_t i = 0; i < pf->value.tbl->count; ++i)
            text += (i ? " " : "") + tree_text(static_cast<Pf *>(gettbl(pf->value.tbl, i)));
        return '[' + text + ']';
    case PFFILE:
    case PFARR: {
        const TblPtr keys(keysarr(pf->value.arr));
        for (int64_t i = 0; i < keys->count; ++i) {
            const char *key = static_cast<char *>(gettbl(keys.get(), i));
            text += (i ? ", " : "") + std::string(key) + ": " +
                    tree_text(static_cast<Pf *>(getarr(pf->value.arr, key)));
        }
        return '{' + text + '}';
    }
    default: return '<' + std::to_string(pf->type) + '>';
    }
}

// The tree of a text that has no error, or what went wrong.
inline std::string tree_of(const std::string &text)
{
    Pf *pf = nullptr;
    const int status = pfcompile(text.c_str(), &pf);
    const PfPtr owner(pf);
    const std::string log = take_log();
    return status == 0 ? tree_text(pf) + log : "error " + std::to_string(status) + ": " + log;
}

// The one value of a key or element that stands in a tree, as text.
inline std::string value_at(const Pf *pf, const char *key)
{
    const Pf *child = static_cast<Pf *>(getarr(pf->value.arr, key));
    return child && child->type == PFSTRING ? child->value.s : tree_text(child);
}
