// The installation root. The program replaces the functions that look for the standard
// directories and for its own name, so that nothing depends on what is installed.

#include "stock/gettaluvine.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <glob.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "deviants.h"
#include "support/child.h"
#include "support/temp_dir.h"

extern "C" char *__progname;  // what the C library's start-up code recorded

namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;

bool default_root_is_there = false;
std::vector<std::string> version_dirs;
std::string asked_pattern;

// Each test starts like a new process does: no root known, none in the environment.
class Root : public testing::Test {
protected:
    Root()
    {
        unsetenv("TALUVINE");
        free(std::exchange(Setenv, nullptr));
        *Taluvine_path = '\0';
        default_root_is_there = false;
        version_dirs.clear();
        setenv("PATH", "/nosuchdir", 1);
    }
    TempDir dir_;
};

using Gettaluvine = Root;
using Puttaluvine = Root;
using FromExec = Root;
using GuessTaluvine = Root;

std::string from_exec_text()
{
    std::vector<char> buffer(1024, '#');
    const char *root = from_exec(buffer.data());
    EXPECT_TRUE(root == nullptr || root == buffer.data());
    EXPECT_TRUE(root != nullptr || buffer[0] == '\0');
    return root ? root : "(null)";
}

std::string guessed(const std::string &before)
{
    std::vector<char> buffer(1024, '\0');
    strcpy(buffer.data(), before.c_str());
    EXPECT_EQ(guess_taluvine(buffer.data()), buffer.data());
    return buffer.data();
}

}  // namespace

// stat finds the default root when a test says so.
extern "C" int stat(const char *path, struct stat *status) noexcept
{
    if (strcmp(path, "/opt/taluvine/5.3") != 0)
        return fstatat(AT_FDCWD, path, status, 0);
    if (!default_root_is_there) {
        errno = ENOENT;
        return -1;
    }
    return fstatat(AT_FDCWD, "/", status, 0);
}

// glob finds the standard directories that a test lists.
extern "C" int glob(const char *pattern, int flags, int (*)(const char *, int), glob_t *matches)
{
    asked_pattern = pattern + std::to_string(flags);
    *matches = {};
    matches->gl_pathc = version_dirs.size();
    matches->gl_pathv = new char *[version_dirs.size() + 1];
    for (size_t i = 0; i < version_dirs.size(); ++i)
        matches->gl_pathv[i] = version_dirs[i].data();
    return version_dirs.empty() ? GLOB_NOMATCH : 0;
}

extern "C" void globfree(glob_t *matches)
{
    delete[] matches->gl_pathv;
}

TEST_F(Gettaluvine, TakesTheEnvironmentsValueAndRecordsIt)
{
    setenv("TALUVINE", "/x", 1);
    EXPECT_STREQ(gettaluvine(), "/x");
    EXPECT_EQ(gettaluvine(), Taluvine_path);
    EXPECT_STREQ(getenv("TALUVINE"), "/x");
    EXPECT_STREQ(Setenv, "TALUVINE=/x");
}

TEST_F(Gettaluvine, OnceKnownTheRootIsKept)
{
    setenv("TALUVINE", "/x", 1);
    gettaluvine();
    setenv("TALUVINE", "/y", 1);
    EXPECT_STREQ(gettaluvine(), "/x");
}

TEST_F(Gettaluvine, AnEmptyBufferIsFilledAnew)
{
    setenv("TALUVINE", "/x", 1);
    gettaluvine();
    *Taluvine_path = '\0';
    setenv("TALUVINE", "/y", 1);
    EXPECT_STREQ(gettaluvine(), "/y");
    EXPECT_STREQ(Setenv, "TALUVINE=/x");
}

TEST_F(Gettaluvine, TheEnvironmentGoesBeforeTheDefaultRoot)
{
    default_root_is_there = true;
    setenv("TALUVINE", "/x", 1);
    EXPECT_STREQ(gettaluvine(), "/x");
}

TEST_F(Gettaluvine, TheDefaultRootGoesBeforeTheProgramsOwn)
{
    default_root_is_there = true;
    dir_.file("bin/"s + getexecname(), "");
    setenv("PATH", (dir_ / "bin").c_str(), 1);
    EXPECT_STREQ(gettaluvine(), "/opt/taluvine/5.3");
    EXPECT_STREQ(getenv("TALUVINE"), "/opt/taluvine/5.3");
}

TEST_F(Gettaluvine, TheProgramsOwnRootGoesBeforeAGuess)
{
    version_dirs = {"/usr"};
    dir_.file("bin/"s + getexecname(), "");
    setenv("PATH", (dir_ / "bin").c_str(), 1);
    EXPECT_EQ(gettaluvine(), dir_.path());
    EXPECT_EQ(getenv("TALUVINE"), dir_.path());
}

TEST_F(Gettaluvine, GuessesWhenNothingElseIsKnown)
{
    version_dirs = {"/usr"};
    EXPECT_STREQ(gettaluvine(), "/usr");
}

TEST_F(Gettaluvine, IsEmptyWhenNothingIsFound)
{
    EXPECT_STREQ(gettaluvine(), "");
    EXPECT_STREQ(getenv("TALUVINE"), "");
    EXPECT_STREQ(Default_taluvinepath, "/opt/taluvine/5.3");
    EXPECT_STREQ(Taluvine, "TALUVINE=");
}

