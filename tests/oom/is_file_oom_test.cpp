// What listings, walks, mappings and facts about file systems say when memory
// runs out.

#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "deviants.h"
#include "stock.h"
#include "support/out_of_memory.h"
#include "support/temp_dir.h"

namespace {

using testing::EndsWith;
using testing::IsSupersetOf;

// The "function: item" of every message that the body ends the process with,
// each allocation failing in turn. The body tells whether it did all its work;
// where the system's own allocation fails it need not.
std::set<std::string> asked_for(const std::function<bool()> &body)
{
    std::set<std::string> items;
    for (long successes = 0; successes < 1000; ++successes) {
        const Ended ended = in_child([&] {
            elog_init(0, nullptr);
            fail_allocations_after(successes);
            const bool done = body();
            fail_allocations_after(-1);
            _exit(done ? 0 : 9);
        });
        if (ended.status == 0)
            return items;
        EXPECT_EQ(ended.signal, 0);
        const std::string function = "Out of memory in ", item = " bytes for ";
        const size_t in = ended.err.find(function), for_item = ended.err.find(item);
        if (ended.status == 9 || in == std::string::npos || for_item == std::string::npos)
            continue;
        const size_t name = in + function.size(), what = for_item + item.size();
        items.insert(ended.err.substr(name, ended.err.find(' ', name) - name) + ": " +
                     ended.err.substr(what, ended.err.find('\n', what) - what));
    }
    ADD_FAILURE() << "it never did all its work";
    return items;
}

int nothing(const char *, const struct stat *, void *)
{
    return 0;
}

}  // namespace

TEST(IsFileOutOfMemory, DirectoryNamesTheStatusOfAnEntry)
{
    const TempDir dir;
    dir.file("f", "x");
    EXPECT_THAT(asked_for([&] {
                    Arr *dirs = nullptr;
                    Arr *files = nullptr;
                    return directory(dir.path().c_str(), &dirs, &files) == 0 && cntarr(files) == 1;
                }),
                IsSupersetOf({"directory: entrystatbuf", "grow: names", "list: entries"}));
}

TEST(IsFileOutOfMemory, AWalkEndsTheProcessWhereverItHappens)
{
    const TempDir dir;
    dir.file("d/f", "x");
    EXPECT_THAT(asked_for([&] { return fstraverse(dir.path().c_str(), 0, nothing, nullptr) == 0; }),
                IsSupersetOf({"fstraverse: entrystatbuf", "append: path", "grow: names"}));
}

TEST(IsFileOutOfMemory, DirfilesNamesTheName)
{
    const TempDir dir;
    dir.file("f", "x");
    EXPECT_THAT(asked_for([&] { return dirfiles(dir.path().c_str(), 1)->count == 1; }),
                IsSupersetOf({"dirfiles: name"}));
}

TEST(IsFileOutOfMemory, EmptyTellsNothingWhenTheDirectoryCannotBeOpened)
{
    const TempDir dir;
    const Ended ended = in_child([&] {
        fail_allocations_after(0);
        _exit(is_empty(dir.path().c_str()) == -1 ? 0 : 9);
    });
    EXPECT_EQ(ended.status, 0);
}

TEST(MapfileOutOfMemory, NamesTheRecord)
{
    EXPECT_THAT(said_by(0, [] { new_Mapdata(); }),
                EndsWith(message("new_Mapdata", "mapfile.cpp", "24", "mapdata")));
}

TEST(MapfileOutOfMemory, AMappingThatCannotBeEnteredEndsTheProcess)
{
    const TempDir dir;
    const std::string file = dir.file("f", "x");
    EXPECT_THAT(asked_for([&] { return mapfile(file.c_str(), nullptr, nullptr) == 1; }),
                IsSupersetOf({"new_Mapdata: mapdata", "enter: node"}));
}

TEST(MapfileOutOfMemory, WhoIsCalledAtTheEndMayStillMapFiles)
{
    const TempDir dir;
    static std::string file;
    file = dir.file("f", "x");
    for (long successes = 0; successes < 5; ++successes) {
        const Ended ended = in_child([&] {
            elog_init(0, nullptr);
            atexit([] {
                fail_allocations_after(-1);
                if (mapfile(file.c_str(), nullptr, nullptr) == 1)
                    fputs("mapped\n", stderr);
            });
            fail_allocations_after(successes);
            mapfile(file.c_str(), nullptr, nullptr);
        });
        EXPECT_THAT(ended.err, EndsWith("mapped\n")) << successes;
    }
}

TEST(InfopathOutOfMemory, NamesTheRecord)
{
    EXPECT_THAT(asked_for([] {
                    Infopath *info = infopath("/");
                    return info != nullptr;
                }),
                IsSupersetOf({"infopath: info"}));
}
