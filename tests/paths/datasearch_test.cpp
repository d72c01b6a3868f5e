// Data files along a search path.

#include "stock/datasearch.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/logged.h"
#include "support/nobody.h"
#include "support/one_user.h"
#include "support/owners.h"
#include "support/temp_dir.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;

std::vector<std::string> candidates(const char *paths, const char *subdir, const char *name,
                                    uint32_t flags = DATASEARCH_EXPAND)
{
    Tbl *found = datasearch(paths, subdir, name, flags);
    std::vector<std::string> texts;
    for (int64_t i = 0; i < found->count; ++i)
        texts.emplace_back(static_cast<const char *>(gettbl(found, i)));
    freetbl(found, free);
    return texts;
}

std::vector<std::string> candidates(const std::string &paths, const std::string &name,
                                    uint32_t flags = DATASEARCH_EXPAND)
{
    return candidates(paths.c_str(), nullptr, name.c_str(), flags);
}

std::string path_of(const char *variable, const char *subdir, const char *name, const char *suffix)
{
    const Text found(datapath(variable, subdir, name, suffix));
    return found ? found.get() : "(null)";
}

// Two directories of data, a and b, which no environment variable names.
class DataTest : public testing::Test {
protected:
    DataTest()
    {
        unsetenv("DATAPATH");
        puttaluvine(dir_.path().c_str());
        fs::create_directories(a_ = dir_ / "a");
        fs::create_directories(b_ = dir_ / "b");
    }

    TempDir dir_;
    std::string a_, b_;
};

using Datasearch = DataTest;
using Datapath = DataTest;

}  // namespace

TEST_F(Datasearch, GivesTheCandidatesInTheOrderOfTheList)
{
    dir_.file("a/x", "");
    dir_.file("b/x", "");
    EXPECT_THAT(candidates(a_ + ":" + b_, "x"), ElementsAre(a_ + "/x", b_ + "/x"));
    EXPECT_THAT(candidates(b_ + ":" + a_, "x"), ElementsAre(b_ + "/x", a_ + "/x"));
}

TEST_F(Datasearch, LeavesOutWhatCannotBeRead)
{
    dir_.file("b/x", "");
    EXPECT_THAT(candidates(a_ + ":" + b_, "x"), ElementsAre(b_ + "/x"));
    EXPECT_THAT(candidates(a_, "x"), IsEmpty());
    EXPECT_THAT(candidates("/nosuchdir", "x"), IsEmpty());
}

TEST_F(Datasearch, AFileWithoutPermissionIsLeftOut)
{
    dir_.file("a/x", "");
    chmod((a_ + "/x").c_str(), 0);
    chmod(dir_.path().c_str(), 0755);
    const Ended ended = as_nobody([&] {
        printf("%zu %zu", candidates(a_, "x").size(), candidates(a_, "x", DATASEARCH_ANY).size());
    });
    EXPECT_EQ(ended.out, "0 1");
}

TEST_F(Datasearch, ADirectoryWithoutPermissionHoldsNothing)
{
    dir_.file("a/x", "");
    chmod(dir_.path().c_str(), 0755);
    chmod(a_.c_str(), 0);
    const Ended ended = as_nobody([&] { printf("%zu", candidates(a_, "x").size()); });
    chmod(a_.c_str(), 0755);
    EXPECT_EQ(ended.out, "0");
}

TEST_F(Datasearch, WithTheFlagMissingFilesInDirectoriesThatExistAreCandidates)
{
    EXPECT_THAT(candidates(a_ + ":/nosuchdir:" + b_, "x", DATASEARCH_ANY),
                ElementsAre(a_ + "/x", b_ + "/x"));
    EXPECT_THAT(candidates(a_, "t/x", DATASEARCH_ANY), ElementsAre(a_ + "/t/x", a_ + "/x"));
}

TEST_F(Datasearch, AnElementThatIsAFileIsACandidateItself)
{
    const std::string file = dir_.file("c/some.table", "");
    EXPECT_THAT(candidates(file + ":" + a_, "x"), ElementsAre(file));
}

TEST_F(Datasearch, AnElementThatIsARelativeFileCountsOnlyWithTheFlag)
{
    dir_.file("table", "");
    fs::current_path(dir_.path());
    EXPECT_THAT(candidates("table", "x"), IsEmpty());
    EXPECT_THAT(candidates("table", "x", DATASEARCH_ANY), ElementsAre("table"));
    fs::current_path("/");
}

