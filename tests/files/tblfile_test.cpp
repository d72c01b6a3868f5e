// Lists in files: the image to the byte, reading it back, growing it, and every
// file that is no list.

#include "stock/tblfile.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/child.h"
#include "support/logged.h"
#include "support/nobody.h"
#include "support/owners.h"
#include "support/printed.h"
#include "support/temp_dir.h"

// The program replaces two system calls.

namespace {

bool read_fails = false;
std::function<void(const char *from)> before_rename;

}  // namespace

extern "C" {

ssize_t pread(int fd, void *to, size_t size, off_t offset)
{
    static auto *const next = reinterpret_cast<decltype(pread) *>(dlsym(RTLD_NEXT, "pread"));
    if (!read_fails)
        return next(fd, to, size, offset);
    errno = EIO;
    return -1;
}

int rename(const char *from, const char *to) noexcept
{
    static auto *const next = reinterpret_cast<decltype(rename) *>(dlsym(RTLD_NEXT, "rename"));
    if (before_rename)
        before_rename(from);
    return next(from, to);
}
}

namespace {

using testing::EndsWith;
using testing::HasSubstr;

struct Point {
    int64_t x, y;
    bool operator==(const Point &) const = default;
};
constexpr Point kNowhere{-1, -1};

constexpr size_t kRecordSize = 96;

TblPtr points(int64_t n, const Point *null_value = nullptr)
{
    TblPtr tbl(inittbl(0, 0, 1, null_value, sizeof(Point)));
    for (int64_t i = 0; i < n; ++i) {
        const Point point{i, -i};
        pushtbl(tbl.get(), &point);
    }
    return tbl;
}

void expect_points(const Tbl *tbl, int64_t n)
{
    ASSERT_EQ(tbl->count, n);
    for (int64_t i = 0; i < n; ++i)
        ASSERT_EQ(*static_cast<Point *>(gettbl(tbl, i)), (Point{i, -i})) << i;
}

std::string image_of(const Tbl *tbl, const char *comment)
{
    return printed([&](FILE *stream) { EXPECT_EQ(writetbl(tbl, stream, comment), 0); });
}

std::string bytes_of(const void *bytes, size_t n)
{
    return {static_cast<const char *>(bytes), n};
}

template <class T>
std::string bytes_of(const T &value)
{
    return bytes_of(&value, sizeof value);
}

// The image of a file without a comment, whose record the caller changes.
std::string spoiled(const std::function<void(Tbl &)> &spoil, const Point *null_value = nullptr)
{
    std::string image = image_of(points(3, null_value).get(), nullptr);
    Tbl record;
    memcpy(&record, &image[16], sizeof record);
    spoil(record);
    memcpy(&image[16], &record, sizeof record);
    return image;
}

class Tblfile : public testing::Test {
protected:
    Tblfile() { elog_clear(); }

    std::string saved(const TblPtr &tbl, const char *comment = nullptr,
                      const std::string &name = "list") const
    {
        const std::string path = dir / name;
        EXPECT_EQ(savetbl(tbl.get(), path.c_str(), comment), 0);
        return path;
    }

    // What readtbl logs over a file of these bytes, the file's name cut out.
    std::string refused(const std::string &bytes, int writable) const
    {
        const std::string path = dir.file("bad", bytes);
        char *comment = const_cast<char *>("untouched");
        errno = ENOENT;  // an old error, which is not the reason
        EXPECT_EQ(readtbl(path.c_str(), &comment, writable), nullptr);
        EXPECT_EQ(read_file(path), bytes);
        std::string log = take_log();
        const size_t name = log.find(path);
        if (name != std::string::npos)
            log.replace(name, path.size(), "FILE");
        return log;
    }

    TempDir dir;
    const TblPtr untouched = points(0);  // what an argument holds before the call
};

using Writetbl = Tblfile;
using Savetbl = Tblfile;
using Readtbl = Tblfile;
using Filetbl = Tblfile;
using MappedTbl = Tblfile;

TblPtr opened(const std::string &path, int writable = 1)
{
    return TblPtr(readtbl(path.c_str(), nullptr, writable));
}

// Writing.

TEST_F(Writetbl, WritesMagicRecordAndSlotsWithoutAComment)
{
    const TblPtr tbl = points(3);
    const std::string expected = "#FileTbl" + std::string(8, '\0') + bytes_of(*tbl) +
                                 bytes_of(tbl->base, 10 * sizeof(Point));
    EXPECT_EQ(image_of(tbl.get(), nullptr), expected);
}

TEST_F(Writetbl, PadsTheCommentToEight)
{
    const TblPtr tbl = points(0);
    const struct {
        std::string comment;
        uint32_t k;
    } cases[] = {{"", 8}, {"1234567", 8}, {"12345678", 16}, {std::string(15, 'c'), 16}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.comment);
        std::string area = c.comment;
        area.resize(c.k, '\0');
        EXPECT_EQ(image_of(tbl.get(), c.comment.c_str()),
                  "#FileTbl" + bytes_of(c.k) + std::string(4, '\0') + area + bytes_of(*tbl));
    }
}

TEST_F(Writetbl, PadsTheNullValueToEight)
{
    for (int size : {1, 7, 8, 9, 16}) {
        SCOPED_TRACE(size);
        const std::string null_value(static_cast<size_t>(size), 'n');
        const TblPtr tbl(inittbl(0, 2, 1, null_value.data(), size));
        pushtbl(tbl.get(), nullptr);
        std::string padded = null_value;
        padded.resize((null_value.size() + 7) / 8 * 8, '\0');
        EXPECT_EQ(image_of(tbl.get(), nullptr), "#FileTbl" + std::string(8, '\0') + bytes_of(*tbl) +
                                                    padded + null_value + null_value);
    }
}

TEST_F(Writetbl, WritesFreeFrontSlotsFirst)
{
    const TblPtr tbl = points(4);
    shifttbl(tbl.get());
    shifttbl(tbl.get());
    const std::string image = image_of(tbl.get(), nullptr);
    EXPECT_EQ(image.substr(16 + kRecordSize),
              bytes_of(static_cast<Point *>(tbl->base) - 2, 10 * sizeof(Point)));
}

TEST_F(Writetbl, WritesAtTheStreamsPosition)
{
    const TblPtr tbl = points(1);
    const std::string text = printed([&](FILE *stream) {
        fputs("before", stream);
        writetbl(tbl.get(), stream, "c");
        fputs("behind", stream);
    });
    EXPECT_EQ(text, "before" + image_of(tbl.get(), "c") + "behind");
}

