// Replacing a file as a whole.
//
// The order makes it safe: the new bytes are on the disk before the file's name leads to them,
// and the directory is written last. A file with several hard links cannot be renamed over;
// before its own bytes change, its old and its new bytes lie beside it, on the disk, and stay
// until it is whole. For a file NAME there are, with a number from 000 on for each writer:
//
//     NAME.stk000    the new bytes; locked by its writer for as long as that lives
//     NAME.cpy000    the old bytes, while they are copied
//     NAME.old000    the old bytes, whole
//
// Files without a lock are left from a killed process.
//
// The tool is built with this file too: it uses what the library shows to everybody, and
// headers.

#include "files/durable.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "base/descriptor.h"
#include "base/file_size_signal.h"
#include "base/uninterrupted.h"
#include "deviants/attributes.h"
#include "stock/elog.h"

namespace {

using stock::beyond_standard;
using stock::Fd;
using stock::KeepErrno;
using stock::uninterrupted;
using Path = char[PATH_MAX];

constexpr int kMostLinks = 40;      // in a row, as the system has it
constexpr int kMostWriters = 1000;  // of one file at the same time
constexpr int kMostGaps = 3;        // numbers without a file behind which no file is looked for
constexpr mode_t kPrivate = 0600;   // until the new file has the attributes of the old one

// ---- Names ----

bool copy_path(std::string_view path, Path &to)
{
    if (path.size() >= sizeof(Path)) {
        errno = ENAMETOOLONG;
        return false;
    }
    to[path.copy(to, path.size())] = '\0';
    return true;
}

// Where the name begins in the path.
std::size_t name_at(std::string_view path)
{
    const std::size_t slash = path.rfind('/');
    return slash == path.npos ? 0 : slash + 1;
}

// Whether the path names an open file of a process, which has no directory of its own.
bool names_open_file(std::string_view path)
{
    return path.starts_with("/proc/") || path.starts_with("/dev/fd/");
}

// Follows the symbolic links at the end of the path, whether there is a file or not. Stops at
// the name of an open file. False with errno.
bool follow_links(const char *path, Path &file)
{
    if (!copy_path(path, file))
        return false;
    for (int links = 0; !names_open_file(file); ++links) {
        Path target;
        const ssize_t length = ::readlink(file, target, sizeof target);
        if (length < 0)
            return errno == EINVAL || errno == ENOENT;
        if (links == kMostLinks) {
            errno = ELOOP;
            return false;
        }
        const std::string_view text(target, static_cast<std::size_t>(length));
        const std::size_t kept = text.starts_with('/') ? 0 : name_at(file);
        if (kept + text.size() >= sizeof file) {
            errno = ENAMETOOLONG;
            return false;
        }
        file[kept + text.copy(file + kept, text.size())] = '\0';
    }
    return true;
}

// Where to cut a longer UTF-8 name so that at most n bytes and no part of a character are
// left; n when the bytes there are not UTF-8.
std::size_t character_boundary(const char *name, std::size_t n)
{
    constexpr std::size_t kMostFollowing = 3;  // bytes of a character after its first
    std::size_t end = n;
    while (end > 1 && n - end < kMostFollowing && (name[end] & 0xC0) == 0x80)
        --end;
    return (name[end] & 0xC0) == 0x80 ? n : end;
}

// The names that belong together: ".stk" and "007" or, with an ending of its own, "+" and
// ".cpy+". `kind` is "stk", "cpy" or "old".
bool name_of(const char *file, const char *kind, const char *ending, int fd, Path &name)
{
    const bool numbered = std::strncmp(ending, ".stk", 4) == 0;
    const char *own = numbered ? ending + 4 : ending;
    char whole[32];
    std::snprintf(whole, sizeof whole, ".%s%s", kind, own);
    return stock::name_beside(file, !numbered && std::strcmp(kind, "stk") == 0 ? own : whole, fd,
                              name);
}

// ---- The disk ----

bool is_same(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool leads_to(const char *name, int fd)
{
    struct stat named, opened;
    return ::lstat(name, &named) == 0 && ::fstat(fd, &opened) == 0 && is_same(named, opened);
}

// Not every file and directory can be written to the disk when it is asked for.
bool cannot_sync(int error)
{
    return error == EINVAL || error == ENOTSUP || error == ENOSYS;
}

bool sync_file(int fd)
{
    return uninterrupted([=] { return ::fsync(fd); }) == 0 || cannot_sync(errno);
}

// A directory that this user may not read is no failure.
bool sync_directory(std::string_view file)
{
    Path directory;
    if (!copy_path(name_at(file) ? file.substr(0, name_at(file)) : ".", directory))
        return false;
    const Fd fd(beyond_standard(
        uninterrupted([&] { return ::open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC); })));
    return fd.get() < 0 ? errno == EACCES || errno == EPERM : sync_file(fd.get());
}

// Reads n bytes, or those up to the end of the file; -1 with errno.
ssize_t read_at(int fd, char *to, std::size_t n, off_t at)
{
    std::size_t done = 0;
    while (done < n) {
        const ssize_t got = uninterrupted(
            [&] { return ::pread(fd, to + done, n - done, at + static_cast<off_t>(done)); });
        if (got < 0)
            return -1;
        if (got == 0)
            break;
        done += static_cast<std::size_t>(got);
    }
    return static_cast<ssize_t>(done);
}

bool write_at(int fd, const char *bytes, std::size_t n, off_t at)
{
    std::size_t done = 0;
    while (done < n) {
        const ssize_t put = uninterrupted(
            [&] { return ::pwrite(fd, bytes + done, n - done, at + static_cast<off_t>(done)); });
        if (put <= 0) {
            errno = put == 0 ? ENOSPC : errno;
            return false;
        }
        done += static_cast<std::size_t>(put);
    }
    return true;
}

bool copy_bytes(int from, int to, off_t at, off_t end)
{
    char bytes[8192];
    while (at < end) {
        const auto wanted = std::min<off_t>(end - at, sizeof bytes);
        const ssize_t got = read_at(from, bytes, static_cast<std::size_t>(wanted), at);
        if (got >= 0 && got < wanted)
            errno = EIO;  // somebody has cut the file
        if (got < wanted || !write_at(to, bytes, static_cast<std::size_t>(got), at))
            return false;
        at += got;
    }
    return true;
}

// Gives the file the bytes of another one, and writes it to the disk. What lies behind its old
// end is written first, because only for that the disk may lack room.
bool write_over(int to, int from)
{
    const stock::FileSizeSignalBlocked blocked;
    struct stat source, target;
    if (::fstat(from, &source) != 0 || ::fstat(to, &target) != 0)
        return false;
    const off_t both = std::min(source.st_size, target.st_size);
    return copy_bytes(from, to, both, source.st_size) && copy_bytes(from, to, 0, both) &&
           uninterrupted([&] { return ::ftruncate(to, source.st_size); }) == 0 && sync_file(to);
}

// ---- What killed processes left ----

// Whether the first file is neither the second nor the third, but each of its bytes is that of
// one of them. Behind the old bytes a zero may stand for one that was not written.
bool is_mixture(int file, int old_bytes, int new_bytes)
{
    bool is_old = true, is_new = true;
    for (off_t at = 0;;) {
        char bytes[3][4096];
        const int fds[] = {file, old_bytes, new_bytes};
        ssize_t got[3];
        for (int i = 0; i < 3; ++i)
            if ((got[i] = read_at(fds[i], bytes[i], sizeof bytes[i], at)) < 0)
                return false;
        is_old = is_old && got[0] == got[1] &&
                 std::memcmp(bytes[0], bytes[1], static_cast<std::size_t>(got[0])) == 0;
        is_new = is_new && got[0] == got[2] &&
                 std::memcmp(bytes[0], bytes[2], static_cast<std::size_t>(got[0])) == 0;
        for (ssize_t i = 0; i < got[0]; ++i)
            if (!(i < got[1] && bytes[0][i] == bytes[1][i]) &&
                !(i < got[2] && (bytes[0][i] == bytes[2][i] || (i >= got[1] && !bytes[0][i]))))
                return false;
        if (got[0] == 0)
            return !is_old && !is_new;
        at += got[0];
    }
}

// Opens what a process has left beside a file; -1 when there is none, or it is not this user's.
int open_left(const char *name)
{
    Fd fd(beyond_standard(uninterrupted(
        [=] { return ::open(name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); })));
    struct stat status;
    const bool ours = fd.get() >= 0 && ::fstat(fd.get(), &status) == 0 && S_ISREG(status.st_mode) &&
                      status.st_uid == ::geteuid();
    if (fd.get() >= 0 && !ours)
        errno = EPERM;
    return ours ? fd.release() : -1;
}

// Brings the old bytes back when the file is a mixture of those and the new ones. False when it
// should have them and cannot.
bool bring_back(const char *file, int open_fd, const char *old_name, int new_bytes)
{
    const Fd old_bytes(open_left(old_name));
    if (old_bytes.get() < 0)
        return true;
    const Fd opened(open_fd >= 0 ? -1 : beyond_standard(uninterrupted([=] {
        return ::open(file, O_RDWR | O_CLOEXEC);
    })));
    const int fd = open_fd >= 0 ? open_fd : opened.get();
    return fd < 0 || !is_mixture(fd, old_bytes.get(), new_bytes) || write_over(fd, old_bytes.get());
}

// Deals with what was left under the names with this ending, beside a file that may be open.
// Returns whether there was anything, if only of a process that lives.
bool clear_left(const char *file, const char *ending, int open_fd, bool locked)
{
    Path name;
    if (!name_of(file, "stk", ending, open_fd, name))
        return false;
    const Fd fd(open_left(name));
    if (fd.get() < 0)
        return errno != ENOENT;
    if (locked && (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0 || !leads_to(name, fd.get())))
        return true;
    Path other;
    if (!name_of(file, "old", ending, open_fd, other) ||
        !bring_back(file, open_fd, other, fd.get()))
        return true;
    const bool gone = ::unlink(other) == 0 || errno == ENOENT;
    if (gone && name_of(file, "cpy", ending, open_fd, other) &&
        (::unlink(other) == 0 || errno == ENOENT))
        ::unlink(name);
    return true;
}

void number_ending(char (&ending)[16], int number)
{
    std::snprintf(ending, sizeof ending, ".stk%03d", number);
}

// The same for all numbers that are likely.
void clear_all_left(const char *file, int open_fd)
{
    const KeepErrno keep;
    char ending[16];
    int gaps = 0;
    for (int number = 0; number < kMostWriters && gaps < kMostGaps; ++number) {
        number_ending(ending, number);
        gaps = clear_left(file, ending, open_fd, true) ? 0 : gaps + 1;
    }
}

int make_new(const char *name, mode_t mode)
{
    return beyond_standard(uninterrupted(
        [=] { return ::open(name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode); }));
}

}  // namespace

