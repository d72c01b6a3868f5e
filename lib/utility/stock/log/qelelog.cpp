// The messaging library: loaded when the first text is sent to it.
//
// No lock is held while it is loaded. The system has a lock of its own then, and runs the
// library's constructors, which may report something; another thread's may, too. Threads
// that send at once may all load it, which the system counts; each finds the same routine.

#include "stock/elog.h"

#include <atomic>
#include <cstdio>

#include <dlfcn.h>

#include "deviants.h"
#include "log/log.h"

namespace stock::logging {

namespace {

using Routine = int (*)(const char *target, const char *program, const char *text);

constexpr const char *Qel_library = "qel";
constexpr const char *Qelelog_routine = "qelelog";

std::atomic<bool> Tried{false};  // the library was looked for, once
std::atomic<bool> Told{false};   // and the user told, once
std::atomic<Routine> Found{nullptr};

Routine find_routine(void *library)
{
    const auto found = reinterpret_cast<Routine>(::dlsym(library, Qelelog_routine));
    if (found)
        return found;
    const char *reason = ::dlerror();
    if (!Told.exchange(true))
        std::fprintf(
            stderr,
            "Can't find %s in library %s: %s,\n\terror messages will be written to stderr.\n",
            Qelelog_routine, Qel_library, reason ? reason : "");
    return nullptr;
}

Routine load_routine()
{
    if (void *library = std_dlopen(Qel_library))
        return find_routine(library);
    if (!Told.exchange(true))
        std::fprintf(
            stderr,
            "Can't dynamically load library %s, error messages will be written to stderr.\n",
            Qel_library);
    return nullptr;
}

// The library's routine, or null. What this thread sends while it loads the library, such
// as a report of the library's constructor, does without.
Routine routine()
{
    static constinit thread_local bool loading = false;
    if (Tried || loading)
        return Found;
    loading = true;
    if (const Routine found = load_routine())
        Found = found;
    Tried = true;
    loading = false;
    return Found;
}

}  // namespace

}  // namespace stock::logging

int call_qelelog(const char *target, const char *program, const char *text)
{
    const stock::logging::Released released;  // a log function of the program's may be calling
    if (const auto send = stock::logging::routine())
        return send(target, program, text);
    std::fprintf(stderr, "%s: %s\n", program, text);
    return 0;
}
