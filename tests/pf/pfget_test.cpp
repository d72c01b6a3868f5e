// Reading values: types, conversions, what is missing and what is wrong.

#include <cerrno>
#include <climits>
#include <cmath>
#include <string>

#include <gtest/gtest.h>

#include "stock.h"
#include "support/child.h"
#include "support/pf_files.h"

namespace {

PfPtr parse(const char *text)
{
    Pf *pf = nullptr;
    EXPECT_EQ(pfcompile(text, &pf), 0);
    pf->filename = "prog.pf";
    return PfPtr(pf);
}

// The standard error of the body, which must end the process with the status. An expectation
// that fails in the body fails here.
std::string says(int status, const std::function<void()> &body)
{
    const Ended ended = in_child([&] {
        elog_set(ELOG_TAG_FIELD, -1, "T");
        body();
        exit(testing::Test::HasFailure() ? 9 : 0);
    });
    EXPECT_EQ(ended.status, status) << ended.out;
    return ended.err;
}

Pf *stand_in = nullptr;
std::string asked;

void note_and_return(Pf *, const char *address, int expected, int got, Pf **result)
{
    asked = std::string(address) + " " + std::to_string(expected) + " " + std::to_string(got);
    if (stand_in)
        *result = stand_in;
}

}  // namespace

TEST(Pfget, GivesTextsExpandedAndNodesAsTheyAre)
{
    setenv("PF_GET", "value", 1);
    const PfPtr pf = parse("home /u\nx &home/y\nt &Tbl{\n a\n b\n}\nf &env(PF_GET)\nu &undef()\n");
    void *value = nullptr;
    EXPECT_EQ(pfget(pf.get(), "x", &value), PFSTRING);
    EXPECT_STREQ(static_cast<char *>(value), "/u/y");
    EXPECT_EQ(pfget(pf.get(), "f", &value), PFSTRING);
    EXPECT_STREQ(static_cast<char *>(value), "value");
    EXPECT_EQ(pfget(pf.get(), "u", &value), PFINVALID);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(pfget(pf.get(), "none", &value), PFINVALID);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(pfget(pf.get(), "t", &value), PFTBL);
    Pf *list = static_cast<Pf *>(value);
    EXPECT_EQ(pfget(list, pfindex(1), &value), PFSTRING);
    EXPECT_STREQ(static_cast<char *>(value), "b");
    EXPECT_EQ(pfget(list, pfindex(2), &value), PFINVALID);
    EXPECT_EQ(pfget(pf.get(), "t{a}", &value), PFINVALID) << "a key is no address";
}

TEST(Pfget, OfATextOrFunctionIsTheNodeItself)
{
    const PfPtr text(pfnew(PFSTRING));
    text->value.s = strdup("s");
    void *value = nullptr;
    EXPECT_EQ(pfget(text.get(), "any", &value), PFSTRING);
    EXPECT_STREQ(static_cast<char *>(value), "s");
    setenv("PF_GET", "value", 1);
    const PfPtr pf = parse("f &env(PF_GET)\n");
    Pf *function = nullptr;
    pfvalue(pf.get(), "f", &function);
    EXPECT_EQ(pfget(function, "any", &value), PFSTRING);
    EXPECT_STREQ(static_cast<char *>(value), "value");
}

TEST(Pfget, APlaceholderIsNotFound)
{
    const PfPtr pf = parse("a 1\n");
    pfadd_arr(pf.get(), "p");
    void *value = nullptr;
    EXPECT_EQ(pfget(pf.get(), "p", &value), PFINVALID);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(pfget(pf.get(), nullptr, &value), PFINVALID);
    pfset(pf.get(), "p", "");
}

TEST(Pfget, ComplainsOfANodeThatHasNoChildren)
{
    EXPECT_NE(says(0,
                   [] {
                       void *value = nullptr;
                       const PfPtr pf(pfnew(PFINVALID));
                       EXPECT_EQ(pfget(pf.get(), "k", &value), PFINVALID);
                   })
                  .find("T: *stack* unrecognized pf type 5 in pfget\n"),
              std::string::npos);
}

