// Shared: the one reader of references in a text: `$name` and `${name}`, `&name` and `&{name}`.
//
// A reference is a mark ('$' or '&') and a name behind it. Without braces the name is as long
// as is_name(c) holds; with braces it goes to the closing brace or, without one, to the end.

#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace stock {

// What a name's value is looked up by: longer names are cut to this many bytes, the
// terminator included.
inline constexpr std::size_t kReferenceNameSize = 1024;

struct Reference {
    std::string_view text;  // all of it, mark and braces included
    std::string_view name;  // empty when no name follows the mark
    std::string_view rest;  // what follows it
    bool braced;
};

// The reference that the text begins with; its first character is the mark.
template <class IsName>
constexpr Reference reference_at(std::string_view text, IsName is_name)
{
    const bool braced = text.substr(1, 1) == "{";
    if (braced) {
        const std::size_t close = std::min(text.find('}'), text.size());
        const std::size_t end = std::min(close + 1, text.size());
        return {text.substr(0, end), text.substr(2, close - 2), text.substr(end), braced};
    }
    std::size_t end = 1;
    while (end < text.size() && is_name(text[end]))
        ++end;
    return {text.substr(0, end), text.substr(1, end - 1), text.substr(end), braced};
}

// Adds the text to the result, a GrowingText, with each reference replaced by the text that
// value_of(reference) gives. A reference for which it gives null stays as it is written.
template <class Result, class IsName, class ValueOf>
void add_with_values(Result &result, std::string_view text, char mark, IsName is_name,
                     ValueOf value_of)
{
    for (std::size_t at = text.find(mark); at != text.npos; at = text.find(mark)) {
        result.add(text.substr(0, at));
        const Reference reference = reference_at(text.substr(at), is_name);
        text = reference.rest;
        if (const char *value = value_of(reference))
            result.add(value, text.size());
        else
            result.add(reference.text);
    }
    result.add(text);
}

}  // namespace stock
