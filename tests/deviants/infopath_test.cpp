// File systems: where they come from and how much room they have.
//
// The program defines the calls that read the list of mounts and examine a file system, so that
// a test can put a path on any kind of file system.

#include "deviants.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include <dlfcn.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>

#include <gtest/gtest.h>

#include "support/logged.h"
#include "support/one_user.h"
#include "support/owners.h"
#include "support/temp_dir.h"

namespace {

std::string mounts;      // read in place of /proc/self/mountinfo when not empty
long file_system = 0;    // the type that statfs gives when not 0
int statvfs_error = 0;   // statvfs fails like this when not 0
bool counts_up = false;  // statvfs gives another number in each field

template <class Function>
Function *real(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

// The list of mounts, and a path's mount in it, which is number 7.
FILE *fopen(const char *path, const char *mode)
{
    const std::string_view name = path;
    if (!mounts.empty() && name == "/proc/self/mountinfo")
        return mounts == "none" ? nullptr : fmemopen(mounts.data(), mounts.size(), "r");
    if (!mounts.empty() && name.starts_with("/proc/self/fdinfo/")) {
        static char info[] = "pos:\t0\nflags:\t010000000\nmnt_id:\t7\nino:\t1\n";
        return fmemopen(info, sizeof info - 1, "r");
    }
    return real<FILE *(const char *, const char *)>("fopen")(path, mode);
}

int statfs(const char *path, struct statfs *status) noexcept
{
    const int result = real<int(const char *, struct statfs *)>("statfs")(path, status);
    if (file_system)
        status->f_type = file_system;
    return result;
}

int statvfs(const char *path, struct statvfs *status) noexcept
{
    if (statvfs_error) {
        errno = statvfs_error;
        return -1;
    }
    const int result = real<int(const char *, struct statvfs *)>("statvfs")(path, status);
    if (counts_up) {
        *status = {};
        status->f_bsize = 1;
        status->f_frsize = 2;
        status->f_blocks = 3;
        status->f_bfree = 4;
        status->f_bavail = 5;
        status->f_files = 6;
        status->f_ffree = 7;
        status->f_favail = 8;
        status->f_fsid = 0x500000009;
    }
    return result;
}
}

namespace {

class FileSystem : public testing::Test {
protected:
    FileSystem() { elog_clear(); }
    ~FileSystem() override
    {
        mounts.clear();
        file_system = 0;
        statvfs_error = 0;
        counts_up = false;
    }

    // The mount that holds the directory, with this type and source.
    static void mounted(const std::string &type, const std::string &source)
    {
        mounts = "3 1 0:1 / /proc rw - proc proc rw\n"
                 "77 1 0:2 / /x rw - ext4 wrong rw\n"
                 "7 1 0:3 / /m rw,noatime master:1 shared:2 - " +
                 type + " " + source + " rw,size=4\n8 7 0:4 / /y rw - ext4 late rw\n";
    }

    std::string split() const
    {
        char host[256];
        char path[1024];
        if (fspath(dir_.path().c_str(), host, path) != 0)
            return "failed";
        return std::string(host) + " " + path;
    }

    TempDir dir_;
};

using InfoPtr = std::unique_ptr<Infopath, decltype(&std::free)>;

}  // namespace

TEST_F(FileSystem, FspathSplitsTheSourceOfTheMount)
{
    const struct {
        const char *source, *host_and_path;
    } cases[] = {
        {"server:/export", "server /export"},
        {"user@server:/home/user", "user@server /home/user"},
        {"server:", "server "},
        {"10.0.0.1,10.0.0.2:/", "10.0.0.1,10.0.0.2 /"},
        {"[fe80::1]:/export", "[fe80::1] /export"},
        {"server:/a:b", "server /a:b"},
        {"//server/share", " //server/share"},
        {"/dev/sda1", " /dev/sda1"},
        {"/dev/disk/by-path/pci-0000:00:1f.2", " /dev/disk/by-path/pci-0000:00:1f.2"},
        {":/x", " :/x"},
        {"tmpfs", " tmpfs"},
        {"", " "},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.source);
        mounted("nfs4", c.source);
        EXPECT_EQ(split(), c.host_and_path);
    }
    EXPECT_EQ(take_log(), "");
}

TEST_F(FileSystem, OctalEscapesOfTheListAreDecoded)
{
    mounted("nfs", R"(server:/a\040b\011c\012d\134040\043e)");
    EXPECT_EQ(split(), "server /a b\tc\nd\\040#e");
    mounted("nfs", R"(server:/\08\)");
    EXPECT_EQ(split(), R"(server /\08\)");
}

