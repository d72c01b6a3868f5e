// Functions from the user library, which may be replaced while the program runs.
//
// The system may keep a closed library in memory, for example one with the unique symbols that
// C++ makes. When its name is loaded again, the system gives the old library. So the new file
// is loaded from a copy, which has another name and is removed at once.
//
// The library is loaded and closed with its lock held, and its constructors and destructors
// may report and call usermethod in turn. So this lock is taken before the log's, and the
// program's log function, which runs with the log's lock held, gives that up in usermethod.

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
#include "base/descriptor.h"
#include "base/errno_text.h"
#include "base/file_size_signal.h"
#include "base/guards.h"
#include "base/limits.h"
#include "base/mtime.h"
#include "base/uninterrupted.h"
#include "deviants.h"
#include "deviants/library.h"
#include "deviants/system.h"
#include "log/lock.h"
#include "process/process_state.h"
#include "stock/arr.h"
#include "stock/elog.h"
#include "stock/restat.h"

namespace {

using stock::UserLibrary;

using Reason = char[256];

int64_t whole_seconds()
{
    return static_cast<int64_t>(std_now());
}

// Fills in the status of the library's file. Returns 0, or -1.
int file_status(const char *name, struct stat *status)
{
    char path[stock::kPathSize];
    return stock::library_path(name, path) ? restat(path, status) : -1;
}

bool is_newer(const struct stat &a, const struct stat &b)
{
    return stock::modification_time(a) > stock::modification_time(b);
}

// The functions below need the lock of the library.

void take_name(UserLibrary &library)
{
    const char *name = stock::trusted_env("USER_LIBRARY");
    free(library.name);
    library.name = stock::copy_text(name ? name : "user", "name");
    library.named = true;
}

// Whether there is another file in the place of the loaded one. Looks at the file only when
// USERMETHOD_INTERVAL seconds have passed since it did so last.
bool was_replaced(UserLibrary &library)
{
    const int64_t now = whole_seconds();
    if (now - library.checked <= USERMETHOD_INTERVAL)
        return false;
    library.checked = now;
    const struct stat &loaded = library.status;
    struct stat current;
    return file_status(library.name, &current) == 0 &&
           (is_newer(current, loaded) || current.st_dev != loaded.st_dev ||
            current.st_ino != loaded.st_ino);
}

// Closes the library, and notes it when the system keeps it in memory. False when the system
// refuses to close it.
bool close_library(UserLibrary &library)
{
    const bool closed = dlclose(library.handle) == 0;
    const stock::KeepErrno keep;
    library.handle = nullptr;
    char path[stock::kPathSize];
    if (!stock::library_path(library.name, path))
        return closed;
    void *still_there = dlopen(path, RTLD_LAZY | RTLD_NOLOAD);
    if (!still_there)
        return closed;
    dlclose(still_there);
    if (!library.kept_by_system)
        library.kept_by_system = newarr(nullptr);
    setarr(library.kept_by_system, path, &library);
    return closed;
}

// Copies all bytes of the file. False with errno set.
bool copy_file(int from, int to)
{
    const stock::FileSizeSignalBlocked blocked;
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

// Why the loader failed, or else what errno means.
void fill_reason(Reason &reason, bool of_loader)
{
    Reason buffer;
    const char *text = of_loader ? dlerror() : stock::errno_text(errno, buffer, sizeof buffer);
    snprintf(reason, sizeof reason, "%s", text ? text : "");
}

// Copies the open library into a directory, the first `length` characters of the path, and
// loads the copy. Null, with the reason, when that fails.
void *load_copy_in(const char *directory, size_t length, int from, Reason &reason)
{
    char copy[stock::kPathSize + 32];
    snprintf(copy, sizeof copy, "%.*s/.usermethod.XXXXXX", static_cast<int>(length), directory);
    const stock::Fd to(stock::beyond_standard(mkostemp(copy, O_CLOEXEC)));
    const bool copied = to.get() >= 0 && copy_file(from, to.get());
    void *handle = copied ? dlopen(copy, RTLD_LAZY) : nullptr;
    if (!handle)
        fill_reason(reason, copied);
    if (to.get() >= 0)
        unlink(copy);
    return handle;
}

// Loads a copy of the library, in its own directory, where it finds the libraries that it
// needs, else in the directory of temporary files. Null, with the reason, when that fails.
void *load_copy(const char *path, Reason &reason)
{
    const stock::Fd from(stock::beyond_standard(
        stock::uninterrupted([=] { return open(path, O_RDONLY | O_CLOEXEC); })));
    if (from.get() < 0) {
        fill_reason(reason, false);
        return nullptr;
    }
    const auto length = static_cast<size_t>(strrchr(path, '/') - path);
    if (void *handle = load_copy_in(path, length, from.get(), reason))
        return handle;
    const char *named = stock::trusted_env("TMPDIR");
    const char *temporary =
        named && *named == '/' && strlen(named) < stock::kPathSize ? named : "/tmp";
    return load_copy_in(temporary, strlen(temporary), from.get(), reason);
}

// Loads the library. When the system keeps the former one and no copy of the new file can be
// loaded, fills in the reason and loads the former one.
void load(UserLibrary &library, Reason &reason)
{
    struct stat found;
    char path[stock::kPathSize];
    if (*library.name != '/' || restat(library.name, &found) == 0) {
        if (library.kept_by_system && stock::library_path(library.name, path) &&
            getarr(library.kept_by_system, path))
            library.handle = load_copy(path, reason);
        if (library.handle)
            *reason = '\0';
        else
            library.handle = std_dlopen(library.name);
    }
    if (library.handle) {
        if (file_status(library.name, &library.status) < 0)
            library.status = {};
        library.checked = whole_seconds();
    }
    if (library.functions)
        freearr(library.functions, nullptr);
    library.functions = newarr(nullptr);
}

// The address of a function of the loaded library, or null.
void *find(UserLibrary &library, const char *function)
{
    void *const missing = &library;
    void *found = getarr(library.functions, function);
    if (!found) {
        found = dlsym(library.handle, function);
        setarr(library.functions, function, found ? found : missing);
    }
    return found == missing ? nullptr : found;
}

}  // namespace

void *usermethod(const char *name)
{
    if (!name || !*name)
        return nullptr;
    const stock::logging::LockReleased released;
    UserLibrary &library = stock::The_user_library;
    std::unique_lock lock(library.mutex);
    if (!library.named)
        take_name(library);
    const bool closed = !library.handle || !was_replaced(library) || close_library(library);
    // Copies for the messages, which are reported without the lock.
    const stock::Owned<char> refused(closed ? nullptr : stock::copy_text(library.name, "name"));
    Reason reason = "";
    if (!library.handle)
        load(library, reason);
    void *function = library.handle ? find(library, name) : nullptr;
    const stock::Owned<char> former(*reason ? stock::copy_text(library.name, "name") : nullptr);
    lock.unlock();
    if (refused)
        elog_complain(1, "Couldn't close dynamic library %s", refused.get());
    if (former)
        elog_complain(0, "Couldn't load the new dynamic library %s, the earlier one is used: %s",
                      former.get(), reason);
    return function;
}

void usermethod_init(void)
{
    const stock::logging::LockReleased released;
    const std::lock_guard lock(stock::The_user_library.mutex);
    take_name(stock::The_user_library);
}
