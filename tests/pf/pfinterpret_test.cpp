// References in texts, and the functions: one test per row of their table.

#include <atomic>
#include <csetjmp>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include <pty.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "stock.h"
#include "support/child.h"
#include "support/pf_files.h"

namespace {

PfPtr parse(const std::string &text)
{
    Pf *pf = nullptr;
    EXPECT_EQ(pfcompile(text.c_str(), &pf), 0);
    return PfPtr(pf);
}

// The result of the function, as text.
std::string evaluated(const std::string &function)
{
    const PfPtr pf = parse("f " + function + "\n");
    Pf *node = nullptr;
    _pfeval(pf.get(), "f", &node, PFANY);
    if (node && (node->type == PFINVALID || node->type == PFEXEC_ERROR))
        return "<" + std::to_string(node->type) + ">" + okstr(node->value.s);
    return tree_text(node);
}

// Sends this process a signal every 20 ms, which interrupts a system call that waits.
void interrupt_often()
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often = {{0, 20'000}, {0, 20'000}};
    setitimer(ITIMER_REAL, &often, nullptr);
}

char *answer(const char *prompt)
{
    return strconcat("answer to <", prompt, ">", nullptr);
}

}  // namespace

TEST(Pfexpand, ReplacesReferencesByTheNearestEnclosingText)
{
    const PfPtr pf = parse("home /u\nname top\nt &Arr{\n name inner\n x &home/y\n b &{home}y\n"
                           " n &name\n u &unknown/&{unknown too}\n open &{home\n amp a & b &\n"
                           " nest &chain\n}\nchain <&home>\n");
    const struct {
        const char *address, *text;
    } cases[] = {
        {"t{x}", "/u/y"},    {"t{b}", "/uy"},
        {"t{n}", "inner"},   {"t{u}", "&unknown/&{unknown too}"},
        {"t{open}", "/u"},   {"t{amp}", "a & b &"},
        {"t{nest}", "</u>"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.address);
        EXPECT_STREQ(pfget_string(pf.get(), c.address), c.text);
    }
}

TEST(Pfexpand, ANameIsOfLettersDigitsAndUnderscores)
{
    const PfPtr pf = parse("Az_0Z9a yes\nx &Az_0Z9a-&Az_0Z9a.\n");
    EXPECT_STREQ(pfget_string(pf.get(), "x"), "yes-yes.");
}

TEST(Pfexpand, PassesOverWhatIsNoText)
{
    const PfPtr pf = parse("a outer\nt &Arr{\n a &Tbl{\n }\n f &undef()\n x &a/&f\n}\n");
    EXPECT_STREQ(pfget_string(pf.get(), "t{x}"), "outer/&f");
}

TEST(Pfexpand, ANameIsTheLongestRunOfItsCharacters)
{
    const PfPtr pf =
        parse("a short\na_ longer\na_1 1\na_1B longest\nx &a_1B.&a_1-&a_-&a+&{a}_1B\n");
    EXPECT_STREQ(pfget_string(pf.get(), "x"), "longest.1-longer-short+short_1B");
    const PfPtr edges = parse("A 1\nZ 2\na 3\nz 4\n0 5\n9 6\n_ 7\n"
                              "x &A&Z&a&z&0&9&_ &A@&A[&A`&A{&A/&A:&A^\n");
    EXPECT_STREQ(pfget_string(edges.get(), "x"), "1234567 1@1[1`1{1/1:1^");
}

TEST(Pfexpand, AnEmptyNameIsLookedUpToo)
{
    const PfPtr pf = parse("\"\" E\nx a & b &{} c &(d) &\nt &Arr{\n y &.\n}\n");
    EXPECT_STREQ(pfget_string(pf.get(), "x"), "a E b E c &(d) E");
    EXPECT_STREQ(pfget_string(pf.get(), "t{y}"), "E.");
}

