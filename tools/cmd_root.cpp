// stock root: prints the installation root and how it was found.

#include <cstdlib>
#include <cstring>

#include "base/limits.h"
#include "command.h"
#include "stock.h"

namespace {

// Read before main: elog_init finds the root and then sets TALUVINE in the environment.
const bool kGiven = getenv("TALUVINE") != nullptr;

// Tries the sources of the root in the order of gettaluvine and returns the one that has it.
const char *how_it_was_found(const char *root)
{
    char buffer[stock::kPathSize] = "";
    if (kGiven)
        return "the environment variable TALUVINE";
    if (!strcmp(root, Default_taluvinepath))
        return "the default root";
    if (from_exec(buffer) && !strcmp(root, buffer))
        return "the directory above the program's bin";
    return "the latest of the standard directories";
}

}  // namespace

int cmd_root(int argc, char **argv)
{
    if (helped(argc, argv,
               "usage: stock root\n\n"
               "Prints the installation root, and in a second line how it was found. The\n"
               "status is 1 when there is none.\n"))
        return kDone;
    if (argc != 1)
        return wrong_usage("stock root", "what is '%s'?", argv[1]);
    const char *root = gettaluvine();
    if (!*root) {
        elog_complain(0, "there is no installation root; set TALUVINE\n");
        return kFailed;
    }
    printf("%s\nfound as %s\n", root, how_it_was_found(root));
    return kDone;
}
