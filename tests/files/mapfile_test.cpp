// Mapped files: one mapping for each file of a cache, and what happens when the system has
// no room, when a call fails, or when the file changes meanwhile.
//
// The program replaces system calls, so that they can fail.

#include "stock/mapfile.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/logged.h"
#include "support/nobody.h"
#include "support/owners.h"
#include "support/temp_dir.h"

namespace {

int maps = 0;                 // how often mmap was called for a shared mapping
int map_failures = 0;         // how many of the next mappings fail ...
int map_errno = ENOMEM;       // ... with this errno
int refused_protections = 0;  // how often mprotect failed
bool unmap_fails = false;
bool status_fails = false;
std::function<void()> after_status;  // runs once, behind the next status

}  // namespace

// The thread sanitizer calls the first two before it is initialised.
#define UNWATCHED __attribute__((no_sanitize("thread")))

extern "C" {

UNWATCHED void *mmap(void *at, size_t size, int prot, int flags, int fd, off_t offset) noexcept
{
    if (flags & MAP_SHARED) {
        __atomic_fetch_add(&maps, 1, __ATOMIC_RELAXED);
        if (map_failures > 0) {
            --map_failures;
            errno = map_errno;
            return MAP_FAILED;
        }
    }
    return reinterpret_cast<void *>(syscall(SYS_mmap, at, size, prot, flags, fd, offset));
}

UNWATCHED int mprotect(void *address, size_t size, int prot) noexcept
{
    const auto result = static_cast<int>(syscall(SYS_mprotect, address, size, prot));
    refused_protections += result != 0;
    return result;
}

UNWATCHED int munmap(void *address, size_t size) noexcept
{
    if (unmap_fails) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(syscall(SYS_munmap, address, size));
}

int fstat(int fd, struct stat *status) noexcept
{
    static auto *const next = reinterpret_cast<decltype(fstat) *>(dlsym(RTLD_NEXT, "fstat"));
    if (status_fails) {
        errno = EIO;
        return -1;
    }
    const int result = next(fd, status);
    if (after_status)
        std::exchange(after_status, nullptr)();
    return result;
}
}

namespace {

void *const kNone = reinterpret_cast<void *>(-1);

// How the memory at an address is mapped: "r--s", "rw-s", or empty.
std::string protection_at(const void *address)
{
    std::ifstream in("/proc/self/maps");
    char wanted[32];
    snprintf(wanted, sizeof wanted, "%lx-", reinterpret_cast<unsigned long>(address));
    for (std::string line; std::getline(in, line);)
        if (line.starts_with(wanted))
            return line.substr(line.find(' ') + 1, 4);
    return "";
}

struct FreeCache {
    void operator()(Arr *cache) const
    {
        unmaparr(cache);
        freearr(cache, nullptr);
    }
};
using CachePtr = std::unique_ptr<Arr, FreeCache>;

class MapfileBase : public testing::Test {
protected:
    MapfileBase() : cache_(newarr(nullptr)) { elog_clear(); }
    ~MapfileBase() override
    {
        map_failures = 0;
        map_errno = ENOMEM;
        unmap_fails = status_fails = false;
        after_status = nullptr;
        unmaparr(nullptr);
    }

    int64_t map(const std::string &file)
    {
        address_ = nullptr;
        return mapfile(file.c_str(), &address_, cache_.get());
    }
    int64_t view(const std::string &file, int64_t offset, int64_t length)
    {
        address_ = nullptr;
        return lmapfile(file.c_str(), &address_, offset, length);
    }
    Mapdata *vmap(const std::string &file) { return vmapfile(file.c_str(), cache_.get()); }
    Mapdata *record(const std::string &file) const
    {
        return static_cast<Mapdata *>(getarr(cache_.get(), file.c_str()));
    }
    std::string seen(int64_t size) const
    {
        return {static_cast<const char *>(address_), static_cast<size_t>(size)};
    }

    TempDir dir_;
    CachePtr cache_;
    void *address_ = nullptr;
    const int64_t page_ = sysconf(_SC_PAGESIZE);
};

using Mapfile = MapfileBase;
using Wmapfile = MapfileBase;
using Vmapfile = MapfileBase;
using Lmapfile = MapfileBase;
using Unmapfile = MapfileBase;
using MapfileThreads = MapfileBase;

}  // namespace

TEST_F(Mapfile, MapsTheWholeFileForReading)
{
    const std::string file = dir_.file("f", "twelve bytes");
    EXPECT_EQ(map(file), 12);
    EXPECT_EQ(seen(12), "twelve bytes");
    EXPECT_EQ(protection_at(address_), "r--s");
    EXPECT_EQ(take_log(), "");
}

TEST_F(Mapfile, TheSameFileTwiceIsMappedOnceAtTheSameAddress)
{
    const std::string file = dir_.file("f", "twelve bytes");
    for (Arr *cache : {cache_.get(), static_cast<Arr *>(nullptr)}) {
        void *first = nullptr;
        void *second = nullptr;
        maps = 0;
        EXPECT_EQ(mapfile(file.c_str(), &first, cache), 12);
        EXPECT_EQ(mapfile(file.c_str(), &second, cache), 12);
        EXPECT_EQ(first, second);
        EXPECT_EQ(maps, 1);
    }
}

