// The message log: reporting, the stack, repetitions, the limit, questions and settings.

#include "stock/elog.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/logging.h"
#include "support/printed.h"
#include "support/temp_dir.h"

namespace {

const std::string kNotice = "\n\t...  ** truncated by elog ***\n";

// The record at a position of the stack.
const Elog_msg *record(int i)
{
    Tbl *stack = nullptr;
    elog_query(ELOG_TBL, 0, &stack);
    return static_cast<const Elog_msg *>(gettbl(stack, i));
}

void report(int severity, int flag, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    elog(severity, flag, format, args);
    va_end(args);
}

}  // namespace

// Replaces the system's strerror_r: gives this description of every errno, if there is one.
static const char *Description = nullptr;
extern "C" char *strerror_r(int error, char *buffer, size_t size) noexcept
{
    static const auto describes =
        reinterpret_cast<char *(*)(int, char *, size_t)>(dlsym(RTLD_NEXT, "strerror_r"));
    if (!Description)
        return describes(error, buffer, size);
    snprintf(buffer, size, "%s", Description);
    return buffer;
}

TEST(Elog, AComplaintPrintsTheProgramNameAndTheMessage)
{
    const Ended ended = logged({}, [] { elog_complain(0, "no map for %s", "x"); });
    EXPECT_EQ(ended.err, "elog_test: no map for x\n");
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.status, 0);
}

TEST(Elog, TheFlagAddsWhatErrnoMeant)
{
    const Ended ended = logged({}, [] {
        errno = ENOENT;
        elog_complain(1, "can't open %s", "x.pf");
    });
    EXPECT_EQ(ended.err, "elog_test: can't open x.pf\n\tNo such file or directory\n");
}

TEST(Elog, WithoutTheFlagErrnoIsNotTold)
{
    const Ended ended = logged({}, [] {
        errno = ENOENT;
        elog_complain(0, "can't open x.pf");
    });
    EXPECT_EQ(ended.err, "elog_test: can't open x.pf\n");
}

TEST(Elog, TheFlagWithoutAnErrnoAddsNothing)
{
    EXPECT_EQ(logged({}, [] { elog_complain(1, "x"); }).err, "elog_test: x\n");
}

TEST(Elog, AnErrnoThatTheSystemDoesNotKnowIsNumbered)
{
    const Ended ended = logged({}, [] {
        errno = 9999;
        elog_complain(1, "x");
    });
    EXPECT_EQ(ended.err, "elog_test: x\n\tUnknown error 9999\n");
}

TEST(Elog, AnErrnoWithoutADescriptionIsNumbered)
{
    for (const char *text : {"Unknown error", ""}) {
        const Ended ended = logged({}, [&] {
            Description = text;
            errno = ENOENT;
            elog_complain(1, "x");
        });
        EXPECT_EQ(ended.err, "elog_test: x\n\tUnknown error: 2\n");
    }
}

TEST(Elog, EachSeverityHasItsOwnTag)
{
    const Ended ended = logged({}, [] {
        elog_debug(0, "b");
        elog_notify(0, "c");
        elog_alert(0, "d");
        elog_complain(0, "e");
        report(5, 0, "f");
        report(6, 0, "g");
    });
    EXPECT_EQ(ended.err, "elog_test *debug*: b\n"
                         "elog_test: c\n"
                         "elog_test *alert*: d\n"
                         "elog_test: e\n"
                         "elog_test *fatal*: f\n"
                         "elog_test *fault*: g\n");
}

TEST(Elog, LoggedMessagesWaitAndPrintNothing)
{
    const Ended ended = logged({}, [] { elog_log(0, "why"); });
    EXPECT_EQ(ended.err, "");
}

TEST(Elog, AComplaintPrintsWhatWaitsOldestFirstAndEmptiesTheStack)
{
    const Ended ended = untagged([] {
        elog_log(0, "one");
        elog_log(0, "two");
        elog_log(0, "three");
        elog_complain(0, "four");
        if (elog_mark() != 0)
            abort();
        elog_complain(0, "five");
    });
    EXPECT_EQ(ended.err, "one\ntwo\nthree\nfour\nfive\n");
    EXPECT_EQ(ended.status, 0);
}

TEST(Elog, EveryReportLeavesErrnoAtZero)
{
    const Ended ended = logged({"ELOG_DELIVER=/dev/null@ncDa"}, [] {
        void (*const reports[])(int, const char *, ...) = {elog_log, elog_debug, elog_notify,
                                                           elog_alert, elog_complain};
        for (const auto function : reports) {
            errno = EBADF;
            function(1, "x");
            if (errno != 0)
                abort();
        }
    });
    EXPECT_EQ(ended.status, 0);
}

TEST(Elog, TheMessageIsFormattedWithTheCallersErrno)
{
    const Ended ended = untagged([] {
        errno = ENOENT;
        elog_complain(0, "open: %m");
    });
    EXPECT_EQ(ended.err, "open: No such file or directory\n");
}

TEST(Elog, CalledDirectlyWithDieAndFaultItReturns)
{
    const Ended ended = logged({}, [] {
        report(5, 0, "five");
        report(6, 0, "six");
        puts("still here");
    });
    EXPECT_EQ(ended.err, "elog_test *fatal*: five\nelog_test *fault*: six\n");
    EXPECT_EQ(ended.out, "still here\n");
}

TEST(Elog, ASeverityThatDoesNotExistIsDeliveredAsAComplaint)
{
    const Ended ended = logged({"ELOG_TAG=%s"}, [] {
        report(7, 0, "seven");
        report(-1, 0, "minus one");
        report(INT_MAX, 0, "many");
    });
    EXPECT_EQ(ended.err, "<BAD>: seven\n<BAD>: minus one\n<BAD>: many\n");
}

// The text of a message.

TEST(ElogText, ANewlineIsAddedWhereThereIsNone)
{
    EXPECT_EQ(untagged([] { elog_complain(0, "x"); }).err, "x\n");
    EXPECT_EQ(untagged([] { elog_complain(0, "x\n"); }).err, "x\n");
    EXPECT_EQ(untagged([] { elog_complain(0, "x\n\n"); }).err, "x\n\n");
}

TEST(ElogText, ALeadingNewlineComesBeforeTheTag)
{
    const Ended ended = logged({}, [] { elog_complain(0, "\nrest"); });
    EXPECT_EQ(ended.err, "\nelog_test: rest\n");
}

TEST(ElogText, ALeadingNewlineIsStoredInFrontOfTheTag)
{
    const Ended ended = logged({}, [] {
        elog_log(0, "\nrest");
        printf("[%s][%s]", record(0)->tag, record(0)->msg);
    });
    EXPECT_EQ(ended.out, "[\nelog_test][rest\n]");
}

