// Files: what they are, what a directory holds, and walks of trees.
//
// The program replaces readdir, so that reading a directory can fail halfway or give a name
// twice.

#include "stock/is_file.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/logged.h"
#include "support/nobody.h"
#include "support/owners.h"
#include "support/temp_dir.h"

namespace {

int reads_left = -1;       // readdir fails when it is 0; never when negative
bool shows_twice = false;  // readdir gives each entry twice

}  // namespace

extern "C" struct dirent *readdir(DIR *dir)
{
    static thread_local struct dirent *shown = nullptr;
    if (reads_left == 0) {
        errno = EIO;
        return nullptr;
    }
    if (reads_left > 0)
        --reads_left;
    if (shows_twice && shown)
        return std::exchange(shown, nullptr);
    static auto *const real =
        reinterpret_cast<struct dirent *(*)(DIR *)>(dlsym(RTLD_NEXT, "readdir"));
    return shown = real(dir);
}

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

struct FreeStrings {
    void operator()(Tbl *tbl) const { freetbl(tbl, std::free); }
};
using Strings = std::unique_ptr<Tbl, FreeStrings>;

struct FreeStatuses {
    void operator()(Arr *arr) const { freearr(arr, std::free); }
};
using Statuses = std::unique_ptr<Arr, FreeStatuses>;

std::vector<std::string> texts(const Tbl *tbl)
{
    std::vector<std::string> result;
    for (int64_t i = 0; i < tbl->count; ++i)
        result.emplace_back(static_cast<const char *>(gettbl(tbl, i)));
    return result;
}

std::vector<std::string> list(const std::string &dir, int which)
{
    const Strings names(dirfiles(dir.c_str(), which));
    return texts(names.get());
}

std::vector<std::string> keys(const Arr *arr)
{
    const TblPtr names(keysarr(arr));
    return texts(names.get());
}

class Files : public testing::Test {
protected:
    Files() { EXPECT_EQ(chmod(dir_.path().c_str(), 0777), 0); }
    ~Files() override
    {
        reads_left = -1;
        shows_twice = false;
    }

    std::string sub(const std::string &name)
    {
        std::filesystem::create_directories(dir_ / name);
        return dir_ / name;
    }
    std::string link(const std::string &target, const std::string &name)
    {
        EXPECT_EQ(symlink(target.c_str(), (dir_ / name).c_str()), 0);
        return dir_ / name;
    }
    std::string fifo(const std::string &name)
    {
        EXPECT_EQ(mkfifo((dir_ / name).c_str(), 0644), 0);
        return dir_ / name;
    }

    TempDir dir_;
};

using IsFile = Files;
using Dirfiles = Files;
using Directory = Files;
using DirectoryThreads = Files;

// The calls of a walk, one line each: "path" for a file and "path/" for a directory, without
// the path of the tree.
struct Walked {
    std::string root;
    std::vector<std::string> calls;
    int gives = 1;
};

int note(const char *path, const struct stat *status, void *argument)
{
    auto *walked = static_cast<Walked *>(argument);
    std::string shown = path;
    if (shown.starts_with(walked->root + "/"))
        shown.erase(0, walked->root.size() + 1);
    walked->calls.push_back(shown + (S_ISDIR(status->st_mode) ? "/" : ""));
    return walked->gives;
}

class Fstraverse : public Files {
protected:
    int walk(const std::string &path, int flags)
    {
        walked_ = {dir_.path(), {}, gives_};
        return fstraverse(path.c_str(), flags, note, &walked_);
    }

    // b/one, b/c/two, a, d (empty)
    void plant()
    {
        dir_.file("a", "");
        dir_.file("b/one", "1");
        dir_.file("b/c/two", "22");
        sub("d");
    }

    Walked walked_;
    int gives_ = 1;
};

}  // namespace

