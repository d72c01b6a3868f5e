// The list that lives in a file.

#include "internal/tblfile.h"

#include <cstdlib>

#include <sys/mman.h>
#include <unistd.h>

#include "internal/alloc.h"
#include "stock/elog.h"

namespace {

constexpr uint32_t kWritable = 2;

void unmap(void *address, int64_t length)
{
    if (munmap(address, static_cast<size_t>(length)) != 0)
        elog_complain(1, "munmap (%lx, %ld) fails", reinterpret_cast<unsigned long>(address),
                      static_cast<long>(length));
}

void lengthen_file(int fd, int64_t bytes)
{
    if (lseek(fd, bytes - 1, SEEK_END) < 0)
        elog_die(1, "Couldn't lseek %ld bytes beyond end of file", static_cast<long>(bytes));
    if (write(fd, "", 1) != 1)
        elog_die(1, "Couldn't write 1 byte to extend file by %ld bytes", static_cast<long>(bytes));
}

}  // namespace

namespace stock {

void check_extensible(const Tbl *tbl)
{
    if (tbl->mapaddr && !(tbl->prot & kWritable))
        elog_die(0, "*stack* Can't extend read-only list.\n");
}

void extend_mapped(Tbl *tbl, int64_t slots)
{
    check_extensible(tbl);
    const auto bytes = static_cast<int64_t>(bytes_for(slots, tbl->size));
    char *address = static_cast<char *>(tbl->mapaddr);
    const int fd = tbl->fd;
    const int64_t length = tbl->maplen;
    const int prot = static_cast<int>(tbl->prot);
    lengthen_file(fd, bytes);
    unmap(address, length);
    if (mmap(address, static_cast<size_t>(length + bytes), prot, MAP_SHARED | MAP_FIXED, fd, 0) ==
        MAP_FAILED)
        elog_die(1, "Couldn't remap tbl.\n");
    tbl->maplen = length + bytes;
}

void release_mapped(Tbl *tbl)
{
    std::free(tbl->deleted);
    void *address = tbl->mapaddr;
    const int64_t length = tbl->maplen;
    close(tbl->fd);
    if (!(tbl->prot & kWritable))
        std::free(tbl);
    unmap(address, length);
}

}  // namespace stock
