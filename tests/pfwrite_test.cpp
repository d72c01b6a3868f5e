// Parameter trees as text: quoting one value, and writing a tree to read it back.

#include "stock/pf.h"

#include <random>
#include <string>

#include <gtest/gtest.h>

#include "support/child.h"
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

// A tree that holds one text under the key k and in a list.
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

// The described quoting looks at special characters only: a text that begins like
// another token is written as it stands.
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

TEST(PfDepth, WhatIsTooDeepIsWrittenAsTheEmptyText)
{
    Pf *inner = text_node("x");
    for (int i = 0; i < 1001; ++i) {
        Pf *outer = pfnew(PFTBL);
        pushtbl(outer->value.tbl, inner);
        inner = outer;
    }
    const PfPtr tree(inner);
    const TempDir dir;
    EXPECT_EQ(pfwrite((dir / "deep").c_str(), tree.get()), -1);
    EXPECT_EQ(take_log(), "pf tree is more than 1000 levels deep\n");
    const std::string text = Text(pf2string(tree.get())).get();
    EXPECT_EQ(take_log(), "pf tree is more than 1000 levels deep\n");
    EXPECT_NE(text.find("&Tbl{\n\n}\n"), std::string::npos);
    EXPECT_EQ(text.find('x'), std::string::npos);
    Pf *fits = static_cast<Pf *>(gettbl(tree->value.tbl, 0));
    EXPECT_NE(std::string(Text(pf2string(fits)).get()).find("&Tbl{\nx\n}\n"), std::string::npos);
}
