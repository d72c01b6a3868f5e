// A directory's names, read in one go and sorted.
//
// The names go into one block and are sorted by the first eight bytes in which
// they differ. Entries are examined from the directory's descriptor, so that the
// system looks up one name for each instead of a whole path.

#pragma once

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <span>
#include <string_view>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "base/alloc.h"
#include "base/guards.h"
#include "base/ordered_lock.h"
#include "base/uninterrupted.h"
#include "stock/restat.h"

namespace stock {

inline bool is_dot_or_dot_dot(const char *name)
{
    return name[0] == '.' && (!name[1] || (name[1] == '.' && !name[2]));
}

// What is known of an entry. The first three are the values of which in dirfiles.
enum Kind : unsigned char { kOther = 0, kFile = 1, kDir = 2, kUnknown = 4 };

inline Kind kind_by_type(unsigned char type)
{
    switch (type) {
    case DT_REG: return kFile;
    case DT_DIR: return kDir;
    case DT_LNK:  // what it leads to
    case DT_UNKNOWN: return kUnknown;
    default: return kOther;
    }
}

inline Kind kind_by_mode(mode_t mode)
{
    return S_ISREG(mode) ? kFile : S_ISDIR(mode) ? kDir : kOther;
}

// An open directory, closed on every way out.
class Dir {
public:
    explicit Dir(const char *path)
    {
        errno = EFAULT;  // what a null path leaves
        do
            dir_ = path ? opendir(path) : nullptr;
        while (!dir_ && errno == EINTR);
    }
    ~Dir() { close(); }
    Dir(const Dir &) = delete;
    Dir &operator=(const Dir &) = delete;

    explicit operator bool() const { return dir_ != nullptr; }

    void close()
    {
        const KeepErrno keep;
        if (dir_)
            closedir(std::exchange(dir_, nullptr));
    }

    // The next entry but "." and "..", or null: at the end with errno 0.
    const dirent *next() const
    {
        const dirent *entry = nullptr;
        do {
            errno = 0;
            entry = readdir(dir_);
        } while (entry && is_dot_or_dot_dot(entry->d_name));
        return entry;
    }

    // The status of the directory itself.
    bool status(struct stat &status) const { return refstat(dirfd(dir_), &status) == 0; }

    // The status of what the entry leads to.
    bool examine(const char *name, struct stat &status) const
    {
        const int fd = dirfd(dir_);
        return uninterrupted([&] { return fstatat(fd, name, &status, 0); }) == 0;
    }

private:
    DIR *dir_ = nullptr;
};

struct Entry {
    std::uint64_t key;  // eight bytes of the name, as a number that orders like them
    const char *name;
    Kind kind;
};

// Eight bytes, also beyond the end of the text.
inline std::uint64_t key_at(const char *text)
{
    std::uint64_t key = 0;
    for (int i = 0; i < 8; ++i)
        key = key << 8 | static_cast<unsigned char>(text[i]);
    return key;
}

// The names of one directory, sorted, and what the directory itself tells of each.
class Names {
public:
    // Reads all that is left of the directory, with the mutex held around the
    // reading alone: running out of memory must find it free.
    bool read(const Dir &dir, OrderedLock &mutex)
    {
        for (;;) {
            grow();
            switch (fill(dir, mutex)) {
            case Filled::whole: sort(); return true;
            case Filled::failed: return false;
            case Filled::part: break;
            }
        }
    }

    std::span<Entry> entries() const { return {entries_.get(), count_}; }

private:
    enum class Filled { whole, part, failed };

    static constexpr std::size_t kFirstBlock = 16384;
    static constexpr std::size_t kLongest = 4096;  // no name is longer
    static constexpr std::size_t kPadding = 8;     // key_at reads so far beyond a name

    void grow()
    {
        size_ = std::max(kFirstBlock, 2 * size_);
        void *block = reallocate(block_.release(), size_, "names");
        block_.reset(static_cast<char *>(block));
    }

    // Each entry becomes a byte for its kind and its name with the final zero.
    Filled fill(const Dir &dir, OrderedLock &mutex)
    {
        const std::lock_guard hold(mutex);
        while (size_ - used_ >= 1 + kLongest + kPadding) {
            const dirent *entry = dir.next();
            if (!entry)
                return errno ? Filled::failed : Filled::whole;
            const std::size_t length = strnlen(entry->d_name, kLongest - 1);
            char *to = block_.get() + used_;
            *to++ = static_cast<char>(kind_by_type(entry->d_type));
            std::memcpy(to, entry->d_name, length);
            to[length] = 0;
            used_ += 1 + length + 1;
            ++count_;
        }
        return Filled::part;
    }

    void sort()
    {
        list();
        const std::size_t shared = shared_length();
        for (Entry &entry : entries())
            entry.key = key_at(entry.name + shared);
        const auto before = [shared](const Entry &a, const Entry &b) {
            return a.key != b.key ? a.key < b.key
                                  : std::strcmp(a.name + shared, b.name + shared) < 0;
        };
        const auto same = [](const Entry &a, const Entry &b) {
            return !std::strcmp(a.name, b.name);
        };
        std::sort(entries().begin(), entries().end(), before);
        // A directory that changes may show a name twice.
        const auto end = std::unique(entries().begin(), entries().end(), same);
        count_ = static_cast<std::size_t>(end - entries().begin());
    }

    void list()
    {
        std::memset(block_.get() + used_, 0, kPadding);
        void *entries = allocate(count_ * sizeof(Entry), "entries");
        entries_.reset(static_cast<Entry *>(entries));
        const char *next = block_.get();
        for (Entry &entry : this->entries()) {
            entry = {0, next + 1, static_cast<Kind>(*next)};
            next = entry.name + std::strlen(entry.name) + 1;
        }
    }

    // How many bytes all names begin with alike.
    std::size_t shared_length() const
    {
        if (!count_)
            return 0;
        std::string_view shared = entries()[0].name;
        for (const Entry &entry : entries()) {
            std::size_t length = 0;
            while (length < shared.size() && entry.name[length] == shared[length])
                ++length;
            shared = shared.substr(0, length);
        }
        return shared.size();
    }

    Owned<char> block_;
    Owned<Entry> entries_;
    std::size_t size_ = 0;
    std::size_t used_ = 0;
    std::size_t count_ = 0;
};

}  // namespace stock
