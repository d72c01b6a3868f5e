// The mount that holds a path, looked up in /proc/self/mountinfo.
//
// An open descriptor's entry under /proc/self/fdinfo gives the number of its
// mount, and the list of mounts has one line for each number:
//
//     36 35 98:0 /root /mnt rw,noatime master:1 - nfs server:/export rw
//
// Fields are parted by one blank each; a blank inside a field is written as a
// backslash and three octal digits. Any number of optional fields stands before
// the "-", the type and the source behind it.

#include "deviants/mount.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

#include <fcntl.h>
#include <sys/vfs.h>

#include "base/alloc.h"
#include "base/guards.h"
#include "base/uninterrupted.h"

namespace {

struct Close {
    void operator()(FILE *file) const
    {
        const stock::KeepErrno keep;
        std::fclose(file);
    }
};

// The lines of a file, one after the other.
class Lines {
public:
    explicit Lines(const char *path) : file_(std::fopen(path, "re")) {}

    explicit operator bool() const { return file_ != nullptr; }

    // The next line without its end.
    bool next(std::string_view &line)
    {
        char *text = text_.release();
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
    std::unique_ptr<FILE, Close> file_;
    stock::Owned<char> text_;
    std::size_t size_ = 0;
};

// Takes the first field off the line.
std::string_view take_field(std::string_view &line)
{
    const std::string_view field = line.substr(0, line.find(' '));
    line.remove_prefix(std::min(field.size() + 1, line.size()));
    return field;
}

bool is_octal(char c)
{
    return c >= '0' && c <= '7';
}

// Copies a field with its escapes undone; what does not fit is cut.
template <std::size_t size>
void copy_field(std::string_view field, char (&out)[size])
{
    std::size_t length = 0;
    while (!field.empty() && length < size - 1) {
        const bool escaped = field.size() > 3 && field[0] == '\\' && is_octal(field[1]) &&
                             is_octal(field[2]) && is_octal(field[3]);
        out[length++] =
            escaped
                ? static_cast<char>((field[1] - '0') * 64 + (field[2] - '0') * 8 + (field[3] - '0'))
                : field[0];
        field.remove_prefix(escaped ? 4 : 1);
    }
    out[length] = 0;
}

// The number of the mount that the descriptor's file is on, or -1.
long mount_number(int fd)
{
    constexpr std::string_view kName = "mnt_id:";
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/fdinfo/%d", fd);
    Lines lines(path);
    std::string_view line;
    while (lines && lines.next(line))
        if (line.starts_with(kName))
            return std::strtol(line.data() + kName.size(), nullptr, 10);
    return -1;
}

// Fills the mount from a line of the list when it has the number.
bool is_mount(std::string_view line, long number, stock::Mount &mount)
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

}  // namespace

bool stock::find_mount(const char *path, Mount &mount)
{
    // Asking for the numbers brings what is mounted on demand into place.
    struct statfs status;
    if (uninterrupted([&] { return statfs(path, &status); }) != 0)
        return false;
    const Fd fd(uninterrupted([=] { return open(path, O_PATH | O_CLOEXEC); }));
    if (fd.get() < 0)
        return false;
    const long number = mount_number(fd.get());
    Lines lines("/proc/self/mountinfo");
    if (!lines)
        return false;
    std::string_view line;
    while (lines.next(line))
        if (is_mount(line, number, mount))
            return true;
    errno = ENODEV;
    return false;
}
