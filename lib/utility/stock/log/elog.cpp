// The message log: reporting, the stack of messages, questions and settings.
//
// A report is drafted in buffers on the caller's stack. Only a message that is
// kept is copied, so that the log can still speak when memory has run out.

#include "stock/elog.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/alloc.h"
#include "base/errno_text.h"
#include "base/guards.h"
#include "base/thread.h"
#include "log/asks.h"
#include "log/fault.h"
#include "log/log.h"
#include "log/reasons.h"

namespace stock::logging {

// clang-format off
const char *const severity_name[]   = {"log", "debug", "notify", "alert", "complain", "die", "fault", nullptr};
const char *const Default_deliver[] = {"", "stderr", "stderr", "stderr", "stderr", "stderr", "stderr"};
const char *const Default_tag[]     = {"%P", "%P *debug*", "%P", "%P *alert*", "%P", "%P *fatal*", "%P *fault*"};
const char *const Default_debug[]   = {"", "", "", "", "", "gdb %r %p", "gdb %r %p"};
// clang-format on

Field Deliver[kSeverities];
Field Tag[kSeverities];
Field Debug[kSeverities];

constinit HolderLock Lock;
std::atomic<int> Elog_init{0};
int Max_msg = 50;
double Elog_wait = 10.0;
const char *Elog_t_format = "%a %b %e %H:%M:%S %Y";
const char *Elog_u_format = "%Y-%j %H:%M:%S";
std::atomic<double> Elog_reference_time{0.0};
std::atomic<int> Argc{0};
std::atomic<char **> Argv{nullptr};
char Program_Name[kPathSize];
char Program_Dir[kPathSize];
const char *Faults = nullptr;

namespace {

constexpr int kWritten = 10238;    // most bytes that a format may write, the end included
constexpr int kNeeded = 10240;     // a text that would be longer carries the notice
constexpr int kTruncated = 10239;  // characters of a text with the notice
constexpr std::string_view kNotice = "\n\t...  ** truncated by elog ***\n";
static_assert(kNotice.size() == 32);

constexpr std::string_view kStackPrefix = "*stack*";

// Reports made inside reports go this deep before they are only printed. It ends
// the circle of, say, a messaging library that complains to itself.
constexpr int kDeepest = 8;

Elog_callback Callback = nullptr;

Tbl Stack = {.base = nullptr,
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
             .right_grow = 10};

// Ends the text with the notice. A format that failed early has left less than the
// notice follows; blanks fill the gap.
void put_notice(char *text)
{
    const std::size_t length = strnlen(text, kWritten - 1);
    std::memset(text + length, ' ', kTruncated - length);
    std::memcpy(text + kTruncated - kNotice.size(), kNotice.data(), kNotice.size());
    text[kTruncated] = '\0';
}

bool begins_with_stack(const char *text)
{
    return text && std::strncmp(text, kStackPrefix.data(), kStackPrefix.size()) == 0;
}

bool wants_stack(const Draft &draft)
{
    return join_shows_stack(draft.msg.severity) || begins_with_stack(draft.text) ||
           begins_with_stack(draft.tag + 1);
}

// Counts the text as a repetition of the top message when it is one. Returns that message,
// or null.
const Elog_msg *fold(int severity, const char *text)
{
    if (severity != kLog || Elog_tbl->count == 0)
        return nullptr;
    auto *top = static_cast<Elog_msg *>(gettbl(Elog_tbl, Elog_tbl->count - 1));
    if (!top->msg || std::strcmp(top->msg, text) != 0)
        return nullptr;
    if (top->count < INT32_MAX)
        ++top->count;
    return top;
}

// The program's callback runs; it may throw.
class InCallback {
public:
    InCallback() { This_thread.in_callback = true; }
    ~InCallback() { This_thread.in_callback = false; }
    InCallback(const InCallback &) = delete;
    InCallback &operator=(const InCallback &) = delete;

private:
    NothingChanges nothing_changes_;
};

// A report, which may be made in the middle of another.
class Reporting {
public:
    Reporting() { ++This_thread.reports; }
    ~Reporting() { --This_thread.reports; }
    Reporting(const Reporting &) = delete;
    Reporting &operator=(const Reporting &) = delete;
};

// Shows the program's callback the text of the batch. True when the program has
// dealt with it. What the callback itself reports does not call it again.
bool callback_took(int severity, const Batch &batch, const char *function)
{
    if (!Callback || This_thread.in_callback)
        return false;
    const Owned<char> text(batch_text(batch, function));
    const InCallback in_callback;
    return Callback(severity, text.get(), Elog_tbl) != 0;
}

// Delivers the message, or gives it to the callback.
void hand_out(const Elog_msg &reported, int severity, int error)
{
    const Elog_msg *msg = &reported;
    if (callback_took(severity, batch_from(0, msg), "elog")) {
        truncate_stack(0);
        msg = nullptr;
    }
    errno = error;  // a delivery that fails tells it
    const bool delivered = deliver(delivery_of(severity).text, 0, msg);
    if (severity == kLog && (delivered || !msg))
        note_reason(reported, nullptr);
}

// Who loads a library has the system's lock, which looking the stack's names up needs,
// and may wait for the log's: the library's constructor reports.
void trace_stack()
{
    if (crashing())
        return join_stack_trace();
    const Released released;
    join_stack_trace();
}

// What a report does under the lock.
void report_draft(Draft &draft, int severity, int flag, int error)
{
    const bool noted = wants_reasons();
    if (noted)  // first: what the tag's codes report may free the message that stands for it
        draft_record(draft, severity, flag ? error : 0);
    if (const Elog_msg *counting = fold(severity, draft.text)) {
        if (noted)
            note_reason(draft.msg, counting->msg);
        return;
    }
    if (!noted)
        draft_record(draft, severity, flag ? error : 0);
    if (This_thread.reports > kDeepest)
        return print_message(stderr, draft.msg);
    const bool trace = wants_stack(draft);
    hand_out(draft.msg, severity, error);
    if (crashing() && severity == kFault)
        crash_was_told();
    if (trace)
        trace_stack();
}

STOCK_PRINTF(3, 0) void report(int severity, int flag, const char *format, va_list args)
{
    const int error = errno;
    need_init();
    Draft draft;
    errno = error;
    draft_text(draft, format, args);
    Field command = "";
    {
        const Reporting reporting;
        const Holding hold(Lock);
        report_draft(draft, severity, flag, error);
        if (is_severity(severity))
            store(command, Debug[severity]);
    }
    errno = 0;
    if (!*command)
        return;
    join_debugger(command);
    errno = 0;
}

Setting setting_of(int severity, const Field *table, const char *const *defaults)
{
    const int row = is_severity(severity) ? severity : kComplain;
    Setting setting;
    store(setting.text, Elog_init || *table[row] ? table[row] : defaults[row]);
    return setting;
}

void *copy_strings(void *entry)
{
    auto *msg = static_cast<Elog_msg *>(entry);
    const auto copy = [](const char *text) {
        return text ? copy_text(text, "msg", "elog_query") : nullptr;
    };
    msg->tag = copy(msg->tag);
    msg->msg = copy(msg->msg);
    msg->sys = copy(msg->sys);
    return msg;
}

Tbl *copy_stack()
{
    return duptbl(Elog_tbl, copy_strings);
}

// A list that can serve as the stack.
bool holds_messages(const Tbl *tbl)
{
    return tbl && tbl->direct && tbl->size == static_cast<std::int32_t>(sizeof(Elog_msg));
}

template <class T>
int answer(void *result, T value)
{
    *static_cast<T *>(result) = value;
    return 0;
}

int answer_field(void *result, Field *table, int severity)
{
    return is_severity(severity) ? answer<char *>(result, table[severity]) : -1;
}

int set_field(Field *table, int severity, const char *value)
{
    if (!is_severity(severity) || !value)
        return -1;
    store(table[severity], value);
    return 0;
}

// Meant: only the tag table takes a severity outside 0 .. 6, such as -1, for all seven.
int set_tag(int severity, const char *value)
{
    if (is_severity(severity) || !value)
        return set_field(Tag, severity, value);
    for (Field &field : Tag)
        store(field, value);
    return 0;
}

}  // namespace

Tbl *Elog_tbl = &Stack;

void store(Field &field, std::string_view text)
{
    const std::size_t length = std::min(text.size(), sizeof field - 1);
    std::memmove(field, text.data(), length);
    std::memset(field + length, 0, sizeof field - length);
}

Setting delivery_of(int severity)
{
    return setting_of(severity, Deliver, Default_deliver);
}

Setting tag_of(int severity)
{
    return setting_of(severity, Tag, Default_tag);
}

void draft_text(Draft &draft, const char *format, va_list args)
{
    char *text = draft.text;
    text[0] = '\0';
    int needed = 0;
    if (format)
        needed = std::vsnprintf(text, kWritten, format, args);
    if (needed < 0 || needed > kNeeded)
        return put_notice(text);
    // Meant: 10,238 to 10,240 characters are cut to 10,237 without the notice.
    const int length = std::min(needed, kWritten - 1);
    if (length == 0 || text[length - 1] != '\n')
        std::memcpy(text + length, "\n", 2);
}

char *describe(int error, char *buffer, std::size_t size)
{
    char *text = stock::errno_text(error, buffer, size);
    if (text && *text && std::strcmp(text, "Unknown error") != 0)
        return text;
    std::snprintf(buffer, size, "Unknown error: %d", error);
    return buffer;
}

void draft_record(Draft &draft, int severity, int error)
{
    const bool leading = draft.text[0] == '\n';
    const bool empty = leading && draft.text[1] == '\0';
    draft.tag[0] = '\n';
    elog_expand(tag_of(severity).text, severity, draft.tag + 1, kTagMax);
    draft.msg = {.tag = empty ? nullptr : draft.tag + (leading ? 0 : 1),
                 .msg = draft.text + (leading && !empty ? 1 : 0),
                 .sys = error ? describe(error, draft.error, sizeof draft.error) : nullptr,
                 .severity = severity,
                 .count = 1,
                 .thread = stock::thread_number()};
}

namespace {

// What a crash says of its signal; no other message is ever kept here.
struct Note {
    bool kept;
    char tag[kTagMax + 2];
    char text[kErrorSize];
    Elog_msg msg;
};
Note Crash_note;

}  // namespace

bool keep_note(const Elog_msg &msg)
{
    Note &note = Crash_note;
    if (note.kept)
        return false;
    note.msg = msg;
    note.msg.sys = nullptr;
    note.msg.tag = std::strncpy(note.tag, msg.tag ? msg.tag : "", sizeof note.tag - 1);
    note.msg.msg = std::strncpy(note.text, msg.msg ? msg.msg : "", sizeof note.text - 1);
    return note.kept = true;
}

std::int64_t stack_count()
{
    return Elog_tbl->count + Crash_note.kept;
}

const Elog_msg *message(std::int64_t i)
{
    if (Crash_note.kept && i == Elog_tbl->count)
        return &Crash_note.msg;
    return static_cast<const Elog_msg *>(gettbl(Elog_tbl, i));
}

void free_message(const Elog_msg &msg)
{
    forget_reason(msg);
    Elog_msg freed = msg;
    elog_free_msg(&freed);
}

void truncate_stack(std::int64_t mark)
{
    const auto free_entry = [](void *entry) { free_message(*static_cast<Elog_msg *>(entry)); };
    trunctbl(Elog_tbl, mark, crashing() ? nullptr : +free_entry);
    Crash_note.kept &= mark > Elog_tbl->count;
}

void cut_stack(std::int64_t begin, std::int64_t end)
{
    for (std::int64_t i = begin; i < end; ++i)
        free_message(*static_cast<Elog_msg *>(gettbl(Elog_tbl, i)));
    const std::int64_t later = Elog_tbl->count - end;
    if (later > 0)
        std::memmove(addrtbl(Elog_tbl, begin), addrtbl(Elog_tbl, end),
                     static_cast<std::size_t>(later) * sizeof(Elog_msg));
    trunctbl(Elog_tbl, begin + later, nullptr);
}

}  // namespace stock::logging

