// find_mount: the mount of a path, looked up by its number in /proc/self/mountinfo.
//
// The entry of an open descriptor under /proc/self/fdinfo gives the number of its mount. The
// list of mounts has one line for each number, fields separated by one blank:
//
//     36 35 98:0 /root /mnt rw,noatime master:1 - nfs server:/export rw
//
// Any number of optional fields precede the "-"; the type and the source follow it. A blank in a
// field is written as a backslash and three octal digits.

#include "deviants/mount.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#include <sys/vfs.h>

#include "base/alloc.h"
#include "base/ascii.h"
#include "base/descriptor.h"
#include "base/fixed_text.h"
#include "base/guards.h"
#include "base/uninterrupted.h"

namespace {

// Reads a file line by line.
class LineReader {
public:
    explicit LineReader(const char *path) : file_(stock::open_to_read(path)) {}

    explicit operator bool() const { return file_ != nullptr; }

    // Sets `line` to the next line without its newline, valid until the next call. False at the
    // end, with errno 0, and when the file cannot be read.
    bool next(std::string_view &line)
    {
        char *text = text_.release();
        errno = 0;
        const ssize_t length = getline(&text, &size_, file_.get());
        text_.reset(text);
        if (length <= 0)
            return false;
        line = {text, static_cast<std::size_t>(length)};
        if (line.ends_with('\n'))
            line.remove_suffix(1);
        return true;
    }

private:
    stock::OwnedStream file_;
    stock::Owned<char> text_;
    std::size_t size_ = 0;
};

// Removes the first field from the line and gives it.
std::string_view take_field(std::string_view &line)
{
    const std::string_view field = line.substr(0, line.find(' '));
    line.remove_prefix(std::min(field.size() + 1, line.size()));
    return field;
}

// Whether the field begins with a backslash and three octal digits.
bool is_escaped(std::string_view field)
{
    return field.size() > 3 && field[0] == '\\' && stock::is_octal_digit(field[1]) &&
           stock::is_octal_digit(field[2]) && stock::is_octal_digit(field[3]);
}

// Copies a field with its escapes replaced; what does not fit is cut.
template <std::size_t size>
void copy_field(std::string_view field, char (&out)[size])
{
    stock::FixedText text(out, size);
    while (!field.empty()) {
        const bool escaped = is_escaped(field);
        text.add(escaped ? static_cast<char>((field[1] - '0') * 64 + (field[2] - '0') * 8 +
                                             (field[3] - '0'))
                         : field[0]);
        field.remove_prefix(escaped ? 4 : 1);
    }
    text.c_str();
}

// The number of the mount that the descriptor's file is on; -1 with errno, which is 0 when there
// is none.
long mount_number(int fd)
{
    constexpr std::string_view kName = "mnt_id:";
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/fdinfo/%d", fd);
    LineReader lines(path);
    std::string_view line;
    while (lines && lines.next(line))
        if (line.starts_with(kName))
            return std::strtol(line.data() + kName.size(), nullptr, 10);
    return -1;
}

// Fills the mount from a line of the list when the line has the number.
bool read_mount(std::string_view line, long number, stock::Mount &mount)
{
    if (std::strtol(line.data(), nullptr, 10) != number)
        return false;
    while (take_field(line) != "-")
        if (line.empty())
            return false;
    copy_field(take_field(line), mount.type);
    copy_field(take_field(line), mount.source);
    return true;
}

// False, with the errno of what failed, or else ENODEV.
bool no_mount()
{
    if (errno == 0)
        errno = ENODEV;
    return false;
}

}  // namespace

bool stock::find_mount(const char *path, Mount &mount)
{
    // An automounter mounts what the path needs when it is asked for the numbers; opening with
    // O_PATH alone does not.
    struct statfs status;
    if (uninterrupted([&] { return statfs(path, &status); }) != 0)
        return false;
    const Fd fd(beyond_standard(uninterrupted([=] { return open(path, O_PATH | O_CLOEXEC); })));
    if (fd.get() < 0)
        return false;
    const long number = mount_number(fd.get());
    if (number < 0)
        return no_mount();
    LineReader lines("/proc/self/mountinfo");
    if (!lines)
        return false;
    std::string_view line;
    while (lines.next(line))
        if (read_mount(line, number, mount))
            return true;
    return no_mount();
}
