// Functions from the user library, which may be replaced while the program runs.
//
// The system may keep a library in memory that was closed, one with unique symbols as
// C++ makes them. It then gives the old one again when its name is loaded. So the new one
// is loaded from a copy, which has another name and is removed at once.
//
// The library is loaded and given back with the lock held: its constructors and destructors
// may report and look for functions in turn. So the lock comes before that of the log, and
// a log function of the program's gives the log's up while it looks for one.

#include "stock/usermethod.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/errno_text.h"
#include "base/guards.h"
#include "base/mtime.h"
#include "base/uninterrupted.h"
#include "deviants.h"
#include "deviants/library.h"
#include "log/lock.h"
#include "stock/arr.h"
#include "stock/elog.h"
#include "stock/restat.h"
#include "stock/strings.h"

namespace {

char missing;  // its address marks a function that the library lacks
char stays;    // its address marks a library that the system keeps

using Reason = char[256];

// The user library. All members are guarded by the lock.
struct Library {
    stock::RecursiveLock mutex{stock::Place::methods};
    bool initialised;
    char *name;
    void *handle;        // null when none is loaded
    struct stat status;  // of the file, when it was loaded
    int64_t checked;     // when the file was last looked at, whole seconds
    Arr *functions;      // by name: an address in the library, or that of missing
    Arr *kept;           // by path: the address of stays

    void take_name();
    bool was_replaced();
    bool forget();
    void load(Reason &reason);
    void *find(const char *function);
};

constinit Library library = {};

int64_t whole_seconds()
{
    return static_cast<int64_t>(std_now());
}

// Fills the status of the library's file; 0, or -1.
int file_status(const char *name, struct stat *status)
{
    char path[stock::kLibraryPathSize];
    return stock::library_path(name, path) ? restat(path, status) : -1;
}

bool is_newer(const struct stat &a, const struct stat &b)
{
    return stock::modification_time(a) > stock::modification_time(b);
}

void Library::take_name()
{
    const char *named = getenv("USER_LIBRARY");
    free(name);
    name = stock::copy_text(named ? named : "user", "name");
    initialised = true;
}

// Looks at the file of the loaded library, unless that was done just now.
bool Library::was_replaced()
{
    const int64_t now = whole_seconds();
    if (now - checked <= USERMETHOD_INTERVAL)
        return false;
    checked = now;
    struct stat current;
    return file_status(name, &current) == 0 &&
           (is_newer(current, status) || current.st_dev != status.st_dev ||
            current.st_ino != status.st_ino);
}

// Gives the library back to the system, which may refuse it, or keep it.
bool Library::forget()
{
    const bool closed = dlclose(handle) == 0;
    const stock::KeepErrno keep;
    handle = nullptr;
    char path[stock::kLibraryPathSize];
    void *still = stock::library_path(name, path) ? dlopen(path, RTLD_LAZY | RTLD_NOLOAD) : nullptr;
    if (!still)
        return closed;
    dlclose(still);
    if (!kept)
        kept = newarr(nullptr);
    setarr(kept, path, &stays);
    return closed;
}

// Copies all bytes of the file. False with errno set.
bool copy_file(int from, int to)
{
    char block[65536];
    for (off_t at = 0;;) {
        const ssize_t got =
            stock::uninterrupted([&] { return pread(from, block, sizeof block, at); });
        if (got <= 0)
            return got == 0;
        for (ssize_t done = 0; done < got;) {
            const auto left = static_cast<size_t>(got - done);
            const ssize_t put = stock::uninterrupted([&] { return write(to, block + done, left); });
            if (put < 0)
                return false;
            done += put;
        }
        at += got;
    }
}

void give_reason(Reason &reason, bool of_loader)
{
    Reason buffer;
    const char *text = of_loader ? dlerror() : stock::errno_text(errno, buffer, sizeof buffer);
    snprintf(reason, sizeof reason, "%s", text ? text : "");
}

// Loads a copy of the open library from this directory. Null with the reason.
void *load_copy_in(const char *directory, size_t length, int from, Reason &reason)
{
    char copy[stock::kLibraryPathSize + 32];
    snprintf(copy, sizeof copy, "%.*s/.usermethod.XXXXXX", static_cast<int>(length), directory);
    const stock::Fd to(mkostemp(copy, O_CLOEXEC));
    const bool copied = to.get() >= 0 && copy_file(from, to.get());
    void *handle = copied ? dlopen(copy, RTLD_LAZY) : nullptr;
    if (!handle)
        give_reason(reason, copied);
    if (to.get() >= 0)
        unlink(copy);
    return handle;
}

// Loads a copy of the library: from its own directory, where it finds what it needs, or
// from that of temporary files.
void *load_copy(const char *path, Reason &reason)
{
    const stock::Fd from(stock::uninterrupted([=] { return open(path, O_RDONLY | O_CLOEXEC); }));
    if (from.get() < 0) {
        give_reason(reason, false);
        return nullptr;
    }
    const auto length = static_cast<size_t>(strrchr(path, '/') - path);
    if (void *handle = load_copy_in(path, length, from.get(), reason))
        return handle;
    const char *named = getenv("TMPDIR");
    const char *temporary =
        named && *named == '/' && strlen(named) < stock::kLibraryPathSize ? named : "/tmp";
    return load_copy_in(temporary, strlen(temporary), from.get(), reason);
}

// With a reason filled in the new library cannot be loaded, and the earlier one is.
void Library::load(Reason &reason)
{
    struct stat found;
    char path[stock::kLibraryPathSize];
    if (*name != '/' || restat(name, &found) == 0) {
        if (kept && stock::library_path(name, path) && getarr(kept, path))
            handle = load_copy(path, reason);
        if (handle)
            *reason = '\0';
        else
            handle = std_dlopen(name);
    }
    if (handle) {
        if (file_status(name, &status) < 0)
            status = {};
        checked = whole_seconds();
    }
    if (functions)
        freearr(functions, nullptr);
    functions = newarr(nullptr);
}

void *Library::find(const char *function)
{
    void *found = getarr(functions, function);
    if (!found) {
        found = dlsym(handle, function);
        setarr(functions, function, found ? found : &missing);
    }
    return found == &missing ? nullptr : found;
}

}  // namespace

void *usermethod(const char *name)
{
    if (!name || !*name)
        return nullptr;
    const stock::logging::LockReleased released;
    std::unique_lock lock(library.mutex);
    if (!library.initialised)
        library.take_name();
    const bool closed = !library.handle || !library.was_replaced() || library.forget();
    const stock::Owned<char> stuck(closed ? nullptr : stock::copy_text(library.name, "name"));
    Reason reason = "";
    if (!library.handle)
        library.load(reason);
    void *function = library.handle ? library.find(name) : nullptr;
    const stock::Owned<char> earlier(*reason ? stock::copy_text(library.name, "name") : nullptr);
    lock.unlock();
    if (stuck)
        elog_complain(1, "Couldn't close dynamic library %s", stuck.get());
    if (earlier)
        elog_complain(0, "Couldn't load the new dynamic library %s, the earlier one is used: %s",
                      earlier.get(), reason);
    return function;
}

void usermethod_init(void)
{
    const stock::logging::LockReleased released;
    const std::lock_guard lock(library.mutex);
    library.take_name();
}
