// Guards: their destructors undo something on every way out of a function.

#pragma once

#include <cerrno>
#include <cstdio>
#include <utility>

#include <unistd.h>

namespace stock {

// Restores errno to the value that it had.
class KeepErrno {
public:
    KeepErrno() noexcept : saved_(errno) {}
    ~KeepErrno() { errno = saved_; }
    KeepErrno(const KeepErrno &) = delete;
    KeepErrno &operator=(const KeepErrno &) = delete;

private:
    int saved_;
};

// Owns a file descriptor and closes it, errno untouched. A negative one is none.
class Fd {
public:
    explicit Fd(int fd) noexcept : fd_(fd) {}
    ~Fd()
    {
        const KeepErrno keep;
        if (fd_ >= 0)
            ::close(fd_);
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;

    int get() const noexcept { return fd_; }
    int release() noexcept { return std::exchange(fd_, -1); }  // the caller closes

private:
    int fd_;
};

}  // namespace stock