TEST_F(Mapfile, TheCacheOfTheProcessHoldsManyFiles)
{
    const std::string a = dir_.file("a", "x"), b = dir_.file("b", "xx");
    maps = 0;
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(mapfile(a.c_str(), nullptr, nullptr), 1);
        EXPECT_EQ(mapfile(b.c_str(), nullptr, nullptr), 2);
    }
    EXPECT_EQ(maps, 2);
}

TEST_F(Mapfile, EachCacheHasItsOwnMapping)
{
    const std::string file = dir_.file("f", "x");
    void *shared = nullptr;
    EXPECT_EQ(mapfile(file.c_str(), &shared, nullptr), 1);
    EXPECT_EQ(map(file), 1);
    EXPECT_NE(address_, shared);
    EXPECT_EQ(unmapfile(file.c_str(), cache_.get()), 0);
    EXPECT_EQ(protection_at(shared), "r--s");
}

TEST_F(Mapfile, AFileIsKnownByItsNameAsGiven)
{
    const std::string file = dir_.file("f", "x");
    EXPECT_EQ(map(file), 1);
    void *const first = address_;
    EXPECT_EQ(map(dir_ / "./f"), 1);
    EXPECT_NE(address_, first);
}

TEST_F(Mapfile, TheCacheGoesOnShowingAFileThatWasReplaced)
{
    const std::string file = dir_.file("f", "old");
    EXPECT_EQ(map(file), 3);
    rename(dir_.file("g", "newer").c_str(), file.c_str());
    EXPECT_EQ(map(file), 3);
    EXPECT_EQ(seen(3), "old");
    EXPECT_EQ(unmapfile(file.c_str(), cache_.get()), 0);
    EXPECT_EQ(map(file), 5);
}

TEST_F(Mapfile, AnEmptyFileIsRefusedWithoutTheSystemsReason)
{
    const std::string file = dir_.file("f", "");
    errno = ENOENT;
    EXPECT_EQ(map(file), -1);
    EXPECT_EQ(address_, kNone);
    EXPECT_EQ(take_log(), "'" + file + "' is empty\n");
    EXPECT_EQ(record(file), nullptr);
}

TEST_F(Mapfile, AMissingFileCannotBeOpened)
{
    EXPECT_EQ(map(dir_ / "none"), -1);
    EXPECT_EQ(address_, kNone);
    EXPECT_EQ(take_log(), "Couldn't open " + dir_ / "none" + "\n\tNo such file or directory\n");
}

TEST_F(Mapfile, ANullFileCannotBeOpened)
{
    EXPECT_EQ(mapfile(nullptr, &address_, nullptr), -1);
    EXPECT_EQ(address_, kNone);
    EXPECT_EQ(take_log(), "Couldn't open (null)\n\tBad address\n");
    EXPECT_EQ(wmapfile(nullptr, &address_, cache_.get()), -1);
    EXPECT_EQ(vmapfile(nullptr, cache_.get()), nullptr);
    EXPECT_EQ(lmapfile(nullptr, &address_, 0, 1), -1);
    EXPECT_EQ(unmapfile(nullptr, cache_.get()), -1);
    EXPECT_EQ(unmapfile(nullptr, nullptr), -1);
}

TEST_F(Mapfile, TheAddressMayBeLeftOut)
{
    const std::string file = dir_.file("f", "x");
    EXPECT_EQ(mapfile(file.c_str(), nullptr, cache_.get()), 1);
    EXPECT_EQ(mapfile((dir_ / "none").c_str(), nullptr, cache_.get()), -1);
}

TEST_F(Mapfile, AStatusThatFailsIsReported)
{
    const std::string file = dir_.file("f", "x");
    status_fails = true;
    EXPECT_EQ(map(file), -1);
    status_fails = false;
    EXPECT_EQ(address_, kNone);
    EXPECT_EQ(take_log(), "fstat failed for '" + file + "'\n\tInput/output error\n");
}

TEST_F(Mapfile, ADirectoryCannotBeMapped)
{
    EXPECT_EQ(map(dir_.path()), -1);
    EXPECT_EQ(address_, kNone);
    EXPECT_EQ(take_log(), "Can't map file " + dir_.path() + "\n\tNo such device\n");
}

TEST_F(Mapfile, AQueueIsNotWaitedFor)
{
    const std::string fifo = dir_ / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(map(fifo), -1);
    EXPECT_EQ(take_log(), "'" + fifo + "' is empty\n");
}

TEST_F(Mapfile, AFileMayBeOpenedAsDescriptor0)
{
    const std::string file = dir_.file("f", "twelve bytes");
    const Ended ended = in_child([&] {
        close(0);
        const int64_t size = map(file);
        printf("%d %d ", static_cast<int>(size), fcntl(0, F_GETFD));
        const int64_t writable = wmapfile(file.c_str(), nullptr, cache_.get());
        printf("%d %d ", static_cast<int>(writable), fcntl(0, F_GETFD));
        printf("%d", static_cast<int>(view(file, 0, 3)));
    });
    EXPECT_EQ(ended.out, "12 -1 12 -1 3");
}

