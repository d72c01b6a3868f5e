// Setting the log up: the command line, the environment, the defaults.

#include "stock/elog.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "internal/alloc.h"
#include "internal/elog.h"
#include "internal/elog_joins.h"
#include "internal/guards.h"

extern char *__progname;

namespace stock::logging {

namespace {

constinit std::mutex Initialising;

void fill_defaults(Field *table, const char *const *defaults)
{
    for (int i = 0; i < kSeverities; ++i)
        if (!*table[i])
            store(table[i], defaults[i]);
}

void copy_command_line(int argc, char **argv)
{
    // Meant: line 849 is part of the message.
    auto **copy = static_cast<char **>(
        allocate(bytes_for(argc + 1L, sizeof *Argv), "Argv", "elog_init", 849));
    int copied = 0;
    for (; copied < argc && argv[copied]; ++copied)
        copy[copied] = copy_text(argv[copied], "Argv[i]", "elog_init");
    copy[copied] = nullptr;
    Argv = copy;
    Argc = copied;
}

}  // namespace

}  // namespace stock::logging

using namespace stock;
using namespace stock::logging;

int elog_init(int argc, char **argv)
{
    const std::unique_lock<std::mutex> once(Initialising, std::try_to_lock);
    if (!once)
        return 0;
    const KeepErrno keep;
    if (argc > 0 && argv)
        copy_command_line(argc, argv);
    const std::unique_lock<HolderLock> hold(Lock, std::try_to_lock);
    if (!hold)
        return 0;
    std::snprintf(Program_Name, sizeof Program_Name, "%s", __progname);
    if (const char *limit = std::getenv("ELOG_MAXMSG"))
        Max_msg = std::atoi(limit);
    fill_defaults(Deliver, Default_deliver);
    fill_defaults(Tag, Default_tag);
    Elog_init = 1;
    return 0;
}
