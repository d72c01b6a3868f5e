// The text of messages: on streams and in strings, and the reports that the log
// makes of its own failures.
//
// Printing gathers whole records in a buffer on the caller's stack and writes them together.
// So nothing is allocated, and the message of one thread is not torn by that of another.

#include "stock/elog.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "base/alloc.h"
#include "base/file_size_signal.h"
#include "base/fixed_text.h"
#include "base/gatherer.h"
#include "base/guards.h"
#include "log/log.h"

namespace stock::logging {

namespace {

constexpr std::string_view kTab = "\t";
constexpr std::size_t kLongestRecordSize = kMessageSize + kTagSize + kErrorSize + 64;
constexpr std::string_view kRepeated = "\t** repeated %d times\n";

// Writes to a stream, and goes on when a signal handler interrupts that. What goes to a reader
// of standard error goes there in pieces that a pipe takes at once, each when it has room.
class AllToStream {
public:
    explicit AllToStream(std::FILE *stream)
        : stream_(stream), waits_(stream == stderr && has_reader(STDERR_FILENO))
    {
    }

    void operator()(std::string_view text) const
    {
        while (!text.empty()) {
            if (waits_ && !wait_to_write(STDERR_FILENO))
                return refused();
            const std::size_t size =
                waits_ ? std::min<std::size_t>(text.size(), PIPE_BUF) : text.size();
            errno = 0;
            const std::size_t put = std::fwrite(text.data(), 1, size, stream_);
            text.remove_prefix(put);
            if (put == size)
                continue;
            if (errno != EINTR && (errno != EAGAIN || !waits_))
                return refused();
            std::clearerr(stream_);
        }
    }

private:
    static void refused() { ++The_stack.refused; }

    std::FILE *stream_;
    bool waits_;
};

// The bytes of a record's text.
std::size_t size_of(const Elog_msg &msg)
{
    std::size_t size = 0;
    lay_out(msg, kTab, [&](std::string_view piece) { size += piece.size(); });
    return size;
}

// At least as many bytes as the text of the record has. The size of what is allocated for it
// is part of the out-of-memory message.
std::size_t most_bytes(const Elog_msg &msg)
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

// Flushes the stream. When that fails, prints the name of the call and errno to standard error:
// reporting it would come here again.
bool flush_or_complain(std::FILE *stream, const char *call)
{
    const int result = std::fflush(stream);
    if (result == 0)
        return true;
    ++The_stack.refused;
    char buffer[kErrorSize];
    std::fprintf(stderr, "%s failed: %ld : %s\n", call, static_cast<long>(result),
                 describe(errno, buffer, sizeof buffer));
    return false;
}

void print_records(std::FILE *stream, const Batch &batch)
{
    Gatherer<2 * kLongestRecordSize, AllToStream> gather(AllToStream{stream});
    for_each(batch, [&](const Elog_msg &msg) {
        lay_out(msg, kTab, std::ref(gather));
        // Now, before the next record: writing may run code that frees messages.
        gather.room_for(kLongestRecordSize);
    });
}

}  // namespace

Batch batch_from(std::int64_t mark, const Elog_msg *msg)
{
    return {std::max<std::int64_t>(mark, 0), stack_count(), msg};
}

char *batch_text(const Batch &batch, const char *function)
{
    std::size_t size = 100;
    for_each(batch, [&](const Elog_msg &msg) { size += most_bytes(msg); });
    auto *memory = static_cast<char *>(allocate_zeroed(size, "s", function));
    FixedText text(memory, size);
    const auto add = [&](std::string_view piece) {
        // Only a message that a program changes without the lock may need more than was counted.
        if (piece.size() > text.room())
            elog_die(0, "*stack*Unexpected failure: %s in file %s, line %d\n", function,
                     "elog_print.cpp", __LINE__);
        text.add(piece);
    };
    for_each(batch, [&](const Elog_msg &msg) { lay_out(msg, kTab, add); });
    return memory;
}

void print_batch(std::FILE *stream, const Batch &batch)
{
    if (!stream)
        return;
    const int error = errno;
    const FileSizeSignalBlocked blocked;
    bool flushed = true;
    // What the program printed before the message comes out before it.
    if (stream == stderr)
        flushed &= flush_or_complain(stdout, "fflush(stdout)");
    print_records(stream, batch);
    flushed &= flush_or_complain(stream, "fflush()");
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
    // Straight to standard error: the log's own ways are what fails.
    const FileSizeSignalBlocked blocked;
    const bool ready = stderr_is_ready();
    if (ready)
        std::vfprintf(stderr, format, args);
    if (ready && error != 0) {
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
    const std::size_t size = size_of(draft.msg) + 1;
    auto *result = static_cast<char *>(allocate_zeroed(size, "result", "elogs", 1187));
    FixedText text(result, size);
    lay_out(draft.msg, kTab, [&](std::string_view piece) { text.add(piece); });
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
