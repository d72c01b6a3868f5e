// Tags: the codes of a template and what they stand for; the command text.

#include "stock/elog.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>

#include <sys/param.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/guards.h"
#include "base/thread.h"
#include "deviants.h"
#include "deviants/fault.h"
#include "log/asks.h"
#include "log/log.h"
#include "stock/datasearch.h"

namespace stock::logging {

namespace {

constexpr int kEnough = 100;  // expansion stops when less than this is left of max
constexpr std::string_view kCut = " *...";
constexpr std::size_t kTimeSize = 64 + 1;  // a time is cut to 64 characters

// The expanded text as it grows. There is always room left for the mark of a cut.
class Expansion {
public:
    Expansion(char *out, int max) : out_(out), max_(max) {}

    void add(std::string_view text)
    {
        const int room = std::max(max_ - used_ - 6, 0);
        const std::size_t length = text.copy(out_ + used_, static_cast<std::size_t>(room));
        used_ += static_cast<int>(length);
    }

    // So much is written that expansion stops.
    bool full() const { return used_ > max_ - kEnough; }

    void mark_cut()
    {
        if (used_ < max_ - 5)
            used_ += static_cast<int>(kCut.copy(out_ + used_, kCut.size()));
    }
    void end() { out_[used_] = '\0'; }

private:
    char *out_;
    int max_;
    int used_ = 0;
};

template <class... Values>
void addf(Expansion &out, const char *format, Values... values)
{
    char text[kTimeSize];
    std::snprintf(text, sizeof text, format, values...);
    out.add(text);
}

void host(Expansion &out)
{
    char name[MAXHOSTNAMELEN + 1];
    my_hostname(name);
    out.add(name);
}

void arguments(Expansion &out)
{
    char **argv = Argv;
    for (int i = 1; argv && i < Argc && argv[i]; ++i) {
        out.add(argv[i]);
        out.add(" ");
    }
}

void current_time(Expansion &out, const char *format, const char *zone)
{
    char text[kTimeSize];
    join_time(format, zone, text, sizeof text);
    out.add(text);
}

// What needs other families: when it reports something itself, the tag of that
// report goes without. So does the tag in the report of a crash that broke the heap.
template <class Function>
void with_others(Function function)
{
    if (This_thread.expanding)
        return;
    This_thread.expanding = true;
    if (Try_on_heap)
        Try_on_heap([](void *argument) { (*static_cast<Function *>(argument))(); }, &function);
    else
        function();
    This_thread.expanding = false;
}

void expand_code(Expansion &out, char code, int severity)
{
    switch (code) {
    case 'P': out.add(Program_Name); break;
    case 'p': addf(out, "%d", static_cast<int>(::getpid())); break;
    case 'T': addf(out, "%lu", static_cast<unsigned long>(thread_number())); break;
    case 'h': host(out); break;
    case 's': out.add(is_severity(severity) ? severity_name[severity] : "<BAD>"); break;
    case 'a': arguments(out); break;
    case 'r': with_others([&] { out.add(elog_cmdline()); }); break;
    case 'e': addf(out, "%10.6f", std_now() - Elog_reference_time); break;
    case 't': with_others([&] { current_time(out, Elog_t_format, ""); }); break;
    case 'u': with_others([&] { current_time(out, Elog_u_format, nullptr); }); break;
    default: out.add({&code, 1}); break;
    }
}

// The path of the program as a new string, or null when it is not found.
char *find_command()
{
    char **argv = Argv;
    const char *name = getexecname();
    if (!name && argv)
        name = argv[0];
    if (!name && std::strcmp(Program_Name, "***") != 0)
        name = Program_Name;
    if (!name || !*name)
        return nullptr;
    if (*name != '/' && *name != '.')
        return datafile("PATH", name);
    return copy_text(name, "cmdline", "elog_cmdline");
}

std::atomic<char *> Command_text{nullptr};

// Appends to a text in a buffer of the given size as much as fits.
void append(char *text, std::size_t size, const char *piece)
{
    const std::size_t used = std::strlen(text);
    std::snprintf(text + used, size - used, "%s", piece);
}

constexpr std::size_t kAnnouncement = 1024;

}  // namespace

}  // namespace stock::logging

using namespace stock;
using namespace stock::logging;

void elog_expand(const char *text, int severity, char *out, int max)
{
    if (!out || max < 1)
        return;
    const KeepErrno keep;
    const Holding hold(Lock);  // elog_init frees the earlier command line
    Expansion expansion(out, max);
    for (const char *at = text ? text : ""; *at; ++at) {
        if (*at == '%' && at[1])
            expand_code(expansion, *++at, severity);
        else
            expansion.add({at, 1});
        if (expansion.full()) {
            expansion.mark_cut();
            break;
        }
    }
    expansion.end();
}

const char *elog_cmdline(void)
{
    if (const char *text = Command_text)
        return text;
    char *found = find_command();
    if (!found)
        found = copy_text("*?program?*", "cmdline");
    char *expected = nullptr;
    if (Command_text.compare_exchange_strong(expected, found))
        return found;
    std::free(found);  // another thread was quicker
    return expected;
}

char *elog_commandline_str(void)
{
    need_init();
    const Holding hold(Lock);
    // Meant: line 1096 is part of the message.
    auto *dst =
        static_cast<char *>(allocate_zeroed(kAnnouncement, "dst", "elog_commandline_str", 1096));
    append(dst, kAnnouncement, "\n--> ");
    append(dst, kAnnouncement, Program_Name);
    char **argv = Argv;
    for (int i = 1; argv && i < Argc && argv[i]; ++i) {
        append(dst, kAnnouncement, " ");
        append(dst, kAnnouncement, argv[i]);
    }
    append(dst, kAnnouncement, " <#>\n\n");
    return dst;
}

void elog_commandline(void)
{
    const Owned<char> text(elog_commandline_str());
    const Elog_msg msg = {.tag = nullptr,
                          .msg = text.get(),
                          .sys = nullptr,
                          .severity = kNotify,
                          .count = 1,
                          .thread = thread_number()};
    const Holding hold(Lock);
    deliver(delivery_of(kNotify).text, 0, &msg);
}
