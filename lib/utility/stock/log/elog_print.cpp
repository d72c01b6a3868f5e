// The text of messages: on streams and in strings, and the reports that the log
// makes of its own failures.
//
// Printing goes through one buffer on the stack. Whole records are gathered in
// it and written together, so that nothing is allocated and a message arrives
// in one piece.

#include "stock/elog.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <utility>

#include "base/alloc.h"
#include "base/guards.h"
#include "log/log.h"

namespace stock::logging {

namespace {

constexpr std::string_view kTab = "\t";
constexpr std::size_t kLongestRecord = kFormatSize + kTagMax + kErrorSize + 64;
constexpr std::string_view kRepeated = "\t** repeated %d times\n";

// Gathers pieces of text and writes them to a stream.
class Printer {
public:
    explicit Printer(std::FILE *stream) : stream_(stream) {}
    ~Printer() { flush(); }
    Printer(const Printer &) = delete;
    Printer &operator=(const Printer &) = delete;

    void operator()(std::string_view piece)
    {
        if (piece.size() > sizeof text_ - used_)
            flush();
        if (piece.size() > sizeof text_)
            return write(piece);
        std::memcpy(text_ + used_, piece.data(), piece.size());
        used_ += piece.size();
    }

    // Ends a record. The next one is written together, too: there is room for all of it.
    void end_record()
    {
        if (sizeof text_ - used_ < kLongestRecord)
            flush();
    }

    void flush() { write({text_, std::exchange(used_, 0)}); }

private:
    void write(std::string_view piece)
    {
        while (!piece.empty()) {
            errno = 0;
            piece.remove_prefix(std::fwrite(piece.data(), 1, piece.size(), stream_));
            if (!piece.empty() && errno != EINTR)
                return;
            if (!piece.empty())
                std::clearerr(stream_);
        }
    }

    std::FILE *stream_;
    std::size_t used_ = 0;
    char text_[2 * kLongestRecord];
};

std::size_t size_of(const Elog_msg &msg)
{
    std::size_t size = 0;
    lay_out(msg, kTab, [&](std::string_view piece) { size += piece.size(); });
    return size;
}

// The length that is counted for a record, never less than it needs.
std::size_t counted(const Elog_msg &msg)
{
    std::size_t length = msg.msg ? std::strlen(msg.msg) : 0;
    if (msg.tag)
        length += std::strlen(msg.tag) + 2;
    if (msg.sys)
        length += std::strlen(msg.sys) + 2;
    if (msg.count >= 2)
        length += kRepeated.size() + 10;
    return length;
}

bool flush_or_tell(std::FILE *stream, const char *what)
{
    const int result = std::fflush(stream);
    if (result == 0)
        return true;
    char buffer[kErrorSize];
    std::fprintf(stderr, "%s failed: %ld : %s\n", what, static_cast<long>(result),
                 describe(errno, buffer, sizeof buffer));
    return false;
}

void print_records(std::FILE *stream, const Batch &batch)
{
    Printer print(stream);
    for_each(batch, [&](const Elog_msg &msg) {
        lay_out(msg, kTab, std::ref(print));
        print.end_record();  // may write, and so call out; the record is not needed any more
    });
}

// A zeroed buffer of a counted size that is appended to.
class Counted {
public:
    Counted(std::size_t size, const char *function)
        : text_(static_cast<char *>(allocate_zeroed(size, "s", function))), size_(size),
          function_(function)
    {
    }

    void operator()(std::string_view piece)
    {
        // Only messages that somebody changes without the lock need more than was counted.
        if (piece.size() >= size_ - used_)
            elog_die(0, "*stack*Unexpected failure: %s in file %s, line %d\n", function_,
                     "elog_print.cpp", __LINE__);
        std::memcpy(text_ + used_, piece.data(), piece.size());
        used_ += piece.size();
    }

    char *text() const { return text_; }

private:
    char *text_;
    std::size_t size_;
    std::size_t used_ = 0;
    const char *function_;
};

}  // namespace

Batch batch_from(std::int64_t mark, const Elog_msg *msg)
{
    return {std::max<std::int64_t>(mark, 0), stack_count(), msg};
}

char *batch_text(const Batch &batch, const char *function)
{
    std::size_t size = 100;
    for_each(batch, [&](const Elog_msg &msg) { size += counted(msg); });
    Counted text(size, function);
    for_each(batch, [&](const Elog_msg &msg) { lay_out(msg, kTab, std::ref(text)); });
    return text.text();
}

void print_batch(std::FILE *stream, const Batch &batch)
{
    if (!stream)
        return;
    const int error = errno;
    bool flushed = true;
    if (stream == stderr)
        flushed &= flush_or_tell(stdout, "fflush(stdout)");
    print_records(stream, batch);
    flushed &= flush_or_tell(stream, "fflush()");
    errno = flushed ? error : 0;
}

void print_message(std::FILE *stream, const Elog_msg &msg)
{
    print_records(stream, {0, 0, &msg});
}

void elog_vfail(const char *format, va_list args)
{
    const int error = errno;
    const Holding hold(Lock);
    std::vfprintf(stderr, format, args);
    if (error != 0) {
        char buffer[kErrorSize];
        std::fprintf(stderr, "\t: %s\n", describe(error, buffer, sizeof buffer));
    }
    print_batch(stderr, batch_from(0));
    truncate_stack(0);
}

void elog_fail(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    elog_vfail(format, args);
    va_end(args);
}

}  // namespace stock::logging

using namespace stock;
using namespace stock::logging;

int elog_fprintf(FILE *stream, const char *format, ...)
{
    if (!stream || !format)
        return -1;
    const Holding hold(Lock);
    va_list args;
    va_start(args, format);
    const int printed = std::vfprintf(stream, format, args);
    va_end(args);
    return printed;
}

char *elogs(int severity, int flag, const char *format, va_list args)
{
    const KeepErrno keep;
    const int error = flag ? errno : 0;
    need_init();
    Draft draft;
    draft_text(draft, format, args);
    {
        const Holding hold(Lock);
        draft_record(draft, severity, error);
    }
    // Meant: line 1187 is part of the message.
    char *result =
        static_cast<char *>(allocate_zeroed(size_of(draft.msg) + 1, "result", "elogs", 1187));
    std::size_t used = 0;
    lay_out(draft.msg, kTab,
            [&](std::string_view piece) { used += piece.copy(result + used, piece.size()); });
    return result;
}

char *elogstr(int severity, int flag, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    char *text = elogs(severity, flag, format, args);
    va_end(args);
    return text;
}
