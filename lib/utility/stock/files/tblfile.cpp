// Lists that live in files: an image of the list's memory, which is mapped.
//
// A file is believed only as far as its size goes. Its header and its record are read into
// a copy, which is checked and then used, because the file may change meanwhile. Mapping
// the file and growing it is the work of lists/mapped.
//
// A writer holds an advisory lock for as long as the list is open, so there is one writer.

#include "stock/tblfile.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/descriptor.h"
#include "base/file_size_signal.h"
#include "base/guards.h"
#include "base/uninterrupted.h"
#include "deviants/system.h"
#include "files/durable.h"
#include "lists/mapped.h"
#include "stock/elog.h"
#include "stock/path.h"
#include "stock/restat.h"

namespace {

using stock::bytes_for;
using stock::Fd;
using stock::Owned;
using stock::ReplacedFile;
using stock::Replacing;

constexpr char kMagic[8] = {'#', 'F', 'i', 'l', 'e', 'T', 'b', 'l'};
constexpr char kZeros[8] = {};
constexpr int64_t kHeaderBytes = 16;  // magic number, comment length and four zero bytes
constexpr int64_t kRecordBytes = sizeof(Tbl);
constexpr int kMostTries = 1000;  // to read or open a file that another process is changing

// Parts of the image begin at multiples of 8 bytes.
int64_t padded(int64_t bytes)
{
    return (bytes + 7) / 8 * 8;
}

int64_t null_value_bytes(const Tbl &record)
{
    return record.null_value ? padded(record.size) : 0;
}

// Reading files.

// What the header and the record of a list file say, and how long the file is.
struct Image {
    int64_t comment_bytes = 0;  // padding included
    Tbl record{};
    int64_t length = 0;  // of the whole file
    int64_t lost = 0;    // entries that the file had and has no more

