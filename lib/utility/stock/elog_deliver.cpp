// Where messages go: the words of a delivery string, files, and the limit of the stack.

#include "stock/elog.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "internal/alloc.h"
#include "internal/elog.h"
#include "internal/elog_joins.h"
#include "internal/guards.h"

namespace stock::logging {

namespace {

int Limit_deliveries = 0;  // not 0 while the limit's own delivery runs

// What one delivery hands to each of its words.
struct Load {
    std::int64_t mark;    // the first message of the stack that goes
    const Elog_msg *msg;  // what follows the stack, or null
};

bool unrecognized(std::string_view word)
{
    elog_fail("unrecognized delivery '%.*s'\n", static_cast<int>(word.size()), word.data());
    return true;
}

int open_to_append(const char *path)
{
    int fd = -1;
    do
        fd = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_NOCTTY | O_CLOEXEC, 0664);
    while (fd < 0 && errno == EINTR);
    return fd;
}

bool to_file(std::string_view word, const Load &load)
{
    char path[4096];
    int fd = -1;
    if (word.size() < sizeof path) {
        path[word.copy(path, sizeof path)] = '\0';
        fd = open_to_append(path);
    } else {
        errno = ENAMETOOLONG;
    }
    if (fd < 0) {
        elog_fail("Can't open error file '%.*s'\n", static_cast<int>(word.size()), word.data());
        return true;
    }
    elog_printfd(fd, static_cast<int>(load.mark));
    if (load.msg)
        elog_msg_printfd(fd, load.msg);
    if (::close(fd) != 0)
        elog_fail("Can't close error file '%s'\n", path);
    return true;
}

bool to_stream(std::string_view word, const Load &load)
{
    if (word == "stderr")
        print_stack(stderr, load.mark, load.msg);
    else if (word == "stdout")
        print_stack(stdout, load.mark, load.msg);
    else
        unrecognized(word);
    return true;
}

// Handles one word; true when the message counts as delivered.
bool deliver_word(std::string_view word, const Load &load)
{
    switch (word.front()) {
    case 'l': return word != "log" && (unrecognized(word), false);
    case 'o': return false;  // Meant: "other" is ignored without a report.
    case 's': return to_stream(word, load);
    case '/': return word == "/dev/null" || to_file(word, load);
    case '.': return to_file(word, load);
    default: return unrecognized(word);
    }
}

bool deliver_words(std::string_view words, const Load &load)
{
    bool delivered = false;
    for (;;) {
        const std::size_t start = words.find_first_not_of(" \t");
        if (start == words.npos)
            return delivered;
        words.remove_prefix(start);
        const std::size_t end = std::min(words.find_first_of(" \t"), words.size());
        delivered |= deliver_word(words.substr(0, end), load);
        words.remove_prefix(end);
    }
}

// Ends the process because the stack holds as many messages as it may.
[[noreturn]] void quit(const Elog_msg *msg)
{
    const int held = static_cast<int>(Elog_tbl->count);
    if (Limit_deliveries++ == 0)
        deliver(delivery_of(kDie), 0, msg);
    char tag[kTagSize];
    elog_expand(tag_of(kDie), kDie, tag, sizeof tag - 1);
    std::fprintf(stderr,
                 "%s: quitting because log has %d messages\n   eliminate this limit with\n"
                 "      setenv ELOG_MAXMSG 0\n   or by editing elog.pf.  See elog(3).\n",
                 tag, held);
    join_bury();
    flush_and_exit();
}

char *copied(const char *text, const char *item)
{
    return text ? copy_text(text, item, "elog") : nullptr;
}

// Puts a copy of the message on the stack.
void keep(const Elog_msg &msg)
{
    if (Max_msg >= 1 && Elog_tbl->count >= Max_msg)
        quit(&msg);
    Elog_msg kept = msg;
    kept.tag = copied(msg.tag, "tag");
    kept.msg = copied(msg.msg, "msg");
    kept.sys = copied(msg.sys, "sys");
    pushtbl(Elog_tbl, &kept);
}

}  // namespace

void deliver(const char *delivery, std::int64_t mark, const Elog_msg *msg)
{
    const Load load{std::max<std::int64_t>(mark, 0), msg};
    if (delivery && *delivery && deliver_words(delivery, load))
        trunctbl(Elog_tbl, load.mark, elog_free_msg);
    else if (msg)
        keep(*msg);
}

}  // namespace stock::logging

using namespace stock;
using namespace stock::logging;

void elog_deliver(const char *delivery, int mark, Elog_msg *msg)
{
    const Holding hold(Lock);
    deliver(delivery, mark, msg);
    if (msg) {
        elog_free_msg(msg);
        msg->tag = msg->msg = msg->sys = nullptr;
    }
}

void elog_printfd(int fd, int mark)
{
    if (fd < 0 || !Elog_init)
        return;
    const Holding hold(Lock);
    for (std::int64_t i = std::max(mark, 0); i < Elog_tbl->count; ++i)
        elog_msg_printfd(fd, message(i));
}

namespace {

char *File_text = nullptr;  // kept between calls
std::size_t File_size = 0;

// The buffer, at least so large.
char *file_text(std::size_t needed)
{
    if (needed <= File_size)
        return File_text;
    const std::size_t size = std::max<std::size_t>(2 * needed, 1024);
    File_text =
        static_cast<char *>(File_text ? reallocate(File_text, size, "buf", "elog_msg_printfd")
                                      : allocate_zeroed(size, "buf", "elog_msg_printfd"));
    File_size = size;
    return File_text;
}

void write_all(int fd, const char *text, std::size_t length)
{
    while (length > 0) {
        const ssize_t put = ::write(fd, text, length);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            return;
        text += put;
        length -= static_cast<std::size_t>(put);
    }
}

std::size_t length_of(const char *text)
{
    return text ? std::strlen(text) : 0;
}

}  // namespace

void elog_msg_printfd(int fd, const Elog_msg *msg)
{
    if (fd < 0 || !msg)
        return;
    const KeepErrno keep_errno;
    const Holding hold(Lock);
    char *text = file_text(length_of(msg->tag) + length_of(msg->msg) + length_of(msg->sys) + 100);
    std::size_t used = 0;
    lay_out(*msg, "\t##=> ", [&](std::string_view piece) {
        std::memcpy(text + used, piece.data(), piece.size());
        used += piece.size();
    });
    write_all(fd, text, used);
}
