// Small blocks that are made one behind the other in a larger one.

#include "internal/slab.h"

#include <algorithm>
#include <new>

#include "internal/alloc.h"

namespace stock {

namespace {

constexpr std::size_t kFirst = 1024;
constexpr std::size_t kLargest = std::size_t{64} * 1024 - 16;  // one of malloc's own steps

// While blocks are made the slab is held by this many, so that it outlives those
// that are freed meanwhile.
constexpr int64_t kHeld = int64_t{1} << 40;

// The sanitizer sees the slabs only: each block gets its own.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
constexpr bool kSanitized = __has_feature(address_sanitizer);
#else
constexpr bool kSanitized = false;
#endif

}  // namespace

bool Slabs::open(std::size_t bytes)
{
    if (bytes > kLargest / 4)
        return false;
    close();
    size_ = std::min(size_ ? 2 * size_ : kFirst, kLargest);
    while (size_ < bytes + sizeof(Slab))
        size_ *= 2;
    const std::size_t size = kSanitized ? bytes + sizeof(Slab) : size_;
    next_ = static_cast<char *>(allocate(size, "pf", "pfnew"));
    end_ = next_ + size - sizeof(Slab);
    new (end_) Slab{kHeld, next_};
    return true;
}

void Slabs::close()
{
    if (end_)
        release(reinterpret_cast<Slab *>(end_), kHeld - made_);
    next_ = end_ = nullptr;
    made_ = 0;
}

}  // namespace stock
