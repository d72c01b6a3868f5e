// The messages of the parameter files when memory runs out.

#include <csignal>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stock.h"
#include "support/out_of_memory.h"
#include "support/pf_text.h"
#include "support/temp_dir.h"

namespace {

using testing::IsSupersetOf;

constexpr const char *kText = "a 1\n"
                              "b escaped\\#\n"
                              "c &file(x)\n"
                              "d &Tbl{\n&Arr{\nk v\n}\n}\n"
                              "e &Literal{\n x}\n";

// The first line of standard error when an allocation of at least so many bytes fails in the
// body, which must end with a fault of the scanner.
std::string fault_at(size_t bytes, const std::function<void()> &body)
{
    const Ended ended = in_child([&] {
        elog_init(0, nullptr);
        fail_allocations_from(bytes);
        body();
    });
    EXPECT_EQ(ended.signal, SIGABRT);
    return ended.err.substr(0, ended.err.find('\n'));
}

// Leaves the scanner a buffer, so that the next parse does not ask for one.
void warm_up()
{
    Pf *pf = nullptr;
    pfcompile_counted("", 0, &pf);
    pffree(pf);
}

PfPtr parsed(const std::string &text)
{
    Pf *pf = nullptr;
    EXPECT_EQ(pfcompile(text.c_str(), &pf), 0);
    return PfPtr(pf);
}

// A directory with the parameter file "prog", which PFPATH leads to.
class Prog {
public:
    Prog()
    {
        dir_.file("prog.pf", "a 1\n");
        setenv("PFPATH", dir_.path().c_str(), 1);
    }

private:
    TempDir dir_;
};

}  // namespace

TEST(PfOutOfMemory, ANodeNamesItselfAndItsFunction)
{
    EXPECT_EQ(said_by(0, [] { pfnew(PFSTRING); }),
              "oom_test *fatal*: " + message("pfnew", "pffree.cpp", "40", "pf"));
    EXPECT_EQ(said_by(1, [] { pfnew(PFFUNCTION); }),
              "oom_test *fatal*: " + message("pfnew", "pffree.cpp", "24", "pf->value.pffunct"));
}

TEST(PfOutOfMemory, AParseNamesWhatItCannotKeep)
{
    EXPECT_THAT(asked_for([] {
                    Pf *pf = nullptr;
                    return pfcompile(kText, &pf) == 0;
                }),
                IsSupersetOf({"pfnew: pf", "pfnew: pf->value.pffunct",
                              "PF_lex: pf->value.pffunct->text", "PF_lex: filename", "PF_lex: key",
                              "PF_lex: node", "fix_String_buf: String_buf"}));
}