using namespace stock;
using namespace stock::logging;

void elog(int severity, int flag, const char *format, va_list args)
{
    report(severity, flag, format, args);
}

// The seven differ in their severity and in what follows.
#define REPORT(severity)                                                                           \
    va_list args;                                                                                  \
    va_start(args, format);                                                                        \
    report(severity, flag, format, args);                                                          \
    va_end(args)

void elog_log(int flag, const char *format, ...)
{
    REPORT(0);
}

void elog_debug(int flag, const char *format, ...)
{
    REPORT(1);
}

void elog_notify(int flag, const char *format, ...)
{
    REPORT(2);
}

void elog_alert(int flag, const char *format, ...)
{
    REPORT(3);
}

void elog_complain(int flag, const char *format, ...)
{
    REPORT(4);
}

void elog_die(int flag, const char *format, ...)
{
    REPORT(5);
    end_with_state();
}

void elog_fault(int flag, const char *format, ...)
{
    REPORT(6);
    abort_process();
}

int elog_mark(void)
{
    need_init();
    const Holding hold(Lock);
    return static_cast<int>(Elog_tbl->count);
}

void elog_truncate(int mark)
{
    const Holding hold(Lock);
    truncate_stack(mark);
}

void elog_clear(void)
{
    if (Elog_init) {
        const Holding hold(Lock);
        truncate_stack(0);
    }
    errno = 0;
}

