// Replacing files: whole after every kill and every failing call, with the owner, mode, links
// and attributes of the old file, and nothing left beside it.

#include "files/durable.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <set>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "support/logged.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;

namespace {

// The program replaces the system calls that change files: the n-th of them fails or kills.
int calls = 0;
int stop_at = 0;     // 0: none
int stop_error = 0;  // 0: the process is killed
bool stop_for_good;  // every later call fails too
std::string order;   // of what was written to the disk: f: a file, r: renamed, d: a directory

bool stops()
{
    ++calls;
    if (stop_at == 0 || (stop_for_good ? calls < stop_at : calls != stop_at))
        return false;
    if (stop_error == 0)
        kill(getpid(), SIGKILL);
    errno = stop_error;
    return true;
}

template <class Function>
Function *real(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

#define REPLACED(result, name, parameters, arguments)                                              \
    extern "C" result name parameters                                                              \
    {                                                                                              \
        static const auto system = real<result parameters>(#name);                                 \
        return stops() ? static_cast<result>(-1) : system arguments;                               \
    }
REPLACED(ssize_t, pwrite, (int fd, const void *bytes, size_t n, off_t at), (fd, bytes, n, at))
REPLACED(ssize_t, pread, (int fd, void *bytes, size_t n, off_t at), (fd, bytes, n, at))
REPLACED(int, ftruncate, (int fd, off_t size) noexcept, (fd, size))
REPLACED(int, fchmod, (int fd, mode_t mode) noexcept, (fd, mode))
REPLACED(int, flock, (int fd, int how) noexcept, (fd, how))
REPLACED(int, unlink, (const char *name) noexcept, (name))

extern "C" int fsync(int fd)
{
    static const auto system = real<int(int)>("fsync");
    struct stat status;
    fstat(fd, &status);
    order += S_ISDIR(status.st_mode) ? 'd' : 'f';
    return stops() ? -1 : system(fd);
}

extern "C" int rename(const char *from, const char *to) noexcept
{
    static const auto system = real<int(const char *, const char *)>("rename");
    order += 'r';
    return stops() ? -1 : system(from, to);
}

namespace {

using stock::ReplacedFile;
using stock::Replacing;

constexpr char kOld[] = "north 4 mm\nsouth 11 mm\n";
constexpr char kNew[] = "north 5 mm\nsouth 12 mm\nwest 0 mm\n";

// Replaces the file by the text. Returns whether all steps succeeded.
bool replace(const std::string &path, const std::string &text, const Replacing &wanted = {})
{
    ReplacedFile file(wanted);
    return file.open(path.c_str()) &&
           write(file.fd(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
           file.finish() && file.put_in_place();
}

std::set<std::string> files_in(const std::string &directory)
{
    std::set<std::string> names;
    for (const auto &entry : fs::directory_iterator(directory))
        names.insert(entry.path().filename());
    return names;
}

// Runs the body in a child, as the user nobody when that is asked for. Gives how it ended.
int in_fork(const std::function<void()> &body, bool as_nobody = false)
{
    const pid_t pid = fork();
    if (pid == 0) {
        if (as_nobody && geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
            _exit(99);
        body();
        _exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return status;
}

int exit_status(const std::function<void()> &body, bool as_nobody = false)
{
    const int status = in_fork(body, as_nobody);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

class Replaced : public testing::Test {
protected:
    Replaced() : path(dir.file("rain", kOld)) {}

    std::string text() const { return read_file(path); }
    void expect_alone() const { EXPECT_EQ(files_in(dir.path()), names); }
    void link_twice()
    {
        fs::create_hard_link(path, dir / "other");
        names.insert("other");
    }

    TempDir dir;
    std::string path;
    std::set<std::string> names{"rain"};
};

// How a file is replaced: by a new one, or in place for its hard links.
struct Case {
    bool linked;
    const char *ending;
};
constexpr Case kCases[] = {{false, nullptr}, {false, "+"}, {true, nullptr}, {true, "+"}};

Replacing how(const Case &c)
{
    Replacing wanted;
    wanted.ending = c.ending;
    wanted.only_beside = c.ending != nullptr;
    return wanted;
}

}  // namespace

TEST_F(Replaced, FileIsOnTheDiskBeforeItsNameAndItsDirectoryBehindIt)
{
    order.clear();
    EXPECT_TRUE(replace(path, kNew));
    EXPECT_EQ(order, "frd");
    EXPECT_EQ(text(), kNew);
    expect_alone();
}

TEST_F(Replaced, WithSeveralLinksIsCopiedToTheDiskBeforeItsBytesChange)
{
    link_twice();
    order.clear();
    EXPECT_TRUE(replace(path, kNew));
    EXPECT_EQ(order, "ffrdf");  // the new bytes, the old ones under their name, the file
    EXPECT_EQ(read_file(dir / "other"), kNew);
    EXPECT_EQ(fs::hard_link_count(path), 2U);
    expect_alone();
}

TEST_F(Replaced, KilledAtAnyCallIsOldOrNewAndTheNextWriterLeavesNothingBesideIt)
{
    for (const Case &c : kCases) {
        TempDir own;
        const std::string file = own.file("rain", kOld);
        if (c.linked)
            fs::create_hard_link(file, own / "other");
        const std::set<std::string> alone = files_in(own.path());
        bool killed = true;
        int n = 0;
        while (killed) {
            SCOPED_TRACE(testing::Message() << c.linked << " " << ++n);
            own.file("rain", kOld);
            const int status = in_fork([&] {
                calls = 0;
                stop_at = n;
                replace(file, kNew, how(c));
            });
            killed = WIFSIGNALED(status);
            // Whoever reads it before replacing it.
            stock::mend_file(file.c_str(), c.ending);
            EXPECT_THAT(read_file(file), testing::AnyOf(kOld, kNew));
            EXPECT_TRUE(replace(file, "next", how(c)));
            EXPECT_EQ(read_file(file), "next");
            EXPECT_EQ(files_in(own.path()), alone);
        }
        EXPECT_GE(n, 5);
    }
}

TEST_F(Replaced, WhoseReplacingFailsAtAnyCallStaysAndNothingIsLeftBesideIt)
{
    for (const Case &c : kCases)
        for (const int error : {EIO, ENOSPC, EDQUOT, EROFS, EINTR}) {
            TempDir own;
            const std::string file = own.file("rain", kOld);
            if (c.linked)
                fs::create_hard_link(file, own / "other");
            const std::set<std::string> alone = files_in(own.path());
            for (int n = 1;; ++n) {
                SCOPED_TRACE(testing::Message() << c.linked << " " << error << " " << n);
                own.file("rain", kOld);
                calls = 0;
                stop_at = n;
                stop_error = error;
                const bool replaced = replace(file, kNew, how(c));
                const bool reached = calls >= n;
                stop_at = 0;
                EXPECT_THAT(read_file(file), testing::AnyOf(kNew, replaced ? kNew : kOld));
                if (!reached)
                    break;
                if (files_in(own.path()) != alone) {  // it was the removal that failed
                    EXPECT_TRUE(replace(file, kNew, how(c)));
                    EXPECT_EQ(files_in(own.path()), alone);
                }
            }
        }
}

TEST_F(Replaced, WithSeveralLinksThatCannotBeWrittenAnyMoreKeepsItsOldBytesBeside)
{
    link_twice();
    int damaged = 0;
    for (int n = 1; n < 30; ++n) {
        SCOPED_TRACE(n);
        dir.file("rain", kOld);
        {
            ReplacedFile file({});
            ASSERT_TRUE(file.open(path.c_str()));
            ASSERT_EQ(write(file.fd(), kNew, strlen(kNew)), static_cast<ssize_t>(strlen(kNew)));
            ASSERT_TRUE(file.finish());
            calls = 0;
            stop_at = n;
            stop_error = EIO;
            stop_for_good = true;
            const bool replaced = file.put_in_place();
            stop_at = 0;
            if (calls < n)
                break;
            EXPECT_EQ(replaced, text() == kNew && !file.is_damaged());
            if (file.is_damaged()) {
                ++damaged;
                stock::log_damage(file);
                EXPECT_THAT(take_log(), testing::HasSubstr(path));
                EXPECT_EQ(read_file(path + ".old000"), kOld);
            }
        }
        stop_for_good = false;
        stock::mend_file(path.c_str());
        EXPECT_THAT(text(), testing::AnyOf(kOld, kNew));
        expect_alone();
    }
    EXPECT_GT(damaged, 2);
}

// What a killed process left is older than what somebody has written since.
TEST_F(Replaced, ThatWasWrittenSinceAKillIsNotBroughtBack)
{
    link_twice();
    for (const char *since : {kOld, kNew, "another text", "north 5 mm\nsouth 99 mm\n"}) {
        dir.file("rain.stk000", kNew);
        dir.file("rain.old000", kOld);
        dir.file("rain", since);
        stock::mend_file(path.c_str());
        EXPECT_EQ(text(), since);
        expect_alone();
    }
    dir.file("rain.stk000", kNew);
    dir.file("rain.old000", kOld);
    dir.file("rain", "north 5 mm\nsouth 11 mm\n");  // written up to the middle
    stock::mend_file(path.c_str());
    EXPECT_EQ(text(), kOld);
    expect_alone();
}

TEST_F(Replaced, KeepsModeOwnerAndAttributes)
{
    const uid_t owner = geteuid() == 0 ? 1 : geteuid();
    ASSERT_EQ(chown(path.c_str(), owner, geteuid() == 0 ? 2 : static_cast<gid_t>(-1)), 0);
    ASSERT_EQ(chmod(path.c_str(), 04640), 0);
    const bool attributes = setxattr(path.c_str(), "user.gauge", "north", 5, 0) == 0;
    EXPECT_TRUE(replace(path, kNew));
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 04640U);
    EXPECT_EQ(status.st_uid, owner);
    char value[8] = "";
    if (attributes) {
        EXPECT_EQ(getxattr(path.c_str(), "user.gauge", value, sizeof value), 5);
    }
}

TEST_F(Replaced, NewFileHasTheModeOfTheUmask)
{
    const mode_t before = umask(027);
    EXPECT_TRUE(replace(dir / "new", kNew));
    umask(before);
    struct stat status;
    ASSERT_EQ(stat((dir / "new").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
}

TEST_F(Replaced, LinksLeadToTheNewFileAndThoseToNothingToOne)
{
    fs::create_directory(dir / "links");
    fs::create_symlink("../rain", dir / "links/first");
    fs::create_symlink(dir / "links/first", dir / "links/second");
    fs::create_symlink("../none", dir / "links/third");
    EXPECT_TRUE(replace(dir / "links/second", kNew));
    EXPECT_EQ(text(), kNew);
    EXPECT_TRUE(replace(dir / "links/third", kOld));
    EXPECT_EQ(read_file(dir / "none"), kOld);
    EXPECT_EQ(files_in(dir / "links"), (std::set<std::string>{"first", "second", "third"}));
    fs::create_symlink("loop", dir / "loop");
    EXPECT_FALSE(replace(dir / "loop", kNew));
    EXPECT_EQ(errno, ELOOP);
}

TEST_F(Replaced, LongNamesAndPathsAreCutOrRefused)
{
    const std::string name(255, 'n');
    dir.file(name, kOld);
    EXPECT_TRUE(replace(dir / name, kNew));
    EXPECT_EQ(read_file(dir / name), kNew);
    EXPECT_FALSE(replace(std::string(PATH_MAX, 'n'), kNew));
    EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST_F(Replaced, WritersAtTheSameTimeDoNotTouchEachOthersFiles)
{
    ReplacedFile first({}), second({});
    ASSERT_TRUE(first.open(path.c_str()));
    ASSERT_TRUE(second.open(path.c_str()));
    EXPECT_STRNE(first.beside(), second.beside());
    EXPECT_EQ(write(first.fd(), "first", 5), 5);
    EXPECT_EQ(write(second.fd(), "second", 6), 6);
    EXPECT_TRUE(first.finish() && second.finish());
    EXPECT_TRUE(first.put_in_place());
    EXPECT_EQ(text(), "first");
    EXPECT_TRUE(second.put_in_place());
    EXPECT_EQ(text(), "second");
    expect_alone();
}

TEST_F(Replaced, FilesOfOthersBesideItStay)
{
    fs::create_directory(dir / "rain.stk000");
    fs::create_symlink(path, dir / "rain.stk001");
    ASSERT_EQ(mkfifo((dir / "rain.stk002").c_str(), 0600), 0);
    names = files_in(dir.path());
    EXPECT_TRUE(replace(path, kNew));
    EXPECT_EQ(text(), kNew);
    expect_alone();
}

TEST_F(Replaced, WhatIsNoRegularFileIsWrittenDirectly)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_TRUE(replace("/dev/null", kNew));
    EXPECT_TRUE(replace("/proc/self/fd/" + std::to_string(ends[1]), kNew));
    char bytes[100];
    EXPECT_EQ(read(ends[0], bytes, sizeof bytes), static_cast<ssize_t>(strlen(kNew)));
    close(ends[0]);
    close(ends[1]);
    EXPECT_FALSE(replace("/dev/full", kNew));
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_FALSE(replace(dir.path(), kNew));
    EXPECT_EQ(errno, EISDIR);
}

TEST_F(Replaced, StandardOutputStaysTheFileThatItIs)
{
    for (const char *name : {"/dev/stdout", path.c_str()}) {
        SCOPED_TRACE(name);
        dir.file("rain", kOld);
        in_fork([&] {
            dup2(open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC), STDOUT_FILENO);
            replace(name, "new ");
            [[maybe_unused]] const ssize_t n = write(STDOUT_FILENO, "and more", 8);
        });
        EXPECT_EQ(text(), "new and more");
    }
}

TEST_F(Replaced, IsWrittenInPlaceWhereNothingCanBeMadeBesideIt)
{
    chmod(dir.path().c_str(), 0555);
    chmod(path.c_str(), 0666);
    const ino_t inode = [&] {
        struct stat status;
        stat(path.c_str(), &status);
        return status.st_ino;
    }();
    EXPECT_EQ(exit_status(
                  [&] {
                      ReplacedFile file({});
                      const bool opened = file.open(path.c_str()) && file.is_unguarded();
                      [[maybe_unused]] const ssize_t n = write(file.fd(), kNew, strlen(kNew));
                      const bool old = text() == kOld;
                      _exit(opened && old && file.finish() && file.put_in_place() ? 5 : 6);
                  },
                  true),
              5);
    Replacing only_beside;
    only_beside.only_beside = true;
    EXPECT_EQ(exit_status([&] { _exit(replace(path, kOld, only_beside) ? 5 : errno); }, true),
              EACCES);
    chmod(dir.path().c_str(), 0755);
    EXPECT_EQ(text(), kNew);
    struct stat status;
    stat(path.c_str(), &status);
    EXPECT_EQ(status.st_ino, inode);
}

TEST_F(Replaced, OfAnotherUserIsWrittenInPlaceOrReplacedAsIsAsked)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs the superuser";
    chmod(dir.path().c_str(), 0777);
    chmod(path.c_str(), 0666);
    EXPECT_EQ(exit_status([&] { _exit(replace(path, kNew) ? 5 : 6); }, true), 5);
    struct stat status;
    stat(path.c_str(), &status);
    EXPECT_EQ(status.st_uid, 0U);
    EXPECT_EQ(text(), kNew);
    static std::string told;
    Replacing only_beside;
    only_beside.only_beside = true;
    only_beside.lost = [](const char *what, const char *) { told += what; };
    EXPECT_EQ(
        exit_status([&] { _exit(replace(path, kOld, only_beside) && told == "the group" ? 5 : 6); },
                    true),
        5);
    stat(path.c_str(), &status);
    EXPECT_EQ(status.st_uid, 65534U);
    EXPECT_EQ(text(), kOld);
    expect_alone();
}

TEST_F(Replaced, BeyondTheFileSizeLimitStaysInPlaceToo)
{
    link_twice();
    EXPECT_EQ(exit_status([&] {
                  int error = 0;
                  {
                      ReplacedFile file({});
                      const bool opened = file.open(path.c_str());
                      const std::string longer(1000, 'x');
                      const bool written = opened && write(file.fd(), longer.data(), 1000) == 1000;
                      const rlimit limit{100, 100};
                      setrlimit(RLIMIT_FSIZE, &limit);
                      error = written && file.finish() && !file.put_in_place() ? errno : 255;
                  }
                  _exit(error);
              }),
              EFBIG);
    EXPECT_EQ(text(), kOld);
    expect_alone();
}
