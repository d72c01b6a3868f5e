// A window over a text that is read while it is scanned.
//
// When the buffer is full, what is still needed moves: to the front when it fills less than
// half of the buffer, else into a buffer of twice the size. Either way at least a quarter of
// the buffer is read before the next move, so each byte is moved a bounded number of times,
// however long a token is.

#include "pf/window.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <poll.h>
#include <unistd.h>

#include "stock/elog.h"

namespace stock {

namespace {

constexpr std::size_t kFirstSize = std::size_t{64} * 1024;

// The buffer with at least `size` bytes. Out of memory has a message of its own here, so the
// buffer does not come from allocate().
Buffer grown(Buffer buffer, std::size_t size, const char *message)
{
    if (buffer.size >= size)
        return buffer;
    char *bytes = static_cast<char *>(std::realloc(buffer.bytes, size));
    if (!bytes)
        elog_fault(0, "%s", message);
    return {bytes, size};
}

// Whether a read that failed with errno should be tried again. Where nothing has arrived yet,
// it waits first.
bool try_again(int fd)
{
    if (errno != EAGAIN && errno != EWOULDBLOCK)
        return errno == EINTR;
    pollfd wanted{fd, POLLIN, 0};
    return poll(&wanted, 1, -1) >= 0 || errno == EINTR;
}

// Does this for a stream, and clears its error when it should be tried again.
bool try_again(FILE *stream)
{
    const int error = errno;
    const int fd = fileno(stream);
    errno = error;
    if (fd < 0 || !try_again(fd))
        return false;
    clearerr(stream);
    errno = 0;
    return true;
}

ssize_t read_descriptor(Reader &reader, char *to, std::size_t room)
{
    for (;;) {
        const ssize_t got = ::read(reader.fd, to, room);
        if (got >= 0 || !try_again(reader.fd))
            return got;
    }
}

// Reads one line, or the part of it that fits or is there.
ssize_t read_line(Reader &reader, char *to, std::size_t room)
{
    FILE *stream = reader.stream;
    const int before = errno;
    std::size_t got = 0;
    errno = 0;  // a stream with functions of the program may fail without setting it
    flockfile(stream);
    while (got < room) {
        const int c = getc_unlocked(stream);
        if (c != EOF) {
            to[got++] = static_cast<char>(c);
            if (c == '\n')
                break;
        } else if (feof(stream) || !try_again(stream)) {
            break;
        }
    }
    const bool failed = got == 0 && !feof(stream);
    funlockfile(stream);
    if (failed)
        return -1;
    errno = before;
    return static_cast<ssize_t>(got);
}

ssize_t read_memory(Reader &reader, char *to, std::size_t room)
{
    // A zero byte ends the text, whatever the count.
    const std::size_t count = strnlen(reader.text, std::min(room, reader.left));
    std::memcpy(to, reader.text, count);
    reader.text += count;
    reader.left -= count;
    return static_cast<ssize_t>(count);
}

}  // namespace

Reader reader_of(int fd)
{
    return {.read = read_descriptor, .fd = fd};
}

Reader reader_of(FILE *stream)
{
    return {.read = read_line, .stream = stream};
}

Reader reader_of(const char *text, std::size_t count)
{
    return {.read = read_memory,
            .text = text,
            .left = count,
            .no_memory = "out of dynamic memory in PF_scan_bytes()"};
}

Window::Window(const char *text) : start(text), end_(text + std::strlen(text)) {}

Window::Window(const Reader &reader, Buffer buffer)
    : reader_(reader), buffer_(grown(buffer, kFirstSize, reader.no_memory))
{
    buffer_.bytes[0] = 0;
    start = end_ = buffer_.bytes;
}

// Makes room for a quarter of the buffer and the zero byte behind what is needed.
void Window::make_room()
{
    const auto used = static_cast<std::size_t>(end_ - buffer_.bytes);
    if (buffer_.size - used > buffer_.size / 4)
        return;
    const auto from = static_cast<std::size_t>(start - buffer_.bytes);
    const std::size_t needed = used - from;
    if (needed > buffer_.size / 2)
        buffer_ = grown(buffer_, 2 * buffer_.size, "out of dynamic memory in yy_get_next_buffer()");
    std::memmove(buffer_.bytes, buffer_.bytes + from, needed);
    start = buffer_.bytes;
    end_ = start + needed;
}

bool Window::more(const char *&p)
{
    if (!reader_.read)
        return false;
    const auto offset = p - start;
    make_room();
    p = start + offset;
    char *to = buffer_.bytes + (end_ - buffer_.bytes);
    const auto room = static_cast<std::size_t>(buffer_.bytes + buffer_.size - 1 - to);
    const ssize_t got = reader_.read(reader_, to, room);
    if (got < 0)
        error_ = errno ? errno : EIO;
    const std::size_t text = got > 0 ? strnlen(to, static_cast<std::size_t>(got)) : 0;
    to[text] = 0;
    end_ = to + text;
    if (got <= 0 || text < static_cast<std::size_t>(got))
        reader_.read = nullptr;
    return text > 0;
}

}  // namespace stock
