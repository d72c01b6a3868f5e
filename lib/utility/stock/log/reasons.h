// The reasons that a function logs, for a caller that tells them in another way.

#pragma once

#include <cstdint>

#include "base/alloc.h"
#include "stock/elog.h"
#include "stock/tbl.h"

namespace stock {

// Notes what this thread logs for as long as it lives; of several the newest does. What
// other threads log is not noted and stays on the log.
class Reasons {
public:
    Reasons();
    ~Reasons();
    Reasons(const Reasons &) = delete;
    Reasons &operator=(const Reasons &) = delete;

    // Takes exactly what was noted off the log, where it is still there. Returns its text as
    // the log prints it, also of a message that was counted as a repetition of an earlier one.
    Owned<char> take();

private:
    friend struct ReasonsOfAll;

    Reasons *next_ = nullptr;  // of all threads, the newest first
    std::uint64_t thread_;
    Tbl *noted_;
};

}  // namespace stock

namespace stock::logging {

// Whether anybody notes what this thread logs. The lock is held for this and what follows.
bool wants_reasons();

// Tells who notes this thread's messages of one. kept is the text of the message on the
// stack that holds it or counts it; null when it is not on the stack.
void note_reason(const Elog_msg &msg, const char *kept);

// Tells all who note that this message of the stack is about to be freed.
void forget_reason(const Elog_msg &msg);

}  // namespace stock::logging
