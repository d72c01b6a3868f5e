// System calls that are made again when a signal interrupts them.
//
// Each public function is one call of uninterrupted, which has the loop.

#include "stock/restat.h"

#include <cerrno>
#include <cstdarg>

#include <fcntl.h>
#include <unistd.h>

#include "base/uninterrupted.h"

using stock::uninterrupted;

namespace {

// Fails as the system does for a null path. It is not asked itself, because its header declares
// the path never null.
int no_path()
{
    errno = EFAULT;
    return -1;
}

// Whether open with these flags makes a file and so takes a mode.
constexpr bool makes_file(int flags)
{
#ifdef O_TMPFILE
    if ((flags & O_TMPFILE) == O_TMPFILE)
        return true;
#endif
    return (flags & O_CREAT) != 0;
}

}  // namespace

int restat(const char *path, struct stat *status)
{
    return path ? uninterrupted([=] { return stat(path, status); }) : no_path();
}

int relstat(const char *path, struct stat *status)
{
    return path ? uninterrupted([=] { return lstat(path, status); }) : no_path();
}

int refstat(int fd, struct stat *status)
{
    return uninterrupted([=] { return fstat(fd, status); });
}

off_t relseek(int fd, off_t offset, int whence)
{
    return uninterrupted([=] { return lseek(fd, offset, whence); });
}

ssize_t reread(int fd, void *buffer, size_t size)
{
    return uninterrupted([=] {
        errno = 0;
        return read(fd, buffer, size);
    });
}

ssize_t rewrite(int fd, const void *buffer, size_t size)
{
    return uninterrupted([=] {
        errno = 0;
        return write(fd, buffer, size);
    });
}

// Meant: repeated like the others, so a close that a signal interrupts on Linux
// ends with EBADF: the descriptor is gone by then.
int reclose(int fd)
{
    return uninterrupted([=] { return close(fd); });
}

int reopen(const char *path, int flags, ...)
{
    if (!path)
        return no_path();
    mode_t mode = 0;
    if (makes_file(flags)) {
        va_list args;
        va_start(args, flags);
        mode = static_cast<mode_t>(va_arg(args, int));
        va_end(args);
    }
    return uninterrupted([=] { return open(path, flags, mode); });
}

int relockf(int fd, int command, off_t size)
{
    return uninterrupted([=] { return lockf(fd, command, size); });
}

int reaccept(int fd, struct sockaddr *address, socklen_t *length)
{
    return uninterrupted([=] { return accept(fd, address, length); });
}

int reconnect(int fd, const struct sockaddr *address, socklen_t length)
{
    return uninterrupted([=] { return connect(fd, address, length); });
}
