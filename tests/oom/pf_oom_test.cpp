// What parameter files say when memory runs out.

#include <csignal>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stock.h"
#include "support/out_of_memory.h"
#include "support/temp_dir.h"

namespace {

using testing::IsSupersetOf;

constexpr const char *kText = "a 1\n"
                              "b escaped\\#\n"
                              "c &file(x)\n"
                              "d &Tbl{\n&Arr{\nk v\n}\n}\n"
                              "e &Literal{\n x}\n";

// What a fault of the scanner says when memory runs out at the allocation of at
// least so many bytes.
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
    EXPECT_THAT(
        asked_for([] {
            Pf *pf = nullptr;
            return pfcompile(kText, &pf) == 0;
        }),
        IsSupersetOf({"pfnew: pf", "pfnew: pf->value.pffunct", "PF_lex: pf->value.pffunct->text",
                      "PF_lex: filename", "fix_String_buf: String_buf"}));
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

TEST(PfOutOfMemory, AnUpdateNamesItsState)
{
    const Prog prog;
    warm_up();
    static Pf *pf = nullptr;
    char key[100];
    const int length = snprintf(key, sizeof key, "prog-%p", static_cast<void *>(&pf));
    const std::set<std::string> items{"pfupdate: 32 for state", "getPf: 5 for name",
                                      "pfnew: 40 for pf",
                                      "pfupdate: " + std::to_string(length + 1) + " for state"};
    EXPECT_THAT(wanted_bytes([] { return pfupdate("prog", &pf) == 1; }), IsSupersetOf(items));
}

TEST(PfOutOfMemory, TheRegistryNamesWhatItCannotKeep)
{
    const Prog prog;
    warm_up();
    EXPECT_THAT(wanted_bytes([] { return getPf("prog") && existsPf("prog"); }),
                IsSupersetOf({"getPf: 5 for name", "putPf: 32 for name", "putPf: 5 for name",
                              "pfnew: 40 for pf"}));
}

// What ends the process frees known trees: the lock must be free by then.
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
