// What a program says that ran out of memory. Only for the tests of tests/oom.

#pragma once

#include <functional>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/child.h"
#include "support/fail_alloc.h"

// What is said when all allocations after the first so many fail, the source line left out.
inline std::string said_by(long successes, const std::function<void()> &body)
{
    const Ended ended = in_child([&] {
        fail_allocations_after(successes);
        body();
        _exit(9);
    });
    EXPECT_EQ(ended.status, 1);
    std::string text = ended.err;
    const size_t line = text.find(" at line ");
    if (line != text.npos)
        text.erase(line, text.find(" of '", line) - line);
    return text;
}

// The message, the source line left out.
inline std::string message(const std::string &function, const std::string &file,
                           const std::string &bytes, const std::string &item)
{
    return "Out of memory in " + function + " of '" + file + "'\n\tCan't malloc " + bytes +
           " bytes for " + item + "\n\tCannot allocate memory\n";
}