TEST(Pfexpand, LeavesTheCallOfAFunctionAlone)
{
    const PfPtr pf = parse("home /u\nx see &home(here) and &home\n");
    EXPECT_STREQ(pfget_string(pf.get(), "x"), "see &home(here) and /u");
}

TEST(Pfexpand, ATextWithoutReferencesIsTheTextItself)
{
    const PfPtr pf = parse("a plain\n");
    Pf *node = nullptr;
    pfresolve(pf.get(), "a", 0, &node);
    EXPECT_EQ(pfexpand(node), node->value.s);
    EXPECT_EQ(node->filled_out, nullptr);
    EXPECT_EQ(pfexpand(pf.get()), nullptr);
    EXPECT_EQ(pfexpand(nullptr), nullptr);
}

TEST(Pfexpand, KeepsWhatItGaveInTheNode)
{
    const PfPtr pf = parse("home /u\nx &home/y\n");
    Pf *node = nullptr;
    pfresolve(pf.get(), "x", 0, &node);
    const char *text = pfexpand(node);
    EXPECT_STREQ(text, "/u/y");
    EXPECT_EQ(node->filled_out, text);
    EXPECT_STREQ(node->value.s, "&home/y");
    pfset(pf.get(), "home", "/v");
    EXPECT_STREQ(pfget_string(pf.get(), "x"), "/v/y");
}

TEST(Pfexpand, OfAFunctionIsItsTextWithItsReferences)
{
    const PfPtr pf = parse("home /u\nf &env(&home)\n");
    Pf *function = nullptr;
    pfvalue(pf.get(), "f", &function);
    EXPECT_STREQ(pfexpand(function), "&env(/u)\n");
}

TEST(Pfexpand, AValueThatRefersToItselfStopsAfterTenLevels)
{
    const PfPtr pf = parse("x .&x\n");
    EXPECT_STREQ(pfget_string(pf.get(), "x"), "...........** error ** pf massive recursion");
}

