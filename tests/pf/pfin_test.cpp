// Parsing parameter text from descriptors, streams and memory.

#include "stock/pf.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/child.h"
#include "support/pf_text.h"
#include "support/temp_dir.h"

// Replaces poll, so that a test can let it fail with EINTR.

namespace {

std::atomic<int> polls_to_interrupt{0};

}  // namespace

extern "C" int poll(pollfd *fds, nfds_t n, int timeout)
{
    static auto *const next = reinterpret_cast<decltype(poll) *>(dlsym(RTLD_NEXT, "poll"));
    if (polls_to_interrupt <= 0)
        return next(fds, n, timeout);
    --polls_to_interrupt;
    errno = EINTR;
    return -1;
}

namespace {

// The result of one entry point.
struct Parsed {
    int status;
    std::string tree;
    std::string log;
};

template <class Parse>
Parsed parsed(Parse parse)
{
    Pf *pf = nullptr;
    const int status = parse(&pf);
    const PfPtr owner(pf);
    return {status, tree_text(pf), take_log()};
}

Parsed from_file(const std::string &text, const char *name = nullptr)
{
    const TempDir dir;
    const int fd = open(dir.file("x.pf", text).c_str(), O_RDONLY);
    Pffilename = name;
    const Parsed result = parsed([&](Pf **pf) { return pfinfd(fd, pf); });
    close(fd);
    return result;
}

// Writes the text in pieces of n bytes while the other end is parsed.
Parsed from_pieces(int in, int out, const std::string &text, size_t n)
{
    std::thread writer([=, &text] {
        for (size_t i = 0; i < text.size(); i += n)
            EXPECT_GT(write(out, text.data() + i, std::min(n, text.size() - i)), 0);
        close(out);
    });
    const Parsed result = parsed([&](Pf **pf) { return pfinfd(in, pf); });
    writer.join();
    close(in);
    return result;
}

Parsed from_stream(const std::string &text)
{
    FILE *stream = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
    const Parsed result = parsed([&](Pf **pf) { return pfin(stream, pf); });
    fclose(stream);
    return result;
}

Parsed from_string(const std::string &text)
{
    return parsed([&](Pf **pf) { return pfcompile(text.c_str(), pf); });
}

Parsed from_counted(const std::string &text)
{
    return parsed([&](Pf **pf) {
        return pfcompile_counted(text.data(), static_cast<long>(text.size()), pf);
    });
}

std::string repeat(const std::string &text, size_t times)
{
    std::string all;
    while (times--)
        all += text;
    return all;
}

// One of everything, with tokens that cross every boundary of a reader's pieces.
const std::string kSample = "plain value # comment\n"
                            "\"quoted\nkey\" one\\\ntwo \\101\\# \\\\\n"
                            "escaped\\#\\101 &exec(ls -l)  \n"
                            "a &file(x)\n"
                            "list &Tbl{ rest\n\n# first\n # second\nx\n&Undef{}\n&Arr{\nk v\n}\n}\n"
                            "gone 1\ngone &Undef{}\n"
                            "literal &Literal{\n{ x }\n}\n"
                            "here &Literal\"EOT\n\"EO\"EOT\n"
                            "'unclosed x\n"
                            "__END__ rest\nnever x\n";
const std::string kSampleTree =
    "{'unclosed: \"x\", a: &\"&file(x)\n\", escaped#A: &\"&exec(ls -l)  \n\", here: \"\"EO\", "
    "list: [\"\" \"\" {k: \"v\"}], literal: \"{ x }\n\", plain: \"value\", "
    "quoted\nkey: \"one\ntwo A# \\\"}";

}  // namespace

// ---- What all share ----

TEST(Pfin, EveryEntryPointReadsTheSameTree)
{
    for (const Parsed &result :
         {from_file(kSample), from_stream(kSample), from_string(kSample), from_counted(kSample)}) {
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.tree, kSampleTree);
        EXPECT_EQ(result.log, "");
    }
}

TEST(Pfin, ATextInPiecesOfAnySizeIsReadTheSame)
{
    for (const size_t n : {1U, 2U, 3U, 7U, 16U, 64U}) {
        SCOPED_TRACE(n);
        int fds[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, fds), 0);  // a read gives one piece
        const Parsed result = from_pieces(fds[0], fds[1], kSample, n);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.tree, kSampleTree);
    }
}

