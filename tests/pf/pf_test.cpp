// Nodes of a parameter tree: made, copied, shown and freed.

#include "stock/pf.h"

#include <cerrno>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <thread>

#include <strings.h>

#include <gtest/gtest.h>

#include "support/child.h"
#include "support/pf_text.h"

namespace {

std::string shown(const char *label, const Pf *pf)
{
    return in_child([=] { showpf(label, pf); }).err;
}

std::string address(const void *pointer)
{
    char text[40];
    snprintf(text, sizeof text, "%p", pointer);
    return text;
}

Pf *compiled(const char *text)
{
    Pf *pf = nullptr;
    EXPECT_EQ(pfcompile(text, &pf), 0);
    return pf;
}

Pf *text_node(int type, const char *text)
{
    Pf *pf = pfnew(type);
    pf->value.s = strdup(text);
    return pf;
}

}  // namespace

TEST(Pf, TheTypeCodesAreFixed)
{
    EXPECT_EQ(PFEXEC_ERROR, -1);
    EXPECT_EQ(PFFILE, 0);
    EXPECT_EQ(PFSTRING, 1);
    EXPECT_EQ(PFTBL, 2);
    EXPECT_EQ(PFARR, 3);
    EXPECT_EQ(PFUNDEF, 4);
    EXPECT_EQ(PFINVALID, 5);
    EXPECT_EQ(PFANY, 6);
    EXPECT_EQ(PFFUNCTION, 7);
    EXPECT_EQ(PFGRAFT, 8);
}

// ---- pfnew ----

TEST(Pfnew, GivesTablesAndListsAnEmptyContainer)
{
    for (const int type : {PFFILE, PFARR}) {
        const PfPtr pf(pfnew(type));
        EXPECT_EQ(pf->type, type);
        EXPECT_EQ(cntarr(pf->value.arr), 0);
    }
    const PfPtr list(pfnew(PFTBL));
    EXPECT_EQ(list->value.tbl->count, 0);
    EXPECT_FALSE(list->value.tbl->direct);
}

TEST(Pfnew, GivesAFunctionAnEmptyRecord)
{
    const PfPtr pf(pfnew(PFFUNCTION));
    EXPECT_EQ(pf->value.pffunct->text, nullptr);
    EXPECT_EQ(pf->value.pffunct->result, nullptr);
    EXPECT_EQ(pf->value.pffunct->hook, nullptr);
}

TEST(Pfnew, GivesEveryOtherTypeNothing)
{
    for (const int type : std::initializer_list<int>{PFEXEC_ERROR, PFSTRING, PFUNDEF, PFINVALID,
                                                     PFANY, PFGRAFT, 99}) {
        SCOPED_TRACE(type);
        Pf *pf = pfnew(type);
        EXPECT_EQ(pf->type, type);
        EXPECT_EQ(pf->value.s, nullptr);
        EXPECT_EQ(pf->parent, nullptr);
        EXPECT_EQ(pf->filename, nullptr);
        EXPECT_EQ(pf->filled_out, nullptr);
        pf->type = PFSTRING;
        pffree(pf);
    }
}

// ---- pffree ----

TEST(Pffree, IgnoresNull)
{
    pffree(nullptr);
}

TEST(Pffree, FreesAWholeTree)
{
    Pf *pf = nullptr;
    ASSERT_EQ(pfcompile("a 1\nb &Tbl{\nx\n&Arr{\nk &file(y)\n}\n}\n", &pf), 0);
    pf->filled_out = strdup("expanded");
    pffree(pf);
}

TEST(Pffree, FreesTheResultAndTheHookOfAFunction)
{
    Pf *pf = pfnew(PFFUNCTION);
    pf->value.pffunct->text = strdup("&f()\n");
    pf->value.pffunct->result = text_node(PFSTRING, "result");
    pf->value.pffunct->hook = new_hook(std::free);
    pf->value.pffunct->hook->pvt = strdup("file");
    pffree(pf);
}

TEST(Pffree, FreesTheTextOfAFailedCommandAndOfAnInvalidNode)
{
    pffree(text_node(PFEXEC_ERROR, "output"));
    pffree(text_node(PFINVALID, "why"));
    pffree(pfnew(PFINVALID));
}

