// The message log: reporting, the stack of messages, questions and settings.
//
// A report is drafted in buffers on the caller's stack. Only a message that stays on the
// stack of messages is copied, so that the log also reports when memory has run out.

#include "stock/elog.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/alloc.h"
#include "base/errno_text.h"
#include "base/guards.h"
#include "base/thread.h"
#include "deviants.h"
#include "log/fault.h"
#include "log/log.h"
#include "stock/elog_fault.h"

namespace stock::logging {

const char *const kSeverityNames[] = {"log",      "debug", "notify", "alert",
                                      "complain", "die",   "fault",  nullptr};

namespace {

constexpr int kWrittenSize = 10238;      // bytes that a format may write, the terminator included
constexpr int kNeededLength = 10240;     // characters; a message that needs more gets the notice
constexpr int kTruncatedLength = 10239;  // characters of a message with the notice
constexpr std::string_view kNotice = "\n\t...  ** truncated by elog ***\n";
static_assert(kNotice.size() == 32);

constexpr std::string_view kStackPrefix = "*stack*";

// Reports may be made inside reports this deep. A deeper one is only printed, which ends the
// circle when, say, a delivery complains each time that it is made.
constexpr int kDeepestReport = 8;

// Puts the notice at the end of a text of kTruncatedLength characters. Blanks fill what a format
// that failed early has not written.
void put_notice(char *text)
{
    const std::size_t length = strnlen(text, kWrittenSize - 1);
    std::memset(text + length, ' ', kTruncatedLength - length);
    std::memcpy(text + kTruncatedLength - kNotice.size(), kNotice.data(), kNotice.size());
    text[kTruncatedLength] = '\0';
}

bool begins_with_stack(const char *text)
{
    return text && std::strncmp(text, kStackPrefix.data(), kStackPrefix.size()) == 0;
}

// Whether a stack trace follows the message: because of its severity, its text or its tag.
bool wants_stack(const Draft &draft)
{
    const int severity = draft.msg.severity;
    return (is_severity(severity) && The_fault_handlers.shows_stack[severity]) ||
           begins_with_stack(draft.text) || begins_with_stack(draft.tag + 1);
}

// Counts the text as a repetition of the newest message of the stack when both are the same.
// Returns that message, or null.
const Elog_msg *count_repetition(int severity, const char *text)
{
    if (severity != ELOG_LOG || The_stack.messages->count == 0)
        return nullptr;
    auto *top = static_cast<Elog_msg *>(gettbl(The_stack.messages, The_stack.messages->count - 1));
    if (!top->msg || std::strcmp(top->msg, text) != 0)
        return nullptr;
    if (top->count < INT32_MAX)
        ++top->count;
    return top;
}

// Marks that the program's callback runs, for a scope that an exception may leave.
class InCallback {
public:
    InCallback() { This_thread.in_callback = true; }
    ~InCallback() { This_thread.in_callback = false; }
    InCallback(const InCallback &) = delete;
    InCallback &operator=(const InCallback &) = delete;

private:
    ChangesPaused changes_paused_;
};

// Counts a report, which may be made in the middle of another, for its scope.
class CountedReport {
public:
    CountedReport() { ++This_thread.reports; }
    ~CountedReport() { --This_thread.reports; }
    CountedReport(const CountedReport &) = delete;
    CountedReport &operator=(const CountedReport &) = delete;
};

// Gives the program's callback the text of the batch. True when the program has dealt with
// it. What the callback itself reports does not call it again.
bool callback_took(int severity, const Batch &batch, const char *function)
{
    if (!The_stack.callback || This_thread.in_callback)
        return false;
    const Owned<char> text(batch_text(batch, function));
    const InCallback in_callback;
    return The_stack.callback(severity, text.get(), The_stack.messages) != 0;
}

// Gives the message to the callback, and delivers it unless the callback has dealt with it.
void hand_out(const Elog_msg &reported, int severity, int error)
{
    const Elog_msg *msg = &reported;
    if (callback_took(severity, batch_from(0, msg), "elog")) {
        truncate_stack(0);
        msg = nullptr;
    }
    errno = error;  // a delivery that fails prints it
    const bool delivered = deliver(delivery_of(severity).text, 0, msg);
    if (severity == ELOG_LOG && (delivered || !msg))
        note_reason(reported, nullptr);
}

// Prints a stack trace with the lock released: looking up its names needs the system loader's
// lock, and a thread that has that one may wait for ours, because a library that it loads
// reports from its constructor. In a crash the lock is this thread's for good.
void trace_stack()
{
    if (crashing())
        return show_stack_trace();
    const LockReleased released;
    show_stack_trace();
}

// The part of a report that needs the lock.
void report_draft(Draft &draft, int severity, int flag, int error)
{
    const bool noted = wants_reasons();
    // Before count_repetition: expanding the tag may report, and so free the message that
    // counts this one.
    if (noted)
        draft_record(draft, severity, flag ? error : 0);
    if (const Elog_msg *counting = count_repetition(severity, draft.text)) {
        if (noted)
            note_reason(draft.msg, counting->msg);
        return;
    }
    if (!noted)
        draft_record(draft, severity, flag ? error : 0);
    if (This_thread.reports > kDeepestReport)
        return print_message(stderr, draft.msg);
    const bool trace = wants_stack(draft);
    hand_out(draft.msg, severity, error);
    if (crashing() && severity == ELOG_FAULT)
        crash_was_told();
    if (trace)
        trace_stack();
}

STOCK_PRINTF(3, 0) void report(int severity, int flag, const char *format, va_list args)
{
    const int error = errno;
    need_init();
    Draft draft;
    errno = error;  // for "%m" in the format
    draft_text(draft, format, args);
    Field command = "";
    {
        const CountedReport counted;
        const Holding hold(Lock);
        report_draft(draft, severity, flag, error);
        if (is_severity(severity))
            store(command, The_settings.debug.fields[severity]);
    }
    errno = 0;
    if (*command) {
        _elog_debug(command);
        errno = 0;
    }
}

Setting setting_of(int severity, const SettingTable &table)
{
    const int row = is_severity(severity) ? severity : ELOG_COMPLAIN;
    const Field &field = table.fields[row];
    Setting setting;
    store(setting.text, The_startup.done || *field ? field : table.defaults[row]);
    return setting;
}

// Gives a record that duptbl has copied strings of its own.
void *copy_strings(void *entry)
{
    auto *msg = static_cast<Elog_msg *>(entry);
    for (char **text : {&msg->tag, &msg->msg, &msg->sys})
        *text = copy_or_null(*text, "msg", "elog_query");
    return msg;
}

Tbl *copy_stack()
{
    return duptbl(The_stack.messages, copy_strings);
}

// Whether the list can serve as the stack: a direct list of messages.
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

int answer_field(void *result, SettingTable &table, int severity)
{
    return is_severity(severity) ? answer<char *>(result, table.fields[severity]) : -1;
}

int set_field(SettingTable &table, int severity, const char *value)
{
    if (!is_severity(severity) || !value)
        return -1;
    store(table.fields[severity], value);
    return 0;
}

// Meant: only the tag table takes a severity outside 0 .. 6, such as -1, for all seven.
int set_tag(int severity, const char *value)
{
    if (is_severity(severity) || !value)
        return set_field(The_settings.tag, severity, value);
    for (Field &field : The_settings.tag.fields)
        store(field, value);
    return 0;
}

}  // namespace

void store(Field &field, std::string_view text)
{
    const std::size_t length = std::min(text.size(), sizeof field - 1);
    // The text may lie in the field: elog_set may be given what elog_query has given.
    std::memmove(field, text.data(), length);
    std::memset(field + length, 0, sizeof field - length);
}

Setting delivery_of(int severity)
{
    return setting_of(severity, The_settings.deliver);
}

Setting tag_of(int severity)
{
    return setting_of(severity, The_settings.tag);
}

void draft_text(Draft &draft, const char *format, va_list args)
{
    char *text = draft.text;
    text[0] = '\0';
    int needed = 0;
    if (format)
        needed = std::vsnprintf(text, kWrittenSize, format, args);
    if (needed < 0 || needed > kNeededLength)
        return put_notice(text);
    // Meant: 10,238 to 10,240 characters are cut to 10,237 without the notice.
    const int length = std::min(needed, kWrittenSize - 1);
    if (length == 0 || text[length - 1] != '\n')
        std::memcpy(text + length, "\n", 2);
}

char *describe(int error, char *buffer, std::size_t size)
{
    char *text = stock::errno_text(error, buffer, size);
    // Some systems leave the number of an unknown error out.
    if (text && *text && std::strcmp(text, "Unknown error") != 0)
        return text;
    std::snprintf(buffer, size, "Unknown error: %d", error);
    return buffer;
}

void draft_record(Draft &draft, int severity, int error)
{
    // A newline in front of the text moves in front of the tag, so that an empty line comes
    // first. A text that is only a newline has no tag.
    const bool leading = draft.text[0] == '\n';
    const bool empty = leading && draft.text[1] == '\0';
    draft.tag[0] = '\n';
    elog_expand(tag_of(severity).text, severity, draft.tag + 1, kTagSize);
    draft.msg = {.tag = empty ? nullptr : draft.tag + (leading ? 0 : 1),
                 .msg = draft.text + (leading && !empty ? 1 : 0),
                 .sys = error ? describe(error, draft.error, sizeof draft.error) : nullptr,
                 .severity = severity,
                 .count = 1,
                 .thread = stock::thread_number()};
}

bool keep_note(const Elog_msg &msg)
{
    Note &note = The_stack.note;
    if (note.kept)
        return false;
    // The last byte of both buffers is 0, as static memory is.
    note.msg = msg;
    note.msg.sys = nullptr;
    note.msg.tag = std::strncpy(note.tag, msg.tag ? msg.tag : "", sizeof note.tag - 1);
    note.msg.msg = std::strncpy(note.text, msg.msg ? msg.msg : "", sizeof note.text - 1);
    return note.kept = true;
}

std::int64_t stack_count()
{
    return The_stack.messages->count + The_stack.note.kept;
}

const Elog_msg *message(std::int64_t i)
{
    if (The_stack.note.kept && i == The_stack.messages->count)
        return &The_stack.note.msg;
    return static_cast<const Elog_msg *>(gettbl(The_stack.messages, i));
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
    trunctbl(The_stack.messages, mark, crashing() ? nullptr : +free_entry);
    The_stack.note.kept &= mark > The_stack.messages->count;
}

void cut_stack(std::int64_t begin, std::int64_t end)
{
    for (std::int64_t i = begin; i < end; ++i)
        free_message(*static_cast<Elog_msg *>(gettbl(The_stack.messages, i)));
    const std::int64_t later = The_stack.messages->count - end;
    if (later > 0)
        std::memmove(addrtbl(The_stack.messages, begin), addrtbl(The_stack.messages, end),
                     static_cast<std::size_t>(later) * sizeof(Elog_msg));
    trunctbl(The_stack.messages, begin + later, nullptr);
}

}  // namespace stock::logging

