// Where messages go: delivery strings, files, the messaging library.

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/logging.h"
#include "support/temp_dir.h"

namespace {

// Complains with a delivery string and prints how many messages stay.
Ended complained(
    const std::string &delivery, const std::function<void()> &before = [] {})
{
    return untagged([&] {
        elog_set(ELOG_DELIVER_FIELD, 4, delivery.c_str());
        before();
        elog_complain(0, "x");
        fprintf(stdout, "kept %d", elog_mark());
    });
}

Elog_msg new_message(const char *text)
{
    Elog_msg msg = {};
    msg.msg = strdup(text);
    msg.count = 1;
    return msg;
}

bool Close_fails = false;
int Refused = 0;
bool Called = false;

void limit_file_size(rlim_t bytes)
{
    const rlimit limit = {bytes, bytes};
    setrlimit(RLIMIT_FSIZE, &limit);
}

// Makes standard error a pipe that is full. Returns its other end.
int fill_standard_error()
{
    int pipes[2];
    if (pipe(pipes) != 0)
        abort();
    fcntl(pipes[1], F_SETPIPE_SZ, 4096);
    fcntl(pipes[1], F_SETFL, O_NONBLOCK);
    while (write(pipes[1], "-", 1) == 1) {
    }
    fcntl(pipes[1], F_SETFL, 0);
    dup2(pipes[1], STDERR_FILENO);
    close(pipes[1]);
    return pipes[0];
}

}  // namespace

// Replaces the system's close: closes, and fails all the same when Close_fails is set.
extern "C" int close(int fd)
{
    static const auto closes = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "close"));
    const int status = closes(fd);
    if (!Close_fails)
        return status;
    errno = EIO;
    return -1;
}

TEST(ElogDeliver, StandardErrorAndStandardOutput)
{
    EXPECT_EQ(complained("stderr").err, "x\n");
    EXPECT_EQ(complained("stdout").out, "x\nkept 0");
}

TEST(ElogDeliver, DevNullTakesEverything)
{
    const Ended ended = complained("/dev/null", [] { elog_log(0, "why"); });
    EXPECT_EQ(ended.out, "kept 0");
    EXPECT_EQ(ended.err, "");
}

TEST(ElogDeliver, LogAndNothingKeepTheMessage)
{
    for (const char *delivery : {"log", "", " ", "\t log  log"}) {
        SCOPED_TRACE(delivery);
        const Ended ended = complained(delivery, [] { elog_log(0, "why"); });
        EXPECT_EQ(ended.out, "kept 2");
        EXPECT_EQ(ended.err, "");
    }
}

TEST(ElogDeliver, WordsThatBeginWithOAreIgnoredWithoutAReport)
{
    for (const char *delivery : {"other", "o", "oqel:x", "orb:x"}) {
        SCOPED_TRACE(delivery);
        const Ended ended = complained(delivery);
        EXPECT_EQ(ended.out, "kept 1");
        EXPECT_EQ(ended.err, "");
    }
}

TEST(ElogDeliver, UnknownWordsAreReportedAndTheMessageDropped)
{
    for (const std::string word :
         {"xyz", "q", "qel", "qelx:y", "stdin", "s", "stderrx", "@", "Log"}) {
        SCOPED_TRACE(word);
        const Ended ended = complained(word);
        EXPECT_EQ(ended.out, "kept 0");
        EXPECT_EQ(ended.err, "unrecognized delivery '" + word + "'\n");
    }
}

TEST(ElogDeliver, UnknownWordsThatBeginWithLAreReportedAndTheMessageKept)
{
    for (const std::string word : {"l", "logs", "lx"}) {
        SCOPED_TRACE(word);
        const Ended ended = complained(word);
        EXPECT_EQ(ended.out, "kept 1");
        EXPECT_EQ(ended.err, "unrecognized delivery '" + word + "'\n");
    }
}

TEST(ElogDeliver, AReportOfABadWordShowsErrnoAndTheStackAndClearsIt)
{
    const Ended ended = untagged([] {
        elog_set(ELOG_DELIVER_FIELD, 4, "xyz stdout");
        elog_log(0, "why");
        errno = ENOENT;
        elog_complain(0, "x");
    });
    EXPECT_EQ(ended.err, "unrecognized delivery 'xyz'\n\t: No such file or directory\nwhy\n");
    EXPECT_EQ(ended.out, "x\n");
}