TEST_F(Mapfile, AFailureLeavesNoDescriptorOpen)
{
    const int before = open("/dev/null", O_RDONLY);
    close(before);
    map(dir_.file("empty", ""));
    map(dir_.path());
    map(dir_.file("f", "x"));
    const int after = open("/dev/null", O_RDONLY);
    close(after);
    EXPECT_EQ(after, before);
}

TEST_F(Mapfile, AReleasedRecordIsMappedAgain)
{
    const std::string file = dir_.file("f", "x");
    EXPECT_EQ(map(file), 1);
    EXPECT_EQ(vunmapfile(cache_.get()), 0);
    EXPECT_EQ(record(file)->address, nullptr);
    EXPECT_EQ(map(file), 1);
    EXPECT_EQ(record(file)->address, address_);
    EXPECT_EQ(seen(1), "x");
}

TEST_F(Mapfile, AFileThatShrinksBehindItsStatusIsMappedAsItIs)
{
    const std::string file = dir_.file("f", std::string(static_cast<size_t>(3 * page_), 'x'));
    after_status = [&] { EXPECT_EQ(truncate(file.c_str(), 5), 0); };
    EXPECT_EQ(map(file), 5);
    EXPECT_EQ(seen(5), "xxxxx");
    EXPECT_EQ(record(file)->size, 5u);
}

TEST_F(Mapfile, AFileThatIsEmptiedBehindItsStatusIsEmpty)
{
    const std::string file = dir_.file("f", "twelve bytes");
    after_status = [&] { EXPECT_EQ(truncate(file.c_str(), 0), 0); };
    EXPECT_EQ(map(file), -1);
    EXPECT_EQ(take_log(), "'" + file + "' is empty\n");
}

TEST_F(Mapfile, EachMappingAndReuseCountsUp)
{
    const std::string a = dir_.file("a", "x");
    const std::string b = dir_.file("b", "x");
    map(a);
    const int first = record(a)->used;
    map(b);
    EXPECT_EQ(record(b)->used, first + 1);
    map(a);
    EXPECT_EQ(record(a)->used, first + 2);
    mapfile(b.c_str(), nullptr, nullptr);
    vmap(b);
    EXPECT_EQ(record(b)->used, first + 4);
}

TEST_F(Mapfile, FilesBeyondFourGigabytesAreMappedWhole)
{
    const std::string file = dir_.file("f", "");
    ASSERT_EQ(truncate(file.c_str(), 0x140000001), 0);
    EXPECT_EQ(map(file), 0x140000001);
    EXPECT_EQ(static_cast<const char *>(address_)[0x140000000], 0);
}

TEST_F(Mapfile, AMessageMayItselfMapFiles)
{
    static const std::string other = dir_.file("other", "x");
    static int64_t mapped = 0;
    const auto callback = [](int, const char *, Tbl *) {
        mapped = mapfile(other.c_str(), nullptr, nullptr);
        return 1;
    };
    elog_set(ELOG_CALLBACK_FN, 0, static_cast<int (*)(int, const char *, Tbl *)>(callback));
    EXPECT_EQ(mapfile((dir_ / "none").c_str(), nullptr, nullptr), -1);
    elog_set(ELOG_CALLBACK_FN, 0, nullptr);
    EXPECT_EQ(mapped, 1);
}

TEST_F(Wmapfile, WhatIsWrittenIsInTheFile)
{
    const std::string file = dir_.file("f", "twelve bytes");
    EXPECT_EQ(wmapfile(file.c_str(), &address_, cache_.get()), 12);
    EXPECT_EQ(protection_at(address_), "rw-s");
    memcpy(address_, "TWELVE", 6);
    EXPECT_EQ(read_file(file), "TWELVE bytes");
    EXPECT_NE(record(file)->writable, 0);
}

TEST_F(Wmapfile, TheMappingServesReadersToo)
{
    const std::string file = dir_.file("f", "x");
    void *written = nullptr;
    EXPECT_EQ(wmapfile(file.c_str(), &written, nullptr), 1);
    EXPECT_EQ(mapfile(file.c_str(), &address_, nullptr), 1);
    EXPECT_EQ(address_, written);
}

TEST_F(Wmapfile, AMappingForReadingBecomesWritableWhereItIs)
{
    const std::string file = dir_.file("f", "twelve bytes");
    EXPECT_EQ(map(file), 12);
    void *written = nullptr;
    EXPECT_EQ(wmapfile(file.c_str(), &written, cache_.get()), 12);
    EXPECT_EQ(written, address_);
    memcpy(written, "TWELVE", 6);
    EXPECT_EQ(seen(12), "TWELVE bytes");
    EXPECT_EQ(read_file(file), "TWELVE bytes");
}

// The bytes of the new file used to appear in the mapping of the old one.
TEST_F(Wmapfile, AMappingWhoseFileWasReplacedIsGivenForReading)
{
    const std::string file = dir_.file("f", "twelve bytes");
    EXPECT_EQ(map(file), 12);
    void *const reading = address_;
    for (const char *text : {"short", "another text that is longer"}) {
        rename(dir_.file("g", text).c_str(), file.c_str());
        EXPECT_EQ(wmapfile(file.c_str(), &address_, cache_.get()), 12);
        EXPECT_EQ(address_, reading);
        EXPECT_EQ(seen(12), "twelve bytes");
        EXPECT_EQ(protection_at(address_), "r--s");
        EXPECT_EQ(record(file)->writable, 0);
    }
    EXPECT_EQ(unmapfile(file.c_str(), cache_.get()), 0);
    EXPECT_EQ(wmapfile(file.c_str(), &address_, cache_.get()), 27);
    EXPECT_EQ(take_log(), "");
}

