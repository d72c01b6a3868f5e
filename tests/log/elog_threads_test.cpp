// Many threads at the log at once: nothing is lost, nothing appears twice.

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "stock/bury.h"
#include "stock/pf.h"
#include "support/logging.h"
#include "support/pf_files.h"
#include "support/temp_dir.h"

namespace {

constexpr int kThreads = 8;
constexpr int kMessages = 300;  // of each thread

void run_threads(const std::function<void(int thread)> &body)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back(body, i);
    for (std::thread &thread : threads)
        thread.join();
}

// How often each line appears.
std::map<std::string, int> lines_of(const std::string &text)
{
    std::map<std::string, int> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        ++lines[line];
    return lines;
}

std::string line(int thread, int i)
{
    return "thread " + std::to_string(thread) + " message " + std::to_string(i);
}

// Expects the messages of all threads once each, and nothing else.
void expect_all_once(const std::string &text, const std::string &tag = "")
{
    const std::map<std::string, int> lines = lines_of(text);
    EXPECT_EQ(lines.size(), static_cast<size_t>(kThreads * kMessages));
    for (int thread = 0; thread < kThreads; ++thread)
        for (int i = 0; i < kMessages; ++i) {
            const auto found = lines.find(tag + line(thread, i));
            ASSERT_NE(found, lines.end()) << line(thread, i);
            ASSERT_EQ(found->second, 1) << line(thread, i);
        }
}

}  // namespace

TEST(ElogThreads, LoggingAndComplainingAtOnceDeliversEachMessageOnce)
{
    const Ended ended = logged({"ELOG_MAXMSG=0"}, [] {
        elog_set(ELOG_TAG_FIELD, -1, "");
        run_threads([](int thread) {
            for (int i = 0; i < kMessages; ++i)
                (i % 3 == 0 ? elog_complain : elog_log)(0, "%s", line(thread, i).c_str());
        });
        elog_flush(1, 0);
    });
    expect_all_once(ended.err);
}

TEST(ElogThreads, DeliveringToAFileKeepsEachMessageWhole)
{
    const BlanklessDir dir;
    const std::string file = dir / "f";
    logged({"ELOG_MAXMSG=0"}, [&] {
        elog_set(ELOG_TAG_FIELD, -1, "");
        elog_set(ELOG_DELIVER_FIELD, 4, file.c_str());
        run_threads([](int thread) {
            for (int i = 0; i < kMessages; ++i)
                (i % 3 == 0 ? elog_complain : elog_log)(0, "%s", line(thread, i).c_str());
        });
        elog_flush(1, 0);
    });
    expect_all_once(read_file(file));
}

TEST(ElogThreads, LoggingDeliveringFlushingQueryingAndSettingAtOnce)
{
    const Ended ended = logged({"ELOG_MAXMSG=0", "ELOG_TAG=tag"}, [] {
        run_threads([](int thread) {
            for (int i = 0; i < kMessages; ++i) {
                elog_log(0, "%s", line(thread, i).c_str());
                Tbl *copy = nullptr;
                int count = 0;
                switch ((i + thread) % 8) {
                case 0: elog_flush(1, 0); break;
                case 1: elog_clear_register(1); break;
                case 2: free(elog_string(0)); break;
                case 3:
                    elog_query(ELOG_TBL_COPY, 0, &copy);
                    freetbl(copy, elog_free_msg);
                    break;
                case 4: elog_query(ELOG_COUNT, 0, &count); break;
                case 5: elog_set(ELOG_DELIVER_FIELD, 3, "stdout"); break;
                case 6: elog_mark(); break;
                default: elog_init(0, nullptr); break;
                }
            }
        });
        elog_flush(1, 0);
    });
    expect_all_once(ended.err, "tag: ");
    EXPECT_EQ(ended.out, "");
}

