// stock state, as a user runs it.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stock.h"
#include "support/child.h"
#include "support/temp_dir.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

Ended run(std::vector<std::string> words, const std::string &input = {})
{
    words.insert(words.begin(), {tool_path(), "state"});
    return run_program(words, input);
}

}  // namespace

TEST(ToolState, PrintsWhatAProgramSaved)
{
    const TempDir dir;
    const std::string state = dir / "state";
    in_child([&] {
        static int count = -12;
        static double size = 0.5, start = 1.2e9;
        static const char *name = "two\nlines\twith \\ & #";
        exhume(state.c_str(), nullptr, 0, [](Pf *pf) {
            pfset(pf, "table{b}", "2");
            pfset(pf, "table{a}{deep}", "1");
            pfset(pf, "list[0]", "zero");
            pfset(pf, "list[1]", "one");
        });
        resurrect("count", &count, RELIC_INT);
        resurrect("size", &size, RELIC_DOUBLE);
        resurrect("start", &start, RELIC_TIME);
        resurrect("name", &name, RELIC_STRING);
        bury();
    });
    const Ended ended = run({state});
    EXPECT_EQ(ended.out, "count\t-12\n"
                         "list[0]\tzero\n"
                         "list[1]\tone\n"
                         "name\ttwo\\nlines\\twith \\\\ & #\n"
                         "size\t.5\n"
                         "start\t 1200000000.000 (010) 2008-01-10  21:20:00.00000 UTC Thursday\n"
                         "table{a}{deep}\t1\n"
                         "table{b}\t2\n");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
}

TEST(ToolState, ANameWithATabOrANewlineStaysOnItsLine)
{
    const Ended ended = run({"-"}, "\"a\tb\" 1\nt &Arr{\n \"c\nd\" \\\\n\n}\n");
    EXPECT_EQ(ended.out, "a\\tb\t1\nt{c\\nd}\t\\\\n\n");
}

TEST(ToolState, ReadsAFileThatIsInUse)
{
    const TempDir dir;
    const std::string state = dir.file("state", "count 3\n");
    const Ended holder = in_child([&] {
        if (exhume(state.c_str(), nullptr, 0, nullptr) != 1)
            _exit(9);
        const Ended ended = run({state});
        fputs(ended.out.c_str(), stdout);
    });
    EXPECT_EQ(holder.out, "count\t3\n");
    EXPECT_EQ(holder.status, 0);
}

TEST(ToolState, ReadsStandardInputAndEvaluatesNoFunction)
{
    const Ended ended = run({"-"}, "a 1\nb &a!\nc &exec(echo evaluated)\n");
    EXPECT_EQ(ended.out, "a\t1\nb\t1!\nc\t&exec(echo evaluated)\n");
    EXPECT_EQ(ended.status, 0);
}

TEST(ToolState, AFileThatRestoresNothingHasStatus1)
{
    const TempDir dir;
    EXPECT_THAT(run({"--", "-nosuch"}).err, HasSubstr("can't open parameter file '-nosuch'"));
    for (const std::string &path : {dir.file("broken", "count 3\nlist &Tbl{\n"), dir / "nosuch"}) {
        const Ended ended = run({path});
        EXPECT_EQ(ended.out, "");
        EXPECT_THAT(ended.err, HasSubstr(path));
        EXPECT_EQ(ended.status, 1);
    }
}

TEST(ToolState, Helps)
{
    const Ended ended = run({"--help"});
    EXPECT_THAT(ended.out, StartsWith("usage: stock state FILE\n"));
    EXPECT_EQ(ended.status, 0);
}

TEST(ToolState, WrongUsageHasStatus2)
{
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{}, {"a", "b"}, {"--nosuch"}, {"--"}}) {
        const Ended ended = run(words);
        EXPECT_EQ(ended.status, 2);
        EXPECT_THAT(ended.err, HasSubstr("try 'stock state --help'\n"));
    }
}
