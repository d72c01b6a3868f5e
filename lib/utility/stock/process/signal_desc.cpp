// Signals with their names and descriptions.
//
// Names come from the table of the platform layer, descriptions from the system, which may
// overwrite a description with its next one: so descriptions are copied.

#include "stock/signal_desc.h"

#include <cstdio>
#include <cstring>

#include "deviants.h"
#include "process/process_state.h"

namespace {

using stock::SignalRecord;

// Writes the name of a signal, or its number when it has none, into a buffer of
// SIGNAL_NAME_SIZE bytes.
void name_or_number(int sig, char *name)
{
    if (sig2str(sig, name) != 0)
        snprintf(name, SIGNAL_NAME_SIZE, "%d", sig);
}

const char *describe(int sig, SignalRecord &record)
{
    const char *text = strsignal(sig);
    snprintf(record.description, sizeof record.description, "%s",
             text ? text : "no description for signal");
    return record.description;
}

}  // namespace

Signal *signal_bysig(int sig)
{
    SignalRecord &record = stock::Signal_by_number;
    name_or_number(sig, record.name);
    record.signal = {sig, record.name, describe(sig, record)};
    return &record.signal;
}

Signal *signal_byname(const char *name)
{
    SignalRecord &record = stock::Signal_by_name;
    int sig = -1;
    const bool known = str2sig(name, &sig) == 0;
    record.signal = {sig, name,
                     known ? describe(sig, record) : "no description for unrecognized signal"};
    return &record.signal;
}

char *signal_desc(int sig, char *buffer, int size)
{
    if (!buffer || size <= 0)
        return buffer;
    *buffer = '\0';
    // Meant: nothing stands between the two, so 1 gives "SIGHUPHangup".
    if (size >= SIGNAL_NAME_SIZE)
        name_or_number(sig, buffer);
    const char *text = strsignal(sig);
    return strncat(buffer, text ? text : "", static_cast<size_t>(size) - strlen(buffer) - 1);
}
