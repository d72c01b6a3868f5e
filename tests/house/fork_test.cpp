// A fork while other threads use the library: the child does not wait for a thread that it does
// not have, and goes on where its own thread was.

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "deviants.h"
#include "stock.h"
#include "support/child.h"
#include "support/logging.h"
#include "support/owners.h"
#include "support/temp_dir.h"

// Another thread may hold the lock of the address sanitizer's allocator at a fork; the child
// then waits for it for ever.
#ifndef __SANITIZE_ADDRESS__

namespace {

constexpr int kThreads = 8;
constexpr int kForks = 40;
constexpr unsigned kSeconds = 30;  // after which a child counts as hanging

// Runs the work in a child of this process. True when it came to its end.
bool child_ends(const std::function<void()> &work)
{
    const pid_t pid = fork();
    if (pid == 0) {
        signal(SIGALRM, SIG_DFL);
        alarm(kSeconds);
        work();
        _exit(0);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Forks again and again while threads do the work; each child does it too.
void expect_children_end(const std::function<void(int thread)> &work)
{
    in_child([&] {
        std::atomic<bool> stop = false;
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i)
            threads.emplace_back([&, i] {
                while (!stop)
                    work(i);
            });
        int ended = 0;
        for (int i = 0; i < kForks && ended == i; ++i)
            ended += child_ends([&] { work(kThreads); });
        stop = true;
        for (std::thread &thread : threads)
            thread.join();
        EXPECT_EQ(ended, kForks);
    });
}

}  // namespace

TEST(ForkThreads, AChildLogs)
{
    const BlanklessDir dir;
    const std::string deliver = dir / "log";
    expect_children_end([&](int thread) {
        elog_set(ELOG_DELIVER_FIELD, ELOG_COMPLAIN, deliver.c_str());
        elog_complain(0, "rain in gauge %d", thread);
        elog_log(0, "dry");
        elog_clear();
    });
}

TEST(ForkThreads, AChildReadsParameters)
{
    const TempDir dir;
    dir.file("gauge.pf", "north 3\nsouth &Tbl{\n 1\n 2\n}\nlimit &north\nother &ref(depth,mm)\n");
    dir.file("depth.pf", "mm 7\n");
    setenv("PFPATH", dir.path().c_str(), 1);
    expect_children_end([](int) {
        Pf *pf = nullptr;
        EXPECT_EQ(pfread("gauge", &pf), 0);
        EXPECT_EQ(pfget_int(pf, "limit"), 3);
        EXPECT_EQ(pfget_int(pf, "other"), 7);
        pffree(pf);
    });
}

TEST(ForkThreads, AChildReadsAndPrintsTimes)
{
    expect_children_end([](int thread) {
        const char *zone = thread % 2 ? "US/Pacific" : "Europe/Zurich";
        std::free(zepoch2str("%Y-%m-%d %H:%M:%S %Z", zone, 1e9));
        (void)str2epoch("2026-11-22 03:00 US/Mountain");
    });
}

TEST(ForkThreads, AChildMapsFiles)
{
    const TempDir dir;
    const std::string file = dir.file("rain", "north 3\n");
    expect_children_end([&](int) {
        void *text = nullptr;
        EXPECT_EQ(mapfile(file.c_str(), &text, nullptr), 8);
        EXPECT_EQ(is_dir(dir.path().c_str()), 1);
    });
}

TEST(ForkThreads, AChildFollowsParameterFiles)
{
    const TempDir dir;
    dir.file("gauge.pf", "north 3\n");
    setenv("PFPATH", dir.path().c_str(), 1);
    expect_children_end([](int) {
        Pf *pf = nullptr;
        EXPECT_GE(pfupdate("gauge", &pf), 0);
        EXPECT_EQ(pfget_int(pf, "north"), 3);
        pffree(pf);
    });
}

TEST(ForkThreads, AChildCallsUserMethods)
{
    setenv("USER_LIBRARY", USER_LIBRARY_ONE, 1);
    expect_children_end([](int) {
        EXPECT_NE(usermethod("version"), nullptr);
        usermethod_init();
    });
}

TEST(ForkThreads, AChildSavesTheState)
{
    const TempDir dir;
    in_child([&] {
        static int rain = 3;
        EXPECT_EQ(exhume((dir / "state").c_str(), nullptr, 0, nullptr), 0);
        EXPECT_EQ(resurrect("rain", &rain, RELIC_INT), 1);
        expect_children_end([](int) {
            (void)bury();  // fails where another process is quicker
            (void)gravesite();
            elog_clear();
        });
    });
}

// ---- Forks of a thread that is in the middle of something ----

namespace {

bool child_of_log_function_ended = false;

int fork_in_log_function(int, const char *, Tbl *)
{
    child_of_log_function_ended = child_ends([] {
        elog_log(0, "in the child");
        EXPECT_NE(usermethod("version"), nullptr);
    });
    return 0;
}

}  // namespace

TEST(ForkThreads, TheLogFunctionMayForkWhileOthersLoadMethodsAndLog)
{
    setenv("USER_LIBRARY", USER_LIBRARY_ONE, 1);
    in_child([] {
        std::atomic<bool> stop = false;
        std::vector<std::thread> threads;
        elog_set(ELOG_DELIVER_FIELD, -1, "/dev/null");
        for (int i = 0; i < kThreads; ++i)
            threads.emplace_back([&] {
                while (!stop) {
                    usermethod_init();
                    usermethod("version");
                    elog_log(0, "dry");
                }
            });
        for (int i = 0; i < kForks; ++i) {
            child_of_log_function_ended = false;
            elog_set(ELOG_CALLBACK_FN, 0, fork_in_log_function);
            elog_complain(0, "rain");
            elog_set(ELOG_CALLBACK_FN, 0, static_cast<Elog_callback>(nullptr));
            EXPECT_TRUE(child_of_log_function_ended);
        }
        stop = true;
        for (std::thread &thread : threads)
            thread.join();
    });
}

TEST(ForkThreads, ThreadsMayForkAtOnce)
{
    in_child([] {
        std::atomic<int> ended = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i)
            threads.emplace_back([&] {
                for (int j = 0; j < 5; ++j)
                    ended += child_ends([] { elog_log(0, "in the child"); });
            });
        for (std::thread &thread : threads)
            thread.join();
        EXPECT_EQ(ended, kThreads * 5);
    });
}

