// The command "stock tbl".

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/child.h"
#include "support/owners.h"
#include "support/temp_dir.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

Ended run(const std::vector<std::string> &words)
{
    std::vector<std::string> argv = {tool_path(), "tbl"};
    argv.insert(argv.end(), words.begin(), words.end());
    return run_program(argv);
}

std::string saved(const TempDir &dir, Tbl *list, const char *comment)
{
    const TblPtr tbl(list);
    const std::string path = dir / "list";
    EXPECT_EQ(savetbl(tbl.get(), path.c_str(), comment), 0);
    return path;
}

}  // namespace

TEST(ToolTbl, PrintsCommentFieldsAndRecords)
{
    const TempDir dir;
    Tbl *tbl = inittbl(3, 4, 1, "none", 4);
    pushtbl(tbl, "zero");
    pushtbl(tbl, "one\0");
    pushtbl(tbl, "two\0");
    shifttbl(tbl);
    const Ended ended = run({saved(dir, tbl, "num\tbers")});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.out, "comment          num_bers\n"
                         "records          2\n"
                         "record size      4\n"
                         "slots            4\n"
                         "free in front    1\n"
                         "free behind      1\n"
                         "front grows by   3\n"
                         "back grows by    8\n"
                         "null value\n"
                         "\t00000000  6e6f 6e65                               none\n"
                         "record 0\n"
                         "\t00000000  6f6e 6500                               one_\n"
                         "record 1\n"
                         "\t00000000  7477 6f00                               two_\n");
}

TEST(ToolTbl, PrintsAnEmptyListWithoutACommentOrNullValue)
{
    const TempDir dir;
    const Ended ended = run({saved(dir, inittbl(0, 0, 1, nullptr, 8), nullptr)});
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.out, StartsWith("comment          -\nrecords          0\n"));
    EXPECT_THAT(ended.out, HasSubstr("\nback grows by    10\nnull value       -\n"));
}

TEST(ToolTbl, SaysWhyAFileIsNoList)
{
    const TempDir dir;
    const std::string path = dir.file("text", "just some text\n");
    const Ended ended = run({path});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.out, "");
    EXPECT_THAT(ended.err, HasSubstr("Bad magic number while trying to read tbl. " + path + "\n"));
    EXPECT_THAT(ended.err, HasSubstr("stock tbl: can't read '" + path + "'\n"));
    EXPECT_EQ(run({dir / "missing"}).status, 1);
}

// Used to abort with a stack trace.
TEST(ToolTbl, SaysThatAFileWasCutShortWhileItWasPrinted)
{
    const TempDir dir;
    Tbl *tbl = inittbl(0, 0, 1, nullptr, 100);
    settbl(tbl, 100'000, nullptr);
    const std::string path = saved(dir, tbl, nullptr);
    int out[2];
    ASSERT_EQ(pipe(out), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], 1);
        dup2(open((dir / "err").c_str(), O_WRONLY | O_CREAT, 0600), 2);
        close(out[0]);
        execl(tool_path().c_str(), "stock", "tbl", path.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    close(out[1]);
    std::string text(1, ' ');
    ASSERT_EQ(read(out[0], text.data(), 1), 1);  // it prints, and waits for this reader soon
    ASSERT_EQ(truncate(path.c_str(), 5000), 0);
    char chunk[4096];
    for (ssize_t got = 0; (got = read(out[0], chunk, sizeof chunk)) > 0;)
        text.append(chunk, static_cast<size_t>(got));
    close(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_THAT(read_file(dir / "err"),
                testing::EndsWith("stock tbl: '" + path + "' was cut short while it was read\n"));
    EXPECT_THAT(text, StartsWith("comment          -\nrecords          100001\n"));
}

TEST(ToolTbl, PrintsALongCommentWhole)
{
    const TempDir dir;
    for (const size_t length : {255U, 256U, 257U, 1000U}) {
        const std::string comment(length, 'c');
        const Ended ended = run({saved(dir, inittbl(0, 0, 1, nullptr, 8), comment.c_str())});
        EXPECT_THAT(ended.out, StartsWith("comment          " + comment + "\nrecords"));
    }
}

TEST(ToolTbl, WantsOneFile)
{
    const Ended none = run({});
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(none.err, HasSubstr("stock tbl: which file?"));
    EXPECT_EQ(run({"a", "b"}).status, 2);
}

TEST(ToolTbl, PrintsItsHelp)
{
    const Ended ended = run({"--help"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.out, StartsWith("usage: stock tbl FILE\n"));
}
