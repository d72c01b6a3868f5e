// Addresses such as "a{b}[2]", cut into their components: for pfresolve, which walks through a
// tree, for pfwhere, which walks through the text of files, and for the tool.

#pragma once

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/ascii.h"

namespace stock {

constexpr std::size_t kMaxBracedBytes = 255;  // pfresolve cuts a longer key in braces

enum class AddressPart {
    blanks,      // outside of braces; they are no step
    plain_key,   // north
    braced_key,  // {limit}
    index,       // [2]
    stray,       // one of { } [ ] that belongs to no component
};

struct AddressComponent {
    AddressPart part;
    std::size_t length;    // of the component in the address
    std::string_view key;  // a plain key, or the text between braces
    int index = 0;         // what atoi gives of an index, within the limits of an int
};

namespace address {

// The characters that end a key, the terminator among them.
inline constexpr auto kEndsKey = [] {
    std::array<bool, 256> ends{};
    for (const char c : {'{', '}', '[', ']', '\0'})
        ends[static_cast<unsigned char>(c)] = true;
    return ends;
}();

inline std::string_view key_at(const char *text)
{
    const char *end = text;
    while (!kEndsKey[static_cast<unsigned char>(*end)])
        ++end;
    return {text, static_cast<std::size_t>(end - text)};
}

}  // namespace address

// The component at the start of an address, which is not empty. Before its first key an
// address has no braced keys and no indexes: there, their marks are stray.
inline AddressComponent next_component(const char *text, bool behind_first_key)
{
    const std::string_view plain = address::key_at(text);
    if (!plain.empty())
        return {std::ranges::all_of(plain, is_blank) ? AddressPart::blanks : AddressPart::plain_key,
                plain.size(), plain};
    if (behind_first_key && text[0] == '{') {
        const std::string_view key = address::key_at(text + 1);
        if (text[1 + key.size()] == '}')
            return {AddressPart::braced_key, key.size() + 2, key};
    } else if (behind_first_key && text[0] == '[') {
        const std::size_t digits = text[1] == '-' ? 2 : 1;
        const std::size_t close = digits + std::strspn(text + digits, "0123456789");
        const long index = std::clamp<long>(std::strtol(text + 1, nullptr, 10), INT_MIN, INT_MAX);
        if (close > digits && text[close] == ']')
            return {AddressPart::index, close + 1, {}, static_cast<int>(index)};
    }
    return {AddressPart::stray, 1, {}};
}

}  // namespace stock
