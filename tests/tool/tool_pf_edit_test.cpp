// stock pf set and del, as a user runs them.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "stock.h"
#include "support/child.h"
#include "support/nobody.h"
#include "support/temp_dir.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class ToolPfEdit : public testing::Test {
protected:
    static Ended pf(std::vector<std::string> words)
    {
        words.insert(words.begin(), {tool_path(), "pf"});
        return run_program(words);
    }

    // The text of a file once the command has changed it.
    std::string edited(const std::string &text, std::vector<std::string> words)
    {
        const std::string path = dir_.file("x.pf", text);
        words.insert(words.begin() + 1, path);
        const Ended ended = pf(words);
        EXPECT_EQ(ended.err, "");
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.status, 0);
        return read_file(path);
    }

    std::string set(const std::string &text, const std::string &address, const std::string &value)
    {
        return edited(text, {"set", address, value});
    }

    std::string del(const std::string &text, const std::string &address)
    {
        return edited(text, {"del", address});
    }

    // What is said of a command that changes nothing.
    std::string refused(const std::string &text, std::vector<std::string> words)
    {
        const std::string path = dir_.file("x.pf", text);
        words.insert(words.begin() + 1, path);
        const Ended ended = pf(words);
        EXPECT_EQ(ended.status, 1);
        EXPECT_EQ(read_file(path), text);
        return ended.err;
    }

    TempDir dir_;
};

using ToolPfSet = ToolPfEdit;
using ToolPfDel = ToolPfEdit;

}  // namespace

// ---- set ----

TEST_F(ToolPfSet, ChangesNothingButTheValue)
{
    const std::string before = "# top\n\n z   1   # one\n\nt  &Arr{ # table\n\tb 2# two\n"
                               "  l &Tbl{\n# c\n   x\n\n y  # why\n  } # l\n} # t\na 3";
    const struct {
        const char *address, *was, *is;
    } cases[] = {
        {"z", "z   1   #", "z   new v   #"}, {"t{b}", "b 2#", "b new v#"},
        {"t{l}[0]", "   x\n", "   new v\n"}, {"t{l}[1]", "x\n\n", "x\nnew v\n"},
        {"t{l}[2]", " y  #", " new v  #"},   {"a", "a 3", "a new v"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.address);
        std::string after = before;
        after.replace(after.find(c.was), std::string(c.was).size(), c.is);
        EXPECT_EQ(set(before, c.address, "new v"), after);
    }
}

TEST_F(ToolPfSet, WritesValuesSoThatTheyReadBack)
{
    for (const char *value :
         {"a#b", "x}", " lead", "two\nlines", "\\n", "&Tbl{", "{", "\"q\"", ""}) {
        SCOPED_TRACE(value);
        const std::string text = set("k 1 # c\nl 2\n", "k", value);
        EXPECT_THAT(text, HasSubstr("# c\nl 2\n"));
        EXPECT_EQ(run_program({tool_path(), "pf", "get", "--type", "string", dir_ / "x.pf", "k"},
                              "", {"PFPATH="})
                      .out,
                  std::string(value) + "\n");
    }
}

TEST_F(ToolPfSet, GivesAKeyWithoutAValueOne)
{
    EXPECT_EQ(set("k\n", "k", "v"), "k\tv\n");
    EXPECT_EQ(set("k   # c\n", "k", "v"), "k\tv   # c\n");
    EXPECT_EQ(set("k#c\n", "k", "v"), "k\tv#c\n");
    EXPECT_EQ(set("k#c\n", "k", ""), "k#c\n");
}

TEST_F(ToolPfSet, AnElementInTheFirstColumnCanBecomeEmpty)
{
    EXPECT_EQ(set("l &Tbl{\n1# c\n}\n", "l[0]", ""), "l &Tbl{\n&Literal{\n}# c\n}\n");
}

TEST_F(ToolPfSet, ChangesTheLastOfAKeyThatIsGivenTwice)
{
    EXPECT_EQ(set("k 1\nk 2\n", "k", "3"), "k 1\nk 3\n");
}

