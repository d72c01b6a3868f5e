// Files that a program follows: every kind of change, and files that are not whole.

#include "stock/pfwant.h"

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stock.h"
#include "support/nobody.h"
#include "support/pf_files.h"

namespace {

using testing::HasSubstr;

// A program that follows gauge.pf in two directories.
class Pffollow : public testing::Test {
protected:
    ~Pffollow() override
    {
        elog_clear();
        pfwant_free(wants);
    }

    int follow() { return pffollow("gauge", wants); }

    // What a call returns, and what it logs.
    std::string followed()
    {
        elog_clear();
        const int result = follow();
        return std::to_string(result) + "\n" + take_log();
    }

    // Makes the file's time as old as if nobody had written it lately.
    static void settle() { std::this_thread::sleep_for(std::chrono::milliseconds(120)); }

    // Puts the text in the file's place in one step.
    void replace(const std::string &text)
    {
        rename(path.local("new", text).c_str(), (path.dirs() / "local/gauge.pf").c_str());
    }

    const PfPath path;
    double interval = 0;
    int samples = 0;
    char *state = nullptr;
    Tbl *gauges = nullptr;
    Arr *limits = nullptr;
    const Pfwant wants[6] = {
        {"interval", PFWANT_DURATION(&interval), "5", 0.01, 3600, "from sample to sample"},
        {"samples", PFWANT_INT(&samples), "3", 1, 1000, "in a run"},
        {"state", PFWANT_TEXT(&state), "none", 0, 0, "the state file"},
        {"gauges", PFWANT_LIST(&gauges, PFWANT_TEXT), "north", 0, 0, "what is read"},
        {"limits", PFWANT_TABLE(&limits, PFWANT_DOUBLE), "", 0, 100, "mm"},
        PFWANT_END,
    };
};

}  // namespace

TEST_F(Pffollow, ReadsOnceAndThenOnlyWhatChanged)
{
    path.local("gauge.pf", "interval 5\n");
    EXPECT_EQ(followed(), "1\n");
    EXPECT_EQ(interval, 5);
    EXPECT_EQ(samples, 3);
    EXPECT_EQ(followed(), "0\n");
    EXPECT_EQ(followed(), "0\n");
    path.local("gauge.pf",
               "interval 10\nlimits &Arr{\nnorth 5\n}\ngauges &Tbl{\nnorth\nsouth\n}\n");
    EXPECT_EQ(followed(), "1\n"
                          "interval: 5 s -> 10 s\n"
                          "gauges: 'north' -> 'north', 'south'\n"
                          "limits{north}: none -> 5\n");
    EXPECT_EQ(followed(), "0\n");
}

TEST_F(Pffollow, TellsOfTablesWhatChangedInThem)
{
    struct Limit {
        double mm;
        char *who;
        Tbl *hours;
    };
    const Pfwant members[] = {
        {"mm", PFWANT_DOUBLE(PFWANT_AT(Limit, mm)), "5", 0, 0, nullptr},
        {"who", PFWANT_TEXT(PFWANT_AT(Limit, who)), "nobody", 0, 0, nullptr},
        {"hours", PFWANT_LIST(PFWANT_AT(Limit, hours), PFWANT_INT), "", 0, 23, nullptr},
        PFWANT_END,
    };
    Arr *records = nullptr;
    Arr *names = nullptr;
    int mode = 0, loud = 0;
    double since = 0;
    const Pfwant rows[] = {
        {"records", PFWANT_RECORDS(&records, members, Limit), "", 0, 0, nullptr},
        {"names", PFWANT_TABLE(&names, PFWANT_TEXT), "", 0, 0, nullptr},
        {"mode", PFWANT_WORD(&mode, "slow fast"), "slow", 0, 0, nullptr},
        {"loud", PFWANT_BOOLEAN(&loud), "no", 0, 0, nullptr},
        {"since", PFWANT_TIME(&since), "2008-02-01", 0, 0, nullptr},
        PFWANT_END,
    };
    path.local("gauge.pf", "records &Arr{\na &Arr{\n}\nb &Arr{\nmm 1\n}\nc &Arr{\n}\n}\n"
                           "names &Arr{\na x\nb y\n}\n");
    ASSERT_EQ(pffollow("gauge", rows), 1);
    elog_clear();
    path.local("gauge.pf", "records &Arr{\na &Arr{\nmm 6\nhours &Tbl{\n8\n20\n}\n}\nb &Arr{\nmm 1\n"
                           "who me\n}\nd &Arr{\n}\n}\n"
                           "names &Arr{\nb z\nc x\n}\nmode fast\nloud on\nsince 2008-02-02\n");
    EXPECT_EQ(pffollow("gauge", rows), 1);
    EXPECT_EQ(take_log(), "records{c}: mm 5, who 'nobody', hours none -> none\n"
                          "records{a}{mm}: 5 -> 6\n"
                          "records{a}{hours}: none -> 8, 20\n"
                          "records{b}{who}: 'nobody' -> 'me'\n"
                          "records{d}: none -> mm 5, who 'nobody', hours none\n"
                          "names{a}: 'x' -> none\n"
                          "names{b}: 'y' -> 'z'\n"
                          "names{c}: none -> 'x'\n"
                          "mode: slow -> fast\n"
                          "loud: no -> yes\n"
                          "since: 2008-02-01 00:00:00 -> 2008-02-02 00:00:00\n");
    pfwant_free(rows);
}