TEST(Pfeval, GivesTextsAndMinusOneForTheRest)
{
    const PfPtr pf = parse("a &Arr{\n b 1\n}\nx &exec(echo out; exit 1)\n");
    char *value = nullptr;
    EXPECT_EQ(pfeval(pf.get(), "a{b}", &value), 0);
    EXPECT_STREQ(value, "1");
    EXPECT_EQ(pfeval(pf.get(), "a", &value), -1);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(pfeval(pf.get(), "none", &value), -1);
    EXPECT_EQ(pfeval(pf.get(), "", &value), 0);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(pfeval(pf.get(), "x", &value), -1) << "a command that failed";
    EXPECT_EQ(value, nullptr);
}

TEST(PfgetTyped, ConvertsByType)
{
    const PfPtr pf = parse("h 0x10\no 010\nn -7 \nd 1.5e3\ni inf\nt2 a{b}\nyes Ok\nno Off\n"
                           "k 4k\nM 2M\nG 1.5G\nm 5m\nu 7u\nK 3K\nt 2008-02-01 12:30:15\n");
    EXPECT_EQ(pfget_int(pf.get(), "h"), 16);
    EXPECT_EQ(pfget_int(pf.get(), "o"), 8);
    EXPECT_EQ(pfget_int(pf.get(), "n"), -7);
    EXPECT_EQ(pfget_double(pf.get(), "d"), 1500);
    EXPECT_EQ(pfget_double(pf.get(), "i"), INFINITY);
    EXPECT_STREQ(pfget_string(pf.get(), "t2"), "a{b}");
    EXPECT_EQ(pfget_boolean(pf.get(), "yes"), -1);
    EXPECT_EQ(pfget_boolean(pf.get(), "no"), 0);
    EXPECT_EQ(pfget_size(pf.get(), "k"), 4000);
    EXPECT_EQ(pfget_size(pf.get(), "M"), 2e6);
    EXPECT_EQ(pfget_size(pf.get(), "G"), 1.5e9);
    EXPECT_EQ(pfget_size(pf.get(), "m"), 5 * 0.001);
    EXPECT_EQ(pfget_size(pf.get(), "u"), 7 * 1e-6);
    EXPECT_EQ(pfget_size(pf.get(), "K"), 3);
    EXPECT_EQ(pfget_time(pf.get(), "t"), 1201869015);
}

TEST(PfgetTyped, BadTextIsComplainedAboutAndConvertedAllTheSame)
{
    const PfPtr pf = parse("i 12abc\nd 1.5x\nb maybe\nt never\ne\n");
    EXPECT_EQ(says(0,
                   [&] {
                       EXPECT_EQ(pfget_int(pf.get(), "i"), 12);
                       EXPECT_EQ(pfget_double(pf.get(), "d"), 1.5);
                       EXPECT_EQ(pfget_boolean(pf.get(), "b"), 0);
                       pfget_time(pf.get(), "t");
                       EXPECT_EQ(pfget_int(pf.get(), "e"), 0);
                       EXPECT_EQ(pfget_double(pf.get(), "e"), 0);
                   }),
              "T: Bad integer value '12abc' for i\n"
              "T: Bad floating point value '1.5x' for d\n"
              "T: Bad boolean value 'maybe' for b\n"
              "T: Bad time value 'never' for t\n"
              "T: Bad integer value '' for e\n"
              "T: Bad floating point value '' for e\n");
}

