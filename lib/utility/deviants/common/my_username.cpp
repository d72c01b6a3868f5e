// The login name of who runs the program, looked up once and kept.

#include "deviants.h"

#include <cstring>
#include <mutex>

#include <pwd.h>
#include <unistd.h>

#include "internal/alloc.h"

namespace {

std::mutex name_mutex;
char *kept_name;  // null until it was found; never freed

char *look_up()
{
    char text[1024];
    struct passwd entry;
    struct passwd *found = nullptr;
    if (getpwuid_r(getuid(), &entry, text, sizeof text, &found) != 0 || !found)
        return nullptr;
    return stock::copy_text(found->pw_name, "name");
}

}  // namespace

int my_username(char *buffer)
{
    const std::lock_guard<std::mutex> lock(name_mutex);
    if (!kept_name)
        kept_name = look_up();
    strcpy(buffer, kept_name ? kept_name : "");
    return kept_name ? 0 : 1;
}
