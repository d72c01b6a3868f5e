// The state file: read, written, locked, and saved when the program is stopped.
// A process has one state file, so nearly every test runs in a child.

#include "stock/bury.h"

#include <cerrno>
#include <cfloat>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include "deviants.h"
#include "support/child.h"
#include "support/logging.h"
#include "support/nobody.h"
#include "support/owners.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

// System calls that the tests replace, and what they are to give.
int write_error, fsync_error, rename_error, lock_error, timer_error;
bool in_a_hurry;  // a timer of ten seconds runs out after one
bool is_remote;   // every file lies on another host
std::string
    events;  // f: file flushed, r: renamed, d: the state's directory flushed, ?: other flush
std::string directory_of_state;
void (*before_lock)();  // called once, when the file is open and not yet locked

template <class Function>
Function *real(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

int refused(int error)
{
    errno = error;
    return -1;
}

}  // namespace

extern "C" ssize_t write(int fd, const void *bytes, size_t count)
{
    static const auto system = real<decltype(::write)>("write");
    return write_error && fd > 2 ? refused(write_error) : system(fd, bytes, count);
}

extern "C" int fsync(int fd)
{
    static const auto system = real<int(int)>("fsync");
    struct stat status, directory = {};
    fstat(fd, &status);
    if (!directory_of_state.empty())
        stat(directory_of_state.c_str(), &directory);
    const bool ours = status.st_ino == directory.st_ino && status.st_dev == directory.st_dev;
    events += !S_ISDIR(status.st_mode) ? 'f' : ours ? 'd' : '?';
    return fsync_error ? refused(fsync_error) : system(fd);
}

extern "C" int rename(const char *from, const char *to) noexcept
{
    static const auto system = real<int(const char *, const char *)>("rename");
    events += 'r';
    return rename_error ? refused(rename_error) : system(from, to);
}

extern "C" int lockf(int fd, int command, off_t length)
{
    static const auto system = real<int(int, int, off_t)>("lockf");
    if (before_lock)
        std::exchange(before_lock, nullptr)();
    return lock_error ? refused(lock_error) : system(fd, command, length);
}

extern "C" int setitimer(__itimer_which_t which, const struct itimerval *timer,
                         struct itimerval *old) noexcept
{
    using Function = int(__itimer_which_t, const struct itimerval *, struct itimerval *);
    static const auto system = real<Function>("setitimer");
    struct itimerval set = *timer;
    if (in_a_hurry && set.it_value.tv_sec == 10)
        set.it_value.tv_sec = 1;
    if (timer_error)
        return refused(timer_error);
    const int result = system(which, &set, old);
    if (result == 0)
        errno = EDOM;  // a call that succeeds may leave any errno
    return result;
}

extern "C" int statfs(const char *path, struct statfs *status) noexcept
{
    static const auto system = real<int(const char *, struct statfs *)>("statfs");
    const int result = system(path, status);
    if (is_remote)
        status->f_type = NFS_SUPER_MAGIC;
    return result;
}

namespace {

constexpr char kInUse[] = "' for exclusive use: it is already in use.\n";

// A test with a path for a state file, and programs that use it one after the other.
class Bury : public testing::Test {
protected:
    const TempDir dir;
    const std::string state = dir / "state";

    int open(volatile int *flag = nullptr, int grace = 0, void (*extra)(Pf *) = nullptr) const
    {
        return exhume(state.c_str(), flag, grace, extra);
    }
    std::string text() const { return read_file(state); }
    // The output of a program that opens the state file and then runs the body.
    std::string program(const std::function<void()> &body) const
    {
        const Ended ended = untagged([&] {
            std::printf("%d\n", open());
            body();
        });
        EXPECT_EQ(ended.err, "");
        EXPECT_EQ(ended.status, 0);
        return ended.out;
    }
};

// Saves a value and restores it in another process. Gives the restored value, and the text of
// the state file.
template <class T>
T there_and_back(T value, int type, std::string *text = nullptr)
{
    const TempDir dir;
    const std::string state = dir / "state";
    untagged([&] {
        exhume(state.c_str(), nullptr, 0, nullptr);
        resurrect("value", &value, type);
        bury();
    });
    if (text)
        *text = read_file(state);
    const Ended ended = untagged([&] {
        T back{};
        exhume(state.c_str(), nullptr, 0, nullptr);
        if (resurrect("value", &back, type) == 0)
            fwrite(&back, sizeof back, 1, stdout);
    });
    T back{};
    EXPECT_EQ(ended.out.size(), sizeof back);
    if (ended.out.size() == sizeof back)
        memcpy(&back, ended.out.data(), sizeof back);
    return back;
}

std::string string_and_back(std::string value, std::string *text = nullptr)
{
    const TempDir dir;
    const std::string state = dir / "state";
    untagged([&] {
        exhume(state.c_str(), nullptr, 0, nullptr);
        char *variable = value.data();
        resurrect("value", &variable, RELIC_STRING);
        bury();
    });
    if (text)
        *text = read_file(state);
    return untagged([&] {
               char *variable = nullptr;
               exhume(state.c_str(), nullptr, 0, nullptr);
               if (resurrect("value", &variable, RELIC_STRING) == 0)
                   fputs(variable, stdout);
           })
        .out;
}

// A process that runs a body and then waits. It is killed at the end of the scope.
class Waiting {
public:
    explicit Waiting(const std::function<void()> &body)
    {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        pid_ = fork();
        if (pid_ == 0) {
            body();
            if (write(ready[1], "", 1) == 1)
                for (;;)
                    pause();
            _exit(1);
        }
        close(ready[1]);
        char byte;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
    }
    ~Waiting()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Waiting(const Waiting &) = delete;
    Waiting &operator=(const Waiting &) = delete;

private:
    pid_t pid_;
};

}  // namespace

// ---- Opening ----

TEST_F(Bury, TheFirstRunMakesTheDirectoriesAndAnEmptyFile)
{
    const std::string deep = dir / "a/b/state";
    const Ended ended = untagged([&] {
        int count = 7;
        double last = 1.5;
        const char *name = "as it was";
        std::printf("%d", exhume(deep.c_str(), nullptr, 0, nullptr));
        std::printf(" %d", resurrect("count", &count, RELIC_INT));
        std::printf(" %d", resurrect("last", &last, RELIC_DOUBLE));
        std::printf(" %d", resurrect("name", &name, RELIC_STRING));
        std::printf(" %d %g %s", count, last, name);
    });
    EXPECT_EQ(ended.out, "0 1 1 1 7 1.5 as it was");
    EXPECT_EQ(ended.err, "");
    EXPECT_TRUE(fs::is_empty(deep));
}

TEST_F(Bury, AStateFileThatIsThereIsRead)
{
    dir.file("state", "count 12\n");
    EXPECT_EQ(program([] {
                  int count = 7;
                  std::printf("%d", resurrect("count", &count, RELIC_INT));
                  std::printf(" %d", count);
              }),
              "1\n0 12");
}

