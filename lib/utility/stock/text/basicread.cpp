// basicreadfile and basicgetline: reading a file without the message log.
//
// Errors are printed on standard error, so that these functions work where the log cannot.

#include "stock/basicread.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>

#include "base/alloc.h"
#include "base/descriptor.h"
#include "base/errno_text.h"
#include "base/guards.h"

namespace {

// Prints why the file could not be read: the format takes the path and the text of errno.
int failed(const char *format, const char *path)
{
    char reason[128];
    std::fprintf(stderr, format, path, stock::errno_text(errno, reason, sizeof reason));
    return -1;
}

// Reads all the bytes; false with errno when that fails.
bool read_fully(int fd, char *buffer, std::size_t bytes)
{
    while (bytes > 0) {
        const ssize_t got = read(fd, buffer, bytes);
        if (got < 0 && errno == EINTR)
            continue;
        if (got == 0)
            errno = EIO;  // the file became shorter meanwhile
        if (got <= 0)
            return false;
        buffer += got;
        bytes -= static_cast<std::size_t>(got);
    }
    return true;
}

}  // namespace

int basicreadfile(const char *path, char **buffer, int64_t *size)
{
    *buffer = nullptr;
    *size = 0;
    stock::Fd fd(path ? stock::beyond_standard(open(path, O_RDONLY | O_CLOEXEC))
                      : (errno = EFAULT, -1));
    if (fd.get() < 0)
        return failed("Can't open '%s' : %s\n", path ? path : "<null>");
    struct stat status {};
    if (fstat(fd.get(), &status) != 0)
        return failed("fstat failed for '%s' : %s\n", path);
    if (status.st_size == 0)
        return failed("'%s' is empty!\n", path);
    const auto bytes = static_cast<std::size_t>(status.st_size);
    // malloc, because allocate() would report through the log.
    stock::Owned<char> text(static_cast<char *>(std::malloc(bytes + 1)));
    if (!text)
        return failed("failed to allocate buffer to hold %s : %s", path);
    if (!read_fully(fd.get(), text.get(), bytes))
        return failed("failed to read %s : %s", path);
    if (close(fd.release()) != 0)
        return failed("failed to close '%s' : %s\n", path);
    text.get()[bytes] = 0;
    *buffer = text.release();
    *size = status.st_size + 1;
    return 0;
}

int basicgetline(const char *text, int64_t length, int64_t *position, char *line, int size)
{
    if (size <= 0)
        return 0;
    line[0] = 0;
    if (!text || *position < 0 || *position >= length)
        return 0;
    const char *start = text + *position;
    const auto most = static_cast<std::size_t>(std::min<int64_t>(length - *position, size - 1));
    const void *newline = std::memchr(start, '\n', most);
    const auto copied =
        newline ? static_cast<std::size_t>(static_cast<const char *>(newline) - start) : most;
    std::memcpy(line, start, copied);
    line[copied] = 0;
    // Meant: of a line longer than 3 characters read with size 4 the fourth is skipped.
    *position += static_cast<int64_t>(copied) + 1;
    return *position < length;
}
