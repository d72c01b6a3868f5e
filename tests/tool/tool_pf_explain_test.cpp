// stock pf explain, as a user runs it.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/child.h"
#include "support/temp_dir.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class ToolPfExplain : public testing::Test {
protected:
    Ended explain(std::vector<std::string> words)
    {
        words.insert(words.begin(), {"/bin/sh", "-c", "cd \"$0\" && shift && exec \"$@\"",
                                     dir_.path(), "", tool_path(), "pf", "explain"});
        return run_program(words, "", {"PFPATH=a:b"});
    }

    void a(const std::string &text) { dir_.file("a/x.pf", text); }
    void b(const std::string &text) { dir_.file("b/x.pf", text); }

    TempDir dir_;
};

}  // namespace

TEST_F(ToolPfExplain, PrintsEveryPlaceAndMarksTheOneThatWins)
{
    a("# c\nk 1\nk 2\n");
    b("k 3 # c\n");
    const Ended ended = explain({"x", "k"});
    EXPECT_EQ(ended.out, "  a/x.pf:2: '1'\n  a/x.pf:3: '2'\n* b/x.pf:1: '3'\n");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
}

TEST_F(ToolPfExplain, DescribesValuesOfEveryKind)
{
    a("l &Tbl{\n 1\n 2\n &Undef{}\n}\nt &Arr{\n a 1\n a 2\n}\nm &Literal{\n1\n2\n}\n");
    EXPECT_EQ(explain({"x", "l"}).out, "* a/x.pf:1: a list of 1\n");
    EXPECT_EQ(explain({"x", "l[0]"}).out, "* a/x.pf:2: '1'\n");
    EXPECT_EQ(explain({"x", "t"}).out, "* a/x.pf:6: a table of 1\n");
    EXPECT_EQ(explain({"x", "t{a}"}).out, "  a/x.pf:7: '1'\n* a/x.pf:8: '2'\n");
    EXPECT_EQ(explain({"x", "m"}).out, "* a/x.pf:10: '1\\n2\\n'\n");
}

TEST_F(ToolPfExplain, AValueThatIsTakenAwayHasStatus1)
{
    a("k 1\n");
    b("\nk &Undef{}\n");
    const Ended ended = explain({"x", "k"});
    EXPECT_EQ(ended.out, "  a/x.pf:1: '1'\n  b/x.pf:2: &Undef{}\n");
    EXPECT_EQ(ended.err, "stock: no entry 'k' in parameter file x\n");
    EXPECT_EQ(ended.status, 1);
}

TEST_F(ToolPfExplain, ShowsTheTableThatReplacesAWholeOne)
{
    a("t &Arr{\n k 1\n}\n");
    b("t &Arr{\n l 2\n}\n");
    const Ended ended = explain({"x", "t{k}"});
    EXPECT_EQ(ended.out, "  a/x.pf:2: '1'\n  b/x.pf:1: a table of 1, without 'k' in it\n");
    EXPECT_EQ(ended.status, 1);
}

TEST_F(ToolPfExplain, ResolvesReferencesStepByStep)
{
    a("user joe\nhome /old\nt &Arr{\n home /u/&user\n d &{home}/&none\n}\n");
    EXPECT_EQ(explain({"x", "t{d}"}).out, "* a/x.pf:5: '&{home}/&none'\n"
                                          "    &{home} is '/u/&user' of a/x.pf:4\n"
                                          "      &user is 'joe' of a/x.pf:1\n"
                                          "    &none leads to nothing\n"
                                          "= '/u/joe/&none'\n");
    b("user ann\n");
    EXPECT_THAT(explain({"x", "t{d}"}).out, HasSubstr("      &user is 'ann' of b/x.pf:1\n"));
}

TEST_F(ToolPfExplain, EvaluatesFunctions)
{
    a("w world\ne &exec(echo hello &w)\nu &undef()\n");
    EXPECT_EQ(explain({"x", "e"}).out, "* a/x.pf:2: &exec(echo hello &w)\n"
                                       "    &w is 'world' of a/x.pf:1\n"
                                       "= 'hello world'\n");
    EXPECT_EQ(explain({"x", "u"}).out, "* a/x.pf:3: &undef()\n= nothing\n");
    EXPECT_EQ(explain({"x", "u"}).status, 1);
}

TEST_F(ToolPfExplain, FollowsReferencesToOtherFiles)
{
    a("k &ref(other, t{v})\nl &ref(nosuch, v)\n");
    dir_.file("b/other.pf", "w 5\nt &Arr{\n v &w s\n}\n");
    const Ended ended = explain({"x", "k"});
    EXPECT_THAT(ended.out, StartsWith("* a/x.pf:1: &ref(other, t{v})\n"
                                      "    &ref(other, t{v}) is '&w s' of b/other.pf:3\n"
                                      "      &w is '5' of b/other.pf:1\n= "));
    EXPECT_EQ(ended.status, 0);
    const Ended nowhere = explain({"x", "l"});
    EXPECT_THAT(nowhere.out, HasSubstr("    &ref(nosuch, v) leads to nothing\n"));
    EXPECT_EQ(nowhere.status, 1);
}

TEST_F(ToolPfExplain, FollowsReferencesWhoseFileOrAddressIsAReference)
{
    a("which o&rest\nrest ther\nkey v\nrun &env(HOME)\n"
      "k &ref(&which, t{&{key}})\nl &ref(&run, v)\nr &ref(&rr, v)\nrr &rr\n");
    dir_.file("b/other.pf", "t &Arr{\n v 5\n}\n");
    const Ended ended = explain({"x", "k"});
    EXPECT_EQ(ended.out, "* a/x.pf:5: &ref(&which, t{&{key}})\n"
                         "    &which is 'o&rest' of a/x.pf:1\n"
                         "      &rest is 'ther' of a/x.pf:2\n"
                         "    &{key} is 'v' of a/x.pf:3\n"
                         "    &ref(other, t{v}) is '5' of b/other.pf:2\n"
                         "= '5'\n");
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(explain({"x", "l"}).out,
                HasSubstr("    &ref(&run, v) is known only when it is evaluated\n"));
    EXPECT_THAT(explain({"x", "r"}).out,
                HasSubstr("    &ref(&rr, v) is known only when it is evaluated\n"));
}

TEST_F(ToolPfExplain, AReferenceToItselfEnds)
{
    a("k x&k\n");
    const Ended ended = explain({"x", "k"});
    EXPECT_THAT(ended.out, HasSubstr("and so on, too deep\n"));
    EXPECT_THAT(ended.out, EndsWith("** error ** pf massive recursion'\n"));
}

TEST_F(ToolPfExplain, HelpsAndRefusesWrongUsage)
{
    EXPECT_THAT(explain({"--help"}).out, StartsWith("usage: stock pf explain NAME ADDRESS"));
    for (const auto &words :
         std::vector<std::vector<std::string>>{{}, {"x"}, {"x", "k", "l"}, {"x", "k{"}})
        EXPECT_EQ(explain(words).status, 2);
}