TEST_F(Bury, AVariableThatTheFileDoesNotNameKeepsItsValueInSilence)
{
    dir.file("state", "count 12\ntable &Arr{\n}\n");
    EXPECT_EQ(program([] {
                  int other = 7;
                  const char *table = "own";
                  std::printf("%d", resurrect("other", &other, RELIC_INT));
                  std::printf(" %d", resurrect("table", &table, RELIC_STRING));
                  std::printf(" %d %s", other, table);
                  elog_flush(1, 0);
              }),
              "1\n1 1 7 own");
}

TEST_F(Bury, AFileThatIsNoParameterTextGives2AndRestoresNothing)
{
    dir.file("state", "count 12\nlist &Tbl{\n");
    const Ended ended = untagged([&] {
        int count = 7;
        std::printf("%d", open());
        std::printf(" %d", resurrect("count", &count, RELIC_INT));
        std::printf(" %d", count);
        elog_flush(1, 0);
    });
    EXPECT_EQ(ended.out, "2 1 7");
    EXPECT_THAT(ended.err, HasSubstr("Unterminated arrays or tables"));
}

TEST_F(Bury, ASecondExhumeGivesMinus2)
{
    EXPECT_EQ(program([&] { std::printf("%d", open()); }), "0\n-2");
}

TEST_F(Bury, BeforeExhumeNothingCanBeRegisteredOrBuried)
{
    const Ended ended = untagged([] {
        int count = 0;
        std::printf("%d %d", resurrect("count", &count, RELIC_INT), bury());
    });
    EXPECT_EQ(ended.out, "-1 -1");
}

TEST_F(Bury, TheGravesiteIsTheCustomOneUntilExhume)
{
    const Ended ended = untagged([&] {
        std::printf("%s", gravesite() ? "some" : "none");
        custom_gravesite("elsewhere");
        std::printf(" %s", gravesite());
        open();
        std::printf(" %s", gravesite() == state ? "state" : gravesite());
    });
    EXPECT_EQ(ended.out, "none elsewhere state");
}

TEST_F(Bury, ExhumeClearsTheFlagAndErrno)
{
    const Ended ended = untagged([&] {
        volatile int flag = 9;
        errno = EIO;
        open(&flag);
        std::printf("%d %d", flag, errno);
    });
    EXPECT_EQ(ended.out, "0 0");
}

TEST_F(Bury, ADirectoryCannotBeOpened)
{
    fs::create_directory(state);
    EXPECT_EQ(program([] {}), "-1\n");
    EXPECT_TRUE(fs::is_directory(state));
}

TEST_F(Bury, APathThroughAFileCannotBeMade)
{
    const std::string through = dir.file("file", "") + "/state";
    const Ended ended = untagged([&] {
        errno = EIO;
        std::printf("%d", exhume(through.c_str(), nullptr, 0, nullptr));
        std::printf(" %d", errno);
        elog_clear();
    });
    EXPECT_EQ(ended.out, "-1 0");
}

TEST_F(Bury, AFileThatMayNotBeReadCannotBeOpened)
{
    dir.file("state", "count 1\n");
    chmod(state.c_str(), 0200);
    chmod(dir.path().c_str(), 0555);
    const Ended ended = as_nobody([&] {
        static int count = 1;
        std::printf("%d", open());
        std::printf(" %d", errno);
        std::printf(" %d", resurrect("count", &count, RELIC_INT));
        std::printf(" %d", bury());
    });
    chmod(dir.path().c_str(), 0755);
    EXPECT_EQ(ended.out, "-1 0 1 -1");
    EXPECT_THAT(ended.err, HasSubstr("Can't write alternate state file " + state + "+\n"));
}

TEST_F(Bury, WithoutANameThereIsNoStateFileAndNoGrave)
{
    const Ended ended = untagged([&] {
        std::printf("%d", exhume(nullptr, nullptr, 0, nullptr));
        std::printf(" %d", open());
    });
    EXPECT_EQ(ended.out, "-1 0");
}

TEST_F(Bury, AnEmptyFileIsRead)
{
    dir.file("state", "");
    EXPECT_EQ(program([] {}), "1\n");
}

TEST_F(Bury, BinaryFilesAreReadOrRefused)
{
    unsigned seed = 1;
    for (int round = 0; round < 50; ++round) {
        std::string bytes;
        for (int i = 0; i < 5000; ++i) {
            seed = seed * 1103515245 + 12345;
            bytes += static_cast<char>(seed >> 16);
        }
        dir.file("state", bytes);
        const Ended ended = untagged([&] {
            const int result = open();
            std::printf("%s", result == 1 || result == 2 ? "as told" : "otherwise");
            elog_clear();
        });
        EXPECT_EQ(ended.out, "as told");
        EXPECT_EQ(ended.status, 0);
    }
}

TEST_F(Bury, AFileOf100MegabytesIsRead)
{
    dir.file("state", "text " + std::string(100'000'000, 'x') + "\ncount 12\n");
    EXPECT_EQ(program([] {
                  static int count;
                  resurrect("count", &count, RELIC_INT);
                  char *big = nullptr;
                  resurrect("text", &big, RELIC_STRING);
                  std::printf("%d %zu", count, strlen(big));
              }),
              "1\n12 100000000");
}

TEST_F(Bury, ASymbolicLinkToNothingMakesWhatItNames)
{
    fs::create_symlink(dir / "real", state);
    EXPECT_EQ(program([] {}), "0\n");
    EXPECT_TRUE(fs::exists(dir / "real"));
}

TEST_F(Bury, WhatIsNotRegularCannotBeOpened)
{
    ASSERT_EQ(mkfifo(state.c_str(), 0600), 0);
    EXPECT_EQ(program([] {}), "-1\n");
}

TEST_F(Bury, WhatIsNotRegularIsNotReplaced)
{
    ASSERT_EQ(mkfifo(state.c_str(), 0600), 0);
    const Ended ended = untagged([&] {
        std::printf("%d", open());
        std::printf(" %d", bury());
    });
    EXPECT_EQ(ended.out, "-1 -1");
    EXPECT_EQ(ended.err,
              "failed to rename state file " + state + "+ to " + state + "\n\tFile exists\n");
    EXPECT_TRUE(fs::is_fifo(state));
}

TEST_F(Bury, ARestoredStringStaysWhenTheFileChanges)
{
    dir.file("state", "name first\n");
    EXPECT_EQ(program([] {
                  char *name = nullptr, *again = nullptr;
                  resurrect("name", &name, RELIC_STRING);
                  const char *kept = name;
                  resurrect("name", &again, RELIC_STRING);
                  again[0] = 'F';
                  bury();
                  std::printf("%s %s", kept, again);
              }),
              "1\nfirst First");
}