TEST(PfOutOfMemory, TheScannersOwnBuffersAreFaults)
{
    const std::string text(300'000, 'x');
    const TempDir dir;
    const std::string path = dir.file("x.pf", "a " + text);
    const auto from_file = [&] {
        Pf *pf = nullptr;
        FILE *stream = fopen(path.c_str(), "r");
        pfinfd(fileno(stream), &pf);
    };
    EXPECT_EQ(fault_at(60'000, from_file),
              "oom_test *fault*: out of dynamic memory in PF_create_buffer()");
    EXPECT_EQ(fault_at(100'000, from_file),
              "oom_test *fault*: out of dynamic memory in yy_get_next_buffer()");
    EXPECT_EQ(fault_at(60'000,
                       [&] {
                           Pf *pf = nullptr;
                           pfcompile_counted(text.data(), 300'000, &pf);
                       }),
              "oom_test *fault*: out of dynamic memory in PF_scan_bytes()");
}

TEST(PfOutOfMemory, TheWritersNameTheirFunctions)
{
    const std::string fatal = "oom_test *fatal*: ";
    EXPECT_EQ(said_by(0, [] { pfescape_special_chars("abc"); }),
              fatal + message("pfescape_special_chars", "pfwrite.cpp", "7", "s"));
    EXPECT_EQ(said_by(0, [] { pfoutput_literal("abc", 2); }),
              fatal + message("pfoutput_literal", "pfwrite.cpp", "15", "s"));
    EXPECT_EQ(said_by(0, [] { str2pf("abc"); }),
              fatal + message("str2pf", "pfwrite.cpp", "4", "s"));
}

TEST(PfOutOfMemory, TheWritersNameTheSizesOfTheirBlocks)
{
    const std::string fatal = "oom_test *fatal*: ";
    EXPECT_EQ(said_by(0, [] { pfoutput_literal("{(]<'", 2); }),
              fatal + message("pfoutput_literal", "pfwrite.cpp", "41", "s"));
    const PfPtr pf = parsed("north 12 mm\n");
    EXPECT_EQ(said_by(0, [&] { pf2string(pf.get()); }),
              fatal + message("pfappend", "pfwrite.cpp", "1024", "vstk->s"));
    EXPECT_EQ(said_by(1, [&] { pf2string(pf.get()); }),
              fatal + message("pfout", "pfwrite.cpp", "352", "containers"));
    const PfPtr large = parsed("n " + std::string(2000, 'x') + "\n");
    EXPECT_EQ(said_by(2, [&] { pf2string(large.get()); }),
              fatal + message("pfappend", "pfwrite.cpp", "5028", "vstk->s"));
}

// An entry was left out of the copy, without a word, when there was no memory for its key.
TEST(PfOutOfMemory, ACopyLosesNoEntry)
{
    const PfPtr pf = parsed("north 12\nlimits &Arr{\nheavy 30\n}\n");
    EXPECT_THAT(asked_for([&] {
                    const Pf *copy = pfdup(pf.get());
                    const auto *limits = static_cast<Pf *>(getarr(copy->value.arr, "limits"));
                    return getarr(copy->value.arr, "north") && limits &&
                           getarr(limits->value.arr, "heavy");
                }),
                IsSupersetOf({"pfdup: key", "pfdup: node"}));
}

// A text was left out of the array in the same way.
TEST(PfOutOfMemory, AnArrayOfTextsLosesNone)
{
    const PfPtr pf = parsed("limits &Arr{\nheavy 30\nlight 2\n}\n");
    EXPECT_THAT(asked_for([&] {
                    Arr *texts = pfget_arr(pf.get(), "limits");
                    return getarr(texts, "heavy") && getarr(texts, "light");
                }),
                IsSupersetOf({"pfget_arr: key", "pfget_arr: node"}));
}

TEST(PfOutOfMemory, AnEvaluationNamesEachOfItsTexts)
{
    const PfPtr pf = parsed("f &env(GAUGE)\n");
    setenv("GAUGE", "north", 1);
    Pf *function = nullptr;
    pfvalue(pf.get(), "f", &function);
    const auto says = [&](long successes) {
        return said_by(successes, [&] { pfinterpret(function); });
    };
    const std::string fatal = "oom_test *fatal*: ", file = "pfinterpret.cpp";
    EXPECT_EQ(says(0), fatal + message("pfexpand", "pfexpand.cpp", "1024", "result"));
    EXPECT_EQ(says(1), fatal + message("evaluate", file, "13", "text"));
    EXPECT_EQ(says(2), fatal + message("copy_view", file, "6", "pf->value.s"));
    EXPECT_EQ(says(3), fatal + message("copied_node", file, "6", "pf->value.s"));
    EXPECT_EQ(says(4), fatal + message("pfnew", "pffree.cpp", "40", "pf"));
}

TEST(PfOutOfMemory, AnExpansionNamesWhatItGrowsTo)
{
    const PfPtr pf = parsed("long " + std::string(2000, 'x') + "\nx ab&long;\n");
    Pf *node = nullptr;
    pfvalue(pf.get(), "x", &node);
    EXPECT_EQ(said_by(1, [&] { pfexpand(node); }),
              "oom_test *fatal*: " + message("pfexpand", "pfexpand.cpp", "2005", "result"));
}

TEST(PfOutOfMemory, AReferenceNamesTheFileThatItKeeps)
{
    const Prog prog;
    warm_up();
    const PfPtr pf = parsed("f &ref(prog,a)\n");
    Pf *function = nullptr;
    pfvalue(pf.get(), "f", &function);
    EXPECT_THAT(asked_for([&] { return pfinterpret(function)->type == PFSTRING; }),
                IsSupersetOf({"call_ref: pf->value.s", "take: referred", "take: referred->file"}));
}

TEST(PfOutOfMemory, AnUpdateNamesItsState)
{
    const Prog prog;
    warm_up();
    static Pf *pf = nullptr;
    char key[100];
    const int length = snprintf(key, sizeof key, "prog-%p", static_cast<void *>(&pf));
    const std::set<std::string> items{"pfupdate: 48 for state", "pfupdate: 32 for state",
                                      "getPf: 5 for name", "pfnew: 40 for pf",
                                      "pfupdate: " + std::to_string(length + 1) + " for state"};
    EXPECT_THAT(wanted_bytes([] { return pfupdate("prog", &pf) == 1; }), IsSupersetOf(items));
}

TEST(PfOutOfMemory, TheRegistryNamesWhatItCannotKeep)
{
    const Prog prog;
    warm_up();
    EXPECT_THAT(wanted_bytes([] { return getPf("prog") && existsPf("prog"); }),
                IsSupersetOf({"getPf: 5 for name", "putPf: 40 for name", "putPf: 5 for name",
                              "pfnew: 40 for pf"}));
}

// A program's log function, called for the message, may free known trees: Trees_mutex must not
// be held then.
TEST(PfOutOfMemory, TheRegistryIsNotLockedWhileItIsReported)
{
    EXPECT_THAT(wanted_bytes([] {
                    static Pf *pf = pfnew(PFFILE);
                    if (pf->known == 0)
                        putPf("first", pf);
                    int (*free_it)(int, const char *, Tbl *) = [](int, const char *, Tbl *) {
                        freePf("first");
                        return 0;
                    };
                    elog_set(ELOG_CALLBACK_FN, 0, free_it);
                    putPf("second", pfnew(PFFILE));
                    return existsPf("second") != nullptr;
                }),
                IsSupersetOf({"putPf: 6 for name", "putPf: 7 for name"}));
}