TEST(ElogDeliver, EachDestinationGetsTheWholeStack)
{
    const BlanklessDir dir;
    const std::string file = dir / "f";
    const Ended ended = complained("stderr " + file + "\tstdout  ", [] { elog_log(0, "why"); });
    EXPECT_EQ(ended.err, "why\nx\n");
    EXPECT_EQ(ended.out, "why\nx\nkept 0");
    EXPECT_EQ(read_file(file), "why\nx\n");
}

TEST(ElogDeliver, AWordAfterLogStillDelivers)
{
    const Ended ended = complained("log stderr other");
    EXPECT_EQ(ended.err, "x\n");
    EXPECT_EQ(ended.out, "kept 0");
}

TEST(ElogDeliver, OnlyTheMessagesFromTheMarkOnGo)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        elog_log(0, "b");
        Elog_msg msg = new_message("c\n");
        elog_deliver("stderr", 1, &msg);
        printf("%d%d%d%s", msg.tag == nullptr, msg.msg == nullptr, msg.sys == nullptr,
               stack_text().c_str());
    });
    EXPECT_EQ(ended.err, "b\nc\n");
    EXPECT_EQ(ended.out, "111a\n");
}

TEST(ElogDeliver, AnUndeliveredMessageMovesOntoTheStack)
{
    const Ended ended = untagged([] {
        Elog_msg msg = new_message("c\n");
        msg.tag = strdup("tag");
        elog_deliver("log", 0, &msg);
        msg = new_message("d\n");
        elog_deliver(nullptr, 0, &msg);
        elog_deliver("log", 0, nullptr);
        printf("%s", stack_text().c_str());
    });
    EXPECT_EQ(ended.out, "tag: c\nd\n");
}

TEST(ElogDeliver, ADeliveryStringMayBeOfAnyLength)
{
    std::string delivery = "stdout ";
    for (int i = 0; i < 10000; ++i)
        delivery += "log \t";
    const Ended ended = untagged([&] {
        Elog_msg msg = new_message("c\n");
        elog_deliver(delivery.c_str(), 0, &msg);
    });
    EXPECT_EQ(ended.out, "c\n");
}

namespace {

// A stream that reports each time it is written to.
FILE *reporting_stream()
{
    const auto write = [](void *, const char *text, size_t size) -> ssize_t {
        elog_log(0, "logged from within");
        elog_notify(0, "told from within");
        return ::write(1, text, size);
    };
    return fopencookie(nullptr, "w", {nullptr, write, nullptr, nullptr});
}

}  // namespace

TEST(ElogDeliver, ReportsFromWithinADeliveryGoThrough)
{
    const Ended ended = untagged([] {
        stdout = reporting_stream();
        setvbuf(stdout, nullptr, _IONBF, 0);
        elog_set(ELOG_DELIVER_FIELD, 4, "stdout stderr");
        elog_log(0, "why");
        elog_complain(0, "x");
        elog_notify(0, "end");
    });
    EXPECT_EQ(ended.out, "why\nx\n");
    // The notification from within delivered the stack and so emptied it.
    EXPECT_EQ(ended.err, "why\nlogged from within\ntold from within\nx\nend\n");
    EXPECT_EQ(ended.status, 0);
}

TEST(ElogDeliver, ReportsThatWouldCallThemselvesForeverEnd)
{
    // Each report flushes standard output, which reports: the buffer is never empty.
    const Ended ended = untagged([] {
        stdout = reporting_stream();
        printf("pending");
        elog_complain(0, "x");
        _exit(elog_mark());
    });
    EXPECT_NE(ended.err.find("told from within\n"), std::string::npos);
    EXPECT_EQ(ended.err.substr(ended.err.size() - 2), "x\n");
    EXPECT_EQ(ended.status, 0);
}

// Files.

TEST(ElogFile, IsCreatedAndAppendedTo)
{
    const BlanklessDir dir;
    const std::string file = dir / "f";
    for (int i = 0; i < 2; ++i)
        logged({}, [&] {
            umask(0);
            elog_set(ELOG_DELIVER_FIELD, 4, file.c_str());
            errno = ENOENT;
            elog_complain(1, "x");
        });
    EXPECT_EQ(read_file(file), "elog_deliver_test: x\n\t##=> No such file or directory\n"
                               "elog_deliver_test: x\n\t##=> No such file or directory\n");
    struct stat status = {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0664u);
}

