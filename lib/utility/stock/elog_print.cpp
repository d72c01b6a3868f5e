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

#include "internal/alloc.h"
#include "internal/elog.h"
#include "internal/guards.h"

namespace stock::logging {

namespace {

constexpr std::string_view kTab = "\t";
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

    // Makes room for so many bytes, so that they are written together.
    void room_for(std::size_t bytes)
    {
        if (bytes > sizeof text_ - used_)
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
    char text_[16384];
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

void flush_or_tell(std::FILE *stream, const char *what)
{
    const int result = std::fflush(stream);
    if (result == 0)
        return;
    char buffer[kErrorSize];
    std::fprintf(stderr, "%s failed: %ld : %s\n", what, static_cast<long>(result),
                 describe(errno, buffer, sizeof buffer));
    errno = 0;
}

void print_records(std::FILE *stream, std::int64_t mark, const Elog_msg *last)
{
    Printer print(stream);
    // Asked anew each time: writing may call out, and the stack may change.
    for (std::int64_t i = std::max<std::int64_t>(mark, 0); i < Elog_tbl->count; ++i) {
        print.room_for(size_of(*message(i)));
        if (const Elog_msg *msg = message(i))
            lay_out(*msg, kTab, std::ref(print));
    }
    if (last) {
        print.room_for(size_of(*last));
        lay_out(*last, kTab, std::ref(print));
    }
}

// Prints what went wrong, errno, the stack, and clears it.
__attribute__((format(printf, 1, 0))) void fail(const char *format, va_list args)
{
    const int error = errno;
    const Holding hold(Lock);
    std::vfprintf(stderr, format, args);
    if (error != 0) {
        char buffer[kErrorSize];
        std::fprintf(stderr, "\t: %s\n", describe(error, buffer, sizeof buffer));
    }
    print_stack(stderr, 0, nullptr);
    trunctbl(Elog_tbl, 0, elog_free_msg);
}

}  // namespace

char *stack_text(std::int64_t mark, const Elog_msg *last, const char *function)
{
    mark = std::max<std::int64_t>(mark, 0);
    std::size_t size = 100;
    for (std::int64_t i = mark; i < Elog_tbl->count; ++i)
        size += counted(*message(i));
    if (last)
        size += counted(*last);

    auto *text = static_cast<char *>(allocate_zeroed(size, "s", function));
    std::size_t used = 0;
    const auto add = [&](std::string_view piece) {
        // Only a stack that somebody else changes meanwhile can need more than was counted.
        if (piece.size() >= size - used)
            elog_die(0, "*stack*Unexpected failure: %s in file %s, line %d\n", function,
                     "elog_print.cpp", __LINE__);
        std::memcpy(text + used, piece.data(), piece.size());
        used += piece.size();
    };
    for (std::int64_t i = mark; i < Elog_tbl->count; ++i)
        lay_out(*message(i), kTab, add);
    if (last)
        lay_out(*last, kTab, add);
    return text;
}

void print_stack(std::FILE *stream, std::int64_t mark, const Elog_msg *msg)
{
    if (!stream)
        return;
    const KeepErrno keep;
    if (stream == stderr)
        flush_or_tell(stdout, "fflush(stdout)");
    print_records(stream, mark, msg);
    flush_or_tell(stream, "fflush()");
}

void elog_fail(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    fail(format, args);
    va_end(args);
}

}  // namespace stock::logging

using namespace stock;
using namespace stock::logging;

void elog_fatal(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    fail(format, args);
    va_end(args);
    flush_and_exit();
}

int elog_fprintf(FILE *stream, const char *format, ...)
{
    const Holding hold(Lock);
    va_list args;
    va_start(args, format);
    const int printed = std::vfprintf(stream, format, args);
    va_end(args);
    return printed;
}
