// Changing a tree: values put under a key or an address and taken out.
//
// Each pfput_TYPE makes the node of a text, and put_child puts it (pffree.cpp).

#include "stock/pf.h"

#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/alloc.h"
#include "base/fixed_text.h"
#include "pf/known.h"
#include "pf/node.h"
#include "stock/elog.h"
#include "stock/strdbl.h"
#include "stock/time.h"

namespace {

using stock::put_child;

char *copy_or_null(const char *text)
{
    return text ? stock::copy_text(text, "pf->value.s") : nullptr;
}

Pf *string_node(const char *text)
{
    return text ? stock::new_text(text, "pfput") : pfnew(PFSTRING);
}

// Makes the table, or list, the parent of one of its values, which may be null.
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

// A table that takes over the caller's array; an empty one when that is null.
Pf *table_node(Arr *arr, int type)
{
    Pf *node = pfnew(type);
    if (arr) {
        freearr(std::exchange(node->value.arr, arr), nullptr);
        applyarr(arr, adopt_value, node);
    }
    return node;
}

// The same of a list.
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

// The tree, which becomes a part of another one.
Pf *grafted(Pf *tree)
{
    if (!tree)
        return nullptr;
    if (stock::number_of(tree) != 0)
        stock::forget_tree(tree, stock::Fate::grafted);
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

// Ends the process when pf takes no children. Called before a child is made where possible,
// so that none is left behind.
void require_container(const Pf *pf)
{
    if (!stock::is_container(pf))
        elog_die(0, "Bad pf pointer in pfput.\n");
}

// Puts a copy of an array's text into a table under the same key.
int copy_text_entry(void *key, void *value, void *table)
{
    put_child(static_cast<Pf *>(table), static_cast<const char *>(key),
              string_node(static_cast<const char *>(value)));
    return 0;
}

// The node at an address, whose missing steps are made; null when it is the tree itself or the
// address does not fit the tree.
Pf *node_to_set(Pf *pf, const char *address)
{
    Pf *node = nullptr;
    stock::find_node(pf, address, true, &node);
    return node == pf ? nullptr : node;
}

// Frees the value of a node, which is to be given another.
void clear(Pf *node)
{
    if (node->type != PFANY)
        stock::free_value(node);
    std::free(std::exchange(node->filled_out, nullptr));
}

// Whether a tree that is written with this text as a value would be read with a list, a table,
// a literal or a function in its place: str2pf quotes none of these.
bool reads_as_other(std::string_view text)
{
    return text.starts_with("&Literal") ||
           (text.starts_with('&') && text.find_first_of("({") != text.npos);
}

}  // namespace

void pfput(Pf *pf, const char *key, void *value, int type)
{
    Pf *node = node_of(value, type);
    require_container(pf);
    put_child(pf, key, node);
}

void pfput_string(Pf *pf, const char *key, const char *value)
{
    require_container(pf);
    put_child(pf, key, string_node(value));
}

void pfput_int(Pf *pf, const char *key, long value)
{
    stock::FixedTextOf<24> text;
    text.number(value);
    pfput_string(pf, key, text.c_str());
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
    require_container(pf);
    Pf *list = pfnew(PFTBL);
    for (int64_t i = 0; values && i < values->count; ++i)
        put_child(list, pfindex(i), string_node(static_cast<const char *>(gettbl(values, i))));
    put_child(pf, key, list);
}

void pfput_arr(Pf *pf, const char *key, const Arr *values)
{
    require_container(pf);
    Pf *table = pfnew(PFARR);
    applyarr(values, copy_text_entry, table);
    put_child(pf, key, table);
}

int pfset(Pf *pf, const char *address, const char *text)
{
    Pf *node = node_to_set(pf, address);
    if (!node)
        return -1;
    char *copy = copy_or_null(text);  // before clear(): the text may be the node's own
    clear(node);
    node->type = PFSTRING;
    node->value.s = copy;
    return 0;
}

int stock::set_exact_text(Pf *pf, const char *address, const char *text)
{
    if (!text || !reads_as_other(text))
        return pfset(pf, address, text);
    Pf *node = node_to_set(pf, address);
    if (!node)
        return -1;
    auto *function =
        static_cast<Pffunction *>(allocate_zeroed(sizeof(Pffunction), "pf->value.pffunct", "bury"));
    function->text = pfoutput_literal(text, 2);
    clear(node);
    // Only the text of a function is written as it stands.
    node->type = PFFUNCTION;
    node->value.pffunct = function;
    return 0;
}

Pf *pfdel(Pf *pf, const char *key)
{
    if (!stock::is_container(pf))
        return nullptr;
    void *child = pf->type == PFTBL ? deltbl(pf->value.tbl, stock::index_of(key))
                                    : delarr(pf->value.arr, key);
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
    if (stock::is_container(pf)) {
        *node = stock::child_of(pf, key);
        return *node != nullptr;
    }
    if (pf && pf->type == PFSTRING)
        return 1;
    if (!pf || pf->type != PFFUNCTION)
        elog_die(0, "invalid pf type = %d\n", pf ? pf->type : PFINVALID);
    *node = pf;
    return PFFUNCTION;
}
