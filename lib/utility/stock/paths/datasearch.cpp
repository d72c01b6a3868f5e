// Data files along a search path: the lists that programs and the environment give, and
// the directory "data" of the installation root when they give none. The search itself is
// paths/search.

#include "stock/datasearch.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "base/alloc.h"
#include "base/guards.h"
#include "base/limits.h"
#include "deviants/system.h"
#include "paths/search.h"
#include "stock/expand_env.h"
#include "stock/gettaluvine.h"
#include "stock/strings.h"

namespace {

using stock::Owned;

// The value of DATAPATH, or the directory "data" of the installation root.
Owned<char> default_paths()
{
    if (const char *paths = stock::trusted_env("DATAPATH"))
        return Owned<char>(stock::copy_text(paths, "paths"));
    return Owned<char>(strconcat(gettaluvine(), "/data", nullptr));
}

}  // namespace

Tbl *datasearch(const char *paths, const char *subdir, const char *name, uint32_t flags)
{
    const stock::KeepErrno keep;
    if (!name)
        return newtbl(5);
    Owned<char> list(paths && *paths ? Owned<char>(stock::copy_text(paths, "paths"))
                                     : default_paths());
    if (flags & DATASEARCH_EXPAND)
        list.reset(expand_env(list.get()));
    return stock::search_paths(std::move(list), subdir, name, (flags & DATASEARCH_ANY) != 0);
}

char *datapath(const char *variable, const char *subdir, const char *name, const char *suffix)
{
    char full[stock::kPathSize];
    const bool with_suffix = suffix && *suffix;
    const int length = snprintf(full, sizeof full, "%s%s%s", okstr(name), with_suffix ? "." : "",
                                with_suffix ? suffix : "");
    if (!name || length < 0 || length >= static_cast<int>(sizeof full))
        return nullptr;
    const char *paths = variable && *variable ? stock::trusted_env(variable) : nullptr;
    return stock::take_first(datasearch(paths, subdir, full, DATASEARCH_EXPAND)).release();
}

char *datafile(const char *variable, const char *name)
{
    return datapath(variable, nullptr, name, nullptr);
}