TEST_F(FileSystem, LongHostsAndPathsAreCut)
{
    mounted("nfs", std::string(300, 'h') + ":/" + std::string(2000, 'p'));
    EXPECT_EQ(split(), std::string(255, 'h') + " /" + std::string(1022, 'p'));
}

TEST_F(FileSystem, LinesOfTheListMayBeLong)
{
    mounted("overlay", "overlay");
    mounts = "9 1 0:9 / /o rw - overlay x rw,lowerdir=" + std::string(100000, 'l') + "\n" + mounts;
    EXPECT_EQ(split(), " overlay");
}

TEST_F(FileSystem, FspathAgreesWithTheSystem)
{
    EXPECT_NE(split(), "failed");
    char host[256];
    char path[1024];
    EXPECT_EQ(fspath("/proc", host, path), 0);
    EXPECT_STREQ(host, "");
    EXPECT_STREQ(path, "proc");
}

TEST_F(FileSystem, APathThatIsNotThereIsReported)
{
    char host[256] = "kept";
    char path[1024] = "kept";
    EXPECT_EQ(fspath("/none/there", host, path), -1);
    EXPECT_EQ(take_log(), "can't statfs /none/there\n\tNo such file or directory\n");
    EXPECT_STREQ(host, "kept");
    EXPECT_STREQ(path, "kept");
    EXPECT_EQ(fspath(nullptr, host, path), -1);
    EXPECT_EQ(take_log(), "can't statfs (null)\n\tBad address\n");
}

TEST_F(FileSystem, AMountThatIsNotListedIsReported)
{
    mounts = "8 1 0:1 / / rw - ext4 /dev/sda1 rw\n";
    EXPECT_EQ(split(), "failed");
    EXPECT_EQ(take_log(), "can't statfs " + dir_.path() + "\n\tNo such device\n");
    for (const char *line : {"7\n", "7 1 0:1 / / rw\n", "\n"}) {
        mounts = line;
        EXPECT_EQ(split(), "failed") << line;
    }
    elog_clear();
}

TEST_F(FileSystem, NumbersAreThoseOfTheSystem)
{
    struct statvfs status;
    Statvfs numbers;
    ASSERT_EQ(statvfs("/proc", &status), 0);
    EXPECT_EQ(std_statvfs("/proc", &numbers), 0);
    EXPECT_EQ(numbers.bsize, status.f_bsize);
    EXPECT_EQ(numbers.frsize, status.f_frsize);
    ASSERT_EQ(statvfs(dir_.path().c_str(), &status), 0);
    EXPECT_EQ(std_statvfs(dir_.path().c_str(), &numbers), 0);
    EXPECT_EQ(numbers.blocks, status.f_blocks);
    EXPECT_EQ(numbers.files, status.f_files);
    EXPECT_EQ(numbers.favail, numbers.ffree);
    EXPECT_LE(numbers.bavail, numbers.blocks);
    EXPECT_LE(numbers.bfree, numbers.blocks);
    EXPECT_EQ(numbers.fsid, status.f_fsid);
}

TEST_F(FileSystem, EachNumberHasItsField)
{
    counts_up = true;
    Statvfs numbers;
    EXPECT_EQ(std_statvfs("/", &numbers), 0);
    EXPECT_EQ(numbers.bsize, 1u);
    EXPECT_EQ(numbers.frsize, 2u);
    EXPECT_EQ(numbers.blocks, 3u);
    EXPECT_EQ(numbers.bfree, 4u);
    EXPECT_EQ(numbers.bavail, 5u);
    EXPECT_EQ(numbers.files, 6u);
    EXPECT_EQ(numbers.ffree, 7u);
    EXPECT_EQ(numbers.favail, 7u);  // meant: the free slots again
    EXPECT_EQ(numbers.fsid, 0x500000009u);
    const InfoPtr info(infopath("/"), std::free);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->fsid, 9u);
    EXPECT_EQ(info->bytes_avail, 10.0);
    EXPECT_EQ(info->bytes_total, 6.0);
    EXPECT_EQ(info->files_avail, 7.0);
    EXPECT_EQ(info->files_total, 6.0);
}

