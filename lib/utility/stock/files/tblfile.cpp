// Lists that live in files: an image of the list's memory, mapped.
//
// Behind a writable mapping addresses are set aside, so that the file can grow in
// place. How many is kept in a page of its own in front of the mapping: the
// list's record has no room for it and is part of the file.
//
//     | page: Room | the file ...      | addresses set aside ... |
//                  ^ mapaddr           ^ mapaddr + maplen
//
// A file is believed only as far as its size goes. Its header and record are read
// into a copy, which is checked and then used: the file may change meanwhile.
//
// A writer holds an advisory lock for as long as the list is open, so there is one.

#include "stock/tblfile.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/guards.h"
#include "base/uninterrupted.h"
#include "deviants/system.h"
#include "files/tblfile.h"
#include "stock/elog.h"
#include "stock/path.h"
#include "stock/restat.h"

namespace {

using stock::bytes_for;
using stock::Fd;
using stock::KeepErrno;
using stock::Owned;

constexpr char kMagic[8] = {'#', 'F', 'i', 'l', 'e', 'T', 'b', 'l'};
constexpr char Zeros[8] = {};
constexpr int64_t kHeader = 16;  // the comment begins here
constexpr int64_t kRecord = sizeof(Tbl);
constexpr int64_t kRoom = int64_t{64} << 30;      // addresses set aside behind a writable list
constexpr int64_t kMostBytes = int64_t{1} << 56;  // of a file: no process has more addresses
constexpr uint32_t kWritable = 2;
constexpr int kMostTries = 1000;  // at what another process changes meanwhile

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
    if (length > kMostBytes) {
        errno = ENOMEM;
        return nullptr;
    }
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

// What a list file says of itself.
struct Image {
    int64_t comment_bytes = 0;
    Tbl record{};
    int64_t length = 0;  // of the whole file