    int64_t slots_at() const { return kHeaderBytes + comment_bytes + kRecordBytes; }
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

// Counts the bytes before the first zero byte from offset on, at most n. -1 with errno on
// failure.
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

// What filetbl finds at a path.
enum class Content {
    missing,   // there is no file
    empty,     // a regular file without a byte
    list,      // a sound image of a list
    unusable,  // its bytes were read, and are no list that this machine can use
    unknown,   // it could not be read, or is no regular file
};

// What a file holds and, when that is no list, the message that says so: its flag of
// elog_log and its format, which takes the path.
struct Finding {
    Content content;
    int flag = 0;
    const char *message = nullptr;
};

constexpr Finding kUnreadable{Content::unknown, 1, "Error trying to read tbl %s."};

Finding unusable(const char *message)
{
    return {Content::unusable, 0, message};
}

void log_finding(const Finding &found, const char *path)
{
    elog_log(found.flag, found.message, path);
}

// Reads the length of the comment and checks all that stands before the record.
Finding read_header(int fd, Image *image)
{
    char start[kHeaderBytes] = {};
    const int64_t got = read_at(fd, 0, start, kHeaderBytes);
    if (got < 0)
        return kUnreadable;
    if (got < int64_t{sizeof kMagic} || std::memcmp(start, kMagic, sizeof kMagic) != 0)
        return unusable("Bad magic number while trying to read tbl. %s");
    if (got < kHeaderBytes)
        return unusable("Truncated header while trying to read tbl. %s");
    int32_t comment = 0;
    std::memcpy(&comment, start + sizeof kMagic, sizeof comment);
    const int64_t text = text_length(fd, kHeaderBytes, comment);
    if (text < 0)
        return kUnreadable;
    // The length is that of the text and at most eight zero bytes. In the other byte order it
    // is negative or much larger.
    if (comment < 0 || comment > text + 9)
        return unusable("filetbl %s was probably created on a different architecture and won't "
                        "work on the current machine");
    if (image->length - kHeaderBytes - kRecordBytes < comment)
        return unusable("Truncated header while trying to read tbl. %s");
    if (comment % 8 != 0 || (comment > 0 && text == comment))
        return unusable("Bad comment length while trying to read tbl. %s");
    image->comment_bytes = comment;
    return {Content::list};
}

// Whether so many slots could not be in memory, or grow without overflowing a number.
bool too_many(int64_t slots, int64_t size)
{
    return slots < 0 || bytes_for(slots, size) > static_cast<size_t>(INT64_MAX / 2);
}

constexpr char kTruncatedSlots[] = "Truncated slots while trying to read tbl. %s";

// Checks a record behind which the file has `following` bytes. Returns the message that
// says what is wrong with it; null when nothing is.
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
        return kTruncatedSlots;
    return nullptr;
}

// A list grows in its mapping, and the disk may get the record before the file's new length.
// When no more slots are missing than a growth adds, takes those that are whole for the list.
bool take_whole_slots(Image *image)
{
    Tbl &record = image->record;
    const int64_t bytes = image->length - image->slots_at() - null_value_bytes(record);
    if (bytes < 0 || too_many(record.nalloc - record.left, 1))
        return false;
    const int64_t whole = bytes / record.size;
    // A file that holds no slot, but other bytes, has not been cut: its record is wrong.
    if (record.nalloc - record.left - whole > std::max(record.left_grow, record.right_grow) ||
        (whole == 0 && bytes > 0))
        return false;
    record.left = std::max(record.left, -whole);
    record.nalloc = whole + record.left;
    image->lost = std::max<int64_t>(record.count - record.nalloc, 0);
    record.count -= image->lost;
    return true;
}

// Reads the record and checks it. A record that another process is changing may be read
// half changed, so it counts as faulty only when it is read twice with the same bytes.
Finding read_record(int fd, Image *image)
{
    Tbl before{};
    for (int tries = 0;; ++tries) {
        const int64_t got =
            read_at(fd, kHeaderBytes + image->comment_bytes, &image->record, kRecordBytes);
        // The size is asked for last, because a file grows before its record says so.
        struct stat status;
        if (got < 0 || refstat(fd, &status) != 0)
            return kUnreadable;
        image->length = status.st_size;
        if (got < kRecordBytes)
            return unusable("Truncated header while trying to read tbl. %s");
        const char *fault = record_fault(image->record, image->length - image->slots_at());
        if (!fault)
            return {Content::list};
        if (tries == kMostTries ||
            (tries > 0 && std::memcmp(&before, &image->record, sizeof before) == 0))
            return fault == kTruncatedSlots && take_whole_slots(image) ? Finding{Content::list}
                                                                       : unusable(fault);
        before = image->record;
    }
}

// Reads and checks the header and the record of an open file, and fills *image.
Finding read_image(int fd, Image *image)
{
    struct stat status;
    if (refstat(fd, &status) != 0)
        return {Content::unknown, 1, "Error trying to stat %s"};
    image->length = status.st_size;
    if (!S_ISREG(status.st_mode) || status.st_size == 0) {
        const bool regular = S_ISREG(status.st_mode);
        errno = regular ? EINVAL : ENODEV;  // the reasons for which mapping it would fail
        return {regular ? Content::empty : Content::unknown, 1, "Error trying to mmap %s."};
    }
    const Finding found = read_header(fd, image);
    return found.content == Content::list ? read_record(fd, image) : found;
}

// Whether the file has exactly this comment.
bool has_comment(int fd, const Image &image, const char *comment)
{
    const auto bytes = static_cast<int64_t>(std::strlen(comment)) + 1;
    if (bytes > image.comment_bytes)
        return false;
    const Owned<char> found(
        static_cast<char *>(stock::allocate(static_cast<size_t>(bytes), "comment")));
    return read_at(fd, kHeaderBytes, found.get(), bytes) == bytes &&
           std::memcmp(found.get(), comment, static_cast<size_t>(bytes)) == 0;
}

// Copies the image's record to *tbl and points it into the mapping of the file.
void point_into_mapping(Tbl *tbl, const Image &image, char *mapaddr, int fd, bool writable)
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

// Maps a sound image. A writable list is the record inside the mapping; a read-only one is
// an allocated copy. The list owns the descriptor from then on. Null, with the reason
// logged, when the file cannot be mapped.
Tbl *map_list(Fd &fd, const char *path, const Image &image, bool writable)
{
    char *mapaddr = stock::map_list_file(fd.get(), image.length, writable);
    if (!mapaddr) {
        elog_log(1, "Error trying to mmap %s.", path);
        return nullptr;
    }
    if (image.lost > 0)
        elog_log(0, "Tbl %s was cut short: its last %ld entries are lost.\n", path,
                 static_cast<long>(image.lost));
    Tbl *tbl = writable ? reinterpret_cast<Tbl *>(mapaddr + kHeaderBytes + image.comment_bytes)
                        : newtbl(0);
    point_into_mapping(tbl, image, mapaddr, fd.release(), writable);
    return tbl;
}

// Opens the list in an open file and fills *image. Null, with the reason logged, when there
// is none.
Tbl *open_list(Fd &fd, const char *path, bool writable, Image *image)
{
    const Finding found = read_image(fd.get(), image);
    if (found.content == Content::list)
        return map_list(fd, path, *image, writable);
    log_finding(found, path);
    return nullptr;
}

// Opening files as list files.

// Takes the writer's lock without waiting; false when another writer has it. It lasts until
// every copy of the descriptor is closed, so that a child made by fork holds it too. Where
// the file system has no locks, every writer gets it.
bool lock_for_writer(int fd)
{
    return stock::uninterrupted([&] { return flock(fd, LOCK_EX | LOCK_NB); }) == 0 ||
           errno != EWOULDBLOCK;
}

// Whether the path leads to the open file. A path whose status cannot be read counts as
// leading there, unless there is nothing at it.
bool leads_to(const char *path, int fd)
{
    struct stat named;
    struct stat opened;
    if (restat(path, &named) != 0)
        return errno != ENOENT;
    return refstat(fd, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

// Opens a file without waiting for the other end of a named pipe. Waits, though, for a
// program that holds a lease on the file to give that up.
int open_at_once(const char *path, int flags)
{
    const auto open_with = [&](int more) {
        return stock::beyond_standard(
            stock::uninterrupted([&] { return open(path, flags | more, 0666); }));
    };
    const int fd = open_with(O_NONBLOCK);
    return fd < 0 && errno == EWOULDBLOCK ? open_with(0) : fd;
}

// Opens a list file; a writer takes the writer's lock too. O_CREAT among the flags makes a
// missing file. -1 with errno on failure: EBUSY when another writer has the file open.
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
        // The other writer may have put a larger file in its place before it gave up the lock.
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

// Writing files.

bool put(FILE *stream, const void *bytes, size_t n)
{
    return n == 0 || std::fwrite(bytes, 1, n, stream) == n;
}

bool put_padded(FILE *stream, const void *bytes, int64_t n)
{
    return put(stream, bytes, static_cast<size_t>(n)) &&
           put(stream, kZeros, static_cast<size_t>(padded(n) - n));
}

bool put_header(FILE *stream, int64_t comment_bytes)
{
    const auto k = static_cast<uint32_t>(padded(comment_bytes));
    if (!put(stream, kMagic, sizeof kMagic) || !put(stream, &k, sizeof k))
        return false;
    // Meant: whether these four bytes are written is not checked.
    put(stream, kZeros, 4);
    return true;
}

bool put_slots(FILE *stream, const Tbl *tbl)
{
    if (!tbl->base)
        return true;
    const char *start = static_cast<const char *>(tbl->base) + tbl->left * tbl->size;
    return put(stream, start, bytes_for(tbl->nalloc - tbl->left, tbl->size));
}

// Keeps other writers out of a file that is to be replaced, if there is one. Refuses, with
// EBUSY, the file that the list lives in and one that a writer has open: what they add
// would be lost. False with errno.
bool may_replace(const Tbl *tbl, const char *path, const Fd &fd)
{
    struct stat status;
    if (fd.get() < 0)
        return errno == ENOENT;
    if (refstat(fd.get(), &status) != 0)
        return false;
    if (!S_ISREG(status.st_mode) ||
        (!(tbl->mapaddr && leads_to(path, tbl->fd)) && lock_for_writer(fd.get())))
        return true;
    errno = EBUSY;
    return false;
}

// Writes the image and closes the stream; null for a stream that could not be opened.
// Returns 0, or -1 with the reason logged.
int write_and_close(const Tbl *tbl, FILE *stream, const char *path, const char *comment)
{
    if (!stream) {
        elog_log(1, "Can't open %s to write tbl.\n", path);
        return -1;
    }
    const stock::FileSizeSignalBlocked blocked;  // closing the stream writes too
    const int written = writetbl(tbl, stream, comment);
    if (written != 0)
        elog_log(1, "Errors while writing tbl to %s.\n", path);
    if (std::fclose(stream) != 0) {
        elog_log(1, "Failed to close tbl file %s", path);
        return -1;
    }
    return written;
}

// Writes the image to a new file. Returns 0, or -1 with the reason logged.
int write_new(const Tbl *tbl, ReplacedFile &file, const char *path, const char *comment)
{
    if (write_and_close(tbl, file.stream(), path, comment) != 0)
        return -1;
    if (!file.finish()) {
        elog_log(1, "Failed to close tbl file %s", path);
        return -1;
    }
    return 0;
}

// Making files.

struct FreeTbl {
    void operator()(Tbl *tbl) const { freetbl(tbl, nullptr); }
};
using ListPtr = std::unique_ptr<Tbl, FreeTbl>;

// The list that filetbl is to open or make: its arguments; slots is not negative.
struct WantedList {
    const char *path;
    const char *comment;
    int64_t slots;
    const void *null_value;
    int size;
};

// Makes an empty list in memory with at least as many slots as are wanted. All of them hold
// the null value.
Tbl *empty_list(const WantedList &wanted)
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

// Writes the list into an empty file and opens it there. Null, with the reason logged, when
// that fails; the file is then empty again.
Tbl *fill_file(Fd &fd, const char *path, const char *comment, const Tbl *list)
{
    Image image;
    Tbl *tbl = nullptr;
    if (write_and_close(list, stock::stream_on(fd.get()), path, comment) == 0)
        tbl = open_list(fd, path, true, &image);
    if (!tbl)
        static_cast<void>(stock::uninterrupted([&] { return ftruncate(fd.get(), 0); }));
    return tbl;
}

// The path of the file itself: the target when the path is a symbolic link, else the path.
Owned<char> resolve_link(const char *path)
{
    struct stat status;
    char *target =
        relstat(path, &status) == 0 && S_ISLNK(status.st_mode) ? realpath(path, nullptr) : nullptr;
    return Owned<char>(target ? target : stock::copy_text(path, "path"));
}

// Gives a new file the owner, the group and the mode of the file it replaces, as far as
// this user may.
void take_owner_and_mode(int fd, const struct stat &old)
{
    constexpr auto kSameUser = static_cast<uid_t>(-1);
    const bool same_group =
        fchown(fd, old.st_uid, old.st_gid) == 0 || fchown(fd, kSameUser, old.st_gid) == 0;
    const mode_t everyone = old.st_mode & 07;
    // When the group is another one, its members get no more than everyone had.
    const auto mode = same_group ? old.st_mode & 07777 : (old.st_mode & 0707) | everyone << 3;
    fchmod(fd, static_cast<mode_t>(mode));
}

// Replaces the file of a list by a larger one, which is locked before it gets the name, so
// that no other writer can open it first. The old file stays when anything fails. Null, with
// the reason logged, on failure.
Tbl *replace_file(const WantedList &wanted, const Tbl *larger, ListPtr old)
{
    Fd kept(fcntl(old->fd, F_DUPFD_CLOEXEC, 0));  // has the writer's lock too
    Replacing how;
    how.open_fd = kept.get();
    ReplacedFile file(how);
    if (kept.get() < 0 || !file.open(wanted.path)) {
        elog_log(1, "Can't open %s to write tbl.\n", wanted.path);
        return nullptr;
    }
    if (write_new(larger, file, wanted.path, wanted.comment) != 0)
        return nullptr;
    old.reset();  // its mapping is not to be used when the file is written in place
    if (!file.put_in_place()) {
        log_damage(file);
        elog_log(1, "Can't rename %s to %s.\n", file.beside(), file.file());
        return nullptr;
    }
    file.tell_if_unguarded();
    Fd fd(file.is_written_in_place() ? kept.release() : file.release_fd());
    Image image;
    return open_list(fd, wanted.path, true, &image);
}

bool good_size(int size)
{
    if (size < 1)
        elog_log(0, "filetbl needs an entry size of at least 1, not %d\n", size);
    return size >= 1;
}

// Opens the list that the file holds. When it has too few slots, a larger list with the old
// entries is made in memory and its file replaces the old one. Returns what filetbl returns.
int open_or_enlarge(Fd &fd, const WantedList &wanted, const Image &image, Tbl **tbl)
{
    if (wanted.comment && !has_comment(fd.get(), image, wanted.comment))
        return -2;
    ListPtr old(map_list(fd, wanted.path, image, true));
    if (old && old->nalloc - old->left < wanted.slots) {
        if (!good_size(wanted.size))
            return -1;
        const ListPtr larger(empty_list(wanted));
        if (cattbl(larger.get(), old.get()) != 0)
            return -1;
        old.reset(replace_file(wanted, larger.get(), std::move(old)));
        if (!old)
            elog_die(0, "Couldn't extend list %s", wanted.path);
    }
    *tbl = old.release();
    return *tbl ? 0 : -1;
}

// Makes a file that was missing: it gets its name when it is whole. A new list is empty, so
// nothing waits for the disk. When another process has made the file meanwhile, filetbl starts
// again with that file.
int make_file(const WantedList &wanted, const Tbl *list, Tbl **tbl)
{
    if (make_pathdirs(wanted.path) != 0)
        return -1;
    bool is_made = false;
    {
        Replacing how;
        how.synced = false;
        how.give_name = stock::rename_new;
        ReplacedFile file(how);
        if (!file.open(wanted.path)) {
            log_refusal(wanted.path);
            return -1;
        }
        is_made = !file.is_new();
        if (!is_made && write_new(list, file, wanted.path, wanted.comment) != 0)
            return -1;
        if (!is_made && file.put_in_place()) {
            Fd fd(file.release_fd());
            Image image;
            *tbl = open_list(fd, wanted.path, true, &image);
            if (!*tbl)
                unlink(file.file());
            return *tbl ? 0 : -1;
        }
        is_made = is_made || errno == EEXIST;
        if (!is_made)
            elog_log(1, "Can't rename %s to %s.\n", file.beside(), file.file());
    }
    return is_made ? filetbl(wanted.path, wanted.comment, wanted.slots, wanted.null_value,
                             wanted.size, tbl)
                   : -1;
}

// Renames a file to its name with "~" appended, or the first of "~2", "~3" ... that is free.
// Returns the new name; null, with the reason logged, on failure.
Owned<char> rename_aside(const char *file, int fd)
{
    for (int n = 1;; ++n) {
        char ending[16] = "~";
        if (n > 1)
            std::snprintf(ending, sizeof ending, "~%d", n);
        char name[PATH_MAX];
        const bool fits = stock::name_beside(file, ending, fd, name);
        if (fits && stock::rename_new(file, name))
            return Owned<char>(stock::copy_text(name, "name"));
        if (!fits || errno != EEXIST) {
            elog_log(1, "Can't rename %s to %s.\n", file, name);
            return nullptr;
        }
    }
}

// Renames a file that is no usable list and makes a list under its name. When that fails the
// file gets its name back.
int replace_unusable(const Fd &fd, const WantedList &wanted, const Tbl *list, Tbl **tbl)
{
    struct stat status;
    const bool known = refstat(fd.get(), &status) == 0;
    const Owned<char> file = resolve_link(wanted.path);
    const Owned<char> aside = rename_aside(file.get(), fd.get());
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

int writetbl(const Tbl *tbl, FILE *stream, const char *comment)
{
    const stock::FileSizeSignalBlocked blocked;
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
    struct stat status;
    if (restat(path, &status) != 0 && make_pathdirs(path) != 0)
        return -1;
    for (int tries = 0;; ++tries) {
        const Fd old(stock::beyond_standard(
            stock::uninterrupted([&] { return open(path, O_RDWR | O_CLOEXEC); })));
        Replacing how;
        how.open_fd = old.get();
        how.give_name = old.get() < 0 ? stock::rename_new : nullptr;
        ReplacedFile file(how);
        if (!may_replace(tbl, path, old) || !file.open(path)) {
            elog_log(1, "Can't open %s to write tbl.\n", path);
            return -1;
        }
        if (write_new(tbl, file, path, comment) != 0)
            return -1;
        if (file.put_in_place()) {
            file.tell_if_unguarded();
            return 0;
        }
        // Somebody has made the file meanwhile, who may be a writer.
        if (old.get() < 0 && errno == EEXIST && tries < kMostTries)
            continue;
        log_damage(file);
        elog_log(1, "Errors while writing tbl to %s.\n", path);
        return -1;
    }
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
        *comment = tbl && image.comment_bytes > 0 ? static_cast<char *>(tbl->mapaddr) + kHeaderBytes
                                                  : nullptr;
    return tbl;
}

int filetbl(const char *path, const char *comment, int64_t slots, const void *null_value, int size,
            Tbl **tbl)
{
    *tbl = nullptr;
    const WantedList wanted{path, comment, std::max<int64_t>(slots, 0), null_value, size};
    Image image;
    Fd fd(open_file(path, true));
    if (fd.get() < 0 && errno != ENOENT) {
        log_refusal(path);
        return -1;
    }
    const Finding found = fd.get() < 0 ? Finding{Content::missing} : read_image(fd.get(), &image);
    if (found.content == Content::list)
        return open_or_enlarge(fd, wanted, image, tbl);
    if (found.content == Content::unusable || found.content == Content::unknown)
        log_finding(found, path);
    if (found.content == Content::unknown || !good_size(size))
        return -1;
    const ListPtr list(empty_list(wanted));
    if (found.content == Content::missing)
        return make_file(wanted, list.get(), tbl);
    if (found.content == Content::unusable)
        return replace_unusable(fd, wanted, list.get(), tbl);
    *tbl = fill_file(fd, path, comment, list.get());
    return *tbl ? 0 : -1;
}