TEST_F(ToolPfSet, ReplacesListsTablesLiteralsAndFunctionsWhole)
{
    EXPECT_EQ(set("k &Tbl{\n 1\n} # c\nl 2\n", "k", "v"), "k v # c\nl 2\n");
    EXPECT_EQ(set("k &Tbl{\n 1\n}  \nl 2\n", "k", "v"), "k v  \nl 2\n");
    EXPECT_EQ(set("k &Literal{\n{}\n}\nl 2\n", "k", "v"), "k v\nl 2\n");
    EXPECT_EQ(set("k &exec(date)  \nl 2\n", "k", "v"), "k v  \nl 2\n");
}

TEST_F(ToolPfSet, KeepsTextBehindTheEndOfAValueAsAComment)
{
    EXPECT_EQ(set("k &Arr{\n a 1\n} the north\nl 2\n", "k", "v"), "k v # the north\nl 2\n");
    EXPECT_EQ(set("k &Literal{\nmm\n}north\nl 2\n", "k", "v"), "k v # north\nl 2\n");
    EXPECT_EQ(set("k &Literal{\nmm\n} north", "k", "v"), "k v # north");
    EXPECT_EQ(set("k &Tbl{\n} x # y\n", "k", ""), "k  # x # y\n");
    EXPECT_THAT(refused("k &Tbl{\n} north\n", {"set", "k", "&exec(date)"}),
                HasSubstr("without changing more than that"));
}

TEST_F(ToolPfSet, AFunctionIsTakenWithoutTheBlanksAroundIt)
{
    for (const char *value : {"&exec(date)", "&exec(date) ", " &exec(date)\t", "&exec(date)\n"}) {
        SCOPED_TRACE(value);
        EXPECT_EQ(set("k 1\n", "k", value), "k &exec(date)\n");
        EXPECT_EQ(set("k &exec(date)\n", "k", value), "k &exec(date)\n");
        EXPECT_EQ(set("k &exec(pwd)  \nl 2\n", "k", value), "k &exec(date)  \nl 2\n");
    }
}

TEST_F(ToolPfSet, AKeyThatTheFileEndsInIsCompleted)
{
    EXPECT_EQ(set("k 1\nnorth", "north", "2"), "k 1\nnorth\t2\n");
    EXPECT_EQ(set("k 1\nnorth ", "north", "2"), "k 1\nnorth 2\n");
    EXPECT_EQ(set("north", "north", "&exec(date)"), "north\t&exec(date)\n");
    EXPECT_EQ(set("'north east'", "north east", "2"), "'north east'\t2\n");
    EXPECT_EQ(set("north", "north{limit}", "2"), "north\t&Arr{\n    limit\t2\n}\n");
}

TEST_F(ToolPfSet, AKeyThatTheFileEndsInStaysBehindWhatIsAdded)
{
    EXPECT_EQ(set("k 1\nnorth", "south", "2"), "k 1\nsouth\t2\nnorth");
    EXPECT_EQ(set("k 1\n  north ", "south", "2"), "k 1\nsouth\t2\n  north ");
    EXPECT_EQ(set("k 1\nnorth", "k", "2"), "k 2\nnorth");
    EXPECT_EQ(set("north 1\nnorth", "north", "2"), "north 2\nnorth");
}

TEST_F(ToolPfSet, WritesFunctions)
{
    EXPECT_EQ(set("k 1\n", "k", "&exec(date)"), "k &exec(date)\n");
    EXPECT_EQ(set("k 1", "k", "&exec(date)"), "k &exec(date)\n");
    EXPECT_EQ(set("", "k", "&exec(date)"), "k\t&exec(date)\n");
}

TEST_F(ToolPfSet, RefusesAFunctionBeforeAComment)
{
    EXPECT_THAT(refused("k 1 # c\n", {"set", "k", "&exec(date)"}),
                HasSubstr("can't change 'k' in '" + dir_ / "x.pf"));
}

