// Addresses: a key, then keys in braces and indexes in brackets, one step each.
//
// A scanner cuts the address into tokens; each token is one step from the current
// node to the next, which is made as a placeholder where that is asked for.

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
#include "pf/node.h"
#include "stock/elog.h"

namespace {

constexpr int kMissing = -31;    // a step was not found
constexpr int kMisfit = -32;     // a step does not fit the node
constexpr int kMaxBraced = 255;  // longer keys in braces are cut

// The marks and the end of the address: what a key ends at.
constexpr auto kEndsKey = [] {
    std::array<bool, 256> ends{};
    for (const char c : {'{', '}', '[', ']', '\0'})
        ends[static_cast<unsigned char>(c)] = true;
    return ends;
}();

constexpr bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

// What stands before the next mark or the end.
std::string_view key_at(const char *text)
{
    const char *end = text;
    while (!kEndsKey[static_cast<unsigned char>(*end)])
        ++end;
    return {text, static_cast<std::size_t>(end - text)};
}

// A key as a string of its own.
stock::Owned<char> key_of(std::string_view text)
{
    stock::Owned<char> key(
        static_cast<char *>(stock::allocate(text.size() + 1, "key", "pfresolve")));
    key.get()[text.copy(key.get(), text.size())] = 0;
    return key;
}

Pf *child_of(const Pf *table, std::string_view key)
{
    const Arr *arr = table->value.arr;
    if (!arr)
        return nullptr;
    return static_cast<Pf *>(stock::holds_text(arr) ? stock::get_text(arr, key)
                                                    : getarr(arr, key_of(key).get()));
}

std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    return text;
}

// What atoi gives, within the limits of an int.
int number(const char *digits)
{
    return static_cast<int>(std::clamp<long>(std::strtol(digits, nullptr, 10), INT_MIN, INT_MAX));
}

// One walk along an address.
class Walk {
public:
    Walk(Pf *pf, bool create) : current_(pf), create_(create) {}

    int error() const { return error_; }
    Pf *found() const { return current_; }

    void take(const char *address)
    {
        while (*address && !error_)
            address += token(address);
    }

private:
    // Takes the token at the start of the text. Gives its length.
    std::size_t token(const char *text)
    {
        const std::string_view key = key_at(text);
        if (!key.empty()) {
            if (!trimmed(key).empty())
                plain_key(key);
            return key.size();
        }
        if (started_)
            if (const std::size_t length = braced_key(text) + index(text))
                return length;
        mark(text[0]);
        return 1;
    }

    // "{key}"; 0 when the text does not begin with that.
    std::size_t braced_key(const char *text)
    {
        if (text[0] != '{')
            return 0;
        const std::string_view key = key_at(text + 1);
        const std::size_t close = 1 + key.size();
        if (text[close] != '}')
            return 0;
        key_step(trimmed(key).substr(0, kMaxBraced), current_->type == PFARR);
        return close + 1;
    }

    // "[-12]"; 0 when the text does not begin with that.
    std::size_t index(const char *text)
    {
        if (text[0] != '[')
            return 0;
        const std::size_t digits = text[1] == '-' ? 2 : 1;
        const std::size_t close = digits + std::strspn(text + digits, "0123456789");
        if (close == digits || text[close] != ']')
            return 0;
        index_step(number(text + 1));
        return close + 1;
    }

    // A mark that belongs to no component.
    void mark(char c)
    {
        if (c == '[') {
            std::fprintf(stderr, "unmatched char '%c'\n", c);
        } else if (!started_ && c == '{') {
            leading_brace_ = true;
        } else if (c == '}' && (!started_ || leading_brace_)) {
            leading_brace_ = false;  // "{a}" is the plain key a
        } else {
            std::putchar(c);
        }
    }

    void plain_key(std::string_view key)
    {
        started_ = true;
        key_step(key, true);
    }

    // A key in a node that fits, or would fit once it is a table.
    void key_step(std::string_view text, bool fits)
    {
        if (current_->type == PFFUNCTION)
            return;
        if (!fits && !(create_ && current_->type == PFANY))
            return fail(kMisfit);
        const bool table = current_->type == PFFILE || current_->type == PFARR;
        Pf *child = table ? child_of(current_, text) : nullptr;
        if (!child && !create_)
            return fail(kMissing);
        if (!child && too_deep())
            return fail(kMisfit);
        if (!child && pfadd_arr(current_, key_of(text).get()) != 0)
            return fail(kMisfit);
        current_ = child ? child : child_of(current_, text);
    }

    void index_step(int i)
    {
        if (current_->type == PFFUNCTION)
            return;
        if (current_->type != PFTBL && !(create_ && current_->type == PFANY))
            return fail(kMisfit);
        Pf *child =
            current_->type == PFTBL ? static_cast<Pf *>(gettbl(current_->value.tbl, i)) : nullptr;
        if (!child && !create_)
            return fail(kMissing);
        if (!child && too_deep())
            return fail(kMisfit);
        if (!child)
            pfadd_tbl(current_, i);
        const Tbl *list = current_->value.tbl;
        // Meant: a placeholder at index -1 is appended, as settbl does.
        current_ = child ? child : static_cast<Pf *>(gettbl(list, i < 0 ? list->count - 1 : i));
    }

    // Whether a new step would go deeper than the walks through a tree do.
    bool too_deep() const
    {
        int depth = 0;
        for (const Pf *at = current_; at && depth <= stock::kMaxDepth; at = at->parent)
            ++depth;
        if (depth > stock::kMaxDepth)
            elog_log(0, stock::kTooDeep, stock::kMaxDepth);
        return depth > stock::kMaxDepth;
    }

    void fail(int error) { error_ = error; }

    Pf *current_;
    bool create_;
    bool started_ = false;        // behind the first component
    bool leading_brace_ = false;  // an address that began with "{" has one "}" to spare
    int error_ = 0;
};

}  // namespace

namespace stock {

int find_node(Pf *pf, const char *address, bool create, Pf **node)
{
    *node = nullptr;
    if (!pf)
        return kMissing;
    if (pf->type == PFTBL) {
        *node = static_cast<Pf *>(gettbl(pf->value.tbl, reinterpret_cast<intptr_t>(address)));
        return *node ? (*node)->type : kMisfit;
    }
    Walk walk(pf, create);
    walk.take(address ? address : "");
    if (walk.error())
        return walk.error();
    *node = walk.found();
    return (*node)->type;
}

}  // namespace stock

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