TEST(ElogText, AnEmptyTextIsAnEmptyLineWithoutATag)
{
    for (const char *text : {"", "\n"}) {
        const Ended ended = logged({}, [&] {
            elog_log(0, "%s", text);
            printf("%d[%s]", record(0)->tag == nullptr, record(0)->msg);
            elog_complain(0, "%s", text);
        });
        EXPECT_EQ(ended.out, "1[\n]");
        EXPECT_EQ(ended.err, "\n\n");
    }
}

TEST(ElogText, ANullOrEmptyFormatIsAnEmptyLine)
{
    const char *null = nullptr;
    const char *empty = "";
    EXPECT_EQ(logged({}, [&] { elog_complain(0, null, 0); }).err, "\n");
    EXPECT_EQ(logged({}, [&] { elog_complain(0, empty, 0); }).err, "\n");
}

TEST(ElogText, TwoNewlinesKeepTheTagBetweenThem)
{
    EXPECT_EQ(logged({}, [] { elog_complain(0, "\n\n"); }).err, "\nelog_test: \n");
}

TEST(ElogText, LongTextsAreCutWithAndWithoutTheNotice)
{
    const struct {
        size_t length;    // of the text that is reported
        size_t kept;      // characters of the text that are printed
        std::string end;  // what follows these
    } cases[] = {
        {10235, 10235, "\n"},    {10236, 10236, "\n"},    {10237, 10237, "\n"},
        {10238, 10237, "\n"},    {10239, 10237, "\n"},    {10240, 10237, "\n"},
        {10241, 10207, kNotice}, {20000, 10207, kNotice}, {1000000, 10207, kNotice},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.length);
        const std::string text(c.length, 'x');
        const Ended ended = untagged([&] { elog_complain(0, "%s", text.c_str()); });
        EXPECT_EQ(ended.err, std::string(c.kept, 'x') + c.end);
    }
}

TEST(ElogText, ATextWithTheNoticeHas10239CharactersAndGetsNoSecondNewline)
{
    const Ended ended = untagged([] { elog_complain(0, "%s", std::string(20000, 'x').c_str()); });
    EXPECT_EQ(ended.err.size(), 10239u);
    EXPECT_EQ(kNotice.size(), 32u);
}

TEST(ElogText, AFullTextThatEndsInANewlineGetsNone)
{
    const std::string text = std::string(10236, 'x') + "\n";
    EXPECT_EQ(untagged([&] { elog_complain(0, "%s", text.c_str()); }).err, text);
}

TEST(ElogText, AFormatThatFailsCarriesTheNoticeAtItsPlace)
{
    const Ended ended =
        untagged([] { elog_complain(0, "ab%lc", static_cast<wint_t>(0x7fffffff)); });
    EXPECT_EQ(ended.err.size(), 10239u);
    EXPECT_EQ(ended.err.substr(0, 3), "ab ");
    EXPECT_EQ(ended.err.substr(10207), kNotice);
}

TEST(ElogText, BytesThatAreNotTextPassThrough)
{
    const std::string text = "\xff\xfe\x01\x1b[0m\t\x80";
    EXPECT_EQ(untagged([&] { elog_complain(0, "%s", text.c_str()); }).err, text + "\n");
}

// Repetitions.

TEST(ElogFold, TwoEqualLogTextsPrintOnceWithTheirCount)
{
    const Ended ended = untagged([] {
        elog_log(0, "same");
        elog_log(0, "same\n");
        elog_complain(0, "end");
    });
    EXPECT_EQ(ended.err, "same\n\t** repeated 2 times\nend\n");
}

TEST(ElogFold, EachRepetitionIsCounted)
{
    const Ended ended = untagged([] {
        for (int i = 0; i < 1000; ++i)
            elog_log(0, "same");
        if (elog_mark() != 1)
            abort();
        elog_flush(1, 0);
    });
    EXPECT_EQ(ended.err, "same\n\t** repeated 1000 times\n");
}

TEST(ElogFold, ADifferentTextInBetweenStopsIt)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        elog_log(0, "b");
        elog_log(0, "a");
        elog_flush(1, 0);
    });
    EXPECT_EQ(ended.err, "a\nb\na\n");
}

TEST(ElogFold, ComplaintsAreNeverFolded)
{
    const Ended ended = logged({"ELOG_DELIVER=log", "ELOG_TAG="}, [] {
        elog_set(ELOG_TAG_FIELD, -1, "");
        elog_log(0, "same");
        elog_complain(0, "same");
        elog_complain(0, "same");
        elog_print(stderr, 0);
    });
    EXPECT_EQ(ended.err, "same\nsame\nsame\n");
}

TEST(ElogFold, ALogTextFoldsIntoAKeptComplaint)
{
    const Ended ended = logged({"ELOG_DELIVER=log"}, [] {
        elog_set(ELOG_TAG_FIELD, -1, "");
        elog_complain(0, "same");
        elog_log(0, "same");
        elog_print(stderr, 0);
    });
    EXPECT_EQ(ended.err, "same\n\t** repeated 2 times\n");
}

TEST(ElogFold, ATextWithALeadingNewlineNeverMatches)
{
    const Ended ended = untagged([] {
        elog_log(0, "\nsame");
        elog_log(0, "\nsame");
        elog_flush(1, 0);
    });
    EXPECT_EQ(ended.err, "\n: same\n\n: same\n");
}

TEST(ElogFold, TheErrnoOfTheFirstReportStays)
{
    const Ended ended = untagged([] {
        errno = ENOENT;
        elog_log(1, "same");
        errno = EACCES;
        elog_log(1, "same");
        elog_flush(1, 0);
    });
    EXPECT_EQ(ended.err, "same\n\tNo such file or directory\n\t** repeated 2 times\n");
}

// The stack.

TEST(ElogStack, ARecordHoldsWhatWasReported)
{
    const Ended ended = logged({}, [] {
        errno = EPERM;
        elog_log(1, "text %d", 7);
        const Elog_msg *msg = record(0);
        printf("[%s][%s][%s] %d %d %d", msg->tag, msg->msg, msg->sys, msg->severity, msg->count,
               msg->thread == static_cast<uint64_t>(pthread_self()));
    });
    EXPECT_EQ(ended.out, "[elog_test][text 7\n][Operation not permitted] 0 1 1");
}

TEST(ElogStack, AMarkIsTheNumberOfMessages)
{
    const Ended ended = logged({}, [] {
        if (elog_mark() != 0)
            abort();
        elog_log(0, "a");
        elog_log(0, "b");
        if (elog_mark() != 2)
            abort();
    });
    EXPECT_EQ(ended.status, 0);
}

