// Functions from the user library, which may be replaced while the program runs.

#include "stock/usermethod.h"

#include <cstdlib>
#include <mutex>

#include <dlfcn.h>
#include <sys/stat.h>

#include "deviants.h"
#include "internal/alloc.h"
#include "internal/mtime.h"
#include "library.h"
#include "stock/arr.h"
#include "stock/elog.h"
#include "stock/restat.h"
#include "stock/strings.h"

namespace {

char missing;  // its address marks a function that the library lacks

// The user library. All members are guarded by the mutex.
struct Library {
    std::mutex mutex;
    bool initialised;
    char *name;
    void *handle;        // null when none is loaded
    struct stat status;  // of the file, when it was loaded
    int64_t checked;     // when the file was last looked at, whole seconds
    Arr *functions;      // by name: an address in the library, or that of missing

    void take_name();
    bool was_replaced();
    bool forget();
    void load();
    void *find(const char *function);
};

Library library;

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

// Gives the library back to the system, which may refuse it.
bool Library::forget()
{
    const bool closed = dlclose(handle) == 0;
    handle = nullptr;
    return closed;
}

void Library::load()
{
    struct stat found;
    if (*name != '/' || restat(name, &found) == 0)
        handle = std_dlopen(name);
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
    std::unique_lock<std::mutex> lock(library.mutex);
    if (!library.initialised)
        library.take_name();
    const bool closed = !library.handle || !library.was_replaced() || library.forget();
    const stock::Owned<char> stuck(closed ? nullptr : stock::copy_text(library.name, "name"));
    if (!library.handle)
        library.load();
    void *function = library.handle ? library.find(name) : nullptr;
    lock.unlock();
    if (stuck)
        elog_complain(1, "Couldn't close dynamic library %s", stuck.get());
    return function;
}

void usermethod_init(void)
{
    const std::lock_guard<std::mutex> lock(library.mutex);
    library.take_name();
}
