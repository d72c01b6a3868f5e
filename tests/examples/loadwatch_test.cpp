// examples/loadwatch, as it runs: each test starts the daemon in a directory of its own.

#include <chrono>
#include <csignal>
#include <cstdio>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "deviants.h"
#include "stock.h"
#include "support/child.h"
#include "support/owners.h"
#include "support/temp_dir.h"

namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

constexpr size_t kPackedSize = 28;

size_t count(const std::string &text, const std::string &part)
{
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++n;
    return n;
}

class Loadwatch : public testing::Test {
protected:
    Loadwatch()
    {
        dir_.file("elog.pf", read_file(source_path("examples/loadwatch/elog.pf")));
        dir_.file("load", "0.50 0.25 0.125 1/95 123\n");
        dir_.file("memory", "MemTotal: 3000 kB\nMemFree: 1 kB\nMemAvailable: 1000 kB\n");
        parameters("");
    }
    ~Loadwatch() override
    {
        if (pid_ > 0)
            stop(SIGKILL);
    }

    // Gives loadwatch.pf its usual values, and then some of the test's own.
    void parameters(const std::string &own)
    {
        replace("loadwatch.pf",
                read_file(source_path("examples/loadwatch/loadwatch.pf")) +
                    "\nloadavg load\nmeminfo memory\ninterval 0.02\nprocessors 4\n" + own);
    }

    // In one step: the daemon sees the old file or the new one.
    void replace(const std::string &name, const std::string &text)
    {
        rename(dir_.file(name + "~", text).c_str(), (dir_ / name).c_str());
    }

    static pid_t launch(const std::string &directory, const std::vector<std::string> &arguments)
    {
        std::vector<char *> argv = {const_cast<char *>(LOADWATCH)};
        for (const std::string &argument : arguments)
            argv.push_back(const_cast<char *>(argument.c_str()));
        argv.push_back(nullptr);
        const pid_t pid = fork();
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);  // no test leaves a daemon behind
            for (const char *name : {"PFPATH", "TALUVINE", "ELOG_DELIVER", "ELOG_TAG"})
                unsetenv(name);
            if (chdir(directory.c_str()) == 0 && freopen("/dev/null", "a", stdout) &&
                freopen("stderr", "a", stderr))
                execv(LOADWATCH, argv.data());
            _exit(127);
        }
        return pid;
    }

    void start(const std::vector<std::string> &arguments = {})
    {
        pid_ = launch(dir_.path(), arguments);
    }

    // Waits for a process to end: its exit status, or minus the signal that ended it.
    static int status_of(pid_t pid)
    {
        int status = 0;
        waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    int end() { return status_of(std::exchange(pid_, 0)); }

    int stop(int signal = SIGTERM)
    {
        kill(pid_, signal);
        return end();
    }

    std::string log() const { return read_file(dir_ / "loadwatch.log"); }
    std::string errors() const { return read_file(dir_ / "stderr"); }

    // Waits until the condition holds. What is waited for comes within milliseconds.
    template <class Condition>
    static void wait_until(const char *what, Condition condition)
    {
        for (int i = 0; i < 2000; ++i) {
            if (condition())
                return;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        FAIL() << "not seen: " << what;
    }
    void wait_for_log(const std::string &text)
    {
        wait_until(text.c_str(), [&] { return log().find(text) != std::string::npos; });
    }
    void wait_for_samples(int n)
    {
        wait_until("samples", [&] { return saved_int("samples") >= n; });
    }

    // A value of the state file, as a parameter file reads it; empty when it is not there.
    std::string saved(const char *name) const
    {
        Pf *pf = nullptr;
        const int status = pfcompile(read_file(dir_ / "loadwatch.state").c_str(), &pf);
        const PfPtr owner(pf);
        elog_clear();
        const char *text = status == 0 ? pfget_string(pf, name) : nullptr;
        return text ? text : "";
    }
    int saved_int(const char *name) const { return atoi(saved(name).c_str()); }

    TempDir dir_;
    pid_t pid_ = 0;
};

}  // namespace

