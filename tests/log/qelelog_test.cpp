// The messaging library: a real one, built for each test under a root of its own.

#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include <dlfcn.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/logging.h"
#include "support/temp_dir.h"

namespace {

// The sources from which the tests make messaging libraries.
const std::string kPrinting = R"(
#include <stdio.h>
int qelelog(const char *target, const char *program, const char *text)
{
    printf("{%s|%s|%s}", target, program, text);
    fflush(stdout);
    return 7;
}
)";

const std::string kLogging = R"(
#include <stdio.h>
void elog_log(int, const char *, ...);
void elog_complain(int, const char *, ...);
int qelelog(const char *target, const char *program, const char *text)
{
    static int calls;
    printf("{%s}", text);
    fflush(stdout);
    elog_log(0, "the library logs");
    if (calls++ == 0)
        elog_complain(0, "the library complains");
    elog_log(0, "the library logs more");
    return 0;
}
)";

const std::string kAlwaysComplaining = R"(
void elog_complain(int, const char *, ...);
int qelelog(const char *target, const char *program, const char *text)
{
    elog_complain(0, "I can't send");
    return -1;
}
)";

// An installation root with a messaging library made from the source.
class Root {
public:
    explicit Root(const std::string &source)
    {
        const std::string file = dir_.file("qel.c", source);
        dir_.file("lib/unused", "");
        const std::string command =
            "cc -shared -fPIC -o " + shell_word(dir_ / "lib/libqel.so") + " " + shell_word(file);
        if (std::system(command.c_str()) != 0)
            abort();
    }

    std::string setting() const { return "TALUVINE=" + dir_.path(); }

private:
    TempDir dir_;
};

Ended sending(const Root &root, const std::string &delivery, const std::function<void()> &body)
{
    return logged({root.setting(), "ELOG_DELIVER=" + delivery + "@c"}, [&] {
        elog_set(ELOG_TAG_FIELD, -1, "");
        body();
    });
}

}  // namespace

TEST(Qelelog, GetsTargetProgramAndTheWholeText)
{
    const Root root(kPrinting);
    const Ended ended = sending(root, "qel:ops:1", [] {
        elog_log(0, "why");
        elog_complain(0, "x");
        printf("kept %d", elog_mark());
    });
    EXPECT_EQ(ended.out, "{ops:1|qelelog_test|why\nx\n}kept 0");
    EXPECT_EQ(ended.err, "");
}

TEST(Qelelog, MayHaveAnEmptyTarget)
{
    const Root root(kPrinting);
    EXPECT_EQ(sending(root, "qel:", [] { elog_complain(0, "x"); }).out, "{|qelelog_test|x\n}");
}

TEST(Qelelog, OtherDestinationsGetTheSame)
{
    const Root root(kPrinting);
    const Ended ended = sending(root, "stderr qel:a stdout qel:b", [] {
        elog_log(0, "why");
        elog_complain(0, "x");
    });
    EXPECT_EQ(ended.err, "why\nx\n");
    EXPECT_EQ(ended.out, "{a|qelelog_test|why\nx\n}why\nx\n{b|qelelog_test|why\nx\n}");
}

TEST(Qelelog, OnlyTheMessagesFromTheMarkOnGoAndTheOthersStay)
{
    const Root root(kPrinting);
    const Ended ended = sending(root, "qel:a", [] {
        elog_log(0, "below");
        elog_log(0, "above");
        elog_flush(1, 1);
        printf("%s", stack_text().c_str());
    });
    EXPECT_EQ(ended.out, "{a|qelelog_test|above\n}below\n");
}

TEST(Qelelog, AMarkBeyondTheStackSendsNothingAndTheStackStays)
{
    const Root root(kPrinting);
    const Ended ended = sending(root, "qel:a", [] {
        elog_log(0, "below");
        elog_flush(1, 99);
        printf("%s", stack_text().c_str());
    });
    EXPECT_EQ(ended.out, "{a|qelelog_test|}below\n");
}

TEST(Qelelog, ABadWordAfterItShowsTheStackStill)
{
    const Root root(kPrinting);
    const Ended ended = sending(root, "qel:a xyz", [] {
        elog_log(0, "why");
        elog_complain(0, "x");
    });
    EXPECT_EQ(ended.err, "unrecognized delivery 'xyz'\nwhy\n");
}

