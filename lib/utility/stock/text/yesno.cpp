// yesno: tells the words for yes from those for no, in either case.

#include "stock/yesno.h"

#include <algorithm>
#include <string_view>

#include "base/ascii.h"

namespace {

constexpr std::string_view kYesWords[] = {"yes", "ok", "y", "true", "1", "on", "t"};
constexpr std::string_view kNoWords[] = {"no", "n", "false", "0", "off", "f"};

// Whether the text, in either case, is one of the words, which are in lower case.
template <std::size_t count>
bool is_one_of(std::string_view text, const std::string_view (&words)[count])
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
    if (is_one_of(text, kYesWords))
        return -1;
    return is_one_of(text, kNoWords) ? 0 : 1;
}
