// Guards: their destructors undo something on every way out of a function.

#pragma once

#include <cerrno>
#include <cstdio>
#include <memory>
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

struct CloseStream {
    void operator()(std::FILE *stream) const noexcept
    {
        const KeepErrno keep;
        std::fclose(stream);
    }
};

// Owns an open stream and closes it, errno untouched. The result of fclose is not looked at, so
// what was written must be flushed and checked before.
using OwnedStream = std::unique_ptr<std::FILE, CloseStream>;

// Keeps other threads from the stream as long as this object lives.
class StreamLock {
public:
    explicit StreamLock(std::FILE *stream) noexcept : stream_(stream) { flockfile(stream_); }
    ~StreamLock() { funlockfile(stream_); }
    StreamLock(const StreamLock &) = delete;
    StreamLock &operator=(const StreamLock &) = delete;

private:
    std::FILE *stream_;
};

}  // namespace stock
