// Changing a tree: puts, sets, deletions and placeholders.

#include <cerrno>
#include <functional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "stock.h"
#include "support/child.h"
#include "support/pf_files.h"

namespace {

PfPtr parse(const char *text)
{
    Pf *pf = nullptr;
    EXPECT_EQ(pfcompile(text, &pf), 0);
    return PfPtr(pf);
}

// The standard error of the body, which must end the process with status 1.
std::string last_words(const std::function<void()> &body)
{
    const Ended ended = in_child([&] {
        elog_set(ELOG_TAG_FIELD, -1, "T");
        errno = ENOENT;
        body();
    });
    EXPECT_EQ(ended.status, 1);
    return ended.err;
}

}  // namespace

TEST(Pfput, StoresTextsUnderKeysAndFreesWhatTheyReplace)
{
    const PfPtr pf(pfnew(PFFILE));
    pfput_string(pf.get(), "s", "one");
    pfput_string(pf.get(), "s", "two");
    pfput_int(pf.get(), "i", -5);
    pfput_int(pf.get(), "l", 9223372036854775807L);
    pfput_double(pf.get(), "d", 1.5e12);
    pfput_boolean(pf.get(), "no", 0);
    pfput_boolean(pf.get(), "yes", -1);
    EXPECT_EQ(tree_text(pf.get()),
              "{d: \"1.5e12\", i: \"-5\", l: \"9223372036854775807\", no: \"False\", "
              "s: \"two\", yes: \"True\"}");
}

TEST(Pfput, StoresATimeSoThatItReadsBack)
{
    const PfPtr pf(pfnew(PFFILE));
    for (const double time : {1201869015.5, 0.0, -86400.25}) {
        pfput_time(pf.get(), "t", time);
        EXPECT_EQ(pfget_time(pf.get(), "t"), time) << tree_text(pf.get());
    }
    pfput_time(pf.get(), "t", 1201869015.5);
    EXPECT_EQ(tree_text(pf.get()),
              "{t: \"1201869015.500 (032) 2008-02-01  12:30:15.500 UTC Friday\"}");
}

TEST(Pfput, StoresTextsAtTheIndexesOfAList)
{
    const PfPtr list(pfnew(PFTBL));
    pfput_string(list.get(), pfindex(0), "a");
    pfput_string(list.get(), pfindex(2), "c");
    pfput_string(list.get(), pfindex(0), "b");
    EXPECT_EQ(tree_text(list.get()), "[\"b\" <none> \"c\"]");
}

TEST(Pfput, CopiesListsAndArraysOfStrings)
{
    const PfPtr pf(pfnew(PFFILE));
    const TblPtr list(strtbl("a", "b", nullptr));
    const ArrPtr array(newarr(nullptr));
    char value[] = "v";
    setarr(array.get(), "k", value);
    pfput_tbl(pf.get(), "list", list.get());
    pfput_arr(pf.get(), "array", array.get());
    EXPECT_EQ(tree_text(pf.get()), "{array: {k: \"v\"}, list: [\"a\" \"b\"]}");
}

TEST(Pfput, ANullStringOfAListStaysANullValue)
{
    const PfPtr pf(pfnew(PFFILE));
    const TblPtr list(newtbl(0));
    pushtbl(list.get(), nullptr);
    pfput_tbl(pf.get(), "list", list.get());
    Pf *node = nullptr;
    ASSERT_EQ(pfresolve(pf.get(), "list[0]", 0, &node), PFSTRING);
    EXPECT_EQ(node->value.s, nullptr);
}

TEST(Pfput, TakesOverListsArraysFunctionsAndTrees)
{
    const PfPtr pf(pfnew(PFFILE));
    Tbl *list = newtbl(0);
    Pf *element = pfnew(PFSTRING);
    element->value.s = strdup("e");
    pushtbl(list, element);
    Arr *array = newarr(nullptr);
    Pf *tree = parse("x 1\n").release();
    pfput(pf.get(), "t", list, PFTBL);
    pfput(pf.get(), "r", array, PFARR);
    pfput(pf.get(), "f", const_cast<char *>("&env(X)\n"), PFFUNCTION);
    pfput(pf.get(), "g", tree, PFGRAFT);
    EXPECT_EQ(tree_text(pf.get()), "{f: &\"&env(X)\n\", g: {x: \"1\"}, r: {}, t: [\"e\"]}");
    EXPECT_EQ(tree->type, PFARR);
}

TEST(Pfput, ATreeMayBePutWhereItStandsAlready)
{
    const PfPtr pf(pfnew(PFFILE));
    Pf *tree = parse("x 1\n").release();
    pfput(pf.get(), "g", tree, PFGRAFT);
    pfput(pf.get(), "g", tree, PFGRAFT);
    EXPECT_EQ(tree_text(pf.get()), "{g: {x: \"1\"}}");
}

