// Which time zones the system knows.

#include "deviants.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>

#include "base/guards.h"
#include "base/zone_name.h"

namespace {

constexpr std::size_t kPathSize = 1024;

// The directory of the zones' files, found once. An overlong one holds no zones.
const char *zone_directory()
{
    static const struct Directory {
        char path[kPathSize] = "";
        Directory()
        {
            const char *setting = getenv("ZONEINFO");
            if (!setting)
                setting = "/usr/share/zoneinfo";
            if (strlen(setting) < sizeof path)
                strcpy(path, setting);
        }
    } directory;
    return directory.path;
}

}  // namespace

int is_timezone(const char *name)
{
    const char *directory = zone_directory();
    if (!name || !stock::stays_inside_zones(name) || !*directory)
        return 0;
    char path[kPathSize];
    const int length = snprintf(path, sizeof path, "%s/%s", directory, name);
    if (length < 0 || static_cast<size_t>(length) >= sizeof path)
        return 0;
    const stock::KeepErrno keep;
    struct stat status;
    return stat(path, &status) == 0 && S_ISREG(status.st_mode);
}
