// Which files make up a parameter file, and when they were changed.
//
// A name stands for every file of that name along the search path. A name with a directory of
// its own, such as "site/rain", stands also for the file there.

#include "stock/pf.h"

#include <cstdlib>
#include <cstring>
#include <string_view>

#include <unistd.h>

#include "base/alloc.h"
#include "base/fixed_text.h"
#include "base/guards.h"
#include "base/limits.h"
#include "base/mtime.h"
#include "deviants/system.h"
#include "stock/datasearch.h"
#include "stock/gettaluvine.h"
#include "stock/path.h"
#include "stock/restat.h"
#include "stock/strings.h"

namespace {

using stock::kPathSize;

// Bits of the last argument of datasearch.
constexpr int kExpandVariables = 1;  // expands environment variables in the path
constexpr int kListUnreadable = 2;   // lists files that cannot be read, too

// Copies the name, with the suffix ".pf" unless it has one. `base` is the name without its
// directory. False when the copy would not fit.
//
// Meant: ".pf" is a name with its suffix; "pf" and "f" get one.
bool copy_with_suffix(const char *name, const char *base, char (&out)[kPathSize])
{
    const std::string_view suffix = std::string_view(base).ends_with(".pf") ? "" : ".pf";
    const std::string_view text = name;
    if (text.size() + suffix.size() >= kPathSize)
        return false;
    stock::FixedText copy(out, sizeof out);
    copy.add(text);
    copy.add(suffix);
    copy.c_str();
    return true;
}

// The directories that are searched: those of PFPATH, or else the installation's and the
// working directory.
stock::Owned<char> search_path()
{
    if (const char *path = stock::trusted_env("PFPATH"))
        return stock::Owned<char>(stock::copy_text(path, "path"));
    return stock::Owned<char>(strconcat(gettaluvine(), "/data/pf:.", nullptr));
}

bool holds(const Tbl *paths, const char *path)
{
    for (int64_t i = 0; i < paths->count; ++i)
        if (std::strcmp(static_cast<const char *>(gettbl(paths, i)), path) == 0)
            return true;
    return false;
}

// Whether the name has no directory of its own, so that only the search finds its files.
bool has_no_directory(const char *name, const char *dir)
{
    return std::strncmp(name, "./", 2) != 0 && name[0] != '/' && std::strcmp(dir, ".") == 0;
}

}  // namespace

Tbl *pffiles(const char *name, int all)
{
    const stock::KeepErrno keep;
    char dir[kPathSize];
    char base[kPathSize];
    char file[kPathSize];
    char whole[kPathSize];
    if (!name || !*name || std::strlen(name) >= kPathSize)
        return newtbl(0);
    dirbase(name, dir, base);
    if (!copy_with_suffix(base, base, file) || !copy_with_suffix(name, base, whole))
        return newtbl(0);

    const stock::Owned<char> path = search_path();
    Tbl *files = datasearch(path.get(), nullptr, file,
                            all ? kExpandVariables | kListUnreadable : kExpandVariables);
    // Meant: the list is searched for the directory, not for the file.
    if (has_no_directory(name, dir) || holds(files, dir))
        return files;
    if (all || access(whole, R_OK) == 0)
        pushtbl(files, stock::copy_text(whole, "path"));
    return files;
}

Tbl *pftimes(const char *name)
{
    Tbl *files = pffiles(name, 0);
    Tbl *times = inittbl(0, 0, 1, nullptr, sizeof(Pftime));
    for (int64_t i = 0; i < files->count; ++i) {
        const auto *path = static_cast<const char *>(gettbl(files, i));
        struct stat status {};
        if (restat(path, &status) != 0)  // removed since it was listed
            continue;
        const Pftime time{stock::modification_time(status), stock::copy_text(path, "path")};
        pushtbl(times, &time);
    }
    freetbl(files, std::free);
    return times;
}

void pffree_time(void *time)
{
    std::free(static_cast<Pftime *>(time)->path);
}
