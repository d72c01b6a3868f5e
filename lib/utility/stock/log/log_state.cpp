// The variables of the log. log.h, fault.h and lock.h say what they are and what guards them.
//
// All are initialised by constants: a report may be made before any constructor has run.

#include "log/fault.h"
#include "log/lock.h"
#include "log/log.h"

namespace stock::logging {

namespace {

// clang-format off
constexpr const char *kDeliver[kSeverities] = {"", "stderr", "stderr", "stderr", "stderr", "stderr", "stderr"};
constexpr const char *kTag[kSeverities]     = {"%P", "%P *debug*", "%P", "%P *alert*", "%P", "%P *fatal*", "%P *fault*"};
constexpr const char *kDebug[kSeverities]   = {"", "", "", "", "", "gdb %r %p", "gdb %r %p"};
// clang-format on

}  // namespace

constinit thread_local ThreadState This_thread;
constinit LogLock Lock;

constinit Settings The_settings = {
    .deliver = {"ELOG_DELIVER", kDeliver, {}},
    .tag = {"ELOG_TAG", kTag, {}},
    .debug = {"ELOG_DEBUG", kDebug, {}},
    .max_messages = 50,
    .wait_seconds = 10.0,
    .t_format = "%a %b %e %H:%M:%S %Y",
    .u_format = "%Y-%j %H:%M:%S",
};
constinit Startup The_startup = {};
constinit Program The_program = {};

constinit MessageStack The_stack = {
    .own = {.base = nullptr,
            .mapaddr = nullptr,
            .null_value = nullptr,
            .deleted = nullptr,
            .left = 0,
            .count = 0,
            .nalloc = 0,
            .size = sizeof(Elog_msg),
            .direct = 1,
            .maplen = 0,
            .fd = -1,
            .prot = 0,
            .left_grow = 10,
            .right_grow = 10},
    .messages = &The_stack.own,
    .note = {},
    .callback = nullptr,
    .reasons = nullptr,
    .limit_reached = false,
    .refused = 0,
    .file_text = nullptr,
    .file_size = 0,
};
constinit MessagingLibrary The_messaging_library = {};
constinit End The_end = {};

constinit struct sigaction Old_handler[kRememberedSignals] = {};
constinit FaultHandlers The_fault_handlers = {
    .installed = false,
    .list = nullptr,
    .shows_stack = {},
    .descriptions = {},
    .alt_stack_once = PTHREAD_ONCE_INIT,
    .alt_stack_key = {},
    .alt_stack_key_made = false,
    .debugger_started = false,
};
constinit Crash The_crash = {};

}  // namespace stock::logging
