// The command "stock time".

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "deviants.h"
#include "support/child.h"
#include "support/owners.h"
#include "support/temp_dir.h"

namespace {

Ended run(const std::vector<std::string> &words, const std::string &input = {})
{
    std::vector<std::string> argv = {tool_path(), "time"};
    argv.insert(argv.end(), words.begin(), words.end());
    return run_program(argv, input, {"EUROPEAN_DATE", "TZ=Asia/Tokyo"});
}

// What the words print when nothing is wrong.
std::string printed(const std::vector<std::string> &words, const std::string &input = {})
{
    const Ended ended = run(words, input);
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    return ended.out;
}

}  // namespace

TEST(ToolTime, PrintsEachTime)
{
    EXPECT_EQ(printed({"2008-02-01 12:30:15.5", "2008032 1:00"}),
              "2008-02-01 12:30:15.500\n2008-02-01 01:00:00.000\n");
}

TEST(ToolTime, PrintsTheCurrentTimeWithoutAString)
{
    const double before = std_now();
    const double now = atof(printed({"-e"}).c_str());
    EXPECT_GE(now, std::floor(before));
    EXPECT_LE(now, std_now() + 1);
}

TEST(ToolTime, TakesTimesThatBeginWithAMinus)
{
    EXPECT_EQ(printed({"-e", "-5"}), "-5\n");
    EXPECT_EQ(printed({"-e", "--", "-1.5"}), "-1.5\n");
    EXPECT_EQ(printed({"-2days"}).substr(10), " 00:00:00.000\n");
}

TEST(ToolTime, PrintsInAnyForm)
{
    const char *time = "2008-02-01 12:30:15.25";
    EXPECT_EQ(printed({"-f", "%A %o of %B %Y", time}), "Friday 1st of February 2008\n");
    EXPECT_EQ(printed({"-e", time}), "1201869015.25\n");
    EXPECT_EQ(printed({"-d", time}), "2008032\n");
    EXPECT_EQ(printed({"-i", time}), "2008-02-01T12:30:15.250Z\n");
    EXPECT_EQ(printed({"-i", "2008-02-01 12:30:15.9999"}), "2008-02-01T12:30:16.000Z\n");
}

TEST(ToolTime, PrintsInAnyZone)
{
    const char *time = "2008-02-01 12:30:15.25";
    EXPECT_EQ(printed({"-z", "US/Pacific", time}), "2008-02-01 04:30:15.250 PST\n");
    EXPECT_EQ(printed({"-z", "LOCAL", time}), "2008-02-01 21:30:15.250 JST\n");
    EXPECT_EQ(printed({"-z", "UTC", time}), "2008-02-01 12:30:15.250\n");
    EXPECT_EQ(printed({"-i", "-z", "US/Pacific", time}), "2008-02-01T04:30:15.250-08:00\n");
    EXPECT_EQ(printed({"-i", "-z", "Asia/Kolkata", time}), "2008-02-01T18:00:15.250+05:30\n");
    EXPECT_EQ(printed({"-d", "-z", "Asia/Tokyo", "2008-02-01 20:00"}), "2008033\n");
    EXPECT_EQ(printed({"-f", "%T %z", "-z", "US/Pacific", time}), "04:30:15.250 PST\n");
}

TEST(ToolTime, ReadsTimesInAZone)
{
    EXPECT_EQ(printed({"2008-02-01 12:30 US/Pacific"}), "2008-02-01 20:30:00.000\n");
}

TEST(ToolTime, PrintsWhatIsNoDateAsItsText)
{
    EXPECT_EQ(printed({"1.0e12"}), "**  31709 years ahead ** \n");
    EXPECT_EQ(printed({"-i", "1.0e12"}), "**  31709 years ahead ** \n");
    EXPECT_EQ(printed({"-e", "1.0e12"}), "1000000000000\n");
}

