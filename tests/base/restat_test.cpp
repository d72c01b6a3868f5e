// System calls that signals interrupt are made again.
//
// The program defines the C library's calls itself; these fail as if interrupted for the next
// few times and then call the library's own.

// With _FORTIFY_SOURCE the compiler would call checked copies instead of these.
#undef _FORTIFY_SOURCE

#include "stock/restat.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace {

int interruptions = 0;     // how many of the next calls a signal interrupts
bool fails_after = false;  // the call after them fails with EIO
int errno_seen = -1;       // errno as the call that got through found it

bool stopped()
{
    if (interruptions > 0) {
        --interruptions;
        errno = EINTR;
        return true;
    }
    if (fails_after) {
        fails_after = false;
        errno = EIO;
        return true;
    }
    errno_seen = errno;
    return false;
}

template <class Function>
Function *real(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// Declared as in the C library.
extern "C" {

int stat(const char *path, struct stat *status) noexcept
{
    return stopped() ? -1 : real<decltype(stat)>("stat")(path, status);
}

int lstat(const char *path, struct stat *status) noexcept
{
    return stopped() ? -1 : real<decltype(lstat)>("lstat")(path, status);
}

int fstat(int fd, struct stat *status) noexcept
{
    return stopped() ? -1 : real<decltype(fstat)>("fstat")(fd, status);
}

off_t lseek(int fd, off_t offset, int whence) noexcept
{
    return stopped() ? -1 : real<decltype(lseek)>("lseek")(fd, offset, whence);
}

ssize_t read(int fd, void *buffer, size_t size)
{
    return stopped() ? -1 : real<ssize_t(int, void *, size_t)>("read")(fd, buffer, size);
}

ssize_t write(int fd, const void *buffer, size_t size)
{
    return stopped() ? -1 : real<ssize_t(int, const void *, size_t)>("write")(fd, buffer, size);
}

int close(int fd)
{
    return stopped() ? -1 : real<int(int)>("close")(fd);
}

int open(const char *path, int flags, ...)
{
    mode_t mode = 0;
    if (flags & O_CREAT || (flags & O_TMPFILE) == O_TMPFILE) {
        va_list args;
        va_start(args, flags);
        mode = va_arg(args, mode_t);
        va_end(args);
    }
    return stopped() ? -1 : real<int(const char *, int, ...)>("open")(path, flags, mode);
}

int lockf(int fd, int command, off_t size)
{
    return stopped() ? -1 : real<int(int, int, off_t)>("lockf")(fd, command, size);
}

int accept(int fd, struct sockaddr *address, socklen_t *length)
{
    return stopped()
               ? -1
               : real<int(int, struct sockaddr *, socklen_t *)>("accept")(fd, address, length);
}

int connect(int fd, const struct sockaddr *address, socklen_t length)
{
    return stopped()
               ? -1
               : real<int(int, const struct sockaddr *, socklen_t)>("connect")(fd, address, length);
}
}

namespace {

class Restat : public testing::Test {
protected:
    void TearDown() override
    {
        interruptions = 0;
        fails_after = false;
    }

    TempDir dir_;
    std::string file_ = dir_.file("f", "twelve bytes");
};

// A listening socket on the loopback interface and its address.
int listener(sockaddr_in &address)
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), length) || listen(fd, 1) ||
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length))
        return -1;
    return fd;
}

}  // namespace

TEST_F(Restat, StatusOfAPathIsTakenAgainAfterInterruptions)
{
    struct stat status;
    interruptions = 3;
    EXPECT_EQ(restat(file_.c_str(), &status), 0);
    EXPECT_EQ(interruptions, 0);
    EXPECT_EQ(status.st_size, 12);
}

