// Where other families join the log.

#include "internal/elog_joins.h"

#include "internal/elog.h"

namespace stock::logging {

void join_bury() {}

void join_stack_trace() {}

void join_debugger(int) {}

void join_fault_handlers(const char *list)
{
    Faults = list ? list : "";
}

}  // namespace stock::logging
