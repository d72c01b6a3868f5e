// The text of parameter files: every token where a key is expected and where a value is.

#include "stock/pf.h"

#include <string>

#include <gtest/gtest.h>

#include "support/child.h"
#include "support/pf_text.h"
#include "support/traces.h"

namespace {

const std::string kTooDeep =
    "*stack* too many Lex_levels of nesting at line #%d in pf file *internal buffer*\n";

std::string repeat(const std::string &text, size_t times)
{
    std::string all;
    while (times--)
        all += text;
    return all;
}

std::string strayed(int line)
{
    return "*stack* invalid right brace at line #" + std::to_string(line) +
           " in pf file *internal buffer*\n";
}

std::string unterminated(int line, int depth, const std::string &head)
{
    return "*stack* Unterminated arrays or tables at last line #" + std::to_string(line) +
           ", depth = " + std::to_string(depth) + " in input string \n" + head + "\n";
}

// What a parse of the text says on standard error in a process of its own.
std::string complaints(const std::string &text)
{
    const Ended ended = in_child([&] {
        Pf *pf = nullptr;
        pfcompile(text.c_str(), &pf);
        pffree(pf);
    });
    return without_traces(ended.err);
}

}  // namespace

// ---- Keys ----

TEST(PflexKey, ATextWithNothingToReadGivesAnEmptyTree)
{
    for (const char *text :
         {"", "\n", "  \t", "\n\n \n", "# only a comment\n", "# no newline", "#"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(tree_of(text), "{}");
    }
}

TEST(PflexKey, BlanksStandBeforeBetweenAndBehind)
{
    EXPECT_EQ(tree_of("a 1\n"), R"({a: "1"})");
    EXPECT_EQ(tree_of(" \t a \t 1 \t \n"), R"({a: "1"})");
}

TEST(PflexKey, TheLastLineNeedsNoNewline)
{
    EXPECT_EQ(tree_of("a 1\nb 2"), R"({a: "1", b: "2"})");
}

TEST(PflexKey, AKeyThatTheTextEndsBehindHasNoValue)
{
    EXPECT_EQ(tree_of("a 1\nb"), R"({a: "1"})");
    EXPECT_EQ(tree_of("a 1\nb  "), R"({a: "1"})");
}

TEST(PflexKey, CarriageReturnAndFormFeedAreOrdinaryCharacters)
{
    EXPECT_EQ(tree_of("\fa\r x\r\n"), "{\fa\r: \"x\r\"}");
    EXPECT_EQ(tree_of("a\r\n"), "{a\r: \"\"}");
}

TEST(PflexKey, AByteOrderMarkAndInvalidUtf8AreTextLikeAnyOther)
{
    EXPECT_EQ(tree_of("\xef\xbb\xbf"
                      "a \xff\xfe\x80\n"),
              "{\xef\xbb\xbf"
              "a: \"\xff\xfe\x80\"}");
}

TEST(PflexKey, AnEndMarkEndsTheText)
{
    for (const char *mark : {"__END__", "__DATA__", "__EOF__"}) {
        SCOPED_TRACE(mark);
        const std::string line = mark;
        EXPECT_EQ(tree_of("a 1\n" + line + "\nb 2\n"), R"({a: "1"})");
        EXPECT_EQ(tree_of("a 1\n  " + line + " and more\nb 2\n"), R"({a: "1"})");
        EXPECT_EQ(tree_of("a 1\n" + line + "more\nb 2\n"), R"({a: "1"})");
    }
}

TEST(PflexKey, AnEndMarkWithoutANewlineIsAKey)
{
    EXPECT_EQ(tree_of("__END__ x"), R"({__END__: "x"})");
}

TEST(PflexKey, WhatOnlyBeginsLikeAnEndMarkIsAKey)
{
    EXPECT_EQ(tree_of("__END_ 1\n__data__ 2\n_ 3\n"), R"({_: "3", __END_: "1", __data__: "2"})");
}

TEST(PflexKey, AnEndMarkIsAValueWhereAValueIsExpected)
{
    EXPECT_EQ(tree_of("a __END__\nb &Tbl{\n__END__\n}\n"), R"({a: "__END__", b: ["__END__"]})");
}

TEST(PflexKey, AnEndMarkInATableLeavesItOpen)
{
    EXPECT_EQ(tree_of("a &Arr{\n__END__\n}\n"),
              "error -2: " + unterminated(3, 1, "  --> a &Arr{\n  --> __END__\n  --> }\n"));
}

TEST(PflexKey, QuotesOfBothKindsHoldBlanks)
{
    EXPECT_EQ(tree_of("\"two words\" 1\n'three more words'2\n"),
              R"({three more words: "2", two words: "1"})");
}

TEST(PflexKey, QuotedKeysKnowNoEscapesAndTheOtherQuote)
{
    EXPECT_EQ(tree_of("\"a \\n '\" 1\n' \"x# }'2\n"), "{ \"x# }: \"2\", a \\n ': \"1\"}");
}

TEST(PflexKey, AQuotedKeyMayBeEmpty)
{
    EXPECT_EQ(tree_of("\"\" 1\n"), R"({: "1"})");
}

TEST(PflexKey, AQuotedKeyMayHoldNewlinesWhichAreNotCounted)
{
    EXPECT_EQ(tree_of("\"a\nb\n\" 1\n"), "{a\nb\n: \"1\"}");
    EXPECT_EQ(tree_of("\"a\nb\n\" 1\n}\n"), "error -2: " + strayed(2));
}

TEST(PflexKey, AQuoteThatIsNotClosedBeginsAPlainKey)
{
    EXPECT_EQ(tree_of("\"a b\n'c d\n"), R"({"a: "b", 'c: "d"})");
}

TEST(PflexKey, TheLongerOfQuotedAndPlainKeyWins)
{
    EXPECT_EQ(tree_of("\"ab\"cd 1\n"), R"({"ab"cd: "1"})");
    EXPECT_EQ(tree_of("\"ab\" 1\n"), R"({ab: "1"})");
    EXPECT_EQ(tree_of("\"a b\"cd 1\n"), R"({a b: "cd 1"})");
    EXPECT_EQ(tree_of("\"ab\"#x\n"), R"({"ab": ""})");
}

TEST(PflexKey, AHashEndsAKeyAndBeginsAComment)
{
    EXPECT_EQ(tree_of("a#b c\nd 1\n"), R"({a: "", d: "1"})");
    EXPECT_EQ(tree_of("\\a\\#b#c\nd 1\n"), R"({a#b: "", d: "1"})");
}

TEST(PflexKey, EscapesInAKey)
{
    const struct {
        const char *written, *key;
    } cases[] = {
        {"a\\#b", "a#b"},
        {"\\#", "#"},
        {"\\}x", "}x"},
        {"a\\\\b", "a\\b"},
        {"a\\nb", "a\nb"},
        {"a\\tb", "a\tb"},
        {"a\\rb", "a\rb"},
        {"a\\bb", "a\bb"},
        {"a\\qb", "aqb"},
        {"\\101\\102", "AB"},
        {"\\1013", "A3"},
        {"\\7x5z", "\az"},
        {"\\7", "\a"},
        {"\\12", "\n"},
        {"\\1#2x", "\001x"},
        {"a\\", "a"},
        {"a\\777b", "a\xff"
                    "b"},
        {"\\\"a", "\"a"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.written);
        EXPECT_EQ(tree_of(std::string(c.written) + " 1\n"), "{" + std::string(c.key) + ": \"1\"}");
    }
}

TEST(PflexKey, AnOctalZeroEndsTheKey)
{
    EXPECT_EQ(tree_of("ab\\000cd 1\n"), R"({ab: "1"})");
    EXPECT_EQ(tree_of("ab\\8cd 1\n"), R"({ab: "1"})");
}

TEST(PflexKey, KeysOf1023BytesAreWholeAndLongerOnesAreCut)
{
    for (const size_t length : {1022u, 1023u, 1024u, 1025u, 100000u}) {
        SCOPED_TRACE(length);
        const std::string key(length, 'k');
        const std::string kept = "{" + key.substr(0, 1023) + ": \"1\"}";
        EXPECT_EQ(tree_of(key + " 1\n"), kept);
        EXPECT_EQ(tree_of("\"" + key + "\" 1\n"), kept);
        EXPECT_EQ(tree_of("'" + key + "' 1\n"), kept);
    }
}

TEST(PflexKey, ACutKeyCountsItsCharactersBehindTheEscapes)
{
    EXPECT_EQ(tree_of(repeat("\\#", 2000) + " 1\n"), "{" + std::string(1023, '#') + ": \"1\"}");
    EXPECT_EQ(tree_of(std::string(2000, 'k') + "#x 1\n"), "{" + std::string(1023, 'k') + ": \"\"}");
    EXPECT_EQ(tree_of(std::string(2000, 'k') + "\\n 1\n"),
              "{" + std::string(1023, 'k') + ": \"1\"}");
}

TEST(PflexKey, ABraceClosesNothingAtTheTop)
{
    EXPECT_EQ(tree_of("}\n"), "error -2: " + strayed(1));
    EXPECT_EQ(tree_of("a 1\n\n  } x\nb 2\n"), "error -2: " + strayed(3));
    EXPECT_EQ(tree_of("a }\n"), "error -2: " + strayed(1));
}

// ---- Values ----

TEST(PflexValue, IsTheRestOfTheLineTrimmed)
{
    EXPECT_EQ(tree_of("a  two  words  \nb \"quoted\"\n"), "{a: \"two  words\", b: \"\"quoted\"\"}");
}

TEST(PflexValue, AKeyAloneHasTheEmptyString)
{
    EXPECT_EQ(tree_of("a\nb   \nc # comment\nd#comment\n"), R"({a: "", b: "", c: "", d: ""})");
}

TEST(PflexValue, ACommentAtTheEndOfTheTextNeedsNoNewline)
{
    EXPECT_EQ(tree_of("a #x"), R"({a: ""})");
    EXPECT_EQ(tree_of("a 1 #x"), R"({a: "1"})");
    EXPECT_EQ(tree_of("a &Tbl{\n}\n#x"), R"({a: []})");
}

TEST(PflexValue, AHashBeginsACommentUnlessABackslashStandsBeforeIt)
{
    EXPECT_EQ(tree_of("a 1 # one\nb 1\\#2 # two\n"), R"({a: "1", b: "1#2"})");
}

TEST(PflexValue, Escapes)
{
    const struct {
        const char *written, *value;
    } cases[] = {
        {"a\\nb", "a\nb"},  {"a\\tb", "a\tb"}, {"a\\rb", "a\rb"},     {"a\\bb", "a\bb"},
        {"a\\\\b", "a\\b"}, {"a\\}b", "a}b"},  {"\\&Tbl", "&Tbl"},    {"a\\x41", "ax41"},
        {"\\101", "A"},     {"\\1012", "A2"},  {"a\\18bc", "a\001c"}, {"\\1 2x", "\001x"},
        {"\\# a", "# a"},   {"x\\", "x\nb 2"}, {"a\\7", "a\a"},       {"\\1#4#c", "\001"},
        {"\\} a", "} a"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.written);
        if (std::string(c.written) == "x\\")
            EXPECT_EQ(tree_of("k x\\\nb 2\n"), R"({k: "x)"
                                               "\nb 2\"}");
        else
            EXPECT_EQ(tree_of("k " + std::string(c.written) + "\nz 2\n"),
                      "{k: \"" + std::string(c.value) + "\", z: \"2\"}");
    }
}

TEST(PflexValue, ABackslashAtTheEndOfTheTextGivesNothing)
{
    EXPECT_EQ(tree_of("a x\\"), R"({a: "x"})");
    EXPECT_EQ(tree_of("a \\"), R"({a: ""})");
}

TEST(PflexValue, AnOctalZeroEndsTheValue)
{
    EXPECT_EQ(tree_of("a one \\000two\nb 2\n"), R"({a: "one", b: "2"})");
}

TEST(PflexValue, IsTrimmedOfEscapedSpaceAsWell)
{
    EXPECT_EQ(tree_of("a \\n\\t x \\n\n"), R"({a: "x"})");
    EXPECT_EQ(tree_of("a \\r x \\r\n"), "{a: \"\r x \r\"}");
}

TEST(PflexValue, ABackslashBeforeTheNewlineContinuesItOnTheNextLine)
{
    EXPECT_EQ(tree_of("a one\\\n  two\\\nthree # four\nb 2\n"),
              "{a: \"one\n  two\nthree\", b: \"2\"}");
}

TEST(PflexValue, AContinuedLineIsNotCounted)
{
    EXPECT_EQ(tree_of("a one\\\ntwo\n}\n"), "error -2: " + strayed(2));
}

TEST(PflexValue, OfTenMegabytesIsWhole)
{
    const std::string plain(10'000'000, 'v');
    const std::string escaped = repeat("\\#", 5'000'000);
    EXPECT_EQ(tree_of("a " + plain + "\n"), "{a: \"" + plain + "\"}");
    EXPECT_EQ(tree_of("a " + escaped + "\n"), "{a: \"" + std::string(5'000'000, '#') + "\"}");
}

TEST(PflexValue, ALaterOneOfTheSameKeyReplacesTheEarlierWhole)
{
    EXPECT_EQ(tree_of("a 1\na 2\n"), R"({a: "2"})");
    EXPECT_EQ(tree_of("a &Arr{\nx 1\n}\na &Arr{\ny 2\n}\n"), R"({a: {y: "2"}})");
    EXPECT_EQ(tree_of("a &Tbl{\nx\n}\na 1\n"), R"({a: "1"})");
}

TEST(PflexValue, ReplacementsAreReportedWhenAskedFor)
{
    const Ended ended = in_child([] {
        Pf_show_replacements = 1;
        Pf *pf = nullptr;
        pfcompile("a 1\nb 1\na 2\nb &Tbl{\n}\n", &pf);
        pffree(pf);
    });
    // Meant: the line of a text is counted before it is stored, so line 3 shows as 4.
    EXPECT_EQ(ended.err, "replacing key 'a' at line #4 of *internal buffer*\n"
                         "replacing key 'b' at line #4 of *internal buffer*\n");
}

TEST(PflexValue, ReplacementsAreNotReportedOtherwise)
{
    EXPECT_EQ(complaints("a 1\na 2\n"), "");
}

TEST(PflexValue, ThatHoldsTheStartOfAContainerIsComplainedAboutAndKept)
{
    const struct {
        const char *text, *complaint;
    } cases[] = {
        {"a x &Tbl{\n", "value contains '&Tbl{'\n\t'x &Tbl{'\n"},
        {"a x &Arr{ # y\n", "value contains '&Arr{'\n\t'x &Arr{'\n"},
        {"a x &Literal{\n", "value contains '&Arr{'\n\t'x &Literal{'\n"},
        {"a &Arr{x &Tbl{", ""},
        {"a x &Arr{ &Tbl{\n", "value contains '&Tbl{'\n\t'x &Arr{ &Tbl{'\n"},
        {"a x &Literal(\n", ""},
        {"a &b &Tbl{\\\n\n", "value contains '&Tbl{'\n\t'&b &Tbl{'\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        const std::string complaint = c.complaint;
        EXPECT_EQ(complaints(c.text), complaint.empty() ? "" : "pflex_test: " + complaint);
    }
    const Ended kept = in_child([] { puts(tree_of("a x &Tbl{\nb 1\n").c_str()); });
    EXPECT_EQ(kept.out, "{a: \"x &Tbl{\", b: \"1\"}\n");
}

TEST(PflexValue, ABraceBehindAKeyClosesTheContainerAndDropsTheKey)
{
    EXPECT_EQ(tree_of("a &Arr{\nb 1\nc }\nd 2\n"), R"({a: {b: "1"}, d: "2"})");
}

// ---- Functions ----

TEST(PflexFunction, IsTheWholeTextToTheNewline)
{
    EXPECT_EQ(tree_of("a &exec(ls -l) \t\nb 1\n"), "{a: &\"&exec(ls -l) \t\n\", b: \"1\"}");
    EXPECT_EQ(tree_of("a &f_2(x) (y)\n"), "{a: &\"&f_2(x) (y)\n\"}");
    EXPECT_EQ(tree_of("a &f()\n"), "{a: &\"&f()\n\"}");
}

TEST(PflexFunction, WithWordsBehindItIsAPlainValue)
{
    EXPECT_EQ(tree_of("a &exec(ls) tail\n"), R"x({a: "&exec(ls) tail"})x");
    EXPECT_EQ(tree_of("a &exec(ls) # tail\n"), R"x({a: "&exec(ls)"})x");
}

TEST(PflexFunction, WithoutItsParenthesesOrNewlineIsAPlainValue)
{
    EXPECT_EQ(
        tree_of("a &ask\nb &ask(\nc &ask)\nd &1(x)\ne &_(x)\nf &a b(x)\ng &\nh &exec(x)"),
        R"x({a: "&ask", b: "&ask(", c: "&ask)", d: "&1(x)", e: "&_(x)", f: "&a b(x)", g: "&", )x"
        R"x(h: "&exec(x)"})x");
}

TEST(PflexFunction, InAListIsAnElement)
{
    EXPECT_EQ(tree_of("a &Tbl{\n&env(HOME)\nx\n}\n"), "{a: [&\"&env(HOME)\n\" \"x\"]}");
}

TEST(PflexFunction, KeepsTheNameOfItsFileOnlyWhenItNamesAFile)
{
    Pf *pf = nullptr;
    ASSERT_EQ(pfcompile("a &file(x)\nb &filename(x)\nc &filer(x)\nd &datafile(x)\n", &pf), 0);
    const PfPtr owner(pf);
    const auto hook = [&](const char *key) {
        return static_cast<Pf *>(getarr(pf->value.arr, key))->value.pffunct->hook;
    };
    EXPECT_STREQ(static_cast<char *>(hook("a")->pvt), "*internal buffer*");
    EXPECT_STREQ(static_cast<char *>(hook("b")->pvt), "*internal buffer*");
    EXPECT_EQ(hook("c"), nullptr);
    EXPECT_EQ(hook("d"), nullptr);
}

TEST(PflexFunction, IsNotYetEvaluated)
{
    Pf *pf = nullptr;
    ASSERT_EQ(pfcompile("a &exec(exit 1)\n", &pf), 0);
    const PfPtr owner(pf);
    EXPECT_EQ(static_cast<Pf *>(getarr(pf->value.arr, "a"))->value.pffunct->result, nullptr);
}

TEST(PflexFunction, IsCountedAsOneLine)
{
    EXPECT_EQ(tree_of("a &f(x)\nb &file(x)\n}\n"), "error -2: " + strayed(3));
}

TEST(PflexFunction, WinsOverALiteralWhenItIsLonger)
{
    EXPECT_EQ(tree_of("a &Literal(x)\n"), "{a: &\"&Literal(x)\n\"}");
    EXPECT_EQ(tree_of("a &Literal(\nx)\n"), R"({a: "x"})");
}

// ---- Lists and tables ----

TEST(PflexContainer, ListsAndTablesNest)
{
    EXPECT_EQ(tree_of("a &Tbl{\nx\n&Arr{\nk v\nl &Tbl{\n1\n2\n}\n}\ny\n}\nb 1\n"),
              R"({a: ["x" {k: "v", l: ["1" "2"]} "y"], b: "1"})");
}

TEST(PflexContainer, WhatFollowsABraceOnItsLineIsDropped)
{
    EXPECT_EQ(tree_of("a &Arr{ b 1\nc 2\n} d 3\ne &Tbl{ x\n} # y\n"), R"({a: {c: "2"}, e: []})");
}

TEST(PflexContainer, TheLinesOfItsBracesAreCounted)
{
    EXPECT_EQ(tree_of("a &Arr{\n} x\n}\n"), "error -2: " + strayed(3));
    EXPECT_EQ(tree_of("a &Tbl{ x\n}\n}\n"), "error -2: " + strayed(3));
}

TEST(PflexContainer, ACommentInAListIsCountedAsALine)
{
    EXPECT_EQ(tree_of("a &Tbl{\n# first column\n}\n}\n"), "error -2: " + strayed(4));
}

TEST(PflexContainer, AClosingBraceMayBeIndented)
{
    EXPECT_EQ(tree_of("a &Tbl{\n  x\n  }\nb 1\n"), R"({a: ["x"], b: "1"})");
}

TEST(PflexContainer, AnEmptyLineInAListIsAnEmptyElement)
{
    EXPECT_EQ(tree_of("a &Tbl{\n\nx\n \t\n}\n"), R"({a: ["" "x" ""]})");
}

TEST(PflexContainer, ACommentInAListIsIgnoredOnlyInTheFirstColumn)
{
    EXPECT_EQ(tree_of("a &Tbl{\n# first column\nx # behind x\n  # indented\n}\n"),
              R"({a: ["x" ""]})");
}

TEST(PflexContainer, ACommentInATableIsIgnoredInEveryColumn)
{
    EXPECT_EQ(tree_of("a &Arr{\n# first\n  # indented\nb 1\n}\n"), R"({a: {b: "1"}})");
}

TEST(PflexContainer, NodesKnowTheContainerTheyWereReadInto)
{
    Pf *pf = nullptr;
    ASSERT_EQ(pfcompile("a &Tbl{\n&Arr{\nk v\n}\n}\n", &pf), 0);
    const PfPtr owner(pf);
    auto *list = static_cast<Pf *>(getarr(pf->value.arr, "a"));
    auto *table = static_cast<Pf *>(gettbl(list->value.tbl, 0));
    auto *leaf = static_cast<Pf *>(getarr(table->value.arr, "k"));
    EXPECT_EQ(pf->parent, nullptr);
    EXPECT_EQ(list->parent, pf);
    EXPECT_EQ(table->parent, list);
    EXPECT_EQ(leaf->parent, table);
    EXPECT_EQ(leaf->filename, nullptr);
}

TEST(PflexContainer, ElevenMayBeOpen)
{
    std::string expected = R"({a: "x"})";
    for (int i = 0; i < 11; ++i)
        expected = "{a: " + expected + "}";
    EXPECT_EQ(tree_of(repeat("a &Arr{\n", 11) + "a x\n" + repeat("}\n", 11)), expected);
}

TEST(PflexContainer, TheTwelfthIsRefusedAndNotStored)
{
    const std::string text = repeat("a &Arr{\n", 12) + "a x\n" + repeat("}\n", 12);
    Pf *pf = nullptr;
    EXPECT_EQ(pfcompile(text.c_str(), &pf), -2);
    const PfPtr owner(pf);
    std::string expected = "{}";
    for (int i = 0; i < 11; ++i)
        expected = "{a: " + expected + "}";
    EXPECT_EQ(tree_text(pf), expected);
    EXPECT_EQ(take_log(),
              "*stack* too many Lex_levels of nesting at line #12 in pf file *internal buffer*\n" +
                  unterminated(12, 11, repeat("  --> a &Arr{\n", 5) + "  --> ...\n"));
}

TEST(PflexContainer, ListsCountAsLevelsLikeTables)
{
    const std::string text = "a &Tbl{\n" + repeat("&Tbl{\n", 11);
    Pf *pf = nullptr;
    EXPECT_EQ(pfcompile(text.c_str(), &pf), -2);
    pffree(pf);
    EXPECT_EQ(take_log().substr(0, kTooDeep.find('%')), kTooDeep.substr(0, kTooDeep.find('%')));
}

TEST(PflexContainer, ClosedOnesMakeRoomForOthers)
{
    EXPECT_EQ(tree_of(repeat("a &Arr{\nb &Tbl{\n}\n}\n", 100)), "{a: {b: []}}");
}

TEST(PflexContainer, WhatIsStoredBeforeAnErrorStays)
{
    Pf *pf = nullptr;
    EXPECT_EQ(pfcompile("a 1\n}\nb 2\n", &pf), -2);
    const PfPtr owner(pf);
    EXPECT_EQ(tree_text(pf), R"({a: "1"})");
    take_log();
}

// ---- Undefining ----

TEST(PflexUndef, TakesAKeyAwayThatStandsBefore)
{
    EXPECT_EQ(tree_of("a 1\nb 2\na &Undef{}\n"), R"({b: "2"})");
    EXPECT_EQ(tree_of("a &Arr{\nx 1\n}\na &Undef{} what follows\nb 2\n"), R"({b: "2"})");
}

TEST(PflexUndef, OfAKeyThatIsNotThereDoesNothing)
{
    EXPECT_EQ(tree_of("a &Undef{}\nb 1\n"), R"({b: "1"})");
}

TEST(PflexUndef, TakesTheLastElementOfAList)
{
    EXPECT_EQ(tree_of("a &Tbl{\nx\ny\n&Undef{}\nz\n}\n"), R"({a: ["x" "z"]})");
    EXPECT_EQ(tree_of("a &Tbl{\n&Undef{}\n&Undef{}\nx\n}\n"), R"({a: ["x"]})");
    EXPECT_EQ(tree_of("a &Tbl{\n&Tbl{\nx\n}\n&Undef{}\n}\n"), R"({a: []})");
}

TEST(PflexUndef, LeavesNothingOfAnElementBehindForALaterOneToBringBack)
{
    Pf *pf = nullptr;
    ASSERT_EQ(pfcompile("a &Tbl{\nx\ny\n&Undef{}\n&Undef{}\n}\n", &pf), 0);
    const PfPtr owner(pf);
    ASSERT_EQ(pfset(pf, "a[2]", "z"), 0);
    EXPECT_EQ(tree_text(pf), R"({a: [<none> <none> "z"]})");
}

TEST(PflexUndef, IsOneLineAndNeedsNoNewline)
{
    EXPECT_EQ(tree_of("a &Undef{}\n}\n"), "error -2: " + strayed(2));
    EXPECT_EQ(tree_of("a 1\na &Undef{}"), "{}");
}

TEST(PflexUndef, WrittenInAnotherWayIsAPlainValue)
{
    EXPECT_EQ(tree_of("a &Undef\nb &undef{}\n"), R"({a: "&Undef", b: "&undef{}"})");
}

// ---- Literals ----

TEST(PflexLiteral, KeepsItsLinesAsTheyStand)
{
    EXPECT_EQ(tree_of("a &Literal{ dropped\n  one \\n # two \n\n} dropped\nb 1\n"),
              "{a: \"  one \\n # two \n\n\", b: \"1\"}");
}

TEST(PflexLiteral, KeepsTheBracesThatBalance)
{
    EXPECT_EQ(tree_of("a &Literal{\nif (x) { y }\n{{}}\n}\n"), "{a: \"if (x) { y }\n{{}}\n\"}");
}

TEST(PflexLiteral, EndsInTheMiddleOfALineAsWell)
{
    EXPECT_EQ(tree_of("a &Literal{\none} two\nb 1\n"), R"({a: "one", b: "1"})");
    EXPECT_EQ(tree_of("a &Literal{\n}\n"), R"({a: ""})");
    EXPECT_EQ(tree_of("a &Literal{\nx}"), R"({a: "x"})");
}

TEST(PflexLiteral, EachOpeningDelimiterHasItsClosingOne)
{
    const struct {
        char open, close;
    } pairs[] = {
        {'{', '}'},
        {'(', ')'},
        {'[', ']'},
        {'<', '>'},
        {'`', '\''},
        // Meant: each closes with the next of the row, so "}" closes with "(".
        {'}', '('},
        {')', '['},
        {']', '<'},
        {'>', '`'},
    };
    for (const auto &pair : pairs) {
        SCOPED_TRACE(pair.open);
        const std::string open(1, pair.open), close(1, pair.close);
        EXPECT_EQ(tree_of("a &Literal" + open + "\nx" + open + "y" + close + "z\n" + close + "\n"),
                  "{a: \"x" + open + "y" + close + "z\n\"}");
    }
}

TEST(PflexLiteral, NothingClosesASingleQuote)
{
    EXPECT_EQ(tree_of("a &Literal'\nx'\n"),
              "error -2: " + unterminated(3, 1, "  --> a &Literal'\n  --> x'\n"));
}

TEST(PflexLiteral, TakesItsClosingDelimiterFromTheTextWhenTheOpeningOneHasNone)
{
    EXPECT_EQ(tree_of("a &Literal|! dropped\n|x!y!\nb 1\n"), R"({a: "|x!y", b: "1"})");
    EXPECT_EQ(tree_of("a &LiteralXY\n..Y\n"), R"({a: ".."})");
}

TEST(PflexLiteral, TwoEqualDelimitersEndItAtTheFirstOne)
{
    EXPECT_EQ(tree_of("a &Literal||\nx|y|\nb 1\n"), R"({a: "x", b: "1"})");
}

TEST(PflexLiteral, ANewlineAsItsClosingDelimiterTakesTheNextLine)
{
    EXPECT_EQ(tree_of("a &Literal|\nx y\nb 1\n"), R"({a: "x y", b: "1"})");
}

TEST(PflexLiteral, AloneOnItsLineIsAPlainValue)
{
    EXPECT_EQ(tree_of("a &Literal\nb &Literal"), R"({a: "&Literal", b: "&Literal"})");
}

TEST(PflexLiteral, CountsItsLines)
{
    EXPECT_EQ(tree_of("a &Literal{\nx\ny\n}\n}\n"), "error -2: " + strayed(5));
    EXPECT_EQ(tree_of("a &Literal|\nx\n}\n"), "error -2: " + strayed(3));
}

TEST(PflexLiteral, InAListIsAnElement)
{
    EXPECT_EQ(tree_of("a &Tbl{\n&Literal{\n x\n}\n&Literal\"E\n y\"E\nz\n}\n"),
              "{a: [\" x\n\" \" y\" \"z\"]}");
}

TEST(PflexLiteral, ThatTheTextEndsInIsOneMoreOpenContainerAndIsNotStored)
{
    Pf *pf = nullptr;
    EXPECT_EQ(pfcompile("a &Arr{\nb 1\nc &Literal{\nx\n", &pf), -2);
    const PfPtr owner(pf);
    EXPECT_EQ(tree_text(pf), R"({a: {b: "1"}})");
    EXPECT_EQ(take_log(),
              unterminated(5, 2, "  --> a &Arr{\n  --> b 1\n  --> c &Literal{\n  --> x\n"));
}

TEST(PflexLiteral, ThatTheTextEndsInLeavesTheEarlierValue)
{
    Pf *pf = nullptr;
    EXPECT_EQ(pfcompile("a 1\na &Literal{", &pf), -2);
    const PfPtr owner(pf);
    EXPECT_EQ(tree_text(pf), R"({a: "1"})");
    EXPECT_EQ(take_log(), unterminated(2, 1, "  --> a 1\n"));
}

TEST(PflexLiteral, ThatTheTextEndsInBeforeItsClosingDelimiterIsOpenToo)
{
    EXPECT_EQ(tree_of("a &Literal|"), "error -2: " + unterminated(1, 1, ""));
}

TEST(PflexLiteral, OfTenMegabytesIsWhole)
{
    const std::string body = repeat("{ line }\n", 1'200'000);
    EXPECT_EQ(tree_of("a &Literal{\n" + body + "}\n"), "{a: \"" + body + "\"}");
    EXPECT_EQ(tree_of("a &Literal\"EOT\n" + body + "\"EOT\n"), "{a: \"" + body + "\"}");
}

// ---- Here-documents ----

TEST(PflexHereDocument, EndsAtAQuoteWithItsWord)
{
    EXPECT_EQ(tree_of("a &Literal\"EOT\n  x \\n # \"quoted\"\n} EOT\n\"EOT dropped\nb 1\n"),
              "{a: \"  x \\n # \"quoted\"\n} EOT\n\", b: \"1\"}");
}

TEST(PflexHereDocument, EndsInTheMiddleOfALineAsWell)
{
    EXPECT_EQ(tree_of("a &Literal\"EOT\none\"EOTwo\nb 1\n"), R"({a: "one", b: "1"})");
    EXPECT_EQ(tree_of("a &Literal\"EOT\n\"EOT"), R"({a: ""})");
}

TEST(PflexHereDocument, KeepsWhatMatchesItsEndOnlyInPart)
{
    EXPECT_EQ(tree_of("a &Literal\"EOT\n\"E\"EO\"\"EOT\n"), R"({a: ""E"EO""})");
    EXPECT_EQ(tree_of("a &Literal\"\"\"x\n\"\"\"\"\"x\n"), R"({a: """"})");
}

TEST(PflexHereDocument, ItsWordIsTheWholeRestOfTheLine)
{
    EXPECT_EQ(tree_of("a &Literal\"two words \nx\"two words\n\"two words \nb 1\n"),
              "{a: \"x\"two words\n\", b: \"1\"}");
}

TEST(PflexHereDocument, WithoutAWordEndsAtTheNextQuote)
{
    EXPECT_EQ(tree_of("a &Literal\"\nx\ny\" dropped\nb 1\n"), "{a: \"x\ny\", b: \"1\"}");
}

TEST(PflexHereDocument, AWordOf127CharactersIsWholeAndALongerOneIsCut)
{
    for (const size_t length : {126u, 127u, 128u, 1000u}) {
        SCOPED_TRACE(length);
        const std::string word(length, 'w');
        const std::string kept(std::min<size_t>(length, 127), 'w');
        EXPECT_EQ(
            tree_of("a &Literal\"" + word + "\nx\"" + kept.substr(1) + "\n\"" + kept + "\nb 1\n"),
            "{a: \"x\"" + kept.substr(1) + "\n\", b: \"1\"}");
    }
}

TEST(PflexHereDocument, DoesNotCountItsLines)
{
    EXPECT_EQ(tree_of("a &Literal\"EOT\nx\ny\n\"EOT\n}\n"), "error -2: " + strayed(1));
}

TEST(PflexHereDocument, ThatTheTextEndsInIsOneMoreOpenContainerAndIsNotStored)
{
    EXPECT_EQ(tree_of("a 1\nb &Literal\"EOT\nx\"EO\n"),
              "error -2: " + unterminated(2, 1, "  --> a 1\n  --> b &Literal\"EOT\n  --> x\"EO\n"));
    EXPECT_EQ(tree_of("b &Literal\"EOT"), "error -2: " + unterminated(1, 1, ""));
}

// ---- The end of the text ----

TEST(PflexEnd, AZeroByteEndsTheTextWhereverItStands)
{
    const struct {
        std::string text;
        const char *tree;
    } cases[] = {
        {std::string("a 1\n\0b 2\n", 9), R"({a: "1"})"},
        {std::string("a 1\nb\0 2\n", 9), R"({a: "1"})"},
        {std::string("a 1\0 3\nb 2\n", 11), R"({a: "1"})"},
        {std::string("a #1\0\nb 2\n", 10), R"({a: ""})"},
        {std::string("a &f(\0)\nb 2\n", 12), R"({a: "&f("})"},
        {std::string("\"a\0b\" 2\n", 8), "{}"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.tree);
        Pf *pf = nullptr;
        EXPECT_EQ(pfcompile_counted(c.text.data(), static_cast<long>(c.text.size()), &pf), 0);
        const PfPtr owner(pf);
        EXPECT_EQ(tree_text(pf), c.tree);
    }
}

TEST(PflexEnd, AZeroByteInALiteralLeavesItOpen)
{
    const std::string zero(1, '\0');
    for (const std::string &text :
         {"a &Literal{\nx" + zero + "\n}\n", "a &Literal\"E\nx" + zero + "\n\"E\n"}) {
        SCOPED_TRACE(text);
        Pf *pf = nullptr;
        EXPECT_EQ(pfcompile_counted(text.data(), static_cast<long>(text.size()), &pf), -2);
        const PfPtr owner(pf);
        EXPECT_EQ(tree_text(pf), "{}");
        EXPECT_NE(take_log().find("depth = 1"), std::string::npos);
    }
}