// Threads used to share one count, so one got the error that another had deserved.
TEST(PfexpandThreads, EachHasItsOwnCountOfNestedReferences)
{
    std::atomic<long> wrong{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 16; ++i)
        threads.emplace_back([&] {
            const PfPtr pf = parse("limit 12 mm\nnorth &limit\nsouth &north\nboth &south\n"
                                   "r1 &both\nr2 &r1\nr3 &r2\nr4 &r3\nr5 &r4\n");
            for (int n = 0; n < 2000; ++n)
                for (const char *key : {"both", "r5"})
                    wrong += strcmp(pfget_string(pf.get(), key), "12 mm") != 0;
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
}

// A prompt function may leave by longjmp: the calls that it leaves are open no longer.
TEST(Pfexpand, ACallThatIsLeftByLongjmpIsOpenNoLonger)
{
    const PfPath path;
    path.site("other.pf", "gauge &ask(Which gauge?)\nlimit 12\n");
    const Ended ended = in_child([] {
        static jmp_buf back;
        static volatile int given_up = 0;
        const PfPtr pf = parse("gauge &ref(other,gauge)\nlimit &ref(other,limit)\n"
                               "label gauge &gauge\n"
                               "r9 &limit mm\nr8 &r9\nr7 &r8\nr6 &r7\nr5 &r6\nr4 &r5\n"
                               "r3 &r4\nr2 &r3\nr1 &r2\nr0 &r1\n");
        pfconfig("ask",
                 reinterpret_cast<void *>(+[](const char *) -> char * { longjmp(back, 1); }));
        if (setjmp(back) != 0)
            given_up = given_up + 1;
        if (given_up < 40)
            pfget_string(pf.get(), "label");
        printf("%d times, %s", given_up, pfget_string(pf.get(), "r0"));
        fflush(stdout);
        _exit(0);  // what the calls held when they were left is lost
    });
    EXPECT_EQ(ended.out, "40 times, 12 mm");
    EXPECT_EQ(ended.status, 0) << ended.err;
}

TEST(Pfexpand, GrowsForLongValues)
{
    const std::string big(100000, 'v');
    const PfPtr pf = parse("big " + big + "\nx &big&big&big!\n");
    EXPECT_EQ(pfget_string(pf.get(), "x"), big + big + big + "!");
}

TEST(Pfexpand, CutsNamesAt1023Characters)
{
    const std::string name(1023, 'n');
    const PfPtr pf = parse(name + " found\nx &" + name + "more\n");
    EXPECT_STREQ(pfget_string(pf.get(), "x"), "found");
}

TEST(Pfinterpret, ExecGivesWhatACommandPrints)
{
    EXPECT_EQ(evaluated("&exec(echo hi)"), "\"hi\"");
    EXPECT_EQ(evaluated("&exec(printf 'a\\n\\n')"), "\"a\n\"");
    EXPECT_EQ(evaluated("&exec(true)"), "\"\"");
    EXPECT_EQ(evaluated("&exec(echo '('; echo ')')"), "\"(\n)\"");
}

TEST(Pfinterpret, ACommandThatFailsGivesItsOutputAndTheErrorType)
{
    EXPECT_EQ(evaluated("&exec(echo out; exit 1)"), "<-1>out");
    EXPECT_EQ(evaluated("&exec(kill -9 $$)"), "<-1>");
}

TEST(Pfinterpret, OutputMayBeLargeAndHoldZeroBytes)
{
    EXPECT_EQ(evaluated("&exec(head -c 1000000 /dev/zero | tr '\\000' x)"),
              '"' + std::string(1000000, 'x') + '"');
    EXPECT_EQ(evaluated("&exec(printf 'a\\000b'; head -c 300000 /dev/zero | tr '\\000' x)"),
              "\"a\"");
}

// The output after the signal used to be lost, and the command was taken as failed.
TEST(Pfinterpret, ASignalWhileACommandRunsTakesNothingFromItsOutput)
{
    const Ended ended = in_child([] {
        interrupt_often();
        puts(evaluated("&exec(for i in 1 2 3; do sleep 0.05; echo $i; done)").c_str());
    });
    EXPECT_EQ(ended.out, "\"1\n2\n3\"\n");
}

TEST(Pfinterpret, LeavesNoChildAndNoDescriptor)
{
    const int before = dup(0);
    close(before);
    for (int i = 0; i < 20; ++i) {
        evaluated("&exec(echo hi)");
        evaluated("&file(/etc/passwd)");
        evaluated("&glob(/*)");
    }
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

TEST(Pfinterpret, ReferencesInAFunctionAreExpandedFirst)
{
    const PfPtr pf = parse("word hi\nf &exec(echo &word &{word})\n");
    EXPECT_STREQ(pfget_string(pf.get(), "f"), "hi hi");
}

TEST(Pfinterpret, GlobGivesTheListOfMatches)
{
    const TempDir dir;
    dir.file("b.txt", "");
    dir.file("a.txt", "");
    EXPECT_EQ(evaluated("&glob(" + dir / "*.txt" + ")"),
              "[\"" + dir / "a.txt" + "\" \"" + dir / "b.txt" + "\"]");
    EXPECT_EQ(evaluated("&glob(" + dir / "*.none" + ")"), "[]");
    const PfPtr pf = parse("f &glob(" + dir / "*.txt" + ")\n");
    Pf *list = nullptr;
    pfresolve(pf.get(), "f", 0, &list);
    EXPECT_EQ(static_cast<Pf *>(gettbl(list->value.tbl, 0))->parent, list);
}

TEST(Pfinterpret, EnvGivesTheVariableOrNothing)
{
    setenv("PF_ENV", "value", 1);
    unsetenv("PF_NONE");
    EXPECT_EQ(evaluated("&env(PF_ENV)"), "\"value\"");
    EXPECT_EQ(evaluated("&env(PF_NONE)"), "\"\"");
}

TEST(Pfinterpret, FileGivesTheContentsSeenFromTheParameterFile)
{
    const PfPath path;
    path.site("prog.pf", "f &file(texts/one.txt)\nn &filename(texts/one.txt)\n");
    path.site("texts/one.txt", "contents\n");
    Pf *pf = nullptr;
    ASSERT_EQ(pfread("prog", &pf), 0);
    const PfPtr tree(pf);
    EXPECT_STREQ(pfget_string(pf, "f"), "contents\n");
    EXPECT_EQ(pfget_string(pf, "n"), path.dirs() / "site/texts/one.txt");
}

TEST(Pfinterpret, FileSeesAChangedFileAtTheNextEvaluation)
{
    const TempDir dir;
    const std::string file = dir.file("one.txt", "first");
    const PfPtr pf = parse("f &file(" + file + ")\n");
    EXPECT_STREQ(pfget_string(pf.get(), "f"), "first");
    dir.file("one.txt", "second, longer");
    EXPECT_STREQ(pfget_string(pf.get(), "f"), "second, longer");
    unlink(file.c_str());
    EXPECT_EQ(std::string(pfget_string(pf.get(), "f")).substr(0, 3), "** ");
}

TEST(Pfinterpret, AFileNamedByItsWholePathIsItself)
{
    const PfPath path;
    const TempDir other;
    const std::string file = other.file("one.txt", "x");
    path.site("prog.pf", "f &file(" + file + ")\nn &filename(" + file + ")\n");
    Pf *pf = nullptr;
    ASSERT_EQ(pfread("prog", &pf), 0);
    const PfPtr tree(pf);
    EXPECT_STREQ(pfget_string(pf, "f"), "x");
    EXPECT_EQ(pfget_string(pf, "n"), file);
}

TEST(Pfinterpret, LeavesNoFileMapped)
{
    const TempDir dir;
    const std::string file = dir.file("mapped.txt", "x");
    const PfPtr pf = parse("f &file(" + file + ")\n");
    EXPECT_STREQ(pfget_string(pf.get(), "f"), "x");
    EXPECT_EQ(read_file("/proc/self/maps").find("mapped.txt"), std::string::npos);
}

TEST(Pfinterpret, FileExpandsEnvironmentVariables)
{
    const TempDir dir;
    dir.file("one.txt", "x");
    setenv("PFDIR", dir.path().c_str(), 1);
    EXPECT_EQ(evaluated("&file($PFDIR/one.txt)"), "\"x\"");
    EXPECT_EQ(evaluated("&filename(${PFDIR}/one.txt)"), '"' + dir / "one.txt" + '"');
}

TEST(Pfinterpret, AFileThatCannotBeReadGivesTheReasonsAndTakesThemFromTheLog)
{
    elog_log(0, "earlier");
    const std::string text = evaluated("&file(/nowhere/at/all)");
    EXPECT_EQ(text.substr(0, 4), "\"** ");
    EXPECT_NE(text.find("/nowhere/at/all"), text.npos) << text;
    EXPECT_EQ(take_log(), "earlier\n");
}

TEST(Pfinterpret, AnEmptyFileIsOneThatCannotBeRead)
{
    const TempDir dir;
    const std::string file = dir.file("empty", "");
    EXPECT_EQ(evaluated("&file(" + file + ")"),
              "\"** pfinterpret_test: '" + file + "' is empty\n\"");
    EXPECT_EQ(take_log(), "");
}

TEST(Pfinterpret, AFileThatCanBeReadLeavesTheLogAlone)
{
    const TempDir dir;
    const std::string file = dir.file("one.txt", "x");
    elog_log(0, "earlier");
    EXPECT_EQ(evaluated("&file(" + file + ")"), "\"x\"");
    EXPECT_EQ(take_log(), "earlier\n");
}

// The reason used to be missing from the value when the log counted it as a repetition.
TEST(Pfinterpret, AReasonThatRepeatsAnEarlierMessageStandsInTheValueAndTheEarlierOneStays)
{
    const TempDir dir;
    const std::string file = dir.file("empty", ""), reason = "'" + file + "' is empty\n";
    elog_log(0, "%s", reason.c_str());
    elog_log(0, "%s", reason.c_str());
    EXPECT_EQ(evaluated("&file(" + file + ")"), "\"** pfinterpret_test: " + reason + "\"");
    EXPECT_EQ(Text(elog_string(0)).get(),
              "pfinterpret_test: " + reason + "\t** repeated 2 times\n");
    setenv("DATAPATH", dir.path().c_str(), 1);
    EXPECT_EQ(evaluated("&datafile(empty)"), "\"** pfinterpret_test: " + reason + "\"");
    EXPECT_EQ(Text(elog_string(0)).get(),
              "pfinterpret_test: " + reason + "\t** repeated 2 times\n");
    elog_clear();
}

TEST(Pfinterpret, AReasonThatIsPrintedAtOnceStandsInTheValueToo)
{
    const TempDir dir;
    const std::string file = dir.file("empty", "");
    const Ended ended = in_child([&] {
        elog_set(ELOG_DELIVER_FIELD, 0, "stderr");
        printf("%s", evaluated("&file(" + file + ")").c_str());
    });
    EXPECT_EQ(ended.out, "\"** pfinterpret_test: '" + file + "' is empty\n\"");
    EXPECT_EQ(ended.err, "pfinterpret_test: '" + file + "' is empty\n");
}

// Messages of other threads used to be taken off the log, as if they were reasons.
TEST(PfinterpretThreads, WhatOthersLogWhileAFileCannotBeReadStays)
{
    const TempDir dir;
    const std::string file = dir.file("empty", "");
    const std::string value = "\"** '" + file + "' is empty\n\"";
    const Ended ended = in_child([&] {
        alarm(60);
        elog_set(ELOG_TAG_FIELD, -1, "");
        elog_set(ELOG_MAXMSG_VALUE, 0, 0);
        std::atomic<int> evaluating{2};
        std::thread logging([&] {
            for (int i = 0; evaluating; ++i)
                elog_log(0, "gauge %d", i);
            // The same text as the reason. Only this message may stay on the log.
            elog_log(0, "'%s' is empty\n", file.c_str());
            elog_log(0, "end");
        });
        std::thread others[2];
        for (std::thread &other : others)
            other = std::thread([&] {
                for (int i = 0; i < 300; ++i)
                    if (evaluated("&file(" + file + ")") != value)
                        abort();
                --evaluating;
            });
        for (std::thread &other : others)
            other.join();
        logging.join();
        Tbl *stack = nullptr;
        elog_query(ELOG_TBL, 0, &stack);
        for (int64_t i = 0; i + 2 < stack->count; ++i)
            if (static_cast<Elog_msg *>(gettbl(stack, i))->msg !=
                "gauge " + std::to_string(i) + "\n")
                abort();
        printf("%s", Text(elog_string(static_cast<int>(stack->count) - 2)).get());
    });
    EXPECT_EQ(ended.out, "'" + file + "' is empty\nend\n");
    EXPECT_EQ(ended.status, 0) << ended.err;
}

TEST(Pfinterpret, DatafileSearchesTheDataPath)
{
    const TempDir dir;
    dir.file("table.txt", "rows");
    setenv("DATAPATH", dir.path().c_str(), 1);
    EXPECT_EQ(evaluated("&datafile(table.txt)"), "\"rows\"");
    EXPECT_EQ(evaluated("&datafilename(table.txt)"), '"' + dir / "table.txt" + '"');
    EXPECT_EQ(evaluated("&datafile(none.txt)"), "\"** no datafile 'none.txt' found\"");
    const std::string empty = dir.file("empty.txt", "");
    EXPECT_EQ(evaluated("&datafile(empty.txt)"),
              "\"** pfinterpret_test: '" + empty + "' is empty\n\"");
    EXPECT_EQ(evaluated("&datafilename(none.txt)"), "\"\"");
}

TEST(Pfinterpret, UndefIsNoValue)
{
    EXPECT_EQ(evaluated("&undef()"), "<none>");
}

// This test stands before all that look for the user library in this process.
TEST(Pfinterpret, AFunctionOfTheUserLibraryIsCalledWithTheText)
{
    const Ended ended = in_child([] {
        setenv("USER_LIBRARY", USER_LIBRARY_PF, 1);
        puts(evaluated("&left(0)").c_str());
    });
    EXPECT_EQ(ended.out, "\"end\"\n");
}

TEST(Pfinterpret, AFourthEvaluationInAChainIsOneTooMany)
{
    const Ended ended = in_child([] {
        setenv("USER_LIBRARY", USER_LIBRARY_PF, 1);
        for (const char *function : {"&left(1)", "&left(2)", "&left(3)", "&left(4)"})
            puts(evaluated(function).c_str());
    });
    EXPECT_EQ(ended.out, "\"end\"\n\"end\"\n"
                         "\"pf recursion too deep\"\n\"pf recursion too deep\"\n");
    EXPECT_EQ(ended.status, 0);
}

TEST(Pfinterpret, AFunctionThatNobodyKnowsIsInvalid)
{
    setenv("TALUVINE", "/nowhere", 1);
    EXPECT_EQ(evaluated("&whatever(x)"), "<5><null>");
    setenv("PF_ENV", "value", 1);
    for (const char *name :
         {"exec", "glob", "file", "datafile", "filename", "datafilename", "env", "ref", "undef"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(evaluated('&' + std::string(name) + "s(PF_ENV)"), "<5><null>");
    }
}

TEST(Pfinterpret, AskAsksTheTerminal)
{
    const std::string long_line = std::string(1100, 'x') + '\n';
    const std::string cut = '"' + long_line.substr(0, 1023) + '"';
    const struct {
        const char *typed, *answer;
    } cases[] = {{"Ann B\n", "\"Ann B\""},
                 {"\n", "\"\""},
                 {"\x04", "\"\""},
                 {long_line.c_str(), cut.c_str()}};
    for (const auto &c : cases) {
        int terminal = -1;
        const pid_t pid = forkpty(&terminal, nullptr, nullptr, nullptr);
        if (pid == 0) {
            interrupt_often();
            _exit(evaluated("&ask(Your name?)") == c.answer ? 0 : 1);
        }
        std::string shown;
        char byte = 0;
        while (shown.find(" : ") == shown.npos && read(terminal, &byte, 1) == 1)
            shown += byte;
        EXPECT_EQ(shown, "Your name? : ");
        usleep(50'000);
        EXPECT_GT(write(terminal, c.typed, strlen(c.typed)), 0);
        int status = -1;
        EXPECT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_EQ(status, 0);
        close(terminal);
    }
}

TEST(Pfinterpret, AskEndsTheProcessWithoutATerminal)
{
    const Ended ended = in_child([] {
        setsid();
        evaluated("&ask(Your name?)");
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find("Can't open /dev/tty for prompt.\n"), std::string::npos);
}

TEST(Pfinterpret, AskAsksThePromptFunction)
{
    pfconfig("ask", reinterpret_cast<void *>(answer));
    EXPECT_EQ(evaluated("&ask(Your name?)"), "\"answer to <Your name?>\"");
    EXPECT_EQ(evaluated("&ask(one) (two)"), "\"answer to <one>\"");
    EXPECT_EQ(evaluated("&ask()"), "\"answer to <>\"");
    EXPECT_EQ(evaluated("&asking(x)"), "\"answer to <&asking(x>\"");
    const PfPtr pf(pfnew(PFFILE));
    pfput(pf.get(), "f", const_cast<char *>("&ask() #Your age?)\n"), PFFUNCTION);
    EXPECT_STREQ(pfget_string(pf.get(), "f"), "answer to <Your age?>");
    pfconfig("ask", reinterpret_cast<void *>(+[](const char *) -> char * { return nullptr; }));
    EXPECT_EQ(evaluated("&ask(Your name?)"), "\"\"");
    pfconfig("ask", nullptr);
}

TEST(Pfinterpret, ARefIsTheValueOfAnotherFileAsItIsNow)
{
    const PfPath path;
    path.site("other.pf", "a &Arr{\n b 1\n}\nt &Tbl{\n x\n}\n");
    const PfPtr pf = parse("f &ref( other , a{b} )\nt &ref(other,t)\n");
    EXPECT_STREQ(pfget_string(pf.get(), "f"), "1");
    Pf *node = nullptr;
    EXPECT_EQ(pfresolve(pf.get(), "t", 0, &node), PFFUNCTION);
    EXPECT_EQ(tree_text(node), "[\"x\"]");
    path.local("other.pf", "a &Arr{\n b 2\n}\n");
    EXPECT_STREQ(pfget_string(pf.get(), "f"), "2");
}

TEST(Pfinterpret, ARefFollowsAFileThatVanishesAndComesBack)
{
    const PfPath path;
    const std::string file = path.site("other.pf", "a 1\n");
    const PfPtr pf = parse("f &ref(other,a)\n");
    EXPECT_STREQ(pfget_string(pf.get(), "f"), "1");
    unlink(file.c_str());
    Pf *node = nullptr;
    pfresolve(pf.get(), "f", 0, &node);
    ASSERT_EQ(node->type, PFINVALID);
    EXPECT_STREQ(node->value.s, "** referenced pf file not found: '&ref(other,a)' **");
    path.site("other.pf", "a &Tbl{\n");
    pfresolve(pf.get(), "f", 0, &node);
    EXPECT_STREQ(node->value.s, "** referenced pf file not found: '&ref(other,a)' **");
    path.local("other.pf", "a 2\n");
    path.site("other.pf", "a 3\n");
    EXPECT_STREQ(pfget_string(pf.get(), "f"), "2");
    elog_clear();
}

TEST(Pfinterpret, ARefGivesACopyWithoutItsSurroundings)
{
    const PfPath path;
    path.site("other.pf", "home /u\nx &home/y\nt &Tbl{\n &home/z\n}\n");
    EXPECT_EQ(evaluated("&ref(other,x)"), "\"&home/y\"");
    EXPECT_EQ(evaluated("&ref(other,t)"), "[\"&home/z\"]");
    EXPECT_EQ(evaluated("&ref(other)").substr(0, 15), "{home: \"/u\", t:");
}

TEST(PfinterpretDeathTest, ARefToACommandThatFailedEndsTheProcess)
{
    const PfPath path;
    path.site("other.pf", "x &exec(exit 1)\n");
    const Ended ended = in_child([] { evaluated("&ref(other,x)"); });
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find("Bad type in pfdup : -1\n"), ended.err.npos) << ended.err;
}

TEST(PfinterpretThreads, ReadTreesWithReferencesAtOnce)
{
    const PfPath path;
    const std::string one = "v &ref(two,v)\nback &ref(one,end)\nend 1\n";
    const std::string file = path.site("one.pf", one);
    path.site("two.pf", "v &ref(one,back)\nw &ref(one,v)\n");
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (const char *place : {"one,v", "two,v", "two,w", "one,v"})
        threads.emplace_back([&, place] {
            const PfPtr pf = parse(std::string("f &ref(") + place + ")\n");
            for (int i = 0; i < 50; ++i)
                right += std::string(okstr(pfget_string(pf.get(), "f"))) == "1";
        });
    for (int i = 0; i < 5; ++i) {
        const std::string changed = path.site("one.new", one + "#" + "\n");
        EXPECT_EQ(rename(changed.c_str(), file.c_str()), 0);
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(right, 200);
}

TEST(Pfinterpret, ARefThatLeadsNowhereSaysSo)
{
    const PfPath path;
    path.site("other.pf", "a 1\n");
    EXPECT_EQ(evaluated("&ref(other,none)"), "<5>** reference not resolved: '&ref(other,none)' **");
    EXPECT_EQ(evaluated("&ref(absent,a) \t"),
              "<5>** referenced pf file not found: '&ref(absent,a)' **");
    EXPECT_EQ(evaluated("&ref( ,a)"), "<5>** missing pf name in reference: '&ref( ,a)' **");
    EXPECT_EQ(evaluated("&ref()"), "<5>** missing pf name in reference: '&ref()' **");
    const std::string long_error = evaluated("&ref(other," + std::string(3000, 'x') + ")");
    EXPECT_EQ(long_error.size(), 3 + 1023u);
    elog_clear();
}

TEST(Pfinterpret, RefsLeadThroughAChainOfFiles)
{
    const PfPath path;
    path.site("one.pf", "v &ref(two,v)\n");
    path.site("two.pf", "v &ref(three,v)\n");
    path.site("three.pf", "v end\n");
    EXPECT_EQ(evaluated("&ref(one,v)"), "\"end\"");
}

TEST(Pfinterpret, AChainOfRefsIsTenFilesLong)
{
    const PfPath path;
    for (int i = 1; i <= 10; ++i)
        path.site("c" + std::to_string(i) + ".pf", "v &ref(c" + std::to_string(i + 1) + ",v)\n");
    path.site("c11.pf", "v end\n");
    EXPECT_EQ(evaluated("&ref(c2,v)"), "\"end\"");
    EXPECT_EQ(evaluated("&ref(c1,v)"), "\"pf recursion too deep\"");
}

TEST(Pfinterpret, TheFirstCommaOfARefEndsTheName)
{
    const PfPath path;
    path.site("other.pf", "a,b 1\n");
    EXPECT_EQ(evaluated("&ref(other,a,b)"), "\"1\"");
}

TEST(Pfinterpret, AFileThatRefersToItselfEnds)
{
    const PfPath path;
    path.site("self.pf", "v &ref(self,v)\nw &ref(self,x)\nx right\n");
    EXPECT_EQ(evaluated("&ref(self,v)"), "\"pf recursion too deep\"");
    EXPECT_EQ(evaluated("&ref(self,w)"), "\"right\"");
}

TEST(Pfinterpret, KeepsTheResultInTheFunctionUntilItIsEvaluatedAgain)
{
    setenv("PF_ENV", "one", 1);
    const PfPtr pf = parse("f &env(PF_ENV)\n");
    Pf *function = nullptr;
    pfvalue(pf.get(), "f", &function);
    EXPECT_EQ(function->value.pffunct->result, nullptr);
    const Pf *result = pfinterpret(function);
    EXPECT_EQ(function->value.pffunct->result, result);
    EXPECT_EQ(tree_text(result), "\"one\"");
    setenv("PF_ENV", "two", 1);
    EXPECT_STREQ(pfget_string(pf.get(), "f"), "two");
    EXPECT_EQ(tree_text(function->value.pffunct->result), "\"two\"");
}

TEST(Pfinterpret, OfNoFunctionIsNull)
{
    const PfPtr pf = parse("a 1\n");
    EXPECT_EQ(pfinterpret(pf.get()), nullptr);
    EXPECT_EQ(pfinterpret(nullptr), nullptr);
}

TEST(Pfexpand, ReferencesThatMultiplyAreBounded)
{
    std::string text;
    for (int i = 0; i < 9; ++i) {
        text += "r" + std::to_string(i) + " ";
        for (int k = 0; k < 100; ++k)
            text += "&r" + std::to_string(i + 1);
        text += "\n";
    }
    const PfPtr pf = parse((text + "r9 x\n").c_str());
    const std::string value = pfget_string(pf.get(), "r0");
    EXPECT_NE(value.find("x** error ** pf massive recursion"), std::string::npos);
    EXPECT_LT(value.size(), 200'000'000U);
    EXPECT_EQ(pfget_string(pf.get(), "r8"), std::string(100, 'x'));
    const std::string next =
        pfget_string(pf.get(), "r6");  // the cost of one text does not count for the next
    EXPECT_EQ(next, std::string(1'000'000, 'x'));
}