TEST_F(IsFile, TellsWhatAPathLeadsTo)
{
    const std::string file = dir_.file("file", "x");
    const std::string dir = sub("dir");
    const struct {
        std::string path;
        int present, file, dir;
    } cases[] = {
        {file, 1, 1, 0},
        {dir, 1, 0, 1},
        {dir + "/", 1, 0, 1},
        {fifo("fifo"), 1, 0, 0},
        {"/dev/null", 1, 0, 0},
        {link("file", "to_file"), 1, 1, 0},
        {link("dir", "to_dir"), 1, 0, 1},
        {link("nowhere", "broken"), 0, 0, 0},
        {link("self", "self"), 0, 0, 0},
        {dir_ / "none", 0, 0, 0},
        {file + "/below", 0, 0, 0},
        {"", 0, 0, 0},
        {dir_ / std::string(255, 'n'), 0, 0, 0},
        {dir_ / std::string(5000, 'n'), 0, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(is_present(c.path.c_str()), c.present);
        EXPECT_EQ(is_file(c.path.c_str()), c.file);
        EXPECT_EQ(is_dir(c.path.c_str()), c.dir);
    }
}

TEST_F(IsFile, ANullPathIsNotThere)
{
    EXPECT_EQ(is_present(nullptr), 0);
    EXPECT_EQ(is_file(nullptr), 0);
    EXPECT_EQ(is_dir(nullptr), 0);
    EXPECT_EQ(is_executable_file(nullptr), 0);
    EXPECT_EQ(is_writable_file(nullptr), 0);
    EXPECT_EQ(is_filename(nullptr), 0);
    EXPECT_EQ(is_empty(nullptr), 0);
    EXPECT_EQ(filetime(nullptr), 0);
    EXPECT_EQ(filesize(nullptr), 0);
    EXPECT_EQ(filemode(nullptr), 0u);
}

TEST_F(IsFile, TheQuestionsLeaveErrnoAlone)
{
    const std::string none = dir_ / "none";
    const std::string dir = sub("dir");
    for (const std::string &path : {none, dir}) {
        SCOPED_TRACE(path);
        errno = 4711;
        is_present(path.c_str());
        is_file(path.c_str());
        is_dir(path.c_str());
        is_executable_file(path.c_str());
        is_writable_file(path.c_str());
        is_empty(path.c_str());
        filetime(path.c_str());
        filesize(path.c_str());
        filemode(path.c_str());
        EXPECT_EQ(errno, 4711);
    }
}

TEST_F(IsFile, OneExecutePermissionOfAnybodyIsEnough)
{
    const std::string file = dir_.file("file", "");
    for (const mode_t mode : {0100u, 0010u, 0001u, 0755u}) {
        chmod(file.c_str(), mode);
        EXPECT_EQ(is_executable_file(file.c_str()), 1) << mode;
    }
    for (const mode_t mode : {0000u, 0666u}) {
        chmod(file.c_str(), mode);
        EXPECT_EQ(is_executable_file(file.c_str()), 0) << mode;
    }
    EXPECT_EQ(is_executable_file(dir_.path().c_str()), 0);
}

TEST_F(IsFile, ANewNameInAWritableDirectoryIsWritable)
{
    EXPECT_EQ(is_writable_file((dir_ / "new").c_str()), 1);
    EXPECT_EQ(is_writable_file(dir_.file("old", "").c_str()), 1);
    EXPECT_EQ(is_writable_file(link("nowhere", "broken").c_str()), 1);
}

TEST_F(IsFile, WhatIsNoFileOrHasNoDirectoryIsNotWritable)
{
    EXPECT_EQ(is_writable_file(sub("dir").c_str()), 0);
    EXPECT_EQ(is_writable_file("/dev/null"), 0);
    EXPECT_EQ(is_writable_file((dir_ / "none/new").c_str()), 0);
    EXPECT_EQ(is_writable_file((dir_.file("file", "") + "/new").c_str()), 0);
    EXPECT_EQ(is_writable_file(link("self", "self").c_str()), 0);
    EXPECT_EQ(is_writable_file(""), 0);
}

TEST_F(IsFile, ANewNameWithoutADirectoryIsOneOfTheCurrentDirectory)
{
    const Ended ended = as_nobody([&] {
        for (const std::string &dir : {dir_.path(), std::string("/")})
            printf("%d ", chdir(dir.c_str()) == 0 && is_writable_file("new"));
    });
    EXPECT_EQ(ended.out, "1 0 ");
}

TEST_F(IsFile, AnEmptyDirectoryPartOfAnAbsolutePathIsTheRoot)
{
    EXPECT_EQ(as_nobody([] { printf("%d", is_writable_file("/new")); }).out, "0");
    EXPECT_EQ(is_writable_file("/new"), access("/", W_OK) == 0);
}

TEST_F(IsFile, AMissingNameOfMoreThan1023CharactersIsNotWritable)
{
    std::string path = dir_.path();
    while (path.size() < 1022)
        path += "/.";
    path.resize(1021);
    path += path.back() == '/' ? "n" : "/";
    EXPECT_EQ(is_writable_file((path + "n").c_str()), 1);
    EXPECT_EQ(is_writable_file((path + "nn").c_str()), 0);
}

TEST_F(IsFile, PermissionsDecideWhatIsWritable)
{
    const std::string shut = sub("shut");
    const std::string file = dir_.file("file", "");
    chmod(file.c_str(), 0444);
    chmod(shut.c_str(), 0555);
    const Ended ended = as_nobody([&] {
        printf("%d %d", is_writable_file(file.c_str()), is_writable_file((shut + "/new").c_str()));
    });
    EXPECT_EQ(ended.out, "0 0");
}

TEST(IsFilename, TellsByHowTheNameBegins)
{
    const struct {
        const char *name;
        int is;
    } cases[] = {
        {"/", 1},    {"/x", 1},   {"./", 1},  {"./x", 1}, {"../", 1}, {"../x", 1},
        {"", 0},     {".", 0},    {"..", 0},  {"x", 0},   {"x/y", 0}, {".x/", 0},
        {"..x/", 0}, {".../", 0}, {"~/x", 0}, {" /x", 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(is_filename(c.name), c.is) << c.name;
}

TEST_F(IsFile, EmptyAreDirectoriesWithoutEntriesAndFilesWithoutBytes)
{
    EXPECT_EQ(is_empty(sub("dir").c_str()), 1);
    EXPECT_EQ(is_empty(dir_.file("zero", "").c_str()), 1);
    EXPECT_EQ(is_empty(link("dir", "to_dir").c_str()), 1);
    EXPECT_EQ(is_empty(dir_.file("one", "1").c_str()), 0);
    EXPECT_EQ(is_empty(dir_.path().c_str()), 0);
    EXPECT_EQ(is_empty(fifo("fifo").c_str()), 0);
    EXPECT_EQ(is_empty((dir_ / "none").c_str()), 0);
}

TEST_F(IsFile, ADirectoryWithOneHiddenFileIsNotEmpty)
{
    dir_.file("dir/.hidden", "");
    EXPECT_EQ(is_empty((dir_ / "dir").c_str()), 0);
    dir_.file("three/...", "");
    EXPECT_EQ(is_empty((dir_ / "three").c_str()), 0);
}

TEST_F(IsFile, ADirectoryThatCannotBeReadIsEmptyMinusOne)
{
    const std::string shut = sub("shut");
    chmod(shut.c_str(), 0300);
    EXPECT_EQ(as_nobody([&] { printf("%d", is_empty(shut.c_str())); }).out, "-1");

    const std::string dir = sub("dir");
    reads_left = 1;
    EXPECT_EQ(is_empty(dir.c_str()), -1);
}

TEST_F(IsFile, FiletimeIsWhenTheContentChangedLast)
{
    const std::string file = dir_.file("file", "");
    const struct timespec times[2] = {{5, 0}, {1234567890, 987654321}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    EXPECT_EQ(filetime(file.c_str()), 1234567890);
    const struct timespec old[2] = {{5, 0}, {-1000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), old, 0), 0);
    EXPECT_EQ(filetime(file.c_str()), -1000);
    EXPECT_GT(filetime(dir_.path().c_str()), 0);
    EXPECT_EQ(filetime((dir_ / "none").c_str()), 0);
}

TEST_F(IsFile, SizeAndModeAreThoseOfRegularFilesOnly)
{
    const std::string file = dir_.file("file", "twelve bytes");
    chmod(file.c_str(), 04640);
    EXPECT_EQ(filesize(file.c_str()), 12);
    EXPECT_EQ(filemode(file.c_str()), mode_t{S_IFREG | 04640});
    ASSERT_EQ(truncate(file.c_str(), 0x140000000), 0);
    EXPECT_EQ(filesize(file.c_str()), 0x140000000);
    for (const std::string &path : {dir_.path(), fifo("fifo"), dir_ / "none"}) {
        EXPECT_EQ(filesize(path.c_str()), 0) << path;
        EXPECT_EQ(filemode(path.c_str()), 0u) << path;
    }
}

TEST(Bytes, UnitsAreDecimal)
{
    EXPECT_EQ(Gbytes(2.5e9), 2.5);
    EXPECT_EQ(Mbytes(2.5e6), 2.5);
    EXPECT_EQ(kbytes(1024), 1.024);
    EXPECT_EQ(kbytes(-500), -0.5);
}

TEST_F(Dirfiles, ListsSortedNamesOfTheKindsAskedFor)
{
    dir_.file("b", "");
    dir_.file("B", "");
    dir_.file("a b", "");
    dir_.file(".hidden", "");
    sub("dir");
    fifo("fifo");
    link("b", "to_file");
    link("dir", "to_dir");
    link("none", "broken");
    EXPECT_THAT(list(dir_.path(), 0), ElementsAre(".hidden", "B", "a b", "b", "broken", "dir",
                                                  "fifo", "to_dir", "to_file"));
    EXPECT_THAT(list(dir_.path(), 1), ElementsAre(".hidden", "B", "a b", "b", "to_file"));
    EXPECT_THAT(list(dir_.path(), 2), ElementsAre("dir", "to_dir"));
    EXPECT_THAT(list(dir_.path(), 3),
                ElementsAre(".hidden", "B", "a b", "b", "dir", "to_dir", "to_file"));
}

TEST_F(Dirfiles, WhichCountsByItsTwoLowBits)
{
    dir_.file("f", "");
    sub("d");
    EXPECT_THAT(list(dir_.path(), 4), IsEmpty());
    EXPECT_THAT(list(dir_.path(), 5), ElementsAre("f"));
    EXPECT_THAT(list(dir_.path(), -1), ElementsAre("d", "f"));
}

TEST_F(Dirfiles, WhatIsNoDirectoryGivesAnEmptyList)
{
    EXPECT_THAT(list(dir_.file("f", ""), 0), IsEmpty());
    EXPECT_THAT(list(dir_ / "none", 0), IsEmpty());
    EXPECT_THAT(list("", 0), IsEmpty());
    const Strings names(dirfiles(nullptr, 0));
    EXPECT_EQ(names->count, 0);
}

TEST_F(Dirfiles, AnEmptyDirectoryGivesAnEmptyList)
{
    EXPECT_THAT(list(sub("d"), 0), IsEmpty());
}

TEST_F(Dirfiles, NamesSortByBytesWhateverTheyHaveInCommon)
{
    std::vector<std::string> names;
    for (const char *stem : {"", "common", "common_stem_of_names"})
        for (const char *end :
             {"0", "00", "000000000", "000000001", "1", "~", "\x01", "\xff", "\xc3\xa4"})
            names.push_back(std::string(stem) + end);
    for (const std::string &name : names)
        dir_.file(name, "");
    std::sort(names.begin(), names.end(), [](const std::string &a, const std::string &b) {
        return strcmp(a.c_str(), b.c_str()) < 0;
    });
    EXPECT_EQ(list(dir_.path(), 1), names);
}

TEST_F(Dirfiles, ANameThatBeginsAnotherComesFirst)
{
    for (const char *name : {"prefix.long.name", "prefix", "prefix.long"})
        dir_.file(name, "");
    EXPECT_THAT(list(dir_.path(), 0), ElementsAre("prefix", "prefix.long", "prefix.long.name"));
}

TEST_F(Dirfiles, NamesOf255BytesAreWhole)
{
    const std::string longest(255, 'n');
    dir_.file(longest, "");
    sub(std::string(254, 'n') + "d");
    EXPECT_THAT(list(dir_.path(), 1), ElementsAre(longest));
    EXPECT_THAT(list(dir_.path(), 2), ElementsAre(std::string(254, 'n') + "d"));
}

TEST_F(Dirfiles, EntriesBeyondPathsOf1024CharactersAreExamined)
{
    std::string path = dir_.path();
    for (int i = 0; i < 6; ++i)
        path += "/" + std::string(200, 'd');
    std::filesystem::create_directories(path);
    std::ofstream(path + "/" + std::string(200, 'f')) << "x";
    EXPECT_THAT(list(path, 1), ElementsAre(std::string(200, 'f')));
}

TEST_F(Dirfiles, LargeDirectoriesAreReadWhole)
{
    constexpr int kFiles = 20000;
    for (int i = 0; i < kFiles; ++i)
        close(open((dir_ / std::to_string(i)).c_str(), O_CREAT | O_WRONLY, 0644));
    const auto names = list(dir_.path(), 1);
    EXPECT_EQ(names.size(), size_t{kFiles});
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
}

TEST_F(Dirfiles, ANameThatTheSystemGivesTwiceIsListedOnce)
{
    dir_.file("a", "");
    dir_.file("b", "");
    shows_twice = true;
    EXPECT_THAT(list(dir_.path(), 0), ElementsAre("a", "b"));
}

TEST_F(Dirfiles, AReadingThatBreaksOffGivesAnEmptyList)
{
    dir_.file("a", "");
    dir_.file("b", "");
    reads_left = 3;
    EXPECT_THAT(list(dir_.path(), 0), IsEmpty());
}

TEST_F(Dirfiles, WhatCannotBeExaminedIsListedOnlyUnderZero)
{
    dir_.file("shut/f", "");
    sub("shut/d");
    chmod((dir_ / "shut").c_str(), 0755);
    const auto print = [&] {
        for (int which = 0; which < 4; ++which)
            printf("%zu ", list(dir_ / "shut", which).size());
    };
    EXPECT_EQ(as_nobody(print).out, "2 1 1 2 ");
    chmod((dir_ / "shut").c_str(), 0644);
    EXPECT_EQ(as_nobody(print).out, "2 0 0 0 ");
}

TEST_F(Directory, GivesTheStatusOfSubdirectoriesAndFiles)
{
    dir_.file("f", "twelve bytes");
    sub("d");
    fifo("fifo");
    link("f", "to_f");
    link("d", "to_d");
    link("none", "broken");
    Arr *d = nullptr;
    Arr *f = nullptr;
    EXPECT_EQ(directory(dir_.path().c_str(), &d, &f), 0);
    const Statuses dirs(d), files(f);
    EXPECT_THAT(keys(d), ElementsAre("d", "to_d"));
    EXPECT_THAT(keys(f), ElementsAre("f", "to_f"));
    const auto *status = static_cast<const struct stat *>(getarr(f, "to_f"));
    EXPECT_EQ(status->st_size, 12);
    EXPECT_TRUE(S_ISREG(status->st_mode));
    EXPECT_TRUE(S_ISDIR(static_cast<const struct stat *>(getarr(d, "to_d"))->st_mode));
}

TEST_F(Directory, WhatIsNoDirectoryGivesMinusOneAndEmptyArrays)
{
    for (const std::string &path : {dir_.file("f", ""), dir_ / "none", std::string()}) {
        SCOPED_TRACE(path);
        Arr *d = nullptr;
        Arr *f = nullptr;
        EXPECT_EQ(directory(path.c_str(), &d, &f), -1);
        const Statuses dirs(d), files(f);
        ASSERT_TRUE(d && f);
        EXPECT_EQ(cntarr(d) + cntarr(f), 0);
    }
}

TEST_F(Directory, AReadingThatBreaksOffGivesMinusOneAndEmptyArrays)
{
    dir_.file("a", "");
    dir_.file("b", "");
    Arr *d = nullptr;
    Arr *f = nullptr;
    reads_left = 3;
    errno = 0;
    EXPECT_EQ(directory(dir_.path().c_str(), &d, &f), -1);
    EXPECT_EQ(errno, EIO);
    const Statuses dirs(d), files(f);
    EXPECT_EQ(cntarr(d) + cntarr(f), 0);
}

TEST_F(Directory, NullArgumentsAreRefusedOrLeftOut)
{
    dir_.file("f", "");
    sub("d");
    Arr *d = nullptr;
    Arr *f = nullptr;
    errno = 0;
    EXPECT_EQ(directory(nullptr, &d, &f), -1);
    EXPECT_EQ(errno, EFAULT);
    const Statuses dirs(d), files(f);
    EXPECT_EQ(directory(dir_.path().c_str(), nullptr, &f), 0);
    const Statuses only_files(f);
    EXPECT_THAT(keys(f), ElementsAre("f"));
    EXPECT_EQ(directory(dir_.path().c_str(), &d, nullptr), 0);
    const Statuses only_dirs(d);
    EXPECT_THAT(keys(d), ElementsAre("d"));
}

TEST_F(Directory, ANameThatTheSystemGivesTwiceIsEnteredOnce)
{
    dir_.file("a", "");
    shows_twice = true;
    Arr *d = nullptr;
    Arr *f = nullptr;
    EXPECT_EQ(directory(dir_.path().c_str(), &d, &f), 0);
    const Statuses dirs(d), files(f);
    EXPECT_THAT(keys(f), ElementsAre("a"));
}

TEST_F(DirectoryThreads, ListTheSameDirectoryAtTheSameTimeWhileItChanges)
{
    for (int i = 0; i < 100; ++i)
        dir_.file("keep" + std::to_string(i), "");
    std::atomic<bool> done = false;
    std::thread changer([&] {
        const std::string path = dir_ / "comes_and_goes";
        while (!done) {
            close(open(path.c_str(), O_CREAT | O_WRONLY, 0644));
            unlink(path.c_str());
        }
    });
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i)
        readers.emplace_back([&] {
            for (int round = 0; round < 30; ++round) {
                EXPECT_GE(list(dir_.path(), 1).size(), 100u);
                EXPECT_EQ(is_empty(dir_.path().c_str()), 0);
                Arr *d = nullptr;
                Arr *f = nullptr;
                EXPECT_EQ(directory(dir_.path().c_str(), &d, &f), 0);
                const Statuses dirs(d), files(f);
                EXPECT_GE(cntarr(f), 100);
                Walked walked{dir_.path(), {}};
                EXPECT_GE(fstraverse(dir_.path().c_str(), 0, note, &walked), 100);
            }
        });
    for (std::thread &reader : readers)
        reader.join();
    done = true;
    changer.join();
}

TEST_F(Fstraverse, FilesComeFirstThenEachSubdirectoryAndWhatItHolds)
{
    plant();
    EXPECT_EQ(walk(dir_.path(), 0), 6);
    EXPECT_THAT(walked_.calls, ElementsAre("a", "b/", "b/one", "b/c/", "b/c/two", "d/"));
}

TEST_F(Fstraverse, DepthFirstASubdirectoryComesBehindWhatItHoldsAndFilesLast)
{
    plant();
    EXPECT_EQ(walk(dir_.path(), FSTRAVERSE_DEPTH_FIRST), 6);
    EXPECT_THAT(walked_.calls, ElementsAre("b/c/two", "b/c/", "b/one", "b/", "d/", "a"));
}

TEST_F(Fstraverse, FlagsLeaveDirectoriesOrFilesOut)
{
    plant();
    EXPECT_EQ(walk(dir_.path(), FSTRAVERSE_NO_DIRS), 3);
    EXPECT_THAT(walked_.calls, ElementsAre("a", "b/one", "b/c/two"));
    EXPECT_EQ(walk(dir_.path(), FSTRAVERSE_NO_FILES), 3);
    EXPECT_THAT(walked_.calls, ElementsAre("b/", "b/c/", "d/"));
    EXPECT_EQ(walk(dir_.path(), FSTRAVERSE_NO_DIRS | FSTRAVERSE_NO_FILES), 0);
    EXPECT_THAT(walked_.calls, IsEmpty());
    EXPECT_EQ(walk(dir_.path(), FSTRAVERSE_DEPTH_FIRST | FSTRAVERSE_NO_DIRS), 3);
    EXPECT_THAT(walked_.calls, ElementsAre("b/c/two", "b/one", "a"));
    EXPECT_EQ(walk(dir_.path(), FSTRAVERSE_DEPTH_FIRST | FSTRAVERSE_NO_FILES), 3);
    EXPECT_THAT(walked_.calls, ElementsAre("b/c/", "b/", "d/"));
}

TEST(FstraverseFlags, HaveTheirNumbers)
{
    EXPECT_EQ(FSTRAVERSE_NO_DIRS, 1);
    EXPECT_EQ(FSTRAVERSE_NO_FILES, 2);
    EXPECT_EQ(FSTRAVERSE_DEPTH_FIRST, 4);
}

TEST_F(Fstraverse, OtherKindsOfFilesAreLeftOut)
{
    fifo("fifo");
    link("none", "broken");
    EXPECT_EQ(walk(dir_.path(), 0), 0);
    EXPECT_THAT(walked_.calls, IsEmpty());
}

TEST_F(Fstraverse, TheResultIsTheSumOfTheCalls)
{
    plant();
    gives_ = -7;
    EXPECT_EQ(walk(dir_.path(), 0), -42);
    gives_ = INT_MAX;
    EXPECT_EQ(walk(dir_.path(), 0), INT_MAX);
    gives_ = INT_MIN;
    EXPECT_EQ(walk(dir_.path(), 0), INT_MIN);
}

TEST_F(Fstraverse, LinksAreFollowed)
{
    dir_.file("real/f", "twelve bytes");
    link("real", "way");
    EXPECT_EQ(walk(dir_.path(), 0), 4);
    EXPECT_THAT(walked_.calls, ElementsAre("real/", "real/f", "way/", "way/f"));
}

TEST_F(Fstraverse, ADirectoryThatTheWalkIsInsideOfIsReportedButNotEntered)
{
    dir_.file("a/f", "");
    link(".", "here");
    link("..", "a/up");
    link("../a", "a/self");
    EXPECT_EQ(walk(dir_.path(), 0), 5);
    EXPECT_THAT(walked_.calls, ElementsAre("a/", "a/f", "a/self/", "a/up/", "here/"));
    EXPECT_EQ(walk(dir_.path(), FSTRAVERSE_DEPTH_FIRST), 5);
    EXPECT_THAT(walked_.calls, ElementsAre("a/self/", "a/up/", "a/f", "a/", "here/"));
}

TEST_F(Fstraverse, DirectoriesThatLinkToEachOtherEndTheWalk)
{
    sub("a");
    sub("b");
    link("../b", "a/b");
    link("../a", "b/a");
    EXPECT_EQ(walk(dir_.path(), 0), 6);
    EXPECT_THAT(walked_.calls, ElementsAre("a/", "a/b/", "a/b/a/", "b/", "b/a/", "b/a/b/"));
}

TEST_F(Fstraverse, WhatIsNoDirectoryGivesMinusOne)
{
    EXPECT_EQ(walk(dir_ / "none", 0), -1);
    EXPECT_EQ(walk(dir_.file("f", ""), 0), -1);
    EXPECT_EQ(walk("", 0), -1);
    EXPECT_EQ(fstraverse(nullptr, 0, note, &walked_), -1);
    EXPECT_THAT(walked_.calls, IsEmpty());
}

TEST_F(Fstraverse, WithoutAFunctionTheTreeIsOnlyRead)
{
    plant();
    EXPECT_EQ(fstraverse(dir_.path().c_str(), 0, nullptr, nullptr), 0);
}

TEST_F(Fstraverse, ADirectoryThatCannotBeReadGivesMinusOneAndTheRestIsWalked)
{
    dir_.file("a/f", "");
    dir_.file("b/f", "");
    chmod((dir_ / "a").c_str(), 0);
    chmod((dir_ / "b").c_str(), 0755);
    const Ended ended = as_nobody([&] {
        const int result = walk(dir_.path(), 0);
        printf("%d", result);
        for (const std::string &call : walked_.calls)
            printf(" %s", call.c_str());
    });
    EXPECT_EQ(ended.out, "-1 a/ b/ b/f");
}

TEST_F(Fstraverse, AReadingThatBreaksOffGivesMinusOne)
{
    plant();
    reads_left = 3;
    EXPECT_EQ(walk(dir_.path(), 0), -1);
    EXPECT_THAT(walked_.calls, IsEmpty());
}

TEST_F(Fstraverse, PathsAreJoinedAndCleanedAsConcatpathsDoes)
{
    dir_.file("t/f", "");
    const struct {
        const char *root, *call;
    } cases[] = {{"t", "t/f"},      {"./t", "t/f"}, {"t/", "t/f"}, {"t//.", "t/f"},
                 {"t/../t", "t/f"}, {".", "t/"},    {"./", "t/"},  {"../t", "../t/f"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.root);
        const Ended ended = in_child([&] {
            const bool below = std::string(c.root).starts_with("../");
            if (chdir(below ? (dir_ / "t").c_str() : dir_.path().c_str()) != 0)
                _exit(9);
            walk(c.root, FSTRAVERSE_NO_FILES * (std::string(c.call).back() == '/'));
            printf("%s", walked_.calls.at(0).c_str());
        });
        EXPECT_EQ(ended.out, c.call);
    }
}

TEST_F(Fstraverse, ANameThatLooksLikeAHomeDirectoryIsANameBelowTheCurrentDirectory)
{
    dir_.file("~/f", "");
    dir_.file("~root/f", "");
    const Ended ended = in_child([&] {
        if (chdir(dir_.path().c_str()) != 0)
            _exit(9);
        walk(".", 0);
        for (const std::string &call : walked_.calls)
            printf("%s ", call.c_str());
    });
    EXPECT_EQ(ended.out, "~/ ~/f ~root/ ~root/f ");
}

TEST_F(Fstraverse, TreesDeeperThan1023CharactersAreWalked)
{
    const std::string name(255, 'd');
    std::string path = dir_.path();
    for (int i = 0; i < 8; ++i)
        path += "/" + name;
    std::filesystem::create_directories(path);
    std::ofstream(path + "/f") << "x";
    EXPECT_EQ(walk(dir_.path(), FSTRAVERSE_NO_DIRS), 1);
    EXPECT_EQ(walked_.calls.at(0), (path + "/f").substr(dir_.path().size() + 1));
}

TEST_F(Fstraverse, ATreeTooDeepForTheSystemsPathsEndsTheWalkWithMinusOne)
{
    const std::string name(255, 'd');
    const Ended ended = in_child([&] {
        bool made = chdir(dir_.path().c_str()) == 0;
        for (int i = 0; i < 20; ++i)
            made = made && mkdir(name.c_str(), 0755) == 0 && chdir(name.c_str()) == 0;
        printf("%d %d", made, walk(dir_.path(), 0));
    });
    EXPECT_EQ(ended.out, "1 -1");
}

TEST_F(Fstraverse, TakesNoMoreStackTheDeeperTheTree)
{
    std::string path = dir_.path();
    for (int i = 0; i < 700; ++i) {
        path += "/d";
        ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
    }
    std::ofstream(path + "/f") << "x";
    pthread_attr_t small;
    pthread_attr_init(&small);
    pthread_attr_setstacksize(&small, 256 * 1024);
    struct Walks {
        std::string root;
        int from_above = 0;
        int from_below = 0;
    } walks{dir_.path()};
    const auto run = [](void *p) -> void * {
        auto *two = static_cast<Walks *>(p);
        const auto one = [](const char *, const struct stat *, void *) { return 1; };
        two->from_above = fstraverse(two->root.c_str(), 0, one, nullptr);
        two->from_below = fstraverse(two->root.c_str(), FSTRAVERSE_DEPTH_FIRST, one, nullptr);
        return nullptr;
    };
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &small, run, &walks), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&small);
    EXPECT_EQ(walks.from_above, 701);
    EXPECT_EQ(walks.from_below, 701);
}

