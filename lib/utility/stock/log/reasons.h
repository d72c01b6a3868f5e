// Shared: the reasons that a function logs, noted for a caller that reports them differently.

#pragma once

#include <cstdint>

#include "base/alloc.h"
#include "stock/elog.h"
#include "stock/tbl.h"

namespace stock {

// Notes what this thread logs while the object lives. Of several objects of a thread the
// newest notes. What other threads log is not noted.
class Reasons {
public:
    Reasons();
    ~Reasons();
    Reasons(const Reasons &) = delete;
    Reasons &operator=(const Reasons &) = delete;

    // Takes the noted messages off the log's stack, those that are still there. Returns their
    // text as the log prints it; a message that was only counted as a repetition of an earlier
    // one is in it too.
    Owned<char> take();

private:
    friend struct ReasonsOfAll;

    Reasons *next_ = nullptr;  // of all threads, the newest first
    std::uint64_t thread_;
    Tbl *noted_;
};

}  // namespace stock
