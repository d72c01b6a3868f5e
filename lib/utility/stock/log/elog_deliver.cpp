// Where messages go: the words of a delivery string, files, and the limit of the stack.
//
// Each word names one destination, and each gets the same batch: the stack from a mark on,
// and one message more. The lock is held throughout, except inside the messaging library.
// For that time the batch is off the stack, so that no other thread delivers it again; what
// is reported meanwhile stays for the next delivery.

#include "stock/elog.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/descriptor.h"
#include "base/file_size_signal.h"
#include "base/fixed_text.h"
#include "base/guards.h"
#include "base/uninterrupted.h"
#include "log/fault.h"
#include "log/log.h"

namespace stock::logging {

namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kLibraryPrefix = "qel:";
constexpr std::size_t kWordSize = 4096;  // bytes of a word's path or target

// "%.*s" of a word.
#define WORD(word) static_cast<int>((word).size()), (word).data()

void unrecognized(std::string_view word)
{
    elog_fail("unrecognized delivery '%.*s'\n", WORD(word));
}

constexpr int kReaderSeconds = 3;  // that a wait for a reader lasts when a thread dies

// How long a wait for a reader goes on: without end, unless a thread dies.
class Patience {
public:
    bool is_over()
    {
        if (!The_end.wanted)
            return false;
        timespec time = {};
        ::clock_gettime(CLOCK_MONOTONIC, &time);
        const double now =
            static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
        if (until_ == 0)
            until_ = now + kReaderSeconds;
        if (!The_end.no_reader && now < until_)
            return false;
        The_end.no_reader = true;
        return true;
    }

private:
    double until_ = 0;  // 0: no thread died yet
};

bool is_pipe_without_reader(const char *path)
{
    struct stat file;
    return errno == ENXIO && ::stat(path, &file) == 0 && S_ISFIFO(file.st_mode);
}

// Opens without waiting for the reader of a named pipe longer than Patience has.
int open_to_append(const char *path)
{
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_NOCTTY | O_CLOEXEC;
    Patience patience;
    for (;;) {
        int fd = uninterrupted([=] { return ::open(path, kFlags | O_NONBLOCK, 0664); });
        if (fd < 0 && errno == EWOULDBLOCK)  // another process has a lease on the file
            fd = uninterrupted([=] { return ::open(path, kFlags, 0664); });
        if (fd >= 0 || !is_pipe_without_reader(path))
            return beyond_standard(fd);
        if (patience.is_over()) {
            errno = ENXIO;
            return -1;
        }
        constexpr timespec kHundredth{0, 10'000'000};
        ::nanosleep(&kHundredth, nullptr);
    }
}

bool write_message(int fd, const Elog_msg &msg);

// Returns 0, or the errno of the last record that could not be written.
int print_to_file(int fd, const Batch &batch)
{
    int error = 0;
    for_each(batch, [&](const Elog_msg &msg) {
        if (!write_message(fd, msg))
            error = errno;
    });
    return error;
}

// Whether no log file can have the path, whenever it is opened. Meant: a message for such a
// path is dropped.
bool is_wrong_path(int error)
{
    return error == ENOENT || error == ENOTDIR || error == EISDIR || error == ENAMETOOLONG ||
           error == ELOOP;
}

// Prints the message that is not on the stack to standard error, for a file that refused it.
void print_last(const Batch &batch)
{
    if (batch.last)
        print_batch(stderr, {0, 0, batch.last});
}

// Appends the batch to a file. errno stays, unless the file cannot be opened or closed.
void to_file(std::string_view word, const Batch &batch)
{
    FixedTextOf<kWordSize> path;
    path.add(word);
    // A path that was cut would name another file; the system refuses the whole one too.
    const bool whole = path.size() == word.size();
    const FileSizeSignalBlocked blocked;
    const int fd = whole ? open_to_append(path.c_str()) : (errno = ENAMETOOLONG, -1);
    if (fd < 0) {
        ++The_stack.refused;
        const bool wrong_path = is_wrong_path(errno);
        elog_fail("Can't open error file '%.*s'\n", WORD(word));
        return wrong_path ? void() : print_last(batch);
    }
    const int error = errno;
    const int refused = print_to_file(fd, batch);
    const bool closed = ::close(fd) == 0;
    if (!refused && closed) {
        errno = error;
        return;
    }
    ++The_stack.refused;
    if (!refused)
        return elog_fail("Can't close error file '%s'\n", path.c_str());
    errno = refused;
    elog_fail("Can't write to error file '%s'\n", path.c_str());  // prints the stack too
    print_last(batch);
}

void to_stream(std::string_view word, const Batch &batch)
{
    if (word == "stderr")
        print_batch(stderr, batch);
    else if (word == "stdout")
        print_batch(stdout, batch);
    else
        unrecognized(word);
}

// The records of a batch, taken off the stack while the lock is given up.
class RemovedBatch {
public:
    explicit RemovedBatch(const Batch &batch)
        : begin_(batch.begin), records_(inittbl(0, batch.end - batch.begin, 1, nullptr,
                                                static_cast<int>(sizeof(Elog_msg))))
    {
        for_each({batch.begin, batch.end, nullptr},
                 [this](const Elog_msg &msg) { pushtbl(records_, &msg); });
        trunctbl(The_stack.messages, batch.begin, nullptr);
    }