TEST_F(Fstraverse, LogsWhyADirectoryCannotBeRead)
{
    plant();
    EXPECT_EQ(logged([&] { walk(dir_ / "none", 0); }),
              "can't read directory " + dir_ / "none" + "\n\tNo such file or directory\n");
    const std::string name(255, 'd');
    const Ended ended = in_child([&] {
        bool made = chdir(dir_.path().c_str()) == 0;
        for (int i = 0; i < 20; ++i)
            made = made && mkdir(name.c_str(), 0755) == 0 && chdir(name.c_str()) == 0;
        printf("%s", logged([&] { walk(dir_.path(), 0); }).c_str());
    });
    EXPECT_THAT(ended.out, AllOf(StartsWith("can't read directory " + dir_.path() + "/ddd"),
                                 EndsWith("\n\tFile name too long\n")));
    EXPECT_EQ(logged([&] { walk(std::string(1001, '/'), 0); }),
              "path is too long: " + std::string(1001, '/') + "\n");
}

TEST_F(Fstraverse, APathOfMoreThan1000CharactersGivesMinusOne)
{
    std::string path = dir_.path();
    while (path.size() < 1000)
        path += "/";
    dir_.file("f", "");
    EXPECT_EQ(walk(path, 0), 1);
    EXPECT_EQ(walk(path + "/", 0), -1);
}