TEST(Pffree, CopesWithContainersAndFunctionsWithoutARecord)
{
    for (const int type : {PFFILE, PFARR, PFTBL, PFFUNCTION}) {
        Pf *pf = pfnew(PFSTRING);
        pf->type = type;
        pffree(pf);
    }
}

TEST(Pffree, ComplainsOfTypesWithoutAValueAndFreesTheRest)
{
    for (const int type : std::initializer_list<int>{PFUNDEF, PFANY, PFGRAFT, 9, -2, 99}) {
        SCOPED_TRACE(type);
        const Ended ended = in_child([=] {
            Pf *pf = pfnew(type);
            pf->filled_out = strdup("expanded");
            errno = ENOENT;  // left by an earlier call: it is no part of the message
            pffree(pf);
        });
        EXPECT_EQ(ended.err, "pf_test: pffree: didn't free type " + std::to_string(type) + "\n");
        EXPECT_EQ(ended.status, 0);
    }
}

TEST(Pffree, LeavesTheValueOfSuchATypeAlone)
{
    char text[] = "not allocated";
    const Ended ended = in_child([&] {
        Pf *pf = pfnew(PFANY);
        pf->value.s = text;
        pffree(pf);
    });
    EXPECT_EQ(ended.status, 0);
}

// ---- pfdup ----

TEST(Pfdup, CopiesTablesListsAndTexts)
{
    Pf *pf = nullptr;
    ASSERT_EQ(pfcompile("b &Tbl{\nx\n&Arr{\nk\n}\n}\na 1\n", &pf), 0);
    const PfPtr owner(pf);
    const PfPtr copy(pfdup(pf));
    EXPECT_EQ(copy->type, PFFILE);
    EXPECT_EQ(tree_text(copy.get()), R"({a: "1", b: ["x" {k: ""}]})");
    const auto *text = static_cast<Pf *>(getarr(pf->value.arr, "a"));
    const auto *copied = static_cast<Pf *>(getarr(copy->value.arr, "a"));
    EXPECT_NE(copied, text);
    EXPECT_NE(copied->value.s, text->value.s);
}

TEST(Pfdup, DoesNotCopyParentFilenameAndExpansion)
{
    Pf *pf = nullptr;
    ASSERT_EQ(pfcompile("a 1\n", &pf), 0);
    const PfPtr owner(pf);
    pf->filename = "name";
    auto *text = static_cast<Pf *>(getarr(pf->value.arr, "a"));
    text->filled_out = strdup("expanded");
    const PfPtr copy(pfdup(pf));
    const auto *copied = static_cast<Pf *>(getarr(copy->value.arr, "a"));
    EXPECT_EQ(copy->filename, nullptr);
    EXPECT_EQ(copied->parent, nullptr);
    EXPECT_EQ(copied->filled_out, nullptr);
}

TEST(Pfdup, CopiesNothingOfAnInvalidNode)
{
    const PfPtr pf(text_node(PFINVALID, "why"));
    const PfPtr copy(pfdup(pf.get()));
    EXPECT_EQ(copy->type, PFINVALID);
    EXPECT_EQ(copy->value.s, nullptr);
}

TEST(Pfdup, TheTextOfACopiedFunctionIsTheBytesOfItsRecord)
{
    Pf *pf = nullptr;
    ASSERT_EQ(pfcompile("a &file(x)\n", &pf), 0);
    const PfPtr owner(pf);
    const auto *function = static_cast<Pf *>(getarr(pf->value.arr, "a"));
    const PfPtr copy(pfdup(function));
    const auto *bytes = reinterpret_cast<const char *>(function->value.pffunct);
    EXPECT_EQ(std::string(copy->value.pffunct->text),
              std::string(bytes, strnlen(bytes, sizeof(Pffunction))));
    EXPECT_EQ(copy->value.pffunct->result, nullptr);
    EXPECT_EQ(copy->value.pffunct->hook, nullptr);
}

TEST(Pfdup, TheTextOfACopiedFunctionWithoutATextIsEmpty)
{
    const PfPtr pf(pfnew(PFFUNCTION));
    const PfPtr copy(pfdup(pf.get()));
    EXPECT_STREQ(copy->value.pffunct->text, "");
}