    // Puts the records back below the messages that were reported meanwhile. Returns the batch
    // in its new place.
    Batch put_back(const Elog_msg *last) const
    {
        const std::int64_t begin = std::min(begin_, The_stack.messages->count);
        for (std::int64_t i = 0; i < records_->count; ++i)
            instbl(The_stack.messages, begin + i, gettbl(records_, i));
        const Batch batch{begin, begin + records_->count, last};
        freetbl(records_, nullptr);
        return batch;
    }

private:
    std::int64_t begin_;
    Tbl *records_;
};

// Sends the text of the batch to the messaging library.
void to_library(std::string_view word, Batch &batch)
{
    FixedTextOf<kWordSize> target;
    target.add(word.substr(kLibraryPrefix.size()));
    const Owned<char> text(batch_text(batch, "elog_deliver"));
    const RemovedBatch removed(batch);
    call_qelelog(target.c_str(), The_program.name, text.get());  // gives the lock up
    batch = removed.put_back(batch.last);
}

// Hands the batch to one destination. True when it counts as delivered.
bool deliver_word(std::string_view word, Batch &batch)
{
    switch (word.front()) {
    case 'l':
        if (word != "log")
            unrecognized(word);
        return false;
    case 'o': return false;  // Meant: a word such as "other" is ignored without a report.
    case 's': to_stream(word, batch); return true;
    case '/':
        if (word != "/dev/null")
            to_file(word, batch);
        return true;
    case '.': to_file(word, batch); return true;
    default:
        if (word.starts_with(kLibraryPrefix))
            to_library(word, batch);
        else
            unrecognized(word);
        return true;
    }
}

// Hands the batch to each destination of the list. True when one of them counts as delivered.
bool deliver_words(std::string_view words, Batch &batch)
{
    bool delivered = false;
    for (;;) {
        words.remove_prefix(std::min(words.find_first_not_of(kBlanks), words.size()));
        if (words.empty())
            return delivered;
        const std::string_view word = words.substr(0, words.find_first_of(kBlanks));
        delivered |= deliver_word(word, batch);
        // A destination that failed was reported with the stack, which is empty then.
        batch.end = std::min(batch.end, stack_count());
        batch.begin = std::min(batch.begin, batch.end);
        words.remove_prefix(word.size());
    }
}

// Takes the messages of the batch off the stack and frees them; later ones stay.
void drop(const Batch &batch)
{
    if (batch.end >= The_stack.messages->count || crashing())
        return truncate_stack(batch.begin);
    cut_stack(batch.begin, batch.end);
}

// Ends the process because the stack holds as many messages as it may.
[[noreturn]] void quit(const Elog_msg *msg)
{
    const int held = static_cast<int>(The_stack.messages->count);
    if (!The_stack.limit_reached) {
        The_stack.limit_reached = true;
        deliver(delivery_of(ELOG_DIE).text, 0, msg);
    }
    char tag[kTagSize + 1];
    elog_expand(tag_of(ELOG_DIE).text, ELOG_DIE, tag, kTagSize);
    if (stderr_is_ready())
        std::fprintf(stderr,
                     "%s: quitting because log has %d messages\n   eliminate this limit with\n"
                     "      setenv ELOG_MAXMSG 0\n   or by editing elog.pf.  See elog(3).\n",
                     tag, held);
    end_with_state();
}

// Puts a copy of the message on the stack. In a crash the limit does not hold, the first
// message becomes the note, and the fault message is dropped: nothing would read it.
void keep(const Elog_msg &msg)
{
    if (crashing() && (keep_note(msg) || msg.severity == ELOG_FAULT))
        return;
    if (!crashing() && The_settings.max_messages >= 1 &&
        The_stack.messages->count >= The_settings.max_messages)
        quit(&msg);
    Elog_msg copy = msg;
    copy.tag = copy_or_null(msg.tag, "tag", "elog");
    copy.msg = copy_or_null(msg.msg, "msg", "elog");
    copy.sys = copy_or_null(msg.sys, "sys", "elog");
    pushtbl(The_stack.messages, &copy);
    note_reason(copy, copy.msg);
}

}  // namespace