TEST(ElogStack, TruncatingFreesWhatLiesAtTheMarkAndAbove)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        elog_log(0, "b");
        elog_log(0, "c");
        elog_truncate(1);
        printf("%s", stack_text().c_str());
        elog_truncate(5);
        elog_truncate(-3);
        printf("%d", elog_mark());
    });
    EXPECT_EQ(ended.out, "a\n0");
}

TEST(ElogStack, ClearingEmptiesItAndErrno)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        errno = EINVAL;
        elog_clear();
        printf("%d %d", errno, elog_mark());
    });
    EXPECT_EQ(ended.out, "0 0");
    EXPECT_EQ(ended.err, "");
}

TEST(ElogStack, ClearingBeforeAnythingElseOnlySetsErrno)
{
    const Ended ended = logged({}, [] {
        errno = EINVAL;
        elog_clear();
        printf("%d", errno);
    });
    EXPECT_EQ(ended.out, "0");
}

TEST(ElogStack, FlushingWithoutDeliveryPrintsNothingAndTruncates)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        const int mark = elog_mark();
        elog_log(0, "b");
        elog_flush(0, mark);
        printf("%s", stack_text().c_str());
    });
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.out, "a\n");
}

TEST(ElogStack, FlushingWithDeliveryPrintsFromTheMarkAsComplaintsGo)
{
    const Ended ended = logged({"ELOG_DELIVER=stdout@c"}, [] {
        elog_set(ELOG_TAG_FIELD, -1, "");
        elog_log(0, "a");
        elog_log(0, "b");
        elog_log(0, "c");
        elog_flush(1, 1);
        elog_print(stderr, 0);
    });
    EXPECT_EQ(ended.out, "b\nc\n");
    EXPECT_EQ(ended.err, "a\n");
}

TEST(ElogStack, FlushingTruncatesEvenWhenComplaintsAreKept)
{
    const Ended ended = logged({"ELOG_DELIVER=log@c"}, [] {
        elog_log(0, "a");
        elog_log(0, "b");
        elog_flush(1, 1);
        printf("%d", elog_mark());
    });
    EXPECT_EQ(ended.out, "1");
    EXPECT_EQ(ended.err, "");
}

TEST(ElogStack, ANegativeMarkOfAFlushMeansAll)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        elog_flush(1, -1);
        printf("%d", elog_mark());
    });
    EXPECT_EQ(ended.err, "a\n");
    EXPECT_EQ(ended.out, "0");
}

TEST(ElogStack, FlushingLeavesErrnoAlone)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        errno = EDOM;
        elog_flush(1, 0);
        printf("%d", errno == EDOM);
    });
    EXPECT_EQ(ended.out, "1");
}

TEST(ElogStack, ClearRegisterDeliversOnlyWhenAsked)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        elog_clear_register(0);
        elog_log(0, "b");
        errno = EDOM;
        elog_clear_register(1);
        printf("%d %d", elog_mark(), errno);
    });
    // errno at the time of the call is not delivered.
    EXPECT_EQ(ended.err, "b\n");
    EXPECT_EQ(ended.out, "0 0");
}

TEST(ElogStack, ClearRegisterEmptiesEvenWhenComplaintsAreKept)
{
    const Ended ended = logged({"ELOG_DELIVER=log@c"}, [] {
        elog_log(0, "a");
        elog_clear_register(1);
        printf("%d", elog_mark());
    });
    EXPECT_EQ(ended.out, "0");
    EXPECT_EQ(ended.err, "");
}

TEST(ElogStack, PrintingKeepsTheMessages)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        elog_log(0, "b");
        elog_print(stdout, 1);
        elog_print(stdout, 0);
        elog_print(stdout, 2);
        elog_print(stdout, -5);
        elog_print(nullptr, 0);
    });
    EXPECT_EQ(ended.out, "b\na\nb\na\nb\n");
}