TEST_F(Bury, WhatCannotBeRegisteredIsComplainedAbout)
{
    const Ended ended = untagged([&] {
        int count = 0;
        open();
        std::printf("%d", resurrect(nullptr, &count, RELIC_INT));
        std::printf(" %d", resurrect("", &count, RELIC_INT));
        std::printf(" %d", resurrect("count", nullptr, RELIC_INT));
        std::printf(" %d", resurrect("count", &count, 4));
        std::printf(" %d", resurrect("count", &count, -1));
        std::printf(" %d", bury());
    });
    EXPECT_EQ(ended.out, "-1 -1 -1 -1 -1 0");
    EXPECT_EQ(ended.err, "Can't resurrect '' of type 0\nCan't resurrect '' of type 0\n"
                         "Can't resurrect 'count' of type 0\nCan't resurrect 'count' of type 4\n"
                         "Can't resurrect 'count' of type -1\n");
}

// ---- Writing ----

TEST_F(Bury, EntriesStandInTheOrderOfTheirNames)
{
    program([] {
        static int count = 3;
        static double size = 0.5, start = 1.2e9;
        static const char *name = "two words";
        resurrect("start", &start, RELIC_TIME);
        resurrect("size", &size, RELIC_DOUBLE);
        resurrect("name", &name, RELIC_STRING);
        resurrect("count", &count, RELIC_INT);
        EXPECT_EQ(bury(), 0);
    });
    EXPECT_EQ(text(), "count\t3\n"
                      "name\ttwo words\n"
                      "size\t.5\n"
                      "start\t&Literal{\n"
                      " 1200000000.000 (010) 2008-01-10  21:20:00.00000 UTC Thursday}\n");
}

TEST_F(Bury, ExtraValuesStandInTheFileAndGiveWayToRelics)
{
    const Ended ended = untagged([&] {
        int count = 5;
        open(nullptr, 0, [](Pf *pf) {
            pfput_string(pf, "extra", "more");
            pfput_string(pf, "count", "replaced");
        });
        resurrect("count", &count, RELIC_INT);
        std::printf("%d", bury());
    });
    EXPECT_EQ(ended.out, "0");
    EXPECT_EQ(text(), "count\t5\nextra\tmore\n");
}

TEST_F(Bury, ASecondRegistrationReplacesTheFirst)
{
    program([] {
        int first = 1, second = 2;
        resurrect("count", &first, RELIC_INT);
        resurrect("count", &second, RELIC_INT);
        bury();
    });
    EXPECT_EQ(text(), "count\t2\n");
}

TEST_F(Bury, WhatIsNotRegisteredAnyMoreIsGone)
{
    dir.file("state", "old 1\n");
    program([] { bury(); });
    EXPECT_EQ(text(), "");
}

TEST_F(Bury, DyingThroughTheLogSavesTheState)
{
    const Ended ended = untagged([&] {
        static int count = 4;
        open();
        resurrect("count", &count, RELIC_INT);
        elog_die(0, "that was it");
    });
    EXPECT_EQ(ended.err, "that was it\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(text(), "count\t4\n");
}

TEST_F(Bury, TheLimitOfTheLogSavesTheState)
{
    const Ended ended = untagged([&] {
        static int count = 4;
        open();
        resurrect("count", &count, RELIC_INT);
        elog_set(ELOG_MAXMSG_VALUE, 0, 1);
        elog_log(0, "one");
        elog_log(0, "two");
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(text(), "count\t4\n");
}

TEST_F(Bury, AFatalMessageOfTheLogSavesNothing)
{
    const Ended ended = untagged([&] {
        static int count = 4;
        open();
        resurrect("count", &count, RELIC_INT);
        elog_fatal("that was it\n");
    });
    EXPECT_EQ(ended.err, "that was it\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(text(), "");
}

TEST_F(Bury, DyingRunsTheDebuggerThenSavesThenFlushesTheStreams)
{
    static std::string file;
    file = state;
    const auto write = [](void *, const char *, size_t size) -> ssize_t {
        fputs(fs::file_size(file) > 0 ? "flushed after\n" : "flushed before\n", stderr);
        return static_cast<ssize_t>(size);
    };
    const Ended ended =
        logged({"STATE=" + state, "ELOG_WAIT=0", "ELOG_DEBUG=[ ! -s \"$STATE\" ]@d"}, [&] {
            static int count = 4;
            open();
            resurrect("count", &count, RELIC_INT);
            FILE *stream = fopencookie(nullptr, "w", {nullptr, write, nullptr, nullptr});
            fputs("pending", stream);
            elog_die(0, "end");
        });
    EXPECT_EQ(ended.err, "bury_test *fatal*: end\nRunning debugger: '[ ! -s \"$STATE\" ]'\n"
                         "flushed after\n");
    EXPECT_EQ(text(), "count\t4\n");
}

TEST_F(Bury, ALeftoverAlternateFileLeavesNoTail)
{
    dir.file("state+", std::string(10000, 'x'));
    program([] {
        static int count = 1;
        resurrect("count", &count, RELIC_INT);
        bury();
    });
    EXPECT_EQ(text(), "count\t1\n");
    EXPECT_FALSE(fs::exists(state + "+"));
}

// The file is flushed before it is renamed, and its directory afterwards.
TEST_F(Bury, FileAndDirectoryAreFlushedEachTime)
{
    EXPECT_EQ(program([&] {
                  directory_of_state = dir.path();
                  for (int i = 0; i < 2; ++i) {
                      events.clear();
                      bury();
                      std::printf("%s ", events.c_str());
                  }
              }),
              "0\nfrd frd ");
}

TEST_F(Bury, TheDirectoryOfARelativeNameIsFlushed)
{
    const Ended ended = untagged([&] {
        fs::current_path(dir.path());
        directory_of_state = dir.path();
        exhume("state", nullptr, 0, nullptr);
        fs::current_path("/");
        events.clear();
        bury();
        std::printf("%s", events.c_str());
    });
    EXPECT_EQ(ended.out, "frd");
    EXPECT_EQ(ended.err, "");
}

TEST_F(Bury, ProgramsThatItRunsDoNotGetTheFile)
{
    const Ended ended = untagged([&] {
        open();
        bury();
        if (std::system("ls -l /dev/fd/") != 0)
            std::_Exit(9);
    });
    EXPECT_THAT(ended.out, Not(HasSubstr(state)));
    EXPECT_EQ(ended.status, 0);
}

// bury used to give the file this mode again and again.
TEST_F(Bury, OwnerAndGroupMayWriteTheFileAndOthersReadItUnlessItsModeWasChanged)
{
    umask(0);
    program([] { bury(); });
    EXPECT_EQ(fs::status(state).permissions(), fs::perms(0664));
    fs::permissions(state, fs::perms(0600));
    program([] { bury(); });
    EXPECT_EQ(fs::status(state).permissions(), fs::perms(0600));
}

// The link used to be replaced by a file.
TEST_F(Bury, ALinkStaysAndTheFileThatItLeadsToIsReplaced)
{
    fs::create_directory(dir / "disk");
    fs::create_symlink("disk/real", state);
    program([] {
        static int count = 3;
        resurrect("count", &count, RELIC_INT);
        bury();
    });
    EXPECT_TRUE(fs::is_symlink(state));
    EXPECT_EQ(read_file(dir / "disk/real"), "count\t3\n");
}

// One of the names used to keep the old state.
TEST_F(Bury, AFileWithSeveralNamesKeepsThemAndItsLock)
{
    dir.file("state", "count\t1\n");
    fs::create_hard_link(state, dir / "other");
    const Waiting holder([&] {
        static int count = 4;
        open();
        resurrect("count", &count, RELIC_INT);
        count = 4;
        bury();
    });
    EXPECT_EQ(text(), "count\t4\n");
    EXPECT_EQ(read_file(dir / "other"), "count\t4\n");
    EXPECT_EQ(fs::hard_link_count(state), 2U);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), {}), 2);
    EXPECT_EQ(untagged([&] { open(); }).status, 1);
}

// What a bury left that was killed while it wrote such a file.
TEST_F(Bury, AFileWithSeveralNamesThatIsHalfWrittenGetsItsOldStateBack)
{
    dir.file("state", "count\t2\nlast\t1\n");
    fs::create_hard_link(state, dir / "other");
    dir.file("state.old+", "count\t1\nlast\t1\n");
    dir.file("state+", "count\t2\nlast\t2\n");
    program([] {
        static int count;
        resurrect("count", &count, RELIC_INT);
        std::printf("%d", count);
    });
    EXPECT_EQ(text(), "count\t1\nlast\t1\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), {}), 2);
}

TEST_F(Bury, AFileWithoutADirectoryInItsNameIsOfTheWorkingDirectory)
{
    const Ended ended = untagged([&] {
        fs::current_path(dir.path());
        static int count = 6;
        std::printf("%d", exhume("state", nullptr, 0, nullptr));
        resurrect("count", &count, RELIC_INT);
        std::printf(" %d", bury());
    });
    EXPECT_EQ(ended.out, "0 0");
    EXPECT_EQ(text(), "count\t6\n");
}

// The program may change its directory, as a daemon does.
TEST_F(Bury, ARelativeNameHoldsInEveryWorkingDirectory)
{
    fs::create_directory(dir / "elsewhere");
    const Ended ended = untagged([&] {
        fs::current_path(dir.path());
        static int count = 6;
        exhume("sub/state", nullptr, 0, nullptr);
        resurrect("count", &count, RELIC_INT);
        fs::current_path(dir / "elsewhere");
        std::printf("%d %s", bury(), gravesite());
    });
    EXPECT_EQ(ended.out, "0 " + fs::canonical(dir.path()).string() + "/sub/state");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(read_file(dir / "sub/state"), "count\t6\n");
    EXPECT_TRUE(fs::is_empty(dir / "elsewhere"));
}

TEST_F(Bury, WhatWasPutAtTheAlternateNameIsReplacedAndNeverWrittenTo)
{
    const std::string other = dir.file("other", "of others");
    const std::function<void()> plants[] = {
        [&] { fs::create_symlink(other, state + "+"); },
        [&] { fs::create_symlink(dir / "none", state + "+"); },
        [&] { fs::create_hard_link(other, state + "+"); },
        [&] { ASSERT_EQ(mkfifo((state + "+").c_str(), 0600), 0); },
    };
    for (const auto &plant : plants) {
        plant();
        EXPECT_EQ(program([] {
                      static int count = 7;
                      resurrect("count", &count, RELIC_INT);
                      std::printf("%d", bury());
                  }).substr(2),
                  "0");
        EXPECT_EQ(read_file(other), "of others");
        EXPECT_FALSE(fs::exists(fs::symlink_status(dir / "none")));
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(state)));
        EXPECT_EQ(text(), "count\t7\n");
    }
}