TEST_F(Puttaluvine, ALaterRootChangesWhatIsReturnedButNotTheEnvironment)
{
    puttaluvine("/x");
    puttaluvine("/y");
    EXPECT_STREQ(gettaluvine(), "/y");
    EXPECT_STREQ(getenv("TALUVINE"), "/x");
}

TEST_F(Puttaluvine, ALaterRootMayBeTheBeginningOfTheFirst)
{
    puttaluvine("/x/y");
    puttaluvine("/x");
    EXPECT_STREQ(gettaluvine(), "/x");
    puttaluvine("/x/y");
    EXPECT_STREQ(gettaluvine(), "/x/y");
}

TEST_F(Puttaluvine, CutsARootAfter1023Bytes)
{
    const std::string root = "/" + std::string(5000, 'r');
    puttaluvine(root.c_str());
    EXPECT_EQ(gettaluvine(), root.substr(0, 1023));
    EXPECT_EQ(getenv("TALUVINE"), root.substr(0, 1023));
}

TEST_F(Puttaluvine, IgnoresANullRootAndTakesItsOwnBuffer)
{
    puttaluvine(nullptr);
    EXPECT_EQ(Setenv, nullptr);
    puttaluvine("/x");
    puttaluvine(Taluvine_path);
    EXPECT_STREQ(gettaluvine(), "/x");
}

TEST(PuttaluvineThreads, WriteOneRootAfterTheOther)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([i] {
            for (int n = 0; n < 200; ++n)
                puttaluvine(("/" + std::string(100, static_cast<char>('a' + i))).c_str());
        });
    for (std::thread &thread : threads)
        thread.join();
    const std::string root = gettaluvine();
    EXPECT_EQ(root, "/" + std::string(100, root[1]));
}

TEST_F(FromExec, IsTheDirectoryAboveTheBinThatHoldsTheProgram)
{
    dir_.file("t/bin/"s + getexecname(), "");
    setenv("PATH", ("/nosuchdir:" + dir_ / "t/bin").c_str(), 1);
    EXPECT_EQ(from_exec_text(), dir_ / "t");
}

TEST_F(FromExec, IsNothingForAProgramInAnotherDirectory)
{
    dir_.file("t/lib/"s + getexecname(), "");
    dir_.file("cabin/"s + getexecname(), "");
    setenv("PATH", (dir_ / "t/lib").c_str(), 1);
    EXPECT_EQ(from_exec_text(), "(null)");
    setenv("PATH", (dir_ / "cabin").c_str(), 1);
    EXPECT_EQ(from_exec_text(), "(null)");
}

TEST_F(FromExec, AProgramsPathIsTakenAsItIs)
{
    const struct {
        const char *program, *root;
    } cases[] = {
        {"/usr/local/t/bin/prog", "/usr/local/t"},
        {"/usr/local/t/lib/prog", "(null)"},
        {"/prog", "(null)"},
        {"/bin/prog", "(null)"},
        {"/a/bin/prog", "/a"},
        {"/a/b/../bin/./prog", "/a"},
        {"/a/bin/x/prog", "(null)"},
        {"/a/cabin/prog", "(null)"},
    };
    char *own = __progname;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.program);
        __progname = const_cast<char *>(c.program);
        EXPECT_EQ(from_exec_text(), c.root);
    }
    __progname = own;
}

TEST_F(FromExec, WithoutAPathTheSystemIsAskedAtOnce)
{
    unsetenv("DATAPATH");
    for (const char *setting : {"PATH", "PATH="}) {
        SCOPED_TRACE(setting);
        fs::create_directories(dir_ / "t/bin");
        fs::copy(tool_path(), dir_ / "t/bin/stock", fs::copy_options::skip_existing);
        const Ended ended = run_program({dir_ / "t/bin/stock", "root"}, "", {"TALUVINE", setting});
        EXPECT_EQ(ended.status, 0) << ended.err;
        EXPECT_EQ(ended.signal, 0);
    }
}

TEST_F(FromExec, AProgramThatIsNotAlongPathIsAskedOfTheSystem)
{
    fs::create_directories(dir_ / "t/bin");
    fs::copy(tool_path(), dir_ / "t/bin/stock");
    const bool has_default = access(Default_taluvinepath, F_OK) == 0;
    const std::string root =
        has_default ? Default_taluvinepath : fs::canonical(dir_ / "t").string();
    const Ended ended = run_program({dir_ / "t/bin/stock", "root"}, "", {"TALUVINE"});
    EXPECT_EQ(ended.out.substr(0, ended.out.find('\n')), root) << ended.err;
}

TEST_F(GuessTaluvine, IsTheLastDirectoryInSortingOrder)
{
    version_dirs = {"/bin", "/usr", dir_.file("file", ""), "/nosuchdir"};
    EXPECT_EQ(guessed("before"), "/usr");
    EXPECT_EQ(asked_pattern, "/opt/taluvine/[1-9].[0-9][a-z]*0");
}

TEST_F(GuessTaluvine, LeavesTheBufferWhenNoDirectoryIsThere)
{
    EXPECT_EQ(guessed("before"), "before");
    version_dirs = {"/nosuchdir"};
    EXPECT_EQ(guessed("before"), "before");
}
