// The answer of Linux to deviants/attributes.h.

#include "deviants/attributes.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <sys/xattr.h>

namespace {

constexpr std::size_t kMostBytes = 65536;  // of all names, and of one value

struct Free {
    void operator()(void *block) const { std::free(block); }
};

struct Attributes {
    char names[kMostBytes];
    char value[kMostBytes];
    char present[kMostBytes];
};

// The system itself may have given the new file the same value, which may not be set.
bool copy_attribute(int from, int to, const char *name, Attributes *space)
{
    const ssize_t bytes = fgetxattr(from, name, space->value, kMostBytes);
    if (bytes < 0)
        return errno == ENODATA;
    const auto size = static_cast<std::size_t>(bytes);
    if (fsetxattr(to, name, space->value, size, 0) == 0)
        return true;
    const int error = errno;
    const bool same = fgetxattr(to, name, space->present, kMostBytes) == bytes &&
                      std::memcmp(space->value, space->present, size) == 0;
    errno = error;
    return same;
}

}  // namespace

namespace stock {

void copy_attributes(int from, int to, const char *path,
                     void (*lost)(const char *what, const char *path))
{
    const ssize_t any = flistxattr(from, nullptr, 0);
    if (any == 0 || (any < 0 && errno == ENOTSUP))
        return;
    const std::unique_ptr<Attributes, Free> space(
        static_cast<Attributes *>(std::malloc(sizeof(Attributes))));
    const ssize_t length = space && any > 0 ? flistxattr(from, space->names, kMostBytes) : -1;
    if (length < 0 && lost)
        lost("the attributes", path);
    for (ssize_t at = 0; at < length;) {
        const char *name = space->names + at;
        char what[300];
        std::snprintf(what, sizeof what, "the attribute '%s'", name);
        if (!copy_attribute(from, to, name, space.get()) && lost)
            lost(what, path);
        at += static_cast<ssize_t>(std::strlen(name)) + 1;
    }
}

}  // namespace stock
