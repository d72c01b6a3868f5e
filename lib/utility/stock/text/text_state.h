// The variables of this room. All of them are atomic and need no lock.

#pragma once

#include <atomic>
#include <cstdint>

#include "stock/strings.h"

namespace stock {

struct TextState {
    // The buffers that spaces() hands out in turn. A buffer is null until its first use and is
    // never freed.
    std::atomic<char *> spaces_ring[SPACES_RING]{};
    std::atomic<std::uint64_t> spaces_calls{0};

    // Set for good when memory for a rounded block of a string stack was refused: from then on
    // its blocks are no larger than the size that the stack's record tells.
    std::atomic<bool> exact_blocks{false};
};

extern constinit TextState Text_state;

}  // namespace stock
