// The output of a program that ran out of memory. Only for the tests named *_oom_test.cpp.

#pragma once

#include <functional>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "stock/elog.h"
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

// The "function: bytes for item" of every message that the body ends the process with,
// each allocation failing in turn. The body tells whether it did all its work;
// where the system's own allocation fails it need not.
inline std::set<std::string> wanted_bytes(const std::function<bool()> &body)
{
    const std::string in = "Out of memory in ", malloc = "Can't malloc ";
    std::set<std::string> wanted;
    for (long successes = 0; successes < 1000; ++successes) {
        const Ended ended = in_child([&] {
            elog_init(0, nullptr);
            fail_allocations_after(successes);
            const bool done = body();
            fail_allocations_after(-1);
            _exit(done ? 0 : 9);
        });
        if (ended.status == 0)
            return wanted;
        EXPECT_EQ(ended.signal, 0);
        const std::string &said = ended.err;
        const size_t function = said.find(in), bytes = said.find(malloc);
        if (ended.status == 9 || function == said.npos || bytes == said.npos)
            continue;
        const size_t name = function + in.size(), count = bytes + malloc.size();
        const size_t item = said.find(" bytes for ", count) + std::string(" bytes").size();
        wanted.insert(said.substr(name, said.find(' ', name) - name) + ": " +
                      said.substr(count, said.find(' ', count) - count) +
                      said.substr(item, said.find('\n', item) - item));
    }
    ADD_FAILURE() << "it never did all its work";
    return wanted;
}

// The same as "function: item".
inline std::set<std::string> asked_for(const std::function<bool()> &body)
{
    const std::string between = " for ";
    std::set<std::string> items;
    for (const std::string &wanted : wanted_bytes(body)) {
        const size_t function = wanted.find(": ") + 2, item = wanted.find(between, function);
        items.insert(wanted.substr(0, function) + wanted.substr(item + between.size()));
    }
    return items;
}
