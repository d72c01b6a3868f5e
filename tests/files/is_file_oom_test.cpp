// The messages of listings, walks, mappings and infopath when memory runs out.

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
                EndsWith(message("new_Mapdata", "mapfile.cpp", "40", "mapdata")));
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
