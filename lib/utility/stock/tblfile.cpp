// Lists that live in files: an image of the list's memory, mapped.
//
// Behind a writable mapping addresses are set aside, so that the file can grow in
// place. How many is kept in a page of its own in front of the mapping: the
// list's record has no room for it and is part of the file.
//
//     | page: Room | the file ...      | addresses set aside ... |
//                  ^ mapaddr           ^ mapaddr + maplen
//
// What is read is checked first, and in a copy: the file may change meanwhile.

#include "stock/tblfile.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "internal/alloc.h"
#include "internal/guards.h"
#include "internal/tblfile.h"
#include "internal/uninterrupted.h"
#include "stock/elog.h"
#include "stock/path.h"
#include "stock/restat.h"
#include "system.h"

namespace {

using stock::bytes_for;
using stock::Fd;
using stock::KeepErrno;
using stock::Owned;

constexpr char kMagic[8] = {'#', 'F', 'i', 'l', 'e', 'T', 'b', 'l'};
constexpr char Zeros[8] = {};
constexpr int64_t kHeader = 16;  // the comment begins here
constexpr int64_t kRecord = sizeof(Tbl);
constexpr int64_t kRoom = int64_t{64} << 30;  // addresses set aside behind a writable list
constexpr uint32_t kWritable = 2;

int64_t padded(int64_t bytes)
{
    return (bytes + 7) / 8 * 8;
}

int64_t null_value_bytes(const Tbl &record)
{
    return record.null_value ? padded(record.size) : 0;
}

int64_t page_size()
{
    static const int64_t size = sysconf(_SC_PAGESIZE);
    return size;
}

int64_t whole_pages(int64_t bytes)
{
    return (bytes + page_size() - 1) / page_size() * page_size();
}

// A write beyond the file-size limit fails with EFBIG instead of ending the process.
class FileSizeSignalBlocked {
public:
    FileSizeSignalBlocked()
    {
        sigemptyset(&signal_);
        sigaddset(&signal_, SIGXFSZ);
        pthread_sigmask(SIG_BLOCK, &signal_, &before_);
    }
    ~FileSizeSignalBlocked()
    {
        const KeepErrno keep;
        sigset_t pending;
        int taken = 0;
        if (!sigismember(&before_, SIGXFSZ) && sigpending(&pending) == 0 &&
            sigismember(&pending, SIGXFSZ))
            sigwait(&signal_, &taken);
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    FileSizeSignalBlocked(const FileSizeSignalBlocked &) = delete;
    FileSizeSignalBlocked &operator=(const FileSizeSignalBlocked &) = delete;

private:
    sigset_t signal_;
    sigset_t before_;
};

// Addresses.

struct Room {
    int64_t bytes;  // from the start of the mapping on, file and all
};

Room *room_of(void *mapaddr)
{
    return reinterpret_cast<Room *>(static_cast<char *>(mapaddr) - page_size());
}

// The start of so many free addresses, at the wanted place if any. Null when there are none.
char *set_aside(void *wanted, int64_t bytes)
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

// Where a file of so many bytes can be mapped and grow; null when there is no such place.
char *make_room(int64_t length)
{
    const int64_t least = whole_pages(length);
    int64_t bytes = std::max(kRoom, 2 * least);
    char *start = set_aside(nullptr, page_size() + bytes);
    while (!start && bytes > least) {
        bytes = std::max(whole_pages(bytes / 2), least);
        start = set_aside(nullptr, page_size() + bytes);
    }
    if (!start)
        return nullptr;
    if (mprotect(start, static_cast<size_t>(page_size()), PROT_READ | PROT_WRITE) != 0) {
        munmap(start, static_cast<size_t>(page_size() + bytes));
        return nullptr;
    }
    char *mapaddr = start + page_size();
    room_of(mapaddr)->bytes = bytes;
    return mapaddr;
}

int unmap(void *mapaddr, int64_t length, bool writable)
{
    if (!writable)
        return munmap(mapaddr, static_cast<size_t>(length));
    Room *room = room_of(mapaddr);
    return munmap(room, static_cast<size_t>(page_size() + room->bytes));
}

// Maps the file's bytes from .. to at their place behind mapaddr.
bool map_part(char *mapaddr, int64_t from, int64_t to, int prot, int fd)
{
    return mmap(mapaddr + from, static_cast<size_t>(to - from), prot, MAP_SHARED | MAP_FIXED, fd,
                from) != MAP_FAILED;
}

// The whole file; null when it cannot be mapped.
char *map_file(int fd, int64_t length, bool writable)
{
    if (!writable) {
        void *address = mmap(nullptr, static_cast<size_t>(length), PROT_READ, MAP_SHARED, fd, 0);
        return address == MAP_FAILED ? nullptr : static_cast<char *>(address);
    }
    char *mapaddr = make_room(length);
    if (!mapaddr || map_part(mapaddr, 0, length, PROT_READ | PROT_WRITE, fd))
        return mapaddr;
    const KeepErrno keep;
    unmap(mapaddr, length, true);
    return nullptr;
}

// Makes the addresses up to the end of a mapping that grows to so many bytes its own.
bool extend_room(char *mapaddr, int64_t length)
{
    Room *room = room_of(mapaddr);
    const int64_t more = whole_pages(length) - room->bytes;
    if (more <= 0)
        return true;
    if (!set_aside(mapaddr + room->bytes, more))
        return false;
    room->bytes += more;
    return true;
}

// Lengthens the file by zero bytes for which the disk has space.
void lengthen_file(int fd, int64_t bytes)
{
    const FileSizeSignalBlocked blocked;
    const int64_t last = relseek(fd, bytes - 1, SEEK_END);
    if (last < 0)
        elog_die(1, "Couldn't lseek %ld bytes beyond end of file", static_cast<long>(bytes));
    const int64_t end = last - (bytes - 1);
    if (stock::take_disk_space(fd, end, bytes) && rewrite(fd, Zeros, 1) == 1)
        return;
    {
        const KeepErrno keep;
        static_cast<void>(stock::uninterrupted([&] { return ftruncate(fd, end); }));
    }
    elog_die(1, "Couldn't write 1 byte to extend file by %ld bytes", static_cast<long>(bytes));
}

// Other bytes may stand behind the slots of a file: those that new slots take become zero.
void clear_tail(const Tbl *tbl, int64_t bytes)
{
    char *tail = static_cast<char *>(tbl->base) + tbl->nalloc * tbl->size;
    const int64_t left = static_cast<char *>(tbl->mapaddr) + tbl->maplen - tail;
    if (left > 0)
        std::memset(tail, 0, static_cast<size_t>(std::min(left, bytes)));
}

// Reading.

// A file's bytes, as they are mapped.
struct Image {
    const char *bytes;
    int64_t size;

