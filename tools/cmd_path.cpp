// stock path: cleans path names, makes them absolute or relative, and splits them. Prints one
// result on each line.

#include <cstring>
#include <string_view>

#include "base/limits.h"
#include "command.h"
#include "stock.h"

namespace {

using stock::kPathSize;

// What became of a path.
enum Outcome {
    kComplete,    // the result is right
    kUnexamined,  // there is a result, but a component of the path could not be examined
    kNone         // there is no result
};

// result is what the library's function returned; has_path says whether its buffer holds a path.
Outcome outcome_of(int result, bool has_path)
{
    return !has_path ? kNone : result == 0 ? kComplete : kUnexamined;
}

// Calls make(path, buffer), which returns an Outcome, for each path. Prints the buffer, unless
// the outcome is kNone, and complains unless it is kComplete. Returns the exit status.
template <class Make>
int print_each(int count, char **paths, Make make)
{
    int status = kDone;
    for (int i = 0; i < count; ++i) {
        char path[kPathSize];
        const Outcome outcome = make(paths[i], path);
        if (outcome != kComplete)
            status = kFailed;
        if (outcome == kNone)
            elog_complain(0, "there is no such form of '%s'\n", paths[i]);
        else
            puts(path);
        if (outcome == kUnexamined)
            elog_complain(0, "not every component of '%s' can be examined\n", paths[i]);
    }
    return status;
}

int clean(int argc, char **argv)
{
    if (helped(argc, argv,
               "usage: stock path clean [--links] PATH...\n\n"
               "Prints each path without empty, '.' and '..' components and with '~' and\n"
               "'~user' replaced; --links also replaces symbolic links by what they name.\n"
               "The status is 1 when a component on the way could not be examined, and when\n"
               "the result is longer than 1023 bytes; it is not printed then.\n"))
        return kDone;
    const bool links = argc > 1 && !strcmp(argv[1], "--links");
    const int first = links ? 2 : 1;
    if (first >= argc)
        return wrong_usage("stock path clean", "which path?");
    return print_each(argc - first, argv + first, [=](const char *path, char *result) {
        const int cleaned = cleanpath(path, links ? CLEANPATH_LINKS : 0, result);
        return outcome_of(cleaned, *result != 0);
    });
}

int abs(int argc, char **argv)
{
    if (helped(argc, argv,
               "usage: stock path abs PATH...\n\n"
               "Prints each path absolute and clean; symbolic links are left alone.\n"
               "The status is 1 when a component on the way could not be examined, and when\n"
               "the result is longer than 1023 bytes or the current directory is unknown;\n"
               "it is not printed then.\n"))
        return kDone;
    if (argc < 2)
        return wrong_usage("stock path abs", "which path?");
    return print_each(argc - 1, argv + 1, [](const char *path, char *result) {
        const int absolute = abspath(path, result);
        // A path that abspath could not make absolute is still relative. "~name" of an
        // unknown user stays as it is and counts as a result.
        return outcome_of(absolute, *result == '/' || *result == '~');
    });
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
    if (*path)
        elog_complain(0, "'%s' is not a directory to start from\n", argv[1]);
    else
        elog_complain(0, "there is no way from '%s' to '%s'\n", argv[1], argv[2]);
    return kFailed;
}

void print_part(const char *name, std::string_view part)
{
    printf("%-9s ", name);
    fwrite(part.data(), 1, part.size(), stdout);
    putchar('\n');
}

// Splits the path as parsepath does, but prints parts of any length: parsepath refuses parts
// that do not fit its buffers.
void print_parts(std::string_view path)
{
    const size_t slash = path.rfind('/');
    const bool bare = slash == path.npos;
    std::string_view base = bare ? path : path.substr(slash + 1);
    const size_t dot = base.rfind('.');
    const bool ends = dot != base.npos && dot > 0;
    print_part("directory", bare ? "." : path.substr(0, slash));
    print_part("base", base.substr(0, ends ? dot : base.npos));
    print_part("suffix", ends ? base.substr(dot + 1) : "");
}

int split(int argc, char **argv)
{
    if (helped(argc, argv,
               "usage: stock path split PATH...\n\n"
               "Prints directory, base name and suffix of each path, each behind its name.\n"))
        return kDone;
    if (argc < 2)
        return wrong_usage("stock path split", "which path?");
    for (int i = 1; i < argc; ++i)
        print_parts(argv[i]);
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