TEST(Pfput, ATreeThatIsPutIntoAnotherIsNotUpdatedAnyMore)
{
    const PfPath path;
    path.site("prog.pf", "x 1\n");
    const PfPtr pf(pfnew(PFFILE));
    Pf *tree = nullptr;
    EXPECT_EQ(pfupdate("prog", &tree), 1);
    pfput(pf.get(), "g", std::exchange(tree, nullptr), PFGRAFT);
    EXPECT_EQ(pfupdate("prog", &tree), 1);
    const PfPtr anew(tree);
    pfput_string(tree, "x", "2");
    EXPECT_EQ(tree_text(pf.get()), "{g: {x: \"1\"}}");
}

TEST(Pfput, NothingIsPutAsAnEmptyOne)
{
    const PfPtr pf(pfnew(PFFILE));
    pfput(pf.get(), "a", nullptr, PFARR);
    pfput(pf.get(), "f", nullptr, PFFILE);
    pfput(pf.get(), "t", nullptr, PFTBL);
    pfput_arr(pf.get(), "pa", nullptr);
    pfput_tbl(pf.get(), "pt", nullptr);
    EXPECT_EQ(tree_text(pf.get()), "{a: {}, f: {}, pa: {}, pt: [], t: []}");
    Pf *node = nullptr;
    EXPECT_EQ(pfresolve(pf.get(), "f", 0, &node), PFFILE);
    EXPECT_EQ(pfresolve(pf.get(), "a", 0, &node), PFARR);
}

TEST(Pfput, AReferenceInAPutValueSeesItsNewSurroundings)
{
    const PfPtr pf = parse("home /u\n");
    Pf *tree = parse("x &home/y\n").release();
    pfput_string(pf.get(), "direct", "&home/x");
    pfput(pf.get(), "g", tree, PFGRAFT);
    EXPECT_STREQ(pfget_string(pf.get(), "direct"), "/u/x");
    EXPECT_STREQ(pfget_string(pf.get(), "g{x}"), "/u/y");
}

TEST(Pfput, ReferencesInATakenOverListOrArraySeeTheirNewSurroundings)
{
    const PfPtr pf = parse("home /u\n");
    const auto reference = [] {
        Pf *node = pfnew(PFSTRING);
        node->value.s = strdup("&home/z");
        return node;
    };
    Tbl *list = newtbl(0);
    pushtbl(list, reference());
    Arr *array = newarr(nullptr);
    setarr(array, "x", reference());
    pfput(pf.get(), "t", list, PFTBL);
    pfput(pf.get(), "a", array, PFARR);
    EXPECT_STREQ(pfget_string(pf.get(), "t[0]"), "/u/z");
    EXPECT_STREQ(pfget_string(pf.get(), "a{x}"), "/u/z");
}

TEST(Pfput, WithoutAKeyFreesTheValueAndChangesNothing)
{
    const PfPtr pf = parse("a 1\n");
    pfput_string(pf.get(), nullptr, "x");
    pfput(pf.get(), nullptr, parse("b 2\n").release(), PFGRAFT);
    EXPECT_EQ(tree_text(pf.get()), "{a: \"1\"}");
}

TEST(PfputDeathTest, RefusesABadTypeAndABadNode)
{
    for (const int type : std::initializer_list<int>{PFEXEC_ERROR, PFUNDEF, PFINVALID, PFANY, 9}) {
        const PfPtr pf(pfnew(PFFILE));
        EXPECT_EQ(last_words([&] { pfput(pf.get(), "k", nullptr, type); }),
                  "T: Bad type in pfput : " + std::to_string(type) + "\n");
    }
    const PfPtr text(pfnew(PFSTRING));
    for (Pf *pf : {text.get(), static_cast<Pf *>(nullptr)})
        EXPECT_EQ(last_words([&] { pfput_string(pf, "k", "v"); }), "T: Bad pf pointer in pfput.\n");
}

TEST(Pfset, MakesReplacesAndRefuses)
{
    const PfPtr pf = parse("a 1\nt &Arr{\n b 2\n}\n");
    EXPECT_EQ(pfset(pf.get(), "new{deep}[1]", "x"), 0);
    EXPECT_EQ(pfset(pf.get(), "a", "2"), 0);
    EXPECT_EQ(pfset(pf.get(), "t", "was a table"), 0);
    EXPECT_EQ(pfset(pf.get(), "a{b}", "x"), -1);
    EXPECT_EQ(pfset(pf.get(), "", "x"), -1);
    EXPECT_EQ(tree_text(pf.get()), "{a: \"2\", new: {deep: [<none> \"x\"]}, t: \"was a table\"}");
}

// The text used to be copied after the node that it stood in was freed.
TEST(Pfset, TheTextMayBeWhatTheAddressGives)
{
    const PfPtr pf = parse("home /u\nx &home/y\n");
    EXPECT_EQ(pfset(pf.get(), "x", pfget_string(pf.get(), "x")), 0);
    EXPECT_EQ(pfset(pf.get(), "x", pfget_string(pf.get(), "x")), 0);
    EXPECT_EQ(tree_text(pf.get()), "{home: \"/u\", x: \"/u/y\"}");
}

