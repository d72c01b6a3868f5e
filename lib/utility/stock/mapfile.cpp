// Whole files as memory, kept in a cache of mappings.
//
// The mutex of the process's cache is held to look at records and to change
// them, never while memory is asked for or a message is sent: either may end in
// a function of the program's, which may map files itself. So a file that is not
// in the cache is mapped first and entered then, and whoever finds that another
// thread was faster takes that thread's mapping.

#include "stock/mapfile.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>

#include "internal/alloc.h"
#include "internal/guards.h"
#include "stock/elog.h"
#include "stock/restat.h"

namespace {

using stock::Fd;

static_assert(sizeof(Mapdata) == 24 && offsetof(Mapdata, size) == 8);
static_assert(offsetof(Mapdata, used) == 16 && offsetof(Mapdata, writable) == 20);

constexpr std::size_t kNameSize = 1024;

std::mutex Maparr_mutex;
Arr *Maparr = nullptr;  // the cache of the process, made when first needed

std::atomic<int> Used{0};  // of the last mapping or reuse; wraps around

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
    std::unique_lock<std::mutex> lock_;
};

// Which part of a file is mapped, and how.
struct Part {
    bool writable = false;
    int64_t offset = 0;
    int64_t length = INT64_MAX;
    bool make_room = false;  // release mappings of the cache when there is no room
    Arr *cache = nullptr;
};

// What is mapped; nothing when the size is -1.
struct View {
    void *address = nullptr;
    int64_t size = -1;
    Mapdata *record = nullptr;

    explicit operator bool() const { return size >= 0; }
};

View view_of(Mapdata *record)
{
    record->used = next_use();
    return {record->address, static_cast<int64_t>(record->size), record};
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

void *map(int fd, const Part &part, int64_t size)
{
    errno = EINVAL;
    void *address = MAP_FAILED;
    if (part.offset < 0 || size <= 0)
        return address;
    do
        address = mmap(nullptr, static_cast<std::size_t>(size), protection(part.writable),
                       MAP_SHARED, fd, part.offset);
    while (address == MAP_FAILED && part.make_room && is_for_want_of_room(errno) &&
           vunmapfile(part.cache) == 0);
    return address;
}

int unmap(void *address, uint64_t size)
{
    return munmap(address, static_cast<std::size_t>(size));
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
            return {address, size};
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

bool serves(const Mapdata *record, bool writable)
{
    return record && record->address && (record->writable || !writable);
}

// Makes a mapping writable where it is, for those who read there already.
bool make_writable(Mapdata *record, int fd, int64_t file_size)
{
    const auto size = static_cast<std::size_t>(record->size);
    errno = EINVAL;  // of a file that is shorter now
    if (static_cast<uint64_t>(file_size) < size ||
        mmap(record->address, size, protection(true), MAP_SHARED | MAP_FIXED, fd, 0) == MAP_FAILED)
        return false;
    record->writable = 1;
    return true;
}

// All that entering a file may need, asked for before the cache is locked.
class Spare {
public:
    Spare(const char *file, Arr *own)
        : key_(stock::copy_text(file, "key")), record_(new_Mapdata()),
          arr_(own ? nullptr : newarr(nullptr))
    {
    }
    ~Spare() { freearr(arr_, nullptr); }
    Spare(const Spare &) = delete;
    Spare &operator=(const Spare &) = delete;

    // Enters the new record under the file's name. Null when memory ran out.
    Mapdata *enter(Arr *own)
    {
        if (!own && !Maparr)
            Maparr = std::exchange(arr_, nullptr);
        if (rbinsert(key_.get(), record_.get(), own ? own : Maparr) == rb_null)
            return nullptr;
        static_cast<void>(key_.release());  // the tree owns it now
        return record_.release();
    }

private:
    stock::Owned<char> key_;
    stock::Owned<Mapdata> record_;
    Arr *arr_;
};

// Makes the view the file's mapping in the cache, unless another thread mapped
// the file meanwhile. The view is emptied when the cache took it.
View enter(const char *file, int fd, View &view, const Part &part)
{
    Spare spare(file, part.cache);
    Cache cache(part.cache);
    Mapdata *record = cache.find(file);
    if (!record && !(record = spare.enter(part.cache))) {
        cache.unlock();
        stock::out_of_memory(sizeof(Rbnode), "node");
    }
    if (!record->address) {
        record->address = std::exchange(view.address, nullptr);
        record->size = static_cast<uint64_t>(view.size);
        record->writable = part.writable;
    } else if (!serves(record, part.writable) && !make_writable(record, fd, view.size)) {
        return {};
    }
    return view_of(record);
}

View find(const char *file, const Part &part)
{
    const Cache cache(part.cache);
    Mapdata *record = cache.find(file);
    return serves(record, part.writable) ? view_of(record) : View();
}

// The file's mapping from the cache, or a new one.
View map_cached(const char *file, const Part &part)
{
    if (const View cached = find(file, part))
        return cached;
    const Fd fd(open_or_log(file, part.writable));
    if (fd.get() < 0)
        return {};
    View fresh = map_part(fd.get(), file, part);
    if (!fresh)
        return {};
    const View entered = enter(file, fd.get(), fresh, part);
    if (fresh.address)
        unmap(fresh.address, static_cast<uint64_t>(fresh.size));
    if (!entered)
        elog_log(1, "Can't map file %s\n", file);
    return entered;
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

// The mapped record that was used longest ago, counted back from now.
struct Oldest {
    unsigned now;
    Mapdata *record = nullptr;

    unsigned age(const Mapdata *other) const { return now - static_cast<unsigned>(other->used); }
};

int keep_older(void *, void *value, void *argument)
{
    auto *record = static_cast<Mapdata *>(value);
    auto *oldest = static_cast<Oldest *>(argument);
    if (record->address && (!oldest->record || oldest->age(record) > oldest->age(oldest->record)))
        oldest->record = record;
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

    std::mutex mutex_;
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
    const Cache locked(cache);
    Oldest oldest{static_cast<unsigned>(Used.load())};
    applyarr(locked.get(), keep_older, &oldest);
    Mapdata *const record = oldest.record;
    if (!record || unmap(record->address, record->size) != 0)
        return -1;
    record->address = nullptr;
    return 0;
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
