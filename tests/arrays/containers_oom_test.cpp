// Lists, trees and arrays when memory runs out.

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <strings.h>

#include "stock.h"
#include "support/out_of_memory.h"
#include "support/temp_dir.h"

namespace {

using testing::EndsWith;

char kA[] = "a";

}  // namespace

TEST(TblOutOfMemory, NamesTheItemTheFunctionAndTheSize)
{
    const int64_t zeros[2] = {0, 0};
    Tbl *empty = newtbl(0);
    Tbl *full = newtbl(2);
    pushtbl(full, kA);
    pushtbl(full, kA);
    Tbl *direct = inittbl(0, 0, 1, zeros, 16);
    pushtbl(direct, zeros);
    const struct {
        long successes;
        std::function<void()> body;
        std::string text;
    } cases[] = {
        {0, [] { newtbl(0); }, message("inittbl", "tbl.cpp", "96", "tbl")},
        {1, [&] { inittbl(0, 0, 1, zeros, 16); },
         message("inittbl", "tbl.cpp", "16", "null_value")},
        {0, [&] { pushtbl(empty, kA); }, message("right_growtbl", "tbl.cpp", "80", "tbl->base.cp")},
        {0, [&] { pushtbl(full, kA); }, message("right_growtbl", "tbl.cpp", "48", "prev")},
        {0, [&] { unshifttbl(empty, kA); },
         message("left_growtbl", "tbl.cpp", "80", "tbl->base.cp")},
        {0, [&] { unshifttbl(full, kA); },
         message("left_growtbl", "tbl.cpp", "96", "tbl->base.cp")},
        {0, [&] { deltbl(direct, 0); }, message("deltbl", "tbl.cpp", "16", "tbl->deleted")},
        {0, [&] { jointbl(full, ", "); }, message("jointbl", "tbl.cpp", "7", "s")},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_THAT(said_by(c.successes, c.body), EndsWith(c.text));
    }
    freetbl(empty, nullptr);
    freetbl(full, nullptr);
    freetbl(direct, nullptr);
}

TEST(ShellsortOutOfMemory, NamesItsScratchElement)
{
    static char elements[2][300];
    EXPECT_THAT(said_by(0,
                        [] {
                            shellsort(
                                elements, 2, 300,
                                [](const void *, const void *, void *) { return 0; }, nullptr);
                        }),
                EndsWith(message("shellsort", "shellsort.cpp", "300", "s")));
}

TEST(ArrOutOfMemory, NewEndsTheProcess)
{
    EXPECT_THAT(said_by(0, [] { newarr(nullptr); }),
                EndsWith(message("newarr", "arr.cpp", std::to_string(sizeof(Arr)), "arr")));
}

TEST(ArrOutOfMemory, SetStoresNothingAndGivesNull)
{
    Arr *arr = newarr(nullptr);
    setarr(arr, "a", kA);
    for (const long successes : {0, 1}) {  // the key's copy fails, or the node
        SCOPED_TRACE(successes);
        fail_allocations_after(successes);
        void *set = setarr(arr, "b", kA);
        fail_allocations_after(-1);
        EXPECT_EQ(set, nullptr);
        EXPECT_EQ(getarr(arr, "b"), nullptr);
        EXPECT_EQ(cntarr(arr), 1);
    }
    freearr(arr, nullptr);
}

TEST(ArrOutOfMemory, SetOfAKeyThatIsThereNeedsNoMemory)
{
    Arr *arr = newarr(nullptr);
    setarr(arr, "a", kA);
    fail_allocations_after(0);
    void *replaced = setarr(arr, "a", nullptr);
    fail_allocations_after(-1);
    EXPECT_EQ(replaced, kA);
    EXPECT_EQ(getarr(arr, "a"), nullptr);
    freearr(arr, nullptr);
}

TEST(ArrOutOfMemory, SetInAnotherSpellingLeavesTheEntry)
{
    Arr *arr = newarr([](const void *a, const void *b) {
        return strcasecmp(static_cast<const char *>(a), static_cast<const char *>(b));
    });
    setarr(arr, "a", kA);
    fail_allocations_after(0);
    void *replaced = setarr(arr, "A", nullptr);
    fail_allocations_after(-1);
    EXPECT_EQ(replaced, nullptr);
    EXPECT_EQ(getarr(arr, "a"), kA);
    EXPECT_STREQ(static_cast<char *>(rbfind("a", arr)), "a");
    freearr(arr, nullptr);
}

TEST(ArrOutOfMemory, RbinsertReplacesAllTheSame)
{
    Arr *arr = newarr(nullptr);
    setarr(arr, "a", kA);
    char *key = strdup("a");
    fail_allocations_after(0);
    Rbnode *removed = rbinsert(key, nullptr, arr);
    fail_allocations_after(-1);
    EXPECT_EQ(removed->value, kA);
    EXPECT_EQ(rbfind("a", arr), key);
    free(removed->key);
    freearr(arr, nullptr);
}

TEST(ArrOutOfMemory, KeysEndTheProcess)
{
    Arr *arr = newarr(nullptr);
    setarr(arr, "a", kA);
    EXPECT_THAT(said_by(1, [&] { keysarr(arr); }),
                EndsWith(message("right_growtbl", "tbl.cpp", "80", "tbl->base.cp")));
    freearr(arr, nullptr);
}

TEST(RedblackOutOfMemory, IsSilent)
{
    Rbtree *tree = rbinit(nullptr);
    fail_allocations_after(0);
    Rbtree *other = rbinit(nullptr);
    Rbnode *node = rbinsert(kA, kA, tree);
    fail_allocations_after(-1);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(node, rb_null);
    EXPECT_EQ(tree->root, rb_null);
    EXPECT_EQ(elog_mark(), 0);
    rbdestroy(tree);
}

TEST(TblfileOutOfMemory, NamesTheZeroRecord)
{
    const TempDir dir;
    const std::string path = dir / "list";
    Tbl *tbl = nullptr;
    std::string said;
    for (long successes = 0; successes < 100 && said.find("local_null") == said.npos; ++successes)
        said = said_by(successes, [&] { filetbl(path.c_str(), nullptr, 10, nullptr, 24, &tbl); });
    EXPECT_THAT(said, EndsWith(message("filetbl", "tblfile.cpp", "24", "local_null")));
}
