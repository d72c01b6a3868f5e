// What the search for data says when memory runs out.

#include "stock/datasearch.h"

#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/out_of_memory.h"

using testing::IsSupersetOf;

namespace {

// "function: item: bytes" of every message that ends a search along the paths.
std::set<std::string> asked_for_by_search(const char *paths)
{
    std::set<std::string> items;
    for (long successes = 0; successes < 100; ++successes) {
        const Ended ended = in_child([&] {
            fail_allocations_after(successes);
            const Tbl *found = datasearch(paths, nullptr, "passwd", DATASEARCH_EXPAND);
            fail_allocations_after(-1);
            _exit(found->count == 1 ? 0 : 9);
        });
        if (ended.status == 0)
            return items;
        char function[64] = "";
        char item[64] = "";
        unsigned long bytes = 0;
        EXPECT_EQ(ended.status, 1);
        EXPECT_EQ(
            sscanf(ended.err.c_str(),
                   "%*s %*s Out of memory in %63s at line %*d of %*s\n\tCan't malloc %lu bytes for "
                   "%63s\n\tCannot allocate memory",
                   function, &bytes, item),
            3)
            << ended.err;
        items.insert(function + std::string(": ") + item + ": " + std::to_string(bytes));
    }
    ADD_FAILURE() << "the search was never finished";
    return items;
}

}  // namespace

TEST(DatasearchOutOfMemory, NamesWhatItNeedsAndItsSize)
{
    EXPECT_THAT(asked_for_by_search("/none:/etc"),
                IsSupersetOf({"datasearch: paths: 11", "expand_env: result: 11", "add: path: 12"}));
    setenv("DATAPATH", "/etc", 1);
    EXPECT_THAT(asked_for_by_search(nullptr), IsSupersetOf({"default_paths: paths: 5"}));
}
