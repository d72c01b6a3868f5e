// The messaging library: loaded when the first text is sent to it.

#include "stock/elog.h"

#include <cstdio>

#include <dlfcn.h>

#include "deviants.h"
#include "internal/elog.h"

namespace stock::logging {

namespace {

using Routine = int (*)(const char *target, const char *program, const char *text);

constexpr const char *Qel_library = "qel";
constexpr const char *Qelelog_routine = "qelelog";

bool Tried = false;  // the library is looked for once
bool Told = false;   // and the user told once
void *Library = nullptr;
Routine Found = nullptr;

void load_library()
{
    if (Tried)
        return;
    Tried = true;
    Library = std_dlopen(Qel_library);
    if (Library || Told)
        return;
    Told = true;
    std::fprintf(stderr,
                 "Can't dynamically load library %s, error messages will be written to stderr.\n",
                 Qel_library);
}

void find_routine()
{
    if (Found || !Library)
        return;
    Found = reinterpret_cast<Routine>(::dlsym(Library, Qelelog_routine));
    if (Found || Told)
        return;
    Told = true;
    const char *reason = ::dlerror();
    std::fprintf(stderr,
                 "Can't find %s in library %s: %s,\n\terror messages will be written to stderr.\n",
                 Qelelog_routine, Qel_library, reason ? reason : "");
}

// The library's routine, or null. What loading it reports comes back here and
// finds that it was tried.
Routine routine()
{
    const Holding hold(Lock);
    load_library();
    find_routine();
    return Found;
}

}  // namespace

}  // namespace stock::logging

int call_qelelog(const char *target, const char *program, const char *text)
{
    if (const auto send = stock::logging::routine())
        return send(target, program, text);
    std::fprintf(stderr, "%s: %s\n", program, text);
    return 0;
}
