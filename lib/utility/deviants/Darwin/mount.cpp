// find_mount: the mount of a path, as statfs tells it.

#include "deviants/mount.h"

#include <cstdio>

#include <sys/mount.h>
#include <sys/param.h>

#include "base/uninterrupted.h"

bool stock::find_mount(const char *path, Mount &mount)
{
    struct statfs status;
    if (uninterrupted([&] { return statfs(path, &status); }) != 0)
        return false;
    std::snprintf(mount.source, sizeof mount.source, "%s", status.f_mntfromname);
    std::snprintf(mount.type, sizeof mount.type, "%s", status.f_fstypename);
    return true;
}