TEST_F(ToolPfSet, AddsWhatIsNotThere)
{
    EXPECT_EQ(set("", "k", "v"), "k\tv\n");
    EXPECT_EQ(set("a 1", "k", "v"), "a 1\nk\tv\n");
    EXPECT_EQ(set("a 1\n\n# end\n", "k", "v"), "a 1\n\n# end\nk\tv\n");
    EXPECT_EQ(set("a 1\n__END__\ntext\n", "k", "v"), "a 1\nk\tv\n__END__\ntext\n");
    EXPECT_EQ(set("t &Arr{\n  a 1\n}\n", "t{k}", "v"), "t &Arr{\n  a 1\n  k\tv\n}\n");
    EXPECT_EQ(set("t &Arr{\n}\n", "t{k}", "v"), "t &Arr{\n    k\tv\n}\n");
    EXPECT_EQ(set("l &Tbl{\n  1\n}\n", "l[1]", "v"), "l &Tbl{\n  1\n  v\n}\n");
    EXPECT_EQ(set("k 1\nk &Undef{}\n", "k", "v"), "k 1\nk &Undef{}\nk\tv\n");
    EXPECT_EQ(set("", "a b", "v"), "\"a b\"\tv\n");
    EXPECT_EQ(set("", "a b \"c\"", "v"), "'a b \"c\"'\tv\n");
    EXPECT_EQ(set("", "it's a \"b\"", "v"), "it\\047s\\040a\\040\\042b\\042\tv\n");
    EXPECT_EQ(set("", "__END__", "v"), "\"__END__\"\tv\n");
    EXPECT_EQ(set("t &Arr{\n}\n", "t{}", "v"), "t &Arr{\n    \"\"\tv\n}\n");
}

TEST_F(ToolPfSet, AddsTheTablesAndListsAroundIt)
{
    EXPECT_EQ(set("a 1\n", "x{y}[0]", "v"), "a 1\nx\t&Arr{\n    y\t&Tbl{\n        v\n    }\n}\n");
}

TEST_F(ToolPfSet, RefusesAnAddressThatDoesNotFit)
{
    const std::string text = "k 1\nl &Tbl{\n 1\n}\nt &Arr{\n a 1\n}\n";
    for (const char *address : {"k{a}", "k[0]", "l{a}", "l[2]", "t[0]", "x[1]"}) {
        SCOPED_TRACE(address);
        EXPECT_THAT(refused(text, {"set", address, "v"}), HasSubstr("does not fit"));
    }
}

TEST_F(ToolPfSet, RefusesAFileWithErrors)
{
    EXPECT_EQ(refused("k 1\n}\n", {"set", "k", "2"}),
              "stock: '" + dir_ / "x.pf" + "' has errors, try 'stock pf check'\n");
    EXPECT_EQ(pf({"set", dir_ / "no.pf", "k", "v"}).status, 1);
}

TEST_F(ToolPfSet, GoesThroughSymbolicLinksAndKeepsTheMode)
{
    const std::string path = dir_.file("d/x.pf", "k 1\n");
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    std::filesystem::create_symlink("d/x.pf", dir_ / "link");
    EXPECT_EQ(pf({"set", dir_ / "link", "k", "2"}).status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(dir_ / "link"));
    EXPECT_EQ(read_file(path), "k 2\n");
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
    const auto files = std::filesystem::directory_iterator(dir_ / "d");
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

TEST_F(ToolPfSet, KeepsTheOwner)
{
    const uid_t owner = geteuid() == 0 ? 1 : geteuid();
    const std::string path = dir_.file("x.pf", "k 1\n");
    ASSERT_EQ(chown(path.c_str(), owner, static_cast<gid_t>(-1)), 0);
    ASSERT_EQ(chmod(path.c_str(), 04750), 0);
    EXPECT_EQ(pf({"set", path, "k", "2"}).status, 0);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, owner);
    EXPECT_EQ(status.st_mode & 07777, 04750U);
    EXPECT_EQ(read_file(path), "k 2\n");
}

TEST_F(ToolPfSet, KeepsExtendedAttributes)
{
    const std::string path = dir_.file("x.pf", "k 1\n");
    if (setxattr(path.c_str(), "user.stock", "kept", 4, 0) != 0)
        GTEST_SKIP() << "the file system has no attributes";
    const Ended ended = pf({"set", path, "k", "2"});
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(read_file(path), "k 2\n");
    char value[8] = "";
    EXPECT_EQ(getxattr(path.c_str(), "user.stock", value, sizeof value), 4);
    EXPECT_STREQ(value, "kept");
}

