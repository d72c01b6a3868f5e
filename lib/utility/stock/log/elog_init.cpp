// Setting the log up: the command line, the program's name, the settings.

#include "stock/elog.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include "base/alloc.h"
#include "base/guards.h"
#include "deviants.h"
#include "log/asks.h"
#include "log/fault.h"
#include "log/log.h"
#include "stock/path.h"
#include "stock/pf.h"

namespace stock::logging {

namespace {

constexpr const char *kSignals = "ILL:TRAP:FPE:BUS:SEGV:SYS";
constexpr std::string_view kLetters = "lDnacdf";  // of the severities 0 .. 6

std::atomic_flag Initialising;

// The one elog_init that runs; a second, in this thread or another, is not.
class Turn {
public:
    Turn() : taken_(!Initialising.test_and_set()) {}
    ~Turn()
    {
        if (taken_)
            Initialising.clear();
    }
    Turn(const Turn &) = delete;
    Turn &operator=(const Turn &) = delete;

    explicit operator bool() const { return taken_; }

private:
    bool taken_;
};

// A copy of the command line that another replaced while somebody may have been
// reading it.
struct Retired {
    char **argv;
    Retired *next;
};

char **Own_argv = nullptr;  // the copy that was made last
Retired *Retired_argvs = nullptr;

void free_arguments(char **argv)
{
    for (char **argument = argv; argument && *argument; ++argument)
        std::free(*argument);
    std::free(argv);
}

char **copy_arguments(int argc, char **argv, int &copied)
{
    // Meant: line 849 is part of the message.
    auto **copy = static_cast<char **>(
        allocate(bytes_for(argc + INT64_C(1), sizeof *argv), "Argv", "elog_init", 849));
    for (copied = 0; copied < argc && argv[copied]; ++copied)
        copy[copied] = copy_text(argv[copied], "Argv[i]", "elog_init");
    copy[copied] = nullptr;
    return copy;
}

void retire_arguments(char **argv)
{
    auto *retired = static_cast<Retired *>(allocate(sizeof(Retired), "Argv", "elog_init"));
    *retired = {argv, Retired_argvs};
    Retired_argvs = retired;
}

void free_retired_arguments()
{
    while (Retired *retired = Retired_argvs) {
        Retired_argvs = retired->next;
        free_arguments(retired->argv);
        std::free(retired);
    }
}

// Keeps a copy of the command line. Without the lock somebody may still be
// reading the earlier copy, which then waits for a call that has the lock.
void set_command_line(int argc, char **argv, bool locked)
{
    int copied = 0;
    char **copy = copy_arguments(argc, argv, copied);
    // Whoever reads meanwhile finds both copies at least as long as the count.
    Argc = std::min(+Argc, copied);
    Argv = copy;
    Argc = copied;
    if (!locked) {
        retire_arguments(std::exchange(Own_argv, copy));
        return;
    }
    free_arguments(std::exchange(Own_argv, copy));
    free_retired_arguments();
}

// Writes only what changes: without the lock somebody may be reading it.
void rename(char (&name)[kPathSize], const char *text)
{
    if (std::strncmp(name, text, kPathSize - 1) != 0)
        std::snprintf(name, kPathSize, "%s", text);
}

void set_program_name(const char *first_argument)
{
    char dir[kPathSize] = "Unknown_Directory";
    char name[kPathSize] = "Unknown_Program";
    if (const char *path = getexecname())
        dirbase(path, dir, name);
    rename(Program_Dir, dir);
    rename(Program_Name, *name || !first_argument ? name : first_argument);
}

// The time of ELOG_REFERENCE_TIME, or now. Converting it may read "time_formats.pf", and
// reading that may report something, which comes back here: the inner call takes now.
double reference_time()
{
    static constinit thread_local bool converting = false;
    const char *text = std::getenv("ELOG_REFERENCE_TIME");
    if (converting || !text || !*text)
        return std_now();
    converting = true;
    const double time = join_reference_time(text);
    converting = false;
    return time;
}

// The variable as a whole number; false when it is not set or does not begin with one.
bool from_environment(const char *variable, int &value)
{
    const char *text = std::getenv(variable);
    if (!text)
        return false;
    char *end = nullptr;
    const long number = std::strtol(text, &end, 10);
    if (end != text)
        value = static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
    return end != text;
}

bool from_environment(const char *variable, double &value)
{
    const char *text = std::getenv(variable);
    if (!text)
        return false;
    char *end = nullptr;
    const double number = std::strtod(text, &end);
    if (end != text)
        value = number;
    return end != text;
}

char *First_signals = nullptr;  // what elog_init was told to catch

// What is set up once in a process.
void set_up_once()
{
    Owned<char> of_file(join_settings_file());
    from_environment("ELOG_MAXMSG", Max_msg);
    join_show_stack("ELOG_STACK");
    // The environment may change, and the list is kept as it is given.
    if (const char *signals = std::getenv("ELOG_SIGNALS"))
        First_signals = copy_text(signals, "ELOG_SIGNALS", "elog_init");
    else if (of_file)
        First_signals = of_file.release();
    join_fault_handlers(First_signals ? First_signals : kSignals);
}

// What every call takes from the environment.
void follow_environment()
{
    const auto table = [](const char *variable, Field *fields, const char *const *defaults) {
        elog_fill_from_env(std::getenv(variable), fields, defaults, 0);
    };
    table("ELOG_DELIVER", Deliver, Default_deliver);
    table("ELOG_TAG", Tag, Default_tag);
    table("ELOG_DEBUG", Debug, Default_debug);
    elog_fill_from_env(nullptr, Deliver, Default_deliver, 1);
    elog_fill_from_env(nullptr, Tag, Default_tag, 1);
    from_environment("ELOG_WAIT", Elog_wait);
}

// Reads a value of groups, "text@letters text@letters ...", into a table.
//
// The count of letters falls to 0 with each character of a text, so that a
// blank at the very end leaves no group without letters behind.
class Groups {
public:
    Groups(Field *table, const char *const *defaults) : table_(table), defaults_(defaults) {}

