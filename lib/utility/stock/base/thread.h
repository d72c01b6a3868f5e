// Threads by number.

#pragma once

#include <bit>
#include <cstdint>

#include <pthread.h>

namespace stock {

// The calling thread's identifier, a number or an address by the system, as a number.
inline std::uint64_t thread_number()
{
    return std::bit_cast<std::uint64_t>(pthread_self());
}

}  // namespace stock
