// stock find: prints the files that a name may mean along the search path for data files.
//
// datasearch lists them twice: once only those that can be read, and once all that are to be
// printed. The first readable one is the file that programs use.

#include <cstdlib>
#include <cstring>

#include "command.h"
#include "stock.h"

namespace {

constexpr const char *kHelp =
    "usage: stock find [--path VARIABLE] [--dir SUBDIR] [--all] NAME\n\n"
    "Prints every file that NAME may mean, in the order of the search path, '*' before\n"
    "the one that is taken. The search path is the value of the environment variable\n"
    "VARIABLE when it is set, else DATAPATH, else the directory data of the\n"
    "installation root.\n\n"
    "  --path VARIABLE   where the search path is\n"
    "  --dir SUBDIR      look in this directory of each element\n"
    "  --all             also print, behind '-', what is not there or cannot be read\n\n"
    "A NAME that begins with - stands behind --. The status is 1 when there is no such\n"
    "file.\n";

struct Options {
    const char *variable;  // the environment variable with the search path, or null
    const char *subdir;    // or null
    const char *name;
    bool all;
};

// Reads the command line. Returns null, or the first word that is wrong.
const char *read_options(int argc, char **argv, Options &options)
{
    for (int i = 1; i < argc; ++i) {
        const bool more = i + 1 < argc;
        if (!strcmp(argv[i], "--all"))
            options.all = true;
        else if (!strcmp(argv[i], "--path") && more)
            options.variable = argv[++i];
        else if (!strcmp(argv[i], "--dir") && more)
            options.subdir = argv[++i];
        else if (!strcmp(argv[i], "--") && i + 2 == argc && !options.name)
            options.name = argv[++i];
        else if (argv[i][0] == '-' || options.name)
            return argv[i];
        else
            options.name = argv[i];
    }
    return nullptr;
}

bool is_in(Tbl *list, const char *path)
{
    for (int64_t i = 0; i < list->count; ++i)
        if (!strcmp(static_cast<const char *>(gettbl(list, i)), path))
            return true;
    return false;
}

}  // namespace

int cmd_find(int argc, char **argv)
{
    if (helped(argc, argv, kHelp))
        return kDone;
    Options options = {};
    if (const char *wrong = read_options(argc, argv, options))
        return wrong_usage("stock find", "what is '%s'?", wrong);
    if (!options.name || !*options.name)
        return wrong_usage("stock find", "which file?");

    const char *paths = options.variable ? getenv(options.variable) : nullptr;
    Tbl *readable = datasearch(paths, options.subdir, options.name, DATASEARCH_EXPAND);
    Tbl *listed = datasearch(paths, options.subdir, options.name,
                             DATASEARCH_EXPAND | (options.all ? DATASEARCH_ANY : 0));
    bool taken = false;
    for (int64_t i = 0; i < listed->count; ++i) {
        const auto *path = static_cast<const char *>(gettbl(listed, i));
        const bool there = is_in(readable, path);
        printf("%c %s\n", !there ? '-' : taken ? ' ' : '*', path);
        taken = taken || there;
    }
    freetbl(listed, free);
    freetbl(readable, free);
    if (taken)
        return kDone;
    elog_complain(0, "there is no file '%s' along the data path\n", options.name);
    return kFailed;
}
