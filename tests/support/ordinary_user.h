// Giving up the rights of the administrator, for tests of what others may not do.

#pragma once

#include <pwd.h>
#include <unistd.h>

// The password entry of a user that every system has.
inline const struct passwd &somebody()
{
    static const struct passwd entry = *getpwnam("nobody");
    return entry;
}

// Goes on as an ordinary user. To be called in a child process.
inline void become_ordinary_user()
{
    if (getuid() == 0 && (setgid(somebody().pw_gid) != 0 || setuid(somebody().pw_uid) != 0))
        _exit(3);
}
