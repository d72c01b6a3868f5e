// Doing something as a user to whom permissions apply.

#pragma once

#include <functional>

#include <unistd.h>

#include "support/child.h"

// Runs the body in a child that is not the superuser.
inline Ended as_nobody(const std::function<void()> &body)
{
    return in_child([&] {
        constexpr unsigned kNobody = 65534;
        if (geteuid() == 0 && (setgid(kNobody) != 0 || setuid(kNobody) != 0))
            _exit(99);
        body();
    });
}
