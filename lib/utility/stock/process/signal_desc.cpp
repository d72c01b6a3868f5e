// Signals with their names and descriptions.

#include "stock/signal_desc.h"

#include <cstdio>
#include <cstring>

#include "deviants.h"

namespace {

// The name of a signal, or its number, into a buffer of SIGNAL_NAME_SIZE bytes.
void name_or_number(int sig, char *name)
{
    if (sig2str(sig, name) != 0)
        snprintf(name, SIGNAL_NAME_SIZE, "%d", sig);
}

using Description = char[256];

// Copied: what strsignal gives of an unknown signal is overwritten by its next call.
const char *describe(int sig, Description &copy)
{
    const char *text = strsignal(sig);
    snprintf(copy, sizeof copy, "%s", text ? text : "no description for signal");
    return copy;
}

}  // namespace

Signal *signal_bysig(int sig)
{
    static char name[SIGNAL_NAME_SIZE];
    static Description description;
    static Signal signal;
    name_or_number(sig, name);
    signal = {sig, name, describe(sig, description)};
    return &signal;
}

Signal *signal_byname(const char *name)
{
    static Description description;
    static Signal signal;
    int sig = -1;
    const bool known = str2sig(name, &sig) == 0;
    signal = {sig, name,
              known ? describe(sig, description) : "no description for unrecognized signal"};
    return &signal;
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