bool deliver(const char *delivery, std::int64_t mark, const Elog_msg *msg)
{
    Batch batch = batch_from(mark, msg);
    const bool delivered = delivery && deliver_words(delivery, batch);
    if (delivered)
        drop(batch);
    else if (msg)
        keep(*msg);
    return delivered;
}

bool write_all(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t put = ::write(fd, text.data(), text.size());
        if (put > 0)
            text.remove_prefix(static_cast<std::size_t>(put));
        else if (put == 0 || (errno != EINTR && (errno != EAGAIN || !wait_to_write(fd))))
            return false;
    }
    return true;
}

bool wait_to_write(int fd)
{
    constexpr int kAskAgain = 100;  // milliseconds
    Patience patience;
    for (;;) {
        pollfd state = {fd, POLLOUT, 0};
        const int ready = ::poll(&state, 1, kAskAgain);
        if (ready > 0 || (ready < 0 && errno != EINTR))
            return true;  // writing finds what is wrong
        if (patience.is_over()) {
            errno = EAGAIN;
            return false;
        }
    }
}

bool has_reader(int fd)
{
    struct stat file;
    return ::fstat(fd, &file) == 0 && (S_ISFIFO(file.st_mode) || S_ISSOCK(file.st_mode));
}

bool stderr_is_ready()
{
    return !has_reader(STDERR_FILENO) || wait_to_write(STDERR_FILENO);
}

namespace {

// A buffer of at least so many bytes for the text of one record. It is kept for later records
// and loses its text when it grows.
char *file_text(std::size_t needed)
{
    if (crashing() && needed <= sizeof The_crash.record)
        return The_crash.record;
    if (needed <= The_stack.file_size)
        return The_stack.file_text;
    std::free(The_stack.file_text);
    The_stack.file_text = nullptr;
    The_stack.file_size = 0;
    const std::size_t size = std::max<std::size_t>(2 * needed, 1024);
    The_stack.file_text = static_cast<char *>(allocate_zeroed(size, "buf", "elog_msg_printfd"));
    The_stack.file_size = size;
    return The_stack.file_text;
}

std::size_t length_of(const char *text)
{
    return text ? std::strlen(text) : 0;
}

// Writes one record with one write. False, with errno, when it could not be written.
bool write_message(int fd, const Elog_msg &msg)
{
    const std::size_t size = length_of(msg.tag) + length_of(msg.msg) + length_of(msg.sys) + 100;
    FixedText text(file_text(size), size);
    lay_out(msg, "\t##=> ", [&](std::string_view piece) { text.add(piece); });
    return write_all(fd, text.view());
}

}  // namespace

}  // namespace stock::logging

using namespace stock;
using namespace stock::logging;

void elog_deliver(const char *delivery, int mark, Elog_msg *msg)
{
    const Holding hold(Lock);
    deliver(delivery, mark, msg);
    if (!msg)
        return;
    elog_free_msg(msg);
    msg->tag = msg->msg = msg->sys = nullptr;
}

void elog_printfd(int fd, int mark)
{
    if (fd < 0 || !The_startup.done)
        return;
    const KeepErrno keep_errno;
    const Holding hold(Lock);
    const FileSizeSignalBlocked blocked;
    print_to_file(fd, batch_from(mark));
}

void elog_msg_printfd(int fd, const Elog_msg *msg)
{
    if (fd < 0 || !msg)
        return;
    const KeepErrno keep_errno;
    const Holding hold(Lock);
    const FileSizeSignalBlocked blocked;
    write_message(fd, *msg);
}
