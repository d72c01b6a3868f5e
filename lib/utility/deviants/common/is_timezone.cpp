// is_timezone: whether the system has a file for a time zone.

#include "deviants.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include <sys/stat.h>

#include "base/guards.h"
#include "base/limits.h"
#include "base/zone_name.h"
#include "deviants/system.h"

namespace {

// The directory of the zones' files: found by the first call, kept for the whole process. Empty
// when its path is too long; then there are no zones.
constinit struct {
    std::once_flag found;
    char path[stock::kPathSize] = "";
} Zone_directory;

const char *zone_directory()
{
    std::call_once(Zone_directory.found, [] {
        const char *setting = stock::trusted_env("ZONEINFO");
        if (!setting)
            setting = "/usr/share/zoneinfo";
        if (strlen(setting) < sizeof Zone_directory.path)
            strcpy(Zone_directory.path, setting);
    });
    return Zone_directory.path;
}

}  // namespace

int is_timezone(const char *name)
{
    const char *directory = zone_directory();
    if (!name || !stock::stays_inside_zones(name) || !*directory)
        return 0;
    char path[stock::kPathSize];
    const int length = snprintf(path, sizeof path, "%s/%s", directory, name);
    if (length < 0 || static_cast<size_t>(length) >= sizeof path)
        return 0;
    const stock::KeepErrno keep;
    struct stat status;
    return stat(path, &status) == 0 && S_ISREG(status.st_mode);
}
