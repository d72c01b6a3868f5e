// Running a command over a list of arguments.

#include "stock/xargs.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/child.h"
#include "support/owners.h"

namespace {

// What the command lines print.
std::string output_of(const char *command, const std::vector<std::string> &arguments,
                      const char *trailer)
{
    return in_child([&] {
               const TblPtr list(newtbl(0));
               for (const std::string &argument : arguments)
                   pushtbl(list.get(), argument.c_str());
               xargs(command, list.get(), trailer, 0);
           })
        .out;
}

}  // namespace

TEST(Xargs, RunsTheCommandWithAllArgumentsThatFit)
{
    EXPECT_EQ(output_of("echo", {"a", "b", "c"}, ""), "a b c\n");
    EXPECT_EQ(output_of("echo", {"a"}, nullptr), "a\n");
}

TEST(Xargs, PutsTheTrailerBehindTheArguments)
{
    EXPECT_EQ(output_of("echo", {"a", "b"}, "; echo end"), "a b\nend\n");
}

TEST(Xargs, PutsASpaceBehindTheCommandAndEachArgument)
{
    EXPECT_EQ(output_of("printf '[%s]' '", {"a", "b"}, "'"), "[ a b ]");
}

TEST(Xargs, RunsTheTrailerAloneForAnEmptyList)
{
    EXPECT_EQ(output_of("echo", {}, "echo end"), "end\n");
    EXPECT_EQ(output_of("echo", {}, nullptr), "");
    EXPECT_EQ(in_child([] { xargs("echo", nullptr, "echo end", 0); }).out, "end\n");
}

TEST(Xargs, StartsANewLineBefore512CharactersWouldBePassed)
{
    // "echo " is 5 characters, an argument and its space 100: five make 505.
    const std::vector<std::string> five(5, std::string(99, 'x'));
    std::vector<std::string> six = five;
    six.emplace_back(7, 'y');  // 505 + 7 is 512
    const std::string line = std::string(99, 'x') + " ";
    const std::string all = line + line + line + line + line;
    EXPECT_EQ(output_of("echo", six, ""), all + "yyyyyyy\n");
    six.back() += 'y';
    EXPECT_EQ(output_of("echo", six, ""), all.substr(0, 499) + "\nyyyyyyyy\n");
}

TEST(Xargs, CountsTheTrailerTowardsThe512Characters)
{
    const std::vector<std::string> arguments = {std::string(490, 'x'), "yyyyy"};
    // 12 characters, the line's 496 and 5 are one too many.
    const char *trailer = "         ; :";
    EXPECT_EQ(output_of("echo", arguments, trailer), std::string(490, 'x') + "\nyyyyy\n");
    EXPECT_EQ(output_of("echo", arguments, trailer + 1), std::string(490, 'x') + " yyyyy\n");
}

TEST(Xargs, RunsTheTrailerAloneBeforeAFirstArgumentOf513Characters)
{
    const std::string longest(512, 'x');
    EXPECT_EQ(output_of("echo", {longest}, ""), longest + "\n");
    EXPECT_EQ(output_of("echo", {longest + "x"}, "\necho end"), "end\n" + longest + "x\nend\n");
}

TEST(Xargs, NotifiesOfEachLineWhenVerbose)
{
    const Ended ended = in_child([] {
        const TblPtr list(strtbl("a", "100%s", nullptr));
        xargs("echo", list.get(), ">/dev/null", 1);
    });
    EXPECT_NE(ended.err.find("echo a 100%s >/dev/null\n"), std::string::npos) << ended.err;
    EXPECT_EQ(in_child([] { xargs("true", nullptr, "true", 0); }).err, "");
}

TEST(Xargs, IgnoresExitStatuses)
{
    const Ended ended = in_child([] { xargs("false", nullptr, "false", 0); });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
}

TEST(Xargs, TakesNullForEmpty)
{
    EXPECT_EQ(in_child([] {
                  const TblPtr list(newtbl(0));
                  pushtbl(list.get(), nullptr);
                  pushtbl(list.get(), "echo end");
                  xargs(nullptr, list.get(), nullptr, 0);
              }).out,
              "end\n");
}
