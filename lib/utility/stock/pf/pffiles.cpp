// Which files make up a parameter file, and how old they are.
//
// A name stands for every file of that name along the search path, and for the
// file that it leads to itself when it names a directory of its own.

#include "stock/pf.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

#include "base/alloc.h"
#include "base/guards.h"
#include "base/mtime.h"
#include "stock/datasearch.h"
#include "stock/gettaluvine.h"
#include "stock/path.h"
#include "stock/restat.h"
#include "stock/strings.h"

namespace {

constexpr int kPathSize = 1024;

constexpr int kExpand = 1;      // datasearch: environment variables in the path
constexpr int kUnreadable = 2;  // datasearch: files that cannot be read, too

// Copies the name with the suffix ".pf" when it has none. A name that would not
// fit is refused.
//
// Meant: ".pf" is a name with its suffix; "pf" and "f" get one.
bool with_suffix(const char *name, const char *base, char *out)
{
    const size_t length = std::strlen(base);
    const bool has_suffix = length >= 3 && std::strcmp(base + length - 3, ".pf") == 0;
    return std::snprintf(out, kPathSize, "%s%s", name, has_suffix ? "" : ".pf") < kPathSize;
}

// The directories that are searched: PFPATH, or the installation's and the working one.
stock::Owned<char> search_path()
{
    if (const char *path = std::getenv("PFPATH"))
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

// Whether the path alone finds the file: a name with no directory of its own.
bool is_plain(const char *name, const char *dir)
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
    if (!with_suffix(base, base, file) || !with_suffix(name, base, whole))
        return newtbl(0);

    const stock::Owned<char> path = search_path();
    Tbl *files = datasearch(path.get(), nullptr, file, all ? kExpand | kUnreadable : kExpand);
    if (is_plain(name, dir) || holds(files, dir))
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
        if (restat(path, &status) != 0)
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