TEST(ToolTime, NamesWhatItCannotReadAndGoesOn)
{
    const Ended ended =
        run({"2008-02-01", "feb 1.5e", "13/13/2008", "", "12:30 foo", "2008-02-02"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.out, "2008-02-01 00:00:00.000\n2008-02-02 00:00:00.000\n");
    EXPECT_EQ(ended.err, "stock: str2epoch: can't interpret 'e'\n"
                         "stock: can't read the time 'feb 1.5e' from column 8 on\n"
                         "stock: str2epoch: Bad date format:'13/13/2008'\n"
                         "stock: can't read the time '13/13/2008' from column 1 on\n"
                         "stock: can't read the time ''\n"
                         "stock: str2epoch: no timezone 'foo'\n"
                         "stock: can't read the time '12:30 foo' from column 7 on\n");
}

TEST(ToolTime, ReadsStandardInputLineByLine)
{
    EXPECT_EQ(printed({"-"}, "2008-02-01\n2008-02-02 1:00\n5 feb 2008"),
              "2008-02-01 00:00:00.000\n2008-02-02 01:00:00.000\n2008-02-05 00:00:00.000\n");
    EXPECT_EQ(printed({"-"}, ""), "");
    EXPECT_EQ(printed({"-e", "7", "-", "8"}, "9\n"), "7\n9\n8\n");
}

TEST(ToolTime, NamesTheLineThatItCannotRead)
{
    const Ended ended = run({"-"}, "2008-02-01\n\n2008-02-02 x\n2008-02-03\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.out, "2008-02-01 00:00:00.000\n2008-02-03 00:00:00.000\n");
    EXPECT_EQ(ended.err, "stock: line 2: can't read the time ''\n"
                         "stock: str2epoch: can't interpret 'x'\n"
                         "stock: line 3: can't read the time '2008-02-02 x' from column 12 on\n");
}

TEST(ToolTime, ReadsLinesThatCrossItsBuffer)
{
    std::string input;
    std::string expected;
    for (int i = 0; i < 50000; ++i) {
        char line[64];
        snprintf(line, sizeof line, "2008-02-%02d %02d:%02d:%02d", i % 28 + 1, i % 24, i % 60,
                 i % 59);
        input += std::string(static_cast<size_t>(i % 7), ' ') + line + "\n";
        expected += std::string(line) + ".000\n";
    }
    EXPECT_EQ(printed({"-"}, input), expected);
}

TEST(ToolTime, TakesAnyBytes)
{
    const Ended ended =
        run({"-"}, std::string("a\0b\n", 4) + "\xff\xfe\n" + std::string(300000, '9') + "\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.out, "");
}

TEST(ToolTime, AnswersEachLineAsItComes)
{
    int in[2], out[2];
    ASSERT_EQ(pipe(in), 0);
    ASSERT_EQ(pipe(out), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        for (const int fd : {in[0], in[1], out[0], out[1]})
            close(fd);
        execl(tool_path().c_str(), "stock", "time", "-e", "-", nullptr);
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    for (const char *line : {"5\n", "6\n"}) {
        ASSERT_EQ(write(in[1], line, 2), 2);
        char answer[8] = "";
        ASSERT_EQ(read(out[0], answer, sizeof answer), 2);
        EXPECT_EQ(std::string(answer, 2), line);
    }
    close(in[1]);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_EQ(status, 0);
    close(out[0]);
}

TEST(ToolTime, PrintsIso8601ForEveryYear)
{
    const struct {
        const char *time, *utc;
    } cases[] = {
        {"-30630934310.5", "0999-05-06T07:08:09.500Z"},
        {"-62135596800", "0001-01-01T00:00:00.000Z"},
        {"-62135596800.001", "0000-12-31T23:59:59.999Z"},
        {"-62167219200", "0000-01-01T00:00:00.000Z"},
        {"-62167219200.0006", "-0001-12-31T23:59:59.999Z"},
        {"-62167219200.0004", "0000-01-01T00:00:00.000Z"},
        {"-62198755200", "-0001-01-01T00:00:00.000Z"},
        {"-0.25", "1969-12-31T23:59:59.750Z"},
        {"0.9996", "1970-01-01T00:00:01.000Z"},
        {"253244534399.0", "9994-12-31T23:59:59.000Z"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(printed({"-i", c.time}), std::string(c.utc) + "\n") << c.time;
}

TEST(ToolTime, PrintsIso8601AsThePlatformCountsDays)
{
    std::string input;
    std::string expected;
    for (time_t when = -253244534400; when < 253244534400; when += 123456789) {
        struct tm tm;
        gmtime_r(&when, &tm);
        const int year = tm.tm_year + 1900;
        char line[64];
        snprintf(line, sizeof line, "%s%04d-%02d-%02dT%02d:%02d:%02d.000Z\n", year < 0 ? "-" : "",
                 std::abs(year), tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
        expected += line;
        input += std::to_string(when) + ".0\n";
    }
    EXPECT_TRUE(printed({"-i", "-"}, input) == expected);
}

TEST(ToolTime, PrintsIso8601WithTheOffsetOfTheZone)
{
    const struct {
        const char *time, *zone, *text;
    } cases[] = {
        {"-0.25", "Asia/Tokyo", "1970-01-01T08:59:59.750+09:00"},
        {"-0.25", "LOCAL", "1970-01-01T08:59:59.750+09:00"},
        {"-62135596800", "Etc/GMT+5", "0000-12-31T19:00:00.000-05:00"},
        {"1201869015.25", "Asia/Kolkata", "2008-02-01T18:00:15.250+05:30"},
        // An offset of -4:56:02 is told in minutes, and the time with it.
        {"-5000000000.0", "America/New_York", "1811-07-23T10:10:40.000-04:56"},
        {"0.5", "Africa/Monrovia", "1969-12-31T23:15:00.500-00:45"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(printed({"-i", "-z", c.zone, c.time}), std::string(c.text) + "\n") << c.time;
}

// What stood before the zero byte was taken for the time.
TEST(ToolTime, TellsOfAZeroByteInALine)
{
    using namespace std::string_literals;
    const Ended ended = run({"-e", "-"}, "5\n6\0007\n8\n9\0"s);
    EXPECT_EQ(ended.out, "5\n8\n");
    EXPECT_EQ(ended.err, "stock: line 2: there is a zero byte behind '6'\n"
                         "stock: line 4: there is a zero byte behind '9'\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(ToolTime, StopsWhenItsOutputHasFailed)
{
    const Ended ended = run_program(
        {"/bin/sh", "-c",
         "yes now | timeout 20 " + shell_word(tool_path()) + " time - >/dev/full; echo $? >&2"});
    EXPECT_THAT(ended.err, testing::EndsWith("\n1\n"));
    EXPECT_THAT(ended.err, testing::HasSubstr("No space left on device"));
}

TEST(ToolTime, PrintsAnInterval)
{
    EXPECT_EQ(printed({"--delta", "-303"}), "-5:03 minutes\n");
    EXPECT_EQ(printed({"--delta", "100000"}), "1 days 3.7 hours\n");
    EXPECT_EQ(run({"--delta", "x"}).status, 2);
    EXPECT_EQ(run({"--delta", "5x"}).status, 2);
}

TEST(ToolTime, WaitsForATimeSayingSoAndRunsTheCommand)
{
    const double begin = std_now();
    char when[64];
    snprintf(when, sizeof when, "%.3f", begin + 0.5);
    const Ended ended = run({"--until", when, "sh", "-c", "echo ran; exit 3"});
    EXPECT_GE(std_now(), begin + 0.499);
    EXPECT_EQ(ended.status, 3);
    EXPECT_EQ(ended.out, "ran\n");
    EXPECT_THAT(ended.err, testing::StartsWith("waiting 0."));
    EXPECT_THAT(ended.err, testing::HasSubstr(") until "));
}

TEST(ToolTime, DoesNotWaitForWhatHasPassed)
{
    EXPECT_EQ(printed({"--until", "2008-02-01"}), "");
    EXPECT_EQ(printed({"--until", "2008-02-01", "echo", "-n", "x"}), "x");
}

TEST(ToolTime, FailsForAnUntilThatIsNoTimeOrACommandThatIsNotThere)
{
    const Ended no_time = run({"--until", "feb x", "echo"});
    EXPECT_EQ(no_time.status, 1);
    EXPECT_EQ(no_time.out, "");
    EXPECT_THAT(no_time.err, testing::HasSubstr("can't read the time 'feb x' from column 5 on\n"));
    const Ended no_command = run({"--until", "5", "/none/there"});
    EXPECT_EQ(no_command.status, 1);
    EXPECT_THAT(no_command.err,
                testing::HasSubstr("can't run '/none/there'\n\tNo such file or directory\n"));
}

TEST(ToolTime, WrongUsageIsStatus2)
{
    EXPECT_EQ(run({"-q"}).status, 2);
    EXPECT_EQ(run({"-f"}).status, 2);
    EXPECT_EQ(run({"--until"}).status, 2);
    EXPECT_EQ(run({"-z", "No/Zone", "5"}).status, 2);
    EXPECT_EQ(run({"-z", "../../etc/passwd", "5"}).status, 2);
    EXPECT_THAT(run({"-q"}).err, testing::HasSubstr("stock time: what is '-q'?"));
}

TEST(ToolTime, ExplainsItself)
{
    EXPECT_THAT(printed({"--help"}), testing::StartsWith("usage: stock time "));
}