    int64_t slots_at() const { return kHeader + comment_bytes + kRecord; }
};

// Reads n bytes, or those up to the end of the file. -1 with errno on failure.
int64_t read_at(int fd, int64_t offset, void *to, int64_t n)
{
    int64_t done = 0;
    while (done < n) {
        const ssize_t got = stock::uninterrupted([&] {
            return pread(fd, static_cast<char *>(to) + done, static_cast<size_t>(n - done),
                         offset + done);
        });
        if (got < 0)
            return -1;
        if (got == 0)
            break;
        done += got;
    }
    return done;
}

// How many bytes stand before the first zero byte, at most n. -1 with errno on failure.
int64_t text_length(int fd, int64_t offset, int64_t n)
{
    char chunk[4096];
    int64_t length = 0;
    while (length < n) {
        const int64_t wanted = std::min<int64_t>(n - length, sizeof chunk);
        const int64_t got = read_at(fd, offset + length, chunk, wanted);
        if (got < 0)
            return -1;
        const auto text = static_cast<int64_t>(strnlen(chunk, static_cast<size_t>(got)));
        length += text;
        if (text < wanted)
            break;
    }
    return length;
}

// What a file turned out to hold.
enum class Content {
    list,
    nothing,  // it is regular and empty
    other,    // its bytes were read, and are no list that can be used here
    unknown,  // the system could not tell, or it is no regular file
};

// A message about the file, and what it means.
struct Verdict {
    Content content;
    int flag = 0;
    const char *message = nullptr;
};

constexpr Verdict kUnreadable{Content::unknown, 1, "Error trying to read tbl %s."};

Verdict damaged(const char *message)
{
    return {Content::other, 0, message};
}

// Reads the length of the comment and checks what stands before the record.
Verdict read_header(int fd, Image *image)
{
    char start[kHeader] = {};
    const int64_t got = read_at(fd, 0, start, kHeader);
    if (got < 0)
        return kUnreadable;
    if (got < int64_t{sizeof kMagic} || std::memcmp(start, kMagic, sizeof kMagic) != 0)
        return damaged("Bad magic number while trying to read tbl. %s");
    if (got < kHeader)
        return damaged("Truncated header while trying to read tbl. %s");
    int32_t comment = 0;
    std::memcpy(&comment, start + sizeof kMagic, sizeof comment);
    const int64_t text = text_length(fd, kHeader, comment);
    if (text < 0)
        return kUnreadable;
    if (comment < 0 || comment > text + 9)
        return damaged("filetbl %s was probably created on a different architecture and won't "
                       "work on the current machine");
    if (image->length - kHeader - kRecord < comment)
        return damaged("Truncated header while trying to read tbl. %s");
    if (comment % 8 != 0 || (comment > 0 && text == comment))
        return damaged("Bad comment length while trying to read tbl. %s");
    image->comment_bytes = comment;
    return {Content::list};
}

bool too_many(int64_t slots, int64_t size)
{
    return slots < 0 || bytes_for(slots, size) > static_cast<size_t>(INT64_MAX / 2);
}

// What is wrong with a record that so many bytes follow, as a message; null when nothing is.
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

// Reads the record and checks it. One that another process is changing may be seen
// half changed: it is faulty when it stays so.
Verdict read_record(int fd, Image *image)
{
    Tbl before{};
    for (int tries = 0;; ++tries) {
        const int64_t got = read_at(fd, kHeader + image->comment_bytes, &image->record, kRecord);
        // The size comes last: a file grows before its record says so.
        struct stat status;
        if (got < 0 || refstat(fd, &status) != 0)
            return kUnreadable;
        image->length = status.st_size;
        if (got < kRecord)
            return damaged("Truncated header while trying to read tbl. %s");
        const char *fault = record_fault(image->record, image->length - image->slots_at());
        if (!fault)
            return {Content::list};
        if (tries == kMostTries ||
            (tries > 0 && std::memcmp(&before, &image->record, sizeof before) == 0))
            return damaged(fault);
        before = image->record;
    }
}

Verdict read_image(int fd, Image *image)
{
    struct stat status;
    if (refstat(fd, &status) != 0)
        return {Content::unknown, 1, "Error trying to stat %s"};
    image->length = status.st_size;
    if (!S_ISREG(status.st_mode) || status.st_size == 0) {
        errno = S_ISREG(status.st_mode) ? EINVAL : ENODEV;  // what mapping it would give
        return {S_ISREG(status.st_mode) ? Content::nothing : Content::unknown, 1,
                "Error trying to mmap %s."};
    }
    const Verdict verdict = read_header(fd, image);
    return verdict.content == Content::list ? read_record(fd, image) : verdict;
}

// Whether the comment in the file is this one.
bool has_comment(int fd, const Image &image, const char *comment)
{
    const auto bytes = static_cast<int64_t>(std::strlen(comment)) + 1;
    if (bytes > image.comment_bytes)
        return false;
    const Owned<char> found(
        static_cast<char *>(stock::allocate(static_cast<size_t>(bytes), "comment")));
    return read_at(fd, kHeader, found.get(), bytes) == bytes &&
           std::memcmp(found.get(), comment, static_cast<size_t>(bytes)) == 0;
}

// Gives the record of an image the addresses of this mapping.
void settle(Tbl *tbl, const Image &image, char *mapaddr, int fd, bool writable)
{
    *tbl = image.record;
    char *slots = mapaddr + image.slots_at();
    const int64_t null_bytes = null_value_bytes(*tbl);
    tbl->null_value = null_bytes > 0 ? slots : nullptr;
    tbl->deleted = nullptr;
    tbl->mapaddr = mapaddr;
    tbl->maplen = image.length;
    tbl->fd = fd;
    tbl->prot = writable ? PROT_READ | PROT_WRITE : PROT_READ;
    tbl->base = slots + null_bytes - tbl->left * tbl->size;
}

// Maps a sound image, whose descriptor the list then owns. The list is the record in the
// mapping, or one of its own when the mapping is read-only. Null after logging why not.
Tbl *map_list(Fd &fd, const char *path, const Image &image, bool writable)
{
    char *mapaddr = map_file(fd.get(), image.length, writable);
    if (!mapaddr) {
        elog_log(1, "Error trying to mmap %s.", path);
        return nullptr;
    }
    Tbl *tbl =
        writable ? reinterpret_cast<Tbl *>(mapaddr + kHeader + image.comment_bytes) : newtbl(0);
    settle(tbl, image, mapaddr, fd.release(), writable);
    return tbl;
}

// The list in an open file. Null after logging why there is none.
Tbl *open_list(Fd &fd, const char *path, bool writable, Image *image)
{
    const Verdict verdict = read_image(fd.get(), image);
    if (verdict.content == Content::list)
        return map_list(fd, path, *image, writable);
    elog_log(verdict.flag, verdict.message, path);
    return nullptr;
}

// Opening files.

// Takes the one writer's lock, which lasts until every copy of the descriptor is
// closed: a child made by fork holds it too. A file system may have no locks.
bool lock_for_writer(int fd)
{
    return stock::uninterrupted([&] { return flock(fd, LOCK_EX | LOCK_NB); }) == 0 ||
           errno != EWOULDBLOCK;
}

// Whether the path leads to the open file. One that cannot be looked at does.
bool leads_to(const char *path, int fd)
{
    struct stat named;
    struct stat opened;
    if (restat(path, &named) != 0)
        return errno != ENOENT;
    return refstat(fd, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

// Opens a file. A queue is not waited for; a file whose lease another program holds is.
int open_at_once(const char *path, int flags)
{
    const auto open_with = [&](int more) {
        return stock::uninterrupted([&] { return open(path, flags | more, 0666); });
    };
    const int fd = open_with(O_NONBLOCK);
    return fd < 0 && errno == EWOULDBLOCK ? open_with(0) : fd;
}

// Opens a list file, for a writer with the lock, and made where O_CREAT is among the
// flags. -1 with errno; EBUSY says that another writer has it open.
int open_file(const char *path, bool writable, int flags = 0)
{
    flags |= (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC;
    for (int tries = 0;; ++tries) {
        Fd fd(open_at_once(path, flags));
        if (fd.get() < 0 || !writable)
            return fd.release();
        if (!lock_for_writer(fd.get())) {
            errno = EBUSY;
            return -1;
        }
        // A larger file may have taken the name before the lock was free.
        if (leads_to(path, fd.get()) || tries == kMostTries)
            return fd.release();
    }
}

void log_refusal(const char *path)
{
    if (errno == EBUSY)
        elog_log(0, "Can't open %s to write tbl: another writer has it open.", path);
    else
        elog_log(1, "Can't open %s to read tbl.", path);
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

// Opens a file to be overwritten. Not one that the list lives in or that a writer has
// open: overwriting it would take their memory away.
FILE *open_to_write(const Tbl *tbl, const char *path)
{
    Fd fd(stock::uninterrupted([&] { return open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0666); }));
    struct stat status;
    if (fd.get() < 0 || refstat(fd.get(), &status) != 0)
        return nullptr;
    if (S_ISREG(status.st_mode)) {
        if ((tbl->mapaddr && leads_to(path, tbl->fd)) || !lock_for_writer(fd.get())) {
            errno = EBUSY;
            return nullptr;
        }
        if (stock::uninterrupted([&] { return ftruncate(fd.get(), 0); }) != 0)
            return nullptr;
    }
    FILE *stream = fdopen(fd.get(), "w+");
    if (stream)
        static_cast<void>(fd.release());
    return stream;
}

// Writes the image, or logs why not. The stream is closed.
int write_and_close(const Tbl *tbl, FILE *stream, const char *path, const char *comment)
{
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

// Making files.

struct FreeTbl {
    void operator()(Tbl *tbl) const { freetbl(tbl, nullptr); }
};
using ListPtr = std::unique_ptr<Tbl, FreeTbl>;

// What filetbl was asked for.
struct Wanted {
    const char *path;
    const char *comment;
    int64_t slots;
    const void *null_value;
    int size;
};

// An empty list of at least as many slots as are wanted, which all hold the null value.
Tbl *empty_list(const Wanted &wanted)
{
    const Owned<char> local_null(static_cast<char *>(
        wanted.null_value
            ? nullptr
            : stock::allocate_zeroed(static_cast<size_t>(wanted.size), "local_null", "filetbl")));
    Tbl *tbl = inittbl(0, wanted.slots, 1, wanted.null_value, wanted.size);
    settbl(tbl, wanted.slots, wanted.null_value ? wanted.null_value : local_null.get());
    tbl->count = 0;
    tbl->right_grow = wanted.slots / 2;
    return tbl;
}

// Writes the list into an empty file and opens it there. Null after logging why not;
// the file is empty again then.
Tbl *fill_file(Fd &fd, const char *path, const char *comment, const Tbl *list)
{
    const int copy = fcntl(fd.get(), F_DUPFD_CLOEXEC, 0);  // with the same lock
    Image image;
    Tbl *tbl = nullptr;
    if (write_and_close(list, copy < 0 ? nullptr : fdopen(copy, "w"), path, comment) == 0)
        tbl = open_list(fd, path, true, &image);
    if (!tbl)
        static_cast<void>(stock::uninterrupted([&] { return ftruncate(fd.get(), 0); }));
    return tbl;
}

// The file that a path leads to when that is a link, else the path.
Owned<char> file_behind(const char *path)
{
    struct stat status;
    char *target =
        relstat(path, &status) == 0 && S_ISLNK(status.st_mode) ? realpath(path, nullptr) : nullptr;
    return Owned<char>(target ? target : stock::copy_text(path, "path"));
}

// The end of the last character that lies in the first n bytes of a longer name; n when
// the bytes there are no UTF-8.
size_t characters_end(const char *name, size_t n)
{
    constexpr size_t kMostFollowing = 3;  // bytes of a character behind its first
    size_t end = n;
    while (end > 1 && n - end < kMostFollowing && (name[end] & 0xC0) == 0x80)
        --end;
    return (name[end] & 0xC0) == 0x80 ? n : end;
}

// The file's name with the ending behind it, cut before that where names on the disk
// of the open file may not be so long.
Owned<char> name_beside(const char *file, const char *ending, int fd)
{
    const char *slash = std::strrchr(file, '/');
    const auto directory = static_cast<size_t>(slash ? slash + 1 - file : 0);
    const long most = fpathconf(fd, _PC_NAME_MAX);
    const auto room = (most > 0 ? static_cast<size_t>(most) : 255) - std::strlen(ending);
    const size_t whole = std::strlen(file + directory);
    const size_t kept = whole > room ? characters_end(file + directory, room) : whole;
    const size_t length = directory + kept + std::strlen(ending) + 1;
    Owned<char> name(static_cast<char *>(stock::allocate(length, "name")));
    std::snprintf(name.get(), length, "%.*s%s", static_cast<int>(directory + kept), file, ending);
    return name;
}

// Gives a new file the owner and the mode of the one it replaces, as far as this user may.
void take_owner_and_mode(int fd, const struct stat &old)
{
    constexpr auto kSameUser = static_cast<uid_t>(-1);
    const bool same_group =
        fchown(fd, old.st_uid, old.st_gid) == 0 || fchown(fd, kSameUser, old.st_gid) == 0;
    const mode_t everyone = old.st_mode & 07;
    // What the old group may do is not for the members of another.
    const auto mode = same_group ? old.st_mode & 07777 : (old.st_mode & 0707) | everyone << 3;
    fchmod(fd, static_cast<mode_t>(mode));
}

// Makes the list in the place of the old one's file, which stays when that fails. The
// new file is locked before it has the name. Null after logging why not.
Tbl *replace_file(const char *path, const char *comment, const Tbl *list, int old)
{
    const Owned<char> file = file_behind(path);
    const Owned<char> name = name_beside(file.get(), ".XXXXXX", old);
    Fd fd(mkostemp(name.get(), O_CLOEXEC));
    if (fd.get() < 0) {
        elog_log(1, "Can't open %s to write tbl.\n", path);
        return nullptr;
    }
    lock_for_writer(fd.get());
    struct stat status;
    if (refstat(old, &status) == 0)
        take_owner_and_mode(fd.get(), status);
    ListPtr larger(fill_file(fd, name.get(), comment, list));
    if (larger && std::rename(name.get(), file.get()) == 0)
        return larger.release();
    if (larger)
        elog_log(1, "Can't rename %s to %s.\n", name.get(), file.get());
    unlink(name.get());
    return nullptr;
}

bool good_size(int size)
{
    if (size < 1)
        elog_log(0, "filetbl needs an entry size of at least 1, not %d\n", size);
    return size >= 1;
}

// The list with at least as many slots as are wanted. A larger one first receives, in
// memory, the old entries.
int open_or_enlarge(Fd &fd, const Wanted &wanted, const Image &image, Tbl **tbl)
{
    ListPtr old(map_list(fd, wanted.path, image, true));
    if (old && old->nalloc - old->left < wanted.slots) {
        if (!good_size(wanted.size))
            return -1;
        const ListPtr larger(empty_list(wanted));
        if (cattbl(larger.get(), old.get()) != 0)
            return -1;
        old.reset(replace_file(wanted.path, wanted.comment, larger.get(), old->fd));
        if (!old)
            elog_die(0, "Couldn't extend list %s", wanted.path);
    }
    *tbl = old.release();
    return *tbl ? 0 : -1;
}

// Makes a file that is missing. One that another process has made meanwhile is opened.
int make_file(const Wanted &wanted, const Tbl *list, Tbl **tbl)
{
    if (make_pathdirs(wanted.path) != 0)
        return -1;
    Fd fd(open_file(wanted.path, true, O_CREAT));
    struct stat status;
    if (fd.get() < 0) {
        log_refusal(wanted.path);
        return -1;
    }
    if (refstat(fd.get(), &status) != 0 || status.st_size != 0) {
        ::close(fd.release());
        return filetbl(wanted.path, wanted.comment, wanted.slots, wanted.null_value, wanted.size,
                       tbl);
    }
    *tbl = fill_file(fd, wanted.path, wanted.comment, list);
    if (*tbl)
        return 0;
    unlink(file_behind(wanted.path).get());
    return -1;
}

// Renames a file to its name with "~" behind it, or "~2", "~3" ... when that is taken.
// Null after logging why not.
Owned<char> put_aside(const char *file, int fd)
{
    for (int n = 1;; ++n) {
        char ending[16] = "~";
        if (n > 1)
            std::snprintf(ending, sizeof ending, "~%d", n);
        Owned<char> name = name_beside(file, ending, fd);
        if (stock::rename_new(file, name.get()))
            return name;
        if (errno != EEXIST) {
            elog_log(1, "Can't rename %s to %s.\n", file, name.get());
            return nullptr;
        }
    }
}

// Makes a list in the place of a file that holds something else, and keeps that under
// another name. When no list can be made the file has its name again.
int make_beside(const Fd &fd, const Wanted &wanted, const Tbl *list, Tbl **tbl)
{
    struct stat status;
    const bool known = refstat(fd.get(), &status) == 0;
    const Owned<char> file = file_behind(wanted.path);
    const Owned<char> aside = put_aside(file.get(), fd.get());
    if (!aside)
        return -1;
    const int result = make_file(wanted, list, tbl);
    if (result != 0 && stock::rename_new(aside.get(), file.get()))
        return result;
    if (result == 0 && known)
        take_owner_and_mode((*tbl)->fd, status);
    elog_notify(0, "%s is kept as %s.\n", file.get(), aside.get());
    return result;
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
    return write_and_close(tbl, open_to_write(tbl, path), path, comment);
}

Tbl *readtbl(const char *path, char **comment, int writable)
{
    Tbl *tbl = nullptr;
    Image image;
    Fd fd(open_file(path, writable != 0));
    if (fd.get() < 0)
        log_refusal(path);
    else
        tbl = open_list(fd, path, writable != 0, &image);
    if (comment)
        *comment =
            tbl && image.comment_bytes > 0 ? static_cast<char *>(tbl->mapaddr) + kHeader : nullptr;
    return tbl;
}

int filetbl(const char *path, const char *comment, int64_t slots, const void *null_value, int size,
            Tbl **tbl)
{
    *tbl = nullptr;
    const Wanted wanted{path, comment, std::max<int64_t>(slots, 0), null_value, size};
    Image image;
    Fd fd(open_file(path, true));
    if (fd.get() < 0 && errno != ENOENT) {
        log_refusal(path);
        return -1;
    }
    const bool missing = fd.get() < 0;
    const Verdict found = missing ? Verdict{Content::nothing} : read_image(fd.get(), &image);
    if (found.content == Content::list) {
        if (comment && !has_comment(fd.get(), image, comment))
            return -2;
        return open_or_enlarge(fd, wanted, image, tbl);
    }
    if (found.content != Content::nothing)
        elog_log(found.flag, found.message, path);
    if (found.content == Content::unknown || !good_size(size))
        return -1;
    const ListPtr list(empty_list(wanted));
    if (missing)
        return make_file(wanted, list.get(), tbl);
    if (found.content == Content::other)
        return make_beside(fd, wanted, list.get(), tbl);
    *tbl = fill_file(fd, path, comment, list.get());
    return *tbl ? 0 : -1;
}
