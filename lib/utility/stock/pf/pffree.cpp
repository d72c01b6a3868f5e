// Nodes of a parameter tree: made, shown and freed.

#include "stock/pf.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "base/alloc.h"
#include "pf/node.h"
#include "pf/trees.h"
#include "stock/elog.h"
#include "stock/strings.h"

static_assert(offsetof(Pf, type) == 0 && sizeof(Pf::type) == 4);
static_assert(offsetof(Pf, known) == 4 && sizeof(Pf::known) == 4 && sizeof(Pf) == 40);
static_assert(offsetof(Pf, value) == 8 && offsetof(Pf, parent) == 16);
static_assert(offsetof(Pf, filename) == 24 && offsetof(Pf, filled_out) == 32);
static_assert(offsetof(Pffunction, result) == 8 && offsetof(Pffunction, hook) == 16);

namespace {

// Containers and functions that are still to be freed, linked by their parents: a tree
// may be deeper than the stack.
thread_local Pf *Waiting = nullptr;

void free_parts(Pf *pf);

void free_contents(Pf *pf)
{
    free_parts(pf);
    if (pf->filled_out)  // seldom: spares the call
        std::free(pf->filled_out);
}

void free_known(Pf *pf)
{
    // Of a node that pfupdate keeps another thread may free the memory; and another may set
    // `known` until the tree is forgotten.
    Pf contents{pf->type, 0, pf->value, pf->parent, pf->filename, pf->filled_out};
    if (!stock::forget_freed(pf))
        std::free(pf);
    free_contents(&contents);
}

void free_one(Pf *pf)
{
    if (stock::number_of(pf) != 0)
        return free_known(pf);
    free_contents(pf);
    std::free(pf);
}

void free_child(void *child)
{
    auto *pf = static_cast<Pf *>(child);
    if (!pf)
        return;
    if (pf->type == PFSTRING)
        return free_one(pf);
    pf->parent = Waiting;
    Waiting = pf;
}

// Frees with free_first what is asked for and then all that this made wait. What waits
// already is left to an outer call, which came here through a function of a hook.
template <class FreeFirst>
void free_all(Pf *pf, FreeFirst free_first)
{
    Pf *outer = std::exchange(Waiting, nullptr);
    free_first(pf);
    while (Waiting)
        free_one(std::exchange(Waiting, Waiting->parent));
    Waiting = outer;
}

void free_function(Pffunction *function)
{
    if (!function)
        return;
    std::free(function->text);
    free_child(function->result);
    free_hook(&function->hook);
    std::free(function);
}

// As showpf says it; null where it says nothing.
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

// Frees the value of a node; what it contains may be left waiting.
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

}  // namespace

void stock::free_value(Pf *pf)
{
    free_all(pf, free_parts);
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
        free_all(pf, free_one);
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
        const std::string_view text = stock::value_as_text(*pf);
        fprintf(stderr, "    value=%p (%.*s)\n", static_cast<const void *>(pf->value.s),
                static_cast<int>(text.size()), text.data());
    }
    if (pf->filename)
        fprintf(stderr, "    filename=%s\n", pf->filename);
    if (pf->filled_out)
        fprintf(stderr, "    filled_out=%s\n", pf->filled_out);
    fputc('\n', stderr);
}