TEST(ElogFile, ItsLayoutMarksErrnoAndRepetitions)
{
    const BlanklessDir dir;
    const std::string file = dir / "f";
    untagged([&] {
        elog_set(ELOG_DELIVER_FIELD, 4, file.c_str());
        errno = EACCES;
        elog_log(1, "same");
        elog_log(0, "same");
        elog_log(0, "\nline");
        elog_complain(0, "end");
    });
    EXPECT_EQ(read_file(file), "same\n\t##=> Permission denied\n\t** repeated 2 times\n"
                               "\n: line\nend\n");
}

TEST(ElogFile, AWordThatBeginsWithADotIsARelativePath)
{
    const TempDir dir;
    complained("./here .hidden", [&] {
        if (chdir(dir.path().c_str()) != 0)
            abort();
    });
    EXPECT_EQ(read_file(dir / "here"), "x\n");
    EXPECT_EQ(read_file(dir / ".hidden"), "x\n");
}

TEST(ElogFile, OneInADirectoryThatDoesNotExistIsReportedAndTheMessageDropped)
{
    const Ended ended = complained("/nowhere/f stdout");
    EXPECT_EQ(ended.err, "Can't open error file '/nowhere/f'\n\t: No such file or directory\n");
    EXPECT_EQ(ended.out, "x\nkept 0");
}

TEST(ElogFile, OneThatMayNotBeOpenedIsReported)
{
    const Ended ended = complained("/");
    EXPECT_EQ(ended.err, "Can't open error file '/'\n\t: Is a directory\n");
    EXPECT_EQ(ended.out, "kept 0");
}

TEST(ElogFile, ATerminalDoesNotBecomeTheControllingOne)
{
    const Ended ended = untagged([] {
        const int master = posix_openpt(O_RDWR | O_NOCTTY);
        if (master < 0 || unlockpt(master) != 0 || setsid() < 0)
            abort();
        elog_set(ELOG_DELIVER_FIELD, 4, ptsname(master));
        elog_complain(0, "x");
        char text[10] = "";
        printf("%zd%d", read(master, text, sizeof text), open("/dev/tty", O_RDONLY));
    });
    EXPECT_EQ(ended.out, "3-1");  // a terminal turns "\n" into "\r\n"
    EXPECT_EQ(ended.err, "");
}

TEST(ElogFile, AFullDiskIsReportedAndTheOtherDestinationsGetTheMessage)
{
    const Ended ended = complained("/dev/full stdout", [] { elog_log(0, "why"); });
    EXPECT_EQ(ended.err,
              "Can't write to error file '/dev/full'\n\t: No space left on device\nwhy\nx\n");
    EXPECT_EQ(ended.out, "x\nkept 0");
    EXPECT_EQ(ended.status, 0);
}

TEST(ElogFile, WhatItRefusesIsCounted)
{
    const Ended ended = complained("/dev/full", [] {
        int refused = -1;
        EXPECT_EQ(elog_query(ELOG_REFUSED, 0, &refused), 0);
        EXPECT_EQ(refused, 0);
        std::atexit([] {
            elog_query(ELOG_REFUSED, 0, &Refused);
            printf(" refused %d", Refused);
        });
    });
    EXPECT_EQ(ended.out, "kept 0 refused 1");
}

#ifndef __SANITIZE_ADDRESS__  // the sanitizer needs descriptors of its own
TEST(ElogFile, AMessageForOneThatCannotBeOpenedNowGoesToStandardError)
{
    const BlanklessDir dir;
    const Ended ended = complained(dir / "f", [] {
        const rlimit none = {3, 3};
        setrlimit(RLIMIT_NOFILE, &none);
    });
    EXPECT_EQ(ended.err, "Can't open error file '" + dir / "f" + "'\n\t: Too many open files\nx\n");
}
#endif

TEST(ElogFile, AMessageBeyondTheLimitOfFileSizesGoesToStandardError)
{
    const BlanklessDir dir;
    const Ended ended = complained(dir / "f", [] { limit_file_size(1); });
    EXPECT_EQ(ended.err, "Can't write to error file '" + dir / "f" + "'\n\t: File too large\nx\n");
    EXPECT_EQ(ended.status, 0);
}

