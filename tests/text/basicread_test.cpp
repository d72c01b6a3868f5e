// Reading a file without the message log.

#include "stock/basicread.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/child.h"
#include "support/owners.h"
#include "support/temp_dir.h"

using testing::ElementsAre;

namespace {

// Checks that basicreadfile refuses the path and gives nothing. Returns what it prints.
std::string refusal(const std::string &path)
{
    return in_child([&] {
               char *buffer = reinterpret_cast<char *>(8);
               int64_t size = 99;
               const int result = basicreadfile(path.c_str(), &buffer, &size);
               if (result != -1 || buffer || size)
                   _exit(9);
           })
        .err;
}

struct Step {
    std::string line;
    int result;
    bool operator==(const Step &) const = default;
};

std::vector<Step> steps(const std::string &text, int size)
{
    std::vector<Step> all;
    int64_t position = 0;
    for (int result = 1; result == 1;) {
        std::string line(static_cast<size_t>(size) + 1, '#');
        result = basicgetline(text.data(), static_cast<int64_t>(text.size()), &position,
                              line.data(), size);
        EXPECT_EQ(line[static_cast<size_t>(size)], '#');  // nothing is written behind the buffer
        all.push_back({line.c_str(), result});
    }
    return all;
}

bool fail_fstat = false;
bool fail_close = false;

// The C library's own function of a name that this program defines itself.
template <class Function>
Function *original(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// These call the C library's own, then fail when a test asks for it.
extern "C" int fstat(int fd, struct stat *status) noexcept
{
    const int result = original<int(int, struct stat *)>("fstat")(fd, status);
    if (fail_fstat)
        errno = EIO;
    return fail_fstat ? -1 : result;
}

extern "C" int close(int fd)
{
    const int result = original<int(int)>("close")(fd);
    if (fail_close)
        errno = EIO;
    return fail_close ? -1 : result;
}

TEST(Basicreadfile, ReadsTheWholeFileAndTerminatesIt)
{
    const TempDir dir;
    const std::string text("one\0two\n", 8);
    char *buffer = nullptr;
    int64_t size = 0;
    ASSERT_EQ(basicreadfile(dir.file("f", text).c_str(), &buffer, &size), 0);
    const Text owned(buffer);
    EXPECT_EQ(size, 9);
    EXPECT_EQ(std::string(buffer, 8), text);
    EXPECT_EQ(buffer[8], 0);
}

TEST(Basicreadfile, ReadsMegabytes)
{
    const TempDir dir;
    const std::string text(10'000'000, 'm');
    char *buffer = nullptr;
    int64_t size = 0;
    ASSERT_EQ(basicreadfile(dir.file("f", text).c_str(), &buffer, &size), 0);
    const Text owned(buffer);
    EXPECT_EQ(size, 10'000'001);
    EXPECT_TRUE(text == buffer);
}

TEST(Basicreadfile, SaysThatItCannotOpenTheFile)
{
    EXPECT_EQ(refusal("/nowhere/f"), "Can't open '/nowhere/f' : No such file or directory\n");
}

TEST(Basicreadfile, SaysThatTheFileIsEmpty)
{
    const TempDir dir;
    const std::string path = dir.file("f", "");
    EXPECT_EQ(refusal(path), "'" + path + "' is empty!\n");
}

TEST(Basicreadfile, SaysWithoutNewlineThatItCannotRead)
{
    const TempDir dir;
    std::string err = refusal(dir.path());
    if (err == "'" + dir.path() + "' is empty!\n")  // a file system whose directories have no size
        err = refusal("/");
    EXPECT_THAT(err, testing::MatchesRegex("failed to read .* : Is a directory"));
}

TEST(Basicreadfile, SaysThatItCannotTellTheSize)
{
    const TempDir dir;
    const std::string path = dir.file("f", "text");
    fail_fstat = true;
    EXPECT_EQ(refusal(path), "fstat failed for '" + path + "' : Input/output error\n");
    fail_fstat = false;
}

TEST(Basicreadfile, FailsWhenTheFileDoesNotClose)
{
    const TempDir dir;
    const std::string path = dir.file("f", "text");
    const Ended ended = in_child([&] {
        char *buffer = nullptr;
        int64_t size = 0;
        fail_close = true;
        _exit(basicreadfile(path.c_str(), &buffer, &size) == -1 && !buffer && !size ? 0 : 9);
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "failed to close '" + path + "' : Input/output error\n");
}

TEST(Basicreadfile, ClosesTheDescriptorWhateverHappens)
{
    const TempDir dir;
    const std::string path = dir.file("f", "text");
    const std::string empty = dir.file("e", "");
    const int before = dup(0);
    close(before);
    char *buffer = nullptr;
    int64_t size = 0;
    testing::internal::CaptureStderr();
    for (const std::string &name : {path, empty, dir.path()}) {
        basicreadfile(name.c_str(), &buffer, &size);
        free(buffer);
    }
    testing::internal::GetCapturedStderr();
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

TEST(Basicreadfile, RefusesANullPath)
{
    const Ended ended = in_child([] {
        char *buffer = nullptr;
        int64_t size = 0;
        _exit(basicreadfile(nullptr, &buffer, &size) == -1 ? 0 : 9);
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "Can't open '<null>' : Bad address\n");
}

TEST(Basicgetline, GivesLineAfterLineAndZeroWithTheLast)
{
    EXPECT_THAT(steps("one\n\ntwo\n", 80),
                ElementsAre(Step{"one", 1}, Step{"", 1}, Step{"two", 0}));
    EXPECT_THAT(steps("one\ntwo", 80), ElementsAre(Step{"one", 1}, Step{"two", 0}));
    EXPECT_THAT(steps("", 80), ElementsAre(Step{"", 0}));
    EXPECT_THAT(steps("\n", 80), ElementsAre(Step{"", 0}));
}

TEST(Basicgetline, MovesThePositionOnePastTheStoppingPoint)
{
    char line[10];
    int64_t position = 0;
    EXPECT_EQ(basicgetline("ab\ncd", 5, &position, line, 10), 1);
    EXPECT_EQ(position, 3);
    EXPECT_EQ(basicgetline("ab\ncd", 5, &position, line, 10), 0);
    EXPECT_EQ(position, 6);
}

TEST(Basicgetline, SkipsTheFourthCharacterOfALongLineWithSize4)
{
    EXPECT_THAT(steps("abcdefgh\n", 4), ElementsAre(Step{"abc", 1}, Step{"efg", 1}, Step{"", 0}));
    EXPECT_THAT(steps("abc\nd", 4), ElementsAre(Step{"abc", 1}, Step{"d", 0}));
}

TEST(Basicgetline, TakesZeroBytesForText)
{
    const std::string text("a\0b\nc", 5);
    char line[10];
    int64_t position = 0;
    EXPECT_EQ(basicgetline(text.data(), 5, &position, line, 10), 1);
    EXPECT_EQ(std::string(line, 4), std::string("a\0b\0", 4));
}

TEST(Basicgetline, GivesAnEmptyLineOutsideTheText)
{
    for (int64_t start : {int64_t{5}, int64_t{6}, int64_t{-1}, INT64_MAX, INT64_MIN}) {
        char line[] = "###";
        int64_t position = start;
        EXPECT_EQ(basicgetline("ab\ncd", 5, &position, line, 3), 0);
        EXPECT_STREQ(line, "");
    }
    char line[] = "###";
    int64_t position = 0;
    EXPECT_EQ(basicgetline(nullptr, 5, &position, line, 3), 0);
    EXPECT_STREQ(line, "");
}

TEST(Basicgetline, LeavesEverythingAloneForALineOfNoBytes)
{
    for (int size : {0, -1, INT_MIN}) {
        char line[] = "###";
        int64_t position = 0;
        EXPECT_EQ(basicgetline("abc", 3, &position, line, size), 0);
        EXPECT_STREQ(line, "###");
        EXPECT_EQ(position, 0);
    }
}
