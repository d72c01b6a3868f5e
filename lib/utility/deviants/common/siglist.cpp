// Siglist: the names of the signals, with the numbers that the system gives them. INFO and EMT
// are not on every system. The first row with a number names it.

#include "deviants.h"

#include <csignal>
#include <iterator>

// clang-format off
const Signame Siglist[] = {
    {"HUP", SIGHUP},
    {"KILL", SIGKILL},
    {"STOP", SIGSTOP},
    {"IO", SIGIO},
#ifdef SIGINFO
    {"INFO", SIGINFO},
#endif
#ifdef SIGEMT
    {"EMT", SIGEMT},
#endif
    {"INT", SIGINT},
    {"QUIT", SIGQUIT},
    {"ILL", SIGILL},
    {"TRAP", SIGTRAP},
    {"IOT", SIGIOT},    // before ABRT: signal 6 is IOT
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
