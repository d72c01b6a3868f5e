// Changing a tree: values put under a key or an address, taken out, and placeholders.

#include "stock/pf.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/alloc.h"
#include "pf/node.h"
#include "pf/trees.h"
#include "stock/elog.h"
#include "stock/strdbl.h"
#include "stock/time.h"

namespace {

int64_t index_of(const char *key)
{
    return reinterpret_cast<intptr_t>(key);
}

char *copy_or_null(const char *text)
{
    return text ? stock::copy_text(text, "pf->value.s") : nullptr;
}

Pf *string_node(const char *text)
{
    return text ? stock::new_text(text, "pfput") : pfnew(PFSTRING);
}

int adopt_value(void *, void *value, void *parent)
{
    if (value)
        static_cast<Pf *>(value)->parent = static_cast<Pf *>(parent);
    return 0;
}

int adopt_entry(void *entry, void *parent)
{
    return adopt_value(nullptr, entry, parent);
}

Pf *table_node(Arr *arr, int type)
{
    Pf *node = pfnew(type);
    if (arr) {
        freearr(std::exchange(node->value.arr, arr), nullptr);
        applyarr(arr, adopt_value, node);
    }
    return node;
}

Pf *list_node(Tbl *tbl)
{
    Pf *node = pfnew(PFTBL);
    if (tbl) {
        freetbl(std::exchange(node->value.tbl, tbl), nullptr);
        applytbl(tbl, adopt_entry, node);
    }
    return node;
}

Pf *function_node(const char *text)
{
    Pf *node = pfnew(PFFUNCTION);
    node->value.pffunct->text = copy_or_null(text);
    return node;
}

// The tree itself, which is from now on a part of another.
Pf *grafted(Pf *tree)
{
    if (!tree)
        return nullptr;
    if (stock::number_of(tree) != 0)
        stock::forget_grafted(tree);
    if (tree->type == PFFILE)
        tree->type = PFARR;
    return tree;
}

Pf *node_of(void *value, int type)
{
    switch (type) {
    case PFFILE:
    case PFARR: return table_node(static_cast<Arr *>(value), type);
    case PFSTRING: return string_node(static_cast<const char *>(value));
    case PFTBL: return list_node(static_cast<Tbl *>(value));
    case PFFUNCTION: return function_node(static_cast<const char *>(value));
    case PFGRAFT: return grafted(static_cast<Pf *>(value));
    default: elog_die(0, "Bad type in pfput : %d\n", type);
    }
}

// Puts the node into a container. Gives the one that it takes the place of.
Pf *replace(Pf *pf, const char *key, Pf *node)
{
    if (pf->type != PFTBL) {
        if (pf->value.arr)
            pf->value.arr->replace = 1;  // what it would keep is freed
        auto *old = static_cast<Pf *>(setarr(pf->value.arr, key, node));
        if (!old && node && getarr(pf->value.arr, key) != node)  // without memory for the key
            stock::out_of_memory(std::strlen(key) + 1, "key", "pfput");
        return old;
    }
    const int64_t i = index_of(key);
    auto *old = static_cast<Pf *>(gettbl(pf->value.tbl, i));
    settbl(pf->value.tbl, i, node);
    return old;
}

bool is_container(const Pf *pf)
{
    return pf && (pf->type == PFFILE || pf->type == PFARR || pf->type == PFTBL);
}

void put(Pf *pf, const char *key, Pf *node)
{
    if (!is_container(pf))
        elog_die(0, "Bad pf pointer in pfput.\n");
    if (pf->type != PFTBL && !key)
        return pffree(node);
    Pf *old = replace(pf, key, node);
    if (old != node)
        pffree(old);
    if (node)
        node->parent = pf;
}

int copy_text_entry(void *key, void *value, void *table)
{
    put(static_cast<Pf *>(table), static_cast<const char *>(key),
        string_node(static_cast<const char *>(value)));
    return 0;
}

// Makes a placeholder a container. False for a node that is neither.
bool become(Pf *pf, int type)
{
    if (pf && pf->type == PFANY) {
        pf->type = type;
        if (type == PFARR)
            pf->value.arr = newarr(nullptr);
        else
            pf->value.tbl = newtbl(0);
    }
    return pf && (pf->type == type || (type == PFARR && pf->type == PFFILE));
}

}  // namespace

void pfput(Pf *pf, const char *key, void *value, int type)
{
    put(pf, key, node_of(value, type));
}

