// The command-line tool of stock: its main function, the table of its commands, and the
// functions that choose a command from a table and print help.

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <unistd.h>

#include "command.h"
#include "stock.h"

namespace {

// clang-format off
constexpr Command kCommands[] = {
    {"complete", "WORD...", "print what the last word may become, for shells", cmd_complete},
    {"convert", "MEMBER", "turn packed numbers into lines and back", cmd_convert},
    {"dump", "[FILE]", "print bytes in hexadecimal and as text", cmd_dump},
    {"find", "[OPTION...] NAME", "find a data file along the data path", cmd_find},
    {"fs", "PATH", "tell where a file system comes from and its room", cmd_fs},
    {"log", "[OPTION...] MESSAGE...", "report a message as programs do", cmd_log},
    {"path", "COMMAND ...", "make path names absolute or clean, and split them", cmd_path},
    {"pf", "COMMAND ...", "read and print parameter files", cmd_pf},
    {"root", "", "print the installation root", cmd_root},
    {"signals", "[NAME|NUMBER]...", "list the signals", cmd_signals},
    {"state", "FILE", "print what a program keeps across restarts", cmd_state},
    {"tbl", "FILE", "print a list file", cmd_tbl},
    {"time", "[OPTION...] [STRING...]", "read times in any form and print them", cmd_time},
    {"undump", "[FILE]", "turn what dump printed back into bytes", cmd_undump},
    {},
};
// clang-format on

void print_help(FILE *stream, const char *family, const Command *commands)
{
    fprintf(stream, "usage: %s COMMAND [ARGUMENT...]\n\n", family);
    for (; commands->name; ++commands) {
        char usage[128];
        snprintf(usage, sizeof usage, "%s %s", commands->name, commands->arguments);
        fprintf(stream, "  %-28s %s\n", usage, commands->summary);
    }
    fprintf(stream, "\n'%s COMMAND --help' says more of each.\n", family);
}

bool is_help(const char *word)
{
    return !strcmp(word, "--help") || !strcmp(word, "-h");
}

// Opens those of 0, 1 and 2 that are closed, so that no file of the tool lies there. What is
// opened can be neither read nor written, as a closed descriptor.
void occupy_standard_descriptors()
{
    int fd = -1;
    do
        fd = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0)
        close(fd);
}

// A write beyond the file-size limit fails instead of ending the tool. Commands that the tool
// starts get the system's action again, because a handler does not outlive exec.
void survive_file_size_limit()
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    struct sigaction before = {};
    if (sigaction(SIGXFSZ, nullptr, &before) == 0 && before.sa_handler == SIG_DFL)
        sigaction(SIGXFSZ, &action, nullptr);
}

}  // namespace

// The tool's own memory runs out as the library's does: with its message and status 1. No
// std::bad_alloc is thrown.
void *operator new(std::size_t bytes)
{
    void *block = std::malloc(bytes > 0 ? bytes : 1);
    if (block)
        return block;
    errno = ENOMEM;
    elog_die(1, "Out of memory in %s at line %d of '%s'\n\tCan't malloc %lu bytes for %s\n",
             "operator new", __LINE__, "stock.cpp", static_cast<unsigned long>(bytes), "stock");
}
// For std::stable_sort and its like, which do without the memory that they do not get.
void *operator new(std::size_t bytes, const std::nothrow_t &) noexcept
{
    return std::malloc(bytes > 0 ? bytes : 1);
}
void operator delete(void *block) noexcept
{
    std::free(block);
}
void operator delete(void *block, std::size_t) noexcept
{
    std::free(block);
}

bool helped(int argc, char **argv, const char *help)
{
    if (argc < 2 || !is_help(argv[1]))
        return false;
    fputs(help, stdout);
    return true;
}

int wrong_usage(const char *command, const char *format, ...)
{
    char text[512];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    elog_complain(0, "%s: %s\n  try '%s --help'\n", command, text, command);
    return kUsage;
}

int run_family(const char *family, const Command *commands, int argc, char **argv)
{
    if (argc < 2)
        return wrong_usage(family, "which command?");
    if (is_help(argv[1])) {
        print_help(stdout, family, commands);
        return kDone;
    }
    for (const Command *command = commands; command->name; ++command)
        if (!strcmp(command->name, argv[1]))
            return command->run(argc - 1, argv + 1);
    return wrong_usage(family, "no command '%s'", argv[1]);
}

int run_tool(int argc, char **argv)
{
    return run_family("stock", kCommands, argc, argv);
}

int main(int argc, char **argv)
{
    occupy_standard_descriptors();
    survive_file_size_limit();
    elog_init(argc, argv);
    int status = kDone;
    if (argc == 2 && !strcmp(argv[1], "--version"))
        puts("stock " STOCK_VERSION);
    else
        status = run_tool(argc, argv);
    if (fflush(stdout) != 0 || ferror(stdout)) {
        elog_complain(1, "can't write to standard output");
        return kFailed;
    }
    return status;
}
