// Whole files as memory, kept in a cache of mappings.
//
// The mutex of the process's cache is held to look at records and to change
// them, never while memory is asked for or a message is sent: either may end in
// a function of the program's, which may map files itself. So a file that is not
// in the cache is mapped first and entered then, and whoever finds that another
// thread was faster looks again.

#include "stock/mapfile.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <span>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/guards.h"
#include "base/ordered_lock.h"
#include "stock/elog.h"
#include "stock/restat.h"

namespace {

using stock::Fd;

static_assert(sizeof(Mapdata) == 40 && offsetof(Mapdata, size) == 8);
static_assert(offsetof(Mapdata, used) == 16 && offsetof(Mapdata, writable) == 20);
static_assert(offsetof(Mapdata, device) == 24 && offsetof(Mapdata, inode) == 32);

constexpr std::size_t kNameSize = 1024;
constexpr int kSpare = 64;  // mappings that vmapfile leaves to the rest of the process
constexpr int kGrant = 64;  // mappings that vmapfile makes before it asks the system again
constexpr int64_t kReleasedShare = 64;  // of so many mappings vmapfile releases one at once ...
constexpr int kReleases = 8;            // ... so many times

constinit stock::OrderedLock Maparr_mutex{stock::Place::mappings};
Arr *Maparr = nullptr;  // the cache of the process, made when first needed

std::atomic<int> Used{0};  // of the last mapping or reuse; wraps around

std::atomic<int> Granted{0};  // mappings that vmapfile may make without asking the system

int next_use()
{
    return Used.fetch_add(1, std::memory_order_relaxed) + 1;
}

// The cache that a call works on; that of the process is locked meanwhile.
class Cache {
public:
    explicit Cache(Arr *own) : own_(own)
    {
        if (!own)
            lock_ = std::unique_lock(Maparr_mutex);
    }

    Arr *get() const { return own_ ? own_ : Maparr; }
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

// Which part of a file is mapped, and how.
struct Part {
    bool writable = false;
    int64_t offset = 0;
    int64_t length = INT64_MAX;
    bool make_room = false;  // release mappings of the cache when there is no room
    Arr *cache = nullptr;
};

// Which file something is, whatever its name.
struct Identity {
    uint64_t device = 0;
    uint64_t inode = 0;

    bool operator==(const Identity &) const = default;
};

Identity identity_of(const struct stat &status)
{
    return {static_cast<uint64_t>(status.st_dev), static_cast<uint64_t>(status.st_ino)};
}

// What is mapped; nothing when the size is -1.
struct View {
    void *address = nullptr;
    int64_t size = -1;
    Identity file;
    bool writable = false;
    Mapdata *record = nullptr;

