// The installation root: where it may come from, in order, and where it is kept.
//
// The root is found once and kept in a buffer that programs may read and clear. Threads read
// it without the lock once Root_known says that it is complete.

#include "stock/gettaluvine.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include <glob.h>
#include <sys/stat.h>

#include "base/alloc.h"
#include "base/environment.h"
#include "base/guards.h"
#include "base/limits.h"
#include "base/ordered_lock.h"
#include "deviants.h"
#include "deviants/system.h"
#include "paths/search.h"
#include "stock/expand_env.h"
#include "stock/path.h"
#include "stock/restat.h"

char Taluvine_path[stock::kPathSize];
const char Default_taluvinepath[] = "/opt/taluvine/5.3";
const char Taluvine[] = "TALUVINE=";
char *Setenv;

namespace {

// Guards writing Taluvine_path and Setenv. The environment is changed without it.
constinit stock::OrderedLock root_mutex{stock::Place::root};

// Set when Taluvine_path is complete, so that threads may read it without the lock.
constinit std::atomic<bool> Root_known{false};

bool is_dir(const char *path)
{
    struct stat status;
    return restat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

// The file that PATH gives for a program's name, or null.
stock::Owned<char> find_in_path(const char *program)
{
    const char *path = stock::trusted_env("PATH");
    if (!path || !*path || strlen(program) >= stock::kPathSize)
        return nullptr;
    const stock::KeepErrno keep;
    stock::Owned<char> paths(expand_env(path));
    return stock::take_first(stock::search_paths(std::move(paths), nullptr, program, false));
}

// Fills the buffer, of kPathSize bytes, with the path of the running program's file.
bool program_path(char *buffer)
{
    const char *name = getexecname();
    if (!name)
        return false;
    if (strchr(name, '/')) {
        abspath(name, buffer);
        return *buffer != 0;
    }
    const stock::Owned<char> found = find_in_path(name);
    if (!found)
        return stock::program_file(buffer, sizeof Taluvine_path);
    strcpy(buffer, found.get());
    return true;
}

// Makes the environment's entry for the first `length` characters of a root.
stock::Owned<char> new_entry(const char *root, size_t length)
{
    const size_t size = strlen(Taluvine) + length + 1;
    auto *entry = static_cast<char *>(stock::allocate(size, "Setenv", "puttaluvine"));
    memcpy(stpcpy(entry, Taluvine), root, length);
    entry[size - 1] = '\0';
    return stock::Owned<char>(entry);
}

bool root_is_known()
{
    // A program may clear the buffer, so that the root is looked for again.
    if (Root_known.load(std::memory_order_acquire) && *Taluvine_path)
        return true;
    const std::lock_guard lock(root_mutex);
    Root_known = *Taluvine_path != '\0';
    return Root_known;
}

// Writes the root; root_mutex must be held. The same root is not written again, because
// threads may be reading it without the lock.
void write_root(const char *root, size_t length)
{
    if (strlen(Taluvine_path) != length || memcmp(Taluvine_path, root, length) != 0) {
        memmove(Taluvine_path, root, length);
        Taluvine_path[length] = '\0';
    }
    Root_known.store(length > 0, std::memory_order_release);
}

// Sets the root, with `replace` also when it is set already. The first time it is entered in
// the environment too, which uses the entry's memory for ever. The entry is allocated before
// the lock is taken.
void set_root(const char *root, bool replace)
{
    const size_t length = strnlen(root, sizeof Taluvine_path - 1);
    stock::Owned<char> entry = new_entry(root, length);
    {
        const std::lock_guard lock(root_mutex);
        if (replace || !*Taluvine_path)  // another thread may have found it first
            write_root(root, length);
        if (Setenv)
            return;
        Setenv = entry.release();
    }
    // switchTZ changes the environment as well.
    const std::lock_guard lock(stock::environment_lock);
    putenv(Setenv);
}

}  // namespace

char *gettaluvine(void)
{
    if (root_is_known())
        return Taluvine_path;
    char buffer[sizeof Taluvine_path] = "";
    const char *root = stock::trusted_env("TALUVINE");
    if (!root && is_dir(Default_taluvinepath))
        root = Default_taluvinepath;
    if (!root)
        root = from_exec(buffer);
    if (!root)
        root = guess_taluvine(buffer);
    set_root(root, false);
    return Taluvine_path;
}

void puttaluvine(const char *root)
{
    if (root)
        set_root(root, true);
}

char *from_exec(char *buffer)
{
    static constexpr char kBin[] = "/bin";
    *buffer = '\0';
    if (program_path(buffer)) {
        char *slash = strrchr(buffer, '/');
        const size_t length = slash ? static_cast<size_t>(slash - buffer) : 0;
        const size_t bin = strlen(kBin);
        if (length > bin && !memcmp(slash - bin, kBin, bin)) {
            slash[-static_cast<ptrdiff_t>(bin)] = '\0';
            return buffer;
        }
    }
    *buffer = '\0';
    return nullptr;
}

char *guess_taluvine(char *buffer)
{
    glob_t matches;  // sorted by name, so that the last is the newest release
    if (glob("/opt/taluvine/[1-9].[0-9][a-z]*", 0, nullptr, &matches) == 0) {
        size_t i = matches.gl_pathc;
        while (i > 0 && !is_dir(matches.gl_pathv[i - 1]))
            --i;
        if (i > 0 && strlen(matches.gl_pathv[i - 1]) < sizeof Taluvine_path)
            strcpy(buffer, matches.gl_pathv[i - 1]);
    }
    globfree(&matches);
    return buffer;
}