TEST(ElogStack, TheStringIsWhatIsPrinted)
{
    const Ended ended = logged({}, [] {
        errno = ENOENT;
        elog_log(1, "a");
        elog_log(0, "b");
        elog_log(0, "b");
        elog_log(0, "\nc");
        elog_log(0, "\n");
        for (int mark = -1; mark < 6; ++mark)
            if (stack_text(mark) != printed([&](FILE *stream) { elog_print(stream, mark); }))
                abort();
        printf("%s", stack_text().c_str());
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, "elog_test: a\n\tNo such file or directory\n"
                         "elog_test: b\n\t** repeated 2 times\n"
                         "\nelog_test: c\n\n");
}

TEST(ElogStack, BeforeTheLogIsInitialisedTheStringIsEmpty)
{
    const Ended ended = logged({}, [] { printf("[%s]", stack_text().c_str()); });
    EXPECT_EQ(ended.out, "[]");
}

TEST(ElogStack, ManyLongMessagesPrintWhole)
{
    std::string all;
    for (int i = 0; i < 40; ++i)
        all += std::string(static_cast<size_t>(i) * 250, static_cast<char>('a' + i % 26)) +
               std::to_string(i) + "\n";
    const Ended ended = untagged([] {
        for (int i = 0; i < 40; ++i)
            elog_log(
                0, "%s%d",
                std::string(static_cast<size_t>(i) * 250, static_cast<char>('a' + i % 26)).c_str(),
                i);
        printf("%s", stack_text().c_str());
        elog_flush(1, 0);
    });
    EXPECT_EQ(ended.err, all);
    EXPECT_EQ(ended.out, all);
}

TEST(ElogStack, SeverityNamesAreInOrder)
{
    const char *const names[] = {"log", "debug", "notify", "alert", "complain", "die", "fault"};
    for (int i = 0; i < 7; ++i)
        EXPECT_STREQ(elog_severity(i), names[i]);
    EXPECT_EQ(elog_severity(7), nullptr);
    EXPECT_EQ(elog_severity(-1), nullptr);
}

// The limit.

TEST(ElogLimit, TheFiftyFirstMessageEndsTheProcess)
{
    const Ended ended = logged({}, [] {
        for (int i = 1; i <= 50; ++i)
            elog_log(0, "message %d", i);
        fprintf(stderr, "fifty\n");
        elog_log(0, "message 51");
        fprintf(stderr, "not reached\n");
    });
    std::string expected = "fifty\n";
    for (int i = 1; i <= 51; ++i)
        expected += "elog_test: message " + std::to_string(i) + "\n";
    expected += "elog_test *fatal*: quitting because log has 50 messages\n"
                "   eliminate this limit with\n"
                "      setenv ELOG_MAXMSG 0\n"
                "   or by editing elog.pf.  See elog(3).\n";
    EXPECT_EQ(ended.err, expected);
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogLimit, ZeroAndNegativeMeanNoLimit)
{
    for (const char *limit : {"ELOG_MAXMSG=0", "ELOG_MAXMSG=-1"}) {
        const Ended ended = logged({limit}, [] {
            for (int i = 0; i < 5000; ++i)
                elog_log(0, "message %d", i);
            printf("%d", elog_mark());
        });
        EXPECT_EQ(ended.out, "5000");
        EXPECT_EQ(ended.status, 0);
    }
}

TEST(ElogLimit, ItCountsKeptComplaintsToo)
{
    const Ended ended = logged({"ELOG_MAXMSG=1", "ELOG_DELIVER=log@c"}, [] {
        elog_complain(0, "one");
        elog_complain(0, "two");
    });
    EXPECT_EQ(ended.err.substr(0, ended.err.find("   ")),
              "elog_test: one\nelog_test: two\n"
              "elog_test *fatal*: quitting because log has 1 messages\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogLimit, FoldedMessagesDoNotCount)
{
    const Ended ended = logged({"ELOG_MAXMSG=1"}, [] {
        for (int i = 0; i < 100; ++i)
            elog_log(0, "same");
    });
    EXPECT_EQ(ended.status, 0);
}

TEST(ElogLimit, BelowWhatTheStackHoldsEndsTheProcessToo)
{
    const Ended ended = untagged([] {
        for (const char *text : {"one", "two", "three"})
            elog_log(0, "%s", text);
        elog_set(ELOG_MAXMSG_VALUE, 0, 1);
        elog_log(0, "four");
    });
    EXPECT_EQ(ended.err.substr(0, ended.err.find("   ")),
              "one\ntwo\nthree\nfour\n: quitting because log has 3 messages\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogLimit, WhenDyingIsKeptTooItQuitsAtOnce)
{
    const Ended ended = logged({"ELOG_MAXMSG=1", "ELOG_DELIVER=log"}, [] {
        elog_log(0, "one");
        elog_log(0, "two");
    });
    EXPECT_EQ(ended.err, "elog_test *fatal*: quitting because log has 1 messages\n"
                         "   eliminate this limit with\n"
                         "      setenv ELOG_MAXMSG 0\n"
                         "   or by editing elog.pf.  See elog(3).\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogLimit, AFailingFlushIsToldAndTheExitHappens)
{
    const Ended ended = logged({"ELOG_MAXMSG=1", "ELOG_DELIVER=/dev/null@d"}, [] {
        if (!freopen("/dev/full", "w", stdout))
            abort();
        printf("lost");
        elog_log(0, "one");
        elog_log(0, "two");
    });
    EXPECT_EQ(ended.err.substr(ended.err.find("(3).") + 5),
              "fflush(0) failed: -1 : No space left on device\n");
    EXPECT_EQ(ended.status, 1);
}

// The ends of the process.

TEST(ElogEnd, DyingDeliversTheStackAndExitsWithOne)
{
    const Ended ended = logged({}, [] {
        printf("out");
        elog_log(0, "why");
        errno = EACCES;
        elog_die(1, "that's all %d\n", 7);
    });
    EXPECT_EQ(ended.err, "elog_test: why\nelog_test *fatal*: that's all 7\n\tPermission denied\n");
    EXPECT_EQ(ended.out, "out");
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogEnd, DyingRunsExitHandlers)
{
    const Ended ended = untagged([] {
        atexit([] { fputs("handler\n", stderr); });
        elog_die(0, "x");
    });
    EXPECT_EQ(ended.err, "x\nhandler\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogEnd, DyingAgainInAnExitHandlerReportsAndEnds)
{
    const Ended ended = untagged([] {
        atexit([] { elog_die(0, "again"); });
        printf("flushed");
        elog_die(0, "once");
    });
    EXPECT_EQ(ended.err, "once\nagain\n");
    EXPECT_EQ(ended.out, "flushed");
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogEnd, DyingTellsOfAFailingFlush)
{
    const Ended ended = logged({"ELOG_DELIVER=/dev/null"}, [] {
        if (!freopen("/dev/full", "w", stdout))
            abort();
        printf("lost");
        elog_die(0, "x");
    });
    EXPECT_EQ(ended.err, "fflush(0) failed: -1 : No space left on device\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogEnd, AFaultDeliversAndAborts)
{
    const Ended ended = logged({}, [] {
        elog_log(0, "why");
        elog_fault(0, "broken");
    });
    EXPECT_EQ(ended.err, "elog_test: why\nelog_test *fault*: broken\n");
    EXPECT_EQ(ended.signal, SIGABRT);
}

TEST(ElogEnd, AFatalMessageBypassesTagsAndDelivery)
{
    const Ended ended = logged({"ELOG_DELIVER=/dev/null@cdf"}, [] {
        elog_log(0, "why");
        errno = ENOENT;
        elog_fatal("can't go on: %s\n", "really");
    });
    EXPECT_EQ(ended.err, "can't go on: really\n\t: No such file or directory\nelog_test: why\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogEnd, AFatalMessageIsPrintedAsItIs)
{
    const std::string text(20000, 'x');
    const Ended ended = logged({}, [&] { elog_fatal("%s", text.c_str()); });
    EXPECT_EQ(ended.err, text);
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogEnd, AFatalMessageTellsOfAFailingFlush)
{
    const Ended ended = logged({}, [] {
        FILE *full = fopen("/dev/full", "w");
        fputs("lost", full);
        elog_fatal("end\n");
    });
    EXPECT_EQ(ended.err, "end\nfflush(0) failed: -1 : No space left on device\n");
    EXPECT_EQ(ended.status, 1);
}

// The callback.

namespace {

int Calls = 0;
int Answer = 0;

int show_callback(int severity, const char *text, Tbl *stack)
{
    ++Calls;
    printf("callback %d %d[%s]\n", severity, static_cast<int>(stack->count), text);
    return Answer;
}

}  // namespace

TEST(ElogCallback, GetsTheStackAndTheMessageBeforeTheDelivery)
{
    const Ended ended = untagged([] {
        elog_set(ELOG_CALLBACK_FN, 0, show_callback);
        elog_log(0, "a");
        elog_complain(0, "b");
    });
    EXPECT_EQ(ended.out, "callback 0 0[a\n]\ncallback 4 1[a\nb\n]\n");
    EXPECT_EQ(ended.err, "a\nb\n");
}

TEST(ElogCallback, WhatItDealsWithIsDropped)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        Answer = 1;
        elog_set(ELOG_CALLBACK_FN, 0, show_callback);
        elog_complain(0, "b");
        elog_log(0, "c");
        printf("%d\n", elog_mark());
    });
    EXPECT_EQ(ended.out, "callback 4 1[a\nb\n]\ncallback 0 0[c\n]\n0\n");
    EXPECT_EQ(ended.err, "");
}

TEST(ElogCallback, TheDeliveryRunsEvenWithNothingLeft)
{
    const BlanklessDir dir;
    const std::string file = dir / "log";
    const Ended ended = logged({}, [&] {
        elog_set(ELOG_DELIVER_FIELD, 4, file.c_str());
        Answer = 1;
        elog_set(ELOG_CALLBACK_FN, 0, show_callback);
        elog_complain(0, "b");
    });
    EXPECT_EQ(access(file.c_str(), F_OK), 0);
    EXPECT_EQ(read_file(file), "");
}

TEST(ElogCallback, AFoldedMessageDoesNotReachIt)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        elog_set(ELOG_CALLBACK_FN, 0, show_callback);
        elog_log(0, "a");
    });
    EXPECT_EQ(ended.out, "");
}

TEST(ElogCallback, AFlushShowsWhatLiesAboveTheMarkWithSeverityTwo)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        elog_log(0, "b");
        elog_set(ELOG_CALLBACK_FN, 0, show_callback);
        elog_flush(1, 1);
        elog_flush(1, 1);
        elog_flush(0, 0);
    });
    EXPECT_EQ(ended.out, "callback 2 2[b\n]\n");
    EXPECT_EQ(ended.err, "b\n");
}

TEST(ElogCallback, AFlushThatItDealsWithPrintsNothing)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        elog_log(0, "b");
        Answer = 1;
        elog_set(ELOG_CALLBACK_FN, 0, show_callback);
        elog_flush(1, 1);
        printf("%d\n", elog_mark());
    });
    EXPECT_EQ(ended.out, "callback 2 2[b\n]\n1\n");
    EXPECT_EQ(ended.err, "");
}

TEST(ElogCallback, ClearRegisterShowsEvenAnEmptyStack)
{
    const Ended ended = untagged([] {
        elog_set(ELOG_CALLBACK_FN, 0, show_callback);
        elog_clear_register(1);
        elog_clear_register(0);
    });
    EXPECT_EQ(ended.out, "callback 2 0[]\n");
}

TEST(ElogCallback, ClearRegisterThatItDealsWithPrintsNothing)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        Answer = 1;
        elog_set(ELOG_CALLBACK_FN, 0, show_callback);
        elog_clear_register(1);
        printf("%d\n", elog_mark());
    });
    EXPECT_EQ(ended.out, "callback 2 1[a\n]\n0\n");
    EXPECT_EQ(ended.err, "");
}