TEST_F(FileSystem, NumbersOfAPathThatIsNotThereFail)
{
    Statvfs numbers = {};
    numbers.blocks = 42;
    EXPECT_EQ(std_statvfs("/none/there", &numbers), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(std_statvfs(nullptr, &numbers), -1);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(numbers.blocks, 42u);
    EXPECT_EQ(take_log(), "");
}

TEST_F(FileSystem, InfopathPutsBothTogether)
{
    mounted("nfs4", "server:/export");
    const InfoPtr info(infopath(dir_.path().c_str()), std::free);
    ASSERT_TRUE(info);
    EXPECT_STREQ(info->host, "server");
    EXPECT_STREQ(info->path, "/export");
    Statvfs numbers;
    std_statvfs(dir_.path().c_str(), &numbers);
    EXPECT_EQ(info->fsid, static_cast<uint32_t>(numbers.fsid));
    EXPECT_EQ(info->bytes_total,
              static_cast<double>(numbers.blocks) * static_cast<double>(numbers.frsize));
    EXPECT_EQ(info->files_total, static_cast<double>(numbers.files));
    EXPECT_GT(info->bytes_avail, 0);
    EXPECT_LE(info->bytes_avail, info->bytes_total);
    EXPECT_LE(info->files_avail, info->files_total);
}

TEST_F(FileSystem, InfopathExpandsAHomeDirectory)
{
    EXPECT_TRUE(InfoPtr(infopath("~"), std::free));
    EXPECT_FALSE(InfoPtr(infopath("~nosuchuser/x"), std::free));
    EXPECT_EQ(take_log(), "can't statfs ~nosuchuser/x\n\tNo such file or directory\n"
                          "can't resolve host, filesystem for ~nosuchuser/x\n");
}

TEST_F(FileSystem, InfopathReportsWhatFails)
{
    EXPECT_EQ(infopath("/none/there"), nullptr);
    EXPECT_EQ(take_log(), "can't statfs /none/there\n\tNo such file or directory\n"
                          "can't resolve host, filesystem for /none/there\n");
    EXPECT_EQ(infopath(nullptr), nullptr);
    EXPECT_EQ(take_log(), "can't statfs (null)\n\tBad address\n"
                          "can't resolve host, filesystem for (null)\n");
    statvfs_error = ESTALE;
    EXPECT_EQ(infopath("/"), nullptr);
    EXPECT_EQ(take_log(), "statvfs on '/' fails\n\tStale file handle\n");
}

TEST_F(FileSystem, IsNfsTellsFileSystemsOfOtherHostsByTheirType)
{
    const char *dir = dir_.path().c_str();
    // NFS, SMB, CIFS, SMB 2, AFS twice, Ceph, Coda, NCP
    // Lustre, OrangeFS, BeeGFS, GPFS, PanFS
    for (const long type :
         {0x6969L, 0x517bL, 0xff534d42L, 0xfe534d42L, 0x5346414fL, 0x6b414653L, 0xc36400L,
          0x73757245L, 0x564cL, 0x0bd00bd0L, 0x20030528L, 0x19830326L, 0x47504653L, 0xaad7aaeaL}) {
        file_system = type;
        EXPECT_EQ(is_nfs(dir), 1) << std::hex << type;
    }
    // ext4, XFS, btrfs, tmpfs, overlay, ISO 9660
    for (const long type : {0xef53L, 0x58465342L, 0x9123683eL, 0x1021994L, 0x794c7630L, 0x9660L}) {
        file_system = type;
        EXPECT_EQ(is_nfs(dir), 0) << std::hex << type;
    }
}

TEST_F(FileSystem, IsNfsTellsFileSystemsServedByAProgramByTheProgram)
{
    const char *dir = dir_.path().c_str();
    file_system = 0x65735546;
    mounted("fuse.sshfs", "server:/home");
    EXPECT_EQ(is_nfs(dir), 1);
    mounted("fuse.glusterfs", "server:/volume");
    EXPECT_EQ(is_nfs(dir), 1);
    for (const char *type :
         {"fuse.ceph", "fuse.ceph-fuse", "fuse.curlftpfs", "fuse.davfs", "fuse.s3fs", "fuse.rclone",
          "fuse.smbnetfs", "fuse.afpfs", "fuse.quobyte", "fuse.moosefs"}) {
        mounted(type, "server:/rain");
        EXPECT_EQ(is_nfs(dir), 1) << type;
    }
    mounted("fuse.ntfs", "/dev/sdb1");
    EXPECT_EQ(is_nfs(dir), 0);
    mounted("fuseblk", "/dev/sdb1");
    EXPECT_EQ(is_nfs(dir), 0);
    mounts = "none";
    EXPECT_EQ(is_nfs(dir), -1);
}

TEST_F(FileSystem, IsNfsOfAPathThatIsNotThereIsMinusOneAndLeavesErrno)
{
    errno = 4711;
    EXPECT_EQ(is_nfs("/none/there"), -1);
    EXPECT_EQ(is_nfs(""), -1);
    EXPECT_EQ(is_nfs(nullptr), -1);
    EXPECT_EQ(is_nfs("/proc"), 0);
    EXPECT_EQ(errno, 4711);
    EXPECT_EQ(take_log(), "");
}