TEST_F(Bury, NamesThatWouldNotComeBackAreRefused)
{
    const auto nested = [](int levels, const char *step) {
        std::string name = "rain";
        for (int i = 0; i < levels; ++i)
            name += step;
        return name;
    };
    const struct {
        std::string name;
        const char *why;  // it is refused; empty: it is restored
    } cases[] = {
        {std::string(1023, 'n'), ""},
        {"mm{" + std::string(2000, 'n') + "}", ""},
        {nested(11, "{north}"), ""},
        {nested(11, "[0]"), ""},
        {"north mm", ""},
        {"north'", ""},
        {std::string(1024, 'n'), "its name is longer than 1023 bytes"},
        {nested(12, "{north}"), "its name is nested deeper than 11 levels"},
        {nested(12, "[0]"), "its name is nested deeper than 11 levels"},
        {"north\tmm", "its name holds a tab, a newline, \"#\" or \"\\\""},
        {"north\nmm", "its name holds a tab, a newline, \"#\" or \"\\\""},
        {"north{#1}", "its name holds a tab, a newline, \"#\" or \"\\\""},
        {"north\\mm", "its name holds a tab, a newline, \"#\" or \"\\\""},
        {"\"north\"", "its name begins with a quote"},
        {"rain{\"north\"}", "its name begins with a quote"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        fs::remove(state);
        const bool refused = *c.why;
        const Ended first = untagged([&] {
            static int value = 3;
            open();
            std::printf("%d ", resurrect(c.name.c_str(), &value, RELIC_INT));
            std::printf("%d", bury());
        });
        EXPECT_EQ(first.out, refused ? "-1 0" : "1 0");
        EXPECT_EQ(first.err, refused ? "Can't resurrect '" + c.name + "': " + c.why + "\n" : "");
        if (refused)
            continue;
        EXPECT_EQ(program([&] {
                      static int value = 0;
                      resurrect(c.name.c_str(), &value, RELIC_INT);
                      std::printf("%d", value);
                  }),
                  "1\n3");
    }
}

TEST_F(Bury, NamesAreAddresses)
{
    EXPECT_EQ(program([] {
                  static int b = 1, c = 2, first = 3;
                  resurrect("table{b}", &b, RELIC_INT);
                  resurrect("table{deep}{c}", &c, RELIC_INT);
                  resurrect("list[0]", &first, RELIC_INT);
                  std::printf("%d", bury());
              }),
              "0\n0");
    EXPECT_EQ(program([] {
                  static int b, c, first;
                  resurrect("table{b}", &b, RELIC_INT);
                  resurrect("table{deep}{c}", &c, RELIC_INT);
                  resurrect("list[0]", &first, RELIC_INT);
                  std::printf("%d %d %d", b, c, first);
              }),
              "1\n1 2 3");
}

TEST_F(Bury, ANameThatDoesNotFitIsToldAndTheRestSaved)
{
    const Ended ended = untagged([&] {
        static int one = 1, two = 2, three = 3;
        open();
        resurrect("a", &one, RELIC_INT);
        resurrect("a{b}", &two, RELIC_INT);
        resurrect("c", &three, RELIC_INT);
        std::printf("%d", bury());
    });
    EXPECT_EQ(ended.out, "-1");
    EXPECT_EQ(ended.err, "Can't save 'a{b}' in state file " + state + "\n");
    EXPECT_EQ(text(), "a\t1\nc\t3\n");
}

TEST_F(Bury, ANullStringIsSavedAsTheEmptyText)
{
    program([] {
        static char *none = nullptr;
        resurrect("none", &none, RELIC_STRING);
        bury();
    });
    EXPECT_EQ(program([] {
                  char *none = nullptr;
                  std::printf("%d", resurrect("none", &none, RELIC_STRING));
                  std::printf(" '%s'", none);
              }),
              "1\n0 ''");
}

// ---- Failures ----

// The state "count 1" is saved; then the second bury fails.
class BuryFails : public Bury {
protected:
    Ended failing(const std::function<void()> &prepare) const
    {
        return untagged([&] {
            static int count = 1;
            static std::string big(10000, 'x');
            static const char *text = big.c_str();
            open();
            resurrect("count", &count, RELIC_INT);
            std::printf("%d", bury());
            resurrect("big", &text, RELIC_STRING);
            prepare();
            std::printf(" %d", bury());
        });
    }
    void check(const Ended &ended, const std::string &complaint) const
    {
        EXPECT_EQ(ended.out, "0 -1");
        EXPECT_EQ(ended.err, complaint);
        EXPECT_EQ(ended.status, 0);
        EXPECT_EQ(text(), "count\t1\n");
        EXPECT_FALSE(fs::is_regular_file(state + "+"));  // it used to stay
    }
};

TEST_F(BuryFails, AShortWriteKeepsTheEarlierState)
{
    check(failing([] {
              const struct rlimit limit = {4000, RLIM_INFINITY};
              setrlimit(RLIMIT_FSIZE, &limit);
          }),
          "Wrote 4000 bytes to alternate state file " + state + "+ instead of 10013\n");
}

TEST_F(BuryFails, AWriteBeyondTheLimitOfFileSizesKeepsTheEarlierState)
{
    check(failing([] {
              const struct rlimit limit = {0, RLIM_INFINITY};
              setrlimit(RLIMIT_FSIZE, &limit);
          }),
          "Wrote -1 bytes to alternate state file " + state +
              "+ instead of 10013\n"
              "\tFile too large\n");
}

TEST_F(BuryFails, AFullDiskKeepsTheEarlierState)
{
    check(failing([] { write_error = ENOSPC; }), "Wrote -1 bytes to alternate state file " + state +
                                                     "+ instead of 10013\n"
                                                     "\tNo space left on device\n");
}

TEST_F(BuryFails, AFlushThatFailsKeepsTheEarlierState)
{
    check(failing([] { fsync_error = EIO; }),
          "Can't close alternate state file " + state + "+\n\tInput/output error\n");
}

TEST_F(BuryFails, ARenameThatFailsKeepsTheEarlierState)
{
    check(failing([] { rename_error = EXDEV; }), "failed to rename state file " + state + "+ to " +
                                                     state + "\n\tInvalid cross-device link\n");
}

TEST_F(BuryFails, AnAlternateFileThatCannotBeOpenedKeepsTheEarlierState)
{
    check(failing([&] { fs::create_directory(state + "+"); }),
          "Can't write alternate state file " + state + "+\n\tIs a directory\n");
}

TEST_F(BuryFails, WhenTheCauseIsGoneTheNextBurialSucceeds)
{
    const Ended ended = untagged([&] {
        static int count = 1;
        open();
        resurrect("count", &count, RELIC_INT);
        rename_error = EIO;
        std::printf("%d", bury());
        rename_error = 0;
        std::printf(" %d", bury());
    });
    EXPECT_EQ(ended.out, "-1 0");
    EXPECT_EQ(text(), "count\t1\n");
}

// ---- Values there and back ----

TEST(BuryValues, IntsComeBack)
{
    for (const int value : {0, -1, INT_MAX, INT_MIN}) {
        SCOPED_TRACE(value);
        EXPECT_EQ(there_and_back(value, RELIC_INT), value);
    }
}

TEST(BuryValues, DoublesComeBackTo15Digits)
{
    for (const double value : {0.0, -0.5, 1e10, 1e-10, -123456.789, DBL_MIN, DBL_MAX, -DBL_MAX}) {
        SCOPED_TRACE(value);
        EXPECT_NEAR(there_and_back(value, RELIC_DOUBLE), value, std::fabs(value) * 1e-14);
    }
    EXPECT_EQ(there_and_back(HUGE_VAL, RELIC_DOUBLE), HUGE_VAL);
    EXPECT_EQ(there_and_back(-HUGE_VAL, RELIC_DOUBLE), -HUGE_VAL);
    EXPECT_TRUE(std::isnan(there_and_back(std::nan(""), RELIC_DOUBLE)));
}

TEST_F(Bury, ANumberBeyondTheLargestIsInfiniteAsItIsToAtof)
{
    dir.file("state", "a 1e400\nb -1e400\nc 1.8e308\nd 1e-400\n");
    EXPECT_EQ(program([] {
                  for (const char *name : {"a", "b", "c", "d"}) {
                      double value = 7;
                      resurrect(name, &value, RELIC_DOUBLE);
                      std::printf("%g ", value);
                  }
              }),
              "1\ninf -inf inf 0 ");
}

TEST(BuryValues, TimesComeBackToTheMillisecond)
{
    for (const double value :
         {0.0, -0.5, -1.0, -1e9 - 0.25, -6.2e10, 1.2e9 + 0.125, 1763731029.999, 4e9}) {
        SCOPED_TRACE(value);
        EXPECT_DOUBLE_EQ(there_and_back(value, RELIC_TIME), value);
    }
}

TEST(BuryValues, StringsComeBackExactly)
{
    for (const char *value : {"plain",
                              "",
                              " blanks around ",
                              "\ttab\t",
                              "a # no comment",
                              "#",
                              "{",
                              "}",
                              "{}",
                              "}{",
                              "two\nlines",
                              "\n",
                              "ends in newline\n",
                              "back\\slash",
                              "\\",
                              "\"quoted\"",
                              "it's",
                              "}\n{ \"EndOfLiteral ` ' ( [ <\n",
                              "&",
                              "a & b",
                              "&Literal",
                              "&Literal word",
                              "&Literally",
                              "&Arr{",
                              "&Tbl{\n}",
                              "&env(HOME)",
                              "&env(HOME",
                              "&{",
                              "&(",
                              "text &env(HOME)",
                              "two\n&Tbl{\nlines",
                              "\x01\x7f\xff",
                              "\xc3\xa4"}) {
        SCOPED_TRACE(value);
        EXPECT_EQ(string_and_back(value), value);
    }
}

// A reference is expanded when it is read, as in all parameter text.
TEST_F(Bury, ANameOfAnotherValueBehindAnAmpersandIsThatValue)
{
    program([] {
        static int count = 5;
        static const char *note = "&count or &none";
        resurrect("count", &count, RELIC_INT);
        resurrect("note", &note, RELIC_STRING);
        bury();
    });
    EXPECT_EQ(text(), "count\t5\nnote\t&count or &none\n");
    EXPECT_EQ(program([] {
                  char *note = nullptr;
                  resurrect("note", &note, RELIC_STRING);
                  std::printf("%s", note);
              }),
              "1\n5 or &none");
}

// ---- Locking ----

TEST_F(Bury, ASecondProcessIsRefused)
{
    const Waiting first([&] { open(); });
    const Ended second = untagged([&] { open(); });
    EXPECT_EQ(second.err, "*fatal* Can't lock state file '" + state + kInUse +
                              "\tResource temporarily unavailable\n");
    EXPECT_EQ(second.status, 1);
}

TEST_F(Bury, ASecondProcessIsRefusedAfterBurialsToo)
{
    for (int burials = 1; burials <= 3; ++burials) {
        const Waiting first([&] {
            open();
            for (int i = 0; i < burials; ++i)
                bury();
        });
        EXPECT_THAT(untagged([&] { open(); }).err, HasSubstr(kInUse));
    }
    EXPECT_EQ(program([] {}), "1\n");
}

TEST_F(Bury, OnAnotherHostsFileSystemItGoesWithoutALock)
{
    const Ended ended = untagged([&] {
        static int count = 1;
        is_remote = true;
        lock_error = ENOLCK;
        std::printf("%d", open());
        resurrect("count", &count, RELIC_INT);
        std::printf(" %d", bury());
    });
    EXPECT_EQ(ended.out, "0 0");
    EXPECT_EQ(ended.err, "Can't lock '" + state +
                             "' on an nfs filesystem: proceeding without lock\n"
                             "\tNo locks available\n");
    EXPECT_EQ(text(), "count\t1\n");
}

TEST_F(Bury, TheRefusedProcessSavesNothing)
{
    const Waiting first([&] {
        static int count = 1;
        open();
        resurrect("count", &count, RELIC_INT);
        bury();
    });
    const Ended second = untagged([&] {
        std::atexit([] { bury(); });
        open();
    });
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(text(), "count\t1\n");
}

// Between open and lock another process replaces the file. The lock of the old file is free.
TEST_F(Bury, ALockOnAFileThatLostItsNameIsNotEnough)
{
    static std::atomic<int> *step;
    step = static_cast<std::atomic<int> *>(
        mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const pid_t first = fork();
    if (first == 0) {
        open();
        for (*step = 1; *step != 2;)
            std::this_thread::yield();
        bury();
        for (*step = 3;;)
            pause();
    }
    while (*step != 1)
        std::this_thread::yield();
    const Ended second = untagged([&] {
        before_lock = [] {
            for (*step = 2; *step != 3;)
                std::this_thread::yield();
        };
        open();
    });
    kill(first, SIGKILL);
    waitpid(first, nullptr, 0);
    EXPECT_THAT(second.err, HasSubstr(kInUse));
    EXPECT_EQ(second.status, 1);
    munmap(step, sizeof(int));
}

// The file is not there when it is looked for. Before it is locked, another process has created
// it, saved its state and ended.
TEST_F(Bury, AFileThatAnotherProcessMadeMeanwhileIsRead)
{
    const Ended ended = untagged([&] {
        static std::string path = state;
        before_lock = [] { std::ofstream(path) << "count 9\n"; };
        int count = 0;
        std::printf("%d", open());
        std::printf(" %d", resurrect("count", &count, RELIC_INT));
        std::printf(" %d", count);
    });
    EXPECT_EQ(ended.out, "1 0 9");
}

// Eight processes open the state file at once. The one that gets it saves again and again until
// the others have ended. Then the next eight start.
TEST_F(Bury, OfEightProcessesExactlyOneEverHasTheFile)
{
    struct Shared {
        std::atomic<int> owners, over, burials;
    };
    auto *shared = static_cast<Shared *>(
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    constexpr int kProcesses = 8, kRounds = 25;
    for (int round = 0; round < kRounds; ++round) {
        shared->owners = shared->over = 0;
        for (int i = 0; i < kProcesses; ++i)
            if (fork() == 0) {
                elog_set(ELOG_DELIVER_FIELD, 4, "");
                std::this_thread::sleep_for(std::chrono::microseconds(500 * i));
                std::atexit([] { fflush(nullptr); });
                open();
                ++shared->owners;
                while (!shared->over && shared->owners == 1) {
                    bury();
                    ++shared->burials;
                }
                _exit(shared->owners == 1 ? 0 : 2);
            }
        for (int ended = 1; ended <= kProcesses; ++ended) {
            int status = 0;
            if (ended == kProcesses)
                shared->over = 1;
            waitpid(-1, &status, 0);
            EXPECT_EQ(WEXITSTATUS(status), ended == kProcesses ? 0 : 1);
        }
        EXPECT_EQ(shared->owners, 1);
        if (round % 5 == 0)
            fs::remove(state);  // the next eight compete to create it
    }
    EXPECT_GT(shared->burials, kRounds);
    munmap(shared, sizeof(Shared));
}

// A program that is killed at any moment leaves a whole state, not older than its last complete
// bury, and the next one continues from there.
TEST_F(Bury, AfterAKillTheStateIsWholeAndNeverOlderThanTheLastBurial)
{
    auto *buried = static_cast<std::atomic<int> *>(
        mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const auto filler = [](int count) {
        return std::string(static_cast<size_t>(count % 97) * 100, char('a' + count % 26)) + "end";
    };
    constexpr int kKills = 500;
    int seen = 0;
    unsigned seed = 7;
    for (int i = 0; i < kKills; ++i) {
        const pid_t pid = fork();
        if (pid == 0) {
            int count = 0;
            const char *text = nullptr;
            open();
            resurrect("count", &count, RELIC_INT);
            resurrect("text", &text, RELIC_STRING);
            for (;;) {
                ++count;
                const std::string longer = filler(count);
                text = longer.c_str();
                if (bury() != 0)
                    _exit(2);
                *buried = count;
            }
        }
        // Waits for none, one or two more burials, and then for a part of the next one.
        const int before = *buried;
        for (int waited = 0; *buried < before + i % 3 && waited < 20'000; ++waited)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        seed = seed * 1103515245 + 12345;
        std::this_thread::sleep_for(std::chrono::microseconds((seed >> 8) % 5000));
        kill(pid, SIGKILL);
        int status = 0;
        waitpid(pid, &status, 0);
        ASSERT_EQ(WTERMSIG(status), SIGKILL);

        const std::string saved = text();
        if (saved.empty() && *buried == 0)
            continue;
        Pf *tree = nullptr;
        ASSERT_EQ(pfcompile(saved.c_str(), &tree), 0);
        const PfPtr owner(tree);
        const int count = static_cast<int>(pfget_int(tree, "count"));
        ASSERT_GE(count, *buried);
        ASSERT_LE(count, *buried + 1);
        ASSERT_EQ(pfget_string(tree, "text"), filler(count));
        *buried = seen = count;
    }
    EXPECT_GT(seen, kKills / 5);
    munmap(buried, sizeof(int));
}

// ---- Stop signals ----

TEST_F(Bury, WithoutGraceTheSignalSavesAndEnds)
{
    for (const int sig : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
        SCOPED_TRACE(sig);
        const Ended ended = untagged([&] {
            static volatile int flag;
            static int count;
            open(&flag, 0);
            resurrect("count", &count, RELIC_INT);
            count = sig;
            std::atexit([] { std::printf("flag %d", flag); });
            std::raise(sig);
        });
        EXPECT_EQ(ended.status, 1);
        EXPECT_EQ(ended.out, "flag " + std::to_string(sig));
        EXPECT_EQ(ended.err, "");
        EXPECT_EQ(text(), "count\t" + std::to_string(sig) + "\n");
    }
}

TEST_F(Bury, WithNegativeGraceTheSignalOnlySetsTheFlag)
{
    for (const int sig : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
        const Ended ended = untagged([&] {
            volatile int flag;
            int count = 1;
            open(&flag, -1);
            resurrect("count", &count, RELIC_INT);
            errno = EIO;
            std::raise(sig);
            const int error = errno;
            struct itimerval timer;
            getitimer(ITIMER_REAL, &timer);
            std::printf("%d %d %d", flag, error, timer.it_value.tv_sec > 0);
        });
        EXPECT_EQ(ended.out, std::to_string(sig) + " 5 0");
        EXPECT_EQ(ended.status, 0);
        EXPECT_EQ(text(), "");
    }
}

TEST_F(Bury, WithGraceEachSignalSetsTheFlagAndStartsTheTimer)
{
    for (const int sig : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
        const Ended ended = untagged([&] {
            volatile int flag;
            open(&flag, 5);
            errno = EIO;
            std::raise(sig);
            const int error = errno;
            struct itimerval timer;
            getitimer(ITIMER_REAL, &timer);
            std::printf("%d %d %d", flag, error, timer.it_value.tv_sec >= 4);
        });
        EXPECT_EQ(ended.out, std::to_string(sig) + " 5 1");
        EXPECT_EQ(ended.status, 0);
    }
}

TEST_F(Bury, WithGraceTheStateIsSavedAndTheProgramDiesInTime)
{
    const Ended ended = untagged([&] {
        volatile int flag;
        int count = 2;
        open(&flag, 1);
        resurrect("count", &count, RELIC_INT);
        std::raise(SIGHUP);
        std::printf("%d\n", flag);
        for (;;)
            pause();
    });
    EXPECT_EQ(ended.out, "1\n");
    EXPECT_THAT(ended.err, HasSubstr("quitting from resurrection alarm\n"));
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(text(), "count\t2\n");
}

TEST_F(Bury, ABurialWithinTheGraceStopsTheAlarm)
{
    const Ended ended = untagged([&] {
        volatile int flag;
        open(&flag, 1);
        std::raise(SIGTERM);
        bury();
        std::this_thread::sleep_for(std::chrono::milliseconds(1300));
        std::printf("alive");
    });
    EXPECT_EQ(ended.out, "alive");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
}

TEST_F(Bury, WithoutAFlagSignalsAreLeftAlone)
{
    const Ended ended = untagged([&] {
        open();
        std::raise(SIGTERM);
    });
    EXPECT_EQ(ended.signal, SIGTERM);
}

TEST_F(Bury, TheHandlerDiesWithoutAGrave)
{
    const Ended ended = untagged([] { signal_handler(SIGTERM); });
    EXPECT_THAT(ended.err, HasSubstr("*stack*Unexpected failure: signal_handler in file "));
    EXPECT_THAT(ended.err, HasSubstr("bury.cpp, line 129\n"));
    EXPECT_EQ(ended.status, 1);
}

TEST_F(Bury, WithoutATimerTheHandlerDiesAndSaves)
{
    const Ended ended = untagged([&] {
        static int count = 3;
        volatile int flag;
        open(&flag, 5);
        resurrect("count", &count, RELIC_INT);
        timer_error = EINVAL;
        std::raise(SIGTERM);
    });
    EXPECT_EQ(ended.err, "setitimer fails\n\tInvalid argument\nfailed to set timer\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(text(), "count\t3\n");
}

// ---- Inside a burial ----

TEST_F(Bury, InsideABurialItCannotBeCalledAgain)
{
    EXPECT_EQ(untagged([&] {
                  open(nullptr, 0, [](Pf *) {
                      static int late = 1;
                      std::printf("%d %d %d ", bury(), resurrect("late", &late, RELIC_INT),
                                  gravesite() != nullptr);
                  });
                  std::printf("%d", bury());
              }).out,
              "-1 1 1 0");
    EXPECT_EQ(text(), "late\t1\n");
}

TEST_F(Bury, AProgramThatDiesInsideABurialEnds)
{
    dir.file("state", "count 5\n");
    const Ended ended = untagged([&] {
        open(nullptr, 0, [](Pf *) { elog_die(0, "inside"); });
        bury();
    });
    EXPECT_EQ(ended.err, "inside\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(text(), "count 5\n");
}

TEST_F(Bury, ASignalInsideABurialEndsTheProcessBehindIt)
{
    const Ended ended = untagged([&] {
        static volatile int flag;
        static int count = 8;
        open(&flag, 0, [](Pf *pf) {
            if (!flag)
                std::raise(SIGTERM);
            pfput_string(pf, "extra", "whole");
        });
        resurrect("count", &count, RELIC_INT);
        std::printf("%d", bury());
    });
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(text(), "count\t8\nextra\twhole\n");
}

TEST_F(Bury, ABurialThatNeverEndsIsGivenUp)
{
    const Ended ended = untagged([&] {
        static volatile int flag;
        open(&flag, 0, [](Pf *) {
            std::raise(SIGTERM);
            for (;;)
                pause();
        });
        bury();
    });
    EXPECT_EQ(ended.err, "bury_test *fatal*: the state could not be saved in time\n");
    EXPECT_EQ(ended.status, 1);
}

// The signal handler itself saves, and may have interrupted a lock that saving waits for.
TEST_F(Bury, ABurialOfTheHandlerThatNeverEndsIsGivenUpThoughAlarmsAreBlocked)
{
    const Ended ended = untagged([&] {
        static volatile int flag;
        open(&flag, 0, [](Pf *) {
            for (;;)
                pause();
        });
        in_a_hurry = true;
        sigset_t alarm;
        sigemptyset(&alarm);
        sigaddset(&alarm, SIGALRM);
        sigprocmask(SIG_BLOCK, &alarm, nullptr);
        std::raise(SIGTERM);
    });
    EXPECT_EQ(ended.err, "bury_test *fatal*: the state could not be saved in time\n");
    EXPECT_EQ(ended.status, 1);
}

TEST_F(Bury, AnAlarmInsideABurialSavesAndEndsTheProcessBehindIt)
{
    const Ended ended = untagged([&] {
        static volatile int flag;
        static int count = 8;
        open(&flag, 1, [](Pf *pf) {
            if (!flag) {
                std::raise(SIGTERM);
                std::this_thread::sleep_for(std::chrono::milliseconds(1300));
            }
            pfput_string(pf, "extra", "whole");
        });
        resurrect("count", &count, RELIC_INT);
        std::printf("%d", bury());
    });
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "quitting from resurrection alarm\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(text(), "count\t8\nextra\twhole\n");
}

// The program saves after a stop signal, as it should, and the disk does not answer.
TEST_F(Bury, ABurialThatBlocksWhileTheGraceRunsOutIsGivenUp)
{
    const Ended ended = untagged([&] {
        static volatile int flag;
        in_a_hurry = true;
        open(&flag, 1, [](Pf *) {
            for (;;)
                pause();
        });
        elog_log(0, "a message that waits");
        std::raise(SIGTERM);
        bury();
    });
    EXPECT_EQ(ended.err, "bury_test *fatal*: the state could not be saved in time\n"
                         "a message that waits\n");
    EXPECT_EQ(ended.status, 1);
}

TEST_F(Bury, ABurialThatBlocksInAnotherThreadIsGivenUp)
{
    const Ended ended = untagged([&] {
        static volatile int flag;
        in_a_hurry = true;
        open(&flag, 1, [](Pf *) {
            for (;;)
                pause();
        });
        std::thread([] {
            sigset_t alarm;
            sigemptyset(&alarm);
            sigaddset(&alarm, SIGALRM);
            pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
            bury();
        }).detach();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        for (std::raise(SIGTERM);;)
            pause();
    });
    EXPECT_EQ(ended.err, "bury_test *fatal*: the state could not be saved in time\n");
    EXPECT_EQ(ended.status, 1);
}

// The grace is over while the program saves, and saving then ends within the limit.
TEST_F(Bury, ABurialThatOutlastsTheGraceStopsTheAlarm)
{
    const Ended ended = untagged([&] {
        static volatile int flag;
        in_a_hurry = true;
        open(&flag, 1, [](Pf *) {
            for (const double end = std_now() + 1.5; std_now() < end;)
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
        });
        std::raise(SIGTERM);
        std::printf("%d ", bury());
        struct itimerval timer;
        getitimer(ITIMER_REAL, &timer);
        std::printf("%ld %ld", static_cast<long>(timer.it_value.tv_sec),
                    static_cast<long>(timer.it_value.tv_usec));
    });
    EXPECT_EQ(ended.out, "0 0 0");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
}

TEST_F(Bury, ASignalDuringSuchABurialHasItsOwnGrace)
{
    const Ended ended = untagged([&] {
        static volatile int flag;
        open(&flag, 1, [](Pf *) {
            static bool first = true;
            if (!std::exchange(first, false))
                return;
            for (const double end = std_now() + 1.5; std_now() < end;)
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
            std::raise(SIGINT);
        });
        std::raise(SIGTERM);
        std::printf("%d", bury());
        std::printf(" %d\n", flag);
        for (;;)
            pause();
    });
    EXPECT_EQ(ended.out, "0 2\n");
    EXPECT_EQ(ended.err, "quitting from resurrection alarm\n");
    EXPECT_EQ(ended.status, 1);
}

// The alarm saves the state, and then a function that runs at exit blocks.
TEST_F(Bury, AnEndThatBlocksBehindTheBurialIsGivenUp)
{
    const Ended ended = untagged([&] {
        static volatile int flag;
        static int count = 4;
        in_a_hurry = true;
        open(&flag, 1);
        resurrect("count", &count, RELIC_INT);
        std::atexit([] {
            for (;;)
                pause();
        });
        for (std::raise(SIGTERM);;)
            pause();
    });
    EXPECT_EQ(ended.err, "quitting from resurrection alarm\n"
                         "bury_test *fatal*: could not exit in time\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(text(), "count\t4\n");
}

TEST_F(Bury, ASecondSignalDoesNotPutOffTheLimit)
{
    const Ended ended = untagged([&] {
        static volatile int flag;
        in_a_hurry = true;
        open(&flag, 1, [](Pf *) {
            for (;;) {
                std::raise(SIGTERM);
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
        });
        for (std::raise(SIGTERM);;)
            pause();
    });
    EXPECT_EQ(ended.err, "bury_test *fatal*: the state could not be saved in time\n");
    EXPECT_EQ(ended.status, 1);
}

// A process that calls bury again and again, and counts the calls.
class BuryingProcess {
public:
    BuryingProcess(const char *state, int grace)
    {
        pid_ = fork();
        if (pid_ == 0) {
            static volatile int flag;
            static int count;
            elog_set(ELOG_DELIVER_FIELD, -1, "");
            exhume(state, &flag, grace, nullptr);
            resurrect("count", &count, RELIC_INT);
            for (;;) {
                ++count;
                bury();
                ++*burials_;
            }
        }
        while (*burials_ == 0)
            std::this_thread::yield();
    }
    ~BuryingProcess() { munmap(burials_, sizeof(int)); }
    BuryingProcess(const BuryingProcess &) = delete;
    BuryingProcess &operator=(const BuryingProcess &) = delete;

    int burials() const { return *burials_; }
    void signal(int sig) const { kill(pid_, sig); }
    bool lives() const { return waitpid(pid_, nullptr, WNOHANG) == 0; }
    // Waits until the process ends.
    int status() const
    {
        int status = 0;
        waitpid(pid_, &status, 0);
        return status;
    }

private:
    std::atomic<int> *burials_ = static_cast<std::atomic<int> *>(
        mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    pid_t pid_;
};

TEST_F(Bury, StopSignalsDuringBurialsEndTheProcessWithItsStateSaved)
{
    unsigned seed = 3;
    for (int i = 0; i < 100; ++i) {
        fs::remove(state);
        const BuryingProcess program(state.c_str(), 0);
        seed = seed * 1103515245 + 12345;
        std::this_thread::sleep_for(std::chrono::microseconds((seed >> 8) % 5000));
        program.signal(SIGTERM);
        program.signal(SIGINT);
        const int status = program.status();
        ASSERT_EQ(WTERMSIG(status), 0);
        ASSERT_EQ(WEXITSTATUS(status), 1);
        Pf *tree = nullptr;
        ASSERT_EQ(pfcompile(text().c_str(), &tree), 0);
        const PfPtr owner(tree);
        EXPECT_GE(pfget_int(tree, "count"), program.burials());
    }
}

TEST_F(Bury, AProgramThatGoesOnBuryingOutlivesItsGrace)
{
    const BuryingProcess program(state.c_str(), 1);
    program.signal(SIGTERM);
    std::this_thread::sleep_for(std::chrono::milliseconds(1300));
    EXPECT_TRUE(program.lives());
    program.signal(SIGKILL);
    EXPECT_EQ(program.status(), SIGKILL);
}

TEST(BuryThreads, RegisterAndBuryAtTheSameTime)
{
    const TempDir dir;
    const std::string state = dir / "state";
    const Ended ended = untagged([&] {
        static int values[8];
        static volatile int flag;
        exhume(state.c_str(), &flag, -1, nullptr);
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([i] {
                values[i] = i;
                for (int round = 0; round < 20; ++round) {
                    resurrect(("value" + std::to_string(i)).c_str(), &values[i], RELIC_INT);
                    custom_gravesite("elsewhere");
                    if (bury() != 0 || !gravesite())
                        _exit(2);
                    std::raise(SIGTERM);
                }
            });
        for (std::thread &thread : threads)
            thread.join();
    });
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
    for (int i = 0; i < 8; ++i)
        EXPECT_THAT(read_file(state),
                    HasSubstr("value" + std::to_string(i) + "\t" + std::to_string(i) + "\n"));
}