TEST(ElogCallback, MayReportItselfAndIsNotCalledForThat)
{
    const Ended ended = untagged([] {
        elog_set(
            ELOG_CALLBACK_FN, 0, +[](int, const char *, Tbl *) {
                elog_log(0, "log from the callback");
                elog_complain(0, "complaint from the callback");
                elog_log(0, "more from the callback");
                return 0;
            });
        elog_log(0, "a");
        elog_complain(0, "b");
    });
    EXPECT_EQ(ended.err, "log from the callback\ncomplaint from the callback\n"
                         "more from the callback\na\n"
                         "log from the callback\ncomplaint from the callback\n"
                         "more from the callback\nb\n");
    EXPECT_EQ(ended.status, 0);
}

// The callback throws far more often than reports may be made inside reports.
TEST(ElogCallback, IsCalledAgainAfterItThrew)
{
    const Ended ended = untagged([] {
        elog_set(
            ELOG_CALLBACK_FN, 0,
            +[](int, const char *text, Tbl *) -> int { throw std::runtime_error(text); });
        for (int i = 0; i < 20; ++i) {
            try {
                elog_complain(0, "%d", i);
                std::printf("nothing thrown");
            } catch (const std::runtime_error &thrown) {
                std::printf("%.*s ", static_cast<int>(std::strlen(thrown.what())) - 1,
                            thrown.what());
            }
        }
        std::thread([] { elog_set(ELOG_CALLBACK_FN, 0, nullptr); }).join();
        elog_complain(0, "b");
    });
    EXPECT_EQ(ended.out, "0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 ");
    EXPECT_EQ(ended.err, "b\n");
    EXPECT_EQ(ended.status, 0);
}

TEST(ElogCallback, MayChangeEverythingUnderneath)
{
    const Ended ended = untagged([] {
        elog_set(
            ELOG_CALLBACK_FN, 0, +[](int, const char *, Tbl *) {
                elog_clear();
                elog_init(0, nullptr);
                elog_set(ELOG_DELIVER_FIELD, 4, "stdout");
                elog_set(ELOG_CALLBACK_FN, 0, nullptr);
                Tbl *copy = nullptr;
                elog_query(ELOG_TBL_TAKE, 0, &copy);
                freetbl(copy, elog_free_msg);
                return 0;
            });
        elog_complain(0, "b");
        elog_complain(0, "c");
    });
    EXPECT_EQ(ended.out, "b\nelog_test: c\n");
    EXPECT_EQ(ended.err, "");
}

// Questions and settings.

TEST(ElogQuery, TheCodesHaveFixedNumbers)
{
    const int codes[] = {ELOG_TBL,
                         ELOG_TBL_COPY,
                         ELOG_TBL_TAKE,
                         ELOG_ARGV,
                         ELOG_ARGC,
                         ELOG_COUNT,
                         6,
                         ELOG_MAXMSG_VALUE,
                         ELOG_TAG_FIELD,
                         ELOG_DELIVER_FIELD,
                         ELOG_DEBUG_FIELD,
                         ELOG_SIGNAL_LIST,
                         ELOG_CALLBACK_FN,
                         ELOG_STRING_FROM,
                         ELOG_REFERENCE,
                         ELOG_PROGRAM_NAME};
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(codes[i], i);
}

TEST(ElogQuery, TheStackItselfIsGivenWithoutACopy)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        Tbl *first = nullptr, *second = nullptr;
        elog_query(ELOG_TBL, 0, &first);
        elog_query(ELOG_TBL, 0, &second);
        printf("%d %d %d %d", first == second, static_cast<int>(first->count), first->direct != 0,
               first->size == static_cast<int>(sizeof(Elog_msg)));
    });
    EXPECT_EQ(ended.out, "1 1 1 1");
}

