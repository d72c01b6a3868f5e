// What Linux says of itself.

#include "system.h"

#include <cerrno>
#include <csignal>

#include <iterator>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "deviants.h"

// clang-format off
const Signame Siglist[] = {
    {"HUP", SIGHUP},
    {"KILL", SIGKILL},
    {"STOP", SIGSTOP},
    {"IO", SIGIO},
    {"INT", SIGINT},
    {"QUIT", SIGQUIT},
    {"ILL", SIGILL},
    {"TRAP", SIGTRAP},
    {"IOT", SIGIOT},    // before ABRT: names signal 6
    {"ABRT", SIGABRT},
    {"FPE", SIGFPE},
    {"BUS", SIGBUS},
    {"SEGV", SIGSEGV},
    {"SYS", SIGSYS},
    {"PIPE", SIGPIPE},
    {"ALRM", SIGALRM},
    {"TERM", SIGTERM},
    {"USR1", SIGUSR1},
    {"USR2", SIGUSR2},
    {"CHLD", SIGCHLD},
    {"WINCH", SIGWINCH},
    {"URG", SIGURG},
    {"TSTP", SIGTSTP},
    {"CONT", SIGCONT},
    {"TTIN", SIGTTIN},
    {"TTOU", SIGTTOU},
    {"VTALRM", SIGVTALRM},
    {"PROF", SIGPROF},
    {"XCPU", SIGXCPU},
    {"XFSZ", SIGXFSZ},
};
// clang-format on
const int Nsig = std::size(Siglist);

namespace stock {

const char *const kLibraryEnding = ".so";

timespec modification_time(const struct stat &status)
{
    return status.st_mtim;
}

bool program_file(char *buffer, unsigned size)
{
    const ssize_t length = readlink("/proc/self/exe", buffer, size);
    if (length <= 0 || length == static_cast<ssize_t>(size))
        return false;
    buffer[length] = '\0';
    return true;
}

bool take_disk_space(int fd, std::int64_t end, std::int64_t bytes)
{
    do
        errno = posix_fallocate(fd, end, bytes);
    while (errno == EINTR);
    return errno == 0;
}

}  // namespace stock
