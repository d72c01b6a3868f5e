// Addresses: keys, braces and brackets, steps that do not fit, and missing steps that are made.

#include <string>

#include <gtest/gtest.h>

#include "stock.h"
#include "support/child.h"
#include "support/pf_text.h"

namespace {

PfPtr parse(const char *text)
{
    Pf *pf = nullptr;
    EXPECT_EQ(pfcompile(text, &pf), 0);
    return PfPtr(pf);
}

// The node at an address as text, or the error code.
std::string resolve(Pf *pf, const char *address, int create = 0)
{
    Pf *node = nullptr;
    const int type = pfresolve(pf, address, create, &node);
    return node ? tree_text(node) : std::to_string(type);
}

const char *const kText = "a &Arr{\n b &Tbl{\n zero\n one\n two\n }\n c  x\n}\n"
                          "one two  3\nf &env(PF_RESOLVE)\n";

}  // namespace

TEST(Pfresolve, FollowsKeysBracesAndBrackets)
{
    const PfPtr pf = parse(kText);
    const struct {
        const char *address, *result;
    } cases[] = {
        {"a{b}[0]", "\"zero\""},
        {"a{b}[2]", "\"two\""},
        {"a{c}", "\"x\""},
        {"a{ c\t}", "\"x\""},
        {"{a}{c}", "\"x\""},
        {"{a}", "{b: [\"zero\" \"one\" \"two\"], c: \"x\"}"},
        {"a  ", "-31"},  // the blanks are part of the key
        {"a {c}", "-31"},
        {" a", "-31"},
        {"a{c} ", "\"x\""},
        {"  {a}", "{b: [\"zero\" \"one\" \"two\"], c: \"x\"}"},
        {"nokey", "-31"},
        {"a{nokey}", "-31"},
        {"a{b}[3]", "-31"},
        {"a{b}[-1]", "-31"},
        {"a[0]", "-32"},
        {"a{b}{c}", "-32"},
        {"a{c}{d}", "-32"},
        {"a{c}[0]", "-32"},
        {"a{c}d", "-31"},
        {"a{b}x", "-31"},
        {"a{b}[02]", "\"two\""},
        {"a{b}[08]", "-31"},
        {"a{b}[4294967296]", "-31"},
        {"a{}", "-31"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.address);
        EXPECT_EQ(resolve(pf.get(), c.address), c.result);
    }
}

TEST(Pfresolve, AKeyInBracesIsCutAt255Bytes)
{
    const std::string key(255, 'k');
    const PfPtr pf = parse(("a &Arr{\n" + key + " found\n}\n").c_str());
    EXPECT_EQ(resolve(pf.get(), ("a{" + key + "}").c_str()), "\"found\"");
    EXPECT_EQ(resolve(pf.get(), ("a{" + key + "more}").c_str()), "\"found\"");
}

TEST(Pfresolve, AKeyInBracesIsOfATableAndNotOfATop)
{
    const PfPtr pf(pfnew(PFFILE));
    pfput(pf.get(), "top", newarr(nullptr), PFFILE);
    EXPECT_EQ(resolve(pf.get(), "top{k}"), "-32");
    EXPECT_EQ(resolve(pf.get(), "top{k}", 1), "-32");
}

TEST(Pfresolve, ReturnsTheTypeOfTheNode)
{
    const PfPtr pf = parse(kText);
    Pf *node = nullptr;
    EXPECT_EQ(pfresolve(pf.get(), "a", 0, &node), PFARR);
    EXPECT_EQ(pfresolve(pf.get(), "a{b}", 0, &node), PFTBL);
    EXPECT_EQ(pfresolve(pf.get(), "a{c}", 0, &node), PFSTRING);
}

TEST(Pfresolve, AnAddressWithoutAComponentIsTheTreeItself)
{
    const PfPtr pf = parse(kText);
    for (const char *address : {"", "  ", static_cast<const char *>(nullptr)}) {
        Pf *node = nullptr;
        EXPECT_EQ(pfresolve(pf.get(), address, 0, &node), PFFILE);
        EXPECT_EQ(node, pf.get());
    }
}

TEST(Pfresolve, InAListTheAddressIsAnIndex)
{
    const PfPtr pf = parse(kText);
    Pf *list = nullptr;
    ASSERT_EQ(pfresolve(pf.get(), "a{b}", 0, &list), PFTBL);
    EXPECT_EQ(resolve(list, pfindex(1)), "\"one\"");
    EXPECT_EQ(resolve(list, pfindex(3)), "-32");
    EXPECT_EQ(resolve(list, pfindex(-1)), "-32");
}

TEST(Pfresolve, AFunctionIsEvaluatedButItsTypeIsReturned)
{
    setenv("PF_RESOLVE", "set", 1);
    const PfPtr pf = parse(kText);
    Pf *node = nullptr;
    EXPECT_EQ(pfresolve(pf.get(), "f", 0, &node), PFFUNCTION);
    EXPECT_EQ(tree_text(node), "\"set\"");
    EXPECT_EQ(resolve(pf.get(), "f{any}[2]"), "\"set\"");
}

