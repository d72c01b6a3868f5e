// What macOS says of itself.

#include "system.h"

#include <csignal>

#include <cstdint>
#include <iterator>

#include <fcntl.h>
#include <mach-o/dyld.h>
#include <sys/stat.h>

#include "deviants.h"

// clang-format off
const Signame Siglist[] = {
    {"HUP", SIGHUP},
    {"KILL", SIGKILL},
    {"STOP", SIGSTOP},
    {"IO", SIGIO},
    {"INFO", SIGINFO},
    {"EMT", SIGEMT},
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

const char *const kLibraryEnding = ".dylib";

timespec modification_time(const struct stat &status)
{
    return status.st_mtimespec;
}

bool program_file(char *buffer, unsigned size)
{
    uint32_t room = size;
    return _NSGetExecutablePath(buffer, &room) == 0;
}

bool take_disk_space(int fd, std::int64_t, std::int64_t bytes)
{
    fstore_t space = {F_ALLOCATEALL, F_PEOFPOSMODE, 0, bytes, 0};
    return fcntl(fd, F_PREALLOCATE, &space) != -1;
}

}  // namespace stock
