// Addresses in a tree: a key, then keys in braces and indexes in brackets, one step each.
//
// next_component (address.h) cuts an address into components. AddressWalk takes one step for
// each: from the current node to its child, which is made as a placeholder where that is
// asked for.

#include "stock/pf.h"

#include <cstdio>
#include <string_view>

#include "arrays/node.h"
#include "base/alloc.h"
#include "base/ascii.h"
#include "pf/address.h"
#include "pf/node.h"
#include "stock/elog.h"

namespace {

constexpr int kMissing = -31;        // a step was not found
constexpr int kMisfit = -32;         // a step does not fit the node
constexpr int kMaxTreeDepth = 1000;  // levels that steps make; text nests eleven deep

// The key with a terminator behind it.
stock::Owned<char> terminated(std::string_view key)
{
    return stock::Owned<char>(stock::copy_view(key, "key", "pfresolve"));
}

// The child of a table, or null. A table with an order of its own, whose compare function
// needs a terminated key, is rare.
Pf *child_under(const Pf *table, std::string_view key)
{
    const Arr *arr = table->value.arr;
    if (!arr)
        return nullptr;
    return static_cast<Pf *>(stock::holds_text(arr) ? stock::get_text(arr, key)
                                                    : getarr(arr, terminated(key).get()));
}

// Whether a child of the node would lie deeper than kMaxTreeDepth; if so it is logged.
bool is_too_deep(const Pf *node)
{
    int depth = 0;
    for (const Pf *at = node; at && depth <= kMaxTreeDepth; at = at->parent)
        ++depth;
    if (depth > kMaxTreeDepth)
        elog_log(0, "pf tree is more than %d levels deep", kMaxTreeDepth);
    return depth > kMaxTreeDepth;
}

// Follows an address through a tree, from the tree itself to the node that it leads to.
class AddressWalk {
public:
    AddressWalk(Pf *pf, bool create) : node_(pf), create_(create) {}

    // Takes all steps of the address. Returns the node there; null after an error.
    Pf *to(const char *address)
    {
        while (*address && !error_) {
            const stock::AddressComponent component =
                stock::next_component(address, behind_first_key_);
            take(component, *address);
            address += component.length;
        }
        return error_ ? nullptr : node_;
    }

    // 0, kMissing or kMisfit.
    int error() const { return error_; }

private:
    // `first` is the first character of the component.
    void take(const stock::AddressComponent &component, char first)
    {
        using Part = stock::AddressPart;
        switch (component.part) {
        case Part::blanks: break;
        case Part::plain_key:
            behind_first_key_ = true;
            step_to_key(component.key, true);
            break;
        case Part::braced_key:
            step_to_key(
                stock::trimmed(component.key, stock::is_blank).substr(0, stock::kMaxBracedBytes),
                node_->type == PFARR);
            break;
        case Part::index: step_to_index(component.index); break;
        case Part::stray: report_stray(first); break;
        }
    }

    // Meant: "[" goes to standard error, any other character to standard output.
    void report_stray(char c)
    {
        if (c == '[') {
            std::fprintf(stderr, "unmatched char '%c'\n", c);
        } else if (!behind_first_key_ && c == '{') {
            leading_brace_ = true;
        } else if (c == '}' && (!behind_first_key_ || leading_brace_)) {
            leading_brace_ = false;  // "{north}" is the plain key north
        } else {
            std::putchar(c);
        }
    }

    // Goes to the child under the key. `fits` says whether the node may be asked for it as it
    // is. A placeholder may when steps are made, for it becomes a table. At a function the walk
    // stays: what it gives is known only after its evaluation.
    void step_to_key(std::string_view key, bool fits)
    {
        if (node_->type == PFFUNCTION)
            return;
        if (!fits && !becomes_container())
            return fail(kMisfit);
        Pf *child = stock::is_table(node_) ? child_under(node_, key) : nullptr;
        if (!child) {
            if (!may_make_step())
                return;
            if (pfadd_arr(node_, terminated(key).get()) != 0)
                return fail(kMisfit);
            child = child_under(node_, key);
        }
        node_ = child;
    }

    void step_to_index(int i)
    {
        if (node_->type == PFFUNCTION)
            return;
        if (node_->type != PFTBL && !becomes_container())
            return fail(kMisfit);
        Pf *child = node_->type == PFTBL ? stock::child_of(node_, pfindex(i)) : nullptr;
        if (!child) {
            if (!may_make_step())
                return;
            pfadd_tbl(node_, i);
            // Meant: a placeholder at index -1 is appended, as settbl does.
            const Tbl *list = node_->value.tbl;
            child = static_cast<Pf *>(gettbl(list, i < 0 ? list->count - 1 : i));
        }
        node_ = child;
    }

    bool becomes_container() const { return create_ && node_->type == PFANY; }

    // Whether the child that the node lacks may be made; else the walk ends with an error.
    bool may_make_step()
    {
        if (!create_)
            fail(kMissing);
        else if (is_too_deep(node_))
            fail(kMisfit);
        return !error_;
    }

    void fail(int error) { error_ = error; }

    Pf *node_;     // where the walk stands
    bool create_;  // a child that is missing is made
    bool behind_first_key_ = false;
    bool leading_brace_ = false;  // the address began with "{": the next "}" is no stray one
    int error_ = 0;
};

}  // namespace

int stock::find_node(Pf *pf, const char *address, bool create, Pf **node)
{
    *node = nullptr;
    if (!pf)
        return kMissing;
    if (pf->type == PFTBL) {
        *node = child_of(pf, address);
        return *node ? (*node)->type : kMisfit;
    }
    AddressWalk walk(pf, create);
    *node = walk.to(address ? address : "");
    return *node ? (*node)->type : walk.error();
}

int pfresolve(Pf *pf, const char *address, int create, Pf **node)
{
    Pf *unwanted = nullptr;
    if (!node)
        node = &unwanted;
    const int type = stock::find_node(pf, address, create != 0, node);
    if (type == PFFUNCTION)
        *node = pfinterpret(*node);
    return type;
}
