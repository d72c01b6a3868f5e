// What the sources of the message log share; no other room includes it.
//
// The log is one stack of messages, three tables of settings and one lock. Who reads or
// changes any of them holds the lock. A thread that has it may take it again, because a
// report may be made in the middle of a delivery.
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
//     qelelog.cpp       the messaging library
//     log_state.cpp     the variables of them all

#pragma once

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include <time.h>

#include "base/alloc.h"
#include "base/limits.h"
#include "log/asks.h"
#include "log/end.h"
#include "log/lock.h"
#include "log/reasons.h"
#include "stock/elog.h"

namespace stock::logging {

inline constexpr std::size_t kMessageSize = 10240;  // bytes of a message and its terminator
inline constexpr int kTagSize = 1023;               // bytes that a tag is expanded into
inline constexpr std::size_t kErrorSize = 128;      // bytes of the description of an errno

extern const char *const kSeverityNames[kSeverities + 1];

constexpr bool is_severity(int severity)
{
    return severity >= 0 && severity < kSeverities;
}

// ---- State, defined in log_state.cpp ----
// Lock guards it, but for the atomics and where a comment says otherwise.

extern Settings The_settings;

// How far elog_init has come.
struct Startup {
    std::atomic<int> done;               // it has run once
    std::atomic_flag running;            // a thread is inside it
    char *first_signals;                 // the signals that it was told to catch; never freed
    std::atomic<double> reference_time;  // what the tag code %e counts from
};
extern Startup The_startup;

// A copy of a command line. `former` was replaced while another thread may have been reading
// it, and is freed by the next elog_init that has the lock.
struct CommandLine {
    char **argv;
    CommandLine *former;
};

// The program, as tags name it.
struct Program {
    std::atomic<int> argc;
    std::atomic<char **> argv;  // of command_line, unless elog_set has replaced it
    CommandLine *command_line;  // what elog_init copied last; guarded by Startup::running
    char name[kPathSize];       // elog_init also changes it while others read it
    std::atomic<char *> path;   // what elog_cmdline found, never freed; null at first
};
extern Program The_program;

// What a crash reports about its signal, kept without allocating.
struct Note {
    bool kept;
    char tag[kTagSize + 2];
    char text[kErrorSize];
    Elog_msg msg;
};

// The messages that wait, and who sees them.
struct MessageStack {
    Tbl own;
    Tbl *messages;  // own, or the list that elog_set has put in its place
    Note note;      // counts as a message above the others
    Elog_callback callback;
    Reasons *reasons;          // of all threads, the newest first
    bool limit_reached;        // the delivery that tells that the stack is full has begun
    std::atomic<int> refused;  // deliveries that a file or stream did not take, or not all of
    char *file_text;           // the record that is written to a file; kept for the next one
    std::size_t file_size;
};
extern MessageStack The_stack;

// The routine of the messaging library.
struct MessagingLibrary {
    std::atomic<bool> tried;  // the library was looked for
    std::atomic<bool> told;   // the user was told that it is not there
    std::atomic<int (*)(const char *target, const char *program, const char *text)> send;
};
extern MessagingLibrary The_messaging_library;

// The end of the process, and the limit on it. Signal handlers use it, and so takes no lock.
struct End {
    std::atomic<bool> begun;          // a thread ends the process
    std::atomic<void (*)(int)> over;  // called when the time of the limit is over, or null
    std::atomic<int> seconds;         // that the limit was given
    std::atomic<const char *> text;   // printed when a step takes too long
    std::atomic_flag printing;        // that is being printed
    std::atomic<bool> wanted;         // a thread dies: waits for readers have an end from now on
    std::atomic<bool> no_reader;      // such a wait came to its end, so there is no other one
    struct sigaction before;          // the action for SIGALRM before there was a limit
};
extern End The_end;

// ---- Settings ----

// Calls elog_init unless that was done, errno untouched.
void need_init();

// A copy of a setting. A delivery may give the lock up, and another thread may change the
// setting then.
struct Setting {
    Field text;
};

// The setting that applies to a severity now. Before the log is initialised an empty field
// counts as its default. A severity that does not exist has the settings of "complain".
Setting delivery_of(int severity);
Setting tag_of(int severity);

// Copies the text into the field, cut to its size.
void store(Field &field, std::string_view text);

// ---- Messages ----

// A message before anything is copied: its strings point into the buffers.
struct Draft {
    char text[kMessageSize];
    char tag[kTagSize + 2];  // with room for a newline in front
    char error[kErrorSize];
    Elog_msg msg;
};

// Prints the message into the draft's text, cut and terminated as every message is.
void draft_text(Draft &draft, const char *format, va_list args) STOCK_PRINTF(2, 0);

// Makes the record from the text. With an error that is not 0 the record has its description.
void draft_record(Draft &draft, int severity, int error);

// The description of an errno: in the buffer, or a constant of the system's.
char *describe(int error, char *buffer, std::size_t size);

// Keeps a message as the note of a crash. False when there is a note already.
bool keep_note(const Elog_msg &msg);

// The number of messages on the stack, the note included.
std::int64_t stack_count();

// Message i of the stack, or null.
const Elog_msg *message(std::int64_t i);

// A copy of one of a message's strings. The out-of-memory message names the item, the function
// and where this is called.
inline char *copy_or_null(const char *text, const char *item, const char *function,
                          int line = __builtin_LINE(), const char *file = __builtin_FILE())
{
    return text ? copy_text(text, item, function, line, file) : nullptr;
}

// Frees the strings of a message of the stack.
void free_message(const Elog_msg &msg);

// Frees the messages at mark and above. In a crash they are removed but not freed.
void truncate_stack(std::int64_t mark);

// Takes the messages from begin up to end off the stack and frees them; later ones stay.
// It allocates nothing: running out of memory would have to be reported in the middle of it.
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

// ---- Noting what a thread logs (reasons.h) ----

// Whether a Reasons of this thread notes what it logs. Not in a crash.
bool wants_reasons();

// Notes a message with the newest Reasons of this thread, if there is one. on_stack is the
// text of the message on the stack that holds this one or counts it; null: there is none.
void note_reason(const Elog_msg &msg, const char *on_stack);

// Tells every Reasons that this message of the stack is about to be freed.
void forget_reason(const Elog_msg &msg);

// In the child of a fork: forgets the Reasons of the parent's other threads.
void keep_own_reasons();

// ---- Delivery ----

// Messages of the stack from begin up to end, then one more that may be null.
struct Batch {
    std::int64_t begin;
    std::int64_t end;
    const Elog_msg *last;
};

// The messages from mark on, and msg.
Batch batch_from(std::int64_t mark, const Elog_msg *msg = nullptr);

// Calls function(message) for each message of the batch that is still on the stack: delivering
// to one destination may have taken messages away before the next destination reads them.
template <class Function>
void for_each(const Batch &batch, Function function)
{
    // stack_count() is asked anew each time: the function may change the stack.
    for (std::int64_t i = batch.begin; i < std::min(batch.end, stack_count()); ++i)
        if (const Elog_msg *msg = message(i))
            function(*msg);
    if (batch.last)
        function(*batch.last);
}

// The text of the batch, which the caller frees with free. The out-of-memory message names
// the function.
char *batch_text(const Batch &batch, const char *function);

// Prints the batch and flushes the stream, and before standard error standard output.
// Allocates nothing.
void print_batch(std::FILE *stream, const Batch &batch);

// Prints a message and flushes nothing.
void print_message(std::FILE *stream, const Elog_msg &msg);

// Delivers the stack from mark on and msg, which may be null and whose strings
// stay the caller's: what is kept is copied. True when it was delivered.
bool deliver(const char *delivery, std::int64_t mark, const Elog_msg *msg);

// Writes all of the text; false, with errno, when the descriptor refuses some. Allocates
// nothing.
bool write_all(int fd, std::string_view text);

// Waits until the descriptor takes text. A thread may hold the lock for as long as the reader of
// a pipe takes; when a thread dies, that has an end. False then, with errno.
bool wait_to_write(int fd);

// Whether what the descriptor takes is read by somebody, who may be slow.
bool has_reader(int fd);

// Waits for the reader of standard error before something short is printed there. False when
// the process ends and the reader does not come.
bool stderr_is_ready();

// Reports a failure of the log itself on standard error: the text, errno, and the stack,
// which is then cleared.
void elog_fail(const char *format, ...) STOCK_PRINTF(1, 2);
void elog_vfail(const char *format, va_list args) STOCK_PRINTF(1, 0);

// ---- Waiting ----

// Waits at most so many seconds until done() gives true, which it asks every hundredth of a
// second. Allocates nothing and takes no lock.
template <class Done>
void wait_until(int seconds, Done done)
{
    constexpr timespec kHundredth{0, 10'000'000};
    for (int i = 0; i < 100 * seconds && !done(); ++i)
        ::nanosleep(&kHundredth, nullptr);
}

}  // namespace stock::logging
