// std_statvfs: the numbers of a file system, as statvfs gives them.

#include "deviants.h"

#include <cerrno>

#include <sys/statvfs.h>

#include "base/uninterrupted.h"

int std_statvfs(const char *path, Statvfs *out)
{
    struct statvfs status;
    errno = EFAULT;  // for a null path
    const int result = path ? stock::uninterrupted([&] { return statvfs(path, &status); }) : -1;
    if (result != 0)
        return result;
    *out = {
        .bsize = status.f_bsize,
        .frsize = status.f_frsize,
        .blocks = status.f_blocks,
        .bfree = status.f_bfree,
        .bavail = status.f_bavail,
        .files = status.f_files,
        .ffree = status.f_ffree,
        .favail = status.f_ffree,
        .fsid = status.f_fsid,
    };
    return result;
}
