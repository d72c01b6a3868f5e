// stock path: path names as text, one result a line.

#include <cstring>

#include "command.h"
#include "stock.h"

namespace {

constexpr size_t kPathSize = 1024;

// Prints what make(path, result) makes of each path.
template <class Make>
int print_each(int count, char **paths, Make make)
{
    int status = kDone;
    for (int i = 0; i < count; ++i) {
        char path[kPathSize];
        if (make(paths[i], path) != 0) {
            elog_complain(0, "not every component of '%s' can be examined\n", paths[i]);
            status = kFailed;
        }
        puts(path);
    }
    return status;
}

int clean(int argc, char **argv)
{
    if (helped(argc, argv,
               "usage: stock path clean [--links] PATH...\n\n"
               "Prints each path without empty, '.' and '..' components and with '~' and\n"
               "'~user' replaced; --links also replaces symbolic links by what they name.\n"
               "The status is 1 when a component on the way could not be examined.\n"))
        return kDone;
    const bool links = argc > 1 && !strcmp(argv[1], "--links");
    const int first = links ? 2 : 1;
    if (first >= argc)
        return wrong_usage("stock path clean", "which path?");
    return print_each(argc - first, argv + first, [=](const char *path, char *result) {
        return cleanpath(path, links ? CLEANPATH_LINKS : 0, result);
    });
}

int abs(int argc, char **argv)
{
    if (helped(argc, argv,
               "usage: stock path abs PATH...\n\n"
               "Prints each path absolute and clean; symbolic links are left alone.\n"
               "The status is 1 when a component on the way could not be examined.\n"))
        return kDone;
    if (argc < 2)
        return wrong_usage("stock path abs", "which path?");
    return print_each(argc - 1, argv + 1, abspath);
}

int rel(int argc, char **argv)
{
    if (helped(argc, argv,
               "usage: stock path rel FROM TO\n\n"
               "Prints the way from the directory FROM to the path TO. The status is 1\n"
               "when FROM is no directory that exists.\n"))
        return kDone;
    if (argc != 3)
        return wrong_usage("stock path rel", "from where to where?");
    char path[kPathSize];
    const int result = relpath(argv[1], argv[2], path);
    if (*path)
        puts(path);
    if (result == 0)
        return kDone;
    elog_complain(0, "'%s' is not a directory to start from\n", argv[1]);
    return kFailed;
}

int split(int argc, char **argv)
{
    if (helped(argc, argv,
               "usage: stock path split PATH...\n\n"
               "Prints directory, base name and suffix of each path, each behind its name.\n"))
        return kDone;
    if (argc < 2)
        return wrong_usage("stock path split", "which path?");
    for (int i = 1; i < argc; ++i) {
        char dir[kPathSize];
        char base[kPathSize];
        char suffix[kPathSize];
        parsepath(argv[i], dir, base, suffix);
        printf("directory %s\nbase      %s\nsuffix    %s\n", dir, base, suffix);
    }
    return kDone;
}

// clang-format off
constexpr Command kCommands[] = {
    {"abs", "PATH...", "print paths absolute", abs},
    {"clean", "[--links] PATH...", "print paths without detours", clean},
    {"rel", "FROM TO", "print the way from a directory to a path", rel},
    {"split", "PATH...", "print directory, base name and suffix", split},
    {},
};
// clang-format on

}  // namespace

int cmd_path(int argc, char **argv)
{
    return run_family("stock path", kCommands, argc, argv);
}