TEST_F(ToolPfSet, WritesAFileWithSeveralNamesInPlace)
{
    const std::string path = dir_.file("x.pf", "k one\n# end\n");
    std::filesystem::create_hard_link(path, dir_ / "other");
    EXPECT_EQ(pf({"set", path, "k", "a longer text"}).status, 0);
    EXPECT_EQ(read_file(dir_ / "other"), "k a longer text\n# end\n");
    EXPECT_EQ(pf({"del", dir_ / "other", "k"}).status, 0);
    EXPECT_EQ(read_file(path), "# end\n");
    EXPECT_EQ(std::filesystem::hard_link_count(path), 2U);
}

TEST_F(ToolPfSet, RefusesWhatIsNoRegularFile)
{
    const std::string path = dir_ / "fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    for (const std::string &file : {path, dir_.path()}) {
        const Ended ended = pf({"set", file, "k", "2"});
        EXPECT_EQ(ended.err, "stock: '" + file + "' is no regular file\n");
        EXPECT_EQ(ended.status, 1);
    }
}

TEST_F(ToolPfSet, RefusesAFileThatWasRemovedWhileItIsOpen)
{
    const std::string path = dir_.file("x.pf", "k 1\n");
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    unlink(path.c_str());
    const std::string open_file = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fd);
    const Ended ended =
        run_program({"/usr/bin/timeout", "5", tool_path(), "pf", "set", open_file, "k", "2"});
    close(fd);
    EXPECT_THAT(ended.err, StartsWith("stock: can't find parameter file '" + open_file + "'"));
    EXPECT_EQ(ended.status, 1);
}

TEST_F(ToolPfSet, AFileMayHaveTheLongestNameThereIs)
{
    const std::string path = dir_.file(std::string(252, 'n') + ".pf", "k 1\n");
    EXPECT_EQ(pf({"set", path, "k", "2"}).err, "");
    EXPECT_EQ(read_file(path), "k 2\n");
}

TEST_F(ToolPfSet, SaysWhyAFileCannotBeWrittenWhole)
{
    const std::string text = "k 1\n#" + std::string(100'000, '-') + "\n";
    const std::string path = dir_.file("x.pf", text);
    const Ended ended =
        run_program({"/bin/sh", "-c", "trap '' XFSZ; ulimit -f 8; exec \"$0\" pf set \"$1\" k 2",
                     tool_path(), path});
    EXPECT_EQ(ended.err, "stock: can't write '" + path + "'\n\tFile too large\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(read_file(path), text);
}

TEST_F(ToolPfSet, WhatIsAlreadySoIsNotWritten)
{
    const std::string path = dir_.file("x.pf", "k 1\n");
    struct stat before {
    }, after{};
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    EXPECT_EQ(pf({"set", path, "k", "1"}).status, 0);
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
}

// ---- Several at once ----

TEST_F(ToolPfSet, EditsAtTheSameTimeAreAllKept)
{
    const std::string path = dir_.file("x.pf", "gone 1\n");
    std::filesystem::create_symlink("x.pf", dir_ / "link.pf");
    const std::string edits =
        "cd \"$1\"; for i in 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20; do"
        " \"$0\" pf set x.pf k$i $i || echo x $i &"
        " \"$0\" pf set link.pf l$i $i || echo link $i &"
        "done; \"$0\" pf del x.pf gone || echo del; wait";
    for (const bool linked : {false, true}) {
        SCOPED_TRACE(linked);
        if (linked)
            std::filesystem::create_hard_link(path, dir_ / "other.pf");
        dir_.file("x.pf", "gone 1\n");
        const Ended ended = run_program({"/bin/sh", "-c", edits, tool_path(), dir_.path()});
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.err, "");
        const std::string text = read_file(path);
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 40) << text;
        for (int i = 1; i <= 20; ++i)
            for (const char *key : {"k", "l"})
                EXPECT_THAT(text,
                            HasSubstr(key + std::to_string(i) + "\t" + std::to_string(i) + "\n"));
        const auto files = std::filesystem::directory_iterator(dir_.path());
        EXPECT_EQ(std::distance(begin(files), end(files)), linked ? 3 : 2);
    }
}

