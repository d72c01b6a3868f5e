// Reading parameter files by name: pfread reads all files of a name into one tree, pfload the
// one file that the data path leads to.
//
// A key of a later file replaces the same key of an earlier file, because each parse goes on
// with the same tree. The caller gets a tree in every case, even an empty one.

#include "stock/pf.h"

#include <cerrno>
#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/descriptor.h"
#include "base/guards.h"
#include "pf/parsing.h"
#include "pf/pf_state.h"
#include "pf/pfupdate.h"
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

bool is_of_user_or_root(const struct stat &file)
{
    return file.st_uid == geteuid() || file.st_uid == 0;
}

// Whether a file of settings, which may run commands, comes from somebody whom this user trusts.
// Who set an absolute path of the search trusts what is there; in a relative directory, such as
// the one that the user happens to be in, the file must belong to the user or to root.
bool is_trusted(int fd, const char *path)
{
    struct stat link, file;
    return *path == '/' ||
           (relstat(path, &link) == 0 && is_of_user_or_root(link) && refstat(fd, &file) == 0 &&
            is_of_user_or_root(file) && !(file.st_mode & S_IWOTH));
}

// What is read: parameters of the program, or settings of the library.
enum class What { parameters, settings };

// The same for a file that is not open yet; 1 when it cannot be opened or is not trusted. A file
// that was removed since it was found is not missed.
int read_file(const char *path, What what, Pf **pf)
{
    const stock::Fd fd(stock::beyond_standard(reopen(path, O_RDONLY | O_CLOEXEC)));
    if (fd.get() < 0) {
        if (errno != ENOENT && errno != ENOTDIR) {
            stock::Read_failed = true;
            elog_log(1, "can't open '%s'", path);
        }
        errno = 0;  // else a later message would give this as its reason
        return 1;
    }
    if (what == What::settings && !is_trusted(fd.get(), path)) {
        elog_complain(0, "the settings in '%s' are not read: others may have written them\n", path);
        return 1;
    }
    return parse_file(fd.get(), path, pf);
}

int read_all(const char *name, What what, Pf **pf)
{
    Pf *top = new_top(name, pf);
    Tbl *files = pffiles(name, 0);
    int64_t opened = 0;
    int sum = 0;
    for (int64_t i = 0; i < files->count; ++i) {
        const int result = read_file(static_cast<const char *>(gettbl(files, i)), what, pf);
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

}  // namespace

int stock::read_settings(const char *name, Pf **pf)
{
    return read_all(name, What::settings, pf);
}

int stock::read_or_fail(const char *name, Pf **pf, bool &failed)
{
    const bool before = std::exchange(Read_failed, false);
    const int result = read_all(name, What::parameters, pf);
    failed = std::exchange(Read_failed, before);
    return result;
}

int pfread(const char *name, Pf **pf)
{
    return pf ? read_all(name, What::parameters, pf) : -1;
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