// A reason that an earlier call left in errno is not part of the message.
TEST(PfgetTyped, ComplaintsTellNoReasonOfTheSystem)
{
    const PfPtr pf = parse("i 12abc\nd 1.5x\nb maybe\nt never\n");
    const auto with_stale_errno = [](const std::function<void()> &body) {
        return says(0, [&] {
            errno = EACCES;
            body();
        });
    };
    EXPECT_EQ(with_stale_errno([&] { pfget_int(pf.get(), "i"); }),
              "T: Bad integer value '12abc' for i\n");
    EXPECT_EQ(with_stale_errno([&] { pfget_double(pf.get(), "d"); }),
              "T: Bad floating point value '1.5x' for d\n");
    EXPECT_EQ(with_stale_errno([&] { pfget_boolean(pf.get(), "b"); }),
              "T: Bad boolean value 'maybe' for b\n");
    EXPECT_EQ(with_stale_errno([&] { pfget_time(pf.get(), "t"); }),
              "T: Bad time value 'never' for t\n");
    EXPECT_EQ(with_stale_errno([&] {
                  const PfPtr other(pfnew(PFUNDEF));
                  pfget(other.get(), "k", nullptr);
                  other->type = PFSTRING;
              }).substr(0, 50),
              std::string("T: *stack* unrecognized pf type 4 in pfget\n\n\nStack\n").substr(0, 50));
    const PfPath path;
    path.site("prog.pf", "a 1\n");
    EXPECT_EQ(with_stale_errno([&] {
                  pfprint("prog", "b");
                  errno = EACCES;
                  pfconfig("nothing", nullptr);
                  elog_flush(1, 0);
              }),
              "T: no entry 'b' in parameter file prog\n"
              "T: pfconfig: unrecognized code 'nothing'\n");
}

