// Environment variables in text: expand_env replaces `$NAME` and `${NAME}` from left to right
// in one pass and does not search the values again.
//
// The result is given room for what is left of the input, so only a value can make it grow.

#include "stock/expand_env.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "base/alloc.h"
#include "base/ascii.h"
#include "base/fixed_text.h"
#include "base/growing_text.h"
#include "text/references.h"

namespace {

constexpr std::size_t kFirstSize = 1024;  // the least that the result starts with

// The variable's text, or null when it is not set.
const char *value_of(const stock::Reference &reference)
{
    stock::FixedTextOf<stock::kReferenceNameSize> name;
    name.add(reference.name);
    return reference.name.empty() ? nullptr : std::getenv(name.c_str());
}

}  // namespace

char *expand_env(const char *string)
{
    const std::string_view text = string ? string : "";
    if (text.find('$') == text.npos)
        return stock::copy_text(text.data(), "result");
    stock::GrowingText result(std::max(kFirstSize, 2 * text.size()), "result");
    // Meant: without braces a name has no underscore; $HOME_DIR is HOME, then _DIR.
    stock::add_with_values(result, text, '$', stock::is_letter_or_digit, value_of);
    return result.finish();
}
