// is_nfs: whether a file system comes from another host, told by the number of its type.

#include "deviants.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string_view>

#include <sys/vfs.h>

#include "base/guards.h"
#include "base/uninterrupted.h"
#include "deviants/mount.h"

namespace {

// clang-format off
constexpr std::uint32_t kRemote[] = {
    0x00006969,  // NFS
    0x0000517b,  // SMB, the first of its dialects
    0xff534d42,  // CIFS
    0xfe534d42,  // SMB 2 and 3
    0x5346414f,  // AFS
    0x6b414653,  // AFS, the kernel's own client
    0x00c36400,  // Ceph
    0x73757245,  // Coda
    0x0000564c,  // NCP
    0x0bd00bd0,  // Lustre
    0x20030528,  // OrangeFS
    0x19830326,  // BeeGFS
    0x47504653,  // GPFS
    0xaad7aaea,  // PanFS
};

// File systems that a user's program serves (FUSE) all have one number. Their names, in the
// list of mounts, tell which program that is.
constexpr std::uint32_t kFuse = 0x65735546;
constexpr std::string_view kRemoteFuse[] = {
    "fuse.sshfs", "fuse.glusterfs", "fuse.ceph", "fuse.ceph-fuse", "fuse.curlftpfs", "fuse.davfs",
    "fuse.s3fs", "fuse.rclone", "fuse.smbnetfs", "fuse.afpfs", "fuse.quobyte", "fuse.moosefs",
};
// clang-format on

template <class List, class Value>
bool holds(const List &list, const Value &value)
{
    return std::find(std::begin(list), std::end(list), value) != std::end(list);
}

}  // namespace

int is_nfs(const char *path)
{
    const stock::KeepErrno keep;
    struct statfs status;
    if (!path || stock::uninterrupted([&] { return statfs(path, &status); }) != 0)
        return -1;
    const auto type = static_cast<std::uint32_t>(status.f_type);
    if (type != kFuse)
        return holds(kRemote, type);
    stock::Mount mount;
    return stock::find_mount(path, mount) ? holds(kRemoteFuse, std::string_view(mount.type)) : -1;
}