TEST(Pfdup, CopesWithNullsWhereverTheyStand)
{
    EXPECT_EQ(pfdup(nullptr), nullptr);
    const PfPtr text(pfnew(PFSTRING));
    EXPECT_EQ(PfPtr(pfdup(text.get()))->value.s, nullptr);

    const PfPtr list(pfnew(PFTBL));
    settbl(list->value.tbl, 1, text_node(PFSTRING, "x"));
    EXPECT_EQ(tree_text(PfPtr(pfdup(list.get())).get()), R"([<none> "x"])");
}

TEST(Pfdup, EndsTheProcessOnEveryOtherType)
{
    for (const int type : std::initializer_list<int>{PFEXEC_ERROR, PFUNDEF, PFANY, PFGRAFT, 99}) {
        SCOPED_TRACE(type);
        const Ended ended = in_child([=] { pfdup(pfnew(type)); });
        EXPECT_EQ(ended.err, "pf_test *fatal*: Bad type in pfdup : " + std::to_string(type) + "\n");
        EXPECT_EQ(ended.status, 1);
    }
}

// ---- showpf ----

TEST(Showpf, ShowsATextWithItsAddress)
{
    const PfPtr pf(text_node(PFSTRING, "some text"));
    EXPECT_EQ(shown("label", pf.get()), "label pf=" + address(pf.get()) +
                                            "    leaf of pf: simple string\n"
                                            "    value=" +
                                            address(pf->value.s) + " (some text)\n\n");
}

TEST(Showpf, ShowsTheFileAndTheExpansionWhenTheyAreSet)
{
    const PfPtr pf(pfnew(PFINVALID));
    pf->filename = "x.pf";
    pf->filled_out = strdup("expanded");
    EXPECT_EQ(shown("label", pf.get()), "label pf=" + address(pf.get()) +
                                            "    invalid\n"
                                            "    filename=x.pf\n"
                                            "    filled_out=expanded\n\n");
}

TEST(Showpf, ShowsNull)
{
    EXPECT_EQ(shown("label", nullptr), "label pf=(nil)    pf=0\n\n");
}

TEST(Showpf, DescribesEachType)
{
    const struct {
        int type;
        const char *description;
    } cases[] = {
        {PFEXEC_ERROR, "PFEXEC_ERROR"},
        {PFFILE, "Top level of Pf -- otherwise same as PFARR"},
        {PFSTRING, "leaf of pf: simple string"},
        {PFTBL, "ordered Tbl{ list"},
        {PFARR, "Arr{ array"},
        {PFINVALID, "invalid"},
        {PFANY, "special value used internally in pfget"},
        {PFFUNCTION, "&function() : has to be evaluated"},
        {PFGRAFT, "argument to pfput to graft pf tree into another tree, sets PFFILE to PFARR"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.type);
        Pf *pf = pfnew(PFSTRING);
        pf->type = c.type;
        EXPECT_EQ(shown("x", pf), "x pf=" + address(pf) + "    " + c.description + "\n\n");
        pf->type = PFSTRING;
        pffree(pf);
    }
}

TEST(Showpf, DescribesNoUndefinedOrUnknownType)
{
    for (const int type : std::initializer_list<int>{PFUNDEF, 9, -2}) {
        SCOPED_TRACE(type);
        Pf *pf = pfnew(type);
        EXPECT_EQ(shown("x", pf), "x pf=" + address(pf) + "\n");
        pf->type = PFSTRING;
        pffree(pf);
    }
}

TEST(Showpf, ShowsTheRecordOfAContainerOrFunctionAsAString)
{
    Pf *pf = nullptr;
    ASSERT_EQ(pfcompile("a &f()\nb &Tbl{\nx\n}\n", &pf), 0);
    const PfPtr owner(pf);
    for (const Pf *node : {pf, static_cast<Pf *>(getarr(pf->value.arr, "a")),
                           static_cast<Pf *>(getarr(pf->value.arr, "b"))}) {
        const std::string text = shown("x", node);
        EXPECT_NE(text.find("    value=" + address(node->value.s) + " ("), text.npos);
        EXPECT_EQ(text.substr(text.size() - 3), ")\n\n");
    }
}

// ---- What a node owns is the program's to replace ----

