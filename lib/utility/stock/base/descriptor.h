// Descriptors of the library's own files, never 0, 1 or 2.
//
// A program may run with standard input, output or error closed. A file that the library opens
// then would be taken for it: what is printed on standard error would land in that file.

#pragma once

#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

#include "base/guards.h"

namespace stock {

// Takes what open gave, and returns the same file on a descriptor from 3 on. -1 with errno when
// there is none; the file is closed then.
inline int beyond_standard(int fd)
{
    if (fd < 0 || fd > STDERR_FILENO)
        return fd;
    const Fd low(fd);
    return ::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

// Opens a file for reading as fopen(path, "re") does, beyond the standard descriptors.
inline OwnedStream open_to_read(const char *path)
{
    OwnedStream stream(std::fopen(path, "re"));
    const int fd = stream ? ::fileno(stream.get()) : -1;
    if (fd < 0 || fd > STDERR_FILENO)
        return stream;
    Fd beyond(::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    OwnedStream moved(beyond.get() < 0 ? nullptr : ::fdopen(beyond.get(), "r"));
    if (moved)
        beyond.release();
    return moved;
}

// Occupies for its scope those of 0, 1 and 2 that are closed, for calls that choose a descriptor
// themselves. Nothing can be read or written there, as before.
class StandardOccupied {
public:
    StandardOccupied()
    {
        const KeepErrno keep;
        while (count_ <= STDERR_FILENO) {
            const int fd = ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            if (fd > STDERR_FILENO)
                ::close(fd);
            if (fd < 0 || fd > STDERR_FILENO)
                return;
            taken_[count_++] = fd;
        }
    }
    ~StandardOccupied()
    {
        const KeepErrno keep;
        while (count_ > 0)
            ::close(taken_[--count_]);
    }
    StandardOccupied(const StandardOccupied &) = delete;
    StandardOccupied &operator=(const StandardOccupied &) = delete;

private:
    int taken_[STDERR_FILENO + 1];
    int count_ = 0;
};

}  // namespace stock