TEST_F(Datasearch, ANameWithADirectoryIsTriedWithAndThenWithoutIt)
{
    dir_.file("a/tables/x.t", "");
    dir_.file("a/x.t", "");
    dir_.file("b/x.t", "");
    EXPECT_THAT(candidates(a_ + ":" + b_, "tables/x.t"),
                ElementsAre(a_ + "/tables/x.t", a_ + "/x.t", b_ + "/x.t"));
}

TEST_F(Datasearch, TheSubdirectoryIsJoinedToEachElement)
{
    dir_.file("a/sub/x", "");
    dir_.file("b/x", "");
    const std::string both = a_ + ":" + b_;
    EXPECT_THAT(candidates(both.c_str(), "sub", "x"), ElementsAre(a_ + "/sub/x"));
    EXPECT_THAT(candidates(both.c_str(), "./sub/", "x"), ElementsAre(a_ + "/sub/x"));
    EXPECT_THAT(candidates(both.c_str(), "", "x"), ElementsAre(b_ + "/x"));
}

TEST_F(Datasearch, ElementsEndingInASlashAndEmptyOnesAreFine)
{
    dir_.file("a/x", "");
    EXPECT_THAT(candidates("::" + a_ + "/::", "x"), ElementsAre(a_ + "/x"));
    EXPECT_THAT(candidates(":", "x"), IsEmpty());
}

TEST_F(Datasearch, ExpandsVariablesInTheListWhenTold)
{
    dir_.file("a/x", "");
    setenv("DATAROOT", dir_.path().c_str(), 1);
    EXPECT_THAT(candidates("$DATAROOT/a", "x", DATASEARCH_EXPAND), ElementsAre(a_ + "/x"));
    EXPECT_THAT(candidates("${DATAROOT}/a", "x", DATASEARCH_EXPAND), ElementsAre(a_ + "/x"));
    EXPECT_THAT(candidates("$DATAROOT/a", "x", 0), IsEmpty());
}

TEST_F(Datasearch, AVariableMayHoldSeveralElements)
{
    dir_.file("a/x", "");
    dir_.file("b/x", "");
    setenv("DIRS", (a_ + ":" + b_).c_str(), 1);
    EXPECT_THAT(candidates("$DIRS", "x"), ElementsAre(a_ + "/x", b_ + "/x"));
}

TEST_F(Datasearch, ATildeIsTheHomeDirectoryWithLinksResolved)
{
    EXPECT_THAT(candidates("~", "x", DATASEARCH_ANY), ElementsAre(kUserHome + std::string("/x")));
}

TEST_F(Datasearch, WithoutAListTakesDatapath)
{
    dir_.file("a/x", "");
    setenv("DATAPATH", a_.c_str(), 1);
    EXPECT_THAT(candidates(nullptr, nullptr, "x"), ElementsAre(a_ + "/x"));
    EXPECT_THAT(candidates("", nullptr, "x"), ElementsAre(a_ + "/x"));
}

TEST_F(Datasearch, WithoutAListAndDatapathTakesTheRootsData)
{
    const std::string file = dir_.file("data/x", "");
    EXPECT_THAT(candidates(nullptr, nullptr, "x"), ElementsAre(file));
}

TEST_F(Datasearch, LeavesErrnoAloneAndLogsNothing)
{
    EXPECT_EQ(logged([&] {
                  errno = E2BIG;
                  candidates(a_ + ":/nosuchdir", "t/x");
                  EXPECT_EQ(errno, E2BIG);
                  datafile("PATH", "no such program");
                  EXPECT_EQ(errno, E2BIG);
              }),
              "");
}

TEST_F(Datasearch, CandidatesThatDoNotFitAreNoCandidates)
{
    const std::string huge(5000, 'x');
    EXPECT_EQ(logged([&] {
                  EXPECT_THAT(candidates(a_, huge, DATASEARCH_ANY), IsEmpty());
                  EXPECT_THAT(candidates("/" + huge + ":" + a_, "x", DATASEARCH_ANY),
                              ElementsAre(a_ + "/x"));
                  EXPECT_THAT(candidates(a_.c_str(), huge.c_str(), "x", DATASEARCH_ANY), IsEmpty());
              }),
              "");
}