void pfput_string(Pf *pf, const char *key, const char *value)
{
    put(pf, key, string_node(value));
}

void pfput_int(Pf *pf, const char *key, long value)
{
    char text[24];
    std::snprintf(text, sizeof text, "%ld", value);
    pfput_string(pf, key, text);
}

void pfput_double(Pf *pf, const char *key, double value)
{
    char text[STRDBL_SIZE];
    pfput_string(pf, key, strdbl(text, value));
}

void pfput_boolean(Pf *pf, const char *key, int value)
{
    pfput_string(pf, key, value ? "True" : "False");
}

void pfput_time(Pf *pf, const char *key, double value)
{
    // Meant: two blanks stand before the hour.
    const stock::Owned<char> text(
        zepoch2str("%E (%j) %Y-%m-%d  %H:%M:%S.%s %z %A", nullptr, value));
    pfput_string(pf, key, text.get() + std::strspn(text.get(), " "));
}

void pfput_tbl(Pf *pf, const char *key, const Tbl *values)
{
    Pf *list = pfnew(PFTBL);
    for (int64_t i = 0; values && i < values->count; ++i)
        put(list, pfindex(i), string_node(static_cast<const char *>(gettbl(values, i))));
    put(pf, key, list);
}

void pfput_arr(Pf *pf, const char *key, const Arr *values)
{
    Pf *table = pfnew(PFARR);
    applyarr(values, copy_text_entry, table);
    put(pf, key, table);
}

int pfset(Pf *pf, const char *address, const char *text)
{
    Pf *node = nullptr;
    stock::find_node(pf, address, true, &node);
    if (!node || node == pf)
        return -1;
    char *copy = copy_or_null(text);  // first: the text may be what the node gave
    if (node->type != PFANY)
        stock::free_value(node);
    std::free(std::exchange(node->filled_out, nullptr));
    node->type = PFSTRING;
    node->value.s = copy;
    return 0;
}

namespace {

// Whether a tree that is written with this text as a value would be read with a list, a table,
// a literal or a function in its place: str2pf quotes none of these.
bool reads_as_other(std::string_view text)
{
    return text.starts_with("&Literal") ||
           (text.starts_with('&') && text.find_first_of("({") != text.npos);
}

}  // namespace

int stock::set_exact_text(Pf *pf, const char *address, const char *text)
{
    if (!text || !reads_as_other(text))
        return pfset(pf, address, text);
    if (pfset(pf, address, "") != 0)
        return -1;
    Pf *node = nullptr;
    find_node(pf, address, false, &node);
    free_value(node);
    // Only the text of a function is written as it stands.
    node->type = PFFUNCTION;
    node->value.pffunct =
        static_cast<Pffunction *>(allocate_zeroed(sizeof(Pffunction), "pf->value.pffunct", "bury"));
    node->value.pffunct->text = pfoutput_literal(text, 2);
    return 0;
}

Pf *pfdel(Pf *pf, const char *key)
{
    if (!is_container(pf))
        return nullptr;
    void *child =
        pf->type == PFTBL ? deltbl(pf->value.tbl, index_of(key)) : delarr(pf->value.arr, key);
    if (child)
        static_cast<Pf *>(child)->parent = nullptr;
    return static_cast<Pf *>(child);
}

int pfvalue(Pf *pf, const char *key, Pf **node)
{
    Pf *unwanted = nullptr;
    if (!node)
        node = &unwanted;
    *node = nullptr;
    if (is_container(pf)) {
        *node = static_cast<Pf *>(pf->type == PFTBL ? gettbl(pf->value.tbl, index_of(key))
                                                    : getarr(pf->value.arr, key));
        return *node != nullptr;
    }
    if (pf && pf->type == PFSTRING)
        return 1;
    if (!pf || pf->type != PFFUNCTION)
        elog_die(0, "invalid pf type = %d\n", pf ? pf->type : PFINVALID);
    *node = pf;
    return PFFUNCTION;
}

int pfadd_arr(Pf *pf, const char *key)
{
    if (!key || !become(pf, PFARR))
        return -1;
    put(pf, key, pfnew(PFANY));
    return 0;
}

int pfadd_tbl(Pf *pf, int index)
{
    if (!become(pf, PFTBL))
        return -1;
    put(pf, pfindex(index), pfnew(PFANY));
    return 0;
}