TEST(ElogQuery, ACopyIsDeepAndLeavesTheStack)
{
    const Ended ended = logged({}, [] {
        errno = ENOENT;
        elog_log(1, "a");
        elog_log(0, "\n");
        Tbl *copy = nullptr;
        elog_query(ELOG_TBL_COPY, 0, &copy);
        if (elog_mark() != 2)
            abort();
        elog_clear();
        const auto *first = static_cast<Elog_msg *>(gettbl(copy, 0));
        const auto *second = static_cast<Elog_msg *>(gettbl(copy, 1));
        printf("%d[%s][%s][%s][%s]%d%d", static_cast<int>(copy->count), first->tag, first->msg,
               first->sys, second->msg, second->tag == nullptr, second->sys == nullptr);
        freetbl(copy, elog_free_msg);
    });
    EXPECT_EQ(ended.out, "2[elog_test][a\n][No such file or directory][\n]11");
}

TEST(ElogQuery, TakingCopiesAndClears)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        Tbl *copy = nullptr;
        elog_query(ELOG_TBL_TAKE, 0, &copy);
        printf("%d %d", static_cast<int>(copy->count), elog_mark());
        freetbl(copy, elog_free_msg);
    });
    EXPECT_EQ(ended.out, "1 0");
}

TEST(ElogQuery, AnEmptyStackCopiesToAnEmptyList)
{
    const Ended ended = untagged([] {
        Tbl *copy = nullptr;
        elog_query(ELOG_TBL_COPY, 0, &copy);
        printf("%d", static_cast<int>(copy->count));
        freetbl(copy, elog_free_msg);
    });
    EXPECT_EQ(ended.out, "0");
}

TEST(ElogQuery, AnswersWhatHoldsAtTheStart)
{
    const Ended ended = logged({}, [] {
        int argc = -1, count = -1, limit = -1;
        char **argv = nullptr;
        char *name = nullptr, *signals = nullptr;
        Elog_callback callback = show_callback;
        elog_query(ELOG_ARGC, 0, &argc);
        elog_query(ELOG_ARGV, 0, &argv);
        elog_query(ELOG_COUNT, 0, &count);
        elog_query(ELOG_MAXMSG_VALUE, 0, &limit);
        elog_query(ELOG_PROGRAM_NAME, 0, &name);
        elog_query(ELOG_SIGNAL_LIST, 0, &signals);
        elog_query(ELOG_CALLBACK_FN, 0, &callback);
        printf("%d %d %d %d %s %s %d", argc, argv == nullptr, count, limit, name, signals,
               callback == nullptr);
    });
    EXPECT_EQ(ended.out, "0 1 0 50 elog_test ILL:TRAP:FPE:BUS:SEGV:SYS 1");
}

TEST(ElogQuery, TheSettingsOfEachSeverityAreThoseOfTheTable)
{
    const struct {
        const char *deliver, *tag, *debug;
    } rows[] = {
        {"", "%P", ""},
        {"stderr", "%P *debug*", ""},
        {"stderr", "%P", ""},
        {"stderr", "%P *alert*", ""},
        {"stderr", "%P", ""},
        {"stderr", "%P *fatal*", ""},
        {"stderr", "%P *fault*", ""},
    };
    const Ended ended = logged({}, [&] {
        for (int i = 0; i < 7; ++i)
            if (setting(ELOG_DELIVER_FIELD, i) != rows[i].deliver ||
                setting(ELOG_TAG_FIELD, i) != rows[i].tag ||
                setting(ELOG_DEBUG_FIELD, i) != rows[i].debug)
                abort();
    });
    EXPECT_EQ(ended.status, 0);
}

TEST(ElogQuery, TheStringFromTakesTheSeverityAsTheMark)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        elog_log(0, "b");
        char *text = nullptr;
        elog_query(ELOG_STRING_FROM, 1, &text);
        printf("%s", text);
        free(text);
    });
    EXPECT_EQ(ended.out, "b\n");
}

TEST(ElogQuery, UnknownCodesAreRefused)
{
    const Ended ended = logged({}, [] {
        for (const int code : {6, 16, 17, -1, INT_MAX, INT_MIN}) {
            char *result = nullptr;
            if (elog_query(code, 0, &result) != -1 || result)
                abort();
        }
    });
    EXPECT_EQ(ended.status, 0);
}

TEST(ElogQuery, AFieldOfNoSeverityAndANullResultAreRefused)
{
    const Ended ended = logged({}, [] {
        for (const int code : {ELOG_TAG_FIELD, ELOG_DELIVER_FIELD, ELOG_DEBUG_FIELD})
            for (const int severity : {-1, 7, INT_MAX, INT_MIN}) {
                char *field = nullptr;
                if (elog_query(code, severity, &field) != -1 || field)
                    abort();
            }
        if (elog_query(ELOG_COUNT, 0, nullptr) != -1)
            abort();
    });
    EXPECT_EQ(ended.status, 0);
}

TEST(ElogSet, ReplacesTheStack)
{
    const Ended ended = untagged([] {
        elog_log(0, "old");
        Tbl *old = nullptr;
        elog_query(ELOG_TBL, 0, &old);
        Tbl *mine = inittbl(0, 10, 1, nullptr, sizeof(Elog_msg));
        printf("%d\n", elog_set(ELOG_TBL, 0, mine));
        elog_log(0, "new");
        elog_flush(1, 0);
        printf("%d\n", elog_set(ELOG_TBL, 0, old));
        elog_flush(1, 0);
        freetbl(mine, elog_free_msg);
    });
    EXPECT_EQ(ended.out, "0\n0\n");
    EXPECT_EQ(ended.err, "new\nold\n");
}

TEST(ElogSet, RefusesAListThatCannotBeTheStack)
{
    const Ended ended = untagged([] {
        const TblPtr pointers(newtbl(10));
        const TblPtr small(inittbl(0, 10, 1, nullptr, 8));
        printf("%d %d %d", elog_set(ELOG_TBL, 0, nullptr), elog_set(ELOG_TBL, 0, pointers.get()),
               elog_set(ELOG_TBL, 0, small.get()));
        elog_complain(0, "still works");
    });
    EXPECT_EQ(ended.out, "-1 -1 -1");
    EXPECT_EQ(ended.err, "still works\n");
}

TEST(ElogSet, SetsTheCommandLine)
{
    const Ended ended = logged({"ELOG_TAG=%a"}, [] {
        static char name[] = "p", argument[] = "arg";
        static char *argv[] = {name, argument, nullptr};
        elog_set(ELOG_ARGV, 0, argv);
        elog_set(ELOG_ARGC, 0, 2);
        char **now = nullptr;
        int argc = 0;
        elog_query(ELOG_ARGV, 0, &now);
        elog_query(ELOG_ARGC, 0, &argc);
        printf("%d %d", now == argv, argc);
        elog_complain(0, "x");
    });
    EXPECT_EQ(ended.out, "1 2");
    EXPECT_EQ(ended.err, "arg : x\n");
}