TEST(Fork, ExtraValuesOfTheStateMayFork)
{
    const TempDir dir;
    in_child([&] {
        static bool ended = false;
        EXPECT_EQ(exhume((dir / "state").c_str(), nullptr, 0,
                         [](Pf *) { ended = child_ends([] { elog_log(0, "in the child"); }); }),
                  0);
        EXPECT_EQ(bury(), 0);
        EXPECT_TRUE(ended);
    });
}

// An end that another thread of the parent has begun is none of the child's.
TEST(Fork, AChildThatDiesWhileTheParentEndsDoesNotWait)
{
    const Ended ended = in_child([] {
        static std::atomic<bool> ending = false;
        static std::atomic<int> status = -1;
        std::atexit([] {
            ending = true;
            while (status < 0)
                usleep(1000);
        });
        std::thread forks([] {
            while (!ending)
                usleep(1000);
            const pid_t pid = fork();
            if (pid == 0) {
                alarm(5);  // an end waits ten seconds for that of another thread
                elog_die(0, "the child dies");
            }
            int child = 0;
            waitpid(pid, &child, 0);
            status = WIFEXITED(child) ? WEXITSTATUS(child) : 99;
            std::printf("%d\n", status.load());
            std::fflush(stdout);
        });
        forks.detach();
        elog_die(0, "the parent dies");
    });
    EXPECT_NE(ended.err.find("the child dies"), std::string::npos) << ended.err;
}

// What the parent's other threads were noting and parsing concerns no child.
TEST(Fork, AChildOfAThreadReadsItsSettingsAlthoughTheParentParses)
{
    const BlanklessDir dir;
    dir.file("elog.pf", "ELOG_TAG &Arr{\ncomplain from the file\n}\n");
    setenv("PFPATH", dir.path().c_str(), 1);
    const Ended ended = in_child([&] {
        int slow[2];
        ASSERT_EQ(pipe(slow), 0);
        std::thread parses([&] {
            Pf *pf = nullptr;
            FILE *stream = fdopen(slow[0], "r");
            pfin(stream, &pf);
            pffree(pf);
            fclose(stream);
        });
        ASSERT_EQ(write(slow[1], "north 3\n", 8), 8);
        usleep(200000);
        EXPECT_TRUE(child_ends([] { elog_complain(0, "too much rain"); }));
        close(slow[1]);
        parses.join();
    });
    EXPECT_EQ(ended.err, "from the file: too much rain\n");
}

#endif