TEST_F(Datasearch, AnElementOf1024BytesIsTooLongThoughTheSystemFindsIt)
{
    std::string element = dir_.file("a/x", "");
    while (element.size() < 1023)
        element.insert(a_.size(), "/");
    EXPECT_THAT(candidates(element, "any"), ElementsAre(element));
    element.insert(a_.size(), "/");
    EXPECT_THAT(candidates(element, "any", DATASEARCH_ANY), IsEmpty());
    EXPECT_THAT(candidates(element + ":" + a_, "x"), ElementsAre(a_ + "/x"));
}

// The subdirectory used to be looked for in the current directory instead.
TEST_F(Datasearch, AHomeDirectoryThatIsTooLongIsNoElement)
{
    std::filesystem::current_path(a_);
    std::filesystem::create_directory("sub");
    const std::string element = "~/" + std::string(1020, 'y');
    EXPECT_THAT(candidates(element.c_str(), "sub", "x", DATASEARCH_ANY), IsEmpty());
    std::filesystem::current_path("/");
}

TEST_F(Datasearch, ACandidateOf1023BytesFits)
{
    const std::string name(1023 - a_.size() - 1, 'x');
    EXPECT_THAT(candidates(a_, name, DATASEARCH_ANY), ElementsAre(a_ + "/" + name));
    EXPECT_THAT(candidates(a_, name + "x", DATASEARCH_ANY), IsEmpty());
}

TEST_F(Datasearch, ANullNameIsFoundNowhere)
{
    EXPECT_THAT(candidates(a_.c_str(), nullptr, nullptr), IsEmpty());
}

TEST_F(Datapath, GivesTheFirstCandidateAlongTheNamedVariable)
{
    dir_.file("a/x.t", "");
    dir_.file("b/x.t", "");
    setenv("TABLES", (b_ + ":" + a_).c_str(), 1);
    EXPECT_EQ(path_of("TABLES", nullptr, "x", "t"), b_ + "/x.t");
    EXPECT_EQ(path_of("TABLES", nullptr, "x.t", ""), b_ + "/x.t");
    EXPECT_EQ(path_of("TABLES", nullptr, "x", nullptr), "(null)");
}

TEST_F(Datapath, AVariableThatPointsNowhereHidesDatapath)
{
    dir_.file("a/x", "");
    setenv("DATAPATH", a_.c_str(), 1);
    setenv("TABLES", "/nosuchdir", 1);
    EXPECT_EQ(path_of("TABLES", nullptr, "x", nullptr), "(null)");
}

TEST_F(Datapath, AVariableThatIsSetButEmptyIsNoListAndLeavesDatapath)
{
    dir_.file("a/x", "");
    setenv("DATAPATH", a_.c_str(), 1);
    setenv("TABLES", "", 1);
    EXPECT_EQ(path_of("TABLES", nullptr, "x", nullptr), a_ + "/x");
}

TEST_F(Datapath, WithoutAVariableThatIsSetTakesDatapath)
{
    dir_.file("a/sub/x", "");
    setenv("DATAPATH", a_.c_str(), 1);
    unsetenv("TABLES");
    EXPECT_EQ(path_of("TABLES", "sub", "x", nullptr), a_ + "/sub/x");
    EXPECT_EQ(path_of("", "sub", "x", nullptr), a_ + "/sub/x");
    EXPECT_EQ(path_of(nullptr, "sub", "x", nullptr), a_ + "/sub/x");
}

TEST_F(Datapath, WithoutDatapathTakesTheRootsData)
{
    const std::string file = dir_.file("data/x", "");
    EXPECT_EQ(path_of(nullptr, nullptr, "x", nullptr), file);
}

TEST_F(Datapath, ExpandsVariables)
{
    dir_.file("a/x", "");
    setenv("DATAROOT", dir_.path().c_str(), 1);
    setenv("DATAPATH", "$DATAROOT/a", 1);
    EXPECT_EQ(path_of(nullptr, nullptr, "x", nullptr), a_ + "/x");
}

TEST_F(Datapath, ANameThatIsTooLongWithItsSuffixIsFoundNowhere)
{
    const std::string huge(1000, 'x');
    EXPECT_EQ(path_of(nullptr, nullptr, huge.c_str(), huge.c_str()), "(null)");
    EXPECT_EQ(path_of(nullptr, nullptr, nullptr, "t"), "(null)");
}

TEST_F(Datapath, DatafileLooksWithoutSubdirectoryAndSuffix)
{
    dir_.file("a/x.t", "");
    setenv("TABLES", a_.c_str(), 1);
    EXPECT_EQ(Text(datafile("TABLES", "x.t")).get(), a_ + "/x.t");
    EXPECT_EQ(datafile("TABLES", "x"), nullptr);
}
