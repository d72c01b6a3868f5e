// is_nfs: whether a file system comes from another host, told by the name of its type.

#include "deviants.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "base/guards.h"
#include "deviants/mount.h"

namespace {

constexpr std::string_view kRemote[] = {"nfs", "smbfs", "afpfs", "webdav", "cifs", "afs", "ftp"};

}  // namespace

int is_nfs(const char *path)
{
    const stock::KeepErrno keep;
    stock::Mount mount;
    if (!path || !stock::find_mount(path, mount))
        return -1;
    return std::find(std::begin(kRemote), std::end(kRemote), mount.type) != std::end(kRemote);
}
