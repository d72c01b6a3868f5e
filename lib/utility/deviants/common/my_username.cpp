// The login name of who runs the program, looked up once and kept.

#include "deviants.h"

#include <cstring>
#include <mutex>

#include <unistd.h>

#include "internal/ordered_lock.h"
#include "internal/passwd.h"

namespace {

constexpr size_t kNameSize = 1024;  // as the caller's buffer holds it

constinit stock::OrderedLock name_mutex{stock::Place::username};
char kept_name[kNameSize];  // empty until it was found

void look_up()
{
    stock::with_passwd([](auto... rest) { return getpwuid_r(getuid(), rest...); },
                       [](const struct passwd &entry) {
                           if (std::strlen(entry.pw_name) < kNameSize)
                               strcpy(kept_name, entry.pw_name);
                       });
}

}  // namespace

int my_username(char *buffer)
{
    const std::lock_guard lock(name_mutex);
    if (!*kept_name)
        look_up();
    strcpy(buffer, kept_name);
    return *kept_name ? 0 : 1;
}
