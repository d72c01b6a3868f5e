// Setting the log up: the command line, the program's name, the settings.
//
// elog_init may be called at any time. Without the lock, while another thread delivers, it
// leaves the settings alone, and what it replaces must stay valid for threads that are
// reading it.

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
#include "base/number.h"
#include "deviants.h"
#include "deviants/system.h"
#include "log/asks.h"
#include "log/fault.h"
#include "log/log.h"
#include "stock/elog_fault.h"

namespace stock::logging {

namespace {

constexpr const char *kFaults = "ILL:TRAP:FPE:BUS:SEGV:SYS";  // caught by default
constexpr std::string_view kLetters = "lDnacdf";              // of the severities 0 .. 6

// Holds The_startup.running for a scope. False when elog_init runs already, in this thread or
// in another.
class OnlyInit {
public:
    OnlyInit() : is_only_(!The_startup.running.test_and_set())
    {
        if (is_only_)
            This_thread.initialising = true;
    }
    ~OnlyInit()
    {
        if (!is_only_)
            return;
        The_startup.running.clear();
        This_thread.initialising = false;
    }
    OnlyInit(const OnlyInit &) = delete;
    OnlyInit &operator=(const OnlyInit &) = delete;

    explicit operator bool() const { return is_only_; }

private:
    bool is_only_;
};

// Copies the arguments up to the first null one, and counts them.
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

void free_command_lines(CommandLine *newest)
{
    while (CommandLine *line = newest) {
        newest = line->former;
        for (char **argument = line->argv; *argument; ++argument)
            std::free(*argument);
        std::free(line->argv);
        std::free(line);
    }
}

// Keeps a copy of the command line. The former copies are freed when the lock is held: without
// it another thread may be reading them.
void set_command_line(int argc, char **argv, bool locked)
{
    int copied = 0;
    char **copy = copy_arguments(argc, argv, copied);
    auto *line = static_cast<CommandLine *>(allocate(sizeof(CommandLine), "Argv", "elog_init"));
    *line = {copy, std::exchange(The_program.command_line, line)};
    // The count never exceeds that of either copy, which other threads may be reading.
    The_program.argc = std::min(The_program.argc.load(), copied);
    The_program.argv = copy;
    The_program.argc = copied;
    if (locked)
        free_command_lines(std::exchange(line->former, nullptr));
}

// Finds the program's name. It is written only when it changes, because another thread may be
// reading it without the lock.
void set_program_name(const char *first_argument)
{
    char found[kPathSize] = "Unknown_Program";
    if (const char *path = getexecname())
        ask_base_name(path, found);
    const char *name = *found || !first_argument ? found : first_argument;
    if (std::strncmp(The_program.name, name, kPathSize - 1) != 0)
        std::snprintf(The_program.name, kPathSize, "%s", name);
}

// The time of ELOG_REFERENCE_TIME, or now. Converting it may read "time_formats.pf", and
// reading that may report something, which comes back here: the inner call takes now.
double reference_time()
{
    const char *text = trusted_env("ELOG_REFERENCE_TIME");
    if (This_thread.finding_reference_time || !text || !*text)
        return std_now();
    This_thread.finding_reference_time = true;
    const double time = ask_reference_time(text);
    This_thread.finding_reference_time = false;
    return time;
}

// Takes the value of an environment variable, unless it is not set or does not begin with a
// number. parse is strtol or strtod.
template <class Value, class Parse>
void take_from_environment(const char *variable, Value &value, Parse parse)
{
    const char *text = trusted_env(variable);
    if (!text)
        return;
    char *end = nullptr;
    const auto number = parse(text, &end);
    if (end != text)
        value = number;
}

// The part of elog_init that only its first call in a process does.
void set_up_once()
{
    Owned<char> of_file(ask_settings_file(The_settings));
    take_from_environment(
        "ELOG_MAXMSG", The_settings.max_messages,
        [](const char *text, char **end) { return saturated_int(std::strtol(text, end, 10)); });
    elog_setup_show_stack("ELOG_STACK");
    // A copy: the list is kept as it is given, and the environment may change.
    char *&signals = The_startup.first_signals;
    if (const char *text = trusted_env("ELOG_SIGNALS"))
        signals = copy_text(text, "ELOG_SIGNALS", "elog_init");
    else if (of_file)
        signals = of_file.release();
    elog_setup_fault_handler(signals ? signals : kFaults);
}

// The part of elog_init that every call with the lock does.
void follow_environment()
{
    for (SettingTable *table : {&The_settings.deliver, &The_settings.tag, &The_settings.debug})
        elog_fill_from_env(trusted_env(table->name), table->fields, table->defaults, 0);
    for (SettingTable *table : {&The_settings.deliver, &The_settings.tag})
        elog_fill_from_env(nullptr, table->fields, table->defaults, 1);
    take_from_environment("ELOG_WAIT", The_settings.wait_seconds, std::strtod);
}

// Reads a value of groups, "text@letters text@letters ...", into a table of settings.
//
// letters_ becomes 0 with the first character of a group's text, and not with the blank that
// ends the group before: a blank at the end of the value begins no group.
class GroupReader {
public:
    GroupReader(Field *table, const char *const *defaults) : table_(table), defaults_(defaults) {}

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
    // Reads a character of a text, with the backslash before it. Returns its position.
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
    int letters_ = 0;          // of the group that was begun last
    int severity_ = ELOG_LOG;  // the last letter read
    std::size_t length_ = 0;   // of text_, the group's text
    char text_[ELOG_FIELD_SIZE];
};

// Gives each empty field its default.
void fill_empty(Field *table, const char *const *defaults)
{
    for (int i = 0; i < kSeverities; ++i)
        if (!*table[i])
            store(table[i], defaults[i]);
}

// elog_init, with the reference time, which was found before: finding it may read a parameter
// file, and no file but "elog.pf" is read with the lock held.
int initialise(int argc, char **argv, double reference)
{
    std::unique_lock hold(Lock, std::defer_lock);
    if (The_startup.done)
        (void)hold.try_lock();
    else
        hold.lock();  // the first time reports of other threads wait
    const OnlyInit only_init;
    if (!only_init)
        return 0;
    const bool given = argc > 0 && argv;
    set_program_name(given ? argv[0] : nullptr);
    if (given)
        set_command_line(argc, argv, hold.owns_lock());
    The_startup.reference_time = reference;
    if (!hold)  // another thread delivers, with the settings as they are
        return 0;
    if (!The_startup.done)
        set_up_once();
    follow_environment();
    The_startup.done = 1;
    return 0;
}

}  // namespace

void need_init()
{
    prepare_thread();
    if (The_startup.done)
        return;
    const KeepErrno keep;
    const double reference = reference_time();
    const Holding hold(Lock);
    if (!The_startup.done)  // else another thread was quicker
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
        GroupReader(table, defaults).read(value);
    else if (fill_defaults)
        fill_empty(table, defaults);
}

int elog2stderr(void)
{
    const int status = ::setenv("ELOG_DELIVER", "stderr@ncdfDa", 1);
    if (The_startup.done) {
        const Holding hold(Lock);
        for (int i = ELOG_DEBUG; i < kSeverities; ++i)
            store(The_settings.deliver.fields[i], "stderr");
    }
    return status;
}
