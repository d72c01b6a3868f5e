// A system call made again for as long as a signal interrupts it.

#pragma once

#include <cerrno>

namespace stock {

// The result of the first attempt that does not fail with EINTR. -1 is failure.
template <class Call>
auto uninterrupted(Call call)
{
    auto result = call();
    while (result == -1 && errno == EINTR)
        result = call();
    return result;
}

}  // namespace stock