void elog_flush(int deliver_first, int mark)
{
    need_init();
    const KeepErrno keep;
    const Holding hold(Lock);
    const std::int64_t begin = std::max(mark, 0);
    if (deliver_first) {
        if (Elog_tbl->count > begin && callback_took(kNotify, batch_from(begin), "elog_flush"))
            truncate_stack(begin);
        if (deliver(delivery_of(kComplain).text, begin, nullptr))
            return;
    }
    truncate_stack(begin);
}

void elog_clear_register(int deliver_first)
{
    need_init();
    const Holding hold(Lock);
    bool delivered = false;
    if (deliver_first) {
        if (callback_took(kNotify, batch_from(0), "elog_clear_register"))
            truncate_stack(0);
        delivered = deliver(delivery_of(kComplain).text, 0, nullptr);
    }
    if (!delivered)
        truncate_stack(0);
    errno = 0;
}

void elog_print(FILE *stream, int mark)
{
    const Holding hold(Lock);
    print_batch(stream, batch_from(mark));
}

char *elog_string(int mark)
{
    const Holding hold(Lock);
    return batch_text(batch_from(mark), "elog_string");
}

const char *elog_severity(int severity)
{
    return is_severity(severity) ? severity_name[severity] : nullptr;
}

void elog_free_msg(void *entry)
{
    auto *msg = static_cast<Elog_msg *>(entry);
    if (!msg)
        return;
    std::free(msg->tag);
    std::free(msg->msg);
    std::free(msg->sys);
}

