// What the log reports when memory runs out, in the log itself and while it reports that.

#include "stock/elog.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "stock/pf.h"
#include "support/fail_alloc.h"
#include "support/logging.h"
#include "support/temp_dir.h"

namespace {

// The out-of-memory message with its tag, without the line and the file.
std::string message(const std::string &function, const std::string &bytes, const std::string &item)
{
    return "oom_test *fatal*: Out of memory in " + function + "\n\tCan't malloc " + bytes +
           " bytes for " + item + "\n\tCannot allocate memory\n";
}

// The same text with " at line N of 'FILE'" left out wherever it stands.
std::string without_lines(std::string text)
{
    for (size_t at; (at = text.find(" at line ")) != text.npos;)
        text.erase(at, text.find("'\n", at) + 1 - at);
    return text;
}

// Runs the body in a child in which `successes` allocations succeed and all later ones fail.
Ended starved(std::initializer_list<std::string> settings, const std::function<void()> &before,
              const std::function<void()> &body, long successes = 0)
{
    return logged(settings, [&] {
        elog_init(0, nullptr);
        before();
        fail_allocations_after(successes);
        body();
        _exit(9);
    });
}

void nothing() {}

void log_x()
{
    elog_log(0, "x");
}

const std::string kText500(500, 'x');

void log_500()
{
    elog_log(0, "%s", kText500.c_str());
}

void copy_the_stack()
{
    Tbl *copy = nullptr;
    elog_query(ELOG_TBL_COPY, 0, &copy);
}

}  // namespace

TEST(ElogOutOfMemory, EachItemIsNamed)
{
    const struct {
        long successes;
        void (*before)();
        void (*body)();
        std::string said;
    } cases[] = {
        {0, nothing, log_x, message("elog", "9", "tag")},
        {1, nothing, log_x, message("elog", "3", "msg")},
        {2, nothing, log_x, message("right_growtbl", "400", "tbl->base.cp")},
        {0, log_x, [] { elog_string(0); }, "oom_test: x\n" + message("elog_string", "112", "s")},
        {0, nothing, [] { elogstr(0, 0, "x"); }, message("elogs", "13", "result")},
        {0, nothing, [] { elog_commandline_str(); },
         message("elog_commandline_str", "1024", "dst")},
        {0, log_x, copy_the_stack, "oom_test: x\n" + message("inittbl", "96", "tbl")},
        {2, log_x, copy_the_stack, "oom_test: x\n" + message("elog_query", "9", "msg")},
        {0, log_x, [] { elog_printfd(1, 0); },
         "oom_test: x\n" + message("elog_msg_printfd", "1024", "buf")},
        {0, log_500, [] { elog_printfd(1, 0); },
         "oom_test: " + kText500 + "\n" + message("elog_msg_printfd", "1218", "buf")},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.said);
        const Ended ended = starved({"ELOG_TAG="}, c.before, c.body, c.successes);
        EXPECT_EQ(without_lines(ended.err), c.said);
        EXPECT_EQ(ended.status, 1);
    }
}

TEST(ElogOutOfMemory, TheLinesThatBelongToTheMessagesArePrinted)
{
    const auto line_in = [](const std::function<void()> &body) {
        const std::string text = starved({}, nothing, body).err;
        const size_t at = text.find(" at line ") + 9;
        return text.substr(at, text.find(' ', at) - at);
    };
    EXPECT_EQ(line_in([] {
                  char name[] = "p";
                  char *argv[] = {name, nullptr};
                  elog_init(1, argv);
              }),
              "849");
    EXPECT_EQ(line_in([] { elog_commandline_str(); }), "1096");
    EXPECT_EQ(line_in([] { elogstr(0, 0, "x"); }), "1187");
}

TEST(ElogOutOfMemory, TheCommandLineNamesItsSize)
{
    const Ended ended = starved({}, nothing, [] {
        char name[] = "p";
        char *argv[] = {name, name, nullptr};
        elog_init(2, argv);
    });
    EXPECT_EQ(without_lines(ended.err), message("elog_init", "24", "Argv"));
}

TEST(ElogOutOfMemory, InTheFirstInitialisationTheMessageIsPrintedAllTheSame)
{
    const Ended ended = logged({}, [] {
        char name[] = "p";
        char *argv[] = {name, nullptr};
        fail_allocations_after(0);
        elog_init(1, argv);
    });
    EXPECT_EQ(without_lines(ended.err), message("elog_init", "16", "Argv"));
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogOutOfMemory, TheBufferForFilesIsKept)
{
    const auto print = [] { elog_printfd(1, 0); };
    const auto print_once = [&] {
        log_500();
        print();
    };
    const Ended kept = starved({}, print_once, [&] {
        print();
        _exit(7);
    });
    EXPECT_EQ(kept.status, 7);
    EXPECT_EQ(kept.out, "oom_test: " + kText500 + "\noom_test: " + kText500 + "\n");
}

TEST(ElogOutOfMemory, ComplaintsNeedNoMemory)
{
    const Ended ended = starved({}, log_x, [] {
        elog_complain(0, "no memory needed");
        elog_notify(0, "nor here");
        elog_print(stderr, 0);
        _exit(7);
    });
    EXPECT_EQ(ended.err, "oom_test: x\noom_test: no memory needed\noom_test: nor here\n");
    EXPECT_EQ(ended.status, 7);
}

