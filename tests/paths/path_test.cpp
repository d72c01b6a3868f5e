// Path names as text, and the few questions that they ask of the disk.

#include "stock/path.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/logged.h"
#include "support/nobody.h"
#include "support/one_user.h"
#include "support/owners.h"
#include "support/temp_dir.h"

namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;

// A buffer of exactly the promised size, so that the sanitizers notice a byte written behind.
struct Buffer {
    std::vector<char> bytes = std::vector<char>(1024, '#');
    char *get() { return bytes.data(); }
    std::string text() const { return bytes.data(); }
};

std::string clean(const std::string &path, uint32_t flags = 0)
{
    Buffer buffer;
    cleanpath(path.c_str(), flags, buffer.get());
    return buffer.text();
}

int clean_status(const std::string &path, uint32_t flags = 0)
{
    Buffer buffer;
    return cleanpath(path.c_str(), flags, buffer.get());
}

std::string absolute(const std::string &path)
{
    Buffer buffer;
    abspath(path.c_str(), buffer.get());
    return buffer.text();
}

std::string way(const std::string &from, const std::string &to)
{
    Buffer buffer;
    relpath(from.c_str(), to.c_str(), buffer.get());
    return buffer.text();
}

std::string times(int n, const std::string &text)
{
    std::string all;
    while (n-- > 0)
        all += text;
    return all;
}

// A user that every system has.
const struct passwd &somebody()
{
    static const struct passwd entry = *getpwnam("nobody");
    return entry;
}

// Makes a temporary directory the current one for a scope; its path has no links.
class InTempDir {
public:
    InTempDir() { fs::current_path(dir_.path()); }
    ~InTempDir() { fs::current_path("/"); }
    const TempDir *operator->() const { return &dir_; }
    std::string operator/(const std::string &name) const { return dir_ / name; }
    std::string path() const { return fs::canonical(dir_.path()).string(); }

private:
    TempDir dir_;
};

// A chain of links in the current directory: link1 -> link2 -> ... -> target.
void make_chain(int links, const std::string &target)
{
    for (int i = 1; i <= links; ++i)
        fs::create_symlink(i < links ? "link" + std::to_string(i + 1) : target,
                           "link" + std::to_string(i));
}

}  // namespace

