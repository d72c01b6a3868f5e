// A user whose entry the test knows, whoever runs the tests: the system's look-ups of the
// current user and of this name give it. Include it in one source of a program.

#pragma once

#include <cerrno>
#include <cstddef>
#include <cstring>

#include <dlfcn.h>
#include <pwd.h>

inline constexpr char kUserName[] = "gauge";
inline constexpr char kUserHome[] = "/usr";  // a directory everywhere, and no link

inline bool nobody_is_known = false;  // there is no entry then
inline std::size_t least_buffer = 0;  // what the text of an entry needs

inline int give_user(struct passwd *entry, char *buffer, std::size_t size, struct passwd **found)
{
    *found = nullptr;
    if (size < least_buffer || size < sizeof kUserName + sizeof kUserHome)
        return ERANGE;
    if (nobody_is_known)
        return 0;
    *entry = {};
    entry->pw_name = std::strcpy(buffer, kUserName);
    entry->pw_dir = std::strcpy(buffer + sizeof kUserName, kUserHome);
    *found = entry;
    return 0;
}

extern "C" int getpwuid_r(uid_t, struct passwd *entry, char *buffer, std::size_t size,
                          struct passwd **found)
{
    return give_user(entry, buffer, size, found);
}

extern "C" int getpwnam_r(const char *name, struct passwd *entry, char *buffer, std::size_t size,
                          struct passwd **found)
{
    if (std::strcmp(name, kUserName) == 0)
        return give_user(entry, buffer, size, found);
    using Real = int(const char *, struct passwd *, char *, std::size_t, struct passwd **);
    return reinterpret_cast<Real *>(dlsym(RTLD_NEXT, "getpwnam_r"))(name, entry, buffer, size,
                                                                    found);
}
