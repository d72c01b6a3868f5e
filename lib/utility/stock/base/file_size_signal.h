// Writing beyond the process's file-size limit without being ended by a signal.

#pragma once

#include <csignal>

#include "base/guards.h"

namespace stock {

// Blocks SIGXFSZ for this thread while it lives, so that a write beyond the file-size limit
// fails with EFBIG instead of ending the process. A signal that such a write left pending is
// taken away before the signal is unblocked.
class FileSizeSignalBlocked {
public:
    FileSizeSignalBlocked()
    {
        sigemptyset(&signal_);
        sigaddset(&signal_, SIGXFSZ);
        pthread_sigmask(SIG_BLOCK, &signal_, &before_);
    }
    ~FileSizeSignalBlocked()
    {
        const KeepErrno keep;
        sigset_t pending;
        int taken = 0;
        if (!sigismember(&before_, SIGXFSZ) && sigpending(&pending) == 0 &&
            sigismember(&pending, SIGXFSZ))
            sigwait(&signal_, &taken);
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    FileSizeSignalBlocked(const FileSizeSignalBlocked &) = delete;
    FileSizeSignalBlocked &operator=(const FileSizeSignalBlocked &) = delete;

private:
    sigset_t signal_;
    sigset_t before_;
};

}  // namespace stock