TEST(Pfin, ANewTreeIsATopNodeWithoutAName)
{
    Pf *pf = nullptr;
    ASSERT_EQ(pfcompile("", &pf), 0);
    const PfPtr owner(pf);
    EXPECT_EQ(pf->type, PFFILE);
    EXPECT_EQ(pf->filename, nullptr);
    EXPECT_EQ(pf->parent, nullptr);
}

TEST(Pfin, AnExistingTreeTakesWhatIsNew)
{
    Pf *pf = nullptr;
    ASSERT_EQ(pfcompile("a 1\nb &Arr{\nx 1\n}\nc 3\n", &pf), 0);
    const PfPtr owner(pf);
    const Pf *before = pf;
    ASSERT_EQ(pfcompile("b &Arr{\ny 2\n}\nc &Undef{}\nd 4\n", &pf), 0);
    EXPECT_EQ(pf, before);
    EXPECT_EQ(pf->type, PFFILE);
    EXPECT_EQ(tree_text(pf), R"({a: "1", b: {y: "2"}, d: "4"})");
}

TEST(Pfin, ATableIsATopNodeAfterwards)
{
    Pf *pf = pfnew(PFARR);
    const PfPtr owner(pf);
    ASSERT_EQ(pfcompile("a 1\n", &pf), 0);
    EXPECT_EQ(pf->type, PFFILE);
}

TEST(Pfin, ATableThatLostItsEntriesGetsNewOnes)
{
    Pf *pf = pfnew(PFSTRING);
    const PfPtr owner(pf);
    pf->type = PFARR;
    ASSERT_EQ(pfcompile("a 1\n", &pf), 0);
    EXPECT_EQ(tree_text(pf), R"({a: "1"})");
}

TEST(Pfin, ATreeWithAnErrorIsATopNodeToo)
{
    Pf *pf = nullptr;
    EXPECT_EQ(pfcompile("a &Arr{\nb 1\n", &pf), -2);
    const PfPtr owner(pf);
    EXPECT_EQ(pf->type, PFFILE);
    EXPECT_EQ(tree_text(pf), R"({a: {b: "1"}})");
    take_log();
}

TEST(Pfin, AnErrorLeavesNothingBehindForTheNextParse)
{
    for (const char *text : {"a &Arr{\nb\n", "}\n", "a &Literal{\n", "\n\n\na &Tbl{\n"}) {
        from_string(text);
        const Parsed next = from_string("k v\n}\n");
        EXPECT_EQ(next.tree, R"({k: "v"})");
        EXPECT_EQ(next.log,
                  "*stack* invalid right brace at line #2 in pf file *internal buffer*\n");
    }
}

TEST(Pfin, OnlyATableTakesText)
{
    for (const int type : {PFSTRING, PFTBL, PFFUNCTION, PFINVALID}) {
        SCOPED_TRACE(type);
        Pf *pf = pfnew(type);
        const PfPtr owner(pf);
        EXPECT_EQ(pfcompile("a 1\n", &pf), -2);
        EXPECT_EQ(pf->type, type);
        EXPECT_EQ(take_log(), "read failed in pf input routine for file *internal buffer*\n"
                              "\tInvalid argument\n");
    }
}

TEST(Pfin, NullsAreRefused)
{
    Pf *pf = nullptr;
    const std::string failed = "read failed in pf input routine for file ";
    const std::string no_text = failed + "*internal buffer*\n\tInvalid argument\n";
    EXPECT_EQ(pfcompile(nullptr, &pf), -2);
    EXPECT_EQ(take_log(), no_text);
    EXPECT_EQ(pfcompile_counted(nullptr, 5, &pf), -2);
    EXPECT_EQ(take_log(), no_text);
    EXPECT_EQ(pfcompile("a 1\n", nullptr), -2);
    EXPECT_EQ(take_log(), no_text);
    EXPECT_EQ(pfin(nullptr, &pf), -2);
    EXPECT_EQ(take_log(), failed + "*unknown pfin file*\n\tInvalid argument\n");
    EXPECT_EQ(pf, nullptr);
}

