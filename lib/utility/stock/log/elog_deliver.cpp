// Where messages go: the words of a delivery string, files, and the limit of the stack.
//
// Each word hands the same batch, the stack from a mark on and one message more,
// to one destination. The lock is held throughout, except inside the messaging
// library: for that time the batch is off the stack, so that nobody else
// delivers it again, and what is reported meanwhile stays for the next delivery.

#include "stock/elog.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/guards.h"
#include "log/asks.h"
#include "log/fault.h"
#include "log/log.h"
#include "log/reasons.h"

namespace stock::logging {

namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kLibrary = "qel:";

bool Limit_reached = false;  // the limit's own delivery runs

// "%.*s" of a word.
#define WORD(word) static_cast<int>((word).size()), (word).data()

void unrecognized(std::string_view word)
{
    elog_fail("unrecognized delivery '%.*s'\n", WORD(word));
}

int open_to_append(const char *path)
{
    int fd = -1;
    do
        fd = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_NOCTTY | O_CLOEXEC, 0664);
    while (fd < 0 && errno == EINTR);
    return fd;
}

bool write_message(int fd, const Elog_msg &msg);

// Returns 0, or the errno of what the file did not take.
int print_to_file(int fd, const Batch &batch)
{
    int error = 0;
    for_each(batch, [&](const Elog_msg &msg) {
        if (!write_message(fd, msg))
            error = errno;
    });
    return error;
}

void to_file(std::string_view word, const Batch &batch)
{
    char path[4096];
    const std::size_t length = word.copy(path, sizeof path - 1);
    path[length] = '\0';
    // A longer path would be another file; the system refuses it, too.
    const int fd = length == word.size() ? open_to_append(path) : (errno = ENAMETOOLONG, -1);
    if (fd < 0)
        return elog_fail("Can't open error file '%.*s'\n", WORD(word));
    const int error = errno;
    const int refused = print_to_file(fd, batch);
    const bool closed = ::close(fd) == 0;
    if (refused)
        errno = refused;
    if (refused || !closed)
        elog_fail("Can't close error file '%s'\n", path);
    else
        errno = error;
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

// The records of a batch, off the stack for as long as the lock is given up.
class Aside {
public:
    explicit Aside(const Batch &batch)
        : begin_(batch.begin), records_(inittbl(0, batch.end - batch.begin, 1, nullptr,
                                                static_cast<int>(sizeof(Elog_msg))))
    {
        for_each({batch.begin, batch.end, nullptr},
                 [this](const Elog_msg &msg) { pushtbl(records_, &msg); });
        trunctbl(Elog_tbl, batch.begin, nullptr);
    }

    // Puts the records back below what was reported meanwhile. Returns where they are now.
    Batch put_back(const Elog_msg *last) const
    {
        const std::int64_t begin = std::min(begin_, Elog_tbl->count);
        for (std::int64_t i = 0; i < records_->count; ++i)
            instbl(Elog_tbl, begin + i, gettbl(records_, i));
        const Batch batch{begin, begin + records_->count, last};
        freetbl(records_, nullptr);
        return batch;
    }

private:
    std::int64_t begin_;
    Tbl *records_;
};

void to_library(std::string_view word, Batch &batch)
{
    char target[4096];
    target[word.substr(kLibrary.size()).copy(target, sizeof target - 1)] = '\0';
    const Owned<char> text(batch_text(batch, "elog_deliver"));
    const Aside aside(batch);
    call_qelelog(target, Program_Name, text.get());  // gives the lock up
    batch = aside.put_back(batch.last);
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
        if (word.starts_with(kLibrary))
            to_library(word, batch);
        else
            unrecognized(word);
        return true;
    }
}