using namespace stock;
using namespace stock::logging;

void elog(int severity, int flag, const char *format, va_list args)
{
    report(severity, flag, format, args);
}

// The seven differ in their severity and in what follows the report.
#define REPORT(severity)                                                                           \
    va_list args;                                                                                  \
    va_start(args, format);                                                                        \
    report(severity, flag, format, args);                                                          \
    va_end(args)

void elog_log(int flag, const char *format, ...)
{
    REPORT(ELOG_LOG);
}

void elog_debug(int flag, const char *format, ...)
{
    REPORT(ELOG_DEBUG);
}

void elog_notify(int flag, const char *format, ...)
{
    REPORT(ELOG_NOTIFY);
}

void elog_alert(int flag, const char *format, ...)
{
    REPORT(ELOG_ALERT);
}

void elog_complain(int flag, const char *format, ...)
{
    REPORT(ELOG_COMPLAIN);
}

void elog_die(int flag, const char *format, ...)
{
    The_end.wanted = true;
    REPORT(ELOG_DIE);
    end_with_state();
}

void elog_fault(int flag, const char *format, ...)
{
    The_end.wanted = true;
    REPORT(ELOG_FAULT);
    abort_process();
}

int elog_mark(void)
{
    need_init();
    const Holding hold(Lock);
    return static_cast<int>(The_stack.messages->count);
}

