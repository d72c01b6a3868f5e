// Yes and no in words.

#include "stock/yesno.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "base/ascii.h"

namespace {

constexpr std::string_view True[] = {"yes", "ok", "y", "true", "1", "on", "t"};
constexpr std::size_t NTrue = std::size(True);
constexpr std::string_view False[] = {"no", "n", "false", "0", "off", "f"};
constexpr std::size_t NFalse = std::size(False);

// Whether the text, lowered, is one of the words, which are lower case.
bool is_one_of(std::string_view text, const std::string_view *words, std::size_t count)
{
    return std::any_of(words, words + count, [=](std::string_view word) {
        return std::equal(text.begin(), text.end(), word.begin(), word.end(),
                          [](char a, char b) { return stock::lower(a) == b; });
    });
}

}  // namespace

int yesno(const char *string)
{
    const std::string_view text = string ? string : "";
    if (is_one_of(text, True, NTrue))
        return -1;
    return is_one_of(text, False, NFalse) ? 0 : 1;
}
