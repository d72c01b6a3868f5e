// Addresses: a key, then keys in braces and indexes in brackets, one step each.
//
// next_component cuts an address into components. AddressWalk takes one step for each: from
// the current node to its child, which is made as a placeholder where that is asked for.

#include "stock/pf.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "arrays/node.h"
#include "base/alloc.h"
#include "base/ascii.h"
#include "pf/node.h"
#include "stock/elog.h"

namespace {

constexpr int kMissing = -31;                 // a step was not found
constexpr int kMisfit = -32;                  // a step does not fit the node
constexpr std::size_t kMaxBracedBytes = 255;  // a longer key in braces is cut
constexpr int kMaxTreeDepth = 1000;           // levels that steps make; text nests eleven deep

// ---- The components of an address ----

enum class Kind {
    blanks,      // outside of braces, which is no step
    plain_key,   // north
    braced_key,  // {limit}
    index,       // [2]
    stray,       // one of { } [ ] that belongs to no component
};

struct Component {
    Kind kind;
    std::size_t length;    // of its text
    std::string_view key;  // of a key
    int index = 0;         // of an index
};

// The characters that end a key, the terminator among them.
constexpr auto kEndsKey = [] {
    std::array<bool, 256> ends{};
    for (const char c : {'{', '}', '[', ']', '\0'})
        ends[static_cast<unsigned char>(c)] = true;
    return ends;
}();

std::string_view key_at(const char *text)
{
    const char *end = text;
    while (!kEndsKey[static_cast<unsigned char>(*end)])
        ++end;
    return {text, static_cast<std::size_t>(end - text)};
}

// "{key}" or a stray brace.
Component braced_key_at(const char *text)
{
    const std::string_view key = key_at(text + 1);
    if (text[1 + key.size()] != '}')
        return {Kind::stray, 1, {}};
    const std::string_view trimmed = stock::trimmed(key, stock::is_blank);
    return {Kind::braced_key, key.size() + 2, trimmed.substr(0, kMaxBracedBytes)};
}

// What atoi gives, within the limits of an int.
int index_from(const char *digits)
{
    return static_cast<int>(std::clamp<long>(std::strtol(digits, nullptr, 10), INT_MIN, INT_MAX));
}

// "[12]", "[-1]" or a stray bracket.
Component index_at(const char *text)
{
    const std::size_t digits = text[1] == '-' ? 2 : 1;
    const std::size_t close = digits + std::strspn(text + digits, "0123456789");
    if (close == digits || text[close] != ']')
        return {Kind::stray, 1, {}};
    return {Kind::index, close + 1, {}, index_from(text + 1)};
}

// The component at the start of the text, which is not empty. Before the first key there
// are no braced keys and indexes.
Component next_component(const char *text, bool behind_first_key)
{
    const std::string_view key = key_at(text);
    if (!key.empty())
        return {stock::trimmed(key, stock::is_blank).empty() ? Kind::blanks : Kind::plain_key,
                key.size(), key};
    if (behind_first_key && text[0] == '{')
        return braced_key_at(text);
    if (behind_first_key && text[0] == '[')
        return index_at(text);
    return {Kind::stray, 1, {}};
}

// ---- The steps through a tree ----

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
            const Component component = next_component(address, behind_first_key_);
            take(component, *address);
            address += component.length;
        }
        return error_ ? nullptr : node_;
    }

    // 0, kMissing or kMisfit.
    int error() const { return error_; }

private:
    void take(const Component &component, char first)
    {
        switch (component.kind) {
        case Kind::blanks: break;
        case Kind::plain_key:
            behind_first_key_ = true;
            step_to_key(component.key, true);
            break;
        case Kind::braced_key: step_to_key(component.key, node_->type == PFARR); break;
        case Kind::index: step_to_index(component.index); break;
        case Kind::stray: report_stray(first); break;
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
