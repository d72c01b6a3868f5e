// stock pf: the table of the commands for parameter files, each of which has a source pf_NAME.cpp.

#include "command.h"
#include "pf_tool.h"

namespace {

// clang-format off
constexpr Command kCommands[] = {
    {"check", "[--with TABLE] FILE...", "tell what is wrong in files", pf_check},
    {"del", "FILE ADDRESS", "take a value out of a file", pf_del},
    {"explain", "NAME ADDRESS", "tell where a value comes from", pf_explain},
    {"files", "NAME", "list the files that are read for a name", pf_files},
    {"get", "NAME ADDRESS", "print a value as a program gets it", pf_get},
    {"set", "FILE ADDRESS VALUE", "change a value in a file", pf_set},
    {"shell", "NAME PREFIX", "print assignments for a shell", pf_shell},
    {"show", "FILE|NAME...", "print the tree that files give together", pf_show},
    {"watch", "NAME", "print what changes in the files", pf_watch},
    {},
};
// clang-format on

}  // namespace

int cmd_pf(int argc, char **argv)
{
    return run_family("stock pf", kCommands, argc, argv);
}
