// Where other families join the log.

#include "log/asks.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "base/alloc.h"
#include "deviants.h"
#include "log/fault.h"
#include "log/log.h"
#include "pf/parsing.h"
#include "stock/bury.h"
#include "stock/elog_fault.h"
#include "stock/pf.h"
#include "stock/str2epoch.h"
#include "stock/time.h"

namespace stock::logging {

namespace {

// The text under a key of the settings file; null when there is none.
const char *setting(Pf *pf, const char *key)
{
    void *value = nullptr;
    return pfget(pf, key, &value) == PFSTRING ? static_cast<const char *>(value) : nullptr;
}

// The text is kept for as long as the process lives.
const char *kept(Pf *pf, const char *key, const char *built_in)
{
    const char *text = setting(pf, key);
    return text ? copy_text(text, key, "elog_init") : built_in;
}

// Plain keys that the file lacks leave the built-in values.
void take_settings(Pf *pf)
{
    if (setting(pf, "ELOG_MAXMSG"))
        Max_msg =
            static_cast<int>(std::clamp<long>(pfget_int(pf, "ELOG_MAXMSG"), INT_MIN, INT_MAX));
    if (setting(pf, "ELOG_WAIT"))
        Elog_wait = pfget_double(pf, "ELOG_WAIT");
    Elog_t_format = kept(pf, "t_format", Elog_t_format);
    Elog_u_format = kept(pf, "u_format", Elog_u_format);
    elog_fill_from_pf(pf, "ELOG_DELIVER", Deliver, Default_deliver);
    elog_fill_from_pf(pf, "ELOG_TAG", Tag, Default_tag);
    elog_fill_from_pf(pf, "ELOG_DEBUG", Debug, Default_debug);
}

}  // namespace

void join_bury()
{
    bury();
}

void join_stack_trace()
{
    show_stack_trace();
}

void join_show_stack(const char *variable)
{
    elog_setup_show_stack(variable);
}

bool join_shows_stack(int severity)
{
    return is_severity(severity) && Show_stack[severity];
}

void join_fault_handlers(const char *list)
{
    elog_setup_fault_handler(list);
}

void join_debugger(const char *command)
{
    _elog_debug(command);
}

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

char *join_settings_file()
{
    if (Pf_busy)
        return nullptr;
    Pf *pf = nullptr;
    char *signals = nullptr;
    if (pfread("elog", &pf) == 0) {
        take_settings(pf);
        const char *list = setting(pf, "ELOG_SIGNALS");
        signals = copy_text(list ? list : "", "ELOG_SIGNALS", "elog_init");
    }
    pffree(pf);
    return signals;
}

}  // namespace stock::logging