TEST_F(Writetbl, FailsOnAFullDisk)
{
    const Stream full(fopen("/dev/full", "w"));
    EXPECT_EQ(writetbl(points(100'000).get(), full.get(), nullptr), -1);
    const Stream unbuffered(fopen("/dev/full", "w"));
    setvbuf(unbuffered.get(), nullptr, _IONBF, 0);
    EXPECT_EQ(writetbl(points(0).get(), unbuffered.get(), nullptr), -1);
}

TEST_F(Writetbl, DoesNotNoticeThatTheFourZeroBytesAtOffset12AreLost)
{
    static int calls;
    calls = 0;
    struct ThirdCallFails {
        static ssize_t write(void *, const char *, size_t size)
        {
            return ++calls == 3 ? 0 : static_cast<ssize_t>(size);
        }
    };
    const Stream stream(
        fopencookie(nullptr, "w", {nullptr, ThirdCallFails::write, nullptr, nullptr}));
    setvbuf(stream.get(), nullptr, _IONBF, 0);
    EXPECT_EQ(writetbl(points(0).get(), stream.get(), nullptr), 0);
    EXPECT_GT(calls, 3);
}

TEST_F(Savetbl, CreatesMissingDirectories)
{
    const std::string path = saved(points(3), "points", "a/b/list");
    EXPECT_EQ(read_file(path).size(), 16U + 8 + kRecordSize + 10 * sizeof(Point));
}

TEST_F(Savetbl, OverwritesWhatIsThere)
{
    const std::string path = dir.file("list", std::string(100'000, 'x'));
    saved(points(2));
    expect_points(opened(path).get(), 2);
}

TEST_F(Savetbl, SaysWhatItCannotOpen)
{
    const std::string path = dir / "directory";
    mkdir(path.c_str(), 0777);
    EXPECT_EQ(savetbl(points(1).get(), path.c_str(), nullptr), -1);
    EXPECT_EQ(take_log(), "Can't open " + path + " to write tbl.\n\tIs a directory\n");
}

TEST_F(Savetbl, SaysThatADirectoryCannotBeMade)
{
    const std::string path = dir.file("file", "") + "/list";
    EXPECT_EQ(savetbl(points(1).get(), path.c_str(), nullptr), -1);
    EXPECT_THAT(take_log(), testing::Not(HasSubstr("to write tbl")));
}

TEST_F(Savetbl, SaysThatWritingFailed)
{
    const std::string full = dir / "full";
    std::filesystem::create_symlink("/dev/full", full);
    EXPECT_EQ(savetbl(points(100'000).get(), full.c_str(), nullptr), -1);
    EXPECT_THAT(take_log(), testing::StartsWith("Errors while writing tbl to " + full +
                                                ".\n\tNo space left on device\n"));
}

TEST_F(Savetbl, SaysThatClosingFailed)
{
    const std::string full = dir / "full";
    std::filesystem::create_symlink("/dev/full", full);
    EXPECT_EQ(savetbl(points(0).get(), full.c_str(), nullptr), -1);
    EXPECT_THAT(take_log(),
                HasSubstr("Failed to close tbl file " + full + "\n\tNo space left on device\n"));
}

TEST_F(Savetbl, ClosesTheFileWhateverHappens)
{
    const int before = dup(0);
    close(before);
    EXPECT_EQ(savetbl(points(100'000).get(), "/dev/full", nullptr), -1);
    EXPECT_EQ(savetbl(points(0).get(), "/dev/full", nullptr), -1);
    saved(points(3));
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

// The signal of the file-size limit used to end the process.
TEST_F(Savetbl, FailsBeyondTheFileSizeLimit)
{
    const std::string path = dir / "list";
    const Ended ended = in_child([&] {
        const TblPtr tbl = points(100'000);
        const rlimit limit{4096, 4096};
        setrlimit(RLIMIT_FSIZE, &limit);
        const int result = savetbl(tbl.get(), path.c_str(), nullptr);
        elog_clear();
        exit(result == -1 ? 5 : 6);
    });
    EXPECT_EQ(ended.signal, 0);
    EXPECT_EQ(ended.status, 5);
}

// It used to be emptied first.
TEST_F(Savetbl, ThatFailsLeavesTheOldListAndNothingBesideIt)
{
    const std::string path = saved(points(3), "c");
    const Ended ended = in_child([&] {
        const TblPtr tbl = points(100'000);
        const rlimit limit{4096, 4096};
        setrlimit(RLIMIT_FSIZE, &limit);
        const int result = savetbl(tbl.get(), path.c_str(), nullptr);
        elog_clear();
        exit(result == -1 ? 5 : 6);
    });
    EXPECT_EQ(ended.status, 5);
    expect_points(opened(path, 0).get(), 3);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
}

TEST_F(Savetbl, KeepsModeLinksAndHardLinks)
{
    const std::string path = saved(points(3));
    chmod(path.c_str(), 0640);
    std::filesystem::create_symlink("list", dir / "link");
    saved(points(4), nullptr, "link");
    EXPECT_TRUE(std::filesystem::is_symlink(dir / "link"));
    std::filesystem::create_hard_link(path, dir / "other");
    saved(points(5));
    EXPECT_EQ(std::filesystem::hard_link_count(path), 2U);
    expect_points(opened(dir / "other", 0).get(), 5);
    struct stat status;
    stat(path.c_str(), &status);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 3);
}

// A reader used to lose the memory that it read.
TEST_F(Savetbl, LeavesReadersTheListThatTheyHaveOpen)
{
    const std::string path = saved(points(1000));
    const TblPtr reader = opened(path, 0);
    saved(points(1));
    expect_points(reader.get(), 1000);
}

TEST_F(Savetbl, WritesInPlaceWhereNothingCanBeMadeBesideAndSaysSo)
{
    const std::string path = saved(points(3));
    chmod(path.c_str(), 0666);
    chmod(dir.path().c_str(), 0555);
    const Ended ended = as_nobody([&] {
        const TblPtr tbl = points(5);
        const int result = savetbl(tbl.get(), path.c_str(), nullptr);
        elog_flush(1, 0);
        exit(result == 0 ? 5 : 6);
    });
    chmod(dir.path().c_str(), 0755);
    EXPECT_EQ(ended.status, 5);
    EXPECT_THAT(ended.err, EndsWith(path + " was written in place, without a copy beside it.\n"));
    expect_points(opened(path).get(), 5);
}

TEST_F(Savetbl, KilledAtAnyMomentLeavesAWholeListAndTheNextLeavesNothingBesideIt)
{
    for (const bool linked : {false, true}) {
        const std::string path = saved(points(3'000));
        if (linked)
            std::filesystem::create_hard_link(path, dir / "other");
        unsigned seed = 7;
        for (int i = 0; i < 100; ++i) {
            const pid_t pid = fork();
            if (pid == 0)
                for (int64_t n = 3'000;; n = 9'000 - n)
                    savetbl(points(n).get(), path.c_str(), nullptr);
            seed = seed * 1103515245 + 12345;
            std::this_thread::sleep_for(std::chrono::microseconds((seed >> 8) % 8000));
            kill(pid, SIGKILL);
            int status = 0;
            waitpid(pid, &status, 0);
            if (linked)  // whoever writes it next mends it
                saved(points(3'000));
            const TblPtr tbl = opened(path, 0);
            ASSERT_NE(tbl, nullptr);
            expect_points(tbl.get(), tbl->count);
            ASSERT_EQ(tbl->count % 3'000, 0);
        }
        saved(points(3'000));
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1 + linked);
    }
}

TEST_F(Savetbl, LeavesTheFileThatTheListLivesInAlone)
{
    const std::string path = saved(points(3), "c");
    const TblPtr tbl = opened(path);
    EXPECT_EQ(savetbl(tbl.get(), path.c_str(), nullptr), -1);
    EXPECT_THAT(take_log(), HasSubstr("Can't open " + path + " to write tbl.\n"));
    expect_points(tbl.get(), 3);
}

// Reading.

TEST_F(Readtbl, BringsBackEveryFieldEntryAndComment)
{
    for (int writable : {0, 1}) {
        SCOPED_TRACE(writable);
        const TblPtr tbl = points(5, &kNowhere);
        const std::string path = saved(tbl, "a comment");
        char *comment = nullptr;
        const TblPtr read(readtbl(path.c_str(), &comment, writable));
        ASSERT_NE(read, nullptr);
        EXPECT_STREQ(comment, "a comment");
        EXPECT_EQ(comment, static_cast<char *>(read->mapaddr) + 16);
        expect_points(read.get(), 5);
        EXPECT_EQ(read->nalloc, tbl->nalloc);
        EXPECT_EQ(read->left, tbl->left);
        EXPECT_EQ(read->size, tbl->size);
        EXPECT_NE(read->direct, 0U);
        EXPECT_EQ(read->left_grow, tbl->left_grow);
        EXPECT_EQ(read->right_grow, tbl->right_grow);
        EXPECT_EQ(*static_cast<Point *>(gettbl(read.get(), 99)), kNowhere);
        EXPECT_EQ(read->deleted, nullptr);
        EXPECT_EQ(read->maplen, static_cast<int64_t>(read_file(path).size()));
        EXPECT_GE(read->fd, 0);
        EXPECT_EQ(read->prot, writable ? 3U : 1U);
    }
}

TEST_F(Readtbl, OfAFileWithoutACommentGivesANullComment)
{
    const std::string path = saved(points(1));
    char *comment = const_cast<char *>("untouched");
    const TblPtr tbl(readtbl(path.c_str(), &comment, 0));
    EXPECT_EQ(comment, nullptr);
    EXPECT_NE(opened(path), nullptr);  // nobody asks for the comment
}

TEST_F(Readtbl, RecordOfAWritableListLiesInTheFileAndOfAReadOnlyOneDoesNot)
{
    const std::string path = saved(points(1), "1234567");
    const TblPtr writable = opened(path);
    EXPECT_EQ(static_cast<void *>(writable.get()), static_cast<char *>(writable->mapaddr) + 24);
    const TblPtr read_only = opened(saved(points(1), "1234567", "other"), 0);
    EXPECT_NE(static_cast<void *>(read_only.get()), static_cast<char *>(read_only->mapaddr) + 24);
}

TEST_F(Readtbl, KeepsFreeFrontSlots)
{
    const TblPtr tbl = points(6);
    shifttbl(tbl.get());
    shifttbl(tbl.get());
    const TblPtr read = opened(saved(tbl));
    EXPECT_EQ(read->left, -2);
    EXPECT_EQ(read->count, 4);
    EXPECT_EQ(static_cast<Point *>(gettbl(read.get(), 0))->x, 2);
    EXPECT_EQ(static_cast<Point *>(read->base)[-2].x, 0);
}

TEST_F(Readtbl, ImageReadBackAndWrittenIsTheSameButForAddresses)
{
    const TblPtr tbl = points(6, &kNowhere);
    shifttbl(tbl.get());
    const std::string image = image_of(tbl.get(), "twice");
    const TblPtr read = opened(dir.file("list", image), 0);
    std::string again = image_of(read.get(), "twice");
    ASSERT_EQ(again.size(), image.size());
    const size_t record = 16 + 8;
    for (size_t offset : {0U, 8U, 16U, 24U, 64U, 72U})  // base .. deleted, maplen, fd and prot
        again.replace(record + offset, 8, image.substr(record + offset, 8));
    EXPECT_EQ(again, image);
}

TEST_F(Readtbl, AcceptsAnEmptyListWithoutSlots)
{
    const TblPtr tbl(inittbl(0, 0, 1, nullptr, 16));
    const std::string path = saved(tbl);
    EXPECT_EQ(opened(path, 0)->count, 0);
    const TblPtr read = opened(path);
    const Point point{1, 2};
    EXPECT_EQ(unshifttbl(read.get(), &point), 0);
    EXPECT_EQ(pushtbl(read.get(), &point), 1);
    EXPECT_EQ(*static_cast<Point *>(gettbl(read.get(), 1)), point);
}

TEST_F(Readtbl, AcceptsBytesBehindTheSlots)
{
    const std::string path =
        dir.file("list", image_of(points(3).get(), "c") + std::string(5000, 'x'));
    expect_points(opened(path).get(), 3);
}

TEST_F(Readtbl, SaysWhyItCannotOpen)
{
    const std::string path = dir / "missing";
    EXPECT_EQ(opened(path), nullptr);
    EXPECT_EQ(take_log(), "Can't open " + path + " to read tbl.\n\tNo such file or directory\n");
    EXPECT_EQ(readtbl(dir.path().c_str(), nullptr, 1), nullptr);
    EXPECT_EQ(take_log(), "Can't open " + dir.path() + " to read tbl.\n\tIs a directory\n");
}

TEST_F(Readtbl, OpensNoWritableListThatMayOnlyBeRead)
{
    const std::string path = saved(points(1));
    chmod(dir.path().c_str(), 0755);
    chmod(path.c_str(), 0444);
    const Ended ended = as_nobody([&] {
        const bool right = opened(path, 0) && !opened(path, 1);
        elog_flush(1, 0);
        exit(right ? 0 : 1);
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.err, HasSubstr("Can't open " + path + " to read tbl."));
}

TEST_F(Readtbl, SaysThatItCannotMap)
{
    for (int writable : {0, 1})
        EXPECT_EQ(refused("", writable), "Error trying to mmap FILE.\n\tInvalid argument\n");
    EXPECT_EQ(readtbl(dir.path().c_str(), nullptr, 0), nullptr);
    EXPECT_THAT(take_log(), testing::StartsWith("Error trying to mmap " + dir.path() + ".\n\t"));
}

TEST_F(Readtbl, DoesNotWaitForAPipe)
{
    const std::string path = dir / "pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
    EXPECT_EQ(readtbl(path.c_str(), nullptr, 0), nullptr);
    EXPECT_THAT(take_log(), HasSubstr("Error trying to mmap"));
}

TEST_F(Readtbl, RefusesAnotherMagic)
{
    const std::string message = "Bad magic number while trying to read tbl. FILE\n";
    for (int writable : {0, 1}) {
        EXPECT_EQ(refused("#FileTbx" + std::string(200, '\0'), writable), message);
        EXPECT_EQ(refused("x", writable), message);
        EXPECT_EQ(refused("#FileTb", writable), message);
        EXPECT_EQ(refused("arbitrary text that goes on for more than sixteen bytes\n", writable),
                  message);
    }
}

TEST_F(Readtbl, RefusesACommentLengthOfAnotherArchitecture)
{
    const std::string message = "filetbl FILE was probably created on a different architecture and "
                                "won't work on the current machine\n";
    std::string image = image_of(points(3).get(), "1234567");
    for (uint32_t k : {0x08000000U, 0x80000000U, 0xffffffffU, 0x7fffffffU, 17U, 24U}) {
        SCOPED_TRACE(k);
        memcpy(&image[8], &k, sizeof k);
        for (int writable : {0, 1})
            EXPECT_EQ(refused(image, writable), message);
    }
}

TEST_F(Readtbl, RefusesACommentThatDoesNotFitItsLength)
{
    const std::string message = "Bad comment length while trying to read tbl. FILE\n";
    std::string image = image_of(points(3).get(), "12345678");
    for (uint32_t k : {8U, 9U, 15U, 17U}) {
        SCOPED_TRACE(k);
        memcpy(&image[8], &k, sizeof k);
        EXPECT_EQ(refused(image, 1), message);
    }
}

TEST_F(Readtbl, RefusesEveryImageCutBeforeItsSlots)
{
    const std::string image = image_of(points(3, &kNowhere).get(), "a comment");
    for (size_t length = 1; length < 16 + 16 + kRecordSize + sizeof kNowhere; ++length) {
        SCOPED_TRACE(length);
        const std::string message = refused(image.substr(0, length), static_cast<int>(length % 2));
        if (length < 8)
            EXPECT_EQ(message, "Bad magic number while trying to read tbl. FILE\n");
        else if (length >= 16 + 16 + kRecordSize)
            EXPECT_EQ(message, "Truncated slots while trying to read tbl. FILE\n");
        else
            EXPECT_NE(message, "");
    }
}

// Such a list used to be refused, and filetbl made an empty one.
TEST_F(Readtbl, OpensWhatIsWholeOfAListThatWasCutWhileItGrew)
{
    const std::string image = image_of(points(13).get(), "a comment");  // 10 slots, then 20 more
    const size_t slots_at = 16 + 16 + kRecordSize;
    for (size_t length = slots_at + sizeof(Point); length < image.size(); ++length) {
        SCOPED_TRACE(length);
        const std::string path = dir.file("cut", image.substr(0, length));
        const auto whole = static_cast<int64_t>((length - slots_at) / sizeof(Point));
        const int64_t entries = std::min<int64_t>(whole, 13);
        {
            const TblPtr tbl = opened(path, static_cast<int>(length % 2));
            ASSERT_NE(tbl, nullptr);
            EXPECT_EQ(tbl->nalloc, whole);
            expect_points(tbl.get(), entries);
        }
        EXPECT_EQ(take_log(), entries == 13
                                  ? ""
                                  : "Tbl " + path + " was cut short: its last " +
                                        std::to_string(13 - entries) + " entries are lost.\n");
        const TblPtr tbl = opened(path);
        for (int64_t i = entries; i < 100; ++i) {
            const Point point{i, -i};
            pushtbl(tbl.get(), &point);
        }
        expect_points(tbl.get(), 100);
        take_log();
    }
}

TEST_F(Readtbl, OpensAListWhoseRecordDoesNotCountItsNewSlotsYet)
{
    const std::string image = image_of(points(13).get(), nullptr);
    for (const size_t more : {1U, 15U, 16U, 1000U}) {
        const std::string path = dir.file("longer", image + std::string(more, '\0'));
        const TblPtr tbl = opened(path);
        ASSERT_NE(tbl, nullptr);
        expect_points(tbl.get(), 13);
        for (int64_t i = 13; i < 100; ++i) {
            const Point point{i, -i};
            pushtbl(tbl.get(), &point);
        }
        expect_points(tbl.get(), 100);
    }
}

TEST_F(Readtbl, RefusesRecordsThatDoNotFit)
{
    const struct {
        const char *what;
        void (*spoil)(Tbl &record);
        const char *message;
    } cases[] = {
        {"indirect", [](Tbl &r) { r.direct = 0; }, "Indirect list"},
        {"size 0", [](Tbl &r) { r.size = 0; }, "Bad entry size"},
        {"size -16", [](Tbl &r) { r.size = -16; }, "Bad entry size"},
        {"size too large", [](Tbl &r) { r.size = 161; }, "Truncated slots"},
        {"size overflows", [](Tbl &r) { r.size = INT_MAX; }, "Truncated slots"},
        {"left above 0", [](Tbl &r) { r.left = 1; }, "Bad slot counts"},
        {"left too low", [](Tbl &r) { r.left = -21; }, "Truncated slots"},
        {"left lowest", [](Tbl &r) { r.left = INT64_MIN; }, "Bad slot counts"},
        {"left very low", [](Tbl &r) { r.left = -INT64_MAX / 2; }, "Truncated slots"},
        {"count below 0", [](Tbl &r) { r.count = -1; }, "Bad slot counts"},
        {"count above slots", [](Tbl &r) { r.count = 11; }, "Bad slot counts"},
        {"nalloc below 0", [](Tbl &r) { r.count = r.nalloc = -1; }, "Bad slot counts"},
        {"nalloc too large", [](Tbl &r) { r.nalloc = 31; }, "Truncated slots"},
        {"nalloc overflows", [](Tbl &r) { r.nalloc = INT64_MAX; }, "Truncated slots"},
        {"nalloc wraps", [](Tbl &r) { r.nalloc = INT64_MAX / 8 + 2; }, "Truncated slots"},
        {"right_grow below 0", [](Tbl &r) { r.right_grow = -1; }, "Bad growth"},
        {"left_grow below 0", [](Tbl &r) { r.left_grow = INT64_MIN; }, "Bad growth"},
        {"right_grow overflows", [](Tbl &r) { r.right_grow = INT64_MAX; }, "Bad growth"},
        {"left_grow overflows", [](Tbl &r) { r.left_grow = INT64_MAX / 15; }, "Bad growth"},
        {"null value missing",
         [](Tbl &r) {
             r.null_value = &r;
             r.size = 161;
         },
         "Truncated slots"},
    };
    for (const auto &c : cases)
        for (int writable : {0, 1}) {
            SCOPED_TRACE(c.what);
            EXPECT_EQ(refused(spoiled(c.spoil), writable),
                      std::string(c.message) + " while trying to read tbl. FILE\n");
        }
}

TEST_F(Readtbl, RefusesAnImageOfAListOfPointers)
{
    const TblPtr tbl(strtbl("a", "b", static_cast<char *>(nullptr)));
    EXPECT_EQ(refused(image_of(tbl.get(), nullptr), 0),
              "Indirect list while trying to read tbl. FILE\n");
}

TEST_F(Readtbl, SurvivesEverySpoiledByteOfTheHeaderAndRecord)
{
    const std::string image = image_of(points(3, &kNowhere).get(), "comment");
    for (size_t at = 0; at < 16 + 8 + kRecordSize; ++at)
        for (int byte : {0, 1, 0x7f, 0x80, 0xff}) {
            std::string bad = image;
            bad[at] = static_cast<char>(byte);
            const TblPtr tbl = opened(dir.file("bad", bad), 0);
            if (!tbl)
                continue;
            int64_t sum = 0;
            for (int64_t i = 0; i < tbl->count; ++i)
                for (int j = 0; j < tbl->size; ++j)
                    sum += static_cast<char *>(gettbl(tbl.get(), i))[j];
            EXPECT_GE(sum, INT64_MIN);
        }
    elog_clear();
}

TEST_F(Readtbl, LeavesNoDescriptorOpen)
{
    const int before = dup(0);
    close(before);
    const std::string path = saved(points(3));
    refused("x", 1);
    refused(spoiled([](Tbl &r) { r.size = 0; }), 0);
    freetbl(readtbl(path.c_str(), nullptr, 1), nullptr);
    freetbl(readtbl(path.c_str(), nullptr, 0), nullptr);
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

// Lists that are mapped.

TEST_F(MappedTbl, ChangesAreChangesToTheFile)
{
    const std::string path = saved(points(3));
    {
        const TblPtr tbl = opened(path);
        const Point point{3, -3};
        EXPECT_EQ(pushtbl(tbl.get(), &point), 3);
        const TblPtr reader = opened(path, 0);
        expect_points(reader.get(), 4);
    }
    expect_points(opened(path).get(), 4);
}

TEST_F(MappedTbl, WorksWithEveryListFunction)
{
    const std::string path = saved(points(3));
    {
        const TblPtr tbl = opened(path);
        EXPECT_EQ(static_cast<Point *>(shifttbl(tbl.get()))->x, 0);
        EXPECT_EQ(static_cast<Point *>(poptbl(tbl.get()))->x, 2);
        const Point five{5, 5}, six{6, 6};
        unshifttbl(tbl.get(), &six);
        instbl(tbl.get(), 1, &five);
        EXPECT_EQ(static_cast<Point *>(deltbl(tbl.get(), 2))->x, 1);
        sorttbl(
            tbl.get(),
            [](const void *a, const void *b, void *) {
                return static_cast<int>(static_cast<const Point *>(a)->x -
                                        static_cast<const Point *>(b)->x);
            },
            nullptr);
        const TblPtr dup(duptbl(tbl.get(), nullptr));
        EXPECT_EQ(cmptbl(dup.get(), tbl.get()), 0);
        EXPECT_EQ(dup->mapaddr, nullptr);
    }
    const TblPtr tbl = opened(path);
    EXPECT_EQ(tbl->count, 2);
    EXPECT_EQ(static_cast<Point *>(gettbl(tbl.get(), 0))->x, 5);
    EXPECT_EQ(static_cast<Point *>(gettbl(tbl.get(), 1))->x, 6);
}

TEST_F(MappedTbl, GrowsTheFileAndKeepsItsAddress)
{
    const std::string path = saved(points(0, &kNowhere), "growing");
    {
        const TblPtr tbl = opened(path);
        const Tbl *address = tbl.get();
        void *mapaddr = tbl->mapaddr;
        for (int64_t i = 0; i < 100'000; ++i) {
            const Point point{i, -i};
            ASSERT_EQ(pushtbl(tbl.get(), &point), i);
        }
        EXPECT_EQ(tbl.get(), address);
        EXPECT_EQ(tbl->mapaddr, mapaddr);
        struct stat status;
        stat(path.c_str(), &status);
        EXPECT_EQ(tbl->maplen, status.st_size);
        EXPECT_EQ(tbl->maplen,
                  static_cast<int64_t>(16 + 8 + kRecordSize + 16) + (tbl->nalloc - tbl->left) * 16);
        EXPECT_EQ(*static_cast<Point *>(gettbl(tbl.get(), 100'000)), kNowhere);
        for (int64_t i = tbl->count; i < tbl->nalloc; ++i)
            ASSERT_EQ(static_cast<Point *>(tbl->base)[i], kNowhere);
    }
    char *comment = nullptr;
    const TblPtr tbl(readtbl(path.c_str(), &comment, 0));
    EXPECT_STREQ(comment, "growing");
    expect_points(tbl.get(), 100'000);
}

TEST_F(MappedTbl, GrowsAtTheFront)
{
    const std::string path = saved(points(0));
    {
        const TblPtr tbl = opened(path);
        for (int64_t i = 4999; i >= 0; --i) {
            const Point point{i, -i};
            unshifttbl(tbl.get(), &point);
        }
    }
    expect_points(opened(path).get(), 5000);
}

TEST_F(MappedTbl, NewSlotsAreZeroWithoutANullValue)
{
    const std::string path = saved(points(3));
    const TblPtr tbl = opened(path);
    const Point point{1, 1};
    settbl(tbl.get(), 3, &point);
    poptbl(tbl.get());
    settbl(tbl.get(), 5000, &point);
    for (int64_t i = 3; i < 5000; ++i)
        ASSERT_EQ(*static_cast<Point *>(gettbl(tbl.get(), i)), (Point{0, 0})) << i;
}

TEST_F(MappedTbl, NewSlotsAreZeroWhereOtherBytesStoodBehindTheSlots)
{
    const std::string image = image_of(points(3).get(), nullptr);
    const std::string path = dir.file("list", image + std::string(1000, 'x'));
    const TblPtr tbl = opened(path);
    settbl(tbl.get(), 199, nullptr);
    for (int64_t i = 3; i < tbl->nalloc; ++i)
        ASSERT_EQ(static_cast<Point *>(tbl->base)[i], (Point{0, 0})) << i;
}

TEST_F(MappedTbl, TakesDiskSpaceForItsSlots)
{
    const std::string path = saved(points(0));
    const TblPtr tbl = opened(path);
    const Point point{1, 1};
    settbl(tbl.get(), 1'000'000, &point);
    struct stat status;
    stat(path.c_str(), &status);
    EXPECT_GE(status.st_blocks * 512, 16'000'000);
}

TEST_F(MappedTbl, SeveralGrowSideBySide)
{
    constexpr int kLists = 8;
    std::vector<std::string> paths;
    {
        std::vector<TblPtr> lists;
        for (int i = 0; i < kLists; ++i) {
            paths.push_back(saved(points(0), nullptr, "list" + std::to_string(i)));
            lists.push_back(opened(paths.back()));
        }
        for (int64_t n = 0; n < 20'000; ++n)
            for (int i = 0; i < kLists; ++i) {
                const Point point{n, i};
                pushtbl(lists[static_cast<size_t>(i)].get(), &point);
            }
    }
    for (int i = 0; i < kLists; ++i) {
        const TblPtr tbl = opened(paths[static_cast<size_t>(i)], 0);
        ASSERT_EQ(tbl->count, 20'000);
        for (int64_t n = 0; n < 20'000; ++n)
            ASSERT_EQ(*static_cast<Point *>(gettbl(tbl.get(), n)), (Point{n, i}));
    }
}

TEST_F(MappedTbl, OfRecordsOf64BytesGrowsTo4GiB)
{
    const TblPtr empty(inittbl(0, 0, 1, nullptr, 64));
    const std::string path = saved(empty);
    const TblPtr tbl = opened(path);
    const int64_t slots = (int64_t{4} << 30) / 64;
    const std::string record(64, 'r');
    struct stat status;
    // Grows in steps; the space in between is not written to.
    for (int64_t i = 1000; i < slots; i *= 8)
        settbl(tbl.get(), i, record.data());
    settbl(tbl.get(), slots, record.data());
    stat(path.c_str(), &status);
    EXPECT_GE(status.st_size, int64_t{4} << 30);
    EXPECT_EQ(memcmp(gettbl(tbl.get(), slots), record.data(), 64), 0);
    EXPECT_EQ(memcmp(gettbl(tbl.get(), 8000), record.data(), 64), 0);
}

// Gives back the addresses that are reserved behind the first page of a mapping.
char *without_reserved_addresses(const Tbl *tbl)
{
    const int64_t page = sysconf(_SC_PAGESIZE);
    auto *mapaddr = static_cast<char *>(tbl->mapaddr);
    auto *reserved = reinterpret_cast<int64_t *>(mapaddr - page);
    munmap(mapaddr + page, static_cast<size_t>(*reserved - page));
    *reserved = page;
    return mapaddr + page;
}

TEST_F(MappedTbl, GrowsPastItsRoomWhileTheAddressesAreFree)
{
    const std::string path = saved(points(3));
    const TblPtr tbl = opened(path);
    without_reserved_addresses(tbl.get());
    for (int64_t i = 3; i < 5000; ++i) {
        const Point point{i, -i};
        pushtbl(tbl.get(), &point);
    }
    expect_points(tbl.get(), 5000);
}

TEST_F(MappedTbl, MapsOverNothingWhenItsAddressesAreTaken)
{
    const std::string path = saved(points(3));
    const Ended ended = in_child([&] {
        const TblPtr tbl = opened(path);
        static char *other = static_cast<char *>(
            mmap(without_reserved_addresses(tbl.get()), 4096, PROT_READ | PROT_WRITE,
                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0));
        *other = 'o';
        atexit([] { putchar(*other); });
        settbl(tbl.get(), 5000, &kNowhere);
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.out, "o");
    EXPECT_THAT(ended.err, HasSubstr(": Couldn't remap tbl.\n"));
    expect_points(opened(path).get(), 3);
}

// The sanitizers themselves need more addresses than this limit allows.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(MappedTbl, SetsLessRoomAsideWhereAddressesAreScarce)
{
    const std::string path = saved(points(3));
    const Ended ended = in_child([&] {
        const rlimit limit{int64_t{3} << 30, int64_t{3} << 30};
        setrlimit(RLIMIT_AS, &limit);
        const TblPtr tbl = opened(path);
        settbl(tbl.get(), 100'000, &kNowhere);
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(opened(path)->count, 100'001);
}
#endif

TEST_F(MappedTbl, ReadOnlyCannotGrow)
{
    const TblPtr full = points(10);
    const std::string path = saved(full);
    const std::string message = "*stack* Can't extend read-only list.\n";
    for (const auto &grow : std::vector<std::function<void(Tbl *)>>{
             [](Tbl *tbl) { pushtbl(tbl, &kNowhere); },
             [](Tbl *tbl) { unshifttbl(tbl, &kNowhere); },
             [](Tbl *tbl) { settbl(tbl, 100, &kNowhere); },
             [](Tbl *tbl) { cattbl(tbl, tbl); },
         }) {
        const Ended ended = in_child([&] {
            Tbl *tbl = readtbl(path.c_str(), nullptr, 0);
            errno = ENOENT;  // an old error, which is not the reason
            grow(tbl);
        });
        EXPECT_EQ(ended.status, 1);
        EXPECT_THAT(ended.err, HasSubstr(message));
        EXPECT_THAT(ended.err, testing::Not(HasSubstr("No such file")));
    }
    expect_points(opened(path).get(), 10);
}

TEST_F(MappedTbl, FullDiskEndsTheProcessAndLosesNothing)
{
    const std::string path = saved(points(10), "kept");
    const std::string before = read_file(path);
    const Ended ended = in_child([&] {
        const rlimit limit{before.size() + 100, before.size() + 100};
        setrlimit(RLIMIT_FSIZE, &limit);
        const TblPtr tbl = opened(path);
        pushtbl(tbl.get(), &kNowhere);
    });
    EXPECT_EQ(ended.signal, 0);
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.err, HasSubstr(": Couldn't write 1 byte to extend file by 320 bytes\n"));
    EXPECT_THAT(ended.err, HasSubstr("\tFile too large\n"));
    EXPECT_EQ(read_file(path).size(), before.size());
    expect_points(opened(path).get(), 10);
}

TEST_F(MappedTbl, AGrowthThatNoFileHoldsEndsTheProcess)
{
    const std::string path = saved(points(10));
    for (int64_t i : {INT64_MAX, INT64_MAX / 16, INT64_MAX / 32}) {
        SCOPED_TRACE(i);
        const Ended ended = in_child([&] { settbl(opened(path).get(), i, &kNowhere); });
        EXPECT_EQ(ended.status, 1);
        EXPECT_EQ(ended.signal, 0);
        EXPECT_THAT(ended.err, testing::AnyOf(HasSubstr(": Couldn't lseek "),
                                              HasSubstr(": Couldn't write 1 byte to extend file")));
    }
    expect_points(opened(path).get(), 10);
}

TEST_F(MappedTbl, FreeNeverCallsTheFreeFunction)
{
    const std::string path = saved(points(3));
    for (int writable : {0, 1})
        freetbl(readtbl(path.c_str(), nullptr, writable), [](void *) { ADD_FAILURE(); });
    expect_points(opened(path).get(), 3);
}

TEST_F(MappedTbl, FreeGivesItsAddressesBack)
{
    const std::string path = saved(points(3));
    for (int i = 0; i < 5000; ++i)  // if all kept their 64 GiB, there would not be enough
        ASSERT_NE(opened(path), nullptr);
}

// One writer.

const std::string kRefused = " to write tbl: another writer has it open.\n";

// Opens the file for writing and returns what is logged; empty when it opens.
std::string refusal(const std::string &path)
{
    elog_clear();
    const TblPtr tbl = opened(path);
    const std::string log = take_log();
    EXPECT_EQ(tbl == nullptr, !log.empty());
    return log;
}

// Two writers used to overwrite each other's record.
TEST_F(MappedTbl, IsRefusedToASecondWriter)
{
    const std::string path = saved(points(3));
    TblPtr writer = opened(path);
    errno = ENOENT;
    EXPECT_EQ(refusal(path), "Can't open " + path + kRefused);
    Tbl *tbl = untouched.get();
    for (int64_t slots : {1, 1000}) {
        EXPECT_EQ(filetbl(path.c_str(), nullptr, slots, nullptr, sizeof(Point), &tbl), -1);
        EXPECT_EQ(tbl, nullptr);
        EXPECT_EQ(take_log(), "Can't open " + path + kRefused);
    }
    const Ended ended = in_child([&] { printf("%s", refusal(path).c_str()); });
    EXPECT_EQ(ended.out, "Can't open " + path + kRefused);
    expect_points(opened(path, 0).get(), 3);
    writer.reset();
    EXPECT_EQ(refusal(path), "");
}

TEST_F(MappedTbl, IsNotOverwrittenWhileAWriterHasItOpen)
{
    const std::string path = saved(points(3));
    const TblPtr writer = opened(path);
    const TblPtr other = points(1);
    EXPECT_EQ(savetbl(other.get(), path.c_str(), nullptr), -1);
    EXPECT_EQ(take_log(), "Can't open " + path + " to write tbl.\n\tDevice or resource busy\n");
    expect_points(writer.get(), 3);
}

TEST_F(MappedTbl, StaysItsWritersWhenTheFileIsClosedElsewhere)
{
    const std::string path = saved(points(3));
    const TblPtr writer = opened(path);
    close(open(path.c_str(), O_RDWR | O_CLOEXEC));
    opened(path, 0);
    EXPECT_NE(refusal(path), "");
}

TEST_F(MappedTbl, BelongsToTheChildrenOfItsWriterToo)
{
    const std::string path = saved(points(3));
    TblPtr writer = opened(path);
    const auto child = [&](const std::function<void()> &body) {
        const pid_t pid = fork();
        if (pid == 0) {
            body();
            _exit(0);
        }
        return pid;
    };
    int status = 0;
    waitpid(child([&] { writer.reset(); }), &status, 0);
    EXPECT_NE(refusal(path), "");
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    const pid_t pid = child([&] {
        close(go[1]);
        char byte;
        static_cast<void>(!read(go[0], &byte, 1));
    });
    writer.reset();
    EXPECT_NE(refusal(path), "");
    close(go[1]);
    waitpid(pid, &status, 0);
    EXPECT_EQ(refusal(path), "");
}

TEST_F(MappedTbl, IsLockedBeforeALargerFileTakesItsName)
{
    const std::string path = saved(points(3));
    bool locked = false;
    before_rename = [&](const char *from) {
        const int fd = open(from, O_RDWR | O_CLOEXEC);
        locked = flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
        close(fd);
    };
    Tbl *tbl = nullptr;
    const int result = filetbl(path.c_str(), nullptr, 500, nullptr, sizeof(Point), &tbl);
    before_rename = nullptr;
    const TblPtr owner(tbl);
    ASSERT_EQ(result, 0);
    EXPECT_TRUE(locked);
    EXPECT_EQ(refusal(path), "Can't open " + path + kRefused);
}

// Eight processes enlarge the list and add to it, one after the other.
TEST_F(MappedTbl, LosesNothingThatManyWritersAdd)
{
    const std::string path = saved(points(0));
    constexpr int kProcesses = 8;
    constexpr int64_t kEach = 40;
    std::vector<pid_t> pids;
    for (int process = 0; process < kProcesses; ++process) {
        pids.push_back(fork());
        if (pids.back() != 0)
            continue;
        for (int64_t i = 0; i < kEach;) {
            Tbl *tbl = nullptr;
            const int64_t slots = opened(path, 0)->count + 100;
            if (filetbl(path.c_str(), nullptr, slots, nullptr, sizeof(Point), &tbl) == 0) {
                const Point point{process, i++};
                pushtbl(tbl, &point);
                freetbl(tbl, nullptr);
            }
            elog_clear();
        }
        _exit(0);
    }
    for (const pid_t pid : pids) {
        int status = -1;
        waitpid(pid, &status, 0);
        EXPECT_EQ(status, 0);
    }
    const TblPtr tbl = opened(path, 0);
    ASSERT_NE(tbl, nullptr);
    EXPECT_EQ(tbl->count, kProcesses * kEach);
}

// The size of the file used to be asked for before the record was read, and the record was
// read a second time after the check.
TEST_F(Readtbl, OpensAListThatAnotherProcessIsGrowing)
{
    const std::string path = saved(points(0), "rain");
    int stop[2];
    ASSERT_EQ(pipe2(stop, O_NONBLOCK), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        close(stop[1]);
        const TblPtr tbl = opened(path);
        char byte;
        for (int64_t i = 0; read(stop[0], &byte, 1) < 0; ++i) {
            const Point point{i, -i};
            tbl->right_grow = 1;  // each push grows the file
            pushtbl(tbl.get(), &point);
        }
        _exit(0);
    }
    close(stop[0]);
    for (int i = 0; i < 10'000 && !HasFailure(); ++i) {
        char *comment = nullptr;
        const TblPtr tbl(readtbl(path.c_str(), &comment, 0));
        ASSERT_NE(tbl, nullptr) << take_log();
        ASSERT_STREQ(comment, "rain");
        const int64_t last = tbl->count - 1;
        if (last >= 0) {
            ASSERT_EQ(*static_cast<Point *>(gettbl(tbl.get(), last)), (Point{last, -last}));
        }
    }
    close(stop[1]);
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_EQ(status, 0);
}

// A list in memory that has a path.
class MemoryFile {
public:
    explicit MemoryFile(const std::string &bytes) : fd_(memfd_create("list", MFD_CLOEXEC))
    {
        EXPECT_EQ(write(fd_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    ~MemoryFile() { close(fd_); }
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    int fd() const { return fd_; }
    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

private:
    int fd_;
};

// Sums of the file's size used to overflow, which the undefined-behaviour sanitizer reports.
TEST_F(Readtbl, SaysThatAFileIsLargerThanAllAddresses)
{
    for (const int64_t slots : {int64_t{10}, INT64_MAX / 16 - 100, INT64_MAX / 32})
        for (const int64_t size : {INT64_MAX, INT64_MAX - 4096, INT64_MAX / 2 + 1, INT64_MAX / 4})
            for (const int writable : {0, 1}) {
                const MemoryFile file(spoiled([&](Tbl &r) { r.nalloc = slots; }));
                ASSERT_EQ(ftruncate(file.fd(), size), 0);
                elog_clear();
                EXPECT_EQ(opened(file.path(), writable), nullptr);
                EXPECT_THAT(
                    take_log(),
                    testing::AnyOf(
                        "Error trying to mmap " + file.path() + ".\n\tCannot allocate memory\n",
                        "Truncated slots while trying to read tbl. " + file.path() + "\n"));
            }
}

TEST_F(Readtbl, OpensAListBeyondTheStandardDescriptorsWhenTheyAreClosed)
{
    const std::string path = saved(points(3));
    const Ended ended = in_child([&] {
        for (const int writable : {0, 1}) {
            close(0);
            TblPtr tbl = opened(path, writable);
            printf("%d ", tbl && tbl->fd > 2 && tbl->count == 3);
            tbl.reset();
            printf("%d ", fcntl(0, F_GETFD) == -1);
        }
        Tbl *tbl = nullptr;
        printf("%d ", filetbl(path.c_str(), nullptr, 500, nullptr, sizeof(Point), &tbl));
        freetbl(tbl, nullptr);
        dir.file("bad", "no list");
        printf("%d", readtbl((dir / "bad").c_str(), nullptr, 1) == nullptr);
        printf(" %d", fcntl(0, F_GETFD) == -1);
        elog_clear();
    });
    EXPECT_EQ(ended.out, "1 1 1 1 0 1 1");
}

// Making and enlarging files.

TEST_F(Filetbl, MakesAnEmptyFile)
{
    const std::string path = dir / "sub/list";
    Tbl *tbl = nullptr;
    ASSERT_EQ(filetbl(path.c_str(), "points", 100, &kNowhere, sizeof(Point), &tbl), 0);
    EXPECT_EQ(tbl->count, 0);
    EXPECT_EQ(tbl->nalloc, 101);
    EXPECT_EQ(tbl->right_grow, 50);
    EXPECT_EQ(tbl->prot, 3U);
    for (int64_t i = 0; i < tbl->nalloc; ++i)
        EXPECT_EQ(static_cast<Point *>(tbl->base)[i], kNowhere);
    freetbl(tbl, nullptr);
    char *comment = nullptr;
    const TblPtr read(readtbl(path.c_str(), &comment, 0));
    EXPECT_STREQ(comment, "points");
    EXPECT_EQ(take_log(), "");
}

TEST_F(Filetbl, MakesZeroRecordsWithoutANullValue)
{
    const std::string path = dir / "list";
    Tbl *tbl = nullptr;
    ASSERT_EQ(filetbl(path.c_str(), nullptr, 1, nullptr, 24, &tbl), 0);
    EXPECT_EQ(tbl->null_value, nullptr);
    EXPECT_EQ(tbl->right_grow, 0);
    const std::string zeros(24, '\0');
    EXPECT_EQ(bytes_of(tbl->base, 24), zeros);
    for (int i = 0; i < 100; ++i) {
        pushtbl(tbl, zeros.data());
        unshifttbl(tbl, zeros.data());
    }
    EXPECT_EQ(tbl->count, 200);
    freetbl(tbl, nullptr);
}

TEST_F(Filetbl, MakesAFileForNoSlots)
{
    for (int64_t slots : {int64_t{0}, int64_t{-5}, INT64_MIN}) {
        const std::string path = dir / ("list" + std::to_string(slots));
        Tbl *tbl = nullptr;
        ASSERT_EQ(filetbl(path.c_str(), nullptr, slots, nullptr, 8, &tbl), 0);
        EXPECT_GE(tbl->nalloc, 1);
        freetbl(tbl, nullptr);
    }
}

TEST_F(Filetbl, OpensWhatHasSlotsEnough)
{
    const std::string path = saved(points(3), "c");
    for (int64_t slots : {0, 3, 10}) {
        Tbl *tbl = nullptr;
        ASSERT_EQ(filetbl(path.c_str(), nullptr, slots, nullptr, sizeof(Point), &tbl), 0);
        EXPECT_EQ(tbl->nalloc, 10);
        expect_points(tbl, 3);
        freetbl(tbl, nullptr);
    }
}

TEST_F(Filetbl, AnotherCommentGivesMinus2AndLeavesTheFile)
{
    const std::string path = saved(points(3), "mine");
    const std::string before = read_file(path);
    Tbl *tbl = untouched.get();
    EXPECT_EQ(filetbl(path.c_str(), "yours", 1000, nullptr, sizeof(Point), &tbl), -2);
    EXPECT_EQ(tbl, nullptr);
    const std::string uncommented = saved(points(3), nullptr, "plain");
    EXPECT_EQ(filetbl(uncommented.c_str(), "mine", 1, nullptr, sizeof(Point), &tbl), -2);
    EXPECT_EQ(tbl, nullptr);
    EXPECT_EQ(read_file(path), before);
    EXPECT_EQ(take_log(), "");
    EXPECT_EQ(filetbl(path.c_str(), "mine", 1, nullptr, sizeof(Point), &tbl), 0);
    expect_points(tbl, 3);
    freetbl(tbl, nullptr);
}

TEST_F(Filetbl, EnlargesWithTheSameEntriesAndTheGivenComment)
{
    for (const char *comment : {static_cast<const char *>(nullptr), "mine"}) {
        const std::string path = saved(points(5, &kNowhere), "mine");
        chmod(path.c_str(), 0640);
        Tbl *tbl = nullptr;
        ASSERT_EQ(filetbl(path.c_str(), comment, 500, &kNowhere, sizeof(Point), &tbl), 0);
        EXPECT_GE(tbl->nalloc - tbl->left, 500);
        expect_points(tbl, 5);
        for (int64_t i = 5; i < tbl->nalloc; ++i)
            ASSERT_EQ(static_cast<Point *>(tbl->base)[i], kNowhere);
        freetbl(tbl, nullptr);
        char *found = nullptr;
        const TblPtr read(readtbl(path.c_str(), &found, 0));
        EXPECT_STREQ(found, comment);
        expect_points(read.get(), 5);
        struct stat status;
        stat(path.c_str(), &status);
        EXPECT_EQ(status.st_mode & 07777, 0640U);
    }
    size_t files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(dir.path()))
        files += entry.is_regular_file();
    EXPECT_EQ(files, 1U);  // nothing is left beside it
}

// The name of the new file beside it used to be too long.
TEST_F(Filetbl, EnlargesAFileWhoseNameIsAsLongAsNamesMayBe)
{
    for (const size_t length : {248U, 249U, 254U, 255U}) {
        SCOPED_TRACE(length);
        const std::string path = saved(points(5), nullptr, std::string(length, 'n'));
        Tbl *tbl = nullptr;
        ASSERT_EQ(filetbl(path.c_str(), nullptr, 500, nullptr, sizeof(Point), &tbl), 0);
        freetbl(tbl, nullptr);
        const TblPtr larger = opened(path, 0);
        EXPECT_GE(larger->nalloc, 500);
        expect_points(larger.get(), 5);
    }
}

// No byte of such a name begins a character: cutting at one took the whole name away, and
// the file beside it was the directory's name with an ending.
TEST_F(Filetbl, CutsANameWithoutWholeCharactersInItsOwnDirectory)
{
    const std::string inner = dir / "gauges";
    const std::string name(255, '\x80');
    const std::string path = saved(points(5), nullptr, "gauges/" + name);
    std::string beside;
    before_rename = [&](const char *from) { beside = from; };
    Tbl *tbl = nullptr;
    EXPECT_EQ(filetbl(path.c_str(), nullptr, 500, nullptr, sizeof(Point), &tbl), 0);
    before_rename = nullptr;
    freetbl(tbl, nullptr);
    EXPECT_EQ(beside.size(), path.size());
    EXPECT_EQ(beside.substr(0, path.size() - 7), path.substr(0, path.size() - 7));
    dir.file("gauges/" + name, "rain");
    // In a child, whose notice is not printed: its bytes are no text.
    const Ended ended =
        in_child([&] { _exit(filetbl(path.c_str(), nullptr, 10, nullptr, 8, &tbl) == 0 ? 7 : 8); });
    EXPECT_EQ(ended.status, 7);
    EXPECT_EQ(read_file(inner + "/" + std::string(254, '\x80') + "~"), "rain");
    EXPECT_FALSE(std::filesystem::exists(inner + "~"));
}

TEST_F(Filetbl, KeepsTheOwnerOfAFileThatItReplaces)
{
    static constexpr unsigned kOwner = 65534;
    static constexpr unsigned kGroup = 65533;
    if (geteuid() != 0)
        GTEST_SKIP() << "only the superuser gives files away";
    const auto expect_kept = [](const std::string &path, mode_t mode) {
        struct stat status;
        ASSERT_EQ(stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_uid, kOwner);
        EXPECT_EQ(status.st_gid, kGroup);
        EXPECT_EQ(status.st_mode & 07777, mode);
    };
    const std::string list = saved(points(5));
    const std::string other = dir.file("rain", "no list");
    for (const std::string &path : {list, other}) {
        ASSERT_EQ(chown(path.c_str(), kOwner, kGroup), 0);
        ASSERT_EQ(chmod(path.c_str(), 0660), 0);
        Tbl *tbl = nullptr;
        EXPECT_EQ(filetbl(path.c_str(), nullptr, 500, nullptr, sizeof(Point), &tbl), 0);
        freetbl(tbl, nullptr);
        take_log();
        expect_kept(path, 0660);
    }
}

// The new group would get what only the old group was allowed.
TEST_F(Filetbl, GivesAnotherGroupNoMoreThanEverybody)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only the superuser gives files away";
    const std::string path = saved(points(5));
    ASSERT_EQ(chmod(dir.path().c_str(), 0777), 0);
    ASSERT_EQ(chown(path.c_str(), 65534, 0), 0);
    ASSERT_EQ(chmod(path.c_str(), 0664), 0);
    const Ended ended = as_nobody([&] {
        Tbl *tbl = nullptr;
        filetbl(path.c_str(), nullptr, 500, nullptr, sizeof(Point), &tbl);
        _exit(tbl ? 7 : 8);
    });
    EXPECT_EQ(ended.status, 7) << ended.err;
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
}

TEST_F(Filetbl, EnlargesTheFileThatALinkLeadsTo)
{
    const std::string path = saved(points(5));
    const std::string link = dir / "link";
    ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
    Tbl *tbl = nullptr;
    ASSERT_EQ(filetbl(link.c_str(), nullptr, 500, nullptr, sizeof(Point), &tbl), 0);
    freetbl(tbl, nullptr);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_GE(opened(path)->nalloc, 500);
}

TEST_F(Filetbl, AskingForMoreOfAnotherKindGivesMinus1AndTheListsMessage)
{
    const std::string path = saved(points(5, &kNowhere), "c");
    const std::string before = read_file(path);
    const Point other{7, 7};
    Tbl *tbl = nullptr;
    EXPECT_EQ(filetbl(path.c_str(), nullptr, 500, &kNowhere, 8, &tbl), -1);
    EXPECT_EQ(take_log(), "tbl lists have different entry sizes: 8 16\n");
    EXPECT_EQ(filetbl(path.c_str(), nullptr, 500, &other, sizeof(Point), &tbl), -1);
    EXPECT_EQ(take_log(), "tbl lists have different null values.\n");
    EXPECT_EQ(filetbl(path.c_str(), nullptr, 500, nullptr, sizeof(Point), &tbl), -1);
    EXPECT_EQ(take_log(), "tbl lists have different null values.\n");
    EXPECT_EQ(tbl, nullptr);
    expect_points(opened(path).get(), 5);
    EXPECT_EQ(read_file(path).size(), before.size());
}

// Calls filetbl in a child: its result and what it prints.
struct Opened {
    int result;
    std::string err;
};

Opened filetbl_in_child(const std::string &path, const char *comment = nullptr, int size = 8)
{
    const Ended ended = in_child([&] {
        Tbl *tbl = nullptr;
        const int result = filetbl(path.c_str(), comment, 10, nullptr, size, &tbl);
        const bool right = result == 0 ? tbl && tbl->count == 0 && tbl->nalloc == 11 : !tbl;
        freetbl(tbl, nullptr);
        printf("%s%d", right ? "" : "wrong list ", result);
        elog_flush(1, 0);
    });
    EXPECT_EQ(ended.out.find("wrong"), std::string::npos);
    return {atoi(ended.out.c_str()), ended.err};
}

// filetbl used to overwrite such a file.
TEST_F(Filetbl, KeepsUnderAnotherNameWhatIsNoList)
{
    const std::string image = image_of(points(3).get(), "c");
    std::string swapped = image;
    std::swap(swapped[8], swapped[11]);
    const std::string path = dir / "rain";
    const struct {
        std::string bytes, kept, reason;
    } cases[] = {
        {"text\n", path + "~", "Bad magic number"},
        {swapped, path + "~2", "different architecture"},
        {image.substr(0, 16 + 8 + kRecordSize - 1), path + "~3", "Truncated header"},
        {image_of(TblPtr(newtbl(0)).get(), "c"), path + "~4", "Indirect list"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.reason);
        dir.file("rain", c.bytes);
        chmod(path.c_str(), 0640);
        const Opened opening = filetbl_in_child(path, "c");
        EXPECT_EQ(opening.result, 0);
        EXPECT_THAT(opening.err, HasSubstr(c.reason));
        EXPECT_THAT(opening.err, EndsWith(": " + path + " is kept as " + c.kept + ".\n"));
        EXPECT_EQ(read_file(c.kept), c.bytes);
        EXPECT_EQ(read_file(path).size(), 16 + 8 + kRecordSize + 11 * 8);
        struct stat status;
        stat(path.c_str(), &status);
        EXPECT_EQ(status.st_mode & 07777, 0640U);
    }
}

TEST_F(Filetbl, OverwritesNothingWithWhatItKeeps)
{
    const std::string path = dir.file("rain", "no list");
    dir.file("rain~", "first");
    mkdir((dir / "rain~2").c_str(), 0777);
    ASSERT_EQ(symlink("nowhere", (dir / "rain~3").c_str()), 0);
    EXPECT_EQ(filetbl_in_child(path).result, 0);
    EXPECT_EQ(read_file(dir / "rain~"), "first");
    EXPECT_TRUE(std::filesystem::is_empty(dir / "rain~2"));
    EXPECT_TRUE(std::filesystem::is_symlink(dir / "rain~3"));
    EXPECT_EQ(read_file(dir / "rain~4"), "no list");
}

TEST_F(Filetbl, KeepsTheFileThatALinkLeadsToBesideThatFile)
{
    mkdir((dir / "disk").c_str(), 0777);
    const std::string file = dir.file("disk/rain", "no list");
    const std::string link = dir / "link";
    ASSERT_EQ(symlink("disk/rain", link.c_str()), 0);
    EXPECT_EQ(filetbl_in_child(link).result, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(read_file(file + "~"), "no list");
    EXPECT_NE(opened(file), nullptr);
}

TEST_F(Filetbl, CutsANameThatIsTooLongToKeepItsFile)
{
    const std::string name = std::string(252, 'n') + "\xc3\xbc";  // one character of two bytes
    const std::string path = dir.file(name + "x", "no list");
    EXPECT_EQ(filetbl_in_child(path).result, 0);
    EXPECT_EQ(read_file(dir / (name + "~")), "no list");
    dir.file(name + "x", "another");
    EXPECT_EQ(filetbl_in_child(path).result, 0);
    EXPECT_EQ(read_file(dir / (std::string(252, 'n') + "~2")), "another");
}

TEST_F(Filetbl, UsesAnEmptyFileWhereItIs)
{
    const std::string path = dir.file("rain", "");
    chmod(path.c_str(), 0640);
    struct stat before, after;
    stat(path.c_str(), &before);
    const Opened opening = filetbl_in_child(path);
    EXPECT_EQ(opening.result, 0);
    EXPECT_EQ(opening.err, "");
    stat(path.c_str(), &after);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mode & 07777, 0640U);
    EXPECT_FALSE(std::filesystem::exists(path + "~"));
}

TEST_F(Filetbl, MakesTheFileThatADanglingLinkNames)
{
    const std::string link = dir / "link";
    ASSERT_EQ(symlink("rain", link.c_str()), 0);
    EXPECT_EQ(filetbl_in_child(link).result, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_NE(opened(dir / "rain"), nullptr);
}

TEST_F(Filetbl, LeavesAFileAloneThatCannotBeRenamed)
{
    mkdir((dir / "closed").c_str(), 0777);
    const std::string path = dir.file("closed/rain", "no list");
    chmod(path.c_str(), 0666);
    chmod((dir / "closed").c_str(), 0555);
    chmod(dir.path().c_str(), 0755);
    const Ended ended = as_nobody([&] {
        Tbl *tbl = untouched.get();
        const int result = filetbl(path.c_str(), nullptr, 10, nullptr, 8, &tbl);
        elog_flush(1, 0);
        exit(result == -1 && !tbl ? 5 : 6);
    });
    EXPECT_EQ(ended.status, 5);
    EXPECT_THAT(ended.err, HasSubstr("Can't rename " + path + " to " + path + "~.\n"));
    EXPECT_EQ(read_file(path), "no list");
    chmod((dir / "closed").c_str(), 0777);
}

TEST_F(Filetbl, GivesAFileItsNameBackWhenNoListCanBeMade)
{
    const std::string path = dir.file("rain", "no list");
    const Ended ended = in_child([&] {
        const rlimit limit{50, 50};
        setrlimit(RLIMIT_FSIZE, &limit);
        Tbl *tbl = nullptr;
        exit(filetbl(path.c_str(), nullptr, 1000, nullptr, 8, &tbl) == -1 && !tbl ? 5 : 6);
    });
    EXPECT_EQ(ended.status, 5);
    EXPECT_THAT(ended.err, testing::Not(HasSubstr("is kept as")));
    EXPECT_EQ(read_file(path), "no list");
    EXPECT_FALSE(std::filesystem::exists(path + "~"));
}

TEST_F(Filetbl, TakesAFileThatCannotBeReadForNoOther)
{
    const std::string path = dir.file("rain", "no list");
    Tbl *tbl = untouched.get();
    read_fails = true;
    const int result = filetbl(path.c_str(), nullptr, 10, nullptr, 8, &tbl);
    read_fails = false;
    EXPECT_EQ(result, -1);
    EXPECT_EQ(tbl, nullptr);
    EXPECT_EQ(take_log(), "Error trying to read tbl " + path + ".\n\tInput/output error\n");
    EXPECT_EQ(read_file(path), "no list");
}

TEST_F(Filetbl, TakesAFileThatMayNotBeReadOrWrittenForNoOther)
{
    chmod(dir.path().c_str(), 0777);
    for (const mode_t mode : {0200U, 0400U, 0000U}) {
        const std::string path = dir.file("rain", "no list");
        chmod(path.c_str(), mode);
        const Ended ended = as_nobody([&] {
            Tbl *tbl = untouched.get();
            const int result = filetbl(path.c_str(), nullptr, 10, nullptr, 8, &tbl);
            elog_flush(1, 0);
            exit(result == -1 && !tbl ? 5 : 6);
        });
        EXPECT_EQ(ended.status, 5);
        EXPECT_THAT(ended.err, HasSubstr("Can't open " + path + " to read tbl."));
        EXPECT_THAT(ended.err, HasSubstr("\tPermission denied\n"));
        EXPECT_FALSE(std::filesystem::exists(path + "~"));
        chmod(path.c_str(), 0600);
        EXPECT_EQ(read_file(path), "no list");
    }
}

// The system tells the other program with SIGIO, and lets the opening go on when the lease
// was given back.
TEST_F(Filetbl, WaitsForAFileThatAnotherProgramHasALeaseOn)
{
    const std::string path = saved(points(5));
    const int lease = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    sigset_t asked;
    sigemptyset(&asked);
    sigaddset(&asked, SIGIO);
    pthread_sigmask(SIG_BLOCK, &asked, nullptr);
    if (fcntl(lease, F_SETLEASE, F_RDLCK) != 0)
        GTEST_SKIP() << "no leases here";
    std::thread holder([&] {
        int signal = 0;
        sigwait(&asked, &signal);
        close(lease);
    });
    Tbl *tbl = nullptr;
    EXPECT_EQ(filetbl(path.c_str(), nullptr, 5, nullptr, sizeof(Point), &tbl), 0);
    EXPECT_EQ(take_log(), "");
    holder.join();
    ASSERT_NE(tbl, nullptr);
    expect_points(tbl, 5);
    freetbl(tbl, nullptr);
}

TEST_F(Filetbl, ThatMayNotBeOpenedGivesMinus1)
{
    Tbl *tbl = untouched.get();
    EXPECT_EQ(filetbl(dir.path().c_str(), nullptr, 10, nullptr, 8, &tbl), -1);
    EXPECT_EQ(tbl, nullptr);
    EXPECT_EQ(take_log(), "Can't open " + dir.path() + " to read tbl.\n\tIs a directory\n");
}

TEST_F(Filetbl, LeavesAFileAloneThatIsNotRegular)
{
    const std::string pipe = dir / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    Tbl *tbl = untouched.get();
    EXPECT_EQ(filetbl(pipe.c_str(), nullptr, 10'000, nullptr, 8, &tbl), -1);
    EXPECT_EQ(tbl, nullptr);
    EXPECT_THAT(take_log(), HasSubstr("Error trying to mmap " + pipe + "."));
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
}

TEST_F(Filetbl, LeavesAListAloneThatIsNotOpenedForWantOfDescriptorsOrAddresses)
{
    const std::string path = saved(points(5));
    const std::string before = read_file(path);
    const auto fails_within = [&](decltype(RLIMIT_AS) resource, rlim_t most) {
        return in_child([&] {
            const rlimit limit{most, most};
            setrlimit(resource, &limit);
            Tbl *tbl = nullptr;
            const int result = filetbl(path.c_str(), nullptr, 10, nullptr, 8, &tbl);
            // Not exit, because the leak checker would need a descriptor.
            _exit(result == -1 && !tbl ? 5 : 6);
        });
    };
    EXPECT_EQ(fails_within(RLIMIT_NOFILE, 0).status, 5);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_EQ(fails_within(RLIMIT_AS, 0).status, 5);
#endif
    EXPECT_EQ(read_file(path), before);
}

TEST_F(Filetbl, CannotBeMadeWithoutADirectory)
{
    const std::string path = dir.file("file", "") + "/list";
    Tbl *tbl = untouched.get();
    EXPECT_EQ(filetbl(path.c_str(), nullptr, 10, nullptr, 8, &tbl), -1);
    EXPECT_EQ(tbl, nullptr);
    EXPECT_NE(take_log(), "");
}

TEST_F(Filetbl, RefusesRecordsBelowOneByte)
{
    const std::string path = dir / "list";
    Tbl *tbl = nullptr;
    errno = ENOENT;  // an old error, which is not the reason
    EXPECT_EQ(filetbl(path.c_str(), nullptr, 10, nullptr, 0, &tbl), -1);
    EXPECT_EQ(take_log(), "filetbl needs an entry size of at least 1, not 0\n");
    EXPECT_FALSE(std::filesystem::exists(path));
    dir.file("list", "no list");
    EXPECT_EQ(filetbl(path.c_str(), nullptr, 10, nullptr, 0, &tbl), -1);
    EXPECT_EQ(read_file(path), "no list");
}

TEST_F(Filetbl, ThatCannotBeWrittenLeavesNoPartOfAFile)
{
    const std::string path = dir / "list";
    const Ended ended = in_child([&] {
        const rlimit limit{1000, 1000};
        setrlimit(RLIMIT_FSIZE, &limit);
        Tbl *tbl = nullptr;
        exit(filetbl(path.c_str(), nullptr, 1000, nullptr, 8, &tbl) == -1 && !tbl ? 5 : 6);
    });
    EXPECT_EQ(ended.status, 5);
    EXPECT_FALSE(std::filesystem::exists(path));
}

// A file of several names used to lose one of them.
TEST_F(Filetbl, EnlargesAFileOfSeveralNamesInPlace)
{
    const std::string path = saved(points(5), "c");
    std::filesystem::create_hard_link(path, dir / "other");
    Tbl *tbl = nullptr;
    ASSERT_EQ(filetbl(path.c_str(), "c", 500, nullptr, sizeof(Point), &tbl), 0);
    EXPECT_NE(refusal(dir / "other"), "");
    expect_points(tbl, 5);
    freetbl(tbl, nullptr);
    EXPECT_EQ(std::filesystem::hard_link_count(path), 2U);
    EXPECT_GE(opened(dir / "other", 0)->nalloc, 500);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 2);
}

TEST_F(Filetbl, ThatCannotBeEnlargedEndsTheProcessWithTheOldFileWhole)
{
    const std::string path = saved(points(5), "c");
    const Ended ended = in_child([&] {
        const rlimit limit{1000, 1000};
        setrlimit(RLIMIT_FSIZE, &limit);
        Tbl *tbl = nullptr;
        filetbl(path.c_str(), nullptr, 1000, nullptr, sizeof(Point), &tbl);
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.signal, 0);
    EXPECT_THAT(ended.err, HasSubstr(": Couldn't extend list " + path));
    expect_points(opened(path).get(), 5);
    size_t files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(dir.path()))
        files += entry.is_regular_file();
    EXPECT_EQ(files, 1U);
}

}  // namespace