TEST_F(Wmapfile, AMappingWhoseFileWasRemovedIsGivenForReading)
{
    const std::string file = dir_.file("f", "twelve bytes");
    EXPECT_EQ(map(file), 12);
    void *const reading = address_;
    unlink(file.c_str());
    EXPECT_EQ(wmapfile(file.c_str(), &address_, cache_.get()), 12);
    EXPECT_EQ(address_, reading);
    EXPECT_EQ(protection_at(address_), "r--s");
    EXPECT_EQ(take_log(), "");
}

// The mapping was once known by its address alone, which another file's mapping may have got.
TEST_F(Wmapfile, AMappingThatAnotherFileTookMeanwhileKeepsItsBytes)
{
    const std::string file = dir_.file("f", "north");
    const std::string other = dir_.file("g", "south");
    map(file);
    const void *const before = address_;
    after_status = [&] {  // wmapfile has opened the file, and looks at the cache next
        unmapfile(file.c_str(), cache_.get());
        rename(other.c_str(), file.c_str());
        map(file);
    };
    void *writable = nullptr;
    EXPECT_EQ(wmapfile(file.c_str(), &writable, cache_.get()), 5);
    if (address_ != before)
        GTEST_SKIP() << "the address was not used again";
    EXPECT_EQ(writable, before);
    EXPECT_EQ(seen(5), "south");
}

TEST_F(Wmapfile, AWritableMappingWhoseFileWasReplacedIsGivenAgain)
{
    const std::string file = dir_.file("f", "twelve bytes");
    EXPECT_EQ(wmapfile(file.c_str(), &address_, cache_.get()), 12);
    void *const writable = address_;
    rename(dir_.file("g", "new").c_str(), file.c_str());
    EXPECT_EQ(wmapfile(file.c_str(), &address_, cache_.get()), 12);
    EXPECT_EQ(address_, writable);
    EXPECT_EQ(protection_at(address_), "rw-s");
}

TEST_F(Wmapfile, AFileThatHasGrownOrShrunkSinceBecomesWritableAsItWasMapped)
{
    for (const off_t size : {5, 20}) {
        const std::string file = dir_.file("f", "twelve bytes");
        EXPECT_EQ(map(file), 12);
        ASSERT_EQ(truncate(file.c_str(), size), 0);
        EXPECT_EQ(wmapfile(file.c_str(), &address_, cache_.get()), 12);
        EXPECT_EQ(protection_at(address_), "rw-s");
        memcpy(address_, "TWELV", 5);
        EXPECT_EQ(read_file(file).substr(0, 5), "TWELV");
        unmapfile(file.c_str(), cache_.get());
    }
}

TEST_F(Wmapfile, AMappingThatTheSystemDoesNotMakeWritableStaysForReading)
{
    const std::string file = dir_.file("f", "twelve bytes");
    EXPECT_EQ(map(file), 12);
    map_failures = 1;
    map_errno = EPERM;
    EXPECT_EQ(wmapfile(file.c_str(), &address_, cache_.get()), -1);
    EXPECT_EQ(address_, kNone);
    EXPECT_EQ(take_log(), "Can't map file " + file + "\n\tOperation not permitted\n");
    EXPECT_EQ(map(file), 12);
    EXPECT_EQ(protection_at(address_), "r--s");
}

TEST_F(Wmapfile, AFileThatMayOnlyBeReadCannotBeOpened)
{
    chmod(dir_.path().c_str(), 0755);
    const std::string file = dir_.file("f", "x");
    chmod(file.c_str(), 0444);
    const Ended ended = as_nobody([&] {
        printf("%ld %ld ", static_cast<long>(mapfile(file.c_str(), &address_, nullptr)),
               static_cast<long>(wmapfile(file.c_str(), nullptr, nullptr)));
        printf("%s", take_log().c_str());
        printf("%s", seen(1).c_str());
    });
    EXPECT_EQ(ended.out, "1 -1 Couldn't open " + file + "\n\tPermission denied\nx");
}

TEST_F(Vmapfile, GivesTheRecordOfTheCache)
{
    const std::string file = dir_.file("f", "twelve bytes");
    Mapdata *const mapped = vmap(file);
    ASSERT_NE(mapped, nullptr);
    EXPECT_EQ(mapped, record(file));
    EXPECT_EQ(mapped->size, 12u);
    EXPECT_EQ(memcmp(mapped->address, "twelve bytes", 12), 0);
    EXPECT_EQ(vmap(file), mapped);
    EXPECT_EQ(vmapfile(file.c_str(), nullptr)->size, 12u);
}

