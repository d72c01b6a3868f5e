// Searching a list of paths for a file.
//
// Each element of the list is copied into one path buffer, a home directory in front is
// resolved, and the subdirectory and the name are appended. A path that does not fit the
// buffer is passed over: cut, it would be another path.

#include "paths/search.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "base/limits.h"
#include "stock/path.h"
#include "stock/restat.h"
#include "stock/strings.h"

namespace {

using stock::kPathSize;
using stock::Owned;

// One search: the name that is looked for, and the paths found so far.
struct PathSearch {
    const char *subdir;
    const char *name;
    const char *base;  // behind the name's last "/"; null for a name without one
    bool any;          // paths that cannot be read count too
    Tbl *found;

    // Adds the path to what was found when it counts.
    void add(const char *path) const
    {
        if (any || access(path, R_OK) == 0)
            pushtbl(found, stock::copy_text(path, "path"));
    }

    // Adds dir/file, unless that is too long for a path.
    void add_in(const char *dir, const char *file) const
    {
        char path[kPathSize];
        const char *slash = dir[strlen(dir) - 1] == '/' || *file == '/' ? "" : "/";
        const int length = snprintf(path, sizeof path, "%s%s%s", dir, slash, file);
        if (length >= 0 && length < static_cast<int>(sizeof path))
            add(path);
    }
};

// Fills `path` with the element and the subdirectory. False when the element is empty or
// the result is too long.
bool element_path(const char *element, const char *subdir, char *path)
{
    if (strlen(element) >= kPathSize)
        return false;
    strcpy(path, element);
    if (*path == '~')
        cleanpath(element, CLEANPATH_LINKS, path);
    if (!*path)
        return false;
    if (!subdir || !*subdir)
        return true;
    if (strlen(path) + 1 + strlen(subdir) >= kPathSize)
        return false;
    const Owned<char> joined(concatpaths(path, subdir, nullptr));
    strcpy(path, joined.get());
    return *path != 0;
}

// Adds what an element of the list gives: the name in a directory, or the element itself
// when it is a file.
void search_element(const PathSearch &search, const char *element)
{
    char path[kPathSize];
    struct stat status;
    if (!element_path(element, search.subdir, path) || restat(path, &status) < 0)
        return;
    if (S_ISDIR(status.st_mode)) {
        search.add_in(path, search.name);
        if (search.base)
            search.add_in(path, search.base);
    } else if (*path == '/' || search.any) {
        search.add(path);
    }
}

}  // namespace

namespace stock {

Tbl *search_paths(Owned<char> paths, const char *subdir, const char *name, bool any)
{
    const char *slash = strrchr(name, '/');
    const PathSearch search{subdir, name, slash ? slash + 1 : nullptr, any, newtbl(5)};
    Tbl *elements = split(paths.get(), ':');  // points into paths
    for (int64_t i = 0; i < elements->count; ++i)
        search_element(search, static_cast<const char *>(gettbl(elements, i)));
    freetbl(elements, nullptr);
    return search.found;
}

Owned<char> take_first(Tbl *found)
{
    Owned<char> first(static_cast<char *>(shifttbl(found)));
    freetbl(found, std::free);
    return first;
}

}  // namespace stock