TEST(ElogThreads, TakenAndDeliveredMessagesTogetherAreAll)
{
    const Ended ended = logged({"ELOG_MAXMSG=0"}, [] {
        elog_set(ELOG_TAG_FIELD, -1, "");
        run_threads([](int thread) {
            for (int i = 0; i < kMessages; ++i) {
                elog_log(0, "%s", line(thread, i).c_str());
                if (i % 10 != thread)
                    continue;
                Tbl *taken = nullptr;
                elog_query(ELOG_TBL_TAKE, 0, &taken);
                for (int64_t j = 0; j < taken->count; ++j)
                    elog_fprintf(stderr, "%s", static_cast<Elog_msg *>(gettbl(taken, j))->msg);
                freetbl(taken, elog_free_msg);
            }
        });
        elog_flush(1, 0);
    });
    expect_all_once(ended.err);
}

TEST(ElogThreads, FprintfDoesNotInterleaveWithMessages)
{
    const std::string half(2000, 'x');
    const Ended ended = logged({}, [&] {
        elog_set(ELOG_TAG_FIELD, -1, "");
        run_threads([&](int thread) {
            for (int i = 0; i < 50; ++i)
                if (thread % 2)
                    elog_fprintf(stderr, "%s|%s\n", half.c_str(), half.c_str());
                else
                    elog_complain(0, "%s|%s", half.c_str(), half.c_str());
        });
    });
    const std::map<std::string, int> lines = lines_of(ended.err);
    EXPECT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines.begin()->first, half + "|" + half);
    EXPECT_EQ(lines.begin()->second, kThreads * 50);
}

TEST(ElogThreads, TheFirstReportsOfManyThreadsInitialiseTheLogOnce)
{
    const Ended ended = logged({"ELOG_DELIVER=stderr", "ELOG_TAG=tag"}, [] {
        std::atomic<int> ready{0};
        run_threads([&](int thread) {
            ++ready;
            while (ready < kThreads) {
            }
            elog_complain(0, "thread %d", thread);
        });
    });
    for (int thread = 0; thread < kThreads; ++thread)
        EXPECT_NE(ended.err.find("thread " + std::to_string(thread) + "\n"), std::string::npos);
}

TEST(ElogThreads, TagsExpandWhileTheCommandLineIsRefreshed)
{
    const Ended ended = logged({"ELOG_TAG=%P %T %p %h %a %r %e@Dcnad", "PATH=/nowhere"}, [] {
        run_threads([](int thread) {
            char name[] = "p", argument[] = "argument";
            char *argv[] = {name, argument, nullptr};
            for (int i = 0; i < 100; ++i)
                if (thread % 2)
                    elog_init(2, argv);
                else
                    free(elogstr(4, 0, "x"));
        });
        elog_complain(0, "end");
    });
    EXPECT_NE(ended.err.find("elog_threads_test"), std::string::npos);
    EXPECT_EQ(ended.status, 0) << ended.err;
}

TEST(ElogThreads, TheCommandLineIsNotFreedUnderAnExpansion)
{
    const Ended ended = logged({}, [] {
        run_threads([](int thread) {
            char name[] = "p", argument[] = "argument";
            char *argv[] = {name, argument, nullptr};
            elog_init(2, argv);
            for (int i = 0; i < 3000; ++i) {
                char text[200];
                elog_expand("%a%a%a%a%a%a", 0, text, sizeof text);
                if (strncmp(text, "argument argument ", 18) != 0)
                    abort();
                if (thread % 2)
                    elog_init(2, argv);
            }
        });
    });
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.signal, 0);
}

TEST(ElogThreads, EachMessageCarriesItsThread)
{
    const Ended ended = logged({}, [] {
        std::atomic<uint64_t> other{0};
        std::thread([&] {
            other = static_cast<uint64_t>(pthread_self());
            elog_log(0, "from the other");
        }).join();
        elog_log(0, "from this");
        Tbl *stack = nullptr;
        elog_query(ELOG_TBL, 0, &stack);
        printf("%d %d", static_cast<Elog_msg *>(gettbl(stack, 0))->thread == other,
               static_cast<Elog_msg *>(gettbl(stack, 1))->thread ==
                   static_cast<uint64_t>(pthread_self()));
    });
    EXPECT_EQ(ended.out, "1 1");
}

