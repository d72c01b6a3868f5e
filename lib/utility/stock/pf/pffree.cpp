// Nodes of a parameter tree: made, put into containers, shown and freed.
//
// A tree may be deeper than the stack, so pffree calls itself only for texts. It links the
// other children by `parent` (Waiting_to_be_freed) and frees them one after the other.

#include "stock/pf.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/alloc.h"
#include "pf/known.h"
#include "pf/node.h"
#include "pf/pf_state.h"
#include "stock/elog.h"
#include "stock/strings.h"

static_assert(offsetof(Pf, type) == 0 && sizeof(Pf::type) == 4);
static_assert(offsetof(Pf, known) == 4 && sizeof(Pf::known) == 4 && sizeof(Pf) == 40);
static_assert(offsetof(Pf, value) == 8 && offsetof(Pf, parent) == 16);
static_assert(offsetof(Pf, filename) == 24 && offsetof(Pf, filled_out) == 32);
static_assert(offsetof(Pffunction, result) == 8 && offsetof(Pffunction, hook) == 16);

namespace {

using stock::Waiting_to_be_freed;

void free_parts(Pf *pf);

void free_contents(Pf *pf)
{
    free_parts(pf);
    if (pf->filled_out)  // seldom: the test spares most nodes a call of free
        std::free(pf->filled_out);
}

// Frees a tree that pfupdate or the registry may know.
void free_known(Pf *pf)
{
    // forget_tree may leave the block to another thread, which may free it at once. So what
    // the node contains is copied first, all but `known`, which another thread may be setting.
    Pf contents{pf->type, 0, pf->value, pf->parent, pf->filename, pf->filled_out};
    if (!stock::forget_tree(pf, stock::Fate::freed))
        std::free(pf);
    free_contents(&contents);
}

void free_node(Pf *pf)
{
    if (stock::number_of(pf) != 0)
        return free_known(pf);
    free_contents(pf);
    std::free(pf);
}

// Frees a text at once and lets any other child, which may be null, wait.
void free_child(void *child)
{
    auto *pf = static_cast<Pf *>(child);
    if (!pf)
        return;
    if (pf->type == PFSTRING)
        return free_node(pf);
    pf->parent = Waiting_to_be_freed;
    Waiting_to_be_freed = pf;
}

// Calls free_first(pf), then frees every node that it put on Waiting_to_be_freed. A hook's
// function may call pffree in turn: nodes that wait for the outer call stay out of its way.
template <class FreeFirst>
void free_all(Pf *pf, FreeFirst free_first)
{
    Pf *outer = std::exchange(Waiting_to_be_freed, nullptr);
    free_first(pf);
    while (Waiting_to_be_freed)
        free_node(std::exchange(Waiting_to_be_freed, Waiting_to_be_freed->parent));
    Waiting_to_be_freed = outer;
}

// The result, which may be a container, waits like a child.
void free_function(Pffunction *function)
{
    if (!function)
        return;
    std::free(function->text);
    free_child(function->result);
    free_hook(&function->hook);
    std::free(function);
}

// Frees the value of a node. Containers and functions in it are left waiting.
void free_parts(Pf *pf)
{
    switch (pf->type) {
    case PFEXEC_ERROR:
    case PFSTRING:
    case PFINVALID: std::free(pf->value.s); break;
    case PFFILE:
    case PFARR: freearr(pf->value.arr, free_child); break;
    case PFTBL: freetbl(pf->value.tbl, free_child); break;
    case PFFUNCTION: free_function(pf->value.pffunct); break;
    default: elog_complain(0, "pffree: didn't free type %d", pf->type); break;
    }
}

// Stores the node in a container. Returns the node that it replaces, or null.
Pf *store_child(Pf *pf, const char *key, Pf *node, int line, const char *file)
{
    if (pf->type == PFTBL) {
        Pf *old = stock::child_of(pf, key);
        settbl(pf->value.tbl, stock::index_of(key), node);
        return old;
    }
    if (pf->value.arr)
        pf->value.arr->replace = 1;  // else an array may keep the first value of a key
    auto *old = static_cast<Pf *>(setarr(pf->value.arr, key, node));
    if (!old && node && getarr(pf->value.arr, key) != node)  // no memory for the key
        stock::out_of_memory(std::strlen(key) + 1, "key", "pfput", line, file);
    return old;
}

// Makes a placeholder a container of the type. False for a node that is neither.
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

// The words of showpf for a type; null for a type without any.
const char *description(int type)
{
    switch (type) {
    case PFEXEC_ERROR: return "PFEXEC_ERROR";
    case PFFILE: return "Top level of Pf -- otherwise same as PFARR";
    case PFSTRING: return "leaf of pf: simple string";
    case PFTBL: return "ordered Tbl{ list";
    case PFARR: return "Arr{ array";
    case PFINVALID: return "invalid";
    case PFANY: return "special value used internally in pfget";
    case PFFUNCTION: return "&function() : has to be evaluated";
    case PFGRAFT:
        return "argument to pfput to graft pf tree into another tree, sets PFFILE to PFARR";
    default: return nullptr;
    }
}

// The value of a node read as a string, whatever it is. It must not be null.
std::string_view value_as_text(const Pf &pf)
{
    switch (pf.type) {
    case PFFILE:
    case PFARR: return stock::record_as_text(pf.value.arr);
    case PFTBL: return stock::record_as_text(pf.value.tbl);
    case PFFUNCTION: return stock::record_as_text(pf.value.pffunct);
    default: return pf.value.s;
    }
}

}  // namespace

