// Small blocks that are made one behind the other in a larger one, a slab, which
// is freed when the last of them is.
//
// A large tree is made of hundreds of thousands of blocks. From malloc they come
// scattered over what was freed before, and taking each from its list costs more
// than reading the text does; here they lie in the order of the text.
//
// The slab's record stands at its end, and who frees a block brings along how far
// it is to there. Blocks of one slab may be freed by several threads.

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>
#endif

namespace stock {

struct Slab {
    std::atomic<int64_t> live;  // blocks that are not freed yet
    char *start;
};

constexpr std::size_t kWord = 8;  // blocks begin and end at multiples of it

constexpr std::size_t in_words(std::size_t bytes)
{
    return (bytes + kWord - 1) / kWord;
}

// Gives up blocks of the slab.
inline void release(Slab *slab, int64_t blocks)
{
    if (slab->live.fetch_sub(blocks, std::memory_order_acq_rel) == blocks)
        std::free(slab->start);
}

// Gives up a block that is so many words before the record of its slab.
inline void release_block(void *block, uint32_t distance)
{
#ifdef __SANITIZE_ADDRESS__
    // Other blocks of the slab may live on; the first word is what every use looks at.
    __asan_poison_memory_region(block, kWord);
#endif
    release(reinterpret_cast<Slab *>(static_cast<char *>(block) + distance * kWord), 1);
}

// Makes blocks. The first slab is small, since most trees are.
class Slabs {
public:
    Slabs() = default;
    ~Slabs() { close(); }
    Slabs(const Slabs &) = delete;
    Slabs &operator=(const Slabs &) = delete;

    // Room for so many words, which counts as so many blocks: each is released on its
    // own. Null when it is too much for a slab.
    char *take(std::size_t words, int blocks)
    {
        const std::size_t bytes = words * kWord;
        if (bytes > static_cast<std::size_t>(end_ - next_) && !open(bytes))
            return nullptr;
        made_ += blocks;
        char *block = next_;
        next_ += bytes;
        return block;
    }

    // From a block of what was taken last to the slab's record.
    uint32_t distance(const void *block) const
    {
        const auto bytes = static_cast<std::size_t>(end_ - static_cast<const char *>(block));
        return static_cast<uint32_t>(bytes / kWord);
    }

private:
    bool open(std::size_t bytes);
    void close();

    char *next_ = nullptr;  // where the next block begins
    char *end_ = nullptr;   // where the record is; null before the first slab
    std::size_t size_ = 0;
    int64_t made_ = 0;  // blocks of this slab
};

}  // namespace stock
