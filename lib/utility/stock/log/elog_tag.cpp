// Tags: the codes of a template and what they stand for; the command text.
//
// Most codes need only the log itself. Those that ask a higher room may cause reports, whose
// own tags then leave these codes out.

#include "stock/elog.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <sys/param.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/fixed_text.h"
#include "base/guards.h"
#include "base/thread.h"
#include "deviants.h"
#include "deviants/fault.h"
#include "log/asks.h"
#include "log/log.h"

namespace stock::logging {

namespace {

constexpr int kLeastRoom = 100;  // expansion stops when less than this is left of the size
constexpr std::string_view kCut = " *...";
constexpr std::size_t kNumberSize = 64 + 1;      // a time or number is cut to 64 characters
constexpr std::size_t kAnnouncementSize = 1024;  // bytes of the text of elog_commandline

// The host's name up to its first dot.
void host(FixedText &out)
{
    char name[MAXHOSTNAMELEN + 1];
    my_hostname(name);
    out.add(name);
}

// The arguments without the program's name, a blank after each.
void arguments(FixedText &out)
{
    char **argv = The_program.argv;
    for (int i = 1; argv && i < The_program.argc && argv[i]; ++i) {
        out.add(argv[i]);
        out.add(" ");
    }
}

void current_time(FixedText &out, const char *format, const char *zone)
{
    char text[kNumberSize];
    ask_time(format, zone, text, sizeof text);
    out.add(text);
}

void seconds_since_reference(FixedText &out)
{
    FixedTextOf<kNumberSize> text;
    text.addf("%10.6f", std_now() - The_startup.reference_time);
    out.add(text.view());
}

// Calls a function that asks a higher room, unless such a function of this thread runs
// already and has caused the report whose tag this is. In a crash that needs the heap.
template <class Function>
void asking(Function function)
{
    if (This_thread.asking)
        return;
    This_thread.asking = true;
    if (Try_on_heap)
        Try_on_heap([](void *argument) { (*static_cast<Function *>(argument))(); }, &function);
    else
        function();
    This_thread.asking = false;
}

void expand_code(FixedText &out, char code, int severity)
{
    switch (code) {
    case 'P': out.add(The_program.name); break;
    case 'p': out.addf("%d", static_cast<int>(::getpid())); break;
    case 'T': out.addf("%lu", static_cast<unsigned long>(thread_number())); break;
    case 'h': host(out); break;
    case 's': out.add(is_severity(severity) ? kSeverityNames[severity] : "<BAD>"); break;
    case 'a': arguments(out); break;
    case 'r': asking([&] { out.add(elog_cmdline()); }); break;
    case 'e': seconds_since_reference(out); break;
    case 't': asking([&] { current_time(out, The_settings.t_format, ""); }); break;
    case 'u': asking([&] { current_time(out, The_settings.u_format, nullptr); }); break;
    default: out.add(code); break;
    }
}

// The path of the program as a new string, or null when it is not found. A name without a
// directory is looked up along PATH.
char *find_command()
{
    char **argv = The_program.argv;
    const char *name = getexecname();
    if (!name && argv)
        name = argv[0];
    if (!name && std::strcmp(The_program.name, "***") != 0)
        name = The_program.name;
    if (!name || !*name)
        return nullptr;
    if (*name != '/' && *name != '.')
        return ask_program_path(name);
    return copy_text(name, "cmdline", "elog_cmdline");
}

}  // namespace

}  // namespace stock::logging

using namespace stock;
using namespace stock::logging;

void elog_expand(const char *text, int severity, char *out, int max)
{
    if (!out || max < 1)
        return;
    const KeepErrno keep;
    const Holding hold(Lock);  // elog_init frees former command lines
    // Leaves room for the mark of a cut, which is added when more than max - kLeastRoom
    // characters are there.
    const int most = std::max(max - static_cast<int>(kCut.size()), 1);
    FixedText expanded(out, static_cast<std::size_t>(most));
    bool cut = false;
    for (const char *at = text ? text : ""; *at && !cut; ++at) {
        if (*at == '%' && at[1])
            expand_code(expanded, *++at, severity);
        else
            expanded.add(*at);
        cut = static_cast<int>(expanded.size()) > max - kLeastRoom;
    }
    FixedText whole(out, static_cast<std::size_t>(max), expanded.size());
    if (cut && whole.room() >= kCut.size())
        whole.add(kCut);
    whole.c_str();
}

const char *elog_cmdline(void)
{
    if (const char *text = The_program.path)
        return text;
    char *found = find_command();
    if (!found)
        found = copy_text("*?program?*", "cmdline");
    char *expected = nullptr;
    if (The_program.path.compare_exchange_strong(expected, found))
        return found;
    std::free(found);  // another thread has found it meanwhile
    return expected;
}

char *elog_commandline_str(void)
{
    need_init();
    const Holding hold(Lock);
    // Meant: line 1096 is part of the message.
    auto *dst = static_cast<char *>(
        allocate_zeroed(kAnnouncementSize, "dst", "elog_commandline_str", 1096));
    FixedText text(dst, kAnnouncementSize);
    text.add("\n--> ");
    text.add(The_program.name);
    char **argv = The_program.argv;
    for (int i = 1; argv && i < The_program.argc && argv[i]; ++i) {
        text.add(' ');
        text.add(argv[i]);
    }
    text.add(" <#>\n\n");
    return dst;
}

void elog_commandline(void)
{
    const Owned<char> text(elog_commandline_str());
    const Elog_msg msg = {.tag = nullptr,
                          .msg = text.get(),
                          .sys = nullptr,
                          .severity = ELOG_NOTIFY,
                          .count = 1,
                          .thread = thread_number()};
    const Holding hold(Lock);
    deliver(delivery_of(ELOG_NOTIFY).text, 0, &msg);
}