    int32_t comment_bytes() const
    {
        int32_t bytes_of_comment = 0;
        std::memcpy(&bytes_of_comment, bytes + sizeof kMagic, sizeof bytes_of_comment);
        return bytes_of_comment;
    }
    int64_t length_at(int64_t offset, int64_t most) const
    {
        return static_cast<int64_t>(strnlen(bytes + offset, static_cast<size_t>(most)));
    }
    int64_t record_at() const { return kHeader + comment_bytes(); }
    Tbl record() const
    {
        Tbl record;
        std::memcpy(&record, bytes + record_at(), sizeof record);
        return record;
    }
};

// What is wrong with a file up to its record, as a message; null when nothing is.
const char *header_fault(const Image &image)
{
    if (image.size < int64_t{sizeof kMagic} || std::memcmp(image.bytes, kMagic, sizeof kMagic) != 0)
        return "Bad magic number while trying to read tbl. %s";
    if (image.size < kHeader)
        return "Truncated header while trying to read tbl. %s";
    const int64_t comment = image.comment_bytes();
    if (comment < 0 || comment > image.length_at(kHeader, image.size - kHeader) + 9)
        return "filetbl %s was probably created on a different architecture and won't work on "
               "the current machine";
    if (comment > image.size - kHeader - kRecord)
        return "Truncated header while trying to read tbl. %s";
    if (comment % 8 != 0 || (comment > 0 && image.length_at(kHeader, comment) == comment))
        return "Bad comment length while trying to read tbl. %s";
    return nullptr;
}

bool too_many(int64_t slots, int64_t size)
{
    return slots < 0 || bytes_for(slots, size) > static_cast<size_t>(INT64_MAX / 2);
}

// The same of its record; so many bytes follow it.
const char *record_fault(const Tbl &record, int64_t following)
{
    int64_t slots = 0;
    if (!record.direct)
        return "Indirect list while trying to read tbl. %s";
    if (record.size < 1)
        return "Bad entry size while trying to read tbl. %s";
    if (record.left > 0 || record.count < 0 || record.nalloc < record.count ||
        __builtin_sub_overflow(record.nalloc, record.left, &slots))
        return "Bad slot counts while trying to read tbl. %s";
    if (too_many(record.left_grow, record.size) || too_many(record.right_grow, record.size))
        return "Bad growth while trying to read tbl. %s";
    if (too_many(slots, record.size) || slots * record.size > following - null_value_bytes(record))
        return "Truncated slots while trying to read tbl. %s";
    return nullptr;
}

const char *fault(const Image &image)
{
    if (const char *message = header_fault(image))
        return message;
    return record_fault(image.record(), image.size - image.record_at() - kRecord);
}

// Gives a record from a file the addresses of this mapping.
void settle(Tbl *tbl, char *mapaddr, int64_t length, int fd, bool writable)
{
    char *slots = mapaddr + Image{mapaddr, length}.record_at() + kRecord;
    const int64_t null_bytes = null_value_bytes(*tbl);
    tbl->null_value = null_bytes > 0 ? slots : nullptr;
    tbl->deleted = nullptr;
    tbl->mapaddr = mapaddr;
    tbl->maplen = length;
    tbl->fd = fd;
    tbl->prot = writable ? PROT_READ | PROT_WRITE : PROT_READ;
    tbl->base = slots + null_bytes - tbl->left * tbl->size;
}

// The list in a sound image: the record there, or a copy when it is read-only.
Tbl *list_of(char *mapaddr, int64_t length, bool writable)
{
    const Image image{mapaddr, length};
    if (writable)
        return reinterpret_cast<Tbl *>(mapaddr + image.record_at());
    Tbl *tbl = newtbl(0);
    *tbl = image.record();
    return tbl;
}

// What came of opening a file as a list.
enum class Opening {
    done,
    refused,     // it is missing, or may not be opened
    no_list,     // it is a regular file that holds something else
    other_list,  // it has another comment than the wanted one
    failed,      // the system could not tell
};

void unmap_unused(char *mapaddr, int64_t length, bool writable)
{
    if (unmap(mapaddr, length, writable) != 0)
        elog_complain(1, "munmap (%p, %lu) fails", static_cast<void *>(mapaddr),
                      static_cast<unsigned long>(length));
}

bool is_shortage(int error)
{
    return error == EMFILE || error == ENFILE || error == ENOMEM;
}

// Opens the list in the file, with the wanted comment unless that is null. Logs
// why there is none, and leaves the file untouched then.
Opening open_list(const char *path, bool writable, const char *wanted, char **comment, Tbl **tbl)
{
    const int mode = (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK;
    Fd fd(stock::uninterrupted([&] { return open(path, mode); }));
    if (fd.get() < 0) {
        const Opening opening = is_shortage(errno) ? Opening::failed : Opening::refused;
        elog_log(1, "Can't open %s to read tbl.", path);
        return opening;
    }
    struct stat status;
    if (refstat(fd.get(), &status) != 0) {
        elog_log(1, "Error trying to stat %s", path);
        return Opening::failed;
    }
    const int64_t length = status.st_size;
    char *mapaddr = map_file(fd.get(), length, writable);
    if (!mapaddr) {
        elog_log(1, "Error trying to mmap %s.", path);
        return S_ISREG(status.st_mode) && length == 0 ? Opening::no_list : Opening::failed;
    }
    const Image image{mapaddr, length};
    if (const char *message = fault(image)) {
        elog_log(0, message, path);
        unmap_unused(mapaddr, length, writable);
        return Opening::no_list;
    }
    *comment = image.comment_bytes() > 0 ? mapaddr + kHeader : nullptr;
    if (wanted && (!*comment || std::strcmp(wanted, *comment) != 0)) {
        unmap_unused(mapaddr, length, writable);
        return Opening::other_list;
    }
    *tbl = list_of(mapaddr, length, writable);
    settle(*tbl, mapaddr, length, fd.release(), writable);
    return Opening::done;
}

// Writing.

bool put(FILE *stream, const void *bytes, size_t n)
{
    return n == 0 || std::fwrite(bytes, 1, n, stream) == n;
}

bool put_padded(FILE *stream, const void *bytes, int64_t n)
{
    return put(stream, bytes, static_cast<size_t>(n)) &&
           put(stream, Zeros, static_cast<size_t>(padded(n) - n));
}

bool put_header(FILE *stream, int64_t comment_bytes)
{
    const auto k = static_cast<uint32_t>(padded(comment_bytes));
    if (!put(stream, kMagic, sizeof kMagic) || !put(stream, &k, sizeof k))
        return false;
    put(stream, Zeros, 4);
    return true;
}

bool put_slots(FILE *stream, const Tbl *tbl)
{
    if (!tbl->base)
        return true;
    const char *start = static_cast<const char *>(tbl->base) + tbl->left * tbl->size;
    return put(stream, start, bytes_for(tbl->nalloc - tbl->left, tbl->size));
}

bool lives_in(const Tbl *tbl, const char *path)
{
    struct stat list;
    struct stat file;
    return tbl->mapaddr && refstat(tbl->fd, &list) == 0 && restat(path, &file) == 0 &&
           list.st_dev == file.st_dev && list.st_ino == file.st_ino;
}

FILE *open_to_write(const Tbl *tbl, const char *path)
{
    if (!lives_in(tbl, path))
        return std::fopen(path, "w+e");
    errno = EBUSY;  // overwriting it would take the list's memory away
    return nullptr;
}

// Making files.

// An empty list of at least so many slots that all hold the null value.
Tbl *empty_list(int64_t slots, const void *null_value, int size)
{
    const Owned<char> local_null(static_cast<char *>(
        null_value ? nullptr
                   : stock::allocate_zeroed(static_cast<size_t>(size), "local_null", "filetbl")));
    Tbl *tbl = inittbl(0, slots, 1, null_value, size);
    settbl(tbl, slots, null_value ? null_value : local_null.get());
    tbl->count = 0;
    tbl->right_grow = slots / 2;
    return tbl;
}

struct FreeTbl {
    void operator()(Tbl *tbl) const { freetbl(tbl, nullptr); }
};
using ListPtr = std::unique_ptr<Tbl, FreeTbl>;

bool is_missing(const char *path)
{
    struct stat status;
    return restat(path, &status) != 0 && errno == ENOENT;
}

int make_file(const char *path, const char *comment, const Tbl *empty, Tbl **tbl)
{
    const bool missing = is_missing(path);
    if (savetbl(empty, path, comment) != 0) {
        if (missing)
            unlink(path);
        return -1;
    }
    *tbl = readtbl(path, nullptr, 1);
    return *tbl ? 0 : -1;
}

// A new, empty file beside the one at path with the same permissions; the result is its name.
Owned<char> name_beside(const char *path, int old)
{
    constexpr char kEnding[] = ".XXXXXX";
    const size_t length = std::strlen(path);
    Owned<char> name(static_cast<char *>(stock::allocate(length + sizeof kEnding, "name")));
    std::memcpy(name.get(), path, length);
    std::memcpy(name.get() + length, kEnding, sizeof kEnding);
    struct stat status;
    const Fd fd(mkstemp(name.get()));
    if (fd.get() < 0)
        return nullptr;
    if (refstat(old, &status) == 0)
        fchmod(fd.get(), status.st_mode & 07777);
    return name;
}

// Puts a list in the place of the file at path. The old one stays when that fails.
bool replace_file(const char *path, const char *comment, const Tbl *list, int old)
{
    const Owned<char> target(realpath(path, nullptr));  // the file itself, not a link to it
    const char *file = target ? target.get() : path;
    const Owned<char> name = name_beside(file, old);
    if (!name) {
        elog_log(1, "Can't open %s to write tbl.\n", path);
        return false;
    }
    if (savetbl(list, name.get(), comment) != 0) {
        unlink(name.get());
        return false;
    }
    if (std::rename(name.get(), file) == 0)
        return true;
    elog_log(1, "Can't rename %s to %s.\n", name.get(), file);
    unlink(name.get());
    return false;
}

// Makes the file larger. The new slots, in memory, first receive the old entries.
int enlarge(const char *path, const char *comment, const Tbl *old, Tbl *larger, Tbl **tbl)
{
    if (cattbl(larger, old) != 0)
        return -1;
    if (!replace_file(path, comment, larger, old->fd) || !(*tbl = readtbl(path, nullptr, 1)))
        elog_die(0, "Couldn't extend list %s", path);
    return 0;
}

bool good_size(int size)
{
    if (size < 1)
        elog_log(0, "filetbl needs an entry size of at least 1, not %d\n", size);
    return size >= 1;
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
    const auto bytes = static_cast<int64_t>(
        std::min<size_t>(bytes_for(slots, tbl->size), static_cast<size_t>(INT64_MAX)));
    lengthen_file(tbl->fd, bytes);
    auto *mapaddr = static_cast<char *>(tbl->mapaddr);
    const int64_t length = tbl->maplen + bytes;
    const int64_t mapped = whole_pages(tbl->maplen);
    if (length > mapped &&
        (!extend_room(mapaddr, length) ||
         !map_part(mapaddr, mapped, length, static_cast<int>(tbl->prot), tbl->fd)))
        elog_die(1, "Couldn't remap tbl.\n");
    clear_tail(tbl, bytes);
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
        std::free(tbl);
    if (unmap(mapaddr, length, writable) != 0)
        elog_complain(1, "munmap (%lx, %ld) fails", reinterpret_cast<unsigned long>(mapaddr),
                      static_cast<long>(length));
}

}  // namespace stock

int writetbl(const Tbl *tbl, FILE *stream, const char *comment)
{
    const FileSizeSignalBlocked blocked;
    const int64_t comment_bytes = comment ? static_cast<int64_t>(std::strlen(comment)) + 1 : 0;
    if (comment_bytes > INT32_MAX - 8) {
        errno = EFBIG;
        return -1;
    }
    const bool written = put_header(stream, comment_bytes) &&
                         put_padded(stream, comment, comment_bytes) &&
                         put(stream, tbl, sizeof *tbl) &&
                         (!tbl->null_value || put_padded(stream, tbl->null_value, tbl->size)) &&
                         put_slots(stream, tbl);
    return written ? 0 : -1;
}

int savetbl(const Tbl *tbl, const char *path, const char *comment)
{
    if (make_pathdirs(path) != 0)
        return -1;
    FILE *stream = open_to_write(tbl, path);
    if (!stream) {
        elog_log(1, "Can't open %s to write tbl.\n", path);
        return -1;
    }
    const FileSizeSignalBlocked blocked;
    const int written = writetbl(tbl, stream, comment);
    if (written != 0)
        elog_log(1, "Errors while writing tbl to %s.\n", path);
    if (std::fclose(stream) != 0) {
        elog_log(1, "Failed to close tbl file %s", path);
        return -1;
    }
    return written;
}

Tbl *readtbl(const char *path, char **comment, int writable)
{
    Tbl *tbl = nullptr;
    char *found = nullptr;
    open_list(path, writable != 0, nullptr, &found, &tbl);
    if (comment)
        *comment = found;
    return tbl;
}

int filetbl(const char *path, const char *comment, int64_t slots, const void *null_value, int size,
            Tbl **tbl)
{
    *tbl = nullptr;
    slots = std::max<int64_t>(slots, 0);
    const int mark = elog_mark();
    Tbl *found = nullptr;
    char *its_comment = nullptr;
    const Opening opening = open_list(path, true, comment, &its_comment, &found);
    ListPtr old(found);
    // Meant: a file that holds something else is overwritten, but not one that could
    // perhaps be opened another time.
    if (opening == Opening::failed)
        return -1;
    elog_flush(0, mark);
    if (opening == Opening::other_list)
        return -2;
    if (old && old->nalloc - old->left >= slots) {
        *tbl = old.release();
        return 0;
    }
    if (!good_size(size))
        return -1;
    const ListPtr list(empty_list(slots, null_value, size));
    if (old)
        return enlarge(path, comment, old.get(), list.get(), tbl);
    return make_file(path, comment, list.get(), tbl);
}
