// Any bytes opened as a list file, and the lists that come out walked and changed.

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "stock.h"

namespace {

// A file in memory with a name.
class File {
public:
    File(const std::uint8_t *data, std::size_t size)
        : fd(memfd_create("list", 0)), path("/proc/self/fd/" + std::to_string(fd))
    {
        if (fd < 0 || write(fd, data, size) != static_cast<ssize_t>(size))
            std::abort();
    }
    ~File() { close(fd); }
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    const char *name() const { return path.c_str(); }

private:
    int fd;
    std::string path;
};

// Reads every byte of every entry.
unsigned walk(const Tbl *tbl)
{
    unsigned sum = 0;
    for (int64_t i = 0; i < tbl->count; ++i) {
        const auto *entry = static_cast<const unsigned char *>(addrtbl(tbl, i));
        for (int64_t k = 0; k < tbl->size; ++k)
            sum += entry[k];
    }
    return sum;
}

void open_list(const File &file, bool writable)
{
    char *comment = nullptr;
    Tbl *tbl = readtbl(file.name(), &comment, writable);
    if (!tbl)
        return;
    volatile std::size_t sum = walk(tbl) + (comment ? std::string(comment).size() : 0);
    static_cast<void>(sum);
    if (writable && tbl->count > 0 && tbl->size < 4096) {
        const std::string entry(static_cast<std::size_t>(tbl->size), 'x');
        poptbl(tbl);
        pushtbl(tbl, entry.data());
        deltbl(tbl, 0);
        walk(tbl);
    }
    freetbl(tbl, nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    elog2stderr();
    elog_set(ELOG_DELIVER_FIELD, 4, "/dev/null");
    open_list(File(data, size), false);
    open_list(File(data, size), true);
    elog_clear();
    return 0;
}
