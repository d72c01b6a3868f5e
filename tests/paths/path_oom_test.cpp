// What the path functions say when memory runs out.

#include "stock/path.h"

#include <cstdlib>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

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

// Loading the messaging library asks for the root, whose lock puttaluvine used to hold while
// it allocated: the report waited for ever.
TEST(PathOom, PuttaluvineTellsAMessagingLibrary)
{
    const std::string root = "/" + std::string(995, 'x');
    const Ended ended = in_child([&] {
        alarm(20);
        setenv("ELOG_DELIVER", "qel:ops@d", 1);
        setenv("ELOG_TAG", "%s", 1);
        elog_init(0, nullptr);
        fail_allocations_from(1000);
        puttaluvine(root.c_str());
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.err, testing::StartsWith("Can't dynamically load library qel,"));
    EXPECT_THAT(ended.err, testing::HasSubstr("oom_test: die: Out of memory in puttaluvine"));
}