TEST_F(Fstraverse, TheFunctionMayRemoveWhatItIsShown)
{
    plant();
    const auto remove_it = [](const char *path, const struct stat *, void *) {
        return remove(path) == 0 ? 1 : -100;
    };
    EXPECT_EQ(fstraverse(dir_.path().c_str(), FSTRAVERSE_DEPTH_FIRST, remove_it, nullptr), 6);
    EXPECT_EQ(is_empty(dir_.path().c_str()), 1);
}

TEST_F(Fstraverse, TheFunctionMayWalkItself)
{
    plant();
    const auto walk_again = [](const char *path, const struct stat *, void *argument) {
        return fstraverse(path, 0, note, argument);
    };
    walked_.root = dir_.path();
    EXPECT_EQ(fstraverse((dir_ / "b").c_str(), FSTRAVERSE_NO_FILES, walk_again, &walked_), 1);
    EXPECT_THAT(walked_.calls, ElementsAre("b/c/two"));
}

TEST_F(Fstraverse, NoDescriptorIsHeldDuringTheCalls)
{
    std::string path = dir_.path();
    for (int i = 0; i < 100; ++i)
        path += "/d";
    std::filesystem::create_directories(path);
    const auto count = [](const char *, const struct stat *, void *most) {
        const int fd = open("/dev/null", O_RDONLY);
        close(fd);
        *static_cast<int *>(most) = std::max(*static_cast<int *>(most), fd);
        return 1;
    };
    int most = 0;
    EXPECT_EQ(fstraverse(dir_.path().c_str(), 0, count, &most), 100);
    const int free_fd = open("/dev/null", O_RDONLY);
    close(free_fd);
    EXPECT_EQ(most, free_fd);
}