    void read(const char *value)
    {
        for (const char *at = value; *at; ++at) {
            if (in_letters_)
                letter(at);
            else
                at = text(at);
        }
        if (letters_ == 0)
            for (int i = 0; i < kSeverities; ++i)
                logging::store(table_[i], {text_, length_});
    }

private:
    // Reads a character of a text; returns the last position that belongs to it.
    const char *text(const char *at)
    {
        letters_ = 0;
        if (*at == '@') {
            in_letters_ = true;
            return at;
        }
        if (*at == '\\' && at[1])
            ++at;
        if (length_ < sizeof text_)
            text_[length_++] = *at;
        return at;
    }

    void letter(const char *at)
    {
        if (*at == ' ' || *at == '\t' || *at == '@')
            return end_group();
        const std::size_t row = kLetters.find(*at);
        if (row != kLetters.npos)
            severity_ = static_cast<int>(row);
        else
            elog_fail("Unrecognized severity '%s'\n", at);
        // Meant: any other letter repeats the last one, "l" when there was none.
        store_text(severity_);
        ++letters_;
    }

    void end_group()
    {
        if (letters_ == 0)
            for (int i = 0; i < kSeverities; ++i)
                store_text(i);
        length_ = 0;
        in_letters_ = false;
    }

    void store_text(int severity)
    {
        const std::string_view whole(text_, length_);
        logging::store(table_[severity], whole.empty() ? defaults_[severity] : whole);
    }

    Field *table_;
    const char *const *defaults_;
    bool in_letters_ = false;
    int letters_ = 0;         // of this group
    int severity_ = kLog;     // the last letter read
    std::size_t length_ = 0;  // of the text
    char text_[ELOG_FIELD_SIZE];
};

// The text of a key; the default when there is none.
const char *text_in(Pf *settings, const char *name, const char *key, const char *by_default)
{
    void *value = nullptr;
    const int type = pfget(settings, key, &value);
    if (type == PFSTRING)
        return static_cast<const char *>(value);
    if (type != PFINVALID)
        elog_complain(0, "the setting %s{%s} is not a string and is ignored", name, key);
    return by_default;
}

void fill_empty(Field *table, const char *const *defaults)
{
    for (int i = 0; i < kSeverities; ++i)
        if (!*table[i])
            store(table[i], defaults[i]);
}

// elog_init, with the time that it found the reference to be: nothing that reads a file of
// others' is done under the lock but reading "elog.pf".
int initialise(int argc, char **argv, double reference)
{
    std::unique_lock hold(Lock, std::defer_lock);
    if (Elog_init)
        (void)hold.try_lock();
    else
        hold.lock();  // the first time what other threads report has to wait
    const Turn turn;
    if (!turn)
        return 0;
    const bool given = argc > 0 && argv;
    set_program_name(given ? argv[0] : nullptr);
    if (given)
        set_command_line(argc, argv, hold.owns_lock());
    Elog_reference_time = reference;
    if (!hold)
        return 0;
    if (!Elog_init)
        set_up_once();
    follow_environment();
    Elog_init = 1;
    return 0;
}

}  // namespace

void need_init()
{
    prepare_thread();
    if (Elog_init)
        return;
    const KeepErrno keep;
    const double reference = reference_time();
    const Holding hold(Lock);
    if (!Elog_init)  // no other thread was quicker
        initialise(0, nullptr, reference);
}

}  // namespace stock::logging

using namespace stock;
using namespace stock::logging;

int elog_init(int argc, char **argv)
{
    const KeepErrno keep;
    return initialise(argc, argv, reference_time());
}

void elog_fill_from_env(const char *value, char (*table)[ELOG_FIELD_SIZE],
                        const char *const *defaults, int fill_defaults)
{
    if (!table || !defaults)
        return;
    const Holding hold(Lock);
    if (value)
        Groups(table, defaults).read(value);
    else if (fill_defaults)
        fill_empty(table, defaults);
}

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
    Field fields[kSeverities];
    for (int i = 0; i < kSeverities; ++i)
        store(fields[i], text_in(settings, name, severity_name[i], defaults[i]));
    const Holding hold(Lock);
    std::memcpy(table, fields, sizeof fields);
}

int elog2stderr(void)
{
    const int status = ::setenv("ELOG_DELIVER", "stderr@ncdfDa", 1);
    if (Elog_init) {
        const Holding hold(Lock);
        for (int i = kDebug; i < kSeverities; ++i)
            store(Deliver[i], "stderr");
    }
    return status;
}
