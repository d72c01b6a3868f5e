// The state file: locked, read, and replaced as a whole.
//
// A process locks a file, but other processes look for its name. So a new file is locked
// before it is renamed to the state file's name, and a process that has locked a file checks
// that the name still leads to it.
//
// Signal handlers call bury too. One that interrupts a thread holding the mutex of the state
// file would wait for ever, so put_off() leaves the end that it begins to the thread.

#include "stock/bury.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/descriptor.h"
#include "base/file_size_signal.h"
#include "base/guards.h"
#include "base/uninterrupted.h"
#include "deviants.h"
#include "files/durable.h"
#include "log/end.h"
#include "log/lock.h"
#include "pf/node.h"
#include "pf/parsing.h"
#include "state/state_state.h"
#include "stock/elog.h"
#include "stock/fix_strtod.h"
#include "stock/halt.h"
#include "stock/path.h"
#include "stock/str2epoch.h"
#include "stock/strdbl.h"
#include "stock/tbl.h"
#include "stock/time.h"

namespace {

using namespace stock::logging;
using stock::Burial;
using stock::Inside;
using stock::Owned;
using stock::The_state_file;

// ---- The lock ----

// Holds the mutex of the state file, which a thread that holds it takes again without waiting.
// It is counted before it has the mutex and until it has given it up, as a change is.
class StateFileHeld {
public:
    StateFileHeld()
    {
        begin_change();
        Inside = Inside + 1;
        if (Inside == 1)
            take();
    }
    ~StateFileHeld()
    {
        if (Inside == 1)
            The_state_file.mutex.unlock();
        Inside = Inside - 1;
        end_change();
    }
    StateFileHeld(const StateFileHeld &) = delete;
    StateFileHeld &operator=(const StateFileHeld &) = delete;

private:
    // The thread that holds the mutex may need the log's lock to report. The program's log
    // function, which holds that lock when it comes here, releases it while it waits.
    static void take()
    {
        if (The_state_file.mutex.try_lock())
            return;
        const LockReleased released;
        The_state_file.mutex.lock();
    }
};

// Handlers and other threads read this member of the public record. The C++ library of macOS
// has no atomic_ref for it.
int signalled(const Grave *g)
{
    return __atomic_load_n(&g->signalled, __ATOMIC_SEQ_CST);
}
void set_signalled(Grave *g, int value)
{
    __atomic_store_n(&g->signalled, value, __ATOMIC_SEQ_CST);
}

// ---- Saved variables ----

struct SavedVariable {
    void *address;
    int type;  // RELIC_INT .. RELIC_TIME
};

// Meant: the largest double is written with 15 digits, rounded up, which would read as infinite.
bool is_largest(const char *text)
{
    char largest[STRDBL_SIZE];
    return std::strcmp(text, strdbl(largest, std::numeric_limits<double>::max())) == 0;
}

// The number that save_double has written.
double number_of(const char *text)
{
    const bool negative = *text == '-';
    if (is_largest(text + negative))
        return std::copysign(std::numeric_limits<double>::max(), negative ? -1 : 1);
    return fix_strtod(text, nullptr);
}

template <class T>
T &as(void *address)
{
    return *static_cast<T *>(address);
}

void restore_string(void *address, const char *text)
{
    if (!The_state_file.restored)
        The_state_file.restored = newtbl(0);
    char *copy = stock::copy_text(text, "relic", "resurrect");
    pushtbl(The_state_file.restored, copy);
    as<char *>(address) = copy;
}

// How variables of a type become text of the state file, and text becomes their value.
struct SavedType {
    int (*save)(Pf *pf, const char *name, void *address);
    void (*restore)(void *address, const char *text);
};

// Each save function puts the text of a variable into the tree. Returns 0, or -1 when the tree
// refuses the name.
int save_int(Pf *pf, const char *name, void *address)
{
    char text[16];
    std::snprintf(text, sizeof text, "%d", as<int>(address));
    return pfset(pf, name, text);
}

int save_double(Pf *pf, const char *name, void *address)
{
    char text[STRDBL_SIZE];
    return pfset(pf, name, strdbl(text, as<double>(address)));
}

int save_string(Pf *pf, const char *name, void *address)
{
    return stock::set_exact_text(pf, name, as<const char *>(address));
}

int save_time(Pf *pf, const char *name, void *address)
{
    const Owned<char> text(
        zepoch2str("%E (%j) %Y-%m-%d  %H:%M:%S.%u %z %A", nullptr, as<double>(address)));
    return pfset(pf, name, text.get());
}

// clang-format off
constexpr SavedType kTypes[] = {     // in the order of the types
    {save_int,    [](void *to, const char *text) { as<int>(to) = static_cast<int>(std::strtol(text, nullptr, 10)); }},
    {save_double, [](void *to, const char *text) { as<double>(to) = number_of(text); }},
    {save_string, restore_string},
    {save_time,   [](void *to, const char *text) { as<double>(to) = str2epoch(text); }},
};
// clang-format on
constexpr int kTypeCount = sizeof kTypes / sizeof kTypes[0];
static_assert(kTypeCount == RELIC_TIME + 1);

// Why the text of a variable could not be read under this name; null when it could.
const char *why_unreadable(std::string_view name)
{
    if (name.find_first_of("\t\n#\\") != name.npos)
        return "its name holds a tab, a newline, \"#\" or \"\\\"";
    if (name.starts_with('"') || name.find("{\"") != name.npos)
        return "its name begins with a quote";
    if (name.substr(0, name.find_first_of("{}[]")).size() > stock::kMaxKeyBytes)
        return "its name is longer than 1023 bytes";
    const auto steps =
        std::count_if(name.begin(), name.end(), [](char c) { return c == '{' || c == '['; });
    return steps > stock::kMaxOpenContainers ? "its name is nested deeper than 11 levels" : nullptr;
}
static_assert(stock::kMaxKeyBytes == 1023 && stock::kMaxOpenContainers == 11);

// ---- The file ----

constexpr mode_t kMode = 0664;
constexpr char kAlternate[] = "+";  // the ending of the alternate file
constexpr int kAttempts = 1000;     // one fails when another process replaces the file meanwhile

// Opens for reading and writing; null with errno set.
stock::OwnedStream open_file(const char *name, int flags)
{
    stock::Fd fd(stock::beyond_standard(
        stock::uninterrupted([&] { return ::open(name, O_RDWR | O_CLOEXEC | flags, kMode); })));
    stock::OwnedStream stream(fd.get() < 0 ? nullptr : ::fdopen(fd.get(), "r+"));
    if (stream)
        fd.release();
    return stream;
}

bool lock(int fd)
{
    return stock::uninterrupted([=] { return ::lockf(fd, F_TLOCK, 0); }) == 0;
}

bool is_same(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Opens the state file, creates it when it is not there, and locks it. Returns 1, 0 when it was
// created, or -1.
int open_locked(Grave *g)
{
    for (int i = 0; i < kAttempts; ++i) {
        stock::OwnedStream stream = open_file(g->name, 0);
        const bool missing = !stream && errno == ENOENT;
        if (missing)
            stream = open_file(g->name, O_CREAT);
        struct stat file, named;
        if (!stream || ::fstat(fileno(stream.get()), &file) != 0 || !S_ISREG(file.st_mode))
            return -1;
        g->stream = stream.get();
        lockstate(g);
        if (::stat(g->name, &named) == 0 && is_same(named, file)) {
            static_cast<void>(stream.release());
            stock::mend_file(g->name, kAlternate, fileno(g->stream));
            // Between open and stat another process may have created it and filled it.
            return missing && named.st_size == 0 ? 0 : 1;
        }
        g->stream = nullptr;
    }
    return -1;
}

// Reads the tree of the state file. Returns 1, or 2 when the file is not a parameter file.
int read_saved(Grave *g)
{
    if (pfin(g->stream, &g->saved) == 0)
        return 1;
    pffree(g->saved);
    g->saved = nullptr;
    return 2;
}

// Writes the text. False after complaining.
bool write_whole(int fd, const char *alternate, std::string_view text)
{
    const stock::FileSizeSignalBlocked blocked;
    errno = 0;
    const ssize_t written =
        stock::uninterrupted([&] { return ::write(fd, text.data(), text.size()); });
    if (written >= 0 && static_cast<std::size_t>(written) == text.size())
        return true;
    elog_complain(1, "Wrote %ld bytes to alternate state file %s instead of %ld",
                  static_cast<long>(written), alternate, static_cast<long>(text.size()));
    return false;
}

// Opens the new state file beside the old one and locks it. On an NFS file system it need not
// be locked, like the state file itself. False after complaining.
bool open_alternate(const Grave *g, stock::ReplacedFile &file)
{
    if (file.open(g->name) && (file.is_direct() || lock(file.fd()) || is_nfs(g->name) == 1)) {
        if (!file.is_direct())
            return true;
        // A program that names /dev/null wants no state, and the device must not be replaced.
        errno = EEXIST;
        elog_complain(1, "failed to rename state file %s to %s", g->alternate, g->name);
        return false;
    }
    elog_complain(1, "Can't write alternate state file %s", g->alternate);
    return false;
}

// Keeps the new state file open for its lock. When the system has no memory for a stream, the
// descriptor stays open without one.
void keep_open(Grave *g, int fd)
{
    FILE *stream = ::fdopen(fd, "r+");
    if (stream)
        const stock::OwnedStream earlier(std::exchange(g->stream, stream));
}

int replace_state(Grave *g, std::string_view text)
{
    stock::Replacing wanted;
    wanted.mode = kMode;
    wanted.ending = kAlternate;
    wanted.open_fd = g->stream ? fileno(g->stream) : -1;
    wanted.only_beside = true;
    stock::ReplacedFile file(wanted);
    if (!open_alternate(g, file) || !write_whole(file.fd(), file.beside(), text))
        return -1;
    if (!file.finish()) {
        elog_complain(1, "Can't close alternate state file %s", file.beside());
        return -1;
    }
    const bool saved = file.put_in_place();
    if (!saved) {
        log_damage(file);
        elog_complain(1, "failed to rename state file %s to %s", file.beside(), g->name);
    }
    if (file.is_in_place() && !file.is_written_in_place())
        keep_open(g, file.release_fd());
    return saved ? 0 : -1;
}

void add_extra_values(const Grave *g, Pf *pf)
{
    const ChangesPaused changes_paused;
    if (g->extra_values)
        g->extra_values(pf);
}

// Puts the variables into the tree in the order of their names. Returns 0, or -1 when one
// could not be put.
int save_variables(const Grave *g, Pf *pf)
{
    int result = 0;
    Tbl *names = keysarr(g->relics);
    for (int64_t i = 0; i < names->count; ++i) {
        const auto *name = static_cast<const char *>(gettbl(names, i));
        const auto *variable = static_cast<const SavedVariable *>(getarr(g->relics, name));
        if (kTypes[variable->type].save(pf, name, variable->address) != 0) {
            elog_complain(0, "Can't save '%s' in state file %s", name, g->name);
            result = -1;
        }
    }
    freetbl(names, nullptr);
    return result;
}

// The name as an absolute path, for when the program changes its directory. As it is when the
// working directory has no name.
char *absolute_name(const char *filename)
{
    const Owned<char> directory(*filename == '/' || !*filename ? nullptr : ::getcwd(nullptr, 0));
    if (!directory)
        return stock::copy_text(filename, "grave->name", "exhume");
    const std::size_t size = std::strlen(directory.get()) + std::strlen(filename) + 2;
    auto *name = static_cast<char *>(stock::allocate(size, "grave->name", "exhume"));
    std::snprintf(name, size, "%s/%s", directory.get(), filename);
    return name;
}

Grave *new_grave(const char *filename, volatile int *stop_flag, int grace_seconds,
                 void (*extra_values)(Pf *pf))
{
    auto *g = static_cast<Grave *>(stock::allocate_zeroed(sizeof(Grave), "grave", "exhume"));
    g->name = absolute_name(filename);
    const std::size_t length = std::strlen(g->name);
    g->alternate = static_cast<char *>(
        stock::allocate(length + sizeof kAlternate, "grave->alternate", "exhume"));
    std::memcpy(g->alternate, g->name, length);
    std::memcpy(g->alternate + length, kAlternate, sizeof kAlternate);
    g->relics = newarr(nullptr);
    g->stop_flag = stop_flag;
    if (stop_flag)
        *stop_flag = 0;
    g->grace_seconds = grace_seconds;
    g->extra_values = extra_values;
    return g;
}

// ---- Stop signals ----

// Sets the timer after which alarm_handler ends the process. Returns 0, or -1.
int start_grace(const Grave *g)
{
    return std_set_timer([](int) { alarm_handler(); }, g->grace_seconds);
}

// Marks that a bury runs, for its scope. When the alarm has limited the bury and it comes to
// its end in time, the limit is lifted, and a signal that came meanwhile has its own grace.
class RunningBurial {
public:
    explicit RunningBurial(const Grave *g) : grave_(g) { The_state_file.burial = Burial::running; }
    ~RunningBurial()
    {
        if (The_state_file.burial.exchange(Burial::none) != Burial::limited)
            return;
        lift_limit();
        if (signalled(grave_))
            start_grace(grave_);
    }
    RunningBurial(const RunningBurial &) = delete;
    RunningBurial &operator=(const RunningBurial &) = delete;

private:
    const Grave *grave_;
};

// The grace is over while the program itself runs bury, which may come to its end within a
// limit.
void limit_burial()
{
    if (The_state_file.burial != Burial::running || !limit_end(kNotSaved))
        return;
    Burial running = Burial::running;
    if (!The_state_file.burial.compare_exchange_strong(running, Burial::limited))
        lift_limit();
}

// The end that a stop signal without grace begins.
void save_and_end()
{
    limit_end(kNotSaved);
    if (put_off(save_and_end, Inside > 0))
        return;
    bury();
    end_process();
}

// The end that an alarm has put off. Since then another thread may have buried, and there may
// be no end to be limited: alarm_handler decides anew.
void alarm_again()
{
    lift_limit();
    alarm_handler();
}

}  // namespace

int exhume(const char *filename, volatile int *stop_flag, int grace_seconds,
           void (*extra_values)(Pf *pf))
{
    const StateFileHeld held;
    if (The_state_file.grave)
        return -2;
    if (!filename)
        return -1;
    Grave *g = new_grave(filename, stop_flag, grace_seconds, extra_values);
    make_pathdirs(filename);  // when it fails, opening the file fails too
    int result = open_locked(g);
    if (result == 1)
        result = read_saved(g);
    The_state_file.grave = g;
    errno = 0;
    if (stop_flag)
        setup_signal_handlers(signal_handler);
    return result;
}

int resurrect(const char *name, void *address, int type)
{
    const StateFileHeld held;
    Grave *g = The_state_file.grave;
    if (!g)
        return -1;
    if (!name || !*name || !address || type < 0 || type >= kTypeCount) {
        elog_complain(0, "Can't resurrect '%s' of type %d", name ? name : "", type);
        return -1;
    }
    if (const char *why = why_unreadable(name)) {
        elog_complain(0, "Can't resurrect '%s': %s", name, why);
        return -1;
    }
    auto *variable =
        static_cast<SavedVariable *>(stock::allocate(sizeof(SavedVariable), "relic_record"));
    char *text = nullptr;
    const bool found = g->saved && pfeval(g->saved, name, &text) == 0 && text;
    if (found)
        kTypes[type].restore(address, text);
    *variable = {address, type};
    std::free(setarr(g->relics, name, variable));
    if (getarr(g->relics, name) != variable)  // there was no memory for the key
        stock::out_of_memory(std::strlen(name) + 1, "relic_record");
    return found ? 0 : 1;
}

int bury()
{
    Grave *g = The_state_file.grave;
    if (!g || Inside > 0)
        return -1;
    const StateFileHeld held;
    const RunningBurial running(g);
    set_signalled(g, 0);  // this call answers a stop signal: its alarm does not end the process
    Pf *pf = pfnew(PFFILE);
    add_extra_values(g, pf);
    const int saved = save_variables(g, pf);
    const Owned<char> text(pf2string(pf));
    const int written = replace_state(g, text.get());
    pffree(pf);
    return saved == 0 ? written : -1;
}

const char *gravesite()
{
    const StateFileHeld held;
    const Grave *g = The_state_file.grave;
    return g ? g->name : The_state_file.custom_name;
}

void custom_gravesite(const char *filename)
{
    const StateFileHeld held;
    The_state_file.custom_name = filename;
}

void lockstate(Grave *g)
{
    if (lock(fileno(g->stream)))
        return;
    if (is_nfs(g->name) == 1)
        return elog_complain(1, "Can't lock '%s' on an nfs filesystem: proceeding without lock",
                             g->name);
    elog_complain(1,
                  "*fatal* Can't lock state file '%s' for exclusive use: it is already in use.\n",
                  g->name);
    end_process();
}

void signal_handler(int sig)
{
    const stock::KeepErrno keep;
    Grave *g = The_state_file.grave;
    if (!g) {
        elog_die(0, "*stack*Unexpected failure: %s in file %s, line %d\n", "signal_handler",
                 __FILE__, 129);
    }
    set_signalled(g, 1);
    if (g->stop_flag)  // several threads may be signalled at once
        __atomic_store_n(g->stop_flag, sig, __ATOMIC_RELAXED);
    if (g->grace_seconds == 0)
        save_and_end();
    else if (g->grace_seconds > 0 && !end_is_limited() && start_grace(g) != 0)
        elog_die(0, "failed to set timer");
}

void alarm_handler()
{
    Grave *g = The_state_file.grave;
    if (!g)
        return;
    if (!signalled(g))
        return limit_burial();
    limit_end(kNotSaved);
    if (put_off(alarm_again, Inside > 0))
        return;
    bury();
    limit_step(kGraceOver);
    elog_die(1, kGraceOver);
}