// ---- pfcompile_counted ----

TEST(Pfin, ACountedTextEndsAtItsCount)
{
    const auto counted = [](const char *text, long count) {
        return parsed([=](Pf **pf) { return pfcompile_counted(text, count, pf); }).tree;
    };
    EXPECT_EQ(counted("a 1\nb 2\n", 3), R"({a: "1"})");
    EXPECT_EQ(counted("a 1\nb 2\n", 4), R"({a: "1"})");
    EXPECT_EQ(counted("a 1\nb 2\n", 6), R"({a: "1"})");
    EXPECT_EQ(counted("a 1\nb 2\n", 100), R"({a: "1", b: "2"})");
    EXPECT_EQ(counted("a 1\nb 2\n", 0), "{}");
    EXPECT_EQ(counted("a 1\nb 2\n", -1), "{}");
}

TEST(Pfin, ACountedTextNeedsNoZeroByteBehindIt)
{
    const std::vector<char> text = {'a', ' ', '1'};
    EXPECT_EQ(parsed([&](Pf **pf) { return pfcompile_counted(text.data(), 3, pf); }).tree,
              R"({a: "1"})");
}

// ---- Messages ----

TEST(Pfin, EachEntryPointSaysWhereAContainerIsOpen)
{
    const std::string text = "a &Arr{\nb &Tbl{\n";
    EXPECT_EQ(from_file(text, "dir/x.pf").log,
              "*stack* Unterminated arrays or tables in parameter file dir/x.pf at last line #3: "
              "depth = 2\n");
    EXPECT_EQ(from_file(text).log, "*stack* Unterminated arrays or tables in parameter file *pf "
                                   "filename unknown* at last line #3: depth = 2\n");
    EXPECT_EQ(from_stream(text).log, "*stack* Unterminated arrays or tables in input FILE at last "
                                     "line #3: depth = 2\n");
    for (const Parsed &result : {from_string(text), from_counted(text)})
        EXPECT_EQ(result.log, "*stack* Unterminated arrays or tables at last line #3, depth = 2 in "
                              "input string \n  --> a &Arr{\n  --> b &Tbl{\n\n");
}

TEST(Pfin, TheTextShownIsItsFirstFiveLines)
{
    EXPECT_EQ(from_string("1\n2\n3\n4\n5\n6 &Tbl{\n").log,
              "*stack* Unterminated arrays or tables at last line #7, depth = 1 in input string \n"
              "  --> 1\n  --> 2\n  --> 3\n  --> 4\n  --> 5\n  --> ...\n\n");
}

TEST(Pfin, EachEntryPointNamesItsText)
{
    const std::string text = "}\n";
    const std::string what = "*stack* invalid right brace at line #1 in pf file ";
    EXPECT_EQ(from_file(text, "dir/x.pf").log, what + "dir/x.pf\n");
    EXPECT_EQ(from_file(text).log, what + "*pf filename unknown*\n");
    EXPECT_EQ(from_stream(text).log, what + "*unknown pfin file*\n");
    EXPECT_EQ(from_string(text).log, what + "*internal buffer*\n");
    EXPECT_EQ(from_counted(text).log, what + "*internal buffer*\n");
}

TEST(Pfin, TheNameOfAFileServesOneParse)
{
    EXPECT_EQ(from_file("a 1\n", "x.pf").status, 0);
    EXPECT_EQ(Pffilename, nullptr);
}

// ---- Reading ----

TEST(Pfin, AFileLargerThanAnyBufferIsWhole)
{
    std::string text, tree;
    for (int i = 100000; i < 200000; ++i) {
        const std::string n = std::to_string(i);
        text += "key" + n + " value " + n + "\n";
        tree += (tree.empty() ? "" : ", ") + std::string("key") + n + ": \"value " + n + "\"";
    }
    EXPECT_EQ(from_file(text).tree, "{" + tree + "}");
    EXPECT_EQ(from_stream(text).tree, "{" + tree + "}");
}

