// What the sources of the message log share; nobody else includes it.
//
// The log is one stack, three tables of settings and one lock. Whoever reads or
// changes any of them holds the lock, and a thread that has it may take it
// again: a report can come from the middle of a delivery.

#pragma once

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "internal/elog_lock.h"
#include "stock/elog.h"

namespace stock::logging {

inline constexpr int kSeverities = 7;

// The rows of the severities, 0 .. 6.
inline constexpr int kLog = 0;
inline constexpr int kDebug = 1;
inline constexpr int kNotify = 2;
inline constexpr int kComplain = 4;
inline constexpr int kDie = 5;
inline constexpr int kFault = 6;

inline constexpr std::size_t kFormatSize = 10240;  // a message, its newline and its end
inline constexpr std::size_t kTagSize = 1024;      // an expanded tag and its end
inline constexpr std::size_t kErrorSize = 128;     // what an errno means

using Field = char[ELOG_FIELD_SIZE];

extern const char *const severity_name[kSeverities + 1];
extern const char *const Default_deliver[kSeverities];
extern const char *const Default_tag[kSeverities];
extern const char *const Default_debug[kSeverities];

extern Field Deliver[kSeverities];
extern Field Tag[kSeverities];
extern Field Debug[kSeverities];

extern Tbl *Elog_tbl;
extern constinit HolderLock Lock;
extern std::atomic<int> Elog_init;
extern int Max_msg;
extern double Elog_wait;
extern double Elog_reference_time;
extern int Argc;
extern char **Argv;
extern char Program_Name[1024];
extern char Program_Dir[1024];
extern int Show_stack[kSeverities];
extern const char *Faults;

constexpr bool is_severity(int severity)
{
    return severity >= 0 && severity < kSeverities;
}

// Calls elog_init unless that was done, errno untouched.
void need_init();

// A setting as it holds now: before the log is initialised an empty one counts as its default.
const char *delivery_of(int severity);
const char *tag_of(int severity);

// Copies as much of the text as fits and ends it.
void store(Field &field, std::string_view text);

// The text of a message in a buffer of kFormatSize: what elog and elogs have in common.
// Returns its length.
std::size_t format_message(char *text, const char *format, va_list args) STOCK_PRINTF(2, 0);

// The parts of a message before anything is copied: the strings point into the buffers.
struct Draft {
    char text[kFormatSize];
    char tag[kTagSize + 1];  // one more for the newline in front
    char error[kErrorSize];
    Elog_msg msg;
};

// What the system says of an errno; the buffer may or may not be used.
char *describe(int error, char *buffer, std::size_t size);

// Makes tag, msg and sys of the draft from its text.
void draft_record(Draft &draft, int severity, int error);

// Message i of the stack, or null.
const Elog_msg *message(std::int64_t i);

// Calls add(piece) for each piece of a record as it is printed; mark_sys is what stands
// before the description of errno.
template <class Add>
void lay_out(const Elog_msg &msg, std::string_view mark_sys, Add add)
{
    if (msg.tag && *msg.tag) {
        add(std::string_view(msg.tag));
        add(std::string_view(": "));
    }
    if (msg.msg)
        add(std::string_view(msg.msg));
    if (msg.sys) {
        add(mark_sys);
        add(std::string_view(msg.sys));
        add(std::string_view("\n"));
    }
    if (msg.count >= 2) {
        char line[48];
        const int length = std::snprintf(line, sizeof line, "\t** repeated %d times\n", msg.count);
        add(std::string_view(line, static_cast<std::size_t>(length)));
    }
}

// The text of the stack from mark on, then of msg when there is one; freed with free.
char *stack_text(std::int64_t mark, const Elog_msg *msg, const char *function);

// Prints the same to a stream, with the flushes that belong to it. Allocates nothing.
void print_stack(std::FILE *stream, std::int64_t mark, const Elog_msg *msg);

// Delivers the stack from mark on and msg, which may be null and whose strings stay the
// caller's: a message that is kept is copied.
void deliver(const char *delivery, std::int64_t mark, const Elog_msg *msg);

// Tells of a failure of the log itself: the text, errno, the stack, which is then cleared.
void elog_fail(const char *format, ...) STOCK_PRINTF(1, 2);

// Flushes every stream and ends the process with status 1.
[[noreturn]] void flush_and_exit();

}  // namespace stock::logging
