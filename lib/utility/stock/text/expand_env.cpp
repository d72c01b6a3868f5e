// Environment variables in text, replaced from left to right in one pass.
//
// The result always has room for what is left of the input, so only a value can
// make it grow.

#include "stock/expand_env.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/alloc.h"
#include "base/ascii.h"
#include "base/growing_text.h"

namespace {

constexpr std::size_t kFirst = 1024;    // the least that the result starts with
constexpr std::size_t kMaxName = 1023;  // longer names are cut

constexpr bool is_alphanumeric(char c)
{
    return stock::is_digit(c) || stock::is_letter(c);
}

struct Reference {
    std::string_view text;  // with "$" and braces
    std::string_view name;
};

// The reference at the start of the text, which is a "$".
Reference reference_at(std::string_view text)
{
    if (text.substr(1, 1) == "{") {
        const std::size_t close = std::min(text.find('}'), text.size());
        return {text.substr(0, close + 1), text.substr(2, close - 2)};
    }
    const auto *end = std::find_if_not(text.begin() + 1, text.end(), is_alphanumeric);
    const auto length = static_cast<std::size_t>(end - text.begin());
    return {text.substr(0, length), text.substr(1, length - 1)};
}

const char *value_of(std::string_view name)
{
    char variable[kMaxName + 1];
    variable[name.copy(variable, kMaxName)] = 0;
    return name.empty() ? nullptr : std::getenv(variable);
}

}  // namespace

char *expand_env(const char *string)
{
    std::string_view rest = string ? string : "";
    std::size_t dollar = rest.find('$');
    if (dollar == rest.npos)
        return stock::copy_text(rest.data(), "result");
    stock::GrowingText result(std::max(kFirst, 2 * rest.size()), "result", "expand_env");
    for (; dollar != rest.npos; dollar = rest.find('$')) {
        result.add(rest.substr(0, dollar));
        rest.remove_prefix(dollar);
        const Reference reference = reference_at(rest);
        rest.remove_prefix(reference.text.size());
        if (const char *value = value_of(reference.name))
            result.add_value(value, rest.size());
        else
            result.add(reference.text);
    }
    result.add(rest);
    return result.finish();
}
