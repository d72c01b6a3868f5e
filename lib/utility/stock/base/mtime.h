// The time of a file's last change, with the fraction of a second that the system keeps.

#pragma once

#include <sys/stat.h>

namespace stock {

// In seconds since 1970. Status is struct stat; it is a template argument because systems name
// its field differently.
template <class Status>
double modification_time(const Status &status)
{
    const auto seconds = [](const timespec &time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    };
    if constexpr (requires { status.st_mtim; })
        return seconds(status.st_mtim);
    else
        return seconds(status.st_mtimespec);
}

}  // namespace stock