bool deliver_words(std::string_view words, Batch &batch)
{
    bool delivered = false;
    for (;;) {
        words.remove_prefix(std::min(words.find_first_not_of(kBlanks), words.size()));
        if (words.empty())
            return delivered;
        const std::string_view word = words.substr(0, words.find_first_of(kBlanks));
        delivered |= deliver_word(word, batch);
        // A destination that failed was told with the stack, which is empty then.
        batch.end = std::min(batch.end, stack_count());
        batch.begin = std::min(batch.begin, batch.end);
        words.remove_prefix(word.size());
    }
}

// Takes the messages of the batch off the stack and frees them; later ones stay.
void drop(const Batch &batch)
{
    if (batch.end >= Elog_tbl->count || crashing())
        return truncate_stack(batch.begin);
    cut_stack(batch.begin, batch.end);
}

// Ends the process because the stack holds as many messages as it may.
[[noreturn]] void quit(const Elog_msg *msg)
{
    const int held = static_cast<int>(Elog_tbl->count);
    if (!Limit_reached) {
        Limit_reached = true;
        deliver(delivery_of(kDie).text, 0, msg);
    }
    char tag[kTagMax + 1];
    elog_expand(tag_of(kDie).text, kDie, tag, kTagMax);
    std::fprintf(stderr,
                 "%s: quitting because log has %d messages\n   eliminate this limit with\n"
                 "      setenv ELOG_MAXMSG 0\n   or by editing elog.pf.  See elog(3).\n",
                 tag, held);
    end_with_state();
}

char *copy_or_null(const char *text, const char *item)
{
    return text ? copy_text(text, item, "elog") : nullptr;
}

// Puts a copy of the message on the stack. What a crash has to say knows no limit, and
// its last message would be read by nobody.
void keep(const Elog_msg &msg)
{
    if (crashing() && (keep_note(msg) || msg.severity == kFault))
        return;
    if (!crashing() && Max_msg >= 1 && Elog_tbl->count >= Max_msg)
        quit(&msg);
    Elog_msg copy = msg;
    copy.tag = copy_or_null(msg.tag, "tag");
    copy.msg = copy_or_null(msg.msg, "msg");
    copy.sys = copy_or_null(msg.sys, "sys");
    pushtbl(Elog_tbl, &copy);
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
        else if (put == 0 || errno != EINTR)
            return false;
    }
    return true;
}

namespace {

// One buffer for the text of a record in a file, kept between calls.
char *File_text = nullptr;
std::size_t File_size = 0;

// The buffer, at least so large. It never has to keep what it holds.
char *file_text(std::size_t needed)
{
    static char Crash_text[kFormatSize + 2 * kTagMax];
    if (crashing() && needed <= sizeof Crash_text)
        return Crash_text;
    if (needed <= File_size)
        return File_text;
    std::free(File_text);
    File_text = nullptr;
    File_size = 0;
    const std::size_t size = std::max<std::size_t>(2 * needed, 1024);
    File_text = static_cast<char *>(allocate_zeroed(size, "buf", "elog_msg_printfd"));
    File_size = size;
    return File_text;
}

std::size_t length_of(const char *text)
{
    return text ? std::strlen(text) : 0;
}

// Writes one record; false, with errno, when the file does not take it.
bool write_message(int fd, const Elog_msg &msg)
{
    char *text = file_text(length_of(msg.tag) + length_of(msg.msg) + length_of(msg.sys) + 100);
    std::size_t used = 0;
    lay_out(msg, "\t##=> ", [&](std::string_view piece) {
        std::memcpy(text + used, piece.data(), piece.size());
        used += piece.size();
    });
    return write_all(fd, {text, used});
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
    if (fd < 0 || !Elog_init)
        return;
    const KeepErrno keep_errno;
    const Holding hold(Lock);
    print_to_file(fd, batch_from(mark));
}

void elog_msg_printfd(int fd, const Elog_msg *msg)
{
    if (fd < 0 || !msg)
        return;
    const KeepErrno keep_errno;
    const Holding hold(Lock);
    write_message(fd, *msg);
}