TEST(Pfin, ValuesOfTenMegabytesAreWholeFromEverySource)
{
    const std::string line = std::string(99, 'x') + "\n";
    const std::string value(10'000'000, 'v');
    const std::string body = repeat(line, 100'000);
    const std::string text =
        "a " + value + "\nb &Literal{\n" + body + "}\nc &Literal\"EOT\n" + body + "\"EOT\nd 1\n";
    const std::string tree =
        "{a: \"" + value + "\", b: \"" + body + "\", c: \"" + body + "\", d: \"1\"}";
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    EXPECT_TRUE(from_file(text).tree == tree);
    EXPECT_TRUE(from_stream(text).tree == tree);
    EXPECT_TRUE(from_counted(text).tree == tree);
    EXPECT_TRUE(from_pieces(fds[0], fds[1], text, 65536).tree == tree);
}

TEST(Pfin, AZeroByteEndsAFileAndAStream)
{
    const std::string large = "a " + std::string(200'000, 'v') + "\n";
    for (const std::string &before : {std::string("a 1\n"), large}) {
        const std::string text = before + "b 2" + std::string(1, '\0') + "3\nc 4\n";
        const std::string tree = tree_of(before + "b 2");
        for (const Parsed &result : {from_file(text), from_stream(text), from_counted(text)}) {
            EXPECT_EQ(result.status, 0);
            EXPECT_TRUE(result.tree == tree);
            EXPECT_EQ(result.log, "");
        }
    }
}

TEST(Pfin, ASocketIsReadToItsEnd)
{
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    EXPECT_EQ(from_pieces(fds[0], fds[1], "a 1\nb 2", 2).tree, R"({a: "1", b: "2"})");
}

TEST(Pfin, ADescriptorThatDoesNotBlockIsWaitedFor)
{
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_NONBLOCK), 0);
    std::thread writer([&] {
        for (const char *piece : {"a 1", "\nb", " 2\n"}) {
            usleep(20000);
            EXPECT_GT(write(fds[1], piece, strlen(piece)), 0);
        }
        close(fds[1]);
    });
    const Parsed result = parsed([&](Pf **pf) { return pfinfd(fds[0], pf); });
    writer.join();
    close(fds[0]);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.tree, R"({a: "1", b: "2"})");
}

TEST(Pfin, SignalsDoNotCutAPipeShort)
{
    for (const bool as_stream : {false, true}) {
        SCOPED_TRACE(as_stream);
        struct sigaction action = {};
        action.sa_handler = [](int) {};  // without SA_RESTART: reads fail with EINTR
        sigaction(SIGUSR1, &action, nullptr);
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        const pthread_t reader = pthread_self();
        std::thread writer([&] {
            for (const char *piece : {"a 1", "\nb", " 2\n"}) {
                for (int i = 0; i < 5; ++i) {
                    usleep(3000);
                    pthread_kill(reader, SIGUSR1);
                }
                EXPECT_GT(write(fds[1], piece, strlen(piece)), 0);
            }
            close(fds[1]);
        });
        FILE *stream = fdopen(fds[0], "r");
        const Parsed result =
            parsed([&](Pf **pf) { return as_stream ? pfin(stream, pf) : pfinfd(fds[0], pf); });
        writer.join();
        fclose(stream);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.tree, R"({a: "1", b: "2"})");
        EXPECT_EQ(result.log, "");
    }
}

TEST(Pfin, SignalsDoNotEndTheWaitForADescriptorThatDoesNotBlock)
{
    for (const bool as_stream : {false, true}) {
        SCOPED_TRACE(as_stream);
        int fds[2];
        ASSERT_EQ(pipe2(fds, O_NONBLOCK), 0);
        polls_to_interrupt = 3;
        std::thread writer([&] {
            while (polls_to_interrupt > 0)
                usleep(1000);
            EXPECT_EQ(write(fds[1], "a 1\n", 4), 4);
            close(fds[1]);
        });
        FILE *stream = fdopen(fds[0], "r");
        const Parsed result =
            parsed([&](Pf **pf) { return as_stream ? pfin(stream, pf) : pfinfd(fds[0], pf); });
        polls_to_interrupt = 0;
        writer.join();
        fclose(stream);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.tree, R"({a: "1"})");
        EXPECT_EQ(result.log, "");
    }
}