TEST_F(Pffollow, AChangeOfTheTextThatChangesNoValueIsNone)
{
    path.local("gauge.pf", "interval 5\n");
    EXPECT_EQ(followed(), "1\n");
    const char *kept = state;
    path.local("gauge.pf", "# now with a comment\ninterval 5 s\n");
    EXPECT_EQ(followed(), "0\n");
    EXPECT_EQ(state, kept);
}

TEST_F(Pffollow, WithAProblemEverythingStaysAsItWasUntilTheNextChange)
{
    path.local("gauge.pf", "interval 7\nstate here\n");
    ASSERT_EQ(follow(), 1);
    const char *kept = state;
    const Pf *tree = pffollowed("gauge", wants);
    const std::string file = path.local("gauge.pf", "interval fast\nsamples 8\nstate there\n");
    EXPECT_EQ(followed(),
              "-1\n" + file + ":1: interval: 'fast' is not a duration (0.01 s to 3600 s)\n");
    EXPECT_EQ(followed(), "0\n");
    EXPECT_EQ(interval, 7);
    EXPECT_EQ(samples, 3);
    EXPECT_EQ(state, kept);
    EXPECT_EQ(pffollowed("gauge", wants), tree);
    path.local("gauge.pf", "interval 7\nstate here\n");
    EXPECT_EQ(followed(), "1\n");  // the trouble is over
    EXPECT_EQ(state, kept);
    EXPECT_EQ(followed(), "0\n");
}