TEST_F(Loadwatch, KeepsSamplesAndStopsInOrderOnEachStopSignal)
{
    int starts = 0;
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
        SCOPED_TRACE(signal);
        const int before = saved_int("samples");
        start();
        wait_for_samples(before + 2);
        EXPECT_EQ(stop(signal), 0);
        EXPECT_EQ(saved_int("starts"), ++starts);
        EXPECT_THAT(log(), HasSubstr("stopped by " + std::string(signal_bysig(signal)->name) +
                                     " after " + saved("samples") + " samples\n"));
    }
    const TblPtr list(readtbl((dir_ / "loadwatch.tbl").c_str(), nullptr, 0));
    ASSERT_TRUE(list);
    EXPECT_EQ(list->count, saved_int("samples"));
    const auto *sample = static_cast<const double *>(gettbl(list.get(), 0));
    EXPECT_NEAR(sample[0], std_now(), 60);
    EXPECT_EQ(sample[1], 0.5);
    EXPECT_EQ(sample[2], 0.25);
    EXPECT_EQ(sample[3], 0.125);
    EXPECT_EQ(sample[4], 2000 * 1024);
    EXPECT_EQ(errors(), "");
}

TEST_F(Loadwatch, ReadsWhatTheKernelSays)
{
    parameters("loadavg /proc/loadavg\nmeminfo /proc/meminfo\n");
    start();
    wait_for_samples(2);
    EXPECT_EQ(stop(), 0);
    const TblPtr list(readtbl((dir_ / "loadwatch.tbl").c_str(), nullptr, 0));
    ASSERT_TRUE(list);
    const auto *sample = static_cast<const double *>(gettbl(list.get(), 1));
    EXPECT_GE(sample[1], 0);
    EXPECT_GT(sample[4], 1e6);
    EXPECT_THAT(log(), Not(HasSubstr("*error*")));
}

TEST_F(Loadwatch, RemembersAcrossARestart)
{
    parameters("limits &Arr{\nload1 0.1\nused 1G\n}\n");
    start();
    wait_for_log("*alert*: load1 is 0.50, above 0.10\n");
    wait_for_samples(1);
    EXPECT_EQ(stop(), 0);
    const std::string samples = saved("samples");
    EXPECT_EQ(saved("raised"), "1");
    EXPECT_EQ(saved("last_alert"), "load1 is 0.50, above 0.10");
    EXPECT_EQ(atof(saved("last_load").c_str()), 0.5);
    const double started = str2epoch(saved("started").c_str());
    EXPECT_NEAR(started, std_now(), 60);

    // The alert is known, so that only its end is told.
    dir_.file("load", "0.05 0 0 1/95 123\n");
    start();
    wait_for_log("loadwatch: load1 is back to normal: 0.05\n");
    EXPECT_EQ(stop(), 0);
    EXPECT_THAT(log(), ContainsRegex("start 2: " + samples +
                                     " samples and 1 alerts since .*, the "
                                     "last: load1 is 0.50, above 0.10\n"));
    EXPECT_EQ(count(log(), "*alert*"), 1u);
    EXPECT_NEAR(str2epoch(saved("started").c_str()), started, 0.001);
    EXPECT_EQ(saved("raised"), "0");
}

TEST_F(Loadwatch, ForgetsNoSampleWhenItIsKilled)
{
    start();
    wait_for_samples(3);
    EXPECT_EQ(stop(SIGKILL), -SIGKILL);
    const int samples = saved_int("samples");
    start();
    wait_for_samples(samples + 1);
    EXPECT_EQ(stop(), 0);
    EXPECT_THAT(log(), HasSubstr("start 2: " + std::to_string(samples) + " samples"));
}

TEST_F(Loadwatch, FollowsItsParametersWhileItRuns)
{
    start();
    wait_for_samples(1);
    parameters("limits &Arr{\nload1 4\nused 1M\n}\nkeep 3\n");
    wait_for_log("*alert*: used is 2.05 MB, above 1.00 MB\n");
    parameters("limits &Arr{\nload1 4\nused 1G\n}\nkeep 3\n");
    wait_for_log("used is back to normal: 2.05 MB\n");
    wait_for_samples(saved_int("samples") + 5);
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(count(log(), "parameters of loadwatch read again"), 2u);
    const TblPtr list(readtbl((dir_ / "loadwatch.tbl").c_str(), nullptr, 0));
    ASSERT_TRUE(list);
    EXPECT_EQ(list->count, 3);
}

