// Whether a parameter file is new enough for a program.
//
// Of several files of a name the last one counts, for its values replace those of the others.

#include "stock/pf.h"

#include <cstdio>
#include <cstdlib>

#include "base/alloc.h"
#include "base/descriptor.h"
#include "base/guards.h"
#include "stock/elog.h"
#include "stock/str2epoch.h"
#include "stock/strings.h"
#include "stock/time.h"

namespace {

using stock::Owned;

// Reads one file into a new tree. What pfin returns, or -1 when it cannot be opened.
int read_one(const char *path, Pf **pf)
{
    const stock::OwnedStream stream(stock::open_to_read(path));
    return stream ? pfin(stream.get(), pf) : -1;
}

// The logged reason and the result of pfrequire for a file that is too old.
int too_old(const char *path, double revision, double required)
{
    const Owned<char> has(strdate(revision));
    const Owned<char> needs(strdate(required));
    elog_log(0,
             "pf_revision_time in the file '%s' has date %s, \n\tbut program requires date after "
             "%s\n",
             path, has.get(), needs.get());
    return -2;
}

// The same for a file without a date.
int undated(const char *path, double required)
{
    const Owned<char> needs(strdate(required));
    elog_log(0, "no pf_revision_time in the file '%s', \n\tbut program requires date after %s\n",
             path, needs.get());
    return -1;
}

int check(const char *name, const char *path, double required)
{
    Pf *pf = nullptr;
    const int status = read_one(path, &pf);
    void *text = nullptr;
    int result = 0;
    if (status != 0) {
        elog_log(0, "error in parameter file %s", name);
        result = -3;
    } else if (pfget(pf, "pf_revision_time", &text) != PFSTRING) {
        result = undated(path, required);
    } else if (const double revision = str2epoch(static_cast<char *>(text)); required > revision) {
        result = too_old(path, revision, required);
    }
    pffree(pf);
    return result;
}

}  // namespace

int pfrequire(const char *name, const char *date)
{
    const double required = str2epoch(date);
    Tbl *files = pffiles(name, 0);
    int result = -4;
    if (files->count > 0)
        result = check(name, static_cast<char *>(gettbl(files, files->count - 1)), required);
    else
        elog_log(0, "can't find parameter file %s", okstr(name));
    freetbl(files, std::free);
    return result;
}
