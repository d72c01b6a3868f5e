// Whole files as memory, kept in a cache of mappings.
//
// A cache is a tree from a file's name to the record of its mapping. The lock of the
// process's cache is held to look at records and to change them, never while memory is asked
// for or a message is reported, because either may end in a function of the program's that
// maps files itself. So a file that is not in the cache is mapped first and entered
// afterwards. When another thread has entered it meanwhile, the new mapping is undone and
// the search starts again.

#include "stock/mapfile.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <mutex>
#include <optional>
#include <span>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/descriptor.h"
#include "base/guards.h"
#include "base/limits.h"
#include "files/files_state.h"
#include "stock/elog.h"
#include "stock/restat.h"

namespace {

using stock::Fd;
using stock::kPathSize;
using stock::last_view;
using stock::mapped_files;

static_assert(sizeof(Mapdata) == 40 && offsetof(Mapdata, size) == 8);
static_assert(offsetof(Mapdata, used) == 16 && offsetof(Mapdata, writable) == 20);
static_assert(offsetof(Mapdata, device) == 24 && offsetof(Mapdata, inode) == 32);

constexpr int kSpareMappings = 64;    // left by vmapfile to the rest of the process
constexpr int kGrantedMappings = 64;  // made by vmapfile before it asks the system again
constexpr int kReleaseRounds = 8;     // of releasing one in kReleaseShare mappings
constexpr int64_t kReleaseShare = 64;

// What a public function asks for.
struct Request {
    bool writable = false;
    int64_t offset = 0;
    int64_t length = INT64_MAX;   // less when the file ends before
    bool release_others = false;  // release mappings of the cache when there is no room
    Arr *cache = nullptr;         // null for the process's
};

// Which file something is, whatever its name.
struct FileId {
    uint64_t device = 0;
    uint64_t inode = 0;

    bool operator==(const FileId &) const = default;
};

FileId id_of(const struct stat &status)
{
    return {static_cast<uint64_t>(status.st_dev), static_cast<uint64_t>(status.st_ino)};
}

// A mapped part of a file; false when nothing is mapped.
struct Mapping {
    void *address = nullptr;
    int64_t size = -1;
    FileId file;
    bool writable = false;
    Mapdata *record = nullptr;  // of the cache that has it, if any

    explicit operator bool() const { return size >= 0; }
};

int unmap(void *address, uint64_t size)
{
    return munmap(address, static_cast<std::size_t>(size));
}

int protection(bool writable)
{
    return writable ? PROT_READ | PROT_WRITE : PROT_READ;
}

// The cache.

// The cache that a call works on: its own, or the process's, which is locked for as long as
// this object lives.
class LockedCache {
public:
    explicit LockedCache(Arr *own) : own_(own)
    {
        if (!own)
            lock_ = std::unique_lock(mapped_files.lock);
    }

    // Null while the process has no cache.
    Arr *get() const { return own_ ? own_ : mapped_files.cache; }

    // The file's record, which may have no mapping; null when there is none.
    Mapdata *find(const char *file) const
    {
        return get() && file ? static_cast<Mapdata *>(getarr(get(), file)) : nullptr;
    }

    void unlock()
    {
        if (lock_)
            lock_.unlock();
    }

private:
    Arr *own_;
    std::unique_lock<stock::OrderedLock> lock_;
};

// Gives the record the next number of a use, and returns its mapping.
Mapping use(Mapdata *record)
{
    record->used = mapped_files.uses.fetch_add(1, std::memory_order_relaxed) + 1;
    return {record->address,
            static_cast<int64_t>(record->size),
            {record->device, record->inode},
            record->writable != 0,
            record};
}

// The file's mapping in the cache, if there is one.
Mapping find(const char *file, Arr *own)
{
    const LockedCache cache(own);
    Mapdata *const record = cache.find(file);
    return record && record->address ? use(record) : Mapping();
}

struct FreeArr {
    void operator()(Arr *arr) const { freearr(arr, nullptr); }
};

// Enters a mapping in the cache under the file's name. When the cache has one of that name
// by now, nothing is entered and the result is empty.
Mapping enter(const char *file, const Mapping &mapping, Arr *own)
{
    // All that may be needed is allocated before the cache is locked.
    stock::Owned<char> key(stock::copy_text(file, "key"));
    stock::Owned<Mapdata> made(new_Mapdata());
    std::unique_ptr<Arr, FreeArr> first(own ? nullptr : newarr(nullptr));
    LockedCache cache(own);
    if (!cache.get())
        mapped_files.cache = first.release();
    Mapdata *record = cache.find(file);
    if (record && record->address)
        return {};
    if (!record) {
        if (rbinsert(key.get(), made.get(), cache.get()) == rb_null) {
            cache.unlock();
            stock::out_of_memory(sizeof(Rbnode), "node");
        }
        static_cast<void>(key.release());  // the tree owns both now
        record = made.release();
    }
    record->address = mapping.address;
    record->size = static_cast<uint64_t>(mapping.size);
    record->writable = mapping.writable;
    record->device = mapping.file.device;
    record->inode = mapping.file.inode;
    return use(record);
}

// Releasing mappings of a cache.

// The kGrantedMappings mappings of a cache that were used longest ago.
class LeastRecentlyUsed {
public:
    explicit LeastRecentlyUsed(Arr *arr) : now_(static_cast<unsigned>(mapped_files.uses.load()))
    {
        applyarr(arr, keep_if_older, this);
        std::sort_heap(records_, records_ + kept_, Older{now_});
    }

