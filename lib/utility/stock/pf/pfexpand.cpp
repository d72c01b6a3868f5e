// References in a text: &name and &{name} stand for what an enclosing table has
// under that name.

#include "stock/pf.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/alloc.h"
#include "base/growing_text.h"
#include "pf/open_calls.h"
#include "pf/value.h"

namespace {

constexpr std::size_t kFirst = 1024;    // the least that an expanded text starts with
constexpr std::size_t kMaxName = 1023;  // longer names are cut
constexpr int kMaxDepth = 10;           // replacements within replacements
constexpr std::size_t kMaxNested = std::size_t{64} << 20;  // bytes that those may come to
constexpr std::size_t kCost = 64;                          // of a replacement, however short
static_assert(kMaxDepth < stock::OpenCalls::kMost);
constexpr const char *kMassive = "** error ** pf massive recursion";

// The calls of pfexpand that this thread has open: each but the first looks for a
// replacement in the text of the one before.
thread_local stock::OpenCalls Open;

// What this thread's outermost text has cost so far in replacements within
// replacements: each of ten levels may name the next one many times.
thread_local std::size_t Nested = 0;

constexpr bool is_name(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

struct Reference {
    std::string_view text;  // with "&" and braces
    std::string_view name;
    bool call;  // the name of a function, which is no reference
};

// The reference at the start of the text, which is an "&".
Reference reference_at(std::string_view text)
{
    if (text.substr(1, 1) == "{") {
        const std::size_t close = std::min(text.find('}'), text.size());
        return {text.substr(0, close + 1), text.substr(2, close - 2), false};
    }
    const auto *end = std::find_if_not(text.begin() + 1, text.end(), is_name);
    const auto length = static_cast<std::size_t>(end - text.begin());
    return {text.substr(0, length), text.substr(1, length - 1), text.substr(length, 1) == "("};
}

// The text that the nearest enclosing table has under the name, or null.
const char *look_up(const Pf *node, std::string_view name)
{
    char key[kMaxName + 1];
    key[name.copy(key, kMaxName)] = 0;
    for (auto *at = const_cast<Pf *>(node); at; at = at->parent) {
        void *value = nullptr;
        if ((at->type == PFFILE || at->type == PFARR) && pfget(at, key, &value) == PFSTRING)
            return static_cast<const char *>(value);
    }
    return nullptr;
}

const char *replacement(const Pf *node, const Reference &reference)
{
    if (reference.call)
        return nullptr;
    const int depth = Open.count();
    if (depth > kMaxDepth || Nested > kMaxNested)
        return kMassive;
    const char *value = look_up(node, reference.name);
    if (depth > 1)
        Nested += kCost + (value ? std::strlen(value) : 0);
    return value;
}

char *expanded(const Pf *node, std::string_view rest)
{
    stock::GrowingText result(std::max(kFirst, 2 * rest.size() + 1), "result", "pfexpand");
    for (std::size_t at = rest.find('&'); at != rest.npos; at = rest.find('&')) {
        result.add(rest.substr(0, at));
        rest.remove_prefix(at);
        const Reference reference = reference_at(rest);
        rest.remove_prefix(reference.text.size());
        if (const char *value = replacement(node, reference))
            result.add(value, rest.size());
        else
            result.add(reference.text);
    }
    result.add(rest);
    return result.finish();
}

char *text_of(const Pf *node)
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
    char *text = text_of(node);
    return text && std::strchr(text, '&') ? node->filled_out : text;
}

[[gnu::noinline]] char *pfexpand(Pf *node)
{
    char *text = text_of(node);
    if (!text || !std::strchr(text, '&'))
        return text;
    const stock::OpenCall call(Open);
    if (call.before() == 0)
        Nested = 0;
    char *filled_out = expanded(node, text);
    std::free(node->filled_out);
    node->filled_out = filled_out;
    return filled_out;
}