TEST(PfgetDeathTest, DyingTellsNoReasonOfTheSystem)
{
    const PfPtr pf = parse("t &Tbl{\n}\n");
    Pf *list = nullptr;
    pfresolve(pf.get(), "t", 0, &list);
    const struct {
        std::function<void()> getter;
        const char *message;
    } cases[] = {
        {[&] { pfget_int(pf.get(), "none"); },
         "T: program needs value for 'none', not found in parameter file 'prog.pf'\n"},
        {[&] { pfget_int(pf.get(), "t"); },
         "T: wrong parameter type for 't' : expected scalar but got table in 'prog.pf'\n"},
        {[&] { pfget_int(list, pfindex(0)); },
         "T: wrong parameter type for #0 : expected scalar but got invalid in ''\n"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(says(1,
                       [&] {
                           errno = EACCES;
                           c.getter();
                       }),
                  c.message);
}

// The index used to be read as the address of a text.
TEST(PfgetTyped, BadTextInAListIsComplainedAboutWithItsIndex)
{
    const PfPtr pf = parse("t &Tbl{\n x\n 12abc\n}\n");
    Pf *list = nullptr;
    pfresolve(pf.get(), "t", 0, &list);
    EXPECT_EQ(says(0,
                   [&] {
                       EXPECT_EQ(pfget_int(list, pfindex(1)), 12);
                       EXPECT_EQ(pfget_double(list, pfindex(1)), 12);
                       EXPECT_EQ(pfget_boolean(list, pfindex(0)), 0);
                       pfget_time(list, pfindex(0));
                   }),
              "T: Bad integer value '12abc' for #1\n"
              "T: Bad floating point value '12abc' for #1\n"
              "T: Bad boolean value 'x' for #0\n"
              "T: Bad time value 'x' for #0\n");
}

TEST(PfgetTyped, WhiteSpaceMayFollowANumber)
{
    const PfPtr pf = parse("i &Literal{\n 12 \t\n}\nd &Literal{\n1.5 \n}\n");
    EXPECT_EQ(says(0,
                   [&] {
                       EXPECT_EQ(pfget_int(pf.get(), "i"), 12);
                       EXPECT_EQ(pfget_double(pf.get(), "d"), 1.5);
                   }),
              "");
}

TEST(PfgetTyped, AWholeNumberThatNoLongHoldsIsTheLargestOrSmallestOne)
{
    const PfPtr pf = parse("large 99999999999999999999\nsmall -99999999999999999999\n"
                           "most 9223372036854775807\n");
    EXPECT_EQ(says(0,
                   [&] {
                       EXPECT_EQ(pfget_int(pf.get(), "large"), LONG_MAX);
                       EXPECT_EQ(pfget_int(pf.get(), "small"), LONG_MIN);
                       EXPECT_EQ(pfget_int(pf.get(), "most"), LONG_MAX);
                   }),
              "");
}

TEST(PfgetTyped, AMissingTextOrBooleanIsSilent)
{
    const PfPtr pf = parse("a 1\n");
    EXPECT_EQ(says(0,
                   [&] {
                       EXPECT_EQ(pfget_string(pf.get(), "none"), nullptr);
                       EXPECT_EQ(pfget_boolean(pf.get(), "none"), 0);
                       EXPECT_EQ(pfget_tbl(pf.get(), "none"), nullptr);
                       EXPECT_EQ(pfget_arr(pf.get(), "none"), nullptr);
                   }),
              "");
}

TEST(PfgetDeathTest, AMissingNumberEndsTheProcess)
{
    const PfPtr pf = parse("a 1\np &Arr{\n}\n");
    const std::function<void()> getters[] = {
        [&] { pfget_double(pf.get(), "none"); },
        [&] { pfget_int(pf.get(), "none"); },
        [&] { pfget_time(pf.get(), "none"); },
        [&] { pfget_size(pf.get(), "none"); },
    };
    for (const auto &getter : getters)
        EXPECT_EQ(says(1, getter), "T: program needs value for 'none', not found in parameter "
                                   "file 'prog.pf'\n");
}

TEST(PfgetDeathTest, AReferenceThatLeadsNowhereIsAMissingValue)
{
    const PfPtr pf = parse("r &ref(,x)\nt &Arr{\n}\n");
    EXPECT_EQ(says(1, [&] { pfget_string(pf.get(), "r"); }),
              "T: program needs value for 'r', not found in parameter file 'prog.pf'\n");
    Pf *table = nullptr;
    pfresolve(pf.get(), "t", 0, &table);
    EXPECT_EQ(says(1, [&] { pfget_int(table, "k"); }),
              "T: program needs value for 'k', not found in parameter file ''\n");
}

TEST(PfdieDeathTest, NamesTheTypes)
{
    const PfPtr pf = parse("a 1\n");
    const struct {
        int expected, got;
        const char *names;
    } cases[] = {
        {PFFILE, PFTBL, "scalar but got table"},
        {PFSTRING, PFARR, "scalar but got array"},
        {PFUNDEF, PFANY, "undefined but got pf-function"},
        {PFINVALID, PFFUNCTION, "invalid but got pf-function"},
        {PFGRAFT, PFEXEC_ERROR, "pf-function but got scalar"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(says(1, [&] { _pfdie(pf.get(), "k", c.expected, c.got, nullptr); }),
                  std::string("T: wrong parameter type for 'k' : expected ") + c.names +
                      " in 'prog.pf'\n");
}

TEST(PfgetDeathTest, AValueOfATextOrFunctionIsMissing)
{
    const PfPtr text(pfnew(PFSTRING));
    EXPECT_EQ(says(1, [&] { pfget_int(text.get(), "k"); }),
              "T: program needs value for 'k', not found in parameter file ''\n");
    const PfPtr function(pfnew(PFFUNCTION));
    EXPECT_EQ(says(1, [&] { _pfdie(function.get(), "k", PFSTRING, PFINVALID, nullptr); }),
              "T: program needs value for 'k', not found in parameter file ''\n");
}

TEST(PfgetDeathTest, APlaceholderIsMissing)
{
    const PfPtr pf = parse("a 1\n");
    pfadd_arr(pf.get(), "p");
    EXPECT_EQ(says(1, [&] { pfget_int(pf.get(), "p"); }),
              "T: program needs value for 'p', not found in parameter file 'prog.pf'\n");
    pfset(pf.get(), "p", "");
}

TEST(PfgetDeathTest, AWrongTypeEndsTheProcess)
{
    const PfPtr pf = parse("s 1\nt &Tbl{\n}\na &Arr{\n}\nx &exec(exit 1)\n");
    const struct {
        std::function<void()> getter;
        const char *message;
    } cases[] = {
        {[&] { pfget_string(pf.get(), "t"); }, "'t' : expected scalar but got table"},
        {[&] { pfget_int(pf.get(), "a"); }, "'a' : expected scalar but got array"},
        {[&] { pfget_boolean(pf.get(), "a"); }, "'a' : expected scalar but got array"},
        {[&] { pfget_tbl(pf.get(), "s"); }, "'s' : expected table but got scalar"},
        {[&] { pfget_arr(pf.get(), "t"); }, "'t' : expected array but got table"},
        {[&] { pfget_string(pf.get(), "x"); }, "'x' : expected scalar but got scalar"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(says(1, c.getter),
                  std::string("T: wrong parameter type for ") + c.message + " in 'prog.pf'\n");
}

TEST(PfgetDeathTest, InAListOnlyAMissingElementEndsTheProcess)
{
    const PfPtr pf = parse("t &Tbl{\n &Arr{\n }\n}\n");
    Pf *list = nullptr;
    pfresolve(pf.get(), "t", 0, &list);
    EXPECT_EQ(says(0, [&] { EXPECT_EQ(pfget_int(list, pfindex(0)), 0); }), "");
    EXPECT_EQ(says(1, [&] { pfget_int(list, pfindex(7)); }),
              "T: wrong parameter type for #7 : expected scalar but got invalid in ''\n");
}

TEST(PfgetTyped, ADieFunctionMayReturnAValueOrNone)
{
    const PfPtr pf = parse("t &Tbl{\n}\n");
    const PfPtr nine(pfnew(PFSTRING));
    nine->value.s = strdup("9");
    pfconfig("die", reinterpret_cast<void *>(note_and_return));
    EXPECT_EQ(pfget_int(pf.get(), "none"), 0);
    EXPECT_EQ(asked, "none 1 5");
    EXPECT_EQ(pfget_time(pf.get(), "none"), 0);
    EXPECT_EQ(pfget_double(pf.get(), "none"), 0);
    EXPECT_EQ(pfget_size(pf.get(), "none"), 0);
    EXPECT_EQ(pfget_boolean(pf.get(), "t"), 0);
    EXPECT_EQ(asked, "t 1 2");
    EXPECT_EQ(pfget_string(pf.get(), "t"), nullptr);
    EXPECT_EQ(asked, "t 1 2");
    EXPECT_EQ(pfget_arr(pf.get(), "t"), nullptr);
    EXPECT_EQ(asked, "t 3 2");
    stand_in = nine.get();
    EXPECT_EQ(pfget_int(pf.get(), "none"), 9);
    EXPECT_EQ(pfget_double(pf.get(), "t"), 9);
    pfconfig("die", nullptr);
}

TEST(PfgetTyped, ListsAndArraysOfValues)
{
    const PfPtr pf = parse("home /u\nt &Tbl{\n &home\n &Arr{\n }\n}\n"
                           "a &Arr{\n x &home\n y &Tbl{\n }\n}\n");
    const TblPtr list(pfget_tbl(pf.get(), "t"));
    ASSERT_EQ(list->count, 2);
    EXPECT_STREQ(static_cast<char *>(gettbl(list.get(), 0)), "/u");
    EXPECT_EQ(static_cast<Pf *>(gettbl(list.get(), 1))->type, PFARR);
    const ArrPtr array(pfget_arr(pf.get(), "a"));
    EXPECT_EQ(cntarr(array.get()), 1);
    EXPECT_STREQ(static_cast<char *>(getarr(array.get(), "x")), "/u");
    const ArrPtr top(pfget_arr(pf.get(), ""));
    EXPECT_EQ(cntarr(top.get()), 1);
    EXPECT_STREQ(static_cast<char *>(getarr(top.get(), "home")), "/u");
}

// Reading the later value used to free the text of the earlier one.
TEST(PfgetTyped, ValuesOfAnArrayMayReferToEachOther)
{
    setenv("PF_GET", "value", 1);
    const PfPtr pf = parse("home /u\na &Arr{\n b &home\n c &env(PF_GET)\n d &b&c\n"
                           " e &undef()\n}\n");
    const ArrPtr array(pfget_arr(pf.get(), "a"));
    EXPECT_EQ(cntarr(array.get()), 3);
    EXPECT_STREQ(static_cast<char *>(getarr(array.get(), "b")), "/u");
    EXPECT_STREQ(static_cast<char *>(getarr(array.get(), "c")), "value");
    EXPECT_STREQ(static_cast<char *>(getarr(array.get(), "d")), "/uvalue");
}

TEST(PfgetTyped, HolesAndNullTextsNeverCrash)
{
    const PfPtr pf(pfnew(PFFILE));
    Pf *node = nullptr;
    pfresolve(pf.get(), "t[2]", 1, &node);
    pfset(pf.get(), "t[2]", "last");
    const TblPtr nulls(newtbl(0));
    pushtbl(nulls.get(), nullptr);
    pfput_tbl(pf.get(), "n", nulls.get());
    const TblPtr list(pfget_tbl(pf.get(), "t"));
    EXPECT_EQ(list->count, 3);
    EXPECT_EQ(gettbl(list.get(), 0), nullptr);
    const TblPtr empty(pfget_tbl(pf.get(), "n"));
    EXPECT_EQ(gettbl(empty.get(), 0), nullptr);
    EXPECT_EQ(pfget_string(pf.get(), "n[0]"), nullptr);
    const Text text(pf2string(pf.get()));
    const PfPtr copy(pfdup(pf.get()));
    EXPECT_EQ(tree_text(copy.get()), tree_text(pf.get()));
}

TEST(Pf, CountsElementsAndListsKeys)
{
    const PfPtr pf = parse("b 1\na 2\nt &Tbl{\n x\n y\n}\n");
    const TblPtr keys(pfkeys(pf.get()));
    ASSERT_EQ(keys->count, 3);
    EXPECT_STREQ(static_cast<char *>(gettbl(keys.get(), 0)), "a");
    Pf *list = nullptr;
    pfresolve(pf.get(), "t", 0, &list);
    EXPECT_EQ(pfmaxtbl(list), 2);
    EXPECT_EQ(pfmaxtbl(pf.get()), 0);
    EXPECT_EQ(pfmaxtbl(nullptr), 0);
    EXPECT_EQ(pfkeys(list), nullptr);
    EXPECT_EQ(pfkeys(nullptr), nullptr);
}

TEST(Pfprint, PrintsTheTextAtAnAddress)
{
    const PfPath path;
    path.site("prog.pf", "home /u\na &Arr{\n b &home/y\n}\n");
    const Ended ended = in_child([] { pfprint("prog", "a{b}"); });
    EXPECT_EQ(ended.out, "/u/y\n");
    EXPECT_EQ(ended.err, "");
}

TEST(Pfprint, ComplainsWhenThereIsNothingToPrint)
{
    const PfPath path;
    path.site("prog.pf", "a 1\n");
    EXPECT_EQ(says(0, [] { pfprint("prog", "b"); }), "T: no entry 'b' in parameter file prog\n");
    EXPECT_EQ(says(0,
                   [] {
                       errno = EACCES;
                       pfprint("none", "b");
                   }),
              "T: Can't read parameter file none\n\tPermission denied\n");
    path.site("bad.pf", "a 1\n}\n");
    EXPECT_NE(says(0, [] { pfprint("bad", "a"); }).find("T: Can't read parameter file bad\n"),
              std::string::npos);
}

TEST(Pfconfig, RefusesAnUnknownCode)
{
    EXPECT_EQ(pfconfig("nothing", nullptr), -1);
    EXPECT_EQ(take_log(), "pfconfig: unrecognized code 'nothing'\n");
    EXPECT_EQ(pfconfig(nullptr, nullptr), -1);
    elog_clear();
}

TEST(Sz2dbl, ReadsFactorsInTheirCaseOnly)
{
    EXPECT_EQ(sz2dbl("4k"), 4000);
    EXPECT_EQ(sz2dbl("2M"), 2e6);
    EXPECT_EQ(sz2dbl("1G"), 1e9);
    EXPECT_EQ(sz2dbl("5m"), 0.005);
    EXPECT_EQ(sz2dbl("3K"), 3);
    EXPECT_EQ(sz2dbl("3g"), 3);
    EXPECT_EQ(sz2dbl("rubbish"), 0);
    EXPECT_EQ(sz2dbl("2MB"), 2);
    EXPECT_EQ(sz2dbl("2u"), 2e-6);
    EXPECT_EQ(sz2dbl(""), 0);
    EXPECT_EQ(sz2dbl(nullptr), 0);
    EXPECT_EQ(sz2dbl("k"), 0);
}

TEST(PfEval, KeepsANodeOfAnotherTypeWhenTheDieFunctionStoresNone)
{
    const PfPtr pf = parse("t &Tbl{\n &Arr{\n }\n}\n");
    Pf *list = nullptr;
    _pfeval(pf.get(), "t", &list, PFTBL);
    ASSERT_NE(list, nullptr);
    Pf *node = nullptr;
    _pfeval(list, pfindex(0), &node, PFSTRING);
    EXPECT_EQ(tree_text(node), "{}");
    stand_in = nullptr;
    pfconfig("die", reinterpret_cast<void *>(note_and_return));
    _pfeval(pf.get(), "t", &node, PFSTRING);
    EXPECT_EQ(node, list);
    _pfeval(pf.get(), "none", &node, PFSTRING);
    EXPECT_EQ(node, nullptr);
    stand_in = pf.get();
    _pfeval(pf.get(), "none", &node, PFSTRING);
    EXPECT_EQ(node, pf.get());
    pfconfig("die", nullptr);
}

TEST(PfEval, OfATableWithoutAnAddressIsTheTable)
{
    const PfPtr pf = parse("a &Arr{\n \"\" empty\n b 1\n}\n");
    Pf *table = nullptr;
    _pfeval(pf.get(), "a", &table, PFARR);
    for (const char *address : {"", static_cast<const char *>(nullptr)}) {
        Pf *node = nullptr;
        _pfeval(table, address, &node, PFARR);
        EXPECT_EQ(node, table);
        _pfeval(pf.get(), address, &node, PFFILE);
        EXPECT_EQ(node, pf.get());
    }
}

TEST(Pfget, GettersDoWithoutATree)
{
    EXPECT_EQ(says(0,
                   [] {
                       void *value = nullptr;
                       char *text = nullptr;
                       Pf *node = nullptr;
                       EXPECT_EQ(pfget(nullptr, "a", &value), PFINVALID);
                       EXPECT_EQ(pfeval(nullptr, "a", &text), -1);
                       _pfeval(nullptr, "a", &node, PFSTRING);
                       EXPECT_EQ(node, nullptr);
                       EXPECT_EQ(pfget_string(nullptr, "a"), nullptr);
                       EXPECT_EQ(pfget_int(nullptr, "a"), 0);
                       EXPECT_EQ(pfget_double(nullptr, "a"), 0);
                       EXPECT_EQ(pfget_time(nullptr, "a"), 0);
                       EXPECT_EQ(pfget_size(nullptr, "a"), 0);
                       EXPECT_EQ(pfget_boolean(nullptr, "a"), 0);
                       EXPECT_EQ(pfget_tbl(nullptr, "a"), nullptr);
                       EXPECT_EQ(pfget_arr(nullptr, "a"), nullptr);
                       _pfdie(nullptr, "a", PFSTRING, PFINVALID, nullptr);
                   }),
              "");
}

TEST(Pfget, GettersDoWithoutAPlaceForTheResult)
{
    const PfPtr pf = parse("a 1\nt &Tbl{\n x\n}\n");
    EXPECT_EQ(pfget(pf.get(), "a", nullptr), PFSTRING);
    EXPECT_EQ(pfget(pf.get(), "b", nullptr), PFINVALID);
    EXPECT_EQ(pfeval(pf.get(), "a", nullptr), 0);
    EXPECT_EQ(pfeval(pf.get(), "t", nullptr), -1);
    EXPECT_EQ(pfvalue(pf.get(), "a", nullptr), 1);
    EXPECT_EQ(pfvalue(pf.get(), "b", nullptr), 0);
    _pfeval(pf.get(), "a", nullptr, PFANY);
    EXPECT_EQ(says(1, [&] { _pfeval(pf.get(), "a", nullptr, PFTBL); }),
              "T: wrong parameter type for 'a' : expected table but got scalar in 'prog.pf'\n");
}
