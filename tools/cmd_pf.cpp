// stock pf: reading and printing parameter files.

#include "command.h"

namespace {

constexpr Command kCommands[] = {
    {},
};

}  // namespace

int cmd_pf(int argc, char **argv)
{
    return run_family("stock pf", kCommands, argc, argv);
}