    int64_t mapped() const { return mapped_; }  // how many mappings the cache has

    // The records, the one used longest ago first.
    std::span<Mapdata *> records() { return {records_, kept_}; }

private:
    // The count of uses wraps around, so ages are counted back from the present one.
    struct Older {
        unsigned now;

        unsigned age(const Mapdata *record) const
        {
            return now - static_cast<unsigned>(record->used);
        }
        bool operator()(const Mapdata *a, const Mapdata *b) const { return age(a) > age(b); }
    };

    static int keep_if_older(void *, void *value, void *argument)
    {
        auto *record = static_cast<Mapdata *>(value);
        if (record->address)
            static_cast<LeastRecentlyUsed *>(argument)->keep(record);
        return 0;
    }

    // Keeps the record while there is space; later, when it is older than the youngest that
    // is kept, which is the first of the heap and is dropped.
    void keep(Mapdata *record)
    {
        const Older older{now_};
        ++mapped_;
        if (kept_ == std::size(records_)) {
            if (!older(record, records_[0]))
                return;
            std::pop_heap(records_, records_ + kept_--, older);
        }
        records_[kept_++] = record;
        std::push_heap(records_, records_ + kept_, older);
    }

    unsigned now_;
    int64_t mapped_ = 0;
    std::size_t kept_ = 0;
    Mapdata *records_[kGrantedMappings];
};

// Unmaps one in `share` of the mappings of the cache, at least one and at most
// kGrantedMappings, least recently used first. Their records stay, with a null address.
// False when nothing is mapped or the system refuses the first.
bool release_oldest(Arr *own, int64_t share)
{
    const LockedCache cache(own);
    if (!cache.get())
        return false;
    LeastRecentlyUsed oldest(cache.get());
    const int64_t wanted = std::max<int64_t>(oldest.mapped() / share, 1);
    int64_t released = 0;
    for (Mapdata *record : oldest.records()) {
        if (released == wanted || unmap(record->address, record->size) != 0)
            break;
        record->address = nullptr;
        ++released;
    }
    return released > 0;
}

// Releases about an eighth of the mappings of the cache, at most 512. False when there is
// none to release.
bool release_some(Arr *cache)
{
    int rounds = 0;
    while (rounds < kReleaseRounds && release_oldest(cache, kReleaseShare))
        ++rounds;
    return rounds > 0;
}

// Counts how many more mappings the system would give the process, up to `most`: takes them
// for a moment. One mapping of `most` pages falls apart into two more each time a page
// between two others gets another protection.
int available_mappings(int most)
{
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t size = static_cast<std::size_t>(most) * page;
    void *const pages =
        mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (pages == MAP_FAILED)
        return 0;
    int count = 1;
    while (count < most &&
           mprotect(static_cast<char *>(pages) + static_cast<std::size_t>(count) * page, page,
                    PROT_READ) == 0)
        count += 2;
    unmap(pages, size);
    return std::min(count, most);
}

// Makes sure that after one more mapping kSpareMappings are left to the rest of the process:
// for threads, their stacks, libraries and memory. Releases mappings of the cache when fewer
// are left. False with errno when that does not help.
//
// Asking the system costs as much as many mappings, so the mappings beyond the spare ones
// are granted at once and made without asking. When few are left, so many are released that
// this is seldom, because asking takes the last ones for a moment.
bool keep_mappings_spare(Arr *cache)
{
    constexpr int kAsked = kSpareMappings + kGrantedMappings;
    std::atomic<int> &granted = mapped_files.granted;
    if (granted.load(std::memory_order_relaxed) > 0 &&
        granted.fetch_sub(1, std::memory_order_relaxed) > 0)
        return true;
    int available = available_mappings(kAsked);
    bool enough = available == kAsked;
    while (!enough && release_some(cache)) {
        available = available_mappings(kAsked);
        enough = available > kSpareMappings;
    }
    if (available <= kSpareMappings) {
        errno = ENOMEM;
        return false;
    }
    granted.store(available - kSpareMappings - 1, std::memory_order_relaxed);
    return true;
}

// Mapping files.

// Opens a file without waiting for the other end of a named pipe or line, which then turns
// out to be empty. Waits, though, for a program that holds a lease on the file to give that
// up. -1 with errno on failure.
int open_file(const char *file, bool writable)
{
    const int flags = (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NOCTTY;
    const int fd = reopen(file, flags | O_NONBLOCK);
    return stock::beyond_standard(fd < 0 && errno == EWOULDBLOCK ? reopen(file, flags) : fd);
}

bool is_for_want_of_room(int error)
{
    return error == ENOMEM || error == EAGAIN || error == ENFILE;
}

// Maps `size` bytes as the request says; MAP_FAILED with errno on failure.
void *map_bytes(int fd, const Request &request, int64_t size)
{
    if (request.offset < 0 || size <= 0) {
        errno = EINVAL;
        return MAP_FAILED;
    }
    if (request.release_others && !keep_mappings_spare(request.cache))
        return MAP_FAILED;
    for (;;) {
        void *address = mmap(nullptr, static_cast<std::size_t>(size), protection(request.writable),
                             MAP_SHARED, fd, request.offset);
        if (address != MAP_FAILED || !request.release_others || !is_for_want_of_room(errno) ||
            vunmapfile(request.cache) != 0)
            return address;
    }
}

// Maps the requested part of an open file, as far as the file goes. Empty, with the reason
// logged, on failure. A file that became shorter between its status and its mapping is
// mapped again.
Mapping map_open_file(int fd, const char *file, const Request &request)
{
    for (;;) {
        struct stat status;
        if (refstat(fd, &status) != 0) {
            elog_log(1, "fstat failed for '%s'\n", file);
            return {};
        }
        if (status.st_size == 0) {
            elog_log(0, "'%s' is empty\n", file);
            return {};
        }
        const int64_t behind_offset = status.st_size - std::max<int64_t>(request.offset, 0);
        const int64_t size = std::min<int64_t>(behind_offset, request.length);
        void *const address = map_bytes(fd, request, size);
        if (address == MAP_FAILED) {
            elog_log(1, "Can't map file %s\n", file);
            return {};
        }
        if (refstat(fd, &status) == 0 && status.st_size - request.offset >= size)
            return {address, size, id_of(status), request.writable};
        unmap(address, static_cast<uint64_t>(size));
    }
}

// Opens and maps a file. Empty, with the reason logged, on failure.
Mapping map_named_file(const char *file, const Request &request)
{
    const Fd fd(open_file(file, request.writable));
    if (fd.get() >= 0)
        return map_open_file(fd.get(), file, request);
    elog_log(1, "Couldn't open %s\n", file ? file : "(null)");
    return {};
}

// Maps the open file for writing over the mapping for reading that the cache has. Empty when
// the system refuses; nothing when the cache has another mapping by now.
std::optional<Mapping> map_over(const char *file, int fd, Arr *own, const Mapping &cached)
{
    const LockedCache cache(own);
    Mapdata *const record = cache.find(file);
    if (!record || record->address != cached.address ||
        FileId{record->device, record->inode} != cached.file)
        return std::nullopt;
    if (mmap(record->address, static_cast<std::size_t>(record->size), protection(true),
             MAP_SHARED | MAP_FIXED, fd, 0) == MAP_FAILED)
        return Mapping();
    record->writable = 1;
    return use(record);
}

// Makes a mapping for reading writable where it is. Empty, with the reason logged, when the
// file may not be written; nothing when the cache has another mapping by now. When another
// file has the name, or none, the mapping stays as it is: its readers must not see another
// file's bytes.
std::optional<Mapping> make_writable(const char *file, Arr *cache, const Mapping &cached)
{
    const Fd fd(open_file(file, true));
    const int error = errno;
    struct stat status;
    const bool known = fd.get() < 0 ? restat(file, &status) == 0 : refstat(fd.get(), &status) == 0;
    if (!known || id_of(status) != cached.file)
        return cached;
    errno = error;
    if (fd.get() < 0) {
        elog_log(1, "Couldn't open %s\n", file);
        return Mapping();
    }
    const std::optional<Mapping> writable = map_over(file, fd.get(), cache, cached);
    if (writable && !*writable)
        elog_log(1, "Can't map file %s\n", file);
    return writable;
}

// Maps the file and enters it in the cache. Empty, with the reason logged, on failure;
// nothing when another thread has entered the file meanwhile.
std::optional<Mapping> map_and_enter(const char *file, const Request &request)
{
    const Mapping fresh = map_named_file(file, request);
    if (!fresh)
        return fresh;
    if (const Mapping entered = enter(file, fresh, request.cache))
        return entered;
    unmap(fresh.address, static_cast<uint64_t>(fresh.size));
    return std::nullopt;
}

// The file's mapping from the cache, or a new one that is entered there. Empty, with the
// reason logged, on failure. Looks again when another thread changed the cache meanwhile.
Mapping map_cached(const char *file, const Request &request)
{
    Mapping found = find(file, request.cache);
    while (!found || (request.writable && !found.writable)) {
        const std::optional<Mapping> made =
            found ? make_writable(file, request.cache, found) : map_and_enter(file, request);
        if (made) {
            found = *made;
            break;
        }
        found = find(file, request.cache);
    }
    return found;
}

// Sets *address to where the mapping begins and returns its size; both -1 when it is empty.
int64_t with_address(const Mapping &mapping, void **address)
{
    if (address)
        *address = mapping ? mapping.address : MAP_FAILED;
    return mapping.size;
}

// Unmapping files.

// Unmaps what the record has mapped. Returns 0, or -1 with the reason logged.
int unmap_or_log(const char *file, const Mapdata *record)
{
    if (!record->address || unmap(record->address, record->size) == 0)
        return 0;
    elog_log(1, "Failed to unmap file %s\n", file);
    return -1;
}

int unmap_entry(void *file, void *record, void *result)
{
    if (unmap_or_log(static_cast<const char *>(file), static_cast<const Mapdata *>(record)) != 0)
        *static_cast<int *>(result) = -1;
    return 0;
}

// Takes the process's cache away; the next mapping makes a new one.
Arr *take_process_cache()
{
    const std::lock_guard hold(mapped_files.lock);
    return std::exchange(mapped_files.cache, nullptr);
}

// The view of lmapfile.

// Unmaps the last view; its lock must be held. True also when there is none.
bool drop_view()
{
    if (last_view.size >= 0 && unmap(last_view.address, static_cast<uint64_t>(last_view.size)) != 0)
        return false;
    last_view.size = -1;
    return true;
}

void keep_view(const char *file, const Mapping &view)
{
    const std::lock_guard hold(last_view.lock);
    drop_view();  // another thread may have made one since map_view dropped the last
    last_view.address = view.address;
    last_view.size = view.size;
    std::snprintf(last_view.file, sizeof last_view.file, "%s", file);
}

// Unmaps the last view and maps a new one. Empty, with the reason logged, on failure.
Mapping map_view(const char *file, const Request &request)
{
    bool dropped = false;
    char before[kPathSize];  // the file of the view that could not be unmapped
    {
        const std::lock_guard hold(last_view.lock);
        dropped = drop_view();
        if (!dropped)
            std::memcpy(before, last_view.file, sizeof before);
    }
    if (!dropped) {
        elog_log(1, "Failed to unmap file %s\n", before);
        return {};
    }
    const Mapping view = map_named_file(file, request);
    if (view)
        keep_view(file, view);
    return view;
}

}  // namespace

int64_t mapfile(const char *file, void **address, Arr *cache)
{
    return with_address(map_cached(file, {.cache = cache}), address);
}

int64_t wmapfile(const char *file, void **address, Arr *cache)
{
    return with_address(map_cached(file, {.writable = true, .cache = cache}), address);
}

Mapdata *vmapfile(const char *file, Arr *cache)
{
    return map_cached(file, {.release_others = true, .cache = cache}).record;
}

int64_t lmapfile(const char *file, void **address, int64_t offset, int64_t length)
{
    return with_address(map_view(file, {.offset = offset, .length = length}), address);
}

int unmapfile(const char *file, Arr *cache)
{
    stock::Owned<Mapdata> record;
    {
        const LockedCache locked(cache);
        if (locked.find(file))
            record.reset(static_cast<Mapdata *>(delarr(locked.get(), file)));
    }
    return record ? unmap_or_log(file, record.get()) : -1;
}

int vunmapfile(Arr *cache)
{
    return release_oldest(cache, INT64_MAX) ? 0 : -1;
}

int unmaparr(Arr *cache)
{
    Arr *const arr = cache ? cache : take_process_cache();
    int result = 0;
    applyarr(arr, unmap_entry, &result);
    while (const void *first = arr ? rblookup(RB_FIRST, nullptr, arr) : nullptr)
        std::free(delarr(arr, static_cast<const char *>(first)));
    if (!cache)
        freearr(arr, nullptr);
    return result;
}

Mapdata *new_Mapdata()
{
    return static_cast<Mapdata *>(stock::allocate_zeroed(sizeof(Mapdata), "mapdata"));
}
