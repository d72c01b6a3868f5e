// stock pf: reading and printing parameter files.

#include <cstring>
#include <memory>

#include <fcntl.h>
#include <unistd.h>

#include "command.h"
#include "stock.h"

namespace {

struct FreePf {
    void operator()(Pf *pf) const { pffree(pf); }
};
using PfPtr = std::unique_ptr<Pf, FreePf>;

// Parses one file into the tree; "-" is standard input. The reasons of a failure
// are in the log.
bool parse_file(const char *path, Pf **pf)
{
    const bool is_stdin = !strcmp(path, "-");
    const int fd = is_stdin ? STDIN_FILENO : open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        elog_complain(1, "can't open parameter file '%s'", path);
        return false;
    }
    Pffilename = is_stdin ? "standard input" : path;
    const bool parsed = pfinfd(fd, pf) == 0;
    if (!parsed)
        elog_complain(0, "can't parse parameter file '%s'", path);
    if (!is_stdin)
        close(fd);
    return parsed;
}

void help_show()
{
    puts("usage: stock pf show FILE...\n"
         "\n"
         "Reads parameter files, one after the other, into one tree and prints it in\n"
         "the syntax of parameter files, indented, with the keys in order. What a later\n"
         "file gives replaces what an earlier one gave. The file - is standard input.\n"
         "\n"
         "Of a file with an error the part before the error is used. The exit status is\n"
         "1 when a file had one or could not be read.");
}

int show(int argc, char **argv)
{
    int first = 1;
    if (argc > 1 && is_help(argv[1])) {
        help_show();
        return kDone;
    }
    if (argc > 1 && !strcmp(argv[1], "--"))
        first = 2;
    else if (argc > 1 && argv[1][0] == '-' && argv[1][1])
        return wrong_usage("stock pf show", "no option '%s'", argv[1]);
    if (first >= argc)
        return wrong_usage("stock pf show", "which file?");

    Pf *tree = nullptr;
    int status = kDone;
    for (int i = first; i < argc; ++i)
        if (!parse_file(argv[i], &tree))
            status = kFailed;
    const PfPtr owner(tree);
    pfout(stdout, tree);
    return status;
}

// clang-format off
constexpr Command kCommands[] = {
    {"show", "FILE...", "print the tree that files give together", show},
    {},
};
// clang-format on

}  // namespace

int cmd_pf(int argc, char **argv)
{
    return run_family("stock pf", kCommands, argc, argv);
}
