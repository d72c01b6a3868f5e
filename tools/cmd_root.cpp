// stock root: the installation root and how it was found.

#include <cstdlib>
#include <cstring>

#include "command.h"
#include "stock.h"

namespace {

// Looked at before anything else runs: finding the root changes the environment.
const bool kGiven = getenv("TALUVINE") != nullptr;

const char *how_it_was_found(const char *root)
{
    char buffer[1024] = "";
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
