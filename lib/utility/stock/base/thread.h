// A number for each thread.

#pragma once

#include <bit>
#include <cstdint>

#include <pthread.h>

namespace stock {

// The calling thread's pthread_t, which is a number or an address, as a number.
inline std::uint64_t thread_number()
{
    return std::bit_cast<std::uint64_t>(pthread_self());
}

}  // namespace stock