TEST(Pfin, ADescriptor0IsReadLikeAnyOther)
{
    const TempDir dir;
    const std::string path = dir.file("x.pf", "a 1\n");
    close(0);
    ASSERT_EQ(open(path.c_str(), O_RDONLY), 0);
    EXPECT_EQ(parsed([](Pf **pf) { return pfinfd(0, pf); }).tree, R"({a: "1"})");
}

TEST(Pfin, AnEndMarkEndsAPipeThatStaysOpen)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    const std::string text = "a 1\n__END__\n";
    ASSERT_EQ(write(fds[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    EXPECT_EQ(parsed([&](Pf **pf) { return pfinfd(fds[0], pf); }).tree, R"({a: "1"})");
    close(fds[0]);
    close(fds[1]);
}

TEST(Pfin, AStreamIsLeftBehindItsEndMark)
{
    std::string text = "a 1\n__DATA__ x\nthe rest\n";
    FILE *stream = fmemopen(text.data(), text.size(), "r");
    EXPECT_EQ(parsed([&](Pf **pf) { return pfin(stream, pf); }).tree, R"({a: "1"})");
    char rest[100] = "";
    EXPECT_EQ(fgets(rest, sizeof rest, stream), rest);
    EXPECT_STREQ(rest, "the rest\n");
    fclose(stream);
}

TEST(Pfin, AQuoteThatIsNeverClosedIsLookedForInTheWholeStream)
{
    std::string text = "\"a 1\n__DATA__ x\nthe rest\n";
    FILE *stream = fmemopen(text.data(), text.size(), "r");
    EXPECT_EQ(parsed([&](Pf **pf) { return pfin(stream, pf); }).tree, R"({"a: "1"})");
    EXPECT_EQ(fgetc(stream), EOF);
    fclose(stream);
}

TEST(Pfin, AStreamIsReadFromWhereItStands)
{
    std::string text = "a 1\nb 2\n";
    FILE *stream = fmemopen(text.data(), text.size(), "r");
    char line[100];
    ASSERT_NE(fgets(line, sizeof line, stream), nullptr);
    EXPECT_EQ(parsed([&](Pf **pf) { return pfin(stream, pf); }).tree, R"({b: "2"})");
    fclose(stream);
}

TEST(Pfin, AReadThatFailsIsReported)
{
    const Parsed result = parsed([](Pf **pf) {
        Pffilename = "x.pf";
        return pfinfd(-1, pf);
    });
    EXPECT_EQ(result.status, -2);
    EXPECT_EQ(result.tree, "{}");
    EXPECT_EQ(result.log, "read failed in pf input routine for file x.pf\n\tBad file descriptor\n");
}

TEST(Pfin, ADirectoryIsReported)
{
    const TempDir dir;
    const int fd = open(dir.path().c_str(), O_RDONLY);
    const Parsed result = parsed([&](Pf **pf) { return pfinfd(fd, pf); });
    close(fd);
    EXPECT_EQ(result.status, -2);
    EXPECT_EQ(result.log, "read failed in pf input routine for file *pf filename unknown*\n"
                          "\tIs a directory\n");
}

TEST(Pfin, AStreamThatFailsIsReported)
{
    const TempDir dir;
    FILE *stream = fopen((dir / "x").c_str(), "w");
    const Parsed result = parsed([&](Pf **pf) { return pfin(stream, pf); });
    fclose(stream);
    EXPECT_EQ(result.status, -2);
    EXPECT_EQ(result.log, "read failed in pf input routine for file *unknown pfin file*\n"
                          "\tBad file descriptor\n");
}

TEST(Pfin, AStreamOfTheProgramsOwnThatFailsWithoutAReasonIsReported)
{
    errno = EINTR;
    FILE *stream = fopencookie(
        nullptr, "r",
        {[](void *, char *, size_t) -> ssize_t { return -1; }, nullptr, nullptr, nullptr});
    const Parsed result = parsed([&](Pf **pf) {
        errno = EINTR;
        return pfin(stream, pf);
    });
    fclose(stream);
    EXPECT_EQ(result.status, -2);
    EXPECT_EQ(result.log, "read failed in pf input routine for file *unknown pfin file*\n"
                          "\tInput/output error\n");
}

TEST(Pfin, AValueThatReadingFailedInIsNotStored)
{
    int calls = 0;
    const auto read_once = [](void *cookie, char *to, size_t) -> ssize_t {
        if ((*static_cast<int *>(cookie))++ > 0) {
            errno = EIO;
            return -1;
        }
        return static_cast<ssize_t>(std::string("a 1\nb tw").copy(to, 8));
    };
    FILE *stream = fopencookie(&calls, "r", {read_once, nullptr, nullptr, nullptr});
    const Parsed result = parsed([&](Pf **pf) { return pfin(stream, pf); });
    fclose(stream);
    EXPECT_EQ(result.status, -2);
    EXPECT_EQ(result.tree, R"({a: "1"})");
    EXPECT_EQ(result.log, "read failed in pf input routine for file *unknown pfin file*\n"
                          "\tInput/output error\n");
}

TEST(Pfin, TheDescriptorStaysOpen)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    close(fds[1]);
    from_string("");
    EXPECT_EQ(parsed([&](Pf **pf) { return pfinfd(fds[0], pf); }).tree, "{}");
    EXPECT_NE(fcntl(fds[0], F_GETFD), -1);
    close(fds[0]);
}