TEST(Pfresolve, MakesWhatIsMissingAsPlaceholders)
{
    const PfPtr pf(pfnew(PFFILE));
    Pf *node = nullptr;
    EXPECT_EQ(pfresolve(pf.get(), "x{y}[3]", 1, &node), PFANY);
    EXPECT_EQ(tree_text(pf.get()), "{x: {y: [<none> <none> <none> <6>]}}");
    ASSERT_EQ(pfset(pf.get(), "x{y}[3]", "done"), 0);
    EXPECT_EQ(resolve(pf.get(), "x{y}[3]"), "\"done\"");
    EXPECT_EQ(take_log(), "");
}

TEST(Pfresolve, ANewElementAtMinusOneIsAppended)
{
    const PfPtr pf = parse("t &Tbl{\n a\n}\n");
    Pf *node = nullptr;
    EXPECT_EQ(pfresolve(pf.get(), "t[-1]", 1, &node), PFANY);
    EXPECT_EQ(pfset(pf.get(), "t[1]", "b"), 0);
    EXPECT_EQ(tree_text(pf.get()), "{t: [\"a\" \"b\"]}");
}

TEST(Pfresolve, ATextTakesNoNewSteps)
{
    const PfPtr pf = parse(kText);
    EXPECT_EQ(resolve(pf.get(), "a{c}{d}", 1), "-32");
    EXPECT_EQ(resolve(pf.get(), "a{c}d", 1), "-32");
    EXPECT_EQ(resolve(pf.get(), "a[0]", 1), "-32");
}

TEST(Pfresolve, StrayMarksAreShownAndSkipped)
{
    const Ended ended = in_child([] {
        const PfPtr pf = parse("a 1\nb 2\nt &Tbl{\n x\n}\n");
        resolve(pf.get(), "[a");
        resolve(pf.get(), "a]");
        resolve(pf.get(), "{a}");
        puts(resolve(pf.get(), "}a").c_str());
        resolve(pf.get(), "a[]");
        for (const char *address : {"a{b", "a{b]", "t[0]"})
            puts(resolve(pf.get(), address).c_str());
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "unmatched char '['\nunmatched char '['\n");
    EXPECT_EQ(ended.out, "]\"1\"\n]{-31\n{-31\n\"x\"\n");
}

TEST(Pfresolve, SurvivesAnyAddress)
{
    const PfPtr pf = parse(kText);
    const Ended ended = in_child([&] {
        for (const std::string &address :
             {std::string(100000, '{'), std::string(100000, 'x'),
              "a{" + std::string(5000, 'k') + "}", std::string("a{b}[99999999999999999999999]"),
              std::string("a{b}[-]"), std::string("a{b}[1"), std::string("}{][")})
            resolve(pf.get(), address.c_str());
    });
    EXPECT_EQ(ended.status, 0);
}

TEST(Pfresolve, ATreeThatIsNullHasNothing)
{
    for (const int create : {0, 1}) {
        Pf other{};
        Pf *node = &other;
        EXPECT_EQ(pfresolve(nullptr, "a", create, &node), -31);
        EXPECT_EQ(node, nullptr);
        EXPECT_EQ(pfresolve(nullptr, nullptr, create, nullptr), -31);
    }
}

TEST(Pfresolve, WithoutAPlaceForTheNodeGivesTheType)
{
    const PfPtr pf = parse(kText);
    EXPECT_EQ(pfresolve(pf.get(), "a{c}", 0, nullptr), PFSTRING);
    EXPECT_EQ(pfresolve(pf.get(), "f", 0, nullptr), PFFUNCTION);
    EXPECT_EQ(pfresolve(pf.get(), "none", 0, nullptr), -31);
}

TEST(Pfresolve, MakesNoTreeThatIsTooDeep)
{
    const PfPtr pf(pfnew(PFFILE));
    std::string address = "k";
    for (int i = 1; i < 1000; ++i)
        address += i % 2 ? "[0]" : "{k}";
    EXPECT_EQ(pfset(pf.get(), address.c_str(), "deepest"), 0);
    EXPECT_EQ(resolve(pf.get(), address.c_str()), "\"deepest\"");
    for (int i = 0; i < 100'000; ++i)
        address += "{k}";
    address.replace(0, 1, "other");
    EXPECT_EQ(pfset(pf.get(), address.c_str(), "x"), -1);
    EXPECT_EQ(take_log(), "pf tree is more than 1000 levels deep\n");
    Pf *node = nullptr;
    EXPECT_EQ(pfresolve(pf.get(), address.c_str(), 1, &node), -32);
    EXPECT_EQ(node, nullptr);
    elog_clear();
}