TEST_F(Vmapfile, WhatCannotBeMappedGivesNullAndAMessage)
{
    EXPECT_EQ(vmap(dir_ / "none"), nullptr);
    EXPECT_EQ(take_log(), "Couldn't open " + dir_ / "none" + "\n\tNo such file or directory\n");
    EXPECT_EQ(vmap(dir_.file("empty", "")), nullptr);
    EXPECT_EQ(take_log(), "'" + dir_ / "empty" + "' is empty\n");
    EXPECT_EQ(cntarr(cache_.get()), 0);
}

TEST_F(Vmapfile, WithoutRoomTheLeastRecentlyUsedMappingsAreReleased)
{
    const std::string a = dir_.file("a", "a"), b = dir_.file("b", "b"), c = dir_.file("c", "c");
    vmap(a);
    vmap(b);
    vmap(c);
    vmap(a);
    map_failures = 2;
    const Mapdata *const mapped = vmap(dir_.file("d", "d"));
    ASSERT_NE(mapped, nullptr);
    EXPECT_EQ(*static_cast<const char *>(mapped->address), 'd');
    EXPECT_EQ(record(b)->address, nullptr);
    EXPECT_EQ(record(c)->address, nullptr);
    EXPECT_NE(record(a)->address, nullptr);
    EXPECT_EQ(take_log(), "");
}

TEST_F(Vmapfile, AReleasedRecordIsMappedAgain)
{
    const std::string file = dir_.file("f", "x");
    Mapdata *const mapped = vmap(file);
    EXPECT_EQ(vunmapfile(cache_.get()), 0);
    EXPECT_EQ(mapped->address, nullptr);
    EXPECT_EQ(vmap(file), mapped);
    EXPECT_EQ(*static_cast<const char *>(mapped->address), 'x');
}

TEST_F(Vmapfile, WithNothingLeftToReleaseItGivesUp)
{
    const std::string a = dir_.file("a", "a");
    vmap(a);
    map_failures = INT_MAX;
    EXPECT_EQ(vmap(dir_.file("b", "b")), nullptr);
    EXPECT_EQ(record(a)->address, nullptr);
    EXPECT_EQ(record(dir_ / "b"), nullptr);
    EXPECT_EQ(take_log(), "Can't map file " + dir_ / "b" + "\n\tCannot allocate memory\n");
}

TEST_F(Vmapfile, WorksOnTheCacheOfTheProcessToo)
{
    const std::string a = dir_.file("a", "a");
    const Mapdata *const first = vmapfile(a.c_str(), nullptr);
    map_failures = 1;
    EXPECT_NE(vmapfile(dir_.file("b", "b").c_str(), nullptr), nullptr);
    EXPECT_EQ(first->address, nullptr);
}

TEST_F(Vmapfile, AFileThatCanNeverBeMappedReleasesNothing)
{
    const std::string a = dir_.file("a", "a");
    vmap(a);
    EXPECT_EQ(vmap(dir_.path()), nullptr);
    EXPECT_NE(record(a)->address, nullptr);
}

TEST_F(Vmapfile, MapsMoreThanTheProcessMayHold)
{
    constexpr int kFiles = 8;
    constexpr rlim_t kSize = 64 << 20;
    for (int i = 0; i < kFiles; ++i)
        EXPECT_EQ(truncate(dir_.file(std::to_string(i), "").c_str(), kSize), 0);
    const Ended ended = in_child([&] {
        rlim_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        const rlim_t limit = pages * static_cast<rlim_t>(page_) + 4 * kSize + (16 << 20);
        const struct rlimit limits = {limit, limit};
        setrlimit(RLIMIT_AS, &limits);
        int released = 0;
        for (int i = 0; i < kFiles; ++i)
            if (!vmap(dir_ / std::to_string(i)))
                printf("%d refused ", i);
        for (int i = 0; i < kFiles; ++i)
            released += !record(dir_ / std::to_string(i))->address;
        printf("%d", released >= 4 && released < kFiles);
    });
    EXPECT_EQ(ended.out, "1");
}