    explicit operator bool() const { return size >= 0; }
};

View view_of(Mapdata *record)
{
    record->used = next_use();
    return {record->address,
            static_cast<int64_t>(record->size),
            {record->device, record->inode},
            record->writable != 0,
            record};
}

// A queue or a line is not waited for: it turns out to be empty. A file whose
// lease another program holds is.
int open_file(const char *file, bool writable)
{
    const int flags = (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NOCTTY;
    const int fd = reopen(file, flags | O_NONBLOCK);
    return fd < 0 && errno == EWOULDBLOCK ? reopen(file, flags) : fd;
}

int protection(bool writable)
{
    return writable ? PROT_READ | PROT_WRITE : PROT_READ;
}

bool is_for_want_of_room(int error)
{
    return error == ENOMEM || error == EAGAIN || error == ENFILE;
}

int unmap(void *address, uint64_t size)
{
    return munmap(address, static_cast<std::size_t>(size));
}

// The mapped records of a cache that were used longest ago, counted back from now.
class Oldest {
public:
    explicit Oldest(Arr *arr) : now_(static_cast<unsigned>(Used.load()))
    {
        applyarr(arr, keep_older, this);
        std::sort_heap(records_, records_ + kept_, By{now_});  // the oldest is the first then
    }

    int64_t mapped() const { return mapped_; }
    std::span<Mapdata *> records() { return {records_, kept_}; }

private:
    struct By {
        unsigned now;

        unsigned age(const Mapdata *record) const
        {
            return now - static_cast<unsigned>(record->used);
        }
        bool operator()(const Mapdata *a, const Mapdata *b) const { return age(a) > age(b); }
    };

    static int keep_older(void *, void *value, void *argument)
    {
        auto *record = static_cast<Mapdata *>(value);
        if (record->address)
            static_cast<Oldest *>(argument)->keep(record);
        return 0;
    }

    // The youngest of those that are kept stands first and makes way for an older one.
    void keep(Mapdata *record)
    {
        const By by{now_};
        ++mapped_;
        if (kept_ == std::size(records_)) {
            if (!by(record, records_[0]))
                return;
            std::pop_heap(records_, records_ + kept_--, by);
        }
        records_[kept_++] = record;
        std::push_heap(records_, records_ + kept_, by);
    }

    unsigned now_;
    int64_t mapped_ = 0;
    std::size_t kept_ = 0;
    Mapdata *records_[kGrant];
};

// Releases one in `share` of the mappings of the cache, at least one and at most kGrant,
// least recently used first. False when nothing is mapped or the system refuses the first.
bool release_oldest(Arr *cache, int64_t share)
{
    const Cache locked(cache);
    if (!locked.get())
        return false;
    Oldest oldest(locked.get());
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

// Releases an eighth of the mappings of the cache, 512 of many. False when there is none.
bool release_some(Arr *cache)
{
    int releases = 0;
    while (releases < kReleases && release_oldest(cache, kReleasedShare))
        ++releases;
    return releases > 0;
}

// How many more mappings the system would give the process, at most `most`. Pages side by
// side that differ in protection are mappings of their own.
int spare_mappings(int most)
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

// Releases mappings of the cache until a new one leaves kSpare to the rest of the process:
// for threads, their stacks, libraries and memory. Asking the system costs as much as many
// mappings, so that those beyond kSpare are granted at once. It also takes the last ones
// for a moment when fewer are left than are asked for: so many are released then that this
// is seldom.
bool make_room(Arr *cache)
{
    constexpr int kAsked = kSpare + kGrant;
    if (Granted.load(std::memory_order_relaxed) > 0 &&
        Granted.fetch_sub(1, std::memory_order_relaxed) > 0)
        return true;
    int spare = spare_mappings(kAsked);
    while (spare < kAsked && release_some(cache) && (spare = spare_mappings(kAsked)) <= kSpare) {
    }
    if (spare <= kSpare) {
        errno = ENOMEM;
        return false;
    }
    Granted.store(spare - kSpare - 1, std::memory_order_relaxed);
    return true;
}

void *map(int fd, const Part &part, int64_t size)
{
    errno = EINVAL;
    void *address = MAP_FAILED;
    if (part.offset < 0 || size <= 0 || (part.make_room && !make_room(part.cache)))
        return address;
    do
        address = mmap(nullptr, static_cast<std::size_t>(size), protection(part.writable),
                       MAP_SHARED, fd, part.offset);
    while (address == MAP_FAILED && part.make_room && is_for_want_of_room(errno) &&
           vunmapfile(part.cache) == 0);
    return address;
}

// Maps the part of the open file that is there, or logs why not. A file that
// became shorter between its status and its mapping is mapped again.
View map_part(int fd, const char *file, const Part &part)
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
        const int64_t size =
            std::min<int64_t>(status.st_size - std::max<int64_t>(part.offset, 0), part.length);
        void *const address = map(fd, part, size);
        if (address == MAP_FAILED) {
            elog_log(1, "Can't map file %s\n", file);
            return {};
        }
        if (refstat(fd, &status) == 0 && status.st_size - part.offset >= size)
            return {address, size, identity_of(status), part.writable};
        unmap(address, static_cast<uint64_t>(size));
    }
}

// Opens the file for map_part, or logs why not.
int open_or_log(const char *file, bool writable)
{
    const int fd = open_file(file, writable);
    if (fd < 0)
        elog_log(1, "Couldn't open %s\n", file ? file : "(null)");
    return fd;
}

// The file's mapping in the cache, if there is one.
View find(const char *file, Arr *own)
{
    const Cache cache(own);
    Mapdata *const record = cache.find(file);
    return record && record->address ? view_of(record) : View();
}

struct FreeArr {
    void operator()(Arr *arr) const { freearr(arr, nullptr); }
};

// Makes the view the file's mapping in the cache. Nothing when there is one already.
View enter(const char *file, const View &view, Arr *own)
{
    // What may be needed is asked for before the cache is locked.
    stock::Owned<char> key(stock::copy_text(file, "key"));
    stock::Owned<Mapdata> made(new_Mapdata());
    std::unique_ptr<Arr, FreeArr> first(own ? nullptr : newarr(nullptr));
    Cache cache(own);
    if (!cache.get())
        Maparr = first.release();
    Mapdata *record = cache.find(file);
    if (record && record->address)
        return {};
    if (!record) {
        if (rbinsert(key.get(), made.get(), cache.get()) == rb_null) {
            cache.unlock();
            stock::out_of_memory(sizeof(Rbnode), "node");
        }
        static_cast<void>(key.release());  // the tree owns it now
        record = made.release();
    }
    record->address = view.address;
    record->size = static_cast<uint64_t>(view.size);
    record->writable = view.writable;
    record->device = view.file.device;
    record->inode = view.file.inode;
    return view_of(record);
}

// Maps the open file for writing where it is mapped for reading. False when the cache
// has no longer that mapping; the view is nothing when the system refuses.
bool map_over(const char *file, int fd, Arr *own, View *view)
{
    const Cache cache(own);
    Mapdata *const record = cache.find(file);
    if (!record || record->address != view->address ||
        Identity{record->device, record->inode} != view->file)
        return false;
    *view = {};
    if (mmap(record->address, static_cast<std::size_t>(record->size), protection(true),
             MAP_SHARED | MAP_FIXED, fd, 0) != MAP_FAILED) {
        record->writable = 1;
        *view = view_of(record);
    }
    return true;
}

// Makes a mapping for reading writable where it is, or empties the view after logging
// why not. A mapping whose file has lost its name stays as it is: no other file's bytes
// may appear there. False when the cache has no longer that mapping.
bool make_writable(const char *file, Arr *own, View *view)
{
    const Fd fd(open_file(file, true));
    const int error = errno;
    struct stat status;
    const bool known = fd.get() < 0 ? restat(file, &status) == 0 : refstat(fd.get(), &status) == 0;
    if (!known || identity_of(status) != view->file)
        return true;
    errno = error;
    if (fd.get() < 0) {
        *view = {};
        elog_log(1, "Couldn't open %s\n", file);
        return true;
    }
    if (!map_over(file, fd.get(), own, view))
        return false;
    if (!*view)
        elog_log(1, "Can't map file %s\n", file);
    return true;
}

// The file's mapping from the cache, or a new one.
View map_cached(const char *file, const Part &part)
{
    for (;;) {
        View cached = find(file, part.cache);
        if (cached && (cached.writable || !part.writable))
            return cached;
        if (cached) {
            if (make_writable(file, part.cache, &cached))
                return cached;
            continue;
        }
        const Fd fd(open_or_log(file, part.writable));
        const View fresh = fd.get() < 0 ? View() : map_part(fd.get(), file, part);
        if (!fresh)
            return {};
        if (const View entered = enter(file, fresh, part.cache))
            return entered;
        unmap(fresh.address, static_cast<uint64_t>(fresh.size));
    }
}

int64_t give(const View &view, void **address)
{
    if (address)
        *address = view ? view.address : MAP_FAILED;
    return view.size;
}

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

// The cache of the process, which is empty from now on.
Arr *take_process_cache()
{
    const std::lock_guard hold(Maparr_mutex);
    return std::exchange(Maparr, nullptr);
}

// The one view of lmapfile. What it covered last is known by the file's name.
class LastView {
public:
    // Unmaps what there is. On failure that stays and its file's name is copied.
    bool drop(char (&file)[kNameSize])
    {
        const std::lock_guard hold(mutex_);
        if (drop_locked())
            return true;
        std::memcpy(file, file_, sizeof file);
        return false;
    }