TEST(ElogFile, StandardErrorBeyondTheLimitOfFileSizesDoesNotEndTheProcess)
{
    const TempDir dir;
    const std::string file = dir.file("f", "");
    const Ended ended = complained("stderr", [&] {
        dup2(open(file.c_str(), O_WRONLY), STDERR_FILENO);
        limit_file_size(1);
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.signal, 0);
}

TEST(ElogFile, TheProgramsActionForFilesThatAreTooLargeIsNotCalledAndStays)
{
    const BlanklessDir dir;
    const Ended ended = complained((dir / "f"), [] {
        signal(SIGXFSZ, [](int) { Called = true; });
        limit_file_size(1);
        std::atexit([] {
            printf(" %d", Called);
            raise(SIGXFSZ);
            printf("%d", Called);
        });
    });
    EXPECT_EQ(ended.out, "kept 0 01");
}

// ---- Readers that do not read ----

TEST(ElogReader, ADyingProcessDoesNotWaitForEverForTheReaderOfANamedPipe)
{
    const BlanklessDir dir;
    const std::string pipe = dir / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const Ended ended = untagged([&] {
        alarm(60);
        elog_set(ELOG_DELIVER_FIELD, ELOG_DIE, pipe.c_str());
        elog_die(0, "x");
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err,
              "Can't open error file '" + pipe + "'\n\t: No such device or address\nx\n");
}

TEST(ElogReader, ACrashingProcessDoesNotWaitForEverForTheReaderOfANamedPipe)
{
    const BlanklessDir dir;
    const std::string pipe = dir / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const int signal : {SIGABRT, SIGFPE}) {
        const Ended ended = untagged([&] {
            elog_init(0, nullptr);
            elog_set(ELOG_DELIVER_FIELD, ELOG_FAULT, pipe.c_str());
            if (signal == SIGFPE)
                raise(SIGFPE);
            elog_fault(0, "x");
        });
        EXPECT_NE(ended.signal, 0);
    }
}

TEST(ElogReader, ADyingProcessDoesNotWaitForEverForTheReaderOfStandardError)
{
    const Ended ended = untagged([] {
        fill_standard_error();
        alarm(60);
        elog_die(0, "x");
    });
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogReader, ADyingThreadDoesNotWaitForOneThatWaitsForTheReader)
{
    const Ended ended = untagged([] {
        fill_standard_error();
        alarm(60);
        std::thread([] { elog_complain(0, "nobody reads"); }).detach();
        usleep(100000);
        elog_die(0, "x");
    });
    EXPECT_EQ(ended.status, 1);
}

TEST(ElogReader, AProcessThatGoesOnWaitsForTheReaderOfANamedPipe)
{
    const BlanklessDir dir;
    const std::string pipe = dir / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string large(9000, 'x');
    const Ended ended = untagged([&] {
        std::thread reader([&] {
            usleep(200000);
            printf("%s", read_file(pipe).c_str());
        });
        elog_set(ELOG_DELIVER_FIELD, ELOG_COMPLAIN, pipe.c_str());
        elog_complain(0, "%s", large.c_str());
        reader.join();
    });
    EXPECT_EQ(ended.out, large + "\n");
    EXPECT_EQ(ended.err, "");
}

TEST(ElogReader, AProcessThatGoesOnWaitsForTheReaderOfStandardError)
{
    const std::string large(9000, 'x');
    const Ended ended = untagged([&] {
        const int reads = fill_standard_error();
        std::thread reader([&] {
            usleep(200000);
            std::string text(200000, '\0');
            size_t got = 0;
            ssize_t now = 0;
            while ((now = read(reads, text.data() + got, text.size() - got)) > 0) {
                got += static_cast<size_t>(now);
                if (text[got - 1] == '\n')
                    break;
            }
            text.resize(got);
            printf("%s", text.substr(text.find('x')).c_str());
        });
        elog_complain(0, "%s", large.c_str());
        reader.join();
    });
    EXPECT_EQ(ended.out, large + "\n");
}

TEST(ElogFile, OneThatCannotBeClosedIsReportedAndTheMessageDropped)
{
    const BlanklessDir dir;
    const std::string file = dir / "f";
    const Ended ended = complained(file + " stdout", [] {
        elog_log(0, "why");
        Close_fails = true;
    });
    EXPECT_EQ(ended.err, "Can't close error file '" + file + "'\n\t: Input/output error\nwhy\n");
    EXPECT_EQ(ended.out, "x\nkept 0");
    EXPECT_EQ(read_file(file), "why\nx\n");
}

TEST(ElogFile, APathThatIsTooLongIsReportedWhole)
{
    for (const size_t length : {4095u, 4096u, 100000u}) {
        SCOPED_TRACE(length);
        const std::string path = "/" + std::string(length, 'x');
        const Ended ended = untagged([&] {
            Elog_msg msg = new_message("c\n");
            elog_deliver(path.c_str(), 0, &msg);
        });
        EXPECT_EQ(ended.err, "Can't open error file '" + path + "'\n\t: File name too long\n");
    }
}

TEST(ElogFile, LongMessagesArriveWhole)
{
    const BlanklessDir dir;
    const std::string file = dir / "f";
    const std::string text(10000, 'x');
    untagged([&] {
        elog_set(ELOG_DELIVER_FIELD, 4, file.c_str());
        elog_log(0, "short");
        elog_log(0, "%s", text.c_str());
        elog_complain(0, "short again");
    });
    EXPECT_EQ(read_file(file), "short\n" + text + "\nshort again\n");
}

TEST(ElogPrintfd, WritesFromTheMarkOn)
{
    const Ended ended = untagged([] {
        elog_printfd(1, 0);
        elog_log(0, "a");
        elog_log(0, "b");
        elog_printfd(1, 1);
        elog_printfd(1, -1);
        elog_printfd(-1, 0);
        elog_printfd(1, 2);
    });
    EXPECT_EQ(ended.out, "b\na\nb\n");
}

TEST(ElogPrintfd, LeavesErrnoAlone)
{
    const Ended ended = untagged([] {
        elog_log(0, "a");
        errno = EDOM;
        elog_printfd(99, 0);
        printf("%d", errno == EDOM);
    });
    EXPECT_EQ(ended.out, "1");
}

TEST(ElogPrintfd, OneRecordInEveryForm)
{
    char tag[] = "tag", empty[] = "", text[] = "text\n", sys[] = "reason";
    const struct {
        Elog_msg msg;
        const char *printed;
    } cases[] = {
        {{tag, text, nullptr, 0, 1, 0}, "tag: text\n"},
        {{nullptr, text, nullptr, 0, 0, 0}, "text\n"},
        {{empty, text, sys, 0, 1, 0}, "text\n\t##=> reason\n"},
        {{tag, text, sys, 0, 3, 0}, "tag: text\n\t##=> reason\n\t** repeated 3 times\n"},
        {{tag, text, nullptr, 0, 2, 0}, "tag: text\n\t** repeated 2 times\n"},
        {{tag, text, nullptr, 0, 2147483647, 0}, "tag: text\n\t** repeated 2147483647 times\n"},
        {{tag, nullptr, nullptr, 0, 1, 0}, "tag: "},
        {{}, ""},
    };
    for (const auto &c : cases)
        EXPECT_EQ(in_child([&] { elog_msg_printfd(1, &c.msg); }).out, c.printed);
    EXPECT_EQ(in_child([] { elog_msg_printfd(1, nullptr); }).status, 0);
    EXPECT_EQ(in_child([&] { elog_msg_printfd(-1, &cases[0].msg); }).out, "");
}

TEST(ElogPrintfd, EachRecordIsOneWrite)
{
    const std::string large(9000, 'x');
    const Ended ended = logged({}, [&] {
        int ends[2];  // of a pipe that keeps each write as a packet of its own
        if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0)
            abort();
        errno = EACCES;
        elog_log(1, "%s", large.c_str());
        elog_log(0, "b");
        elog_log(0, "b");
        elog_printfd(ends[1], 0);
        char packet[20000];
        for (int i = 0; i < 2; ++i)
            printf("[%.*s]", static_cast<int>(read(ends[0], packet, sizeof packet)), packet);
    });
    EXPECT_EQ(ended.out, "[elog_deliver_test: " + large + "\n\t##=> Permission denied\n]" +
                             "[elog_deliver_test: b\n\t** repeated 2 times\n]");
}

TEST(ElogPrintfd, AnInterruptedWriteIsRepeated)
{
    const Ended ended = untagged([] {
        int pipes[2];
        if (pipe(pipes) != 0)
            abort();
        fcntl(pipes[1], F_SETPIPE_SZ, 4096);
        const pid_t reader = fork();
        if (reader == 0) {  // reads slowly, so that the writer is interrupted while it waits
            close(pipes[1]);
            char chunk[1000];
            ssize_t got = 0;
            while ((got = read(pipes[0], chunk, sizeof chunk)) > 0) {
                if (write(1, chunk, static_cast<size_t>(got)) != got)
                    _exit(1);
                usleep(2000);
            }
            _exit(0);
        }
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, nullptr);
        const itimerval often = {{0, 500}, {0, 500}};
        setitimer(ITIMER_REAL, &often, nullptr);
        elog_log(0, "%s", std::string(10000, 'x').c_str());
        elog_printfd(pipes[1], 0);
        const itimerval never = {};
        setitimer(ITIMER_REAL, &never, nullptr);
    });
    EXPECT_EQ(ended.out, std::string(10000, 'x') + "\n");
}