TEST(Pfset, OfAListReplacesAnElementAndMakesNone)
{
    const PfPtr list(pfnew(PFTBL));
    pfput_string(list.get(), pfindex(0), "a");
    EXPECT_EQ(pfset(list.get(), pfindex(0), "b"), 0);
    EXPECT_EQ(pfset(list.get(), pfindex(1), "c"), -1);
    EXPECT_EQ(pfset(nullptr, "a", "c"), -1);
    EXPECT_EQ(tree_text(list.get()), "[\"b\"]");
}

TEST(Pfset, ReplacesAFunctionAndNotItsResult)
{
    setenv("PF_SET", "old", 1);
    const PfPtr pf = parse("f &env(PF_SET)\n");
    EXPECT_STREQ(pfget_string(pf.get(), "f"), "old");
    EXPECT_EQ(pfset(pf.get(), "f", "new"), 0);
    EXPECT_EQ(tree_text(pf.get()), "{f: \"new\"}");
}

TEST(Pfdel, TakesAChildOut)
{
    const PfPtr pf = parse("a 1\nt &Tbl{\n x\n y\n}\n");
    const PfPtr a(pfdel(pf.get(), "a"));
    EXPECT_EQ(tree_text(a.get()), "\"1\"");
    EXPECT_EQ(a->parent, nullptr);
    EXPECT_EQ(pfdel(pf.get(), "a"), nullptr);
    Pf *list = nullptr;
    pfresolve(pf.get(), "t", 0, &list);
    const PfPtr x(pfdel(list, pfindex(0)));
    EXPECT_EQ(tree_text(x.get()), "\"x\"");
    EXPECT_EQ(tree_text(pf.get()), "{t: [\"y\"]}");
    EXPECT_EQ(pfdel(x.get(), "k"), nullptr);
    EXPECT_EQ(pfdel(nullptr, "k"), nullptr);
}

TEST(Pfvalue, GivesTheChildAsItStands)
{
    const PfPtr pf = parse("a 1\nt &Tbl{\n x\n}\nf &env(X)\n");
    Pf *node = nullptr;
    EXPECT_EQ(pfvalue(pf.get(), "a", &node), 1);
    Pf *text = node;
    EXPECT_EQ(pfvalue(pf.get(), "none", &node), 0);
    EXPECT_EQ(node, nullptr);
    EXPECT_EQ(pfvalue(text, "any", &node), 1);
    EXPECT_EQ(node, nullptr);
    EXPECT_EQ(pfvalue(pf.get(), "f", &node), 1);
    Pf *function = node;
    EXPECT_EQ(function->type, PFFUNCTION);
    EXPECT_EQ(pfvalue(function, "any", &node), 7);
    EXPECT_EQ(node, function);
    EXPECT_EQ(pfvalue(pf.get(), "t", &node), 1);
    Pf *list = node;
    EXPECT_EQ(pfvalue(list, pfindex(0), &node), 1);
    EXPECT_EQ(pfvalue(list, pfindex(1), &node), 0);
}

TEST(PfvalueDeathTest, RefusesANodeWithoutChildren)
{
    const PfPtr invalid(pfnew(PFINVALID));
    for (Pf *pf : {invalid.get(), static_cast<Pf *>(nullptr)}) {
        Pf *node = nullptr;
        EXPECT_EQ(last_words([&] { pfvalue(pf, "k", &node); }), "T: invalid pf type = 5\n");
    }
}

TEST(Pfadd, PutsPlaceholdersAndTurnsThemIntoContainers)
{
    const PfPtr pf(pfnew(PFFILE));
    EXPECT_EQ(pfadd_arr(pf.get(), "a"), 0);
    EXPECT_EQ(pfadd_arr(pf.get(), "t"), 0);
    Pf *node = nullptr;
    pfvalue(pf.get(), "a", &node);
    EXPECT_EQ(pfadd_arr(node, "k"), 0);
    EXPECT_EQ(pfadd_tbl(node, 0), -1);
    pfvalue(pf.get(), "t", &node);
    EXPECT_EQ(pfadd_tbl(node, 1), 0);
    EXPECT_EQ(pfadd_arr(node, "k"), -1);
    EXPECT_EQ(pfadd_tbl(pf.get(), 0), -1);
    EXPECT_EQ(pfadd_arr(nullptr, "k"), -1);
    EXPECT_EQ(pfadd_arr(pf.get(), nullptr), -1);
    EXPECT_EQ(pfadd_tbl(nullptr, 0), -1);
    EXPECT_EQ(tree_text(pf.get()), "{a: {k: <6>}, t: [<none> <6>]}");
    pfset(pf.get(), "a{k}", "");  // a placeholder that is freed complains
    pfset(pf.get(), "t[1]", "");
}