int elog_query(int code, int severity, void *result)
{
    if (code < ELOG_TBL || code > ELOG_PROGRAM_NAME || !result)
        return -1;
    need_init();
    const Holding hold(Lock);
    switch (code) {
    case ELOG_TBL: return answer(result, Elog_tbl);
    case ELOG_TBL_COPY: return answer(result, copy_stack());
    case ELOG_TBL_TAKE: {
        Tbl *copy = copy_stack();
        truncate_stack(0);
        return answer(result, copy);
    }
    case ELOG_ARGV: return answer(result, Argv.load());
    case ELOG_ARGC: return answer(result, Argc.load());
    case ELOG_COUNT: return answer(result, static_cast<int>(Elog_tbl->count));
    case ELOG_MAXMSG_VALUE: return answer(result, Max_msg);
    case ELOG_TAG_FIELD: return answer_field(result, Tag, severity);
    case ELOG_DELIVER_FIELD: return answer_field(result, Deliver, severity);
    case ELOG_DEBUG_FIELD: return answer_field(result, Debug, severity);
    case ELOG_SIGNAL_LIST: return answer(result, Faults);
    case ELOG_CALLBACK_FN: return answer(result, Callback);
    case ELOG_STRING_FROM: return answer(result, elog_string(severity));
    case ELOG_REFERENCE: return answer(result, Elog_reference_time.load());
    case ELOG_PROGRAM_NAME: return answer<char *>(result, Program_Name);
    default: return -1;
    }
}

namespace {

int set_stack(Tbl *tbl)
{
    if (!holds_messages(tbl))
        return -1;
    Elog_tbl = tbl;
    return 0;
}

int set_value(int code, int severity, va_list args)
{
    const Holding hold(Lock);
    switch (code) {
    case ELOG_TBL: return set_stack(va_arg(args, Tbl *));
    case ELOG_ARGV: Argv = va_arg(args, char **); return 0;
    case ELOG_ARGC: Argc = va_arg(args, int); return 0;
    case ELOG_COUNT: truncate_stack(va_arg(args, int)); return 0;
    case ELOG_MAXMSG_VALUE: Max_msg = va_arg(args, int); return 0;
    case ELOG_TAG_FIELD: return set_tag(severity, va_arg(args, const char *));
    case ELOG_DELIVER_FIELD: return set_field(Deliver, severity, va_arg(args, const char *));
    case ELOG_DEBUG_FIELD: return set_field(Debug, severity, va_arg(args, const char *));
    case ELOG_SIGNAL_LIST: join_fault_handlers(va_arg(args, const char *)); return 0;
    case ELOG_CALLBACK_FN: Callback = va_arg(args, Elog_callback); return 0;
    case ELOG_REFERENCE: Elog_reference_time = va_arg(args, double); return 0;
    default: return -1;
    }
}

}  // namespace

int elog_set(int code, int severity, ...)
{
    if (code < ELOG_TBL || code > ELOG_REFERENCE)
        return -1;
    need_init();
    va_list args;
    va_start(args, severity);
    const int status = set_value(code, severity, args);
    va_end(args);
    return status;
}