TEST_F(Loadwatch, RaisesNoAlertBeforeTheQuietTimeIsOver)
{
    parameters("limits &Arr{\nload1 0.1\nused 1\n}\nquiet_until 1 Jan 2500\n");
    start();
    wait_for_samples(3);
    EXPECT_EQ(stop(), 0);
    EXPECT_THAT(log(), Not(HasSubstr("*alert*")));
}

TEST_F(Loadwatch, WritesPackedRecordsWhenAsked)
{
    parameters("packed packed\n");
    start();
    wait_for_samples(2);
    EXPECT_EQ(stop(), 0);
    std::string bytes = read_file(dir_ / "packed");
    EXPECT_EQ(bytes.size(), kPackedSize * static_cast<size_t>(saved_int("samples")));
    char *at = bytes.data();
    double time = 0, load[3] = {};
    long memory = 0;
    md2hd(&at, &time, 1);
    mf2hd(&at, load, 3);
    ml2hl(&at, &memory, 1);
    EXPECT_NEAR(time, std_now(), 60);
    EXPECT_EQ(load[0], 0.5);
    EXPECT_EQ(load[2], 0.125);
    EXPECT_EQ(memory, 2000 * 1024);
}

TEST_F(Loadwatch, DoesNotStartWithParametersThatItCannotUse)
{
    const struct {
        const char *own, *message;
    } cases[] = {
        {"interval &Undef{}\n", ": interval: is missing (a duration)\n"},
        {"interval -1\n", ":44: interval: '-1' is out of range (0.01 s to 86400 s)\n"},
        {"interval nan\n", "interval: 'nan' is not a duration (0.01 s to 86400 s)\n"},
        {"state &Undef{}\n", ": state: is missing (a text)\n"},
        {"intreval 5\n", "intreval: nothing wants this; did you mean 'interval'?\n"},
        {"watch &Tbl{\nload9\n}\n", "watch[0]: 'load9' is none of load1, load5, load15, used\n"},
        {"watch &Tbl{\n&Arr{\n}\n}\n", "watch[0]: is a table, not a word\n"},
        {"watch here\n", "watch: 'here' is not a list\n"},
        {"limits &Tbl{\n1\n}\n",
         "limits{load1}: is missing: what it should stand in is no table\n"},
        {"limits &Arr{\n", "this table is not closed\n"},
        {"}\n", "this '}' closes nothing\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.own);
        parameters(c.own);
        start();
        EXPECT_EQ(end(), 1);
        EXPECT_THAT(errors(), AllOf(HasSubstr(c.message),
                                    HasSubstr("can't start without the parameters of loadwatch")));
        unlink((dir_ / "stderr").c_str());
    }
    start({"elsewhere"});
    EXPECT_EQ(end(), 1);
    EXPECT_THAT(errors(), HasSubstr("can't start without the parameters of elsewhere"));
    EXPECT_NE(access((dir_ / "loadwatch.state").c_str(), F_OK), 0);
}

TEST_F(Loadwatch, KeepsTheOldParametersWhenNewOnesCannotBeUsed)
{
    start();
    wait_for_samples(1);
    parameters("interval 0\n");
    wait_for_log("interval: '0' is out of range (0.01 s to 86400 s)\n");
    wait_for_log("*error*: can't use the parameters of loadwatch: the old ones stay\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    unlink((dir_ / "loadwatch.pf").c_str());
    wait_until("a second complaint", [&] { return count(log(), "the old ones stay") == 2; });
    wait_for_samples(saved_int("samples") + 3);
    EXPECT_EQ(count(log(), "the old ones stay"), 2u);
    parameters("");
    wait_for_log("parameters of loadwatch read again\n");
    EXPECT_EQ(stop(), 0);
}

// What may happen to the file of a daemon that runs for years. Every setting that a file
// without it would lose shows: an alert would be over, a packed record would be missing.
TEST_F(Loadwatch, ItsFileMaySufferAHundredTimesWithoutALostSetting)
{
    const std::string file = dir_ / "loadwatch.pf";
    const auto whole = [](int round) {
        return "packed packed\nlimits &Arr{\n    load1 0.1\n    used 1G\n}\nwatch &Tbl{\nload1\n"
               "used\n}\ngrace " +
               std::to_string(5 + round) +
               " s\nloadavg load\nmeminfo memory\nsamples loadwatch.tbl\nstate "
               "./loadwatch.state\ninterval 20 ms\nquiet_until 1 Jan 2008\nkeep 50\n";
    };
    std::mt19937 random(1);
    const auto pause = [&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 30));
    };
    replace("loadwatch.pf", whole(0));
    start();
    wait_for_log("*alert*: load1 is 0.50, above 0.10\n");
    for (int round = 1; round <= 100; ++round) {
        SCOPED_TRACE(round);
        const std::string text = whole(round);
        const bool let_it_see = round % 10 == 0;
        const auto seen = [&](const std::string &what) {
            if (let_it_see)
                wait_for_log(what);
            else
                pause();
        };

        const int fd = open(file.c_str(), O_WRONLY | O_TRUNC);
        for (size_t i = 0; i < text.size(); ++i) {
            ASSERT_EQ(write(fd, &text[i], 1), 1);
            if (i % 32 == 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        close(fd);
        seen(" -> " + std::to_string(5 + round) + " s\n");

        const size_t before = count(log(), "the old ones stay");
        const auto told = [&](size_t n) {
            if (let_it_see)
                wait_until("a complaint",
                           [&] { return count(log(), "the old ones stay") >= before + n; });
            else
                pause();
        };
        ASSERT_EQ(truncate(file.c_str(), static_cast<off_t>(random() % text.size())), 0);
        told(1);
        replace("loadwatch.pf", "interval 10\nintreval 5\nload1 many\n");
        told(2);
        // The superuser may read what nobody may, but no directory.
        chmod(file.c_str(), 0);
        if (geteuid() == 0) {
            unlink(file.c_str());
            mkdir(file.c_str(), 0755);
        }
        told(3);
        if (geteuid() == 0)
            rmdir(file.c_str());
        std::string rubbish;
        for (int i = 0; i < 2000; ++i)
            rubbish += static_cast<char>(random());
        replace("loadwatch.pf", rubbish);
        told(4);
        const size_t mended = count(log(), "parameters of loadwatch read again");
        replace("loadwatch.pf", text);
        if (let_it_see)
            wait_until("mended",
                       [&] { return count(log(), "parameters of loadwatch read again") > mended; });
        else
            pause();
        ASSERT_EQ(kill(pid_, 0), 0);
    }
    wait_for_samples(saved_int("samples") + 3);
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(errors(), "");
    EXPECT_EQ(saved("starts"), "1");
    EXPECT_EQ(saved("alerts"), "1");
    EXPECT_EQ(saved("raised"), "1");
    EXPECT_THAT(log(), Not(HasSubstr("back to normal")));
    EXPECT_EQ(read_file(dir_ / "packed").size(),
              kPackedSize * static_cast<size_t>(saved_int("samples")));
    // Every problem of the file names its line; of a file that cannot be read there is none.
    std::istringstream lines(log());
    for (std::string line; std::getline(lines, line);)
        if (line.find("loadwatch.pf") != line.npos) {
            EXPECT_THAT(line, AnyOf(ContainsRegex("loadwatch: ./loadwatch.pf:[0-9]+: .+"),
                                    HasSubstr("./loadwatch.pf: can't be read: ")));
        }
}

TEST_F(Loadwatch, PrintsWhatItsFileMaySay)
{
    const Ended ended = run_program({LOADWATCH, "--parameters"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.out, HasSubstr("# between samples\n"
                                     "#: interval: duration, 0.01 s to 86400 s, required\n"
                                     "#interval        \n"));
}

TEST_F(Loadwatch, TellsOnceThatSamplingFailsAndOnceThatItWorksAgain)
{
    unlink((dir_ / "load").c_str());
    start();
    wait_for_log("can't open load\n\t##=> No such file or directory\n");
    wait_for_log("*error*: sampling fails; trying on\n");
    dir_.file("load", "nothing\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(count(log(), "trying on"), 1u);
    dir_.file("load", "1 2 3\n");
    wait_for_log("loadwatch: sampling works again\n");
    dir_.file("memory", "MemTotal: 1 kB\n");
    wait_for_log("no memory sizes in memory\n");
    EXPECT_EQ(stop(), 0);
    EXPECT_THAT(log(), Not(HasSubstr("no load averages")));
}

TEST_F(Loadwatch, SigtermDuringASampleEndsItInOrder)
{
    ASSERT_EQ(mkfifo((dir_ / "pipe").c_str(), 0600), 0);
    parameters("loadavg pipe\n");
    start();
    // Once there is a reader, the daemon waits in the middle of its sample.
    const int fd = open((dir_ / "pipe").c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(stop(), 0);
    close(fd);
    EXPECT_THAT(
        log(), AllOf(HasSubstr("stopped by SIGTERM after 0 samples\n"), Not(HasSubstr("*error*"))));
    EXPECT_EQ(saved("starts"), "1");
}

TEST_F(Loadwatch, DiesWithItsStateSavedWhenTheGraceTimeIsOver)
{
    start();
    wait_for_samples(1);
    EXPECT_EQ(stop(), 0);
    parameters("grace 1\n");
    start();
    wait_for_log("start 2:");
    parameters("grace 1\nprocessors &exec(touch busy; sleep 4)\n");
    wait_until("the command", [&] { return access((dir_ / "busy").c_str(), F_OK) == 0; });
    const auto then = std::chrono::steady_clock::now();
    EXPECT_EQ(stop(), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - then, std::chrono::seconds(3));
    EXPECT_THAT(errors(), HasSubstr("*fatal*: quitting from resurrection alarm\n"));
    EXPECT_EQ(saved("starts"), "2");
}

TEST_F(Loadwatch, TwoDaemonsDoNotShareAStateFile)
{
    start();
    wait_for_samples(1);
    EXPECT_EQ(status_of(launch(dir_.path(), {})), 1);
    EXPECT_THAT(log() + errors(), HasSubstr("already in use"));
    wait_for_samples(saved_int("samples") + 2);
    EXPECT_EQ(saved("starts"), "1");
    EXPECT_EQ(stop(), 0);
}

TEST_F(Loadwatch, RefusesAListThatIsNotItsOwn)
{
    const TblPtr tbl(inittbl(0, 0, 1, "none", 4));
    pushtbl(tbl.get(), "mine");
    const std::string path = dir_ / "loadwatch.tbl";
    ASSERT_EQ(savetbl(tbl.get(), path.c_str(), "another's"), 0);
    start();
    EXPECT_EQ(end(), 1);
    EXPECT_THAT(errors(), HasSubstr("loadwatch.tbl is no list of samples\n"));
    const TblPtr after(readtbl(path.c_str(), nullptr, 0));
    ASSERT_TRUE(after);
    EXPECT_EQ(cmptbl(after.get(), tbl.get()), 0);
}

TEST_F(Loadwatch, StartsAfreshWithAStateFileThatCannotBeRead)
{
    dir_.file("loadwatch.state", "samples &Tbl{\n");
    start();
    wait_for_log("*error*: can't read the state file ./loadwatch.state: starting afresh\n");
    wait_for_samples(1);
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(saved("starts"), "1");
}

TEST_F(Loadwatch, WrongUsageEndsWithTwo)
{
    const std::vector<std::vector<std::string>> cases = {{"--nosuch"}, {"a", "b"}, {""}};
    for (const auto &arguments : cases) {
        start(arguments);
        EXPECT_EQ(end(), 2);
    }
    EXPECT_EQ(count(errors(), "usage: "), cases.size());
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(Loadwatch, ACrashIsReportedAndForgetsNothing)
{
    start({"--crash"});
    EXPECT_EQ(end(), -SIGABRT);
    EXPECT_THAT(errors(), ContainsRegex("\n\nStack\n(.*\n)*.*\\(crash_on_purpose\\+.*\n"
                                        ".*\\(run\\+.*\n.*\\(main\\+.*\n(.*\n)*"
                                        "  address not mapped to object\n"));
    const char *messages[] = {"about to write behind the last sample\n", "Segmentation fault\n",
                              "*fault*: Signal SIGSEGV : Segmentation fault\n"};
    for (const char *message : messages) {
        EXPECT_THAT(errors(), HasSubstr(message));
        EXPECT_THAT(log(), HasSubstr(message));
    }
    EXPECT_EQ(saved("samples"), "1");
}
#endif
