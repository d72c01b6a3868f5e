// The answers of Linux to deviants/system.h.

#include "deviants/system.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/auxv.h>
#include <unistd.h>

namespace stock {

const char *const kLibraryEnding = ".so";

bool program_file(char *buffer, unsigned size)
{
    const ssize_t length = readlink("/proc/self/exe", buffer, size);
    if (length <= 0 || length == static_cast<ssize_t>(size))
        return false;
    buffer[length] = '\0';
    return true;
}

const void *loaded_at(const void *address)
{
    Dl_info info;
    link_map *map = nullptr;
    const bool found =
        dladdr1(address, &info, reinterpret_cast<void **>(&map), RTLD_DL_LINKMAP) != 0;
    return found && map ? reinterpret_cast<const void *>(map->l_addr) : nullptr;
}

int frame_text(const Frame &frame, char *buffer, std::size_t size)
{
    if (!frame.image)
        return snprintf(buffer, size, "[%p]", frame.address);
    if (!frame.name && frame.offset == reinterpret_cast<std::uintptr_t>(frame.address))
        return snprintf(buffer, size, "%s() [%p]", frame.image, frame.address);
    return snprintf(buffer, size, "%s(%s+%#zx) [%p]", frame.image, frame.name ? frame.name : "",
                    frame.offset, frame.address);
}

bool take_disk_space(int fd, std::int64_t end, std::int64_t bytes)
{
    do
        errno = posix_fallocate(fd, end, bytes);
    while (errno == EINTR);
    return errno == 0;
}

const char *trusted_env(const char *name)
{
    return getauxval(AT_SECURE) ? nullptr : std::getenv(name);
}

bool rename_new(const char *from, const char *to)
{
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0)
        return true;
    // Some file systems do not know the flag. There a hard link, which fails when the new name
    // exists, takes its place.
    if ((errno != EINVAL && errno != ENOSYS) || link(from, to) != 0)
        return false;
    if (unlink(from) == 0)
        return true;
    const int error = errno;
    unlink(to);  // the old name stays, so the new one goes again
    errno = error;
    return false;
}

Vectors widest_vectors()
{
#if defined(__x86_64__)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq") &&
        __builtin_cpu_supports("avx512vl"))
        return Vectors::avx512;
    if (__builtin_cpu_supports("avx2"))
        return Vectors::avx2;
    if (__builtin_cpu_supports("sse4.1") && __builtin_cpu_supports("ssse3"))
        return Vectors::sse41;
#endif
    return Vectors::none;
}

}  // namespace stock
