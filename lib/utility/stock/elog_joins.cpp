// Where other families join the log.

#include "internal/elog_joins.h"

#include "deviants.h"
#include "internal/elog.h"

namespace stock::logging {

void join_bury() {}

void join_stack_trace() {}

void join_show_stack(const char *) {}

bool join_shows_stack(int)
{
    return false;
}

void join_fault_handlers(const char *list)
{
    Faults = list ? list : "";
}

void join_debugger(const char *) {}

void join_time(const char *, const char *, char *out, std::size_t)
{
    *out = '\0';
}

double join_reference_time(const char *)
{
    return std_now();
}

const char *join_settings_file()
{
    return nullptr;
}

}  // namespace stock::logging
