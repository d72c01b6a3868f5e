// Lists whose slots lie in a mapped file.
//
// Behind a writable mapping addresses are reserved, so that the file can grow in place. How
// many are reserved is kept in a page of its own in front of the mapping: the list's record
// has no room for it and is part of the file.
//
//     | page: Reservation | the file ...      | reserved addresses ... |
//                         ^ mapaddr           ^ mapaddr + maplen

#include "lists/mapped.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <sys/mman.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/file_size_signal.h"
#include "base/guards.h"
#include "base/uninterrupted.h"
#include "deviants/system.h"
#include "stock/elog.h"
#include "stock/restat.h"

namespace {

using stock::KeepErrno;

constexpr int64_t kReservedBytes = int64_t{64} << 30;
constexpr int64_t kMostFileBytes = int64_t{1} << 56;  // no process has more addresses
constexpr uint32_t kWritable = PROT_WRITE;            // the bit of prot

int64_t page_bytes()
{
    return sysconf(_SC_PAGESIZE);
}

int64_t whole_pages(int64_t bytes)
{
    const int64_t page = page_bytes();
    return (bytes + page - 1) / page * page;
}

// Stands at the start of the page in front of a writable mapping.
struct Reservation {
    int64_t bytes;  // from mapaddr on: the mapped file and the addresses behind it
};

Reservation *reservation_of(void *mapaddr)
{
    return reinterpret_cast<Reservation *>(static_cast<char *>(mapaddr) - page_bytes());
}

// Reserves `bytes` addresses from `wanted` on, or anywhere when that is null. Returns their
// start; null with errno when the system has none or those wanted are in use.
char *reserve_addresses(void *wanted, int64_t bytes)
{
    void *address = mmap(wanted, static_cast<size_t>(bytes), PROT_NONE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (address == MAP_FAILED)
        return nullptr;
    if (!wanted || address == wanted)
        return static_cast<char *>(address);
    munmap(address, static_cast<size_t>(bytes));
    errno = EEXIST;
    return nullptr;
}

// Reserves addresses for a writable file of `length` bytes and for its growth, fewer where
// the process may not have so many, and notes how many. Returns where to map the file; null
// with errno when not even the file itself would fit.
char *reserve_for_file(int64_t length)
{
    const int64_t least = whole_pages(length);
    int64_t bytes = std::max(kReservedBytes, 2 * least);
    char *start = reserve_addresses(nullptr, page_bytes() + bytes);
    while (!start && bytes > least) {
        bytes = std::max(whole_pages(bytes / 2), least);
        start = reserve_addresses(nullptr, page_bytes() + bytes);
    }
    if (!start)
        return nullptr;
    if (mprotect(start, static_cast<size_t>(page_bytes()), PROT_READ | PROT_WRITE) != 0) {
        munmap(start, static_cast<size_t>(page_bytes() + bytes));
        return nullptr;
    }
    char *mapaddr = start + page_bytes();
    reservation_of(mapaddr)->bytes = bytes;
    return mapaddr;
}

// Reserves more addresses when a mapping that grows to `length` bytes needs them. False
// with errno when the addresses that follow are in use.
bool extend_reservation(char *mapaddr, int64_t length)
{
    Reservation *reservation = reservation_of(mapaddr);
    const int64_t more = whole_pages(length) - reservation->bytes;
    if (more <= 0)
        return true;
    if (!reserve_addresses(mapaddr + reservation->bytes, more))
        return false;
    reservation->bytes += more;
    return true;
}

int unmap(void *mapaddr, int64_t length, bool writable)
{
    if (!writable)
        return munmap(mapaddr, static_cast<size_t>(length));
    Reservation *reservation = reservation_of(mapaddr);
    return munmap(reservation, static_cast<size_t>(page_bytes() + reservation->bytes));
}

// Maps the file's bytes from .. to at their place behind mapaddr; `from` is a whole page.
bool map_over_reserved(char *mapaddr, int64_t from, int64_t to, int prot, int fd)
{
    return mmap(mapaddr + from, static_cast<size_t>(to - from), prot, MAP_SHARED | MAP_FIXED, fd,
                from) != MAP_FAILED;
}

// Writes the file with its new length to the disk, if it can be asked for.
bool sync_file(int fd)
{
    return stock::uninterrupted([=] { return fsync(fd); }) == 0 || errno == EINVAL ||
           errno == ENOTSUP || errno == ENOSYS;
}

// Lengthens the file by `bytes` zero bytes that have space on the disk, and with `synced` waits
// for the disk to know the length. When there is no space the file gets its old length back and
// the process ends.
void lengthen_file(int fd, int64_t bytes, bool synced)
{
    const stock::FileSizeSignalBlocked blocked;
    const int64_t last = relseek(fd, bytes - 1, SEEK_END);
    if (last < 0)
        elog_die(1, "Couldn't lseek %ld bytes beyond end of file", static_cast<long>(bytes));
    const int64_t end = last - (bytes - 1);
    if (stock::take_disk_space(fd, end, bytes) && rewrite(fd, "", 1) == 1 &&
        (!synced || sync_file(fd)))
        return;
    {
        const KeepErrno keep;  // the reason that elog_die reports
        static_cast<void>(stock::uninterrupted([&] { return ftruncate(fd, end); }));
    }
    elog_die(1, "Couldn't write 1 byte to extend file by %ld bytes", static_cast<long>(bytes));
}

// Clears the first `bytes` bytes behind the slots, as far as the mapping goes: a file may
// hold other bytes there, and new slots begin as zero bytes.
void clear_behind_slots(const Tbl *tbl, int64_t bytes)
{
    char *behind = static_cast<char *>(tbl->base) + tbl->nalloc * tbl->size;
    const int64_t mapped = static_cast<char *>(tbl->mapaddr) + tbl->maplen - behind;
    if (mapped > 0)
        std::memset(behind, 0, static_cast<size_t>(std::min(mapped, bytes)));
}

}  // namespace

namespace stock {

char *map_list_file(int fd, int64_t length, bool writable)
{
    if (length > kMostFileBytes) {
        errno = ENOMEM;
        return nullptr;
    }
    if (!writable) {
        void *address = mmap(nullptr, static_cast<size_t>(length), PROT_READ, MAP_SHARED, fd, 0);
        return address == MAP_FAILED ? nullptr : static_cast<char *>(address);
    }
    char *mapaddr = reserve_for_file(length);
    if (!mapaddr || map_over_reserved(mapaddr, 0, length, PROT_READ | PROT_WRITE, fd))
        return mapaddr;
    const KeepErrno keep;
    unmap(mapaddr, length, true);
    return nullptr;
}

void check_extensible(const Tbl *tbl)
{
    if (tbl->mapaddr && !(tbl->prot & kWritable))
        elog_die(0, "*stack* Can't extend read-only list.\n");
}

void extend_mapped(Tbl *tbl, int64_t slots, bool moves)
{
    check_extensible(tbl);
    const auto bytes = static_cast<int64_t>(
        std::min<size_t>(bytes_for(slots, tbl->size), static_cast<size_t>(INT64_MAX)));
    lengthen_file(tbl->fd, bytes, moves);
    auto *mapaddr = static_cast<char *>(tbl->mapaddr);
    const int64_t length = tbl->maplen + bytes;
    const int64_t mapped = whole_pages(tbl->maplen);
    if (length > mapped &&
        (!extend_reservation(mapaddr, length) ||
         !map_over_reserved(mapaddr, mapped, length, static_cast<int>(tbl->prot), tbl->fd)))
        elog_die(1, "Couldn't remap tbl.\n");
    clear_behind_slots(tbl, bytes);
    tbl->maplen = length;
}

void release_mapped(Tbl *tbl)
{
    void *mapaddr = tbl->mapaddr;
    const int64_t length = tbl->maplen;
    const bool writable = (tbl->prot & kWritable) != 0;
    std::free(tbl->deleted);
    close(tbl->fd);
    if (!writable)
        std::free(tbl);  // a writable list's record is part of the file
    if (unmap(mapaddr, length, writable) != 0)
        elog_complain(1, "munmap (%lx, %ld) fails", reinterpret_cast<unsigned long>(mapaddr),
                      static_cast<long>(length));
}

}  // namespace stock