// The library used to get messages that the report of the bad word had printed and freed.
TEST(Qelelog, AWordBehindABadOneGetsOnlyWhatIsStillThere)
{
    const Root root(kPrinting);
    const struct {
        const char *word, *told;
    } cases[] = {
        {"xyz", "unrecognized delivery 'xyz'\nwhy\n"},
        {"/nowhere/f", "Can't open error file '/nowhere/f'\n\t: No such file or directory\nwhy\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.word);
        const std::string delivery = c.word + std::string(" qel:t");
        const Ended complained = sending(root, delivery, [] {
            elog_log(0, "why");
            elog_complain(0, "x");
            printf("kept %d", elog_mark());
        });
        EXPECT_EQ(complained.err, c.told);
        EXPECT_EQ(complained.out, "{t|qelelog_test|x\n}kept 0");
        const Ended flushed = sending(root, delivery, [] {
            elog_log(0, "why");
            elog_flush(1, 0);
            printf("kept %d", elog_mark());
        });
        EXPECT_EQ(flushed.err, c.told);
        EXPECT_EQ(flushed.out, "{t|qelelog_test|}kept 0");
        const Ended cleared = sending(root, delivery, [] {
            elog_log(0, "why");
            elog_clear_register(1);
            printf("kept %d", elog_mark());
        });
        EXPECT_EQ(cleared.err, c.told);
        EXPECT_EQ(cleared.out, "{t|qelelog_test|}kept 0");
    }
}

TEST(Qelelog, AWordBehindABadOneGetsTheLastMessageWhenTheStackIsFull)
{
    const Root root(kPrinting);
    const Ended ended = sending(root, "stderr", [] {
        elog_set(ELOG_DELIVER_FIELD, 5, "xyz qel:t");
        elog_set(ELOG_MAXMSG_VALUE, 0, 2);
        elog_log(0, "one");
        elog_log(0, "two");
        elog_log(0, "three");
    });
    EXPECT_EQ(ended.out, "{t|qelelog_test|three\n}");
    EXPECT_EQ(ended.err.substr(0, 34), "unrecognized delivery 'xyz'\none\ntw");
    EXPECT_EQ(ended.status, 1);
}

TEST(Qelelog, CalledDirectlyItsResultIsReturned)
{
    const Root root(kPrinting);
    const Ended ended =
        sending(root, "stderr", [] { printf("%d", call_qelelog("t", "p", "text")); });
    EXPECT_EQ(ended.out, "{t|p|text}7");
}

TEST(Qelelog, TheLibraryMayItselfLogAndNothingIsLostOrSentTwice)
{
    const Root root(kLogging);
    const Ended ended = sending(root, "qel:a", [] {
        elog_log(0, "why");
        elog_complain(0, "x");
        printf("<%s>", stack_text().c_str());
    });
    EXPECT_EQ(ended.out, "{why\nx\n}{the library logs\nthe library complains\n}"
                         "<the library logs\nthe library logs more\n\t** repeated 2 times\n>");
    EXPECT_EQ(ended.err, "");
}

TEST(Qelelog, ALibraryThatAlwaysComplainsToItselfEndsUpOnStandardError)
{
    const Root root(kAlwaysComplaining);
    const Ended ended = sending(root, "qel:a", [] { elog_complain(0, "x"); });
    EXPECT_EQ(ended.err, "I can't send\n");
    EXPECT_EQ(ended.status, 0);
}

TEST(Qelelog, AMissingLibraryIsToldOnce)
{
    const Ended ended = logged({"TALUVINE=/nowhere", "ELOG_DELIVER=qel:a@c"}, [] {
        elog_complain(0, "x");
        elog_complain(0, "y");
        printf("%d", call_qelelog("t", "p", "text"));
    });
    EXPECT_EQ(ended.err,
              "Can't dynamically load library qel, error messages will be written to stderr.\n"
              "qelelog_test: qelelog_test: x\n\n"
              "qelelog_test: qelelog_test: y\n\n"
              "p: text\n");
    EXPECT_EQ(ended.out, "0");
}

TEST(Qelelog, AMissingRoutineIsToldOnceWithTheLoadersReason)
{
    const Root root("int other;");
    const Ended ended = sending(root, "qel:a", [] {
        elog_complain(0, "x");
        elog_complain(0, "y");
    });
    EXPECT_EQ(ended.err.substr(0, 39), "Can't find qelelog in library qel: /tmp");
    EXPECT_NE(ended.err.find("undefined symbol: qelelog,\n"
                             "\terror messages will be written to stderr.\n"
                             "qelelog_test: x\n\nqelelog_test: y\n\n"),
              std::string::npos);
}

TEST(Qelelog, AFileThatIsNoLibraryIsToldAsMissing)
{
    const TempDir dir;
    dir.file("lib/libqel.so", "not a library");
    const Ended ended =
        logged({"TALUVINE=" + dir.path(), "ELOG_DELIVER=qel:a@c"}, [] { elog_complain(0, "x"); });
    EXPECT_EQ(ended.err.substr(0, 34), "Can't dynamically load library qel");
}

TEST(Qelelog, ALibraryWhoseConstructorComplainsIsLoadedAllTheSame)
{
    const Root root(kPrinting + R"(
void elog_complain(int, const char *, ...);
__attribute__((constructor)) static void begin(void) { elog_complain(0, "the library begins"); }
)");
    const Ended ended = sending(root, "qel:a", [] {
        alarm(20);
        elog_complain(0, "x");
    });
    EXPECT_EQ(ended.err, "qelelog_test: the library begins\n\n");
    EXPECT_EQ(ended.out, "{a|qelelog_test|x\n}");
}

// Runs the body while another thread is inside a library's constructor, which logs later.
Ended beside_a_constructor(const std::function<void()> &body)
{
    const Root root(kPrinting);
    const TempDir dir;
    const std::string source = dir.file("other.c", R"(
#include <stdlib.h>
#include <unistd.h>
void elog_log(int, const char *, ...);
__attribute__((constructor)) static void begin(void)
{
    if (write(atoi(getenv("CONSTRUCTING")), "x", 1) != 1)
        abort();
    usleep(300000);
    elog_log(0, "the other library begins");
}
)");
    const std::string library = dir / "libother.so";
    const std::string command =
        "cc -shared -fPIC -o " + shell_word(library) + " " + shell_word(source);
    if (std::system(command.c_str()) != 0)
        abort();
    return sending(root, "qel:a", [&] {
        alarm(20);
        int constructing[2];
        if (pipe(constructing) != 0)
            abort();
        setenv("CONSTRUCTING", std::to_string(constructing[1]).c_str(), 1);
        std::thread loading([&] {
            if (!dlopen(library.c_str(), RTLD_NOW))
                abort();
        });
        char begun = 0;
        if (read(constructing[0], &begun, 1) != 1)
            abort();
        body();
        loading.join();
        printf("<%s>", stack_text().c_str());
    });
}

// The log used to load the library with its lock held. It waited for the system loader's lock,
// which the other thread held, and that thread's constructor waited for the log's lock.
TEST(QelelogThreads, ALibraryIsLoadedWhileAnotherThreadsConstructorLogs)
{
    const Ended ended = beside_a_constructor([] { elog_complain(0, "x"); });
    EXPECT_EQ(ended.out.substr(0, 20), "{a|qelelog_test|x\n}<");
    EXPECT_NE(ended.out.find("the other library begins\n"), std::string::npos);
    EXPECT_EQ(ended.status, 0);
}

// Looking up the names of functions for a trace needs the system loader's lock too.
TEST(QelelogThreads, AStackIsTracedWhileAnotherThreadsConstructorLogs)
{
    const Ended ended = beside_a_constructor([] { elog_notify(0, "*stack*x"); });
    EXPECT_NE(ended.err.find("*stack*x\n\n\nStack\n"), std::string::npos) << ended.err;
    EXPECT_EQ(ended.out, "<the other library begins\n>");
    EXPECT_EQ(ended.status, 0);
}

TEST(QelelogThreads, WhatOthersLogWhileTheLibrarySendsIsNeitherLostNorSentTwice)
{
    const Root root(kPrinting);
    constexpr int kMessages = 200;
    const Ended ended = sending(root, "qel:a", [] {
        elog_set(ELOG_MAXMSG_VALUE, 0, 0);
        std::thread logging([] {
            for (int i = 0; i < kMessages; ++i)
                elog_log(0, "logged <%d>", i);
        });
        std::thread complaining([] {
            for (int i = 0; i < kMessages; ++i)
                elog_complain(0, "told <%d>", i);
        });
        logging.join();
        complaining.join();
        elog_flush(1, 0);
    });
    for (int i = 0; i < kMessages; ++i)
        for (const char *word : {"logged <", "told <"}) {
            const std::string text = word + std::to_string(i) + ">";
            const size_t found = ended.out.find(text);
            ASSERT_NE(found, std::string::npos) << text;
            ASSERT_EQ(ended.out.find(text, found + 1), std::string::npos) << text;
        }
}
