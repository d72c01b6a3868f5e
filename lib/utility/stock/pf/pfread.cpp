// Reading parameter files by name: pfread reads all files of a name into one tree, pfload the
// one file that the data path leads to.
//
// A key of a later file replaces the same key of an earlier file, because each parse goes on
// with the same tree. The caller gets a tree in every case, even an empty one.

#include "stock/pf.h"

#include <cerrno>
#include <cstdlib>

#include <fcntl.h>

#include "base/alloc.h"
#include "base/descriptor.h"
#include "base/guards.h"
#include "stock/datasearch.h"
#include "stock/elog.h"
#include "stock/restat.h"
#include "stock/strings.h"

namespace {

// Stores an empty tree in *pf. It borrows the caller's name.
Pf *new_top(const char *name, Pf **pf)
{
    *pf = pfnew(PFARR);
    (*pf)->filename = name;
    return *pf;
}

// Adds the file to the tree. Returns what pfinfd does: 0, or -2 for an error in the text.
int parse_file(int fd, const char *path, Pf **pf)
{
    Pffilename = path;  // for the messages of pfinfd, which forgets it
    return pfinfd(fd, pf);
}

// The same for a file that is not open yet; 1 when it cannot be opened.
int read_file(const char *path, Pf **pf)
{
    const stock::Fd fd(stock::beyond_standard(reopen(path, O_RDONLY | O_CLOEXEC)));
    if (fd.get() < 0) {
        errno = 0;  // else a later message would give this as its reason
        return 1;
    }
    return parse_file(fd.get(), path, pf);
}

}  // namespace

int pfread(const char *name, Pf **pf)
{
    if (!pf)
        return -1;
    Pf *top = new_top(name, pf);
    Tbl *files = pffiles(name, 0);
    int64_t opened = 0;
    int sum = 0;
    for (int64_t i = 0; i < files->count; ++i) {
        const int result = read_file(static_cast<const char *>(gettbl(files, i)), pf);
        if (result <= 0) {
            ++opened;
            sum += result;
        }
    }
    freetbl(files, std::free);
    top->type = PFFILE;
    const bool has_keys = top->value.arr->root != rb_null;
    return opened > 0 && has_keys ? sum : -1;
}

int pfload(const char *dir, const char *subdir, const char *name, Pf **pf)
{
    if (!pf)
        return -1;
    new_top(name, pf)->type = PFFILE;
    const stock::Owned<char> path(name ? datapath(dir, subdir, name, "pf") : nullptr);
    if (!path) {
        elog_log(1, "Can't find parameter file %s/%s\n", okstr(subdir), okstr(name));
        return -1;
    }
    const stock::Fd fd(stock::beyond_standard(reopen(path.get(), O_RDONLY | O_CLOEXEC)));
    if (fd.get() >= 0)
        return parse_file(fd.get(), path.get(), pf);
    if (errno == ENOENT)  // removed since datapath found it
        errno = 0;
    else
        elog_log(1, "can't open '%s'", path.get());
    return -1;
}