// Makes mappings until the system refuses, then unmaps the given number of them.
void take_all_mappings_but(size_t spare)
{
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    constexpr size_t kPages = size_t{1} << 22;
    auto *pages = static_cast<char *>(mmap(nullptr, kPages * page, PROT_NONE,
                                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    size_t i = 1;
    while (i < kPages && mprotect(pages + i * page, page, PROT_READ) == 0)
        i += 2;
    mprotect(pages + (i - spare) * page, (spare + 1) * page, PROT_NONE);
}

// Whether the system gives the process that many more mappings.
bool can_have_mappings(size_t n)
{
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    for (size_t i = 0; i < n; ++i)
        if (mmap(nullptr, page, i % 2 ? PROT_READ : PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1,
                 0) == MAP_FAILED)
            return false;
    return true;
}

// vmapfile used to take the last mapping, so that memory ran out.
TEST_F(Vmapfile, LeavesMappingsToTheRestOfTheProcess)
{
    constexpr int kFiles = 300;
    for (int i = 0; i < kFiles; ++i)
        dir_.file(std::to_string(i), std::to_string(i));
    const Ended ended = in_child([&] {
        take_all_mappings_but(150);
        int mapped = 0;
        int kept = 0;
        for (int i = 0; i < kFiles; ++i) {
            const Mapdata *const file = vmap(dir_ / std::to_string(i));
            mapped += file && *static_cast<char *>(file->address) == std::to_string(i)[0];
        }
        for (int i = 0; i < kFiles; ++i)
            kept += record(dir_ / std::to_string(i))->address != nullptr;
        const bool left = can_have_mappings(50);
        printf("%d %d %d", mapped, kept >= 50 && kept < 100, left);
        fflush(stdout);
        _exit(0);
    });
    EXPECT_EQ(ended.out, "300 1 1");
    EXPECT_EQ(ended.err, "");
}

// Asking the system how many mappings are left takes the last ones for a moment, so that other
// threads get none. vmapfile used to ask at every fourth call.
TEST_F(Vmapfile, SeldomAsksTheSystemForMoreMappingsThanAreLeft)
{
    constexpr int kFiles = 600;
    for (int i = 0; i < kFiles; ++i)
        dir_.file(std::to_string(i), "x");
    const Ended ended = in_child([&] {
        take_all_mappings_but(600);
        refused_protections = 0;
        int mapped = 0;
        for (int i = 0; i < 3 * kFiles; ++i)
            mapped += vmap(dir_ / std::to_string(i % kFiles)) != nullptr;
        printf("%d %d %d", mapped, refused_protections > 0, refused_protections <= 1800 / 20);
        fflush(stdout);
        _exit(0);
    });
    EXPECT_EQ(ended.out, "1800 1 1");
}

TEST_F(Vmapfile, GivesUpBeforeItTakesTheLastMappings)
{
    const std::string file = dir_.file("f", "x");
    const Ended ended = in_child([&] {
        take_all_mappings_but(150);
        int mapped = 0;
        while (mapped < 300 && vmapfile(file.c_str(), newarr(nullptr)))  // nothing to release
            ++mapped;
        const bool left = can_have_mappings(50);
        printf("%d %d %s", mapped > 0 && mapped < 150, left, take_log().c_str());
        fflush(stdout);
        _exit(0);
    });
    EXPECT_EQ(ended.out, "1 1 Can't map file " + file + "\n\tCannot allocate memory\n");
}

TEST_F(Unmapfile, DropsTheFileFromTheCache)
{
    const std::string file = dir_.file("f", "x");
    map(file);
    EXPECT_EQ(unmapfile(file.c_str(), cache_.get()), 0);
    EXPECT_EQ(protection_at(address_), "");
    EXPECT_EQ(record(file), nullptr);
    EXPECT_EQ(unmapfile(file.c_str(), cache_.get()), -1);
}

TEST_F(Unmapfile, AFileThatIsNotInTheCacheGivesMinusOneWithoutAMessage)
{
    EXPECT_EQ(unmapfile("none", cache_.get()), -1);
    EXPECT_EQ(unmapfile("none", nullptr), -1);
    EXPECT_EQ(take_log(), "");
}

TEST_F(Unmapfile, AReleasedRecordIsDropped)
{
    const std::string file = dir_.file("f", "x");
    vmap(file);
    vunmapfile(cache_.get());
    EXPECT_EQ(unmapfile(file.c_str(), cache_.get()), 0);
    EXPECT_EQ(cntarr(cache_.get()), 0);
}

TEST_F(Unmapfile, ARefusalIsReportedAndTheFileDroppedAllTheSame)
{
    const std::string file = dir_.file("f", "x");
    map(file);
    unmap_fails = true;
    EXPECT_EQ(unmapfile(file.c_str(), cache_.get()), -1);
    unmap_fails = false;
    EXPECT_EQ(take_log(), "Failed to unmap file " + file + "\n\tInvalid argument\n");
    EXPECT_EQ(record(file), nullptr);
    munmap(address_, 1);
}

TEST_F(Unmapfile, VunmapfileReleasesTheLeastRecentlyUsedAndKeepsItsRecord)
{
    const std::string a = dir_.file("a", "x"), b = dir_.file("b", "x");
    map(a);
    void *const first = address_;
    map(b);
    EXPECT_EQ(vunmapfile(cache_.get()), 0);
    EXPECT_EQ(record(a)->address, nullptr);
    EXPECT_EQ(protection_at(first), "");
    EXPECT_NE(record(b)->address, nullptr);
    EXPECT_EQ(vunmapfile(cache_.get()), 0);
    EXPECT_EQ(record(b)->address, nullptr);
    EXPECT_EQ(vunmapfile(cache_.get()), -1);
}

TEST_F(Unmapfile, VunmapfileOfNothingGivesMinusOne)
{
    EXPECT_EQ(vunmapfile(cache_.get()), -1);
    EXPECT_EQ(vunmapfile(nullptr), -1);
    EXPECT_EQ(take_log(), "");
}

TEST_F(Unmapfile, VunmapfileThatTheSystemRefusesKeepsTheMapping)
{
    const std::string file = dir_.file("f", "x");
    map(file);
    unmap_fails = true;
    EXPECT_EQ(vunmapfile(cache_.get()), -1);
    unmap_fails = false;
    EXPECT_EQ(record(file)->address, address_);
}

TEST_F(Unmapfile, TheOldestIsFoundAlsoAfterTheCountWrappedAround)
{
    const std::string a = dir_.file("a", "x"), b = dir_.file("b", "x");
    map(a);
    map(b);
    record(a)->used = 1;
    record(b)->used = INT_MAX;  // used before the count wrapped around to 1
    EXPECT_EQ(vunmapfile(cache_.get()), 0);
    EXPECT_EQ(record(b)->address, nullptr);
    EXPECT_NE(record(a)->address, nullptr);
}

TEST_F(Unmapfile, UnmaparrLeavesAnEmptyCache)
{
    std::vector<void *> addresses;
    for (const char *name : {"a", "b", "c"}) {
        map(dir_.file(name, "x"));
        addresses.push_back(address_);
    }
    vunmapfile(cache_.get());
    EXPECT_EQ(unmaparr(cache_.get()), 0);
    EXPECT_EQ(cntarr(cache_.get()), 0);
    for (const void *address : addresses)
        EXPECT_EQ(protection_at(address), "");
    EXPECT_EQ(map(dir_ / "a"), 1);
}

TEST_F(Unmapfile, UnmaparrOfTheProcessesCacheUnmapsIt)
{
    EXPECT_EQ(unmaparr(nullptr), 0);
    const std::string file = dir_.file("f", "x");
    mapfile(file.c_str(), &address_, nullptr);
    EXPECT_EQ(unmaparr(nullptr), 0);
    EXPECT_EQ(protection_at(address_), "");
    EXPECT_EQ(unmapfile(file.c_str(), nullptr), -1);
    EXPECT_EQ(unmaparr(nullptr), 0);
}

TEST_F(Unmapfile, UnmaparrReportsEachRefusal)
{
    const std::string a = dir_.file("a", "x"), b = dir_.file("b", "x");
    std::vector<void *> addresses;
    for (const std::string &file : {a, b}) {
        map(file);
        addresses.push_back(address_);
    }
    unmap_fails = true;
    EXPECT_EQ(unmaparr(cache_.get()), -1);
    unmap_fails = false;
    EXPECT_EQ(take_log(), "Failed to unmap file " + a +
                              "\n\tInvalid argument\nFailed to unmap file " + b +
                              "\n\tInvalid argument\n");
    EXPECT_EQ(cntarr(cache_.get()), 0);
    for (void *address : addresses)
        munmap(address, 1);
}

TEST_F(Unmapfile, ANewRecordIsZero)
{
    const std::unique_ptr<Mapdata, decltype(&std::free)> fresh(new_Mapdata(), std::free);
    EXPECT_EQ(fresh->address, nullptr);
    EXPECT_EQ(fresh->size, 0u);
    EXPECT_EQ(fresh->used, 0);
    EXPECT_EQ(fresh->writable, 0);
}

TEST_F(Lmapfile, MapsAtMostWhatIsLeftOfTheFile)
{
    std::string text;
    for (int page = 0; page < 3; ++page)
        text += std::string(static_cast<size_t>(page_), static_cast<char>('a' + page));
    const std::string file = dir_.file("f", text + "end");
    EXPECT_EQ(view(file, 0, 5), 5);
    EXPECT_EQ(seen(5), "aaaaa");
    EXPECT_EQ(protection_at(address_), "r--s");
    EXPECT_EQ(view(file, page_, 3), 3);
    EXPECT_EQ(seen(3), "bbb");
    EXPECT_EQ(view(file, 2 * page_, INT64_MAX), page_ + 3);
    EXPECT_EQ(seen(page_ + 3), text.substr(static_cast<size_t>(2 * page_)) + "end");
    EXPECT_EQ(view(file, 3 * page_, 3), 3);
    EXPECT_EQ(seen(3), "end");
}

TEST_F(Lmapfile, TheViewBeforeIsUnmapped)
{
    const std::string file = dir_.file("f", std::string(static_cast<size_t>(4 * page_), 'x'));
    view(file, 0, 4 * page_);
    view(file, 0, page_);
    EXPECT_EQ(seen(page_), std::string(static_cast<size_t>(page_), 'x'));
    const std::string all = read_file("/proc/self/maps");
    EXPECT_NE(all.find(file), std::string::npos);
    EXPECT_EQ(all.find(file), all.rfind(file));
}

TEST_F(Lmapfile, ACallThatFailsLeavesNoView)
{
    const std::string file = dir_.file("f", "x");
    view(file, 0, 1);
    void *const before = address_;
    EXPECT_EQ(view(dir_ / "none", 0, 1), -1);
    EXPECT_EQ(address_, kNone);
    EXPECT_EQ(take_log(), "Couldn't open " + dir_ / "none" + "\n\tNo such file or directory\n");
    // Perhaps not unmapped: the log may have allocated memory at that address meanwhile.
    EXPECT_NE(protection_at(before), "r--s");
}

TEST_F(Lmapfile, OffsetsAndLengthsThatCannotBeMappedAreRefused)
{
    const std::string file = dir_.file("f", std::string(static_cast<size_t>(2 * page_), 'x'));
    const struct {
        int64_t offset, length;
    } cases[] = {{2 * page_, 1}, {3 * page_, 1}, {INT64_MAX, 1}, {-page_, 1}, {INT64_MIN, 1},
                 {1, 1},         {page_ - 1, 1}, {0, 0},         {0, -1},     {0, INT64_MIN}};
    for (const auto &c : cases) {
        errno = ENOENT;  // an old error, which is not the reason
        EXPECT_EQ(view(file, c.offset, c.length), -1) << c.offset << " " << c.length;
        EXPECT_EQ(address_, kNone);
        EXPECT_EQ(take_log(), "Can't map file " + file + "\n\tInvalid argument\n");
    }
}

TEST_F(Lmapfile, AnEmptyFileIsRefused)
{
    const std::string file = dir_.file("f", "");
    EXPECT_EQ(view(file, 0, 1), -1);
    EXPECT_EQ(take_log(), "'" + file + "' is empty\n");
}

TEST_F(Lmapfile, AStatusThatFailsIsReported)
{
    const std::string file = dir_.file("f", "x");
    status_fails = true;
    EXPECT_EQ(view(file, 0, 1), -1);
    status_fails = false;
    EXPECT_EQ(take_log(), "fstat failed for '" + file + "'\n\tInput/output error\n");
}

TEST_F(Lmapfile, AFileThatShrinksBehindItsStatusIsNotMappedPastItsEnd)
{
    const std::string file = dir_.file("f", std::string(static_cast<size_t>(4 * page_), 'x'));
    after_status = [&] { EXPECT_EQ(truncate(file.c_str(), page_ + 7), 0); };
    EXPECT_EQ(view(file, page_, 3 * page_), 7);
    EXPECT_EQ(seen(7), "xxxxxxx");
    after_status = [&] { EXPECT_EQ(truncate(file.c_str(), page_), 0); };
    EXPECT_EQ(view(file, page_, 7), -1);
    EXPECT_EQ(take_log(), "Can't map file " + file + "\n\tInvalid argument\n");
}

TEST_F(Lmapfile, AViewThatCannotBeUnmappedIsReportedByItsName)
{
    const std::string file = dir_.file("f", "x");
    view(file, 0, 1);
    unmap_fails = true;
    EXPECT_EQ(view(dir_ / "other", 0, 1), -1);
    unmap_fails = false;
    EXPECT_EQ(address_, kNone);
    EXPECT_EQ(take_log(), "Failed to unmap file " + file + "\n\tInvalid argument\n");
    EXPECT_EQ(view(file, 0, 1), 1);
}

TEST_F(Lmapfile, NamesAreRememberedUpTo1023Characters)
{
    std::string file = dir_.path();
    while (file.size() < 1500)
        file += "/.";
    file += "/f";
    dir_.file("f", "x");
    EXPECT_EQ(view(file, 0, 1), 1);
    unmap_fails = true;
    EXPECT_EQ(view(file, 0, 1), -1);
    unmap_fails = false;
    EXPECT_EQ(take_log(),
              "Failed to unmap file " + file.substr(0, 1023) + "\n\tInvalid argument\n");
}

TEST_F(MapfileThreads, ShareTheCacheOfTheProcess)
{
    std::vector<std::string> files;
    for (int i = 0; i < 8; ++i)
        files.push_back(dir_.file(std::to_string(i), std::string(static_cast<size_t>(i + 1), 'x')));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (size_t round = 0; round < 200; ++round) {
                const size_t i = (round + static_cast<size_t>(t)) % files.size();
                const char *file = files[i].c_str();
                EXPECT_EQ(mapfile(file, nullptr, nullptr), static_cast<int64_t>(i + 1));
                EXPECT_NE(vmapfile(file, nullptr), nullptr);
                if (round % 7 == 0)
                    vunmapfile(nullptr);
                if (round % 11 == 0)
                    unmapfile(file, nullptr);
                if (round % 50 == 0)
                    unmaparr(nullptr);
                const int64_t writable =
                    round % 5 ? static_cast<int64_t>(i + 1) : wmapfile(file, nullptr, nullptr);
                EXPECT_EQ(writable, static_cast<int64_t>(i + 1));
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST_F(MapfileThreads, MapAFileOnceHoweverManyAskForIt)
{
    const std::string file = dir_.file("f", "x");
    for (int round = 0; round < 50; ++round) {
        std::vector<void *> addresses(4);
        std::vector<std::thread> threads;
        for (void *&address : addresses)
            threads.emplace_back([&] { mapfile(file.c_str(), &address, nullptr); });
        for (std::thread &thread : threads)
            thread.join();
        for (void *address : addresses)
            EXPECT_EQ(address, addresses[0]);
        unmaparr(nullptr);
    }
}

TEST_F(MapfileThreads, WorkOnCachesOfTheirOwn)
{
    const std::string file = dir_.file("f", "x");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            const CachePtr cache(newarr(nullptr));
            for (int round = 0; round < 100; ++round)
                EXPECT_EQ(mapfile(file.c_str(), nullptr, cache.get()), 1);
            EXPECT_EQ(vunmapfile(cache.get()), 0);
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST_F(MapfileThreads, TakeTheOneViewInTurn)
{
    const std::string file = dir_.file("f", "twelve bytes");
    std::vector<std::thread> threads;
    for (int t = 1; t <= 4; ++t)
        threads.emplace_back([&, t] {
            for (int round = 0; round < 100; ++round)
                EXPECT_EQ(lmapfile(file.c_str(), nullptr, 0, t), t);
        });
    for (std::thread &thread : threads)
        thread.join();
}
