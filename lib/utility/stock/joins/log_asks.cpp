// Answers what the log asks of higher rooms (log/asks.h): its settings from elog.pf, the state
// file, times as text, the program's path and the names of signals.

#include "log/asks.h"

#include <cstdio>
#include <cstring>
#include <mutex>

#include "base/alloc.h"
#include "base/number.h"
#include "deviants.h"
#include "log/lock.h"
#include "pf/parsing.h"
#include "stock/bury.h"
#include "stock/datasearch.h"
#include "stock/elog.h"
#include "stock/path.h"
#include "stock/pf.h"
#include "stock/signal_desc.h"
#include "stock/str2epoch.h"
#include "stock/time.h"

namespace stock::logging {

namespace {

// The text under a key of elog.pf; null when there is none.
const char *text_in(Pf *pf, const char *key)
{
    void *value = nullptr;
    return pfget(pf, key, &value) == PFSTRING ? static_cast<const char *>(value) : nullptr;
}

// A copy of the text under a key, which the settings keep as long as the process lives.
const char *kept_text(Pf *pf, const char *key, const char *by_default)
{
    const char *text = text_in(pf, key);
    return text ? copy_text(text, key, "elog_init") : by_default;
}

void take_settings(Pf *pf, Settings &settings)
{
    if (text_in(pf, "ELOG_MAXMSG"))
        settings.max_messages = saturated_int(pfget_int(pf, "ELOG_MAXMSG"));
    if (text_in(pf, "ELOG_WAIT"))
        settings.wait_seconds = pfget_double(pf, "ELOG_WAIT");
    settings.t_format = kept_text(pf, "t_format", settings.t_format);
    settings.u_format = kept_text(pf, "u_format", settings.u_format);
    for (SettingTable *table : {&settings.deliver, &settings.tag, &settings.debug})
        elog_fill_from_pf(pf, table->name, table->fields, table->defaults);
}

// The text under a key of the table `name`; by_default when there is none. A value that is
// not text is complained about.
const char *field_in(Pf *table, const char *name, const char *key, const char *by_default)
{
    void *value = nullptr;
    const int type = pfget(table, key, &value);
    if (type == PFSTRING)
        return static_cast<const char *>(value);
    if (type != PFINVALID)
        elog_complain(0, "the setting %s{%s} is not a string and is ignored", name, key);
    return by_default;
}

}  // namespace

char *ask_settings_file(Settings &settings)
{
    if (Pf_busy)
        return nullptr;
    Pf *pf = nullptr;
    char *signals = nullptr;
    if (read_settings("elog", &pf) == 0) {
        take_settings(pf, settings);
        const char *list = text_in(pf, "ELOG_SIGNALS");
        signals = copy_text(list ? list : "", "ELOG_SIGNALS", "elog_init");
    }
    pffree(pf);
    return signals;
}

void ask_to_save_state()
{
    bury();
}

void ask_time(const char *format, const char *zone, char *out, std::size_t size)
{
    const Owned<char> text(zepoch2str(format, zone, std_now()));
    std::snprintf(out, size, "%s", text.get());
}

double ask_reference_time(const char *text)
{
    return str2epoch(text);
}

void ask_base_name(const char *path, char (&name)[kPathSize])
{
    dirbase(path, nullptr, name);
}

char *ask_program_path(const char *name)
{
    return datafile("PATH", name);
}

bool ask_signal_number(const char *name, int &number)
{
    const Signal *signal = signal_byname(name);
    if (signal)
        number = signal->number;
    return signal != nullptr;
}

SignalWords ask_signal_words(int sig)
{
    const Signal *signal = signal_bysig(sig);
    return signal ? SignalWords{signal->name, signal->description} : SignalWords{};
}

}  // namespace stock::logging

using namespace stock::logging;

void elog_fill_from_pf(Pf *pf, const char *name, char (*table)[ELOG_FIELD_SIZE],
                       const char *const *defaults)
{
    Pf *settings = nullptr;
    if (!table || !defaults || !name || !pf)
        return;
    _pfeval(pf, name, &settings, PFANY);
    if (!settings)
        return;
    if (settings->type != PFARR && settings->type != PFFILE)
        return elog_complain(0, "the setting %s is not an array and is ignored", name);
    Field fields[kSeverities] = {};  // filled first: reading a value may report
    for (int i = 0; i < kSeverities; ++i)
        std::snprintf(fields[i], sizeof fields[i], "%s",
                      field_in(settings, name, elog_severity(i), defaults[i]));
    const std::lock_guard hold(Lock);
    std::memcpy(table, fields, sizeof fields);
}
