// A system call that is made again as long as signals interrupt it.

#pragma once

#include <cerrno>

namespace stock {

// Calls until the result is not -1 with errno EINTR, and gives that result.
template <class Call>
auto uninterrupted(Call call)
{
    auto result = call();
    while (result == -1 && errno == EINTR)
        result = call();
    return result;
}

}  // namespace stock
