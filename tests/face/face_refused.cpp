// Mistakes that must not compile with the C++ face. Each case is compiled by itself and must
// fail, except case 0, the control: it has no mistake and must compile.

#include "stock.hpp"

#include <array>
#include <bit>
#include <cstddef>
#include <string_view>

int main()
{
    [[maybe_unused]] const std::string_view view = "view";
    [[maybe_unused]] const char *variable = "%s";
    [[maybe_unused]] std::array<std::byte, 8> bytes{};
    [[maybe_unused]] std::array<int, 2> numbers{};
#if CASE == 0
    stock::report::notify("%d %.*s", 1, view);
    if (stock::convert<std::endian::big>(bytes, numbers) != stock::converted::exact)
        stock::report::alert("lost");
    stock::params tree;
    (void)pfset(tree.pf(), "a", "1");
    (void)tree.get<bool>("on", false);
    (void)tree.get<std::string_view>("a", "x");
    (void)tree.get<double>("a", 2);
#elif CASE == 1   // another type
    stock::report::notify("%s", 1);
#elif CASE == 2   // an argument too few
    stock::report::notify("%d %d", 1);
#elif CASE == 3   // an argument too many
    stock::report::notify("%d", 1, 2);
#elif CASE == 4   // a text without an end
    stock::report::notify("%s", view);
#elif CASE == 5   // a format that is not constant
    stock::report::notify(variable, "text");
#elif CASE == 6   // fixed sizes that do not fit
    (void)stock::convert<std::endian::big, short>(bytes, numbers);
#elif CASE == 7   // a list is not copied by the way
    const stock::list<int> list;
    const stock::list<int> copy = list;
#elif CASE == 8   // records that can't be copied byte by byte
    const stock::list<std::string> list;
#elif CASE == 9   // no such parameter
    (void)stock::params().get<std::array<int, 2>>("a");
#elif CASE == 10  // a fallback of another type
    (void)stock::params().get<bool>("on", "no");
#elif CASE == 11  // a fallback that is gone behind the call
    (void)stock::params().get<std::string_view>("a", std::string("x"));
#elif CASE == 12  // a fallback that loses something
    (void)stock::params().get<int>("a", 2.5);
#elif CASE == 13  // a const tree is not changed
    const stock::params constant;
    (void)pfset(constant.pf(), "a", "1");
#endif
}
