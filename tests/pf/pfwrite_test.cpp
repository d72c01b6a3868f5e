// Parameter trees as text: quoting one value, and writing a tree to read it back.

#include "stock/pf.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/child.h"
#include "support/nobody.h"
#include "support/pf_text.h"
#include "support/printed.h"
#include "support/temp_dir.h"

namespace {

std::string quoted(const std::string &text)
{
    return Text(str2pf(text.c_str())).get();
}

std::string escaped(const char *text)
{
    return Text(pfescape_special_chars(text)).get();
}

std::string literal(const char *text, int mode)
{
    return Text(pfoutput_literal(text, mode)).get();
}

PfPtr compiled(const std::string &text)
{
    Pf *pf = nullptr;
    EXPECT_EQ(pfcompile(text.c_str(), &pf), 0);
    return PfPtr(pf);
}

// What pfout writes of a tree.
std::string written(const Pf *pf, int status = 0)
{
    return printed([&](FILE *stream) { EXPECT_EQ(pfout(stream, pf), status); });
}

std::string rewritten(const std::string &text)
{
    return written(compiled(text).get());
}

std::string flat(const Pf *pf)
{
    return Text(pf2string(pf)).get();
}

Pf *text_node(const std::string &text)
{
    Pf *pf = pfnew(PFSTRING);
    pf->value.s = strdup(text.c_str());
    return pf;
}

// A tree with the text under the key k and in a list.
PfPtr tree_with(const std::string &text)
{
    PfPtr pf(pfnew(PFFILE));
    setarr(pf->value.arr, "k", text_node(text));
    Pf *list = pfnew(PFTBL);
    pushtbl(list->value.tbl, text_node(text));
    pushtbl(list->value.tbl, text_node("behind"));
    setarr(pf->value.arr, "list", list);
    return pf;
}

void expect_round_trip(const Pf *pf)
{
    EXPECT_EQ(tree_of(written(pf)), tree_text(pf));
    EXPECT_EQ(tree_of(flat(pf)), tree_text(pf));
}

}  // namespace

// ---- One value ----

TEST(Str2pf, WritesAPlainTextAsItIs)
{
    for (const char *text : {"", "x", "two words", "a\tb", "x{y", "\"quoted\"", "&ref/x", "\r"})
        EXPECT_EQ(quoted(text), text);
}

TEST(Str2pf, EscapesWhatWouldEndTheValue)
{
    EXPECT_EQ(quoted("a#b"), "a\\#b");
    EXPECT_EQ(quoted("a\\b"), "a\\\\b");
    EXPECT_EQ(quoted("}"), "\\}");
    EXPECT_EQ(quoted("x}y"), "x\\}y");
    EXPECT_EQ(quoted("x{y}"), "x{y}");
    EXPECT_EQ(quoted("x{y}}"), "x{y}\\}");
}

TEST(Str2pf, WritesATextWithABlankAtEitherEndAsALiteral)
{
    EXPECT_EQ(quoted(" x"), "&Literal{\n x}");
    EXPECT_EQ(quoted("x\t"), "&Literal{\nx\t}");
    EXPECT_EQ(quoted(" "), "&Literal{\n }");
    EXPECT_EQ(quoted(" #\\"), "&Literal{\n #\\}");
}

TEST(Str2pf, WritesATextOfSeveralLinesAsALiteral)
{
    EXPECT_EQ(quoted("one\ntwo"), "&Literal{\none\ntwo}");
    EXPECT_EQ(quoted("\n"), "&Literal{\n\n}");
}

TEST(Str2pf, TakesNullAsTheEmptyText)
{
    EXPECT_EQ(std::string(Text(str2pf(nullptr)).get()), "");
}