TEST(Cleanpath, DropsDotsAndTakesTheComponentBeforeADoubleDotAway)
{
    const struct {
        const char *path, *clean;
    } cases[] = {
        {"a/./b/../c", "a/c"},
        {"./x", "x"},
        {"../../x", "../../x"},
        {"x/", "x"},
        {"a", "a"},
        {"a//b///c", "a/b/c"},
        {"a/..", "."},
        {"a/../..", ".."},
        {"a/../../b", "../b"},
        {"..", ".."},
        {"../..", "../.."},
        {"../a/..", ".."},
        {"../../a/../..", "../../.."},
        {"", "."},
        {".", "."},
        {"./.", "."},
        {"./", "."},
        {".a", ".a"},
        {"...", "..."},
        {"..a/b", "..a/b"},
        {"a/..b", "a/..b"},
        {"./.a", ".a"},
        {"./..a", "..a"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(clean(c.path), c.clean);
    }
}

TEST(Cleanpath, KeepsAbsolutePathsWithinTheRoot)
{
    const struct {
        const char *path, *clean;
    } cases[] = {
        {"/", "/"},        {"//", "/"},         {"/.", "/"},          {"/..", "/"},
        {"/../..", "/"},   {"/../x", "/x"},     {"/a/..", "/"},       {"/a/../b", "/b"},
        {"/a/b/..", "/a"}, {"//a//b/", "/a/b"}, {"/a/../../b", "/b"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(clean(c.path), c.clean);
    }
}

TEST(Cleanpath, CleaningTwiceChangesNothingMore)
{
    for (const char *path : {"a/./b/../c", "../../x", "/../a//b", "", "./.a", "a/../.."}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(clean(clean(path)), clean(path));
    }
}

TEST(Cleanpath, ReplacesATildeByTheHomeDirectory)
{
    EXPECT_EQ(clean("~/x"), kUserHome + "/x"s);
    EXPECT_EQ(clean("~"), kUserHome);
    EXPECT_EQ(clean("~/./x/../y"), kUserHome + "/y"s);
}

TEST(Cleanpath, ReplacesATildeAndANameByThatUsersHome)
{
    EXPECT_EQ(clean("~nobody/x"), somebody().pw_dir + "/x"s);
    EXPECT_EQ(clean("~nobody"), somebody().pw_dir);
}

TEST(Cleanpath, KeepsATildeAndTheNameOfAnUnknownUser)
{
    EXPECT_EQ(clean("~nosuchuser/x"), "~nosuchuser/x");
    EXPECT_EQ(clean_status("~nosuchuser/x"), 0);  // where the way starts is not examined
    EXPECT_EQ(clean("~nosuchuser/x/.."), "~nosuchuser");
    EXPECT_EQ(clean("~nosuchuser/.."), "~nosuchuser/..");
    EXPECT_EQ(clean("~nosuchuser/../.."), "~nosuchuser/../..");
}

TEST(Cleanpath, ATildeThatIsNotFirstIsText)
{
    EXPECT_EQ(clean("a/~/b"), "a/~/b");
    EXPECT_EQ(clean("/~"), "/~");
}

TEST(Cleanpath, GivesMinusOneWhenAComponentThatOthersFollowIsMissing)
{
    const InTempDir dir;
    fs::create_directory("there");
    const struct {
        const char *path;
        int status;
    } cases[] = {
        {"there", 0},
        {"there/missing", 0},  // the last need not exist
        {"missing", 0},
        {"missing/", 0},  // nothing follows
        {"missing/x", -1},
        {"missing/.", -1},  // a dot follows
        {"missing/..", -1},
        {"missing/../there/x", -1},
        {"there/missing/..", -1},
        {"there/../there/x", 0},
        {"there/../missing", 0},
        {"there/../missing/x", -1},
        {"there/./", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(clean_status(c.path), c.status);
        EXPECT_EQ(clean_status(c.path, CLEANPATH_LINKS), c.status);
    }
}

TEST(Cleanpath, GoesOnCleaningBehindAMissingComponent)
{
    EXPECT_EQ(clean("/nosuchdir/./a/../b"), "/nosuchdir/b");
    EXPECT_EQ(clean("/nosuchdir/./a/../b", CLEANPATH_LINKS), "/nosuchdir/b");
    EXPECT_EQ(logged([] { clean("/nosuchdir/a"); }), "");
}

TEST(Cleanpath, AFileOnTheWayIsExaminedAndTheNextComponentMissing)
{
    const InTempDir dir;
    dir->file("plain", "");
    EXPECT_EQ(clean_status("plain/x"), 0);
    EXPECT_EQ(clean_status("plain/x/y"), -1);
}

TEST(Cleanpath, LeavesErrnoAlone)
{
    errno = E2BIG;
    clean("/nosuchdir/a/b");
    clean("/nosuchdir/a/b", CLEANPATH_LINKS);
    clean("~nosuchuser/x");
    clean(std::string(5000, 'a'));
    EXPECT_EQ(errno, E2BIG);
}

TEST(Cleanpath, MayWriteOverItsOwnPath)
{
    char path[1024] = "./a/b/../c";
    cleanpath(path, 0, path);
    EXPECT_STREQ(path, "a/c");
}

TEST(Cleanpath, ANullPathGivesAnEmptyResultAndMinusOne)
{
    Buffer buffer;
    EXPECT_EQ(cleanpath(nullptr, 0, buffer.get()), -1);
    EXPECT_EQ(buffer.text(), "");
}

TEST(CleanpathLinks, WithoutTheFlagLinksAreText)
{
    const InTempDir dir;
    fs::create_directory("real");
    fs::create_symlink("real", "link");
    EXPECT_EQ(clean("link/x"), "link/x");
    EXPECT_EQ(clean("link/.."), ".");
}

TEST(CleanpathLinks, ARelativeTargetTakesTheLinksPlace)
{
    const InTempDir dir;
    fs::create_directories("d/real/sub");
    fs::create_symlink("real", "d/link");
    fs::create_symlink("../d/./real", "d/crooked");
    EXPECT_EQ(clean("d/link/sub", CLEANPATH_LINKS), "d/real/sub");
    EXPECT_EQ(clean("d/crooked/sub", CLEANPATH_LINKS), "d/real/sub");
    EXPECT_EQ(clean("d/link", CLEANPATH_LINKS), "d/real");
    EXPECT_EQ(clean(dir / "d/link/sub/../x", CLEANPATH_LINKS), dir / "d/real/x");
}

TEST(CleanpathLinks, AnAbsoluteTargetStartsFromTheRoot)
{
    const InTempDir dir;
    fs::create_directories("real/sub");
    fs::create_symlink(dir.path() + "/real", "link");
    fs::create_symlink("/", "root");
    EXPECT_EQ(clean("link/sub", CLEANPATH_LINKS), dir.path() + "/real/sub");
    EXPECT_EQ(clean("root", CLEANPATH_LINKS), "/");
    EXPECT_EQ(clean("root/usr", CLEANPATH_LINKS), "/usr");
}

TEST(CleanpathLinks, ADoubleDotBehindALinkLeavesTheLinksTarget)
{
    const InTempDir dir;
    fs::create_directories("a/b");
    fs::create_symlink("a/b", "link");
    EXPECT_EQ(clean("link/../x", CLEANPATH_LINKS), "a/x");
    EXPECT_EQ(clean("link/../x"), "x");
}

TEST(CleanpathLinks, ADanglingLinkGivesThePathItNames)
{
    const InTempDir dir;
    fs::create_symlink("nowhere", "link");
    EXPECT_EQ(clean("link", CLEANPATH_LINKS), "nowhere");
    EXPECT_EQ(clean_status("link", CLEANPATH_LINKS), 0);
    EXPECT_EQ(clean("link/x", CLEANPATH_LINKS), "nowhere/x");
    EXPECT_EQ(clean_status("link/x", CLEANPATH_LINKS), -1);
}

TEST(CleanpathLinks, ElevenLinksOnTheWayAreFollowed)
{
    const InTempDir dir;
    fs::create_directory("target");
    make_chain(11, "target");
    EXPECT_EQ(clean("link1/x", CLEANPATH_LINKS), "target/x");
    EXPECT_EQ(clean_status("link1/x", CLEANPATH_LINKS), 0);
}

TEST(CleanpathLinks, TheTwelfthLinkOnTheWayFailsWithTheCount12)
{
    const InTempDir dir;
    fs::create_directory("target");
    make_chain(12, "target");
    EXPECT_EQ(logged([] { EXPECT_EQ(clean_status("link1/x", CLEANPATH_LINKS), -1); }),
              "too many symbolic links (>12) for link1/x\n");
}

TEST(CleanpathLinks, WhatIsLeftBehindTheTwelfthLinkIsAppendedUnchanged)
{
    const InTempDir dir;
    fs::create_directory("target");
    make_chain(12, "target");
    EXPECT_EQ(clean("link1/x/./y/../z", CLEANPATH_LINKS), "link12/x/./y/../z");
}

TEST(CleanpathLinks, ALinkOnTheWayThatNamesItselfFailsWithTheCount12)
{
    const InTempDir dir;
    fs::create_symlink("self", "self");
    EXPECT_EQ(logged([] { EXPECT_EQ(clean_status("self/x", CLEANPATH_LINKS), -1); }),
              "too many symbolic links (>12) for self/x\n");
}

TEST(CleanpathLinks, ALastLinkThatNamesItselfEndsAfter40Steps)
{
    const InTempDir dir;
    fs::create_symlink("self", "self");
    EXPECT_EQ(logged([] { EXPECT_EQ(clean_status("self", CLEANPATH_LINKS), -1); }),
              "too many symbolic links (>40) for self\n");
    EXPECT_EQ(clean("self", CLEANPATH_LINKS), "self");
}

TEST(CleanpathLinks, FortyLastLinksAreFollowed)
{
    const InTempDir dir;
    make_chain(40, "target");
    EXPECT_EQ(clean("link1", CLEANPATH_LINKS), "target");
    EXPECT_EQ(clean_status("link1", CLEANPATH_LINKS), 0);
}

TEST(CleanpathLinks, ALinkThatGrowsInCirclesEnds)
{
    const InTempDir dir;
    fs::create_symlink("grows/x", "grows");
    EXPECT_EQ(logged([] { EXPECT_EQ(clean_status("grows", CLEANPATH_LINKS), -1); }),
              "too many symbolic links (>12) for grows\n");
}

TEST(CleanpathLinks, ATargetThatDoesNotFitTheBufferCannotBeRead)
{
    const InTempDir dir;
    const std::string target = times(512, "a/");  // 1024 bytes
    ASSERT_EQ(symlink(target.c_str(), "link"), 0);
    ASSERT_EQ(symlink(target.substr(0, 1023).c_str(), "fits"), 0);
    EXPECT_EQ(logged([] { EXPECT_EQ(clean_status("link/x", CLEANPATH_LINKS), -1); }),
              "can't read link for ./link\n\tFile name too long\n");
    EXPECT_EQ(clean("link/x/../y", CLEANPATH_LINKS), "link/x/../y");
    EXPECT_EQ(clean("fits", CLEANPATH_LINKS), target.substr(0, 1023));
}

TEST(CleanpathLinks, ALinkThatMayNotBeReadIsReported)
{
    // Links in /proc that an ordinary user may examine but not read.
    const Ended ended = as_nobody([] {
        printf("%d %s", clean_status("/proc/1/cwd/x", CLEANPATH_LINKS),
               logged([] { clean("/proc/1/cwd/x", CLEANPATH_LINKS); }).c_str());
    });
    EXPECT_EQ(ended.out, "-1 can't read link for /proc/1/cwd\n\tPermission denied\n");
}

TEST(CleanpathLinks, ADirectoryWithoutPermissionGivesMinusOne)
{
    const InTempDir dir;
    fs::create_directories("closed/sub");
    chmod(dir->path().c_str(), 0755);
    chmod("closed", 0);
    const Ended ended = as_nobody([] {
        printf("%d %d %s", clean_status("closed/sub/x"),
               clean_status("closed/sub/x", CLEANPATH_LINKS),
               clean("closed/sub/../x", CLEANPATH_LINKS).c_str());
    });
    EXPECT_EQ(ended.out, "-1 -1 closed/x");
    chmod("closed", 0755);
}

TEST(CleanpathLength, AComponentOf1023BytesFits)
{
    const std::string component(1023, 'a');
    EXPECT_EQ(clean(component), component);
    EXPECT_EQ(clean_status(component), 0);
    EXPECT_EQ(clean("./" + component), component);
    EXPECT_EQ(clean_status(component + "/.."), -1);  // no file has such a name
    EXPECT_EQ(clean(component + "/.."), ".");
}

TEST(CleanpathLength, AResultOf1024BytesIsReportedAndRefused)
{
    const std::string path = "/b/" + std::string(1021, 'a');
    EXPECT_EQ(logged([&] { EXPECT_EQ(clean_status(path), -1); }),
              "path is too long: " + path + "\n");
    EXPECT_EQ(clean(path), "");
    EXPECT_EQ(clean(path.substr(0, 1023)), path.substr(0, 1023));
    EXPECT_EQ(clean(std::string(1024, 'a')), "");
}

TEST(CleanpathLength, APathOf5000BytesIsFineWhenItsCleanFormIsShort)
{
    const std::string path = times(1000, "a/../") + "b";
    EXPECT_EQ(clean(path), "b");
    EXPECT_EQ(clean(std::string(5000, '/')), "/");
    EXPECT_EQ(clean(times(2500, "./") + "x"), "x");
}

TEST(CleanpathLength, APathOf5000BytesIsRefusedAndNotCutIntoAnother)
{
    const std::string path = times(1000, "abcd/");
    EXPECT_EQ(clean(path), "");
    EXPECT_EQ(clean_status(path), -1);
    EXPECT_EQ(clean(times(2000, "../")), "");
}

// The clean path used to be "/".
TEST(CleanpathLength, ATildeWithANameThatIsTooLongIsRefused)
{
    for (size_t length : {1023U, 1100U, 4999U})
        for (const char *rest : {"", "/x", "/.."}) {
            const std::string path = "~" + std::string(length, 'x') + rest;
            EXPECT_EQ(logged([&] { EXPECT_EQ(clean_status(path), -1); }),
                      "path is too long: " + path + "\n");
            EXPECT_EQ(clean(path), "");
            EXPECT_EQ(absolute(path), "");
        }
    const std::string longest = "~" + std::string(1022, 'x');
    EXPECT_EQ(clean(longest), longest);
    EXPECT_EQ(clean(longest + "/x"), "");
}

TEST(CleanpathLength, ALinksTargetThatMakesThePathTooLongIsReported)
{
    const InTempDir dir;
    const std::string target = times(500, "a/") + "a";
    ASSERT_EQ(symlink(target.c_str(), "link"), 0);
    const std::string path = "link/" + std::string(100, 'b');
    EXPECT_EQ(logged([&] { EXPECT_EQ(clean_status(path, CLEANPATH_LINKS), -1); }),
              "path is too long: " + path + "\n");
    EXPECT_EQ(clean(path, CLEANPATH_LINKS), "");
}

TEST(Concatpaths, JoinsAndCleansItsParts)
{
    const struct {
        std::vector<const char *> parts;
        const char *result;
    } cases[] = {
        {{"/a", "b", "/c"}, "/c"},
        {{"", "x"}, "x"},
        {{"/a", "b", "c"}, "/a/b/c"},
        {{"/a/", "b"}, "/a/b"},
        {{"/", "b"}, "/b"},
        {{"a", "..", "b"}, "b"},
        {{"a"}, "a"},
        {{""}, "."},
        {{"/a", ""}, "/a"},
        {{"/a", "", "b"}, "/a/b"},
        {{"a", "/"}, "/"},
        {{"/a", "../.."}, "/"},
        {{"/a", "/b", "/c"}, "/c"},
        {{"/a", "~"}, "/a/~"},
        {{"", ""}, "."},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.result);
        std::vector<const char *> p = c.parts;
        p.resize(4, nullptr);
        const Text joined(concatpaths(p[0], p[1], p[2], nullptr));
        EXPECT_STREQ(joined.get(), c.result);
    }
}

TEST(Concatpaths, DoesNotFollowLinks)
{
    const InTempDir dir;
    fs::create_symlink("/", "link");
    const Text joined(concatpaths("link", "x", nullptr));
    EXPECT_STREQ(joined.get(), "link/x");
}

TEST(Concatpaths, ATildeInFrontIsTheHomeDirectory)
{
    const Text joined(concatpaths("~nobody", "x", nullptr));
    EXPECT_EQ(joined.get(), somebody().pw_dir + "/x"s);
}

TEST(Concatpaths, WithoutAnyPartIsTheCurrentDirectory)
{
    const Text joined(concatpaths(nullptr, nullptr));
    EXPECT_STREQ(joined.get(), ".");
}

TEST(Concatpaths, AResultTooLongIsReportedAndEmpty)
{
    const std::string half(600, 'a');
    const std::string both = half + "/" + half;
    EXPECT_EQ(logged([&] {
                  const Text joined(concatpaths(half.c_str(), half.c_str(), nullptr));
                  EXPECT_STREQ(joined.get(), "");
              }),
              "path is too long: " + both + "\n");
}

TEST(Concatpaths, PartsThatCleanAwayMayBeOfAnyLength)
{
    const std::string up = times(2000, "a/../");
    const Text joined(concatpaths(up.c_str(), up.c_str(), "b", nullptr));
    EXPECT_STREQ(joined.get(), "b");
}

TEST(Abspath, StartsFromTheCurrentDirectory)
{
    const InTempDir dir;
    EXPECT_EQ(absolute("a/./b"), dir.path() + "/a/b");
    EXPECT_EQ(absolute("./a"), dir.path() + "/a");
    EXPECT_EQ(absolute(""), dir.path());
    EXPECT_EQ(absolute(".."), fs::path(dir.path()).parent_path());
    EXPECT_EQ(absolute("/x/../y"), "/y");
    EXPECT_EQ(absolute("/"), "/");
}

TEST(Abspath, StartsFromTheHomeDirectoryBehindATilde)
{
    EXPECT_EQ(absolute("~nobody/x"), somebody().pw_dir + "/x"s);
}

TEST(Abspath, DoesNotFollowLinks)
{
    const InTempDir dir;
    fs::create_symlink("/", "link");
    EXPECT_EQ(absolute("link/x"), dir.path() + "/link/x");
}

TEST(Abspath, GivesWhatCleaningGives)
{
    const InTempDir dir;
    Buffer buffer;
    EXPECT_EQ(abspath("x", buffer.get()), 0);
    EXPECT_EQ(abspath("nosuch/x", buffer.get()), -1);
    EXPECT_EQ(buffer.text(), dir.path() + "/nosuch/x");
}

TEST(Abspath, ARemovedCurrentDirectoryIsReportedAndThePathIsUnchanged)
{
    const InTempDir dir;
    fs::create_directory("gone");
    fs::current_path("gone");
    fs::remove(dir / "gone");
    Buffer buffer;
    EXPECT_EQ(logged([&] { EXPECT_EQ(abspath("./a//b", buffer.get()), -1); }),
              "Can't discover current directory: getcwd(3) fails\n\tNo such file or directory\n");
    EXPECT_EQ(buffer.text(), "./a//b");
    EXPECT_EQ(absolute("/a"), "/a");
    const std::string component(5000, 'a');
    EXPECT_EQ(absolute(component), "");
    EXPECT_EQ(samepath(component.c_str(), component.c_str()), 0);
    EXPECT_EQ(samepath("a", "a"), 1);
    EXPECT_EQ(samepath("a", "b"), 0);
}

TEST(Abspath, ACurrentDirectoryLongerThanTheBufferIsReported)
{
    const InTempDir dir;
    const std::string component(250, 'd');
    for (int i = 0; i < 5; ++i) {
        fs::create_directory(component);
        ASSERT_EQ(chdir(component.c_str()), 0);
    }
    EXPECT_EQ(
        logged([] { EXPECT_EQ(absolute("x"), "x"); }),
        "Can't discover current directory: getcwd(3) fails\n\tNumerical result out of range\n");
}

TEST(Abspath, AResultTooLongIsReportedAndRefused)
{
    const InTempDir dir;
    const std::string path(1023, 'a');
    EXPECT_EQ(logged([&] { EXPECT_EQ(absolute(path), ""); }), "path is too long: " + path + "\n");
}

TEST(Abspath, LeavesErrnoAlone)
{
    const InTempDir dir;
    fs::create_directory("gone");
    fs::current_path("gone");
    fs::remove(dir / "gone");
    for (const char *path : {"a", "/nosuchdir/x", "~nosuchuser/x"}) {
        errno = EDOM;
        absolute(path);
        EXPECT_EQ(errno, EDOM) << path;
        samepath(path, "/nosuchdir/y");
        EXPECT_EQ(errno, EDOM) << path;
        way(path, path);
        EXPECT_EQ(errno, EDOM) << path;
    }
}

TEST(Abspath, MayWriteOverItsOwnPath)
{
    const InTempDir dir;
    char path[1024] = "a/../b";
    abspath(path, path);
    EXPECT_EQ(path, dir.path() + "/b");
}

TEST(Abspath, ANullPathGivesAnEmptyResultAndMinusOne)
{
    Buffer buffer;
    EXPECT_EQ(abspath(nullptr, buffer.get()), -1);
    EXPECT_EQ(buffer.text(), "");
}

TEST(Relpath, ClimbsToTheCommonDirectoryAndDescends)
{
    const InTempDir dir;
    for (const char *made : {"a/b", "a/bc", "a/bx/y", "c"})
        fs::create_directories(made);
    const struct {
        const char *from, *to, *way;
    } cases[] = {
        {"a/b", "a/c/d", "../c/d"}, {"a/b", "a/b/c", "c"},   {"a/b", "a/b", "."},
        {"a/b", "a/bc", "../bc"},   {"a/bc", "a/b", "../b"}, {"a/bx/y", "a/bz", "../../bz"},
        {"a/b", "a", ".."},         {"a/b", ".", "../.."},   {"c", "a/b", "../a/b"},
        {"a/b", "a/b/", "."},       {".", "x", "x"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.from + " to "s + c.to);
        Buffer buffer;
        EXPECT_EQ(relpath(c.from, c.to, buffer.get()), 0);
        EXPECT_EQ(buffer.text(), c.way);
    }
}

TEST(Relpath, TheRootIsADirectoryLikeAnyOther)
{
    EXPECT_EQ(way("/", "/usr/lib"), "usr/lib");
    EXPECT_EQ(way("/usr/lib", "/"), "../..");
    EXPECT_EQ(way("/", "/"), ".");
}

TEST(Relpath, FromAPathThatDoesNotExistTheWayIsGivenWithMinusOne)
{
    Buffer buffer;
    EXPECT_EQ(relpath("/a/b", "/a/c/d", buffer.get()), -1);
    EXPECT_EQ(buffer.text(), "../c/d");
    EXPECT_EQ(way("/a/b", "/a/b/c"), "c");
    EXPECT_EQ(way("/a/b", "/a/b"), ".");
}

TEST(Relpath, FromAFileTheWayStartsInItsDirectoryWithMinusOne)
{
    const InTempDir dir;
    dir->file("d/file", "");
    Buffer buffer;
    EXPECT_EQ(relpath("d/file", "d/x", buffer.get()), -1);
    EXPECT_EQ(buffer.text(), "x");
}

// The start used to be searched for a "/" that it does not have.
TEST(Relpath, FromAFileWhoseNameBeginsLikeAHomeDirectoryIsRefused)
{
    const InTempDir dir;
    dir->file("~nosuchuser", "");
    EXPECT_EQ(logged([] {
                  Buffer buffer;
                  EXPECT_EQ(relpath("~nosuchuser", "/x", buffer.get()), -1);
                  EXPECT_EQ(buffer.text(), "");
              }),
              "there is no home directory for ~nosuchuser\n");
    EXPECT_EQ(way("/", "~nosuchuser"), "");
    EXPECT_EQ(way("~nosuchuser", "~nosuchuser/a"), "");
}

// A path from a directory used to be returned with 0, and one from a file ended the process.
TEST(Relpath, WithoutAKnownCurrentDirectoryNoWayIsGiven)
{
    const InTempDir dir;
    const std::string component(250, 'd');
    for (int i = 0; i < 5; ++i) {
        fs::create_directory(component);
        ASSERT_EQ(chdir(component.c_str()), 0);
    }
    fs::create_directory("sub");
    close(open("file", O_CREAT | O_WRONLY, 0644));
    for (const char *from : {"file", "sub", ".", "nosuch", "sub/.."})
        for (const char *to : {"/x", "sub", "file/x"}) {
            SCOPED_TRACE(from + " to "s + to);
            Buffer buffer;
            EXPECT_EQ(relpath(from, to, buffer.get()), -1);
            EXPECT_EQ(buffer.text(), "");
            EXPECT_EQ(relpath("/", from, buffer.get()), -1);
            EXPECT_EQ(buffer.text(), "");
        }
    EXPECT_EQ(way("/usr", "/etc"), "../etc");
}

TEST(Relpath, MayWriteOverEitherPath)
{
    char from[1024] = "/usr";
    relpath(from, "/usr/lib", from);
    EXPECT_STREQ(from, "lib");
    char to[1024] = "/usr/lib";
    relpath("/usr", to, to);
    EXPECT_STREQ(to, "lib");
}

TEST(Relpath, AWayTooLongIsRefused)
{
    const std::string deep = times(400, "/a");
    EXPECT_EQ(logged([&] {
                  Buffer buffer;
                  EXPECT_EQ(relpath(deep.c_str(), "/b", buffer.get()), -1);
                  EXPECT_EQ(buffer.text(), "");
              }),
              "path is too long: /b\n");
}

TEST(Relpath, AWayOf1023BytesFits)
{
    const std::string deep = times(300, "/a");  // 900 bytes to climb
    EXPECT_EQ(way(deep, "/" + std::string(123, 'b')), times(300, "../") + std::string(123, 'b'));
    EXPECT_EQ(way(deep, "/" + std::string(124, 'b')), "");
    EXPECT_EQ(way(times(341, "/a"), "/"), times(340, "../") + "..");
    EXPECT_EQ(way(times(342, "/a"), "/"), "");
}

TEST(Relpath, PathsTooLongAreRefused)
{
    const std::string huge(5000, 'a');
    Buffer buffer;
    EXPECT_EQ(relpath("/", huge.c_str(), buffer.get()), -1);
    EXPECT_EQ(buffer.text(), "");
    EXPECT_EQ(relpath(huge.c_str(), "/", buffer.get()), -1);
    EXPECT_EQ(buffer.text(), "");
    EXPECT_EQ(relpath(nullptr, "/", buffer.get()), -1);
    EXPECT_EQ(relpath("/", nullptr, buffer.get()), -1);
}

TEST(Parsepath, SplitsDirectoryBaseAndSuffix)
{
    const struct {
        const char *path, *dir, *base, *suffix;
    } cases[] = {
        {"/d/f.tar.gz", "/d", "f.tar", "gz"},
        {".profile", ".", ".profile", ""},
        {"/x", "", "x", ""},
        {"f", ".", "f", ""},
        {"d/", "d", "", ""},
        {"", ".", "", ""},
        {"/", "", "", ""},
        {"d.d/f", "d.d", "f", ""},
        {"f.", ".", "f", ""},
        {"a/b/.c.d", "a/b", ".c", "d"},
        {"//x.y", "/", "x", "y"},
        {"..", ".", ".", ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path);
        Buffer dir, base, suffix;
        EXPECT_EQ(parsepath(c.path, dir.get(), base.get(), suffix.get()), suffix.get());
        EXPECT_EQ(dir.text(), c.dir);
        EXPECT_EQ(base.text(), c.base);
        EXPECT_EQ(suffix.text(), c.suffix);
    }
}

TEST(Parsepath, WithoutASuffixBufferTheBaseIsWhole)
{
    Buffer dir, base;
    EXPECT_EQ(parsepath("/d/f.tar.gz", dir.get(), base.get(), nullptr), nullptr);
    EXPECT_EQ(dir.text(), "/d");
    EXPECT_EQ(base.text(), "f.tar.gz");
}

TEST(Parsepath, ANullPathSplitsLikeAnEmptyOne)
{
    Buffer dir, base, suffix;
    parsepath(nullptr, dir.get(), base.get(), suffix.get());
    EXPECT_EQ(dir.text() + base.text() + suffix.text(), ".");
    Buffer other_dir, other_base;
    dirbase(nullptr, other_dir.get(), other_base.get());
    EXPECT_EQ(other_dir.text() + other_base.text(), ".");
}

TEST(Parsepath, APartThatIsTooLongIsReportedAndAllAreEmpty)
{
    const std::string part(1024, 'a');
    for (const std::string &path : {part + "/b.c", "/d/" + part + ".c", "/d/b." + part}) {
        Buffer dir, base, suffix;
        EXPECT_EQ(logged([&] {
                      EXPECT_EQ(parsepath(path.c_str(), dir.get(), base.get(), suffix.get()),
                                suffix.get());
                  }),
                  "path is too long: " + path + "\n");
        EXPECT_EQ(dir.text() + base.text() + suffix.text(), "");
        dirbase(path.c_str(), dir.get(), base.get());
        EXPECT_EQ(dir.text() + base.text(), "");
    }
    const std::string fits(1023, 'a');
    Buffer dir, base, suffix;
    parsepath((fits + "/" + fits + "." + fits).c_str(), dir.get(), base.get(), suffix.get());
    EXPECT_EQ(dir.text(), fits);
    EXPECT_EQ(base.text(), fits);
    EXPECT_EQ(suffix.text(), fits);
}

TEST(Dirbase, SplitsAtTheLastSlash)
{
    const struct {
        const char *path, *dir, *base;
    } cases[] = {
        {"/d/f.c", "/d", "f.c"}, {"/x", "/", "x"}, {"f", ".", "f"},       {"/", "/", ""},
        {"d/", "d", ""},         {"", ".", ""},    {"a/b/c", "a/b", "c"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path);
        Buffer dir, base;
        dirbase(c.path, dir.get(), base.get());
        EXPECT_EQ(dir.text(), c.dir);
        EXPECT_EQ(base.text(), c.base);
    }
}

TEST(Samepath, ComparesTheAbsoluteCleanForms)
{
    const InTempDir dir;
    EXPECT_EQ(samepath("a/../b", "./b"), 1);
    EXPECT_EQ(samepath("b", (dir.path() + "/b").c_str()), 1);
    EXPECT_EQ(samepath("b", "c"), 0);
    EXPECT_EQ(samepath("/", "/.."), 1);
}

TEST(Samepath, ALinkIsNotTheSameAsWhatItNames)
{
    const InTempDir dir;
    fs::create_directory("real");
    fs::create_symlink("real", "link");
    EXPECT_EQ(samepath("link", "real"), 0);
}

TEST(Samepath, APathThatIsTooLongOrNullIsTheSameAsNoOther)
{
    const std::string a = "/d/" + std::string(2000, 'a');
    EXPECT_EQ(samepath(a.c_str(), a.c_str()), 0);
    EXPECT_EQ(samepath(a.c_str(), "/d"), 0);
    EXPECT_EQ(samepath(nullptr, "/d"), 0);
    EXPECT_EQ(samepath("/d", nullptr), 0);
}

TEST(Homedir, GivesTheHomeOfANamedUser)
{
    const Text home(homedir("nobody"));
    EXPECT_STREQ(home.get(), somebody().pw_dir);
}

TEST(Homedir, NullAndTheEmptyNameMeanTheCurrentUser)
{
    EXPECT_STREQ(Text(homedir(nullptr)).get(), kUserHome);
    EXPECT_STREQ(Text(homedir("")).get(), kUserHome);
}

TEST(Homedir, AnUnknownUserHasNone)
{
    EXPECT_EQ(homedir("nosuchuser"), nullptr);
    EXPECT_EQ(homedir(std::string(100'000, 'x').c_str()), nullptr);
}

TEST(Makedir, CreatesADirectoryAndWhatIsMissingAboveIt)
{
    const InTempDir dir;
    const mode_t mask = umask(0);
    EXPECT_EQ(makedir("a/b/c"), 0);
    umask(mask);
    struct stat status;
    for (const char *made : {"a", "a/b", "a/b/c"}) {
        SCOPED_TRACE(made);
        ASSERT_EQ(stat(made, &status), 0);
        EXPECT_TRUE(S_ISDIR(status.st_mode));
        EXPECT_EQ(status.st_mode & 07777, 0775u);
    }
    EXPECT_EQ(makedir((dir / "d//e/").c_str()), 0);
    EXPECT_TRUE(fs::is_directory("d/e"));
}

TEST(Makedir, ADirectoryThatIsThereIsFine)
{
    const InTempDir dir;
    EXPECT_EQ(makedir("a"), 0);
    EXPECT_EQ(logged([] { EXPECT_EQ(makedir("a"), 0); }), "");
    EXPECT_EQ(makedir("/tmp"), 0);
}

TEST(Makedir, AFileIsNotADirectory)
{
    const InTempDir dir;
    dir->file("plain", "");
    EXPECT_EQ(logged([] { EXPECT_EQ(makedir("plain"), -1); }), "plain is not a directory\n");
}

TEST(Makedir, UnderAFileNothingCanBeCreated)
{
    const InTempDir dir;
    dir->file("plain", "");
    EXPECT_EQ(logged([] { EXPECT_EQ(makedir("plain/a"), -1); }),
              "Can't open or create directory plain/a\n");
}

TEST(Makedir, EachDirectoryThatCannotBeCreatedIsReportedFromTheTop)
{
    const InTempDir dir;
    fs::create_symlink("nowhere", "link");
    EXPECT_EQ(logged([] { EXPECT_EQ(makedir("link/a"), -1); }),
              "Can't open or create directory link\n"
              "Can't open or create directory link/a\n");
}

TEST(Makedir, ADirectoryThatCannotBeWrittenToIsRefused)
{
    const InTempDir dir;
    fs::create_directory("readonly");
    chmod("readonly", 0555);
    chmod(dir->path().c_str(), 0755);
    const Ended ended = as_nobody([] {
        std::string text = logged([] { printf("%d ", makedir("readonly")); });
        text += logged([] { printf("%d ", makedir("readonly/x")); });
        printf("%s", text.c_str());
    });
    EXPECT_EQ(ended.out, "-1 -1 can't write to directory readonly\n"
                         "can't write to directory readonly\n"
                         "Can't open or create directory readonly/x\n");
}

// The effective user is another one in a program that runs with its owner's permissions.
TEST(Makedir, TheEffectiveUserDecidesWhatCanBeWrittenTo)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only the superuser may become another user";
    const InTempDir dir;
    fs::create_directory("mine");
    chmod("mine", 0700);
    chmod(dir->path().c_str(), 0755);
    const auto as = [](uid_t real_user, uid_t effective_user) {
        return in_child([=] {
            if (setreuid(real_user, effective_user) == 0)
                printf("%d", makedir("mine"));
        });
    };
    const uid_t other = somebody().pw_uid;
    EXPECT_EQ(as(other, 0).out, "0");
    EXPECT_EQ(as(0, other).out, "-1");
}

TEST(Makedir, ADanglingLinkIsReported)
{
    const InTempDir dir;
    fs::create_symlink("nowhere", "link");
    EXPECT_EQ(logged([] { EXPECT_EQ(makedir("link"), -1); }),
              "Can't open or create directory link\n");
}

TEST(Makedir, APathTooLongIsRefused)
{
    const std::string path = times(2500, "a/");
    EXPECT_EQ(logged([&] { EXPECT_EQ(makedir(path.c_str()), -1); }),
              "Can't open or create directory " + path + "\n");
    EXPECT_EQ(logged([] { EXPECT_EQ(makedir(nullptr), -1); }),
              "Can't open or create directory <null>\n");
    EXPECT_EQ(logged([] { EXPECT_EQ(makedir(""), -1); }), "Can't open or create directory \n");
}

TEST(Makedir, APathOf1023BytesIsCreated)
{
    const InTempDir dir;
    const std::string path = times(511, "a/") + "b";
    EXPECT_EQ(makedir(path.c_str()), 0);
    EXPECT_TRUE(fs::is_directory(path));
}

TEST(MakePathdirs, CreatesWhatStandsBeforeTheLastSlash)
{
    const InTempDir dir;
    EXPECT_EQ(make_pathdirs("a/b/file"), 0);
    EXPECT_TRUE(fs::is_directory("a/b"));
    EXPECT_FALSE(fs::exists("a/b/file"));
    EXPECT_EQ(make_pathdirs("c/"), 0);
    EXPECT_TRUE(fs::is_directory("c"));
}

TEST(MakePathdirs, AFileWithoutADirectoryNeedsNone)
{
    EXPECT_EQ(make_pathdirs("file"), 0);
    EXPECT_EQ(make_pathdirs(""), 0);
    EXPECT_EQ(make_pathdirs(nullptr), 0);
}

TEST(MakePathdirs, AFileInTheRootNeedsTheRoot)
{
    EXPECT_EQ(make_pathdirs("/file"), access("/", W_OK));
    const Ended ended = as_nobody(
        [] { printf("%s", logged([] { printf("%d ", make_pathdirs("/file")); }).c_str()); });
    EXPECT_EQ(ended.out, "-1 can't write to directory /\n");
}

TEST(MakePathdirs, FailsAsMakedirDoes)
{
    const InTempDir dir;
    dir->file("plain", "");
    EXPECT_EQ(logged([] { EXPECT_EQ(make_pathdirs("plain/x"), -1); }),
              "plain is not a directory\n");
}
