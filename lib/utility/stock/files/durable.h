// Shared: replacing a file as a whole, so that a kill or a power failure leaves the old or the new
// one.

#pragma once

#include <climits>
#include <cstdio>

#include <sys/stat.h>
#include <sys/types.h>

namespace stock {

// Logs what of an old file the new one cannot have, such as "the group"; the reason is in errno.
void log_lost(const char *what, const char *path);

// What a user of ReplacedFile wants otherwise than usual.
struct Replacing {
    mode_t mode = 0666;            // of a file that is not there yet; the umask takes its bits
    const char *ending = nullptr;  // of the new file's name; null: one that is free
    int open_fd = -1;              // the old file, open for reading and writing; -1: it is opened
    bool only_beside = false;      // never write in place but for hard links: a file of another
                                   // user, or one that may not be opened, is replaced
    bool synced = true;            // false: only a kill is to leave a whole file
    // Gives the finished file its name; false with errno. Null: rename.
    bool (*give_name)(const char *from, const char *to) = nullptr;
    // Is told what the new file cannot have of the old one; null: nobody.
    void (*lost)(const char *what, const char *path) = log_lost;
    // Replace a file that may be read but not written too.
    bool replaces_read_only = false;
};

// Replaces a file. The new bytes are written to fd(), beside the old file or wherever they
// stay out of its way; finish() and put_in_place() make them the file. Until then, and when
// anything fails, the old file stays as it is, and what was written beside is removed at the
// end of the scope. What a killed process left beside is removed by the next that replaces
// the file.
//
// The new file has the owner, group, mode and extended attributes of the old one. A symbolic
// link stays and leads to the new file. A file is written in place
//   - when it has several hard links: meanwhile a copy of the old and the new bytes lies beside;
//   - when nothing can be made in its directory, or the new file would belong to another user.
// What is no regular file, and what is open as this process's standard output or error, is
// written directly.
//
// Nothing is allocated and nothing is reported: each step returns false and leaves errno.
class ReplacedFile {
public:
    explicit ReplacedFile(const Replacing &wanted) : wanted_(wanted) {}
    ~ReplacedFile();
    ReplacedFile(const ReplacedFile &) = delete;
    ReplacedFile &operator=(const ReplacedFile &) = delete;

    // Opens the old file, if there is one, for reading and writing, and the new one.
    bool open(const char *path);
    // Takes the attributes of the old file and writes the new one to the disk.
    bool finish();
    // Makes the new bytes those of the file. False also when only the directory could not be
    // written to the disk: then is_in_place() is true.
    bool put_in_place();

    // Where the new bytes go.
    int fd() const { return fd_; }
    // The same descriptor, which the caller closes. After put_in_place() it is the file, unless
    // in_place() is true.
    int release_fd();
    // A stream that writes to it, which the caller closes; null with errno.
    FILE *stream() const;
    // The path of the file itself, links followed; and of the new file beside it.
    const char *file() const { return file_; }
    const char *beside() const { return beside_; }
    // Whether the bytes go to the old file itself, at once or when they are whole.
    bool is_direct() const { return way_ == Way::directly; }
    bool is_written_in_place() const { return way_ == Way::in_place || way_ == Way::linked; }
    // Whether that is for want of rights in its directory.
    bool is_unguarded() const { return way_ == Way::in_place; }
    bool is_in_place() const { return is_in_place_; }
    // Whether there was no file when it was opened.
    bool is_new() const { return is_new_; }
    // Notifies that the file was written in place for want of rights, when it was.
    void tell_if_unguarded() const;
    // Whether the old bytes could not be brought back when writing in place failed.
    bool is_damaged() const { return is_damaged_; }

private:
    enum class Way {
        beside,    // written beside and renamed
        linked,    // has hard links: written beside, then copied over the file
        in_place,  // written to a file without a name, then copied over the file
        directly,  // written to the file itself
    };

    bool open_old();
    bool look_at_old();
    bool open_new();
    bool make_beside();
    bool is_of_other_owner() const;
    bool open_unnamed();
    void keep_attributes();
    void lost(const char *what) const;
    int keep_old_bytes() const;
    bool write_in_place();
    void remove_beside();

    Replacing wanted_;
    Way way_ = Way::beside;
    int old_fd_ = -1;
    bool closes_old_ = false;  // else it is the caller's
    int fd_ = -1;
    struct stat status_ {};  // of the old file
    bool is_new_ = false;    // there is no old file
    bool may_write_ = true;  // the old file may be written in place
    bool is_in_place_ = false;
    bool is_damaged_ = false;
    char file_[PATH_MAX] = "";
    char beside_[PATH_MAX] = "";
    char ending_[16] = "";    // of beside_
    bool is_beside_ = false;  // the new file has that name
};

// Removes what killed processes left beside a file. When one was killed while it wrote a file
// with several hard links in place, and the file is still the mixture of old and new bytes that
// it left, the file gets the old bytes back. For who reads a file before replacing it; the
// ending as in Replacing; the file may be open for reading and writing.
void mend_file(const char *path, const char *ending = nullptr, int open_fd = -1);

// A stream that writes to a copy of the descriptor; null with errno.
FILE *stream_on(int fd);

// Logs that the file was left damaged, and where its old bytes are, when it was; errno stays.
void log_damage(const ReplacedFile &file);

// The file's path with the ending appended. When the file system of the open file, or of most
// files when that is negative, allows no such long name, the name is cut before the ending.
// False with errno when the path is too long.
bool name_beside(const char *file, const char *ending, int fd, char (&name)[PATH_MAX]);

}  // namespace stock
