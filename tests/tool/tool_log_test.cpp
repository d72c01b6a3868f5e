// stock log, as a shell script runs it.

#include <csignal>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/child.h"
#include "support/temp_dir.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

Ended log(std::vector<std::string> words, std::vector<std::string> settings = {})
{
    words.insert(words.begin(), {tool_path(), "log"});
    settings.insert(settings.begin(), {"ELOG_DELIVER", "ELOG_TAG", "ELOG_DEBUG", "ELOG_STACK",
                                       "ELOG_SIGNALS", "PFPATH="});
    return run_program(words, "", settings);
}

}  // namespace

TEST(ToolLog, ReportsAsNotifyUnlessToldOtherwise)
{
    const Ended ended = log({"all", "is", "well"});
    EXPECT_EQ(ended.err, "stock: all is well\n");
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.status, 0);
}

TEST(ToolLog, KnowsEverySeverityByName)
{
    EXPECT_EQ(log({"-s", "debug", "x"}).err, "stock *debug*: x\n");
    EXPECT_EQ(log({"-s", "notify", "x"}).err, "stock: x\n");
    EXPECT_EQ(log({"-s", "alert", "x"}).err, "stock *alert*: x\n");
    EXPECT_EQ(log({"-s", "complain", "x"}).err, "stock: x\n");
    for (const char *severity : {"debug", "notify", "alert", "complain", "log"})
        EXPECT_EQ(log({"-s", severity, "x"}).status, 0);
}

TEST(ToolLog, DieAndFaultEndAsInAProgram)
{
    const Ended die = log({"-s", "die", "x"});
    EXPECT_EQ(die.err, "stock *fatal*: x\n");
    EXPECT_EQ(die.status, 1);
    const Ended fault = log({"-s", "fault", "x"});
    EXPECT_EQ(fault.err, "stock *fault*: x\n");
    EXPECT_EQ(fault.signal, SIGABRT);
}

TEST(ToolLog, GivesOneWhenItsMessageCannotBeDelivered)
{
    const Ended full = log({"x"}, {"ELOG_DELIVER=/dev/full"});
    EXPECT_EQ(full.err, "Can't write to error file '/dev/full'\n\t: No space left on device\n"
                        "stock: x\n");
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(log({"x"}, {"ELOG_DELIVER=/no/directory/log"}).status, 1);
}

TEST(ToolLog, ALogMessageIsSeenOnlyWhereItIsDelivered)
{
    EXPECT_EQ(log({"-s", "log", "x"}).err, "");
    EXPECT_EQ(log({"-s", "log", "x"}, {"ELOG_DELIVER=stderr@l"}).err, "stock: x\n");
}

TEST(ToolLog, GoesWhereTheSettingsSayWithTheirTag)
{
    const BlanklessDir dir;
    const Ended ended = log({"-s", "complain", "--errno", "2", "no map"},
                            {"ELOG_DELIVER=" + dir / "log" + "@c", "ELOG_TAG=[%s] %P@c"});
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(read_file(dir / "log"),
              "[complain] stock: no map\n\t##=> No such file or directory\n");
    dir.file("elog.pf", "ELOG_TAG &Arr{\n notify from the file\n}\n");
    EXPECT_EQ(log({"x"}, {"PFPATH=" + dir.path()}).err, "from the file: x\n");
}

TEST(ToolLog, AddsWhatTheSystemSaysOfAnError)
{
    EXPECT_EQ(log({"--errno", "13", "-s", "alert", "x"}).err,
              "stock *alert*: x\n\tPermission denied\n");
    EXPECT_EQ(log({"--errno", "0", "x"}).err, "stock: x\n");
    EXPECT_EQ(log({"--errno", "98765", "x"}).err, "stock: x\n\tUnknown error 98765\n");
}

TEST(ToolLog, TakesTheMessageAsItIs)
{
    EXPECT_EQ(log({"100%", "%s %n"}).err, "stock: 100% %s %n\n");
    EXPECT_EQ(log({"one\ntwo\n"}).err, "stock: one\ntwo\n");
    EXPECT_EQ(log({"\nspaced"}).err, "\nstock: spaced\n");
    EXPECT_EQ(log({""}).err, "\n");
    EXPECT_EQ(log({"--", "-s", "alert"}).err, "stock: -s alert\n");
    EXPECT_EQ(log({"-"}).err, "stock: -\n");
    const Ended ended = log({std::string(20000, 'x')});
    EXPECT_THAT(ended.err, EndsWith("\n\t...  ** truncated by elog ***\n"));
    EXPECT_EQ(ended.err.size(), 7 + 10239U);
}

TEST(ToolLog, TellsWhatItIsFor)
{
    const Ended ended = log({"--help"});
    EXPECT_THAT(ended.out, StartsWith("usage: stock log [-s SEVERITY] "));
    EXPECT_EQ(ended.status, 0);
}

TEST(ToolLog, RefusesWrongUsage)
{
    const struct {
        std::vector<std::string> words;
        const char *text;
    } cases[] = {
        {{}, "stock log: which message?"},
        {{"--"}, "stock log: which message?"},
        {{"-s"}, "stock log: -s needs an argument"},
        {{"-s", "loud", "x"}, "stock log: no severity is called 'loud'"},
        {{"--errno", "two", "x"}, "stock log: 'two' is no error number"},
        {{"--errno", "-1", "x"}, "stock log: '-1' is no error number"},
        {{"--errno", "99999999999", "x"}, "stock log: '99999999999' is no error number"},
        {{"--errno"}, "stock log: --errno needs an argument"},
        {{"-x", "y"}, "stock log: what is '-x'?"},
    };
    for (const auto &c : cases) {
        const Ended ended = log(c.words);
        EXPECT_EQ(ended.status, 2) << c.text;
        EXPECT_THAT(ended.err, HasSubstr(c.text));
        EXPECT_THAT(ended.err, HasSubstr("try 'stock log --help'\n"));
    }
}