void elog_truncate(int mark)
{
    const Holding hold(Lock);
    truncate_stack(mark);
}

void elog_clear(void)
{
    if (The_startup.done) {  // else there are no messages, and nothing to initialise for them
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
        if (The_stack.messages->count > begin &&
            callback_took(ELOG_NOTIFY, batch_from(begin), "elog_flush"))
            truncate_stack(begin);
        if (deliver(delivery_of(ELOG_COMPLAIN).text, begin, nullptr))
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
        if (callback_took(ELOG_NOTIFY, batch_from(0), "elog_clear_register"))
            truncate_stack(0);
        delivered = deliver(delivery_of(ELOG_COMPLAIN).text, 0, nullptr);
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
    return is_severity(severity) ? kSeverityNames[severity] : nullptr;
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
    if (code < ELOG_TBL || (code > ELOG_PROGRAM_NAME && code != ELOG_REFUSED) || !result)
        return -1;
    need_init();
    const Holding hold(Lock);
    switch (code) {
    case ELOG_TBL: return answer(result, The_stack.messages);
    case ELOG_TBL_COPY: return answer(result, copy_stack());
    case ELOG_TBL_TAKE: {
        Tbl *copy = copy_stack();
        truncate_stack(0);
        return answer(result, copy);
    }
    case ELOG_ARGV: return answer(result, The_program.argv.load());
    case ELOG_ARGC: return answer(result, The_program.argc.load());
    case ELOG_COUNT: return answer(result, static_cast<int>(The_stack.messages->count));
    case ELOG_MAXMSG_VALUE: return answer(result, The_settings.max_messages);
    case ELOG_TAG_FIELD: return answer_field(result, The_settings.tag, severity);
    case ELOG_DELIVER_FIELD: return answer_field(result, The_settings.deliver, severity);
    case ELOG_DEBUG_FIELD: return answer_field(result, The_settings.debug, severity);
    case ELOG_SIGNAL_LIST: return answer(result, The_fault_handlers.list);
    case ELOG_CALLBACK_FN: return answer(result, The_stack.callback);
    case ELOG_STRING_FROM: return answer(result, elog_string(severity));
    case ELOG_REFERENCE: return answer(result, The_startup.reference_time.load());
    case ELOG_PROGRAM_NAME: return answer<char *>(result, The_program.name);
    case ELOG_REFUSED: return answer(result, The_stack.refused.load());
    default: return -1;
    }
}

namespace {

int set_stack(Tbl *tbl)
{
    if (!holds_messages(tbl))
        return -1;
    The_stack.messages = tbl;
    return 0;
}

int set_value(int code, int severity, va_list args)
{
    const Holding hold(Lock);
    switch (code) {
    case ELOG_TBL: return set_stack(va_arg(args, Tbl *));
    case ELOG_ARGV: The_program.argv = va_arg(args, char **); return 0;
    case ELOG_ARGC: The_program.argc = va_arg(args, int); return 0;
    case ELOG_COUNT: truncate_stack(va_arg(args, int)); return 0;
    case ELOG_MAXMSG_VALUE: The_settings.max_messages = va_arg(args, int); return 0;
    case ELOG_TAG_FIELD: return set_tag(severity, va_arg(args, const char *));
    case ELOG_DELIVER_FIELD:
        return set_field(The_settings.deliver, severity, va_arg(args, const char *));
    case ELOG_DEBUG_FIELD:
        return set_field(The_settings.debug, severity, va_arg(args, const char *));
    case ELOG_SIGNAL_LIST: elog_setup_fault_handler(va_arg(args, const char *)); return 0;
    case ELOG_CALLBACK_FN: The_stack.callback = va_arg(args, Elog_callback); return 0;
    case ELOG_REFERENCE: The_startup.reference_time = va_arg(args, double); return 0;
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