TEST_F(Restat, AFailureThatIsNotAnInterruptionIsReturnedAtOnce)
{
    struct stat status;
    interruptions = 2;
    fails_after = true;
    EXPECT_EQ(restat(file_.c_str(), &status), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(interruptions, 0);
    EXPECT_EQ(restat((file_ + ".none").c_str(), &status), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Restat, RestatFollowsALinkAndRelstatDoesNot)
{
    const std::string link = dir_ / "link";
    ASSERT_EQ(symlink("f", link.c_str()), 0);
    struct stat status;
    interruptions = 1;
    EXPECT_EQ(restat(link.c_str(), &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
    interruptions = 1;
    EXPECT_EQ(relstat(link.c_str(), &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    EXPECT_EQ(interruptions, 0);
}

TEST_F(Restat, ANullPathFailsWithEfault)
{
    struct stat status;
    errno = 0;
    EXPECT_EQ(restat(nullptr, &status), -1);
    EXPECT_EQ(errno, EFAULT);
    errno = 0;
    EXPECT_EQ(relstat(nullptr, &status), -1);
    EXPECT_EQ(errno, EFAULT);
    errno = 0;
    EXPECT_EQ(reopen(nullptr, O_RDONLY), -1);
    EXPECT_EQ(errno, EFAULT);
}

TEST_F(Restat, StatusPositionAndCloseOfADescriptorAreRepeated)
{
    const int fd = reopen(file_.c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    struct stat status;
    interruptions = 2;
    EXPECT_EQ(refstat(fd, &status), 0);
    EXPECT_EQ(status.st_size, 12);
    interruptions = 2;
    EXPECT_EQ(relseek(fd, -5, SEEK_END), 7);
    EXPECT_EQ(interruptions, 0);
    interruptions = 2;
    EXPECT_EQ(reclose(fd), 0);
    EXPECT_EQ(interruptions, 0);
    EXPECT_EQ(refstat(fd, &status), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(Restat, RelseekReachesBeyondFourGigabytes)
{
    const int fd = reopen(file_.c_str(), O_RDWR);
    EXPECT_EQ(relseek(fd, 0x140000000, SEEK_SET), 0x140000000);
    reclose(fd);
}

TEST_F(Restat, ReadAndWriteAreRepeatedWithErrnoZeroBeforeEachAttempt)
{
    const int fd = reopen(file_.c_str(), O_RDWR);
    char text[32];
    errno = ENOENT;
    interruptions = 2;
    EXPECT_EQ(reread(fd, text, sizeof text), 12);
    EXPECT_EQ(errno_seen, 0);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(interruptions, 0);
    EXPECT_EQ(reread(fd, text, sizeof text), 0);

    errno = ENOENT;
    errno_seen = -1;
    interruptions = 2;
    EXPECT_EQ(rewrite(fd, "more", 4), 4);
    EXPECT_EQ(errno_seen, 0);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(interruptions, 0);
    reclose(fd);
    EXPECT_EQ(read_file(file_), "twelve bytesmore");
}

TEST_F(Restat, ReadAndWriteKeepTheErrnoOfAFailure)
{
    char text[4];
    EXPECT_EQ(reread(-1, text, sizeof text), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(rewrite(-1, text, sizeof text), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(Restat, OpenIsRepeatedAndTakesTheModeOfANewFile)
{
    const std::string path = dir_ / "new";
    const mode_t mask = umask(0);
    interruptions = 2;
    const int fd = reopen(path.c_str(), O_CREAT | O_WRONLY, 0640);
    umask(mask);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(interruptions, 0);
    struct stat status;
    EXPECT_EQ(refstat(fd, &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    reclose(fd);
}

TEST_F(Restat, AFileWithoutANameTakesAMode)
{
    const int fd = reopen(dir_.path().c_str(), O_TMPFILE | O_WRONLY, 0640);
    if (fd < 0 && errno == EOPNOTSUPP)
        GTEST_SKIP() << "no such files on this file system";
    ASSERT_GE(fd, 0);
    struct stat status;
    EXPECT_EQ(refstat(fd, &status), 0);
    EXPECT_EQ(status.st_mode & 0700, 0600u);
    reclose(fd);
}

TEST_F(Restat, OpenWithoutCreationNeedsNoMode)
{
    interruptions = 1;
    const int fd = reopen(file_.c_str(), O_RDONLY);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(interruptions, 0);
    reclose(fd);
    EXPECT_EQ(reopen((dir_ / "none").c_str(), O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Restat, LockingIsRepeated)
{
    const int fd = reopen(file_.c_str(), O_RDWR);
    interruptions = 2;
    EXPECT_EQ(relockf(fd, F_TLOCK, 0), 0);
    EXPECT_EQ(interruptions, 0);
    EXPECT_EQ(relockf(fd, F_ULOCK, 0), 0);
    reclose(fd);
}

TEST_F(Restat, ConnectingAndAcceptingAreRepeated)
{
    sockaddr_in address;
    const int server = listener(address);
    ASSERT_GE(server, 0);
    const int client = socket(AF_INET, SOCK_STREAM, 0);
    interruptions = 2;
    EXPECT_EQ(reconnect(client, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    EXPECT_EQ(interruptions, 0);

    sockaddr_in peer = {};
    socklen_t length = sizeof peer;
    interruptions = 2;
    const int connection = reaccept(server, reinterpret_cast<sockaddr *>(&peer), &length);
    EXPECT_EQ(interruptions, 0);
    ASSERT_GE(connection, 0);
    EXPECT_EQ(peer.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    for (int fd : {connection, client, server})
        reclose(fd);
}
