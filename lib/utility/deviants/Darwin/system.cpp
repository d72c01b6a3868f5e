// The answers of macOS to deviants/system.h.

#include "deviants/system.h"

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
#include <mach-o/dyld.h>
#include <sys/sysctl.h>
#include <unistd.h>

// Programs know these signals by the numbers that they have on this system.
static_assert(SIGEMT == 7 && SIGBUS == 10 && SIGSYS == 12 && SIGURG == 16 && SIGSTOP == 17 &&
              SIGTSTP == 18 && SIGCONT == 19 && SIGCHLD == 20 && SIGIO == 23 && SIGINFO == 29 &&
              SIGUSR1 == 30 && SIGUSR2 == 31);

namespace stock {

namespace {

// Whether the processor has a feature, by the system's name for it.
bool runs(const char *feature)
{
    char name[64];
    snprintf(name, sizeof name, "hw.optional.%s", feature);
    int answer = 0;
    size_t size = sizeof answer;
    return sysctlbyname(name, &answer, &size, nullptr, 0) == 0 && answer != 0;
}

}  // namespace

const char *const kLibraryEnding = ".dylib";

bool program_file(char *buffer, unsigned size)
{
    uint32_t room = size;
    return _NSGetExecutablePath(buffer, &room) == 0;
}

const void *loaded_at(const void *address)
{
    Dl_info info;
    return dladdr(address, &info) != 0 ? info.dli_fbase : nullptr;
}

int frame_text(const Frame &frame, char *buffer, std::size_t size)
{
    const char *slash = frame.image ? strrchr(frame.image, '/') : nullptr;
    const char *image = slash ? slash + 1 : frame.image;
    char address[24];
    snprintf(address, sizeof address, "0x%llx",
             static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(frame.address)));
    return snprintf(
        buffer, size, "%-4d%-35s 0x%016llx %s + %zu", frame.index, image ? image : "???",
        static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(frame.address)),
        frame.name ? frame.name : address, frame.offset);
}

bool take_disk_space(int fd, std::int64_t, std::int64_t bytes)
{
    fstore_t space = {F_ALLOCATEALL, F_PEOFPOSMODE, 0, bytes, 0};
    return fcntl(fd, F_PREALLOCATE, &space) != -1;
}

const char *trusted_env(const char *name)
{
    return issetugid() ? nullptr : std::getenv(name);
}

bool rename_new(const char *from, const char *to)
{
    return renamex_np(from, to, RENAME_EXCL) == 0;
}

Vectors widest_vectors()
{
    if (runs("avx512bw") && runs("avx512dq") && runs("avx512vl"))
        return Vectors::avx512;
    if (runs("avx2_0"))
        return Vectors::avx2;
    if (runs("sse4_1") && runs("supplementalsse3"))
        return Vectors::sse41;
    return Vectors::none;
}

}  // namespace stock