TEST_F(ToolPfSet, WhatWaitedForAnotherEditChangesTheFileThatThatOneLeft)
{
    const std::string path = dir_.file("x.pf", "k 1\n");
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    std::thread other([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        dir_.file("new.pf", "k 1\nother 1\n");
        std::filesystem::rename(dir_ / "new.pf", path);
        close(fd);
    });
    const Ended ended = pf({"set", path, "k", "2"});
    other.join();
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(read_file(path), "k 2\nother 1\n");
}

TEST_F(ToolPfSet, DoesNotWaitForEver)
{
    const std::string path = dir_.file("x.pf", "k 1\n");
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    const Ended ended = pf({"set", path, "k", "2"});
    close(fd);
    EXPECT_EQ(ended.err,
              "stock: '" + path + "' is being edited by another process, for 10 seconds now\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(read_file(path), "k 1\n");
}

// The signal of the limit used to end the tool.
TEST_F(ToolPfSet, BeyondTheFileSizeLimitFailsAndLeavesNothingBeside)
{
    const std::string text = "k 1\n#" + std::string(100'000, '-') + "\n";
    const std::string path = dir_.file("x.pf", text);
    for (const bool linked : {false, true}) {
        if (linked)
            std::filesystem::create_hard_link(path, dir_ / "other");
        const Ended ended =
            run_program({"/bin/sh", "-c", "ulimit -c 0; ulimit -f 8; exec \"$0\" pf set \"$1\" k 2",
                         tool_path(), path});
        EXPECT_EQ(ended.err, "stock: can't write '" + path + "'\n\tFile too large\n");
        EXPECT_EQ(ended.status, 1);
        EXPECT_EQ(read_file(path), text);
        const auto files = std::filesystem::directory_iterator(dir_.path());
        EXPECT_EQ(std::distance(begin(files), end(files)), linked ? 2 : 1);
    }
}

TEST_F(ToolPfSet, KilledAtAnyMomentLeavesAWholeFileAndTheNextEditLeavesNothingBeside)
{
    const std::string one = "k 1\n#" + std::string(30'000, '-') + "\n";
    std::string two = one;
    two[2] = '2';
    const std::string path = dir_.file("x.pf", one);
    for (const bool linked : {false, true}) {
        if (linked)
            std::filesystem::create_hard_link(path, dir_ / "other");
        for (int i = 0; i < 60; ++i) {
            const pid_t pid = fork();
            if (pid == 0)
                execl(tool_path().c_str(), "stock", "pf", "set", path.c_str(), "k",
                      i % 2 ? "1" : "2", nullptr);
            std::this_thread::sleep_for(std::chrono::microseconds(i * 300));
            kill(pid, i % 3 ? SIGKILL : SIGTERM);
            int status = 0;
            waitpid(pid, &status, 0);
            const std::string text = read_file(path);
            EXPECT_TRUE(linked || text == one || text == two) << text.size();
        }
        EXPECT_EQ(pf({"set", path, "k", "3"}).status, 0);
        EXPECT_EQ(pf({"set", path, "k", "1"}).status, 0);
        EXPECT_EQ(read_file(path), one);
        const auto files = std::filesystem::directory_iterator(dir_.path());
        EXPECT_EQ(std::distance(begin(files), end(files)), linked ? 2 : 1);
    }
}

TEST_F(ToolPfSet, AFileOfSeveralNamesThatIsHalfWrittenGetsItsOldTextBackFirst)
{
    const std::string path = dir_.file("x.pf", "k 22\nl 1\n");
    std::filesystem::create_hard_link(path, dir_ / "other");
    dir_.file("x.pf.stk000", "k 22\nl 2\n");
    dir_.file("x.pf.old000", "k 11\nl 1\n");
    EXPECT_EQ(pf({"set", path, "m", "3"}).err, "");
    EXPECT_EQ(read_file(dir_ / "other"), "k 11\nl 1\nm\t3\n");
    const auto files = std::filesystem::directory_iterator(dir_.path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 2);
}

// ---- What may not be kept ----

namespace {

constexpr uid_t kNobody = 65534;
constexpr gid_t kOther = 1;

struct stat status_of(const std::string &path)
{
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status;
}

// Sets k to 2 as a user who is in no other group.
Ended set_as_nobody(const std::string &path)
{
    return as_nobody(
        [&] { execl(tool_path().c_str(), "stock", "pf", "set", path.c_str(), "k", "2", nullptr); });
}

}  // namespace

TEST_F(ToolPfSet, SaysWhenTheGroupCannotBeKeptAndGivesItsRightsToNoOther)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs the superuser";
    const std::string path = dir_.file("x.pf", "k 1\n");
    ASSERT_EQ(chmod(dir_.path().c_str(), 0777), 0);
    ASSERT_EQ(chown(path.c_str(), kNobody, kOther), 0);
    ASSERT_EQ(chmod(path.c_str(), 0664), 0);
    const Ended ended = set_as_nobody(path);
    EXPECT_EQ(ended.err,
              "stock: can't keep the group of '" + path + "'\n\tOperation not permitted\n");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(read_file(path), "k 2\n");
    EXPECT_EQ(status_of(path).st_uid, kNobody);
    EXPECT_EQ(status_of(path).st_mode & 07777, 0644U);
}

TEST_F(ToolPfSet, AFileOfAnotherOwnerIsWrittenInPlace)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs the superuser";
    const std::string path = dir_.file("x.pf", "k 1\n");
    ASSERT_EQ(chmod(dir_.path().c_str(), 0777), 0);
    ASSERT_EQ(chown(path.c_str(), 1, kOther), 0);
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    const ino_t inode = status_of(path).st_ino;
    EXPECT_EQ(set_as_nobody(path).err, "");
    EXPECT_EQ(read_file(path), "k 2\n");
    EXPECT_EQ(status_of(path).st_ino, inode);
    ASSERT_EQ(chmod(path.c_str(), 0644), 0);
    EXPECT_EQ(pf({"set", path, "k", "1"}).status, 0);
    EXPECT_THAT(set_as_nobody(path).err,
                EndsWith("can't write '" + path + "'\n\tPermission denied\n"));
    EXPECT_EQ(read_file(path), "k 1\n");
}

TEST_F(ToolPfSet, AFileInADirectoryThatMayNotBeWrittenIsWrittenInPlace)
{
    const std::string path = dir_.file("d/x.pf", "k 1\n");
    ASSERT_EQ(chmod(dir_.path().c_str(), 0777), 0);
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    ASSERT_EQ(chmod((dir_ / "d").c_str(), 0555), 0);
    const Ended ended = set_as_nobody(path);
    EXPECT_EQ(chmod((dir_ / "d").c_str(), 0755), 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(read_file(path), "k 2\n");
}

// ---- del ----

TEST_F(ToolPfDel, TakesOutTheLinesOfTheValueAndNoOther)
{
    const std::string text = "# top\nk 1 # c\n\nt &Arr{\n  a 1\n  b &Tbl{\n    x\n    y\n  }\n}\n";
    EXPECT_EQ(del(text, "k"), "# top\n\nt &Arr{\n  a 1\n  b &Tbl{\n    x\n    y\n  }\n}\n");
    EXPECT_EQ(del(text, "t"), "# top\nk 1 # c\n\n");
    EXPECT_EQ(del(text, "t{b}"), "# top\nk 1 # c\n\nt &Arr{\n  a 1\n}\n");
    EXPECT_EQ(del(text, "t{b}[0]"), "# top\nk 1 # c\n\nt &Arr{\n  a 1\n  b &Tbl{\n    y\n  }\n}\n");
}

TEST_F(ToolPfDel, TakesOutAKeyThatIsGivenTwice)
{
    EXPECT_EQ(del("k 1\na 2\nk 3", "k"), "a 2\n");
}

TEST_F(ToolPfDel, CountsTheElementsThatAreLeft)
{
    EXPECT_EQ(del("l &Tbl{\n 1\n 2\n &Undef{}\n 3\n}\n", "l[1]"),
              "l &Tbl{\n 1\n 2\n &Undef{}\n}\n");
    EXPECT_EQ(del("l &Tbl{\n 1\n 2\n &Undef{}\n}\n", "l[0]"), "l &Tbl{\n 2\n &Undef{}\n}\n");
}

TEST_F(ToolPfDel, SaysWhenThereIsNoSuchValue)
{
    EXPECT_EQ(refused("k 1\n", {"del", "a"}),
              "stock: no entry 'a' in parameter file " + dir_ / "x.pf" + "\n");
    EXPECT_THAT(refused("k 1\nk &Undef{}\n", {"del", "k"}), HasSubstr("no entry 'k'"));
    EXPECT_THAT(refused("k 1\n", {"del", "k{a}"}), HasSubstr("no entry 'k{a}'"));
}

// ---- Both ----

namespace {

// Where a value stands in a text: its bytes, and those of its lines.
struct Spot {
    std::string address;
    size_t begin, value, value_end, end;
};

// A random file that knows where its values stand.
class RandomFile {
public:
    explicit RandomFile(std::mt19937 &random) : random_(random) { table("", 0); }

    const std::string &text() const { return text_; }
    const std::vector<Spot> &spots() const { return spots_; }
    const std::vector<std::string> &additions() const { return additions_; }

private:
    std::string one_of(const std::vector<std::string> &texts)
    {
        return texts[random_() % texts.size()];
    }

    void table(const std::string &address, int depth)
    {
        const auto step = [&](const std::string &key) {
            return address.empty() ? key : address + "{" + key + "}";
        };
        const size_t count = random_() % 4 + (depth == 0);
        for (size_t i = 0; i < count; ++i) {
            text_ += one_of({"", "\n", "# k1 9\n", "   # }\n", "  \n"});
            const std::string key = one_of({"k", "a key ", "-", "\xc3\xa9"}) + std::to_string(i);
            const bool blank = key.find(' ') != std::string::npos;
            const size_t begin = text_.size();
            text_ += one_of({"", "  ", "\t"}) + (blank ? "'" + key + "'" : key);
            text_ += one_of({" ", "\t", "   \t"});
            value(step(key), begin, depth);
        }
        additions_.push_back(step("new"));
    }

    // An empty or a blank line would be an element of a list, and so would a comment
    // that does not begin in the first column.
    void list(const std::string &address, int depth)
    {
        const size_t count = random_() % 4;
        for (size_t i = 0; i < count; ++i) {
            text_ += one_of({"", "# \"\n"});
            const size_t begin = text_.size();
            text_ += one_of({" ", "    ", "\t"});
            value(address + "[" + std::to_string(i) + "]", begin, depth);
        }
        additions_.push_back(address + "[" + std::to_string(count) + "]");
    }

    void value(const std::string &address, size_t begin, int depth)
    {
        const size_t value = text_.size();
        const unsigned kind = static_cast<unsigned>(random_()) % (depth < 4 ? 8 : 6);
        if (kind < 5) {
            text_ += one_of({"1", "a  b", "\\#x\\\\", "{", "\"q'", "a\\\nb", "&k0 x}", "\xff\r"});
        } else if (kind == 5) {
            text_ +=
                one_of({"&Literal{\n {}\n}", "&Literal\"END\n}#\n\"END", "&Undef", "&env(X)y"});
        } else {
            text_ += kind == 6 ? "&Tbl{\n" : "&Arr{ # why\n";
            kind == 6 ? list(address, depth + 1) : table(address, depth + 1);
            text_ += "  }";
        }
        const size_t value_end = text_.size();
        text_ += one_of({"", "  ", " # why"}) + "\n";
        spots_.push_back({address, begin, value, value_end, text_.size()});
    }

    std::mt19937 &random_;
    std::string text_;
    std::vector<Spot> spots_;
    std::vector<std::string> additions_;
};

std::string random_value(std::mt19937 &random)
{
    static const std::string pieces[] = {"a",      "1",       "  ",
                                         "\t",     "\n",      "#",
                                         "\\",     "{",       "}",
                                         "(",      ")",       "[",
                                         "]",      "<",       ">",
                                         "`",      "'",       "&",
                                         "&Tbl{",  "&Arr{",   "=",
                                         "&a",     "-",       "\x01",
                                         "&Undef", "\\n",     "\r",
                                         "%",      "__END__", "&Literal{",
                                         "$",      "!",       "\"",
                                         "\xff",   "\xc3",    "&Undef{}",
                                         "\\1",    ",",       "\"EndOfLiteral"};
    std::string value;
    for (size_t n = random() % 6; n > 0; --n)
        value += pieces[random() % std::size(pieces)];
    return value;
}

int silence(int, const char *, Tbl *)
{
    return 1;
}

// The text at the address of a file's text, as it is written; "(none)" without one.
std::string value_at(const std::string &text, const std::string &address)
{
    Pf *tree = nullptr;
    elog_set(ELOG_CALLBACK_FN, 0, silence);  // of values that swallow a table
    EXPECT_EQ(pfcompile(text.c_str(), &tree), 0);
    elog_set(ELOG_CALLBACK_FN, 0, static_cast<Elog_callback>(nullptr));
    Pf *node = nullptr;
    const int type = pfresolve(tree, address.c_str(), 0, &node);
    const std::string value = type == PFSTRING ? node->value.s : "(none)";
    pffree(tree);
    return value;
}

}  // namespace

TEST_F(ToolPfEdit, AnyValueCanBeSetWhereverItStandsAndNoOtherByteChanges)
{
    std::mt19937 random(5);
    for (int i = 0; i < 200; ++i) {
        const RandomFile file(random);
        const std::string &before = file.text();
        const Spot &spot = file.spots()[random() % file.spots().size()];
        const std::string value = random_value(random);
        SCOPED_TRACE(before);
        SCOPED_TRACE(spot.address);
        SCOPED_TRACE(value);
        const std::string after = set(before, spot.address, value);
        EXPECT_EQ(value_at(after, spot.address), value);
        EXPECT_THAT(after, StartsWith(before.substr(0, spot.value)));
        EXPECT_THAT(after, EndsWith(before.substr(spot.value_end)));
        if (HasFailure())
            break;
    }
}

TEST_F(ToolPfEdit, AnyValueCanBeAddedWhereverItFitsAndNoByteChanges)
{
    std::mt19937 random(6);
    for (int i = 0; i < 200; ++i) {
        const RandomFile file(random);
        const std::string &before = file.text();
        const std::string &address = file.additions()[random() % file.additions().size()];
        const std::string value = random_value(random);
        SCOPED_TRACE(before);
        SCOPED_TRACE(address);
        SCOPED_TRACE(value);
        const std::string after = set(before, address, value);
        EXPECT_EQ(value_at(after, address), value);
        const auto place = std::mismatch(before.begin(), before.end(), after.begin()).first;
        EXPECT_THAT(after, EndsWith(std::string(place, before.end())));
        if (HasFailure())
            break;
    }
}

TEST_F(ToolPfEdit, AnyValueCanBeTakenOutAndNothingButItsLinesGoes)
{
    std::mt19937 random(7);
    for (int i = 0; i < 200; ++i) {
        const RandomFile file(random);
        std::string text = file.text();
        const Spot &spot = file.spots()[random() % file.spots().size()];
        SCOPED_TRACE(text);
        SCOPED_TRACE(spot.address);
        const std::string after = del(text, spot.address);
        EXPECT_EQ(after, text.erase(spot.begin, spot.end - spot.begin));
        if (HasFailure())
            break;
    }
}

TEST_F(ToolPfEdit, HelpsAndRefusesWrongUsage)
{
    EXPECT_THAT(pf({"set", "--help"}).out, StartsWith("usage: stock pf set FILE ADDRESS VALUE"));
    EXPECT_THAT(pf({"del", "--help"}).out, StartsWith("usage: stock pf del FILE ADDRESS"));
    const std::vector<std::vector<std::string>> cases = {
        {"set"}, {"set", "x", "k"}, {"set", "x", "k{", "v"}, {"set", "x", "k", "v", "w"},
        {"del"}, {"del", "x"},      {"del", "x", ""},        {"del", "x", "k", "l"},
    };
    for (const auto &words : cases)
        EXPECT_EQ(pf(words).status, 2);
}