TEST(PfOwns, ATextIsAStringOfItsOwn)
{
    const PfPtr tree(compiled("a 1\nb &Tbl{\nx\n}\n"));
    const PfPtr copy(pfdup(tree.get()));
    for (Pf *top : {tree.get(), copy.get()}) {
        pfput_string(top, "c", "2");
        pfset(top, "d", "3");
        for (const char *address : {"a", "b[0]", "c", "d"}) {
            Pf *node = nullptr;
            ASSERT_EQ(pfresolve(top, address, 0, &node), PFSTRING);
            free(node->value.s);
            node->value.s = strdup("other");
        }
        EXPECT_EQ(tree_text(top), R"({a: "other", b: ["other"], c: "other", d: "other"})");
    }
}

TEST(PfOwns, ANodeIsABlockOfItsOwn)
{
    const PfPtr tree(compiled("a 1\nb 2\n"));
    Pf *a = pfdel(tree.get(), "a");
    free(a->value.s);
    free(a);
    EXPECT_EQ(tree_text(tree.get()), R"({b: "2"})");
}

TEST(PfOwns, ANodeThatIsMadeByHandIsFreedWithItsTree)
{
    const auto made = [](int type) {
        auto *pf = static_cast<Pf *>(calloc(1, sizeof(Pf)));
        pf->type = type;
        return pf;
    };
    Pf *text = made(PFSTRING);
    text->value.s = strdup("12.5 mm");
    Pf *list = made(PFTBL);
    list->value.tbl = newtbl(0);
    pushtbl(list->value.tbl, text);
    text->parent = list;
    Pf *function = made(PFFUNCTION);
    function->value.pffunct = static_cast<Pffunction *>(calloc(1, sizeof(Pffunction)));
    function->value.pffunct->text = strdup("&env(HOME)\n");
    const PfPtr tree(compiled("a 1\n"));
    pfput(tree.get(), "north", list, PFGRAFT);
    setarr(tree->value.arr, "f", function);
    Pf *limit = nullptr;
    pfvalue(tree.get(), "a", &limit);
    limit->filled_out = strdup("expanded");
    EXPECT_EQ(pfmaxtbl(list), 1);
    EXPECT_STREQ(pfget_string(tree.get(), "north[0]"), "12.5 mm");
}

// ---- Values that were read together, and are freed one by one ----

TEST(PfParts, AValueOutlivesTheTreeItWasReadInto)
{
    PfPtr tree(compiled("a 1\nb 2\nlist &Tbl{\nx\ny\n}\n"));
    const PfPtr b(pfdel(tree.get(), "b"));
    Pf *list = nullptr;
    pfvalue(tree.get(), "list", &list);
    const PfPtr y(pfdel(list, pfindex(1)));
    tree.reset();
    EXPECT_STREQ(b->value.s, "2");
    EXPECT_STREQ(y->value.s, "y");
}

TEST(PfParts, AKeyStaysWhereItIsWhenItsValueIsReplaced)
{
    const PfPtr tree(compiled("a 1\nb 2\n"));
    Tbl *keys = pfkeys(tree.get());
    const char *a = static_cast<const char *>(gettbl(keys, 0));
    freetbl(keys, nullptr);
    pfput_string(tree.get(), "a", "other");
    EXPECT_STREQ(a, "a");
    EXPECT_EQ(rbfind("a", tree->value.arr), a);
    EXPECT_STREQ(pfget_string(tree.get(), "a"), "other");
}

TEST(PfParts, AKeyThatIsReadTwiceKeepsTheLaterValue)
{
    Pf *tree = compiled("a 1\nb 2\na 3\n");
    EXPECT_EQ(pfcompile("b 4\nb &Tbl{\n}\nb 5\n", &tree), 0);
    EXPECT_STREQ(pfget_string(tree, "a"), "3");
    EXPECT_STREQ(pfget_string(tree, "b"), "5");
    EXPECT_EQ(cntarr(tree->value.arr), 2);
    pffree(tree);
}

TEST(PfParts, TheKeyThatADeletionTakesOutIsTheCallers)
{
    const PfPtr tree(compiled("a 1\nb 2\n"));
    const Rbnode *removed = rbdelete("a", tree->value.arr);
    EXPECT_STREQ(static_cast<const char *>(removed->key), "a");
    pffree(static_cast<Pf *>(removed->value));
    free(removed->key);
    char own[] = "b";
    removed = rbinsert(own, nullptr, tree->value.arr);
    EXPECT_STREQ(static_cast<const char *>(removed->key), "b");
    pffree(static_cast<Pf *>(removed->value));
    free(removed->key);
    EXPECT_EQ(rbfind("b", tree->value.arr), own);
    rbdelete("b", tree->value.arr);
}

