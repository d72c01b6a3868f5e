// What the sources of the message log share; nobody else includes it.
//
// The log is one stack, three tables of settings and one lock. Whoever reads or
// changes any of them holds the lock, and a thread that has it may take it
// again: a report can come from the middle of a delivery.
//
//     elog.cpp          reporting, the stack, questions and settings
//     elog_init.cpp     the command line, the environment, defaults
//     elog_tag.cpp      tags and the command text
//     elog_print.cpp    messages as text, on streams and in strings
//     elog_deliver.cpp  delivery strings, files, the limit of the stack
//     elog_fault.cpp    handlers of fault signals, the report of a crash, the debugger
//     elog_end.cpp      how the process ends inside the log
//     last_limit.cpp    the timer that ends an end which takes too long
//     elog_reasons.cpp  what one thread logs, noted for a caller
//     elog_joins.cpp    where other families join
//     qelelog.cpp       the messaging library

#pragma once

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "log/end.h"
#include "log/lock.h"
#include "stock/elog.h"

namespace stock::logging {

inline constexpr int kSeverities = 7;

// The severities that the log itself has to tell apart.
inline constexpr int kLog = 0;
inline constexpr int kDebug = 1;
inline constexpr int kNotify = 2;
inline constexpr int kComplain = 4;
inline constexpr int kDie = 5;
inline constexpr int kFault = 6;

inline constexpr std::size_t kFormatSize = 10240;  // a message and its end
inline constexpr int kTagMax = 1023;               // most that a tag is expanded to
inline constexpr std::size_t kErrorSize = 128;     // what an errno means
inline constexpr std::size_t kPathSize = 1024;

using Field = char[ELOG_FIELD_SIZE];

extern const char *const severity_name[kSeverities + 1];
extern const char *const Default_deliver[kSeverities];
extern const char *const Default_tag[kSeverities];
extern const char *const Default_debug[kSeverities];

extern Field Deliver[kSeverities];
extern Field Tag[kSeverities];
extern Field Debug[kSeverities];

extern Tbl *Elog_tbl;
extern std::atomic<int> Elog_init;
extern int Max_msg;
extern double Elog_wait;
extern const char *Elog_t_format;
extern const char *Elog_u_format;
extern std::atomic<double> Elog_reference_time;
extern std::atomic<int> Argc;
extern std::atomic<char **> Argv;
extern char Program_Name[kPathSize];
extern char Program_Dir[kPathSize];
extern const char *Faults;

constexpr bool is_severity(int severity)
{
    return severity >= 0 && severity < kSeverities;
}

// Calls elog_init unless that was done, errno untouched.
void need_init();

// A copy of a setting: a delivery may give the lock up, and others may set it then.
struct Setting {
    Field text;
};

// A setting as it holds now. Before the log is initialised an empty field counts
// as its default, and a severity that does not exist has those of "complain".
Setting delivery_of(int severity);
Setting tag_of(int severity);

// Copies as much of the text as fits and ends it.
void store(Field &field, std::string_view text);

// A message before anything is copied: its strings point into the buffers.
struct Draft {
    char text[kFormatSize];
    char tag[kTagMax + 2];  // with room for a newline in front
    char error[kErrorSize];
    Elog_msg msg;
};

// Prints the message into the draft's text, cut and ended as every message is.
void draft_text(Draft &draft, const char *format, va_list args) STOCK_PRINTF(2, 0);

// Makes the record from the text. With an error that is not 0 its description goes along.
void draft_record(Draft &draft, int severity, int error);

// What an errno means; the buffer may be used for it.
char *describe(int error, char *buffer, std::size_t size);

// Keeps a message above the stack without allocating: what a crash has to say of its
// signal. False when one is kept already.
bool keep_note(const Elog_msg &msg);

// The number of messages on the stack, the note included.
std::int64_t stack_count();

// Message i of the stack, or null.
const Elog_msg *message(std::int64_t i);

// Frees the strings of a message of the stack.
void free_message(const Elog_msg &msg);

// Frees the messages at mark and above; in a crash they are only forgotten.
void truncate_stack(std::int64_t mark);

// Takes the messages from begin up to end off the stack and frees them; later ones stay.
// It asks for no memory, which would have to be reported from the middle of it.
void cut_stack(std::int64_t begin, std::int64_t end);

// Calls add(piece) for each piece of a record in the order in which it is printed.
// before_sys stands in front of the description of errno.
template <class Add>
void lay_out(const Elog_msg &msg, std::string_view before_sys, Add add)
{
    if (msg.tag && *msg.tag) {
        add(std::string_view(msg.tag));
        add(std::string_view(": "));
    }
    if (msg.msg)
        add(std::string_view(msg.msg));
    if (msg.sys) {
        add(before_sys);
        add(std::string_view(msg.sys));
        add(std::string_view("\n"));
    }
    if (msg.count >= 2) {
        char line[48];
        const int length = std::snprintf(line, sizeof line, "\t** repeated %d times\n", msg.count);
        add(std::string_view(line, static_cast<std::size_t>(length)));
    }
}

// Messages of the stack from begin up to end, then one more that may be null.
struct Batch {
    std::int64_t begin;
    std::int64_t end;
    const Elog_msg *last;
};

// Everything from mark on, and msg.
Batch batch_from(std::int64_t mark, const Elog_msg *msg = nullptr);

// Calls function(message) for each message of the batch that is on the stack still: what is
// done for one destination may have taken messages away before the next one reads them.
template <class Function>
void for_each(const Batch &batch, Function function)
{
    // Asked anew each time: the function may call out, and the stack may change.
    for (std::int64_t i = batch.begin; i < std::min(batch.end, stack_count()); ++i)
        if (const Elog_msg *msg = message(i))
            function(*msg);
    if (batch.last)
        function(*batch.last);
}

// The text of the batch, freed with free. The function is named when memory runs out.
char *batch_text(const Batch &batch, const char *function);

// Prints the batch with the flushes that belong to it; allocates nothing.
void print_batch(std::FILE *stream, const Batch &batch);

// Prints a message and flushes nothing.
void print_message(std::FILE *stream, const Elog_msg &msg);

// Delivers the stack from mark on and msg, which may be null and whose strings
// stay the caller's: what is kept is copied. True when it was delivered.
bool deliver(const char *delivery, std::int64_t mark, const Elog_msg *msg);

// Writes all of the text; false, with errno, when the descriptor refuses some. Allocates
// nothing.
bool write_all(int fd, std::string_view text);

// Tells of a failure of the log itself: the text, errno, the stack, which is then cleared.
void elog_fail(const char *format, ...) STOCK_PRINTF(1, 2);
void elog_vfail(const char *format, va_list args) STOCK_PRINTF(1, 0);

}  // namespace stock::logging
