// The messaging library: loaded when the first text is sent to it.
//
// No lock is held while it is loaded, because the system holds its loader's lock meanwhile and
// runs the library's constructors, which may report. Several threads that send their first
// texts at once may all load it: the system counts that, and each finds the same routine.

#include "stock/elog.h"

#include <cstdio>

#include <dlfcn.h>

#include "deviants.h"
#include "log/log.h"

namespace stock::logging {

namespace {

using Routine = int (*)(const char *target, const char *program, const char *text);

constexpr const char *kLibrary = "qel";
constexpr const char *kRoutine = "qelelog";

Routine find_routine(void *library)
{
    const auto found = reinterpret_cast<Routine>(::dlsym(library, kRoutine));
    if (found)
        return found;
    const char *reason = ::dlerror();
    if (!The_messaging_library.told.exchange(true))
        std::fprintf(
            stderr,
            "Can't find %s in library %s: %s,\n\terror messages will be written to stderr.\n",
            kRoutine, kLibrary, reason ? reason : "");
    return nullptr;
}

Routine load_routine()
{
    if (void *library = std_dlopen(kLibrary))
        return find_routine(library);
    if (!The_messaging_library.told.exchange(true))
        std::fprintf(
            stderr,
            "Can't dynamically load library %s, error messages will be written to stderr.\n",
            kLibrary);
    return nullptr;
}

// The library's routine, or null. It is null too for what this thread sends while it loads the
// library, such as a report of the library's constructor.
Routine routine()
{
    MessagingLibrary &library = The_messaging_library;
    if (library.tried || This_thread.loading_library)
        return library.send;
    This_thread.loading_library = true;
    if (const Routine found = load_routine())
        library.send = found;
    library.tried = true;
    This_thread.loading_library = false;
    return library.send;
}

}  // namespace

}  // namespace stock::logging

int call_qelelog(const char *target, const char *program, const char *text)
{
    // The program's log function may call this, with the lock held.
    const stock::logging::LockReleased released;
    if (const auto send = stock::logging::routine())
        return send(target, program, text);
    if (stock::logging::stderr_is_ready())
        std::fprintf(stderr, "%s: %s\n", program, text);
    return 0;
}