TEST(PfParts, ReadIntoATreeOfAnotherOrderTheyFollowIt)
{
    Pf *tree = pfnew(PFARR);
    freearr(tree->value.arr, nullptr);
    tree->value.arr = newarr([](const void *a, const void *b) {
        return strcasecmp(static_cast<const char *>(a), static_cast<const char *>(b));
    });
    EXPECT_EQ(pfcompile("Key 1\nkEY 2\n", &tree), 0);
    EXPECT_EQ(cntarr(tree->value.arr), 1);
    EXPECT_STREQ(static_cast<const char *>(rbfind("key", tree->value.arr)), "kEY");
    tree->value.arr->replace = 0;
    EXPECT_EQ(pfcompile("other 1\n", &tree), 0);
    EXPECT_EQ(cntarr(tree->value.arr), 2);
    pffree(tree);
}

TEST(PfParts, ALaterValueReplacesTheEarlierEvenInAnArrayThatKeepsTheFirst)
{
    Pf *tree = compiled("a 1\nb 1\nc 1\n");
    tree->value.arr->replace = 0;
    EXPECT_EQ(pfcompile("a 2\nb &Tbl{\nx\n}\n", &tree), 0);
    const PfPtr owner(tree);
    tree->value.arr->replace = 0;
    pfput_string(tree, "c", "2");
    EXPECT_EQ(tree_text(tree), R"({a: "2", b: ["x"], c: "2"})");
}

TEST(PfParts, TextsOfAllSizesAreKept)
{
    std::string text;
    for (size_t size = 0; size < 100'000; size = size * 3 / 2 + 1)
        text += "k" + std::to_string(size) + " " + std::string(size, 'x') + "\n";
    const PfPtr tree(compiled(text.c_str()));
    for (size_t size = 0; size < 100'000; size = size * 3 / 2 + 1)
        EXPECT_EQ(pfget_string(tree.get(), ("k" + std::to_string(size)).c_str()),
                  std::string(size, 'x'));
}

TEST(PfPartsThreads, FreeEachItsOwn)
{
    for (int round = 0; round < 20; ++round) {
        PfPtr tree(compiled("a 1\nb 2\nc 3\nd 4\n"));
        PfPtr taken[] = {PfPtr(pfdel(tree.get(), "a")), PfPtr(pfdel(tree.get(), "c"))};
        std::thread threads[] = {std::thread([&] { taken[0].reset(); }),
                                 std::thread([&] { taken[1].reset(); }),
                                 std::thread([&] { tree.reset(); })};
        for (std::thread &thread : threads)
            thread.join();
    }
}

// ---- Trees deeper than the stack ----

TEST(PfDepth, ATreeOfAnyDepthIsFreedAndCopied)
{
    Pf *inner = compiled("leaf x\n");
    for (int i = 0; i < 200'000; ++i) {
        Pf *outer = pfnew(i % 2 ? PFARR : PFTBL);
        pfput(outer, i % 2 ? "k" : pfindex(0), inner, PFGRAFT);
        inner = outer;
    }
    const PfPtr tree(inner);
    PfPtr copy(pfdup(tree.get()));
    int depth = 0;
    Pf *at = copy.get();
    for (Pf *next = nullptr; at->type != PFSTRING; at = next, ++depth)
        pfvalue(at, at->type == PFTBL ? pfindex(0) : depth < 200'000 ? "k" : "leaf", &next);
    EXPECT_EQ(depth, 200'001);
    EXPECT_STREQ(at->value.s, "x");
}

TEST(PfDepth, AHookThatFreesATreeIsNoTroubleToTheTreeThatIsFreed)
{
    Pf *tree = compiled("a &Arr{\nf &file(x)\nb &Tbl{\n1\n}\n}\nc &file(y)\n");
    Pf *c = nullptr;
    pfvalue(tree, "c", &c);
    free(c->value.pffunct->hook->pvt);
    c->value.pffunct->hook->pvt = compiled("d &Arr{\ne &Tbl{\n2\n}\n}\n");
    c->value.pffunct->hook->free_pvt = [](void *pvt) { pffree(static_cast<Pf *>(pvt)); };
    pffree(tree);
}
