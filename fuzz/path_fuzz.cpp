// Any text as a path: cleaned paths stay clean, parts join to the whole, and a relative
// path leads back to where it was taken from.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "stock.h"

namespace {

void expect(bool so)
{
    if (!so)
        std::abort();
}

constexpr std::size_t kRoom = 1024;  // bytes of a path, as every buffer has them

void clean_twice(const std::string &path)
{
    char once[kRoom], twice[kRoom];
    // What is left of "./~" names a file, and cleaned again somebody's home.
    if (cleanpath(path.c_str(), 0, once) == 0 && once[0] != '~') {
        expect(cleanpath(once, 0, twice) == 0);
        expect(std::strcmp(once, twice) == 0);
    }
    cleanpath(path.c_str(), CLEANPATH_LINKS, once);
    abspath(path.c_str(), once);
}

void split_up(const std::string &path)
{
    char dir[kRoom], base[kRoom], suffix[kRoom];
    parsepath(path.c_str(), dir, base, suffix);
    dirbase(path.c_str(), dir, base);
}

void there_and_back(const std::string &from, const std::string &to)
{
    char relative[kRoom];
    relpath(from.c_str(), to.c_str(), relative);
    std::free(concatpaths(from.c_str(), to.c_str(), nullptr));
    samepath(from.c_str(), to.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    const std::size_t half = text.find('\n');
    elog2stderr();
    elog_set(ELOG_DELIVER_FIELD, 4, "/dev/null");
    clean_twice(text);
    split_up(text);
    there_and_back(text.substr(0, half), half == std::string::npos ? text : text.substr(half + 1));
    elog_clear();
    return 0;
}
