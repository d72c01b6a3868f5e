// The login name of who runs the program, looked up once and kept.

#include "deviants.h"

#include <cstring>
#include <mutex>

#include <unistd.h>

#include "base/ordered_lock.h"
#include "base/passwd.h"

namespace {

constexpr size_t kNameSize = 1024;  // as the caller's buffer holds it

constinit stock::OrderedLock name_mutex{stock::Place::username};
char kept_name[kNameSize];  // empty until it was found

void look_up(char (&name)[kNameSize])
{
    stock::with_passwd([](auto... rest) { return getpwuid_r(getuid(), rest...); },
                       [&](const struct passwd &entry) {
                           if (std::strlen(entry.pw_name) < kNameSize)
                               strcpy(name, entry.pw_name);
                       });
}

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
    char name[kNameSize] = "";
    look_up(name);  // asks for memory, and so without the lock
    {
        const std::lock_guard lock(name_mutex);
        if (!*kept_name)
            strcpy(kept_name, name);
    }
    return copy_kept(buffer) ? 0 : 1;
}
