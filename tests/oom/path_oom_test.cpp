// What the path functions say when memory runs out.

#include "stock/path.h"

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stock/gettaluvine.h"
#include "support/out_of_memory.h"
#include "support/temp_dir.h"

using testing::EndsWith;

TEST(PathOom, ConcatpathsNamesTheJoinedText)
{
    EXPECT_THAT(said_by(0, [] { concatpaths("/a", "b", nullptr); }),
                EndsWith(message("concatpaths", "path.cpp", "1024", "new")));
}

TEST(PathOom, ConcatpathsNamesItsResult)
{
    EXPECT_THAT(said_by(1, [] { concatpaths("/a", "b", nullptr); }),
                EndsWith(message("concatpaths", "path.cpp", "1024", "new2")));
}

TEST(PathOom, CleanpathNamesTheLink)
{
    const TempDir dir;
    const std::string link = dir / "link";
    std::filesystem::create_symlink("target", link);
    char path[1024];
    EXPECT_THAT(said_by(0, [&] { cleanpath(link.c_str(), CLEANPATH_LINKS, path); }),
                EndsWith(message("cleanpath", "path.cpp", "1024", "link")));
}

TEST(PathOom, PuttaluvineNamesTheEnvironmentsEntry)
{
    EXPECT_THAT(said_by(0, [] { puttaluvine("/x"); }),
                EndsWith(message("puttaluvine", "gettaluvine.cpp", "12", "Setenv")));
}
