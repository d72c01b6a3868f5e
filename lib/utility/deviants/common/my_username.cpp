// The login name of who runs the program, looked up once and kept.

#include "deviants.h"

#include <cstring>
#include <mutex>

#include <pwd.h>
#include <unistd.h>

namespace {

constexpr size_t kEntrySize = 1024;  // of a password entry's text, and so of a name

std::mutex name_mutex;
char kept_name[kEntrySize];  // empty until it was found

void look_up()
{
    char text[kEntrySize];
    struct passwd entry;
    struct passwd *found = nullptr;
    if (getpwuid_r(getuid(), &entry, text, sizeof text, &found) == 0 && found)
        strcpy(kept_name, found->pw_name);
}

}  // namespace

int my_username(char *buffer)
{
    const std::lock_guard<std::mutex> lock(name_mutex);
    if (!*kept_name)
        look_up();
    strcpy(buffer, kept_name);
    return *kept_name ? 0 : 1;
}