TEST_F(Pffollow, FilesThatAreNotWholeAreNotUsed)
{
    path.local("gauge.pf", "interval 7\n");
    ASSERT_EQ(follow(), 1);
    const std::string file = path.dirs() / "local/gauge.pf";
    const struct {
        std::string text;
        const char *problem;
    } cases[] = {
        {"", ":1: the file is empty\n"},
        {"interval 0.2\nsam", ":2: the last line has no newline: is it half saved?\n"},
        {"interval 1", ":1: the last line has no newline: is it half saved?\n"},
        {"interval 1\n}\n", ":2: this '}' closes nothing\n"},
        {"\nlimits &Arr{\nnorth 5\n", ":2: this table is not closed\n"},
        {"gauges &Tbl{\nnorth\n", ":1: this list is not closed\n"},
        {"\n\nstate &Literal{\nnorth\n", ":3: this literal is not closed\n"},
        {std::string("interval 9\n\0samples 4\n", 21), ":2: a zero byte ends the text\n"},
        {"a &Tbl{\n&Tbl{\n&Tbl{\n&Tbl{\n&Tbl{\n&Tbl{\n&Tbl{\n&Tbl{\n&Tbl{\n&Tbl{\n&Tbl{\n&Tbl{\n",
         ":12: more lists and tables around each other than are read\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        path.local("gauge.pf", c.text);
        EXPECT_EQ(followed(), "-1\n" + file + c.problem);
        EXPECT_EQ(followed(), "0\n");
        EXPECT_EQ(interval, 7);
        EXPECT_EQ(samples, 3);
    }
    path.local("gauge.pf", "# nothing but this\n");
    EXPECT_EQ(followed(), "1\ninterval: 7 s -> 5 s\n");
}

TEST_F(Pffollow, AFileThatIsGoneIsAProblemUntilItIsThereAgain)
{
    EXPECT_EQ(followed(), "-1\nthere is no parameter file gauge\n");
    EXPECT_EQ(followed(), "0\n");
    EXPECT_EQ(pffollowed("gauge", wants), nullptr);
    const std::string file = path.local("gauge.pf", "interval 7\n");
    EXPECT_EQ(followed(), "1\n");
    unlink(file.c_str());
    EXPECT_EQ(followed(), "-1\nthere is no parameter file gauge\n");
    EXPECT_EQ(followed(), "0\n");
    EXPECT_EQ(interval, 7);
    path.local("gauge.pf", "interval 8\n");
    EXPECT_EQ(followed(), "1\ninterval: 7 s -> 8 s\n");
}

TEST_F(Pffollow, OneFileOfSeveralMayComeAndGo)
{
    path.site("gauge.pf", "interval 7\nsamples 4\n");
    ASSERT_EQ(follow(), 1);
    const std::string file = path.local("gauge.pf", "interval 8\n");
    EXPECT_EQ(followed(), "1\ninterval: 7 s -> 8 s\n");
    EXPECT_EQ(samples, 4);
    unlink(file.c_str());
    EXPECT_EQ(followed(), "1\ninterval: 8 s -> 7 s\n");
    path.local("gauge.pf", "");
    EXPECT_EQ(followed(), "-1\n" + file + ":1: the file is empty\n");
    EXPECT_EQ(interval, 7);
}

TEST_F(Pffollow, AFileThatCannotBeReadIsNotPassedOver)
{
    const std::string site = path.site("gauge.pf", "interval 7\n");
    const std::string file = path.local("gauge.pf", "interval 8\n");
    chmod(path.dirs().path().c_str(), 0755);
    const Ended ended = as_nobody([&] {
        EXPECT_EQ(followed(), "1\n");
        EXPECT_EQ(interval, 8);
    });
    EXPECT_EQ(ended.status, 0) << ended.err;
    chmod(file.c_str(), 0);
    const Ended refused = as_nobody([&] {
        EXPECT_EQ(followed(), "-1\n" + file + ": can't be read: Permission denied\n");
        EXPECT_EQ(followed(), "0\n");
    });
    EXPECT_EQ(refused.status, 0) << refused.err;
    chmod(file.c_str(), 0644);
    unlink(file.c_str());
    mkdir(file.c_str(), 0755);
    EXPECT_EQ(followed(), "-1\n" + file + ": can't be read: Is a directory\n");
}

TEST_F(Pffollow, AChangeWithinTheSameMomentIsSeen)
{
    // As on a system whose files have coarse times: the same size, inode and times.
    const std::string file = path.local("gauge.pf", "interval 7\n");
    settle();
    struct stat before {};
    stat(file.c_str(), &before);
    const timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(follow(), 1);
    for (const char digit : {'8', '9', '1'}) {
        const int fd = open(file.c_str(), O_WRONLY);
        ASSERT_EQ(pwrite(fd, &digit, 1, 9), 1);
        futimens(fd, times);
        close(fd);
        EXPECT_EQ(follow(), 1);
        EXPECT_EQ(interval, digit - '0');
    }
}

TEST_F(Pffollow, SeesEachOfManyQuickReplacements)
{
    for (int i = 1; i <= 20; ++i) {
        replace("interval 7\nsamples " + std::to_string(100 + i) + "\n");
        ASSERT_EQ(follow(), 1);
        EXPECT_EQ(samples, 100 + i);
        ASSERT_EQ(follow(), 0);
    }
}

TEST_F(Pffollow, WaitsUntilAFileIsLeftAlone)
{
    path.local("gauge.pf", "interval 7\nsamples 9\nstate here\n");
    ASSERT_EQ(follow(), 1);
    // An editor that takes half a second: at every line end the text is one that could be read.
    std::thread editor([&] {
        const std::string file = path.dirs() / "local/gauge.pf";
        const int fd = open(file.c_str(), O_WRONLY | O_TRUNC);
        for (const char c : std::string("interval 8\nsamples 9\nstate here\n")) {
            EXPECT_EQ(write(fd, &c, 1), 1);
            std::this_thread::sleep_for(std::chrono::milliseconds(15));
        }
        close(fd);
    });
    int ones = 0;
    for (int i = 0; i < 200 && ones == 0; ++i) {
        const int result = follow();
        ones += result == 1;
        EXPECT_NE(result, -1) << take_log();
        EXPECT_EQ(samples, 9);
        EXPECT_STREQ(state, "here");
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    editor.join();
    EXPECT_EQ(ones, 1);
    EXPECT_EQ(interval, 8);
}

TEST_F(Pffollow, AFileThatIsNeverLeftAloneIsLeftToTheNextCall)
{
    path.local("gauge.pf", "interval 7\n");
    ASSERT_EQ(follow(), 1);
    std::atomic<bool> stop = false, started = false;
    std::thread editor([&] {
        while (!stop) {
            replace("interval 8\n");
            started = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    while (!started)
        std::this_thread::yield();
    const auto then = std::chrono::steady_clock::now();
    EXPECT_EQ(follow(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - then, std::chrono::seconds(3));
    stop = true;
    editor.join();
    EXPECT_EQ(follow(), 1);
    EXPECT_EQ(interval, 8);
}

TEST_F(Pffollow, GivesTheTreeThatTheVariablesAreFrom)
{
    path.local("gauge.pf", "interval 7\n");
    EXPECT_EQ(pffollowed("gauge", wants), nullptr);
    ASSERT_EQ(follow(), 1);
    Pf *tree = pffollowed("gauge", wants);
    ASSERT_TRUE(tree);
    EXPECT_STREQ(pfget_string(tree, "interval"), "7");
    EXPECT_EQ(pffollowed("other", wants), nullptr);
    EXPECT_EQ(pffollowed(nullptr, wants), nullptr);
    EXPECT_EQ(pffollow(nullptr, wants), -1);
    EXPECT_EQ(pffollow("gauge", nullptr), -1);
    pfwant_free(wants);
    EXPECT_EQ(pffollowed("gauge", wants), nullptr);
    EXPECT_EQ(state, nullptr);
    EXPECT_EQ(follow(), 1);  // it begins anew
}

TEST_F(Pffollow, NeverFillsTheLogWithChanges)
{
    for (int i = 1; i <= 80; ++i) {
        replace("interval " + std::to_string(i) + "\n");
        ASSERT_EQ(follow(), 1);
    }
    EXPECT_LT(elog_mark(), 50);
}

TEST_F(Pffollow, LeavesErrnoAlone)
{
    errno = 99;
    EXPECT_EQ(follow(), -1);
    EXPECT_EQ(errno, 99);
}

TEST(PffollowThreads, EachThreadFollowsWithATableOfItsOwn)
{
    const PfPath path;
    path.local("gauge.pf", "samples 1\n");
    std::atomic<int> seen = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            int samples = 0;
            char *state = nullptr;
            const Pfwant wants[] = {
                {"samples", PFWANT_INT(&samples), "0", 0, 0, nullptr},
                {"state", PFWANT_TEXT(&state), "here", 0, 0, nullptr},
                PFWANT_END,
            };
            for (int i = 0; i < 2000 && samples != 2; ++i) {
                if (pffollow("gauge", wants) == 1 && samples == 1)
                    ++seen;
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
            EXPECT_EQ(samples, 2);
            pfwant_free(wants);
        });
    while (seen < 4)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    rename(path.local("new", "samples 2\n").c_str(), (path.dirs() / "local/gauge.pf").c_str());
    for (std::thread &thread : threads)
        thread.join();
    elog_clear();
}
