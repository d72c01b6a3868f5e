// Data files along a search path.
//
// One buffer takes each element of the list in turn and grows into a candidate;
// what does not fit it is no candidate.

#include "stock/datasearch.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/guards.h"
#include "stock/expand_env.h"
#include "stock/gettaluvine.h"
#include "stock/path.h"
#include "stock/restat.h"
#include "stock/strings.h"

namespace {

constexpr size_t kPathSize = 1024;

using Text = stock::Owned<char>;

// What is looked for, and what was found.
struct Search {
    const char *subdir;
    const char *name;
    const char *base;  // behind the name's last "/", null without one
    bool any;          // candidates need not be readable
    Tbl *found;

    void add(const char *path) const
    {
        if (any || access(path, R_OK) == 0)
            pushtbl(found, stock::copy_text(path, "path"));
    }

    void add_in(const char *dir, const char *file) const
    {
        char path[kPathSize];
        const char *slash = dir[strlen(dir) - 1] == '/' || *file == '/' ? "" : "/";
        const int length = snprintf(path, sizeof path, "%s%s%s", dir, slash, file);
        if (length >= 0 && length < static_cast<int>(sizeof path))
            add(path);
    }
};

// Writes where an element of the list leads. False when that is too long.
bool place(const char *element, const char *subdir, char *path)
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
    const Text joined(concatpaths(path, subdir, nullptr));
    strcpy(path, joined.get());
    return *path != 0;
}

void search_element(const Search &search, const char *element)
{
    char path[kPathSize];
    struct stat status;
    if (!place(element, search.subdir, path) || restat(path, &status) < 0)
        return;
    if (S_ISDIR(status.st_mode)) {
        search.add_in(path, search.name);
        if (search.base)
            search.add_in(path, search.base);
    } else if (*path == '/' || search.any)
        search.add(path);
}

Text default_paths()
{
    if (const char *paths = getenv("DATAPATH"))
        return Text(stock::copy_text(paths, "paths"));
    return Text(strconcat(gettaluvine(), "/data", nullptr));
}

}  // namespace

Tbl *datasearch(const char *paths, const char *subdir, const char *name, uint32_t flags)
{
    const stock::KeepErrno keep;
    Tbl *found = newtbl(5);
    if (!name)
        return found;
    Text list(paths && *paths ? Text(stock::copy_text(paths, "paths")) : default_paths());
    if (flags & DATASEARCH_EXPAND)
        list.reset(expand_env(list.get()));
    const char *slash = strrchr(name, '/');
    const Search search{subdir, name, slash ? slash + 1 : nullptr, (flags & DATASEARCH_ANY) != 0,
                        found};
    Tbl *elements = split(list.get(), ':');
    for (int64_t i = 0; i < elements->count; ++i)
        search_element(search, static_cast<const char *>(gettbl(elements, i)));
    freetbl(elements, nullptr);
    return found;
}

char *datapath(const char *variable, const char *subdir, const char *name, const char *suffix)
{
    char full[kPathSize];
    const bool with_suffix = suffix && *suffix;
    const int length = snprintf(full, sizeof full, "%s%s%s", okstr(name), with_suffix ? "." : "",
                                with_suffix ? suffix : "");
    if (!name || length < 0 || length >= static_cast<int>(sizeof full))
        return nullptr;
    const char *paths = variable && *variable ? getenv(variable) : nullptr;
    Tbl *found = datasearch(paths, subdir, full, DATASEARCH_EXPAND);
    auto *first = static_cast<char *>(shifttbl(found));
    freetbl(found, free);
    return first;
}

char *datafile(const char *variable, const char *name)
{
    return datapath(variable, nullptr, name, nullptr);
}