TEST(ElogThreads, DyingInAllAtOncePrintsEachMessageAndExitsWithOne)
{
    const Ended ended = logged(
        {"ELOG_TAG=%s"}, [] { run_threads([](int thread) { elog_die(0, "thread %d", thread); }); });
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.signal, 0);
    EXPECT_EQ(ended.err.substr(0, 12), "die: thread ");
}

TEST(ElogThreads, DyingWhileAnExitHandlerNeedsTheLogDoesNotHang)
{
    const Ended ended = logged({"ELOG_TAG=%s"}, [] {
        atexit([] {
            std::thread([] { elog_complain(0, "from a thread at exit"); }).join();
            elog_complain(0, "at exit");
        });
        elog_die(0, "end");
    });
    EXPECT_EQ(ended.err, "die: end\ncomplain: from a thread at exit\ncomplain: at exit\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogThreads, InitialisingDoesNotWaitForADelivery)
{
    const Ended ended = logged({}, [] {
        static std::atomic<bool> inside{false};
        static std::atomic<bool> go_on{false};
        elog_init(0, nullptr);
        elog_set(
            ELOG_CALLBACK_FN, 0, +[](int, const char *, Tbl *) {
                inside = true;
                while (!go_on)
                    std::this_thread::yield();
                return 0;
            });
        std::thread complaining([] { elog_complain(0, "x"); });
        while (!inside)
            std::this_thread::yield();
        setenv("ELOG_DELIVER", "stdout", 1);
        elog_init(0, nullptr);  // returns although the other thread holds the log's lock
        go_on = true;
        complaining.join();
    });
    EXPECT_EQ(ended.err, "elog_threads_test: x\n");
    EXPECT_EQ(ended.out, "");
}

namespace {

// A pipe. say() writes to it and closes its writing end.
struct Pipe {
    int ends[2];
    Pipe()
    {
        if (pipe(ends) != 0)
            abort();
    }
    void say(const char *text)
    {
        if (write(ends[1], text, strlen(text)) < 0)
            abort();
        close(ends[1]);
    }
};

}  // namespace

// The first report used to convert ELOG_REFERENCE_TIME, which reads a parameter file, with the
// log's lock held. It waited for a parse in another thread, which waited for the log to report.
TEST(ElogThreads, TheFirstReportReadsTheReferenceTimeWhileAnotherThreadsParseReports)
{
    const Ended ended = logged({"ELOG_REFERENCE_TIME=02/01/2008 12:30", "ELOG_TAG=%s"}, [] {
        alarm(20);
        Pipe pipe;
        std::atomic<bool> complained{false};
        std::thread parsing([&] {
            Pf *pf = nullptr;
            pfinfd(pipe.ends[0], &pf);
            pffree(pf);
        });
        usleep(50000);
        std::thread complaining([&] {
            elog_complain(0, "x");
            complained = true;
        });
        usleep(50000);
        pipe.say("gauges north\n}\n");
        parsing.join();
        complaining.join();
        double reference = 0;
        elog_query(ELOG_REFERENCE, 0, &reference);
        printf("%d %.0f", +complained, reference);
    });
    EXPECT_EQ(ended.out, "1 1201869000");
    EXPECT_EQ(ended.status, 0) << ended.err;
}

TEST(ElogThreads, ALogFunctionThatParsesDoesNotWaitForAParseThatReports)
{
    const Ended ended = logged({"ELOG_MAXMSG=0", "ELOG_STACK="}, [] {
        alarm(60);
        static std::atomic<int> parsed{0};
        elog_set(
            ELOG_CALLBACK_FN, 0, +[](int, const char *, Tbl *) {
                Pf *pf = nullptr;
                pfcompile("limit 20 mm\n", &pf);
                parsed += pfget_string(pf, "limit") != nullptr;
                pffree(pf);
                return 1;
            });
        run_threads([](int) {
            for (int i = 0; i < kMessages; ++i) {
                Pf *pf = nullptr;
                pfcompile("gauge north\n&x}\ngauges &Tbl{\n", &pf);
                pffree(pf);
            }
        });
        printf("%d", +parsed);
    });
    EXPECT_EQ(ended.out, std::to_string(kThreads * kMessages));
    EXPECT_EQ(ended.status, 0) << ended.err;
}

// A parse used to hold a lock while it read from a pipe. The log function waited for that lock
// with the log's lock held, and so did every thread that reported.
TEST(ElogThreads, ALogFunctionThatParsesDoesNotWaitForOneThatReadsAPipe)
{
    const Ended ended = logged({"ELOG_TAG=%s"}, [] {
        alarm(20);
        Pipe pipe;
        std::thread parsing([&] {
            Pf *pf = nullptr;
            pfinfd(pipe.ends[0], &pf);
            printf("%s", pfget_string(pf, "gauge"));
            pffree(pf);
        });
        usleep(50000);
        elog_set(
            ELOG_CALLBACK_FN, 0, +[](int, const char *, Tbl *) {
                Pf *pf = nullptr;
                const int status = pfcompile("limit 20 mm\n", &pf);
                pffree(pf);
                return status;
            });
        elog_complain(0, "x");
        pipe.say("gauge north\n");
        parsing.join();
    });
    EXPECT_EQ(ended.err, "complain: x\n");
    EXPECT_EQ(ended.out, "north");
}

// One thread could not save the state and was about to report that. In another thread the log
// function, with the log's lock held, waited to save the state.
TEST(ElogThreads, ALogFunctionThatSavesTheStateDoesNotWaitForASaveThatReports)
{
    const Ended ended = logged({"ELOG_MAXMSG=0"}, [] {
        alarm(60);
        static std::atomic<int> failed{0};
        const TempDir dir;
        const std::string state = dir.file("gone/state", "");
        exhume(state.c_str(), nullptr, -1, nullptr);
        std::filesystem::remove_all(dir / "gone");
        elog_set(
            ELOG_CALLBACK_FN, 0, +[](int, const char *, Tbl *) {
                failed += bury() != 0;
                return 1;
            });
        run_threads([](int) {
            for (int i = 0; i < kMessages; ++i)
                failed += bury() != 0;
        });
        printf("%d", failed >= 2 * kThreads * kMessages);
    });
    EXPECT_EQ(ended.out, "1");
    EXPECT_EQ(ended.status, 0) << ended.err;
}

// An update used to hold a lock while it read a file and reported. In another thread the log
// function waited for that lock with the log's lock held.
TEST(ElogThreads, ALogFunctionThatUpdatesDoesNotWaitForAnUpdateThatReports)
{
    const Ended ended = logged({"ELOG_MAXMSG=0"}, [] {
        alarm(60);
        static std::atomic<int> updated{0};
        const PfPath path;
        path.site("north.pf", "limit 20 mm\n}\n");
        path.site("south.pf", "limit 25 mm\n");
        elog_set(
            ELOG_CALLBACK_FN, 0, +[](int, const char *, Tbl *) {
                Pf *pf = nullptr;
                updated += pfupdate("south", &pf) >= 0 && pfget_string(pf, "limit") != nullptr;
                pffree(pf);
                return 1;
            });
        run_threads([](int) {
            for (int i = 0; i < 100; ++i) {
                Pf *pf = nullptr;
                pfupdate("north", &pf);
                pffree(pf);
            }
        });
        printf("%d", updated >= kThreads * 100);
    });
    EXPECT_EQ(ended.out, "1");
    EXPECT_EQ(ended.status, 0) << ended.err;
}
