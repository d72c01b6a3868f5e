// References in a text: &name and &{name} stand for what an enclosing table has under that
// name, functions evaluated and references in it replaced in turn.

#include "stock/pf.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/alloc.h"
#include "base/ascii.h"
#include "base/fixed_text.h"
#include "base/growing_text.h"
#include "pf/node.h"
#include "pf/open_calls.h"
#include "pf/pf_state.h"
#include "text/references.h"

namespace {

using stock::This_evaluation;

constexpr std::size_t kFirstBytes = 1024;  // the least that an expanded text starts with
constexpr int kMaxNesting = 10;            // replacements within replacements
constexpr std::size_t kMaxNestedBytes = std::size_t{64} << 20;  // that these may come to
constexpr std::size_t kCostBytes = 64;  // added for each: empty texts must not be free
static_assert(kMaxNesting < stock::OpenCalls::kMost);
constexpr const char *kMassive = "** error ** pf massive recursion";

constexpr bool is_name(char c)
{
    return stock::is_letter_or_digit(c) || c == '_';
}

// The text that the nearest enclosing table has under the name, or null.
const char *look_up(const Pf *node, std::string_view name)
{
    stock::FixedTextOf<stock::kReferenceNameSize> key;
    key.add(name);
    for (auto *at = const_cast<Pf *>(node); at; at = at->parent) {
        void *value = nullptr;
        if (stock::is_table(at) && pfget(at, key.c_str(), &value) == PFSTRING)
            return static_cast<const char *>(value);
    }
    return nullptr;
}

// The text that replaces a reference in the node's text; null when the reference stays.
const char *replacement(const Pf *node, const stock::Reference &reference)
{
    const bool is_function = !reference.braced && reference.rest.starts_with('(');
    if (is_function)
        return nullptr;
    // Ten levels that each name the next one many times would fill the memory.
    const int depth = This_evaluation.expansions.count();
    if (depth > kMaxNesting || This_evaluation.nested_bytes > kMaxNestedBytes)
        return kMassive;
    const char *value = look_up(node, reference.name);
    if (depth > 1)
        This_evaluation.nested_bytes += kCostBytes + (value ? std::strlen(value) : 0);
    return value;
}

char *expanded(const Pf *node, std::string_view text)
{
    stock::GrowingText result(std::max(kFirstBytes, 2 * text.size() + 1), "result", "pfexpand");
    stock::add_with_values(result, text, '&', is_name, [&](const stock::Reference &reference) {
        return replacement(node, reference);
    });
    return result.finish();
}

// The text that pfexpand expands, or null.
char *expandable_text(const Pf *node)
{
    if (!node)
        return nullptr;
    if (node->type == PFSTRING)
        return node->value.s;
    return node->type == PFFUNCTION && node->value.pffunct ? node->value.pffunct->text : nullptr;
}

}  // namespace

char *stock::last_expanded(const Pf *node)
{
    char *text = expandable_text(node);
    return text && std::strchr(text, '&') ? node->filled_out : text;
}

[[gnu::noinline]] char *pfexpand(Pf *node)
{
    char *text = expandable_text(node);
    if (!text || !std::strchr(text, '&'))
        return text;
    const stock::OpenCall call(This_evaluation.expansions);
    if (call.before() == 0)
        This_evaluation.nested_bytes = 0;
    char *filled_out = expanded(node, text);
    std::free(node->filled_out);
    node->filled_out = filled_out;
    return filled_out;
}