TEST(ElogSet, ACountBeyondTheArgumentsIsHarmless)
{
    const Ended ended = logged({"ELOG_TAG=%a"}, [] {
        elog_set(ELOG_ARGC, 0, 100);
        elog_complain(0, "no arguments");
        static char name[] = "p", argument[] = "arg";
        static char *argv[] = {name, argument, nullptr};
        elog_set(ELOG_ARGV, 0, argv);
        elog_complain(0, "x");
    });
    EXPECT_EQ(ended.err, "no arguments\narg : x\n");
}

TEST(ElogSet, TruncatesTheStackToACount)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        elog_log(0, "b");
        elog_set(ELOG_COUNT, 0, 1);
        printf("%s", stack_text().c_str());
    });
    EXPECT_EQ(ended.out, "a\n");
}

TEST(ElogSet, SetsTheLimit)
{
    const Ended ended = logged({}, [] {
        elog_set(ELOG_MAXMSG_VALUE, 0, 0);
        for (int i = 0; i < 60; ++i)
            elog_log(0, "message %d", i);
    });
    EXPECT_EQ(ended.status, 0);
}

TEST(ElogSet, ATagForSeverityMinusOneSetsAllSeven)
{
    const Ended ended = logged({}, [] {
        printf("%d", elog_set(ELOG_TAG_FIELD, -1, "x"));
        for (int i = 0; i < 7; ++i)
            printf("%s", setting(ELOG_TAG_FIELD, i).c_str());
        printf("%d", elog_set(ELOG_TAG_FIELD, 7, "y"));
        for (int i = 0; i < 7; ++i)
            printf("%s", setting(ELOG_TAG_FIELD, i).c_str());
    });
    EXPECT_EQ(ended.out, "0xxxxxxx0yyyyyyy");
}

TEST(ElogSet, ADeliveryOrDebuggerForSeverityMinusOneIsRefused)
{
    const Ended ended = logged({}, [] {
        printf("%d%d%d%d", elog_set(ELOG_DELIVER_FIELD, -1, "stderr"),
               elog_set(ELOG_DEBUG_FIELD, -1, "x"), elog_set(ELOG_DELIVER_FIELD, 7, "stderr"),
               elog_set(ELOG_DEBUG_FIELD, 7, "x"));
        printf("[%s][%s]", setting(ELOG_DELIVER_FIELD, 0).c_str(),
               setting(ELOG_DEBUG_FIELD, 0).c_str());
    });
    EXPECT_EQ(ended.out, "-1-1-1-1[][]");
}

TEST(ElogSet, OneSeveritysSettingsLeaveTheOthersAlone)
{
    const Ended ended = logged({}, [] {
        elog_set(ELOG_TAG_FIELD, 4, "tag");
        elog_set(ELOG_DELIVER_FIELD, 4, "stdout");
        elog_complain(0, "x");
        elog_notify(0, "y");
    });
    EXPECT_EQ(ended.out, "tag: x\n");
    EXPECT_EQ(ended.err, "elog_test: y\n");
}

TEST(ElogSet, AFieldKeeps47CharactersOf47And48And500)
{
    for (const size_t length : {46u, 47u, 48u, 500u}) {
        SCOPED_TRACE(length);
        const std::string text(length, 'x');
        const std::string kept = text.substr(0, 47);
        const Ended ended = logged({}, [&] {
            elog_set(ELOG_TAG_FIELD, 3, text.c_str());
            elog_set(ELOG_DELIVER_FIELD, 3, text.c_str());
            elog_set(ELOG_DEBUG_FIELD, 0, text.c_str());
            printf("%s %s %s", setting(ELOG_TAG_FIELD, 3).c_str(),
                   setting(ELOG_DELIVER_FIELD, 3).c_str(), setting(ELOG_DEBUG_FIELD, 0).c_str());
            printf(" %s", setting(ELOG_TAG_FIELD, 4).c_str());
        });
        EXPECT_EQ(ended.out, kept + " " + kept + " " + kept + " %P");
    }
}

TEST(ElogSet, AFieldMayBeSetToItself)
{
    const Ended ended = logged({}, [] {
        char *field = nullptr;
        elog_query(ELOG_TAG_FIELD, 1, &field);
        elog_set(ELOG_TAG_FIELD, 1, field + 3);
        printf("%s", field);
    });
    EXPECT_EQ(ended.out, "*debug*");
}

TEST(ElogSet, ANullSettingIsRefused)
{
    const Ended ended = logged({}, [] {
        const char *null = nullptr;
        printf("%d%d%d%d", elog_set(ELOG_TAG_FIELD, 4, null), elog_set(ELOG_TAG_FIELD, -1, null),
               elog_set(ELOG_DELIVER_FIELD, 4, null), elog_set(ELOG_DEBUG_FIELD, 4, null));
        printf("%s", setting(ELOG_TAG_FIELD, 4).c_str());
    });
    EXPECT_EQ(ended.out, "-1-1-1-1%P");
}

TEST(ElogSet, RemembersTheSignalListItself)
{
    const Ended ended = logged({}, [] {
        static const char list[] = "FPE:BUS";
        const char *now = nullptr;
        elog_set(ELOG_SIGNAL_LIST, 0, list);
        elog_query(ELOG_SIGNAL_LIST, 0, &now);
        printf("%d", now == list);
        elog_set(ELOG_SIGNAL_LIST, 0, static_cast<const char *>(nullptr));
        elog_query(ELOG_SIGNAL_LIST, 0, &now);
        printf("[%s]", now);
    });
    EXPECT_EQ(ended.out, "1[]");
}

TEST(ElogSet, SetsTheReferenceTime)
{
    const Ended ended = logged({}, [] {
        double now = 0;
        printf("%d", elog_set(ELOG_REFERENCE, 0, 1.5));
        elog_query(ELOG_REFERENCE, 0, &now);
        printf(" %g", now);
    });
    EXPECT_EQ(ended.out, "0 1.5");
}

TEST(ElogSet, CodesThatOnlyAnswerAndUnknownOnesAreRefused)
{
    const Ended ended = logged({}, [] {
        for (const int code : {1, 2, 6, 13, 15, 16, -1, INT_MAX, INT_MIN})
            if (elog_set(code, 0, 0) != -1)
                abort();
    });
    EXPECT_EQ(ended.status, 0);
}

TEST(ElogFreeMsg, FreesWhatIsThereAndCopesWithWhatIsNot)
{
    Elog_msg full = {strdup("tag"), strdup("msg"), strdup("sys"), 0, 1, 0};
    elog_free_msg(&full);
    Elog_msg empty = {};
    elog_free_msg(&empty);
    elog_free_msg(nullptr);
    SUCCEED();
}