TEST(PfescapeSpecialChars, PutsBackslashesBeforeSpecialCharacters)
{
    const struct {
        const char *text, *escaped;
    } cases[] = {
        {"", ""},           {"plain text", "plain text"},
        {"a#b", "a\\#b"},   {"a\\b", "a\\\\b"},
        {"a\nb", "a\\\nb"}, {"}", "\\}"},
        {"{}", "{}"},       {"{}}", "{}\\}"},
        {"}{", "\\}{"},     {"{{}", "{{}"},
        {"}{}", "\\}{}"},   {"{{}}}", "{{}}\\}"},
        {"{#}", "{\\#}"},   {"####", "\\#\\#\\#\\#"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(escaped(c.text), c.escaped);
    }
    EXPECT_EQ(escaped(nullptr), "");
}

TEST(PfoutputLiteral, EscapesATextOfOneLineUnlessTheModeIs2)
{
    EXPECT_EQ(literal("a#b", 1), "a\\#b");
    EXPECT_EQ(literal("a#b", 0), "a\\#b");
    EXPECT_EQ(literal("a#b", 2), "&Literal{\na#b}");
    EXPECT_EQ(literal("a\nb", 1), "&Literal{\na\nb}");
    EXPECT_EQ(literal(nullptr, 1), "");
    EXPECT_EQ(literal(nullptr, 2), "&Literal{\n}");
}

TEST(PfoutputLiteral, TakesTheFirstPairThatIsBalanced)
{
    const struct {
        const char *text, *literal;
    } cases[] = {
        {"a{b}\n", "&Literal{\na{b}\n}"},   {"a}\n", "&Literal(\na}\n)"},
        {"a{\n", "&Literal(\na{\n)"},       {"}{\n", "&Literal(\n}{\n)"},
        {"{)\n", "&Literal[\n{)\n]"},       {"{(]\n", "&Literal<\n{(]\n>"},
        {"}(][>\n", "&Literal`\n}(][>\n'"}, {"}(]>`x'\n", "&Literal`\n}(]>`x'\n'"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(literal(c.text, 2), c.literal);
    }
}

TEST(PfoutputLiteral, EndsWithAWordWhenNoPairIsBalanced)
{
    const std::string text = "{(]<'\n";
    EXPECT_EQ(literal(text.c_str(), 2), "&Literal\"EndOfLiteral\n" + text + "\"EndOfLiteral");
}

TEST(PfoutputLiteral, NumbersTheWordWhenTheTextHoldsIt)
{
    const auto word_for = [](std::string text) {
        const std::string all = literal((text = "{(]<'" + text).c_str(), 2);
        const std::string word = all.substr(8, all.find('\n') - 8);
        EXPECT_EQ(all, "&Literal" + word + "\n" + text + word);
        return word;
    };
    const std::string word = "\"EndOfLiteral";
    EXPECT_EQ(word_for("EndOfLiteral"), word);
    EXPECT_EQ(word_for(word), word + "0");
    EXPECT_EQ(word_for(word + "x" + word + "0"), word + "1");
    EXPECT_EQ(word_for(word + "1" + word + "0"), word + "2");
    EXPECT_EQ(word_for(word + "12" + word + "0"), word + "2");
}

// ---- Trees ----

TEST(Pfout, WritesKeysInOrderWithATab)
{
    EXPECT_EQ(rewritten("b 2\na 1\nc\n"), "a\t1\nb\t2\nc\t\n");
}

TEST(Pfout, IndentsByFourBlanksPerLevel)
{
    EXPECT_EQ(rewritten("t &Arr{\nl &Tbl{\nx\n&Arr{\nk v\n}\n&Tbl{\n}\n}\na 1\n}\n"),
              "t\t&Arr{\n"
              "    a\t1\n"
              "    l\t&Tbl{\n"
              "        x\n"
              "        &Arr{\n"
              "            k\tv\n"
              "        }\n"
              "        &Tbl{\n"
              "        }\n"
              "    }\n"
              "}\n");
}

TEST(Pfout, IndentsDeepLevelsInFull)
{
    Pf *pf = pfnew(PFTBL);
    const PfPtr top(pf);
    for (int i = 0; i < 30; ++i) {
        Pf *child = pfnew(PFTBL);
        pushtbl(pf->value.tbl, child);
        pf = child;
    }
    pushtbl(pf->value.tbl, text_node("x"));
    EXPECT_NE(written(top.get()).find("\n" + std::string(124, ' ') + "x\n"), std::string::npos);
}

TEST(Pfout, WritesATableInBracesAndATopNodeWithout)
{
    const PfPtr pf = compiled("a 1\n");
    pf->type = PFARR;
    EXPECT_EQ(written(pf.get()), "&Arr{\n    a\t1\n}\n");
}

TEST(Pfout, WritesATopNodeInATreeAtTheSameLevelWithoutBraces)
{
    const PfPtr pf(pfnew(PFFILE));
    setarr(pf->value.arr, "top", compiled("a 1\nb &Tbl{\nx\n}\n").release());
    EXPECT_EQ(written(pf.get()), "top\ta\t1\nb\t&Tbl{\n    x\n}\n");
}

TEST(Pfout, FollowsAFunctionByAnEmptyLine)
{
    EXPECT_EQ(rewritten("a &env(HOME) \nb 1\n"), "a\t&env(HOME) \n\nb\t1\n");
}

TEST(Pfout, WritesNothingBehindTheKeyOfOtherTypes)
{
    for (const int type : std::initializer_list<int>{PFANY, PFUNDEF, PFINVALID, PFEXEC_ERROR}) {
        SCOPED_TRACE(type);
        const PfPtr pf(pfnew(PFFILE));
        Pf *other = pfnew(type);
        setarr(pf->value.arr, "a", other);
        setarr(pf->value.arr, "b", text_node("1"));
        EXPECT_EQ(written(pf.get()), "a\tb\t1\n");
        EXPECT_EQ(flat(pf.get()), "a\tb\t1\n");
        other->type = PFSTRING;
    }
}

TEST(Pfout, QuotesKeysWithBlanks)
{
    EXPECT_EQ(rewritten("\"two words\" 1\n"), "\"two words\"\t1\n");
    EXPECT_EQ(rewritten("'a \"b' 1\n"), "'a \"b'\t1\n");
    EXPECT_EQ(rewritten("it's 1\n"), "it's\t1\n");
    EXPECT_EQ(rewritten("'a\tb' 1\n"), "a\tb\t1\n") << "only a space makes quotes";
}

TEST(Pfout, EscapesKeysWithSpecialCharacters)
{
    EXPECT_EQ(rewritten("a\\#b 1\n"), "a\\#b\t1\n");
    EXPECT_EQ(rewritten("\\}x 1\n"), "\\}x\t1\n");
    EXPECT_EQ(rewritten("a\\\\b 1\n"), "a\\\\b\t1\n");
    EXPECT_EQ(rewritten("'a #' 1\n"), "\"a \\#\"\t1\n");
    EXPECT_EQ(rewritten("'a\nb' 1\n"), "a\\\nb\t1\n");
}

TEST(Pfout, GivesMinusOneWithoutAValue)
{
    EXPECT_EQ(written(nullptr, -1), "");
    EXPECT_EQ(written(PfPtr(pfnew(PFSTRING)).get(), -1), "");
}

TEST(Pfout, GivesMinusOneWithoutAStream)
{
    EXPECT_EQ(pfout(nullptr, compiled("a 1\n").get()), -1);
}

TEST(Pfout, WritesASingleText)
{
    EXPECT_EQ(written(PfPtr(text_node("a#b")).get()), "a\\#b\n");
}

TEST(Pfout, KeepsTheOrderOfShortAndLongTextsAndOfTheStreamsOwn)
{
    std::string expected;
    const PfPtr pf(pfnew(PFFILE));
    for (const size_t length : {1u, 4094u, 4095u, 4096u, 4097u, 9000u, 10u, 0u}) {
        const std::string key = "k" + std::to_string(expected.size() + 1'000'000);
        const std::string text(length, 'x');
        pfput_string(pf.get(), key.c_str(), text.c_str());
        expected += key + '\t' + text + '\n';
    }
    const TempDir dir;
    for (const int mode : {_IOFBF, _IONBF}) {
        FILE *stream = fopen((dir / "x.pf").c_str(), "w");
        setvbuf(stream, nullptr, mode, BUFSIZ);
        fputs("# before\n", stream);
        EXPECT_EQ(pfout(stream, pf.get()), 0);
        fputs("# behind\n", stream);
        fclose(stream);
        EXPECT_EQ(read_file(dir / "x.pf"), "# before\n" + expected + "# behind\n");
    }
}

TEST(PfoutThreads, WriteEachTreeInOnePiece)
{
    const PfPtr north = tree_with(std::string(9000, 'n'));
    const PfPtr south = tree_with(std::string(9000, 's'));
    const std::string n = written(north.get()), s = written(south.get());
    const TempDir dir;
    FILE *stream = fopen((dir / "x.pf").c_str(), "w");
    const auto write = [stream](const Pf *pf) {
        for (int i = 0; i < 50; ++i)
            pfout(stream, pf);
    };
    std::thread other([&] { write(north.get()); });
    write(south.get());
    other.join();
    fclose(stream);
    const std::string both = read_file(dir / "x.pf");
    ASSERT_EQ(both.size(), 100 * n.size());
    for (size_t at = 0; at < both.size(); at += n.size()) {
        const std::string piece = both.substr(at, n.size());
        ASSERT_TRUE(piece == n || piece == s) << "at " << at;
    }
}

TEST(Pfout, CopesWithNullsInATree)
{
    const PfPtr pf(pfnew(PFFILE));
    setarr(pf->value.arr, "a", nullptr);
    setarr(pf->value.arr, "b", pfnew(PFSTRING));
    Pf *list = pfnew(PFTBL);
    settbl(list->value.tbl, 1, text_node("x"));
    setarr(pf->value.arr, "c", list);
    EXPECT_EQ(written(pf.get()), "a\tb\t\nc\t&Tbl{\n    x\n}\n");
}

TEST(Pf2string, WritesTheSameWithoutIndentation)
{
    const PfPtr pf = compiled("t &Arr{\nl &Tbl{\nx\n&Arr{\nk v\n}\n}\na \\#1\n}\nf &g()\n");
    EXPECT_EQ(flat(pf.get()), "f\t&g()\n\nt\t&Arr{\na\t\\#1\nl\t&Tbl{\nx\n&Arr{\nk\tv\n}\n}\n}\n");
}

TEST(Pf2string, LeavesSpecialCharactersInKeysAlone)
{
    EXPECT_EQ(flat(compiled("a\\#b 1\n'c }' 2\n").get()), "a#b\t1\n\"c }\"\t2\n");
}

TEST(Pf2string, OfNothingIsEmpty)
{
    EXPECT_EQ(flat(nullptr), "");
    EXPECT_EQ(flat(compiled("").get()), "");
}

TEST(Pfappend, PutsATableInBracesAtLevelsAboveZero)
{
    const PfPtr pf = compiled("a 1\n");
    for (const int type : {PFFILE, PFARR}) {
        pf->type = type;
        void *stack = nullptr;
        pushstr(&stack, "before ");
        pfappend(&stack, 0, pf.get());
        pfappend(&stack, 1, pf.get());
        pfappend(&stack, 1, nullptr);
        EXPECT_STREQ(Text(popstr(&stack, 1)).get(), "before a\t1\n&Arr{\na\t1\n}\n");
    }
}

// ---- Files ----

TEST(Pfwrite, MakesOrEmptiesTheFile)
{
    const TempDir dir;
    const std::string path = dir.file("x.pf", "longer than what comes now\n");
    EXPECT_EQ(pfwrite(path.c_str(), compiled("a 1\n").get()), 0);
    EXPECT_EQ(read_file(path), "a\t1\n");
    EXPECT_EQ(pfwrite((dir / "new.pf").c_str(), compiled("b 2\n").get()), 0);
    EXPECT_EQ(read_file(dir / "new.pf"), "b\t2\n");
}

TEST(Pfwrite, LeavesAnEmptyFileWithoutAValue)
{
    const TempDir dir;
    const std::string path = dir.file("x.pf", "text");
    EXPECT_EQ(pfwrite(path.c_str(), nullptr), -1);
    EXPECT_EQ(read_file(path), "");
    EXPECT_EQ(take_log(), "");
}

TEST(Pfwrite, ReportsAFileThatCannotBeOpened)
{
    const TempDir dir;
    const std::string path = dir / "no/x.pf";
    EXPECT_EQ(pfwrite(path.c_str(), compiled("a 1\n").get()), -1);
    EXPECT_EQ(take_log(), "Can't open " + path + " for writing.\n\tNo such file or directory\n");
    EXPECT_EQ(pfwrite(nullptr, compiled("a 1\n").get()), -1);
    EXPECT_EQ(take_log(), "Can't open <null> for writing.\n\tInvalid argument\n");
}

TEST(Pfwrite, ReportsAFullDisk)
{
    for (const size_t size : {10u, 1'000'000u}) {
        EXPECT_EQ(pfwrite("/dev/full", tree_with(std::string(size, 'x')).get()), -1);
        EXPECT_EQ(take_log(), "Can't close /dev/full.\n\tNo space left on device\n");
    }
}

// Half of a file used to read back as a tree of fewer values.
TEST(Pfwrite, KilledAtAnyMomentLeavesAWholeFileAndTheNextLeavesNothingBeside)
{
    const TempDir dir;
    const std::string path = dir / "x.pf";
    const PfPtr trees[] = {tree_with(std::string(3'000, 'x')), tree_with(std::string(90'000, 'y'))};
    std::string texts[2];
    for (const int n : {0, 1})
        texts[n] = printed([&](FILE *stream) { pfout(stream, trees[n].get()); });
    ASSERT_EQ(pfwrite(path.c_str(), trees[0].get()), 0);
    for (int i = 0; i < 100; ++i) {
        const pid_t pid = fork();
        if (pid == 0)
            for (int n = 1;; ++n)
                pfwrite(path.c_str(), trees[n % 2].get());
        std::this_thread::sleep_for(std::chrono::microseconds(i * 70));
        kill(pid, SIGKILL);
        int status = 0;
        waitpid(pid, &status, 0);
        const std::string text = read_file(path);
        ASSERT_TRUE(text == texts[0] || text == texts[1]) << text.size();
    }
    ASSERT_EQ(pfwrite(path.c_str(), trees[0].get()), 0);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
}

TEST(Pfwrite, KeepsModeLinksAndHardLinks)
{
    const TempDir dir;
    const std::string path = dir.file("x.pf", "old 1\n");
    chmod(path.c_str(), 0640);
    std::filesystem::create_symlink("x.pf", dir / "link");
    EXPECT_EQ(pfwrite((dir / "link").c_str(), compiled("a 1\n").get()), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(dir / "link"));
    EXPECT_EQ(read_file(path), "a\t1\n");
    std::filesystem::create_hard_link(path, dir / "other");
    EXPECT_EQ(pfwrite(path.c_str(), compiled("b 1\n").get()), 0);
    EXPECT_EQ(read_file(dir / "other"), "b\t1\n");
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 3);
}

TEST(Pfwrite, BeyondTheFileSizeLimitFailsAndTheOldFileStays)
{
    const TempDir dir;
    const std::string path = dir.file("x.pf", "old 1\n");
    const Ended ended = in_child([&] {
        const rlimit limit{4096, 4096};
        setrlimit(RLIMIT_FSIZE, &limit);
        const int result = pfwrite(path.c_str(), tree_with(std::string(90'000, 'y')).get());
        elog_flush(1, 0);
        exit(result == -1 ? 5 : 6);
    });
    EXPECT_EQ(ended.status, 5);
    EXPECT_THAT(ended.err, testing::HasSubstr("Can't close " + path + ".\n\tFile too large\n"));
    EXPECT_EQ(read_file(path), "old 1\n");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
}

TEST(Pfwrite, WritesInPlaceWhereNothingCanBeMadeBesideAndSaysSo)
{
    const TempDir dir;
    const std::string path = dir.file("x.pf", "old 1\n");
    chmod(path.c_str(), 0666);
    chmod(dir.path().c_str(), 0555);
    const Ended ended =
        as_nobody([&] { exit(pfwrite(path.c_str(), compiled("a 1\n").get()) == 0 ? 5 : 6); });
    chmod(dir.path().c_str(), 0755);
    EXPECT_EQ(ended.status, 5);
    EXPECT_THAT(ended.err,
                testing::EndsWith(path + " was written in place, without a copy beside it.\n"));
    EXPECT_EQ(read_file(path), "a\t1\n");
}

// ---- There and back ----

TEST(PfRoundTrip, BringsHostileValuesBack)
{
    const char *const values[] = {
        "",
        " ",
        "\t",
        " x",
        "x ",
        "#",
        "a#b",
        "\\",
        "a\\",
        "\\\\n",
        "}",
        "{",
        "{}}",
        "}{",
        "x{y}",
        "a\nb",
        "\n",
        "\n\n",
        " \n ",
        "{\n",
        "}\n",
        "{(\n",
        "{([<`\n",
        "}])>'\n",
        "\"",
        "'",
        "\"EndOfLiteral\n}])>'",
        "&",
        "&name",
        "&{name}x",
        "__END__",
        "\r",
        "\f\v\b\a",
        "x\r\n",
        "\xff\x80",
        "\xef\xbb\xbfx",
        "a\tb",
        "\"EndOfLiteral",
        "{(]<'\n\"EndOfLiteral0\"EndOfLiteral",
    };
    for (const char *value : values) {
        SCOPED_TRACE(value);
        expect_round_trip(tree_with(value).get());
    }
}

TEST(PfRoundTrip, BringsTenMegabytesBack)
{
    expect_round_trip(tree_with(std::string(10'000'000, '#')).get());
    expect_round_trip(tree_with(std::string(10'000'000, '\n')).get());
}

// Only special characters are quoted: a text that begins like another token is written as it
// stands.
TEST(PfRoundTrip, DoesNotBringATextBackThatBeginsLikeAnotherToken)
{
    const auto back = [](const char *text) {
        return in_child([=] { puts(tree_of(written(tree_with(text).get())).c_str()); }).out;
    };
    EXPECT_EQ(back("&Undef{}"), "{list: [\"behind\"]}\n");
    EXPECT_EQ(back("&exec(ls)"), "{k: &\"&exec(ls)\n\", list: [&\"&exec(ls)\n\" \"behind\"]}\n");
    EXPECT_EQ(back("&Literal{}x").substr(0, 6), "error ");
    EXPECT_EQ(back("&Arr{").substr(0, 6), "error ");
}

// As the manual tells: what a key may not be.
TEST(PfRoundTrip, DoesNotBringTheseKeysBack)
{
    const auto comes_back = [](const std::string &key, bool indented) {
        const PfPtr pf(pfnew(PFFILE));
        setarr(pf->value.arr, key.c_str(), text_node("12 mm"));
        const std::string text = indented ? written(pf.get()) : flat(pf.get());
        return tree_of(text) == tree_text(pf.get());
    };
    const std::string longest(1023, 'k');
    const std::vector<std::string> in_no_form = {
        "",        "\"north\"", "'north'", "north\tsouth", "north\nsouth",
        "__END__", "__DATA__",  "__EOF__", "a \"b'",       longest + "k"};
    const std::vector<std::string> indented_only = {"}", "no#2", "n\\", "\\n"};
    const std::vector<std::string> flat_only = {"no \\", "} north", "north #2"};
    const std::vector<std::string> in_both = {"two words", " north", "south ", "a \"b", "it's",
                                              "a 'b",      "&north", "{",      "\r",    longest};
    const struct {
        const std::vector<std::string> &keys;
        bool indented, flat;
    } cases[] = {{in_no_form, false, false},
                 {indented_only, true, false},
                 {flat_only, false, true},
                 {in_both, true, true}};
    for (const auto &c : cases)
        for (const std::string &key : c.keys) {
            SCOPED_TRACE(key);
            EXPECT_EQ(comes_back(key, true), c.indented);
            EXPECT_EQ(comes_back(key, false), c.flat);
        }
}

// The empty line behind a function is nothing in a table, but an element in a list.
TEST(PfRoundTrip, BringsAFunctionInAListBackWithAnEmptyTextBehindIt)
{
    EXPECT_EQ(tree_of(rewritten("a &f()\nb &Tbl{\n&g()\nx\n}\n")),
              "{a: &\"&f()\n\", b: [&\"&g()\n\" \"\" \"x\"]}");
}

TEST(PfRoundTrip, BringsRandomTreesBack)
{
    constexpr std::string_view kAlphabet = "ab \t\n#\\\\{}()[]<>`'\"&\r\x01\xff}{E";
    std::mt19937 random(20201);
    const auto pick = [&](size_t n) {
        return std::uniform_int_distribution<size_t>(0, n - 1)(random);
    };
    const auto text = [&] {
        std::string all;
        for (size_t left = pick(12); left; --left)
            all += pick(20) ? std::string(1, kAlphabet[pick(kAlphabet.size())]) : "\"EndOfLiteral";
        // Two letters behind an ampersand could make a function of it.
        return all.empty() || all[0] != '&' ? all : "x" + all;
    };
    const std::function<Pf *(int)> node = [&](int depth) -> Pf * {
        const size_t kind = depth < 9 ? pick(5) : 4;
        if (kind > 1)
            return text_node(text());
        Pf *pf = pfnew(kind ? PFTBL : PFARR);
        for (size_t left = pick(5); left; --left) {
            Pf *child = node(depth + 1);
            if (kind)
                pushtbl(pf->value.tbl, child);
            else if (void *old =
                         setarr(pf->value.arr, ("key" + std::to_string(pick(9))).c_str(), child))
                pffree(static_cast<Pf *>(old));
        }
        return pf;
    };
    for (int i = 0; i < 1000; ++i) {
        const PfPtr pf(pfnew(PFFILE));
        for (const char *key : {"one", "two", "three"})
            setarr(pf->value.arr, key, node(0));
        expect_round_trip(pf.get());
        if (testing::Test::HasFailure())
            break;
    }
}

// ---- Wide and deep trees ----

TEST(PfRoundTrip, BringsAWideTreeBack)
{
    PfPtr pf(pfnew(PFFILE));
    std::string expected;
    for (const char *gauge : {"north", "south"}) {
        Pf *table = pfnew(PFARR), *list = pfnew(PFTBL);
        for (int day = 100; day < 900; ++day) {
            const std::string text = std::to_string(day);
            setarr(table->value.arr, ("day" + text).c_str(), text_node(text + " mm"));
            Pf *pair = pfnew(PFTBL);
            pushtbl(pair->value.tbl, text_node(text));
            pushtbl(list->value.tbl, pair);
        }
        setarr(table->value.arr, "list", list);
        setarr(pf->value.arr, gauge, table);
    }
    expect_round_trip(pf.get());
    EXPECT_EQ(take_log(), "");
    const std::string text = flat(pf.get());
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2 * (800 + 3 * 800 + 4));
}

namespace {

// A top node with `depth` lists and tables around each other, by turns. The outermost is a
// list under the key k; in the innermost stands the text "deepest".
class DeepTree {
public:
    explicit DeepTree(int depth) : top_(pfnew(PFFILE))
    {
        Pf *at = top_;
        for (int i = 0; i <= depth; ++i) {
            Pf *child = i == depth ? text_node("deepest") : pfnew(i % 2 ? PFARR : PFTBL);
            child->parent = at;
            if (at->type == PFTBL)
                pushtbl(at->value.tbl, child);
            else
                setarr(at->value.arr, "k", child);
            at = child;
        }
    }
    // From the inside out.
    ~DeepTree()
    {
        Pf *at = top_;
        while (Pf *child = inner(at))
            at = child;
        while (at) {
            Pf *outer = at->parent;
            if (outer)
                pfdel(outer, outer->type == PFTBL ? pfindex(0) : "k");
            pffree(at);
            at = outer;
        }
    }
    DeepTree(const DeepTree &) = delete;
    DeepTree &operator=(const DeepTree &) = delete;

    const Pf *get() const { return top_; }

private:
    static Pf *inner(const Pf *pf)
    {
        if (pf->type == PFSTRING)
            return nullptr;
        return static_cast<Pf *>(pf->type == PFTBL ? gettbl(pf->value.tbl, 0)
                                                   : getarr(pf->value.arr, "k"));
    }

    Pf *top_;
};

// The text of DeepTree(depth), with so many blanks for each level.
std::string deep_text(int depth, int blanks)
{
    std::string text = "k\t", end;
    for (int i = 0; i < depth; ++i) {
        const std::string indent(static_cast<size_t>(blanks * i), ' ');
        const std::string inner(static_cast<size_t>(blanks * (i + 1)), ' ');
        text += (i % 2 ? "&Arr{\n" + inner + "k\t" : "&Tbl{\n" + inner);
        end = indent + "}\n" + end;
    }
    return text + "deepest\n" + end;
}

std::string complaint(int depth)
{
    return "pf tree is " + std::to_string(depth) +
           " levels deep: its text does not read back, only 11 are read\n";
}

// Runs the body in a thread with a stack of 200 KiB.
void on_a_small_stack(std::function<void()> body)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 200 * 1024);
    pthread_t thread{};
    const auto run = [](void *argument) -> void * {
        (*static_cast<std::function<void()> *>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &body), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

// The complaints that the body prints. An expectation that fails in the body fails here.
std::string complaints(const std::function<void()> &body)
{
    const Ended ended = in_child([&] {
        elog_init(0, nullptr);
        elog_set(ELOG_TAG_FIELD, -1, "");
        body();
        exit(testing::Test::HasFailure() ? 9 : 0);
    });
    EXPECT_EQ(ended.status, 0) << ended.out;
    return ended.err;
}

}  // namespace

TEST(PfDepth, ATreeIsWrittenHoweverDeepOnASmallStack)
{
    const DeepTree deep(999), deeper(20'000);
    on_a_small_stack([&] {
        FILE *stream = tmpfile();
        EXPECT_EQ(pfout(stream, deep.get()), 0);
        EXPECT_EQ(ftell(stream), static_cast<long>(deep_text(999, 4).size()));
        fclose(stream);
        const Text text(pf2string(deeper.get()));
        EXPECT_TRUE(text.get() == deep_text(20'000, 0));
    });
}

TEST(PfDepth, ATreeThatDoesNotReadBackIsWrittenWholeAndComplainedAbout)
{
    const TempDir dir;
    const std::string path = dir / "deep.pf";
    const DeepTree tree(12);
    EXPECT_EQ(complaints([&] { EXPECT_EQ(pfwrite(path.c_str(), tree.get()), 0); }), complaint(12));
    EXPECT_EQ(read_file(path), deep_text(12, 4));
    EXPECT_EQ(complaints([&] { puts(flat(tree.get()).c_str()); }), complaint(12));
    EXPECT_EQ(complaints([] { written(DeepTree(1500).get()); }), complaint(1500));
    elog_clear();
}

TEST(PfDepth, ElevenLevelsReadBackAndAreNotComplainedAbout)
{
    const DeepTree tree(11);
    EXPECT_EQ(complaints([&] {
                  written(tree.get());
                  flat(tree.get());
              }),
              "");
    expect_round_trip(tree.get());
    EXPECT_EQ(written(tree.get()), deep_text(11, 4));
}

TEST(PfDepth, WhatIsAppendedInsideCountsWithWhatStandsAround)
{
    const DeepTree tree(5);
    const auto append = [&](int level) {
        return complaints([&] {
            void *stack = nullptr;
            pfappend(&stack, level, tree.get());
            free(popstr(&stack, 1));
        });
    };
    EXPECT_EQ(append(6), "") << "five around it, its own braces, and five inside";
    EXPECT_EQ(append(7), complaint(12));
}

TEST(Pfappend, WithoutAStackDoesNothing)
{
    pfappend(nullptr, 0, compiled("a 1\n").get());
}