TEST(ElogOutOfMemory, DyingNeedsNoMemory)
{
    const Ended ended = starved({}, log_x, [] { elog_die(0, "end"); });
    EXPECT_EQ(ended.err, "oom_test: x\noom_test *fatal*: end\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogOutOfMemory, WhenTheReportNeedsMemoryToBeDeliveredItGoesToStandardError)
{
    const TempDir dir;
    for (const std::string &delivery : {dir / "f", std::string("qel:a"), std::string("log")}) {
        SCOPED_TRACE(delivery);
        const Ended ended =
            starved({"ELOG_DELIVER=" + delivery + "@d"}, log_x, [] { elog_log(0, "y"); });
        EXPECT_EQ(without_lines(ended.err), "oom_test: x\n" + message("elog", "9", "tag"));
        EXPECT_EQ(ended.status, 1);
    }
}

TEST(ElogOutOfMemory, WhenTheCallbackNeedsMemoryItGoesToStandardError)
{
    const auto set_callback = [] {
        log_x();
        elog_set(
            ELOG_CALLBACK_FN, 0, +[](int, const char *, Tbl *) { return 1; });
    };
    const Ended ended = starved({}, set_callback, [] { elog_complain(0, "y"); });
    EXPECT_EQ(without_lines(ended.err), "oom_test: x\n" + message("elog", "124", "s"));
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogOutOfMemory, WhenEvenTheTagNeedsMemoryItGoesWithout)
{
    const Ended ended = starved(
        {"ELOG_TAG=%r", "PATH=/bin:/usr/bin"}, [] {}, log_x);
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err.substr(0, 17), "Out of memory in ");
    EXPECT_EQ(ended.err.substr(ended.err.size() - 25), "\n\tCannot allocate memory\n");
}

TEST(ElogOutOfMemory, WithStandardErrorClosedItStillEnds)
{
    const Ended ended = starved({}, log_x, [] {
        close(2);
        elog_log(0, "y");
    });
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogOutOfMemory, InAnExitHandlerItStillEnds)
{
    const Ended ended = starved(
        {}, [] { atexit([] { elog_log(0, "at exit"); }); }, log_x);
    EXPECT_EQ(without_lines(ended.err), message("elog", "9", "tag") + message("elog", "9", "tag"));
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogOutOfMemory, NoNumberOfAllocationsThatWorkMakesItHangOrCrash)
{
    const TempDir dir;
    for (const std::string &delivery : {std::string("stderr"), dir / "f", std::string("qel:a")})
        for (long successes = 0; successes < 30; ++successes) {
            SCOPED_TRACE(delivery + " after " + std::to_string(successes));
            const Ended ended = logged(
                {"ELOG_DELIVER=" + delivery + "@Dncad", "TALUVINE=/nowhere", "ELOG_TAG=%r %a"},
                [&] {
                    fail_allocations_after(successes);
                    char name[] = "p", argument[] = "argument";
                    char *argv[] = {name, argument, nullptr};
                    elog_init(2, argv);
                    for (int i = 0; i < 30; ++i)
                        elog_log(0, "%d", i);
                    elog_complain(0, "x");
                    elog_die(0, "end");
                });
            EXPECT_EQ(ended.status, 1);
            EXPECT_EQ(ended.signal, 0);
        }
}

// "&file(" takes messages off the log, and must not free them twice when memory runs out.
TEST(ElogOutOfMemory, ReasonsThatAreTakenBackAreFreedOnce)
{
    const BlanklessDir dir;
    int status = 1;
    for (long successes = 0; status == 1 && successes < 1000; ++successes) {
        SCOPED_TRACE(successes);
        const Ended ended = logged({"PFPATH=" + dir.path()}, [&] {
            Pf *pf = nullptr;
            pfcompile("north &file(/no/such/gauge)\n", &pf);
            elog_log(0, "south 3 mm");
            fail_allocations_after(successes);
            pfget_string(pf, "north");
            fail_allocations_after(-1);
        });
        status = ended.status;
        EXPECT_EQ(ended.signal, 0);
        if (status == 1) {
            EXPECT_EQ(ended.err.find("oom_test: south 3 mm\n"), 0U) << ended.err;
        }
    }
    EXPECT_EQ(status, 0);
}

TEST(ElogOutOfMemoryThreads, TwoThreadsThatRunOutAtOnceBothSaySoAndTheProcessEndsOnce)
{
    const Ended ended = logged({}, [] {
        elog_init(0, nullptr);
        std::atomic<int> ready{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 2; ++i)
            threads.emplace_back([&] {
                ++ready;
                while (ready < 2) {
                }
                fail_allocations_after(0);
                elog_log(0, "x");
            });
        for (std::thread &thread : threads)
            thread.join();
    });
    const std::string once = message("elog", "9", "tag");
    const std::string said = without_lines(ended.err);
    EXPECT_TRUE(said == once || said == once + once) << said;
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.signal, 0);
}