// Text without logging.

TEST(Elogs, GivesTagMessageAndErrno)
{
    const Ended ended = logged({}, [] {
        errno = ENOENT;
        const Text text(elogstr(5, 1, "can't open %s", "x"));
        printf("%s%d %d", text.get(), errno == ENOENT, elog_mark());
    });
    EXPECT_EQ(ended.out, "elog_test *fatal*: can't open x\n\tNo such file or directory\n1 0");
    EXPECT_EQ(ended.err, "");
}

TEST(Elogs, WithoutTheFlagErrnoIsNotTold)
{
    const Ended ended = logged({}, [] {
        errno = ENOENT;
        printf("%s", Text(elogstr(4, 0, "x")).get());
    });
    EXPECT_EQ(ended.out, "elog_test: x\n");
}

TEST(Elogs, FormsTheTextAsReportingDoes)
{
    const std::string large(20000, 'x');
    const Ended ended = logged({}, [&] {
        for (const char *text : {"", "\n", "x\n", "\nx"})
            printf("%s|", Text(elogstr(4, 0, "%s", text)).get());
        const char *null = nullptr;
        printf("%s|", Text(elogstr(4, 0, null, 0)).get());
        elog_set(ELOG_TAG_FIELD, -1, "");
        printf("%s|", Text(elogstr(4, 0, "x")).get());
        printf("%zu", strlen(Text(elogstr(4, 0, "%s", large.c_str())).get()));
    });
    EXPECT_EQ(ended.out, "\n|\n|elog_test: x\n|\nelog_test: x\n|\n|x\n|10239");
}

TEST(Elogs, ASeverityThatDoesNotExistIsMarked)
{
    const Ended ended = logged({"ELOG_TAG=%s"}, [] {
        printf("%s%s", Text(elogstr(-1, 0, "a")).get(), Text(elogstr(99, 0, "b")).get());
    });
    EXPECT_EQ(ended.out, "<BAD>: a\n<BAD>: b\n");
}

TEST(ElogFprintf, PrintsAndCounts)
{
    const Ended ended = logged({}, [] {
        const char *null = nullptr;
        const int n = elog_fprintf(stdout, "%s-%d", "x", 7);
        printf(" %d %d %d", n, elog_fprintf(nullptr, "x"), elog_fprintf(stdout, null, 0));
    });
    EXPECT_EQ(ended.out, "x-7 3 -1 -1");
}

// Streams that do not take what is printed.

TEST(ElogStream, StandardOutputIsFlushedBeforeStandardError)
{
    const TempDir dir;
    const std::string file = dir / "both";
    const Ended ended = untagged([&] {
        if (!freopen(file.c_str(), "a", stdout) || !freopen(file.c_str(), "a", stderr))
            abort();
        setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
        printf("first\n");
        elog_complain(0, "second");
        printf("third\n");
    });
    EXPECT_EQ(read_file(file), "first\nsecond\nthird\n");
}

TEST(ElogStream, AFailingFlushOfStandardOutputIsTold)
{
    const Ended ended = untagged([] {
        if (!freopen("/dev/full", "w", stdout))
            abort();
        printf("lost");
        elog_complain(0, "x");
    });
    EXPECT_EQ(ended.err, "fflush(stdout) failed: -1 : No space left on device\nx\n");
}

TEST(ElogStream, AFailingFlushAfterwardsIsTold)
{
    const Ended ended = logged({"ELOG_DELIVER=stdout@c"}, [] {
        elog_set(ELOG_TAG_FIELD, -1, "");
        if (!freopen("/dev/full", "w", stdout))
            abort();
        elog_complain(0, "x");
    });
    EXPECT_EQ(ended.err, "fflush() failed: -1 : No space left on device\n");
}

TEST(ElogStream, AFailingFlushSetsErrnoToZero)
{
    const Ended ended = untagged([] {
        FILE *full = fopen("/dev/full", "w");
        elog_log(0, "x");
        errno = EDOM;
        elog_print(full, 0);
        printf("%d", errno);
        errno = EDOM;
        elog_print(stdout, 0);
        printf("%d", errno == EDOM);
    });
    EXPECT_EQ(ended.err, "fflush() failed: -1 : No space left on device\n");
    EXPECT_EQ(ended.out, "0x\n1");
}

TEST(ElogStream, AClosedStandardErrorIsSurvived)
{
    const Ended ended = logged({}, [] {
        close(2);
        elog_complain(0, "x");
        elog_fprintf(stderr, "y");
        elog_log(0, "z");
        elog_die(0, "end");
    });
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogStream, AClosedStandardOutputIsSurvived)
{
    const Ended ended = untagged([] {
        fclose(stdout);
        elog_complain(0, "x");
    });
    EXPECT_EQ(ended.err, "x\n");
}

TEST(ElogStream, AWriteThatIsInterruptedGoesOn)
{
    const Ended ended = untagged([] {
        struct Interrupted {
            static ssize_t write(void *, const char *text, size_t size)
            {
                static int calls = 0;
                if (calls++ < 3) {
                    errno = EINTR;
                    return 0;
                }
                return ::write(1, text, size);
            }
        };
        FILE *stream = fopencookie(nullptr, "w", {nullptr, Interrupted::write, nullptr, nullptr});
        setvbuf(stream, nullptr, _IONBF, 0);
        elog_log(0, "%s", std::string(1000, 'x').c_str());
        elog_print(stream, 0);
        fclose(stream);
    });
    EXPECT_EQ(ended.out, std::string(1000, 'x') + "\n");
}

TEST(ElogStream, ReportsFromWithinAStreamDoNotDisturbWhatItPrints)
{
    const Ended ended = untagged([] {
        struct Reporting {
            static ssize_t write(void *, const char *text, size_t size)
            {
                elog_complain(0, "from within");
                return ::write(1, text, size);
            }
        };
        FILE *stream = fopencookie(nullptr, "w", {nullptr, Reporting::write, nullptr, nullptr});
        setvbuf(stream, nullptr, _IONBF, 0);
        for (int i = 0; i < 10; ++i)
            elog_log(0, "%d%s", i, std::string(5000, 'x').c_str());
        elog_print(stream, 0);
        fclose(stream);
    });
    EXPECT_EQ(ended.status, 0);
    // The first write printed the first three messages; the complaint then emptied the stack.
    std::string first;
    for (int i = 0; i < 3; ++i)
        first += std::to_string(i) + std::string(5000, 'x') + "\n";
    EXPECT_EQ(ended.out, first);
}