    void keep(const char *file, const View &view)
    {
        const std::lock_guard hold(mutex_);
        drop_locked();  // another thread's, entered since drop
        view_ = view;
        std::snprintf(file_, sizeof file_, "%s", file);
    }

private:
    bool drop_locked()
    {
        if (view_ && unmap(view_.address, static_cast<uint64_t>(view_.size)) != 0)
            return false;
        view_ = {};
        return true;
    }

    stock::OrderedLock mutex_{stock::Place::view};
    View view_;
    char file_[kNameSize] = "";
};

constinit LastView Last_view;

View map_view(const char *file, const Part &part)
{
    char before[kNameSize];
    if (!Last_view.drop(before)) {
        elog_log(1, "Failed to unmap file %s\n", before);
        return {};
    }
    const Fd fd(open_or_log(file, part.writable));
    const View view = fd.get() < 0 ? View() : map_part(fd.get(), file, part);
    if (view)
        Last_view.keep(file, view);
    return view;
}

}  // namespace

int64_t mapfile(const char *file, void **address, Arr *cache)
{
    return give(map_cached(file, {.cache = cache}), address);
}

int64_t wmapfile(const char *file, void **address, Arr *cache)
{
    return give(map_cached(file, {.writable = true, .cache = cache}), address);
}

Mapdata *vmapfile(const char *file, Arr *cache)
{
    return map_cached(file, {.make_room = true, .cache = cache}).record;
}

int64_t lmapfile(const char *file, void **address, int64_t offset, int64_t length)
{
    return give(map_view(file, {.offset = offset, .length = length}), address);
}

int unmapfile(const char *file, Arr *cache)
{
    stock::Owned<Mapdata> record;
    {
        const Cache locked(cache);
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
