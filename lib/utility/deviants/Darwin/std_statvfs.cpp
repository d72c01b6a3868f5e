// std_statvfs: the numbers of a file system. They come from statfs, because this system's
// statvfs counts in 32 bits.

#include "deviants.h"

#include <cerrno>
#include <cstdint>

#include <sys/mount.h>
#include <sys/param.h>

#include "base/uninterrupted.h"

int std_statvfs(const char *path, Statvfs *out)
{
    struct statfs status;
    errno = EFAULT;  // for a null path
    const int result = path ? stock::uninterrupted([&] { return statfs(path, &status); }) : -1;
    if (result != 0)
        return result;
    *out = {
        .bsize = static_cast<uint64_t>(status.f_iosize),
        .frsize = status.f_bsize,
        .blocks = status.f_blocks,
        .bfree = status.f_bfree,
        .bavail = status.f_bavail,
        .files = status.f_files,
        .ffree = status.f_ffree,
        .favail = status.f_ffree,
        .fsid = static_cast<uint32_t>(status.f_fsid.val[0]) |
                static_cast<uint64_t>(static_cast<uint32_t>(status.f_fsid.val[1])) << 32,
    };
    return result;
}