// ---- Parses inside parses, and beside each other ----

TEST(Pfin, ALogFunctionOfTheProgramMayParseDuringAParse)
{
    static std::string inner;
    int (*parse)(int, const char *, Tbl *) = [](int, const char *, Tbl *) {
        Pf *pf = nullptr;
        pfcompile("inner &Tbl{\nescaped\\#\n}\n", &pf);
        inner = tree_text(pf);
        pffree(pf);
        return 1;
    };
    elog_set(ELOG_CALLBACK_FN, 0, parse);
    Pf *pf = nullptr;
    EXPECT_EQ(pfcompile("a &Arr{\nescaped \\# &Tbl{\nb 1\n}\nc 2\n", &pf), 0);
    const PfPtr owner(pf);
    elog_set(ELOG_CALLBACK_FN, 0, nullptr);
    EXPECT_EQ(inner, R"({inner: ["escaped#"]})");
    EXPECT_EQ(tree_text(pf), R"({a: {b: "1", escaped: "# &Tbl{"}, c: "2"})");
}

TEST(PfinThreads, EightThreadsParseTheirOwnTexts)
{
    const auto by_pipe = [](const std::string &text, Pf **pf) {
        int fds[2];
        if (pipe(fds) || write(fds[1], text.data(), text.size()) < 0)
            return -1;
        close(fds[1]);
        Pffilename = "pipe";
        const int status = pfinfd(fds[0], pf);
        close(fds[0]);
        return status;
    };
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 50; ++i) {
                const std::string n = std::to_string(t * 1000 + i);
                const std::string text = "key" + n + " &Tbl{\nescaped\\#" + n + "\n" + n + "\n}\n";
                Pf *pf = nullptr;
                const int status = i % 2 ? pfcompile(text.c_str(), &pf) : by_pipe(text, &pf);
                const PfPtr owner(pf);
                right += status == 0 &&
                         tree_text(pf) == "{key" + n + ": [\"escaped#" + n + "\" \"" + n + "\"]}";
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(right, 400);
}

// Parses used to wait for each other, and threads that held the log's lock waited with them.
TEST(PfinThreads, AParseDoesNotWaitForAnotherThatReadsAPipe)
{
    const Ended ended = in_child([] {
        alarm(20);
        int fds[2];
        if (pipe(fds) != 0)
            abort();
        Pf *slow = nullptr;
        std::thread reader([&] { pfinfd(fds[0], &slow); });
        usleep(50000);
        Pf *other = nullptr;
        pfcompile("b 2\n", &other);
        if (write(fds[1], "a 1\n", 4) != 4)
            abort();
        close(fds[1]);
        reader.join();
        printf("%s %s", tree_text(slow).c_str(), tree_text(other).c_str());
        pffree(slow);
        pffree(other);
    });
    EXPECT_EQ(ended.out, R"({a: "1"} {b: "2"})");
}