namespace stock {

bool name_beside(const char *file, const char *ending, int fd, char (&name)[PATH_MAX])
{
    const long most = fd < 0 ? 0 : ::fpathconf(fd, _PC_NAME_MAX);
    const std::size_t directory = name_at(file);
    const std::size_t room =
        (most > 0 ? static_cast<std::size_t>(most) : NAME_MAX) - std::strlen(ending);
    const std::size_t whole = std::strlen(file + directory);
    const std::size_t kept = whole > room ? character_boundary(file + directory, room) : whole;
    const int length = std::snprintf(name, sizeof name, "%.*s%s",
                                     static_cast<int>(directory + kept), file, ending);
    if (length >= 0 && static_cast<std::size_t>(length) < sizeof name)
        return true;
    errno = ENAMETOOLONG;
    return false;
}

void mend_file(const char *path, const char *ending, int open_fd)
{
    const KeepErrno keep;
    Path file, old_bytes;
    struct stat status;
    if (!follow_links(path, file) || names_open_file(file))
        return;
    if (!ending)
        clear_all_left(file, open_fd);
    else if (name_of(file, "old", ending, open_fd, old_bytes) && ::lstat(old_bytes, &status) == 0)
        clear_left(file, ending, open_fd, false);
}

void log_lost(const char *what, const char *path)
{
    elog_log(1, "Can't keep %s of %s.\n", what, path);
}

FILE *stream_on(int fd)
{
    Fd copy(::fcntl(fd, F_DUPFD_CLOEXEC, 3));
    FILE *stream = copy.get() < 0 ? nullptr : ::fdopen(copy.get(), "w+");
    if (stream)
        copy.release();
    return stream;
}

void log_damage(const ReplacedFile &file)
{
    const KeepErrno keep;
    if (file.is_damaged() && file.is_unguarded())
        elog_log(0, "%s could not be given its old bytes back: it is damaged.\n", file.file());
    else if (file.is_damaged())
        elog_log(0, "%s could not be given its old bytes back: they are kept beside %s.\n",
                 file.file(), file.beside());
}

ReplacedFile::~ReplacedFile()
{
    const KeepErrno keep;
    remove_beside();
    if (fd_ >= 0)
        ::close(fd_);
    if (closes_old_)
        ::close(old_fd_);
}

// The locked name goes last, because by it the next writer finds the others.
void ReplacedFile::remove_beside()
{
    if (!std::exchange(is_beside_, false) || is_damaged_)
        return;
    if (way_ == Way::linked) {
        for (const char *kind : {"cpy", "old"}) {
            Path name;
            if (name_of(file_, kind, ending_, old_fd_, name) && ::unlink(name) != 0 &&
                errno != ENOENT)
                return;
        }
    }
    ::unlink(beside_);
}

FILE *ReplacedFile::stream() const
{
    return stream_on(fd_);
}

void ReplacedFile::tell_if_unguarded() const
{
    if (is_unguarded())
        elog_notify(0, "%s was written in place, without a copy beside it.\n", file_);
}

int ReplacedFile::release_fd()
{
    return std::exchange(fd_, -1);
}

bool ReplacedFile::open(const char *path)
{
    if (!follow_links(path, file_) || !open_old())
        return false;
    if (way_ == Way::directly)
        return true;
    return open_new();
}

// Whether the file is open as standard output or standard error.
static bool is_standard(const struct stat &status)
{
    struct stat standard;
    return (::fstat(STDOUT_FILENO, &standard) == 0 && is_same(standard, status)) ||
           (::fstat(STDERR_FILENO, &standard) == 0 && is_same(standard, status));
}

// For a file that may not be written, but replaced.
bool ReplacedFile::look_at_old()
{
    const int error = errno;
    old_fd_ = beyond_standard(
        uninterrupted([this] { return ::open(file_, O_RDONLY | O_NONBLOCK | O_CLOEXEC); }));
    closes_old_ = old_fd_ >= 0;
    may_write_ = false;
    const bool known = closes_old_ ? ::fstat(old_fd_, &status_) == 0
                                   : wanted_.only_beside && ::stat(file_, &status_) == 0;
    if (known && !S_ISREG(status_.st_mode) && wanted_.only_beside) {
        way_ = Way::directly;
        return true;
    }
    errno = error;
    return known && S_ISREG(status_.st_mode) && status_.st_nlink == 1;
}

bool ReplacedFile::open_old()
{
    old_fd_ = wanted_.open_fd;
    if (old_fd_ < 0) {
        old_fd_ =
            beyond_standard(uninterrupted([this] { return ::open(file_, O_RDWR | O_CLOEXEC); }));
        closes_old_ = old_fd_ >= 0;
        is_new_ = old_fd_ < 0 && errno == ENOENT;
        if (old_fd_ < 0)
            return is_new_ ||
                   ((wanted_.only_beside || wanted_.replaces_read_only) && look_at_old());
    }
    if (::fstat(old_fd_, &status_) != 0)
        return false;
    if (wanted_.open_fd >= 0 && !leads_to(file_, old_fd_))
        status_.st_nlink = 1;  // what has the name now is another file, which is replaced
    if (S_ISREG(status_.st_mode) && !names_open_file(file_) &&
        (wanted_.only_beside || !is_standard(status_)))
        return true;
    way_ = Way::directly;
    fd_ = ::fcntl(old_fd_, F_DUPFD_CLOEXEC, 3);
    return fd_ >= 0 && (!S_ISREG(status_.st_mode) ||
                        uninterrupted([this] { return ::ftruncate(fd_, 0); }) == 0);
}

// Makes the file beside and locks it, so that others see that its writer lives. Where the file
// system has no locks, what a process left stays.
bool ReplacedFile::make_beside()
{
    const mode_t mode = is_new_ ? wanted_.mode : kPrivate;
    if (wanted_.ending) {
        std::snprintf(ending_, sizeof ending_, "%s", wanted_.ending);
        if (!name_beside(file_, ending_, old_fd_, beside_))
            return false;
        fd_ = make_new(beside_, mode);
        if (fd_ < 0 && errno == EEXIST && ::unlink(beside_) == 0)
            fd_ = make_new(beside_, mode);
        return fd_ >= 0;
    }
    clear_all_left(file_, old_fd_);
    for (int number = 0; number < kMostWriters; ++number) {
        number_ending(ending_, number);
        if (!name_beside(file_, ending_, old_fd_, beside_))
            return false;
        Fd fd(make_new(beside_, mode));
        if (fd.get() < 0 && errno != EEXIST)
            return false;
        // Before this writer has its lock, another may take the file for one that was left.
        if (fd.get() >= 0 && (::flock(fd.get(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) &&
            leads_to(beside_, fd.get())) {
            fd_ = fd.release();
            return true;
        }
    }
    errno = EEXIST;
    return false;
}

// Whether the new file would belong to another user than the old one.
bool ReplacedFile::is_of_other_owner() const
{
    struct stat status;
    return way_ == Way::beside && !is_new_ && ::fstat(fd_, &status) == 0 &&
           status.st_uid != status_.st_uid &&
           ::fchown(fd_, status_.st_uid, static_cast<gid_t>(-1)) != 0;
}

bool ReplacedFile::open_new()
{
    if (!is_new_ && status_.st_nlink > 1)
        way_ = Way::linked;
    is_beside_ = make_beside();
    const bool may = !is_new_ && !wanted_.only_beside;
    if (!is_beside_)
        return may && may_write_ && (errno == EACCES || errno == EPERM || errno == EROFS) &&
               open_unnamed();
    if (!may || !is_of_other_owner())
        return true;
    remove_beside();
    ::close(release_fd());
    errno = EACCES;
    return may_write_ && open_unnamed();
}

// Makes a file without a name; -1 with errno.
static int open_unnamed_file()
{
    std::FILE *stream = std::tmpfile();
    if (!stream)
        return -1;
    const int fd = ::fcntl(fileno(stream), F_DUPFD_CLOEXEC, 3);
    const KeepErrno keep;
    std::fclose(stream);
    return fd;
}

bool ReplacedFile::open_unnamed()
{
    way_ = Way::in_place;
    fd_ = open_unnamed_file();
    return fd_ >= 0;
}

void ReplacedFile::lost(const char *what) const
{
    if (wanted_.lost)
        wanted_.lost(what, file_);
}

// In this order, because a new owner clears bits of the mode.
void ReplacedFile::keep_attributes()
{
    mode_t mode = status_.st_mode & 07777;
    if (::fchown(fd_, status_.st_uid, status_.st_gid) != 0 &&
        ::fchown(fd_, static_cast<uid_t>(-1), status_.st_gid) != 0) {
        // The file has another group. Its members get no more than everyone has, and the bits
        // that change who runs a file are dropped.
        lost("the group");
        mode &= 0707 | (mode & 07) << 3;
    }
    if (old_fd_ >= 0)
        copy_attributes(old_fd_, fd_, file_, wanted_.lost);
    if (::fchmod(fd_, mode) != 0)
        lost("the mode");
}

bool ReplacedFile::finish()
{
    if (way_ == Way::directly || way_ == Way::in_place)
        return true;
    if (way_ == Way::beside && !is_new_)
        keep_attributes();
    return !wanted_.synced || sync_file(fd_);
}

bool ReplacedFile::put_in_place()
{
    if (way_ == Way::directly)
        return is_in_place_ = true;
    if (way_ != Way::beside)
        return write_in_place();
    if (wanted_.give_name ? wanted_.give_name(beside_, file_) : std::rename(beside_, file_) == 0) {
        is_beside_ = false;
        is_in_place_ = true;
        return !wanted_.synced || sync_directory(file_);
    }
    // The file is mounted where it is, or may not lose its name.
    if (is_new_ || !may_write_ || wanted_.only_beside ||
        (errno != EBUSY && errno != EPERM && errno != EACCES))
        return false;
    way_ = Way::linked;
    return write_in_place();
}

// Copies the old bytes to where they are found again: beside the file or, where nothing can be
// made there, into a file without a name. -1 with errno.
int ReplacedFile::keep_old_bytes() const
{
    if (way_ == Way::in_place) {
        Fd copy(open_unnamed_file());
        const bool whole = copy.get() >= 0 && copy_bytes(old_fd_, copy.get(), 0, status_.st_size);
        return whole ? copy.release() : -1;
    }
    Path name, kept;
    if (!name_of(file_, "cpy", ending_, old_fd_, name) ||
        !name_of(file_, "old", ending_, old_fd_, kept))
        return -1;
    ::unlink(name);
    Fd copy(make_new(name, kPrivate));
    const bool whole = copy.get() >= 0 && copy_bytes(old_fd_, copy.get(), 0, status_.st_size) &&
                       sync_file(copy.get()) && std::rename(name, kept) == 0;
    return whole && sync_directory(file_) ? copy.release() : -1;
}

bool ReplacedFile::write_in_place()
{
    const FileSizeSignalBlocked blocked;
    if (::fstat(old_fd_, &status_) != 0)
        return false;
    const Fd copy(keep_old_bytes());
    if (copy.get() < 0)
        return false;
    is_in_place_ = write_over(old_fd_, fd_);
    const KeepErrno keep;
    is_damaged_ = !is_in_place_ && !write_over(old_fd_, copy.get());
    return is_in_place_;
}

}  // namespace stock
