// Where other families join the log.

#include "internal/elog_joins.h"

#include <cstring>

#include "deviants.h"
#include "internal/alloc.h"
#include "internal/elog.h"
#include "stock/str2epoch.h"
#include "stock/time.h"

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

void join_time(const char *format, const char *zone, char *out, std::size_t size)
{
    const Owned<char> text(zepoch2str(format, zone, std_now()));
    const std::size_t length = strnlen(text.get(), size - 1);
    std::memcpy(out, text.get(), length);
    out[length] = '\0';
}

double join_reference_time(const char *text)
{
    return str2epoch(text);
}

const char *join_settings_file()
{
    return nullptr;
}

}  // namespace stock::logging
