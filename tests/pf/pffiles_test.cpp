// Which files a name stands for, in which order, and when they were changed.

#include <cerrno>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stock.h"
#include "support/pf_files.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> files_of(const std::string &name, int all = 0)
{
    Tbl *files = pffiles(name.c_str(), all);
    std::vector<std::string> paths;
    for (int64_t i = 0; i < files->count; ++i)
        paths.emplace_back(static_cast<const char *>(gettbl(files, i)));
    freetbl(files, free);
    return paths;
}

void set_time(const std::string &path, time_t seconds, long nanoseconds)
{
    const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

}  // namespace

TEST(Pffiles, ListsTheFilesOfANameInTheOrderOfThePath)
{
    const PfPath path;
    const std::string site = path.site("prog.pf", "a 1\n");
    const std::string local = path.local("prog.pf", "a 2\n");
    EXPECT_THAT(files_of("prog"), ElementsAre(site, local));
}

TEST(Pffiles, ANameThatEndsInPfGetsNoSecondSuffix)
{
    const PfPath path;
    const std::string site = path.site("prog.pf", "a 1\n");
    EXPECT_THAT(files_of("prog.pf"), ElementsAre(site));
}

TEST(Pffiles, TheTwoLetterNamePfGetsTheSuffix)
{
    const PfPath path;
    const std::string site = path.site("pf.pf", "a 1\n");
    EXPECT_THAT(files_of("pf"), ElementsAre(site));
}

TEST(Pffiles, TheNameDotPfIsTakenAsItIs)
{
    const PfPath path;
    const std::string site = path.site(".pf", "a 1\n");
    EXPECT_THAT(files_of(".pf"), ElementsAre(site));
}

TEST(Pffiles, WithAllNotZeroFilesThatAreNotThereAreListedToo)
{
    const PfPath path;
    const std::string site = path.site("other.pf", "");
    path.local("other.pf", "");
    EXPECT_THAT(files_of("prog", 1),
                ElementsAre(path.dirs() / "site/prog.pf", path.dirs() / "local/prog.pf"));
    EXPECT_THAT(files_of("prog", 0), IsEmpty());
}

TEST(Pffiles, ANameWithADirectoryAddsItsOwnFileLast)
{
    const PfPath path;
    const std::string site = path.site("prog.pf", "a 1\n");
    const std::string own = path.dirs().file("own/prog.pf", "a 3\n");
    EXPECT_THAT(files_of(path.dirs() / "own/prog"), ElementsAre(site, own));
}

TEST(Pffiles, ADirectoryWhoseFileIsMissingAddsNothingUnlessAllIsAskedFor)
{
    const PfPath path;
    const std::string site = path.site("prog.pf", "a 1\n");
    const std::string own = path.dirs() / "own/prog";
    EXPECT_THAT(files_of(own), ElementsAre(site));
    EXPECT_THAT(files_of(own, 1), ElementsAre(site, own + ".pf"));
}

TEST(Pffiles, ANameThatBeginsWithDotSlashAddsTheFileOfTheWorkingDirectory)
{
    const PfPath path;
    const std::string site = path.site("prog.pf", "a 1\n");
    path.dirs().file("here/prog.pf", "a 3\n");
    ASSERT_EQ(chdir((path.dirs() / "here").c_str()), 0);
    EXPECT_THAT(files_of("./prog"), ElementsAre(site, "./prog.pf"));
    EXPECT_THAT(files_of("prog"), ElementsAre(site));
}

TEST(Pffiles, WithoutPfpathTheInstallationComesFirstAndThenTheWorkingDirectory)
{
    const PfPath path;
    path.dirs().file("root/data/pf/prog.pf", "a 1\n");
    path.dirs().file("here/prog.pf", "a 2\n");
    unsetenv("PFPATH");
    puttaluvine((path.dirs() / "root").c_str());
    ASSERT_EQ(chdir((path.dirs() / "here").c_str()), 0);
    EXPECT_THAT(files_of("prog"),
                ElementsAre(path.dirs() / "root/data/pf/prog.pf", testing::EndsWith("prog.pf")));
}

TEST(Pffiles, EnvironmentVariablesInThePathAreExpanded)
{
    const PfPath path;
    const std::string site = path.site("prog.pf", "a 1\n");
    setenv("PF_TEST", "unused", 1);
    setenv("PFTEST", (path.dirs() / "site").c_str(), 1);
    setenv("PFPATH", "$PFTEST", 1);
    EXPECT_THAT(files_of("prog"), ElementsAre(site));
}

TEST(Pffiles, LeavesErrnoAlone)
{
    const PfPath path;
    errno = EDOM;
    files_of("nowhere");
    EXPECT_EQ(errno, EDOM);
    files_of(path.dirs() / "nowhere/prog");
    EXPECT_EQ(errno, EDOM);
}

TEST(Pffiles, NamesThatAreNullEmptyOrTooLongFindNothing)
{
    const PfPath path;
    Tbl *none = pffiles(nullptr, 1);
    EXPECT_EQ(none->count, 0);
    freetbl(none, nullptr);
    EXPECT_THAT(files_of("", 1), IsEmpty());
    EXPECT_THAT(files_of(std::string(1021, 'x'), 1), IsEmpty());
    EXPECT_THAT(files_of(std::string(5000, 'x'), 1), IsEmpty());
    EXPECT_THAT(files_of("/" + std::string(5000, 'x'), 1), IsEmpty());
}

TEST(Pffiles, ANameWithItsSuffixHasAtMost1023Bytes)
{
    const auto name = [](size_t length) {
        std::string all;
        while (all.size() + 2 < length - 3)
            all += "d/";
        return all + std::string(length - 3 - all.size(), 'x') + ".pf";
    };
    EXPECT_THAT(files_of(name(1023), 1), testing::Contains(name(1023)));
    EXPECT_THAT(files_of(name(1023).substr(0, 1020), 1), testing::Contains(name(1023)));
    EXPECT_THAT(files_of(name(1024), 1), IsEmpty());
    EXPECT_THAT(files_of(name(1024).substr(0, 1021), 1), IsEmpty());
}

TEST(Pftimes, GivesTheTimeOfEachFileWithItsFraction)
{
    const PfPath path;
    const std::string site = path.site("prog.pf", "a 1\n");
    set_time(site, 1000000000, 250000000);
    Tbl *times = pftimes("prog");
    ASSERT_EQ(times->count, 1);
    const auto *time = static_cast<const Pftime *>(gettbl(times, 0));
    EXPECT_EQ(time->mtime, 1000000000.25);
    EXPECT_EQ(time->path, site);
    freetbl(times, pffree_time);
}

TEST(Pftimes, OfANameWithoutFilesIsEmpty)
{
    const PfPath path;
    Tbl *times = pftimes("prog");
    EXPECT_EQ(times->count, 0);
    freetbl(times, pffree_time);
}

TEST(Pffiles, ADirectoryThatIsAFileOfTheListAddsNothing)
{
    const PfPath path;
    const std::string site = path.site("prog.pf", "a 1\n");
    path.local("other.pf", "");
    const std::string local = path.dirs() / "local/prog.pf";
    EXPECT_THAT(files_of(site + "/prog", 1), ElementsAre(site, local));
    EXPECT_THAT(files_of(local + "/prog", 0), ElementsAre(site));
}
