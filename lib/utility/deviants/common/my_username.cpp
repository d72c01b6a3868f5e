// my_username: the login name of the user who runs the program, looked up once and kept.

#include "deviants.h"

#include <cstring>
#include <mutex>

#include <unistd.h>

#include "base/ordered_lock.h"
#include "base/passwd.h"

namespace {

constexpr size_t kUserNameSize = 1024;  // of the caller's buffer

constinit stock::OrderedLock name_mutex{stock::Place::username};
char kept_name[kUserNameSize];  // guarded by name_mutex; empty until the name is found

// Sets `name` to the name in the password list; leaves it alone when there is none, or one that
// does not fit.
void look_up(char (&name)[kUserNameSize])
{
    stock::with_passwd([](auto... rest) { return getpwuid_r(getuid(), rest...); },
                       [&](const struct passwd &entry) {
                           if (std::strlen(entry.pw_name) < kUserNameSize)
                               strcpy(name, entry.pw_name);
                       });
}

// Copies the kept name. False when there is none yet.
bool copy_kept(char *buffer)
{
    const std::lock_guard lock(name_mutex);
    strcpy(buffer, kept_name);
    return *kept_name != '\0';
}

}  // namespace

int my_username(char *buffer)
{
    if (copy_kept(buffer))
        return 0;
    char name[kUserNameSize] = "";
    look_up(name);  // without the lock, because it asks for memory
    {
        const std::lock_guard lock(name_mutex);
        if (!*kept_name)
            strcpy(kept_name, name);
    }
    return copy_kept(buffer) ? 0 : 1;
}