void stock::free_value(Pf *pf)
{
    free_all(pf, free_parts);
}

void stock::put_child(Pf *pf, const char *key, Pf *node, int line, const char *file)
{
    if (pf->type != PFTBL && !key)
        return pffree(node);
    Pf *old = store_child(pf, key, node, line, file);
    if (old != node)
        pffree(old);
    if (node)
        node->parent = pf;
}

Pf *pfnew(int type)
{
    Pf *pf = static_cast<Pf *>(stock::allocate_zeroed(sizeof(Pf), "pf"));
    pf->type = type;
    switch (type) {
    case PFFILE:
    case PFARR: pf->value.arr = newarr(nullptr); break;
    case PFTBL: pf->value.tbl = newtbl(0); break;
    case PFFUNCTION:
        pf->value.pffunct = static_cast<Pffunction *>(
            stock::allocate_zeroed(sizeof(Pffunction), "pf->value.pffunct"));
        break;
    default: break;
    }
    return pf;
}

void pffree(Pf *pf)
{
    if (pf)
        free_all(pf, free_node);
}

int pfadd_arr(Pf *pf, const char *key)
{
    if (!key || !become(pf, PFARR))
        return -1;
    stock::put_child(pf, key, pfnew(PFANY));
    return 0;
}

int pfadd_tbl(Pf *pf, int index)
{
    if (!become(pf, PFTBL))
        return -1;
    stock::put_child(pf, pfindex(index), pfnew(PFANY));
    return 0;
}

void showpf(const char *label, const Pf *pf)
{
    fprintf(stderr, "%s pf=%p", okstr(label), static_cast<const void *>(pf));
    if (!pf) {
        fputs("    pf=0\n\n", stderr);
        return;
    }
    if (const char *text = description(pf->type))
        fprintf(stderr, "    %s\n", text);
    if (pf->value.s) {
        const std::string_view text = value_as_text(*pf);
        fprintf(stderr, "    value=%p (%.*s)\n", static_cast<const void *>(pf->value.s),
                static_cast<int>(text.size()), text.data());
    }
    if (pf->filename)
        fprintf(stderr, "    filename=%s\n", pf->filename);
    if (pf->filled_out)
        fprintf(stderr, "    filled_out=%s\n", pf->filled_out);
    fputc('\n', stderr);
}
