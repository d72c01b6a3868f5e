// Setting the log up: the command line, the environment, the syntax of its values.

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "deviants.h"
#include "stock/pf.h"
#include "support/logging.h"

namespace {

const char *const kDefaults[] = {"d0", "d1", "d2", "d3", "d4", "d5", "d6"};

// The seven settings after a value was applied, with bars between. Each was "." before.
std::string applied(const char *value, int fill_defaults = 0, const char *before = ".")
{
    char table[7][ELOG_FIELD_SIZE];
    for (auto &field : table)
        snprintf(field, sizeof field, "%s", before);
    elog_fill_from_env(value, table, kDefaults, fill_defaults);
    std::string text;
    for (auto &field : table)
        text += std::string("|") + field;
    return text.substr(1);
}

std::string deliveries()
{
    std::string text;
    for (int i = 0; i < 7; ++i)
        text += (i ? "|" : "") + setting(ELOG_DELIVER_FIELD, i);
    return text;
}

}  // namespace

// The syntax of a value.

TEST(ElogValue, WithoutLettersAllSevenGetTheText)
{
    EXPECT_EQ(applied("x"), "x|x|x|x|x|x|x");
    EXPECT_EQ(applied("x y"), "x y|x y|x y|x y|x y|x y|x y");
    EXPECT_EQ(applied("x@"), "x|x|x|x|x|x|x");
}

TEST(ElogValue, EachLetterSelectsItsSeverity)
{
    EXPECT_EQ(applied("x@l"), "x|.|.|.|.|.|.");
    EXPECT_EQ(applied("x@D"), ".|x|.|.|.|.|.");
    EXPECT_EQ(applied("x@n"), ".|.|x|.|.|.|.");
    EXPECT_EQ(applied("x@a"), ".|.|.|x|.|.|.");
    EXPECT_EQ(applied("x@c"), ".|.|.|.|x|.|.");
    EXPECT_EQ(applied("x@d"), ".|.|.|.|.|x|.");
    EXPECT_EQ(applied("x@f"), ".|.|.|.|.|.|x");
}

TEST(ElogValue, AllButLog)
{
    EXPECT_EQ(applied("stderr@ncdfDa"), ".|stderr|stderr|stderr|stderr|stderr|stderr");
}

TEST(ElogValue, GroupsFollowEachOther)
{
    EXPECT_EQ(applied("x@l y@D"), "x|y|.|.|.|.|.");
    EXPECT_EQ(applied("x@l y"), "y|y|y|y|y|y|y");
    EXPECT_EQ(applied("x@lD y@D\tz@n"), "x|y|z|.|.|.|.");
}

TEST(ElogValue, BlanksBelongToATextBeforeTheAt)
{
    EXPECT_EQ(applied("/tmp/x.log stderr@c"), ".|.|.|.|/tmp/x.log stderr|.|.");
}

TEST(ElogValue, AnEmptyTextStoresTheDefaults)
{
    EXPECT_EQ(applied("@df"), ".|.|.|.|.|d5|d6");
    EXPECT_EQ(applied("x@l @d"), "x|.|.|.|.|d5|.");
}

TEST(ElogValue, AGroupWithoutLettersIsStoredInAllSeven)
{
    EXPECT_EQ(applied("x@ y@l"), "y|x|x|x|x|x|x");
    EXPECT_EQ(applied("@ y@l"), "y|d1|d2|d3|d4|d5|d6");
}

TEST(ElogValue, AnEmptyValueEmptiesAllSeven)
{
    EXPECT_EQ(applied(""), "||||||");
    EXPECT_EQ(applied("@"), "||||||");
}

TEST(ElogValue, ABlankAtTheEndLeavesNoEmptyGroupBehind)
{
    EXPECT_EQ(applied("x@l "), "x|.|.|.|.|.|.");
}

TEST(ElogValue, ASecondAtEndsTheGroup)
{
    EXPECT_EQ(applied("x@l@"), "x|.|.|.|.|.|.");
    EXPECT_EQ(applied("x@l@y@D"), "x|y|.|.|.|.|.");
}

TEST(ElogValue, AGroupWithoutLettersThatIsTheLastEmptiesAllSevenAfterIt)
{
    EXPECT_EQ(applied("x@@"), "||||||");
    EXPECT_EQ(applied("x@ "), "||||||");
}

TEST(ElogValue, ABackslashTakesTheNextCharacterAsItIs)
{
    EXPECT_EQ(applied("%P \\@home@l"), "%P @home|.|.|.|.|.|.");
    EXPECT_EQ(applied("a\\\\b@l"), "a\\b|.|.|.|.|.|.");
    EXPECT_EQ(applied("a\\n@l"), "an|.|.|.|.|.|.");
    EXPECT_EQ(applied("x\\"), "x\\|x\\|x\\|x\\|x\\|x\\|x\\");
}

TEST(ElogValue, AnUnknownLetterIsReportedAndRepeatsTheLastOne)
{
    const Ended ended = logged({}, [] { printf("%s", applied("x@cZd").c_str()); });
    EXPECT_EQ(ended.out, ".|.|.|.|x|x|.");
    EXPECT_EQ(ended.err, "Unrecognized severity 'Zd'\n");
}

TEST(ElogValue, AnUnknownLetterAtTheStartIsTakenAsLog)
{
    const Ended ended = logged({}, [] { printf("%s", applied("x@Z").c_str()); });
    EXPECT_EQ(ended.out, "x|.|.|.|.|.|.");
    EXPECT_EQ(ended.err, "Unrecognized severity 'Z'\n");
}

TEST(ElogValue, TheLastLetterIsRememberedAcrossGroups)
{
    const Ended ended = logged({}, [] { printf("%s", applied("x@d y@Z").c_str()); });
    EXPECT_EQ(ended.out, ".|.|.|.|.|y|.");
}

TEST(ElogValue, ANullValueChangesNothingOrFillsWhatIsEmpty)
{
    EXPECT_EQ(applied(nullptr, 0, ""), "||||||");
    EXPECT_EQ(applied(nullptr, 1, ""), "d0|d1|d2|d3|d4|d5|d6");
    EXPECT_EQ(applied(nullptr, 1), ".|.|.|.|.|.|.");
}

TEST(ElogValue, TextsOf47And48And500CharactersKeep47)
{
    for (const size_t length : {46u, 47u, 48u, 500u}) {
        SCOPED_TRACE(length);
        const std::string text(length, 'x');
        const std::string kept = text.substr(0, 47);
        EXPECT_EQ(applied((text + "@l").c_str()), kept + "|.|.|.|.|.|.");
        EXPECT_EQ(applied((text + "@l @D").c_str()), kept + "|d1|.|.|.|.|.");
    }
}

TEST(ElogValue, NoTableAndNoDefaultsAreIgnored)
{
    char table[7][ELOG_FIELD_SIZE] = {};
    elog_fill_from_env("x", nullptr, kDefaults, 1);
    elog_fill_from_env("x", table, nullptr, 1);
    EXPECT_STREQ(table[0], "");
}

// Parameter trees.

namespace {

struct FreePf {
    void operator()(Pf *pf) const { pffree(pf); }
};

// The seven settings after ELOG_TAG of a parameter text was applied. Each was "." before.
std::string applied_from(const char *parameters)
{
    Pf *pf = nullptr;
    pfcompile(parameters, &pf);
    const std::unique_ptr<Pf, FreePf> owner(pf);
    char table[7][ELOG_FIELD_SIZE];
    for (auto &field : table)
        snprintf(field, sizeof field, ".");
    elog_fill_from_pf(pf, "ELOG_TAG", table, kDefaults);
    std::string text;
    for (auto &field : table)
        text += std::string("|") + field;
    return text.substr(1);
}

}  // namespace

TEST(ElogFillFromPf, TakesTheArrayThatAnAddressLeadsTo)
{
    Pf *pf = nullptr;
    pfcompile("north &Arr{\ntags &Tbl{\n&Arr{\nlog a\n}\n&Arr{\nlog b\n}\n}\n}\n", &pf);
    const PfPtr owner(pf);
    char table[7][ELOG_FIELD_SIZE] = {};
    elog_fill_from_pf(pf, "north{tags}[1]", table, kDefaults);
    EXPECT_STREQ(table[0], "b");
    EXPECT_STREQ(table[6], "d6");
    elog_fill_from_pf(pf, "north{tags}[7]", table, kDefaults);
    EXPECT_STREQ(table[0], "b");
    elog_fill_from_pf(static_cast<Pf *>(getarr(pf->value.arr, "north")), "tags[0]", table,
                      kDefaults);
    EXPECT_STREQ(table[0], "a");
}

TEST(ElogFillFromPf, ComplainsByNameOfAValueOfTheWrongKindAndIgnoresIt)
{
    const auto applied = [](const char *parameters) {
        return untagged([=] { printf("%s", applied_from(parameters).c_str()); });
    };
    const Ended text = applied("ELOG_TAG text\n");
    EXPECT_EQ(text.err, "the setting ELOG_TAG is not an array and is ignored\n");
    EXPECT_EQ(text.out, ".|.|.|.|.|.|.");
    const Ended list = applied("ELOG_TAG &Tbl{\na\n}\n");
    EXPECT_EQ(list.err, "the setting ELOG_TAG is not an array and is ignored\n");
    EXPECT_EQ(list.out, ".|.|.|.|.|.|.");
    const Ended inside = applied("ELOG_TAG &Arr{\nlog a\ndie &Tbl{\nx\n}\n}\n");
    EXPECT_EQ(inside.err, "the setting ELOG_TAG{die} is not a string and is ignored\n");
    EXPECT_EQ(inside.out, "a|d1|d2|d3|d4|d5|d6");
}

TEST(ElogFillFromPf, TakesWhatIsNamedAndTheDefaultsForTheRest)
{
    EXPECT_EQ(applied_from("ELOG_TAG &Arr{\nlog a\nfault b c\nother x\n}\n"),
              "a|d1|d2|d3|d4|d5|b c");
    EXPECT_EQ(applied_from("ELOG_TAG &Arr{\n}\n"), "d0|d1|d2|d3|d4|d5|d6");
    EXPECT_EQ(applied_from("ELOG_TAG &Arr{\ndie &Tbl{\nx\n}\n}\n"), "d0|d1|d2|d3|d4|d5|d6");
}

TEST(ElogFillFromPf, ATableThatIsAbsentOrNoTableChangesNothing)
{
    EXPECT_EQ(applied_from("ELOG_DELIVER &Arr{\nlog a\n}\n"), ".|.|.|.|.|.|.");
    EXPECT_EQ(applied_from("ELOG_TAG text\n"), ".|.|.|.|.|.|.");
    EXPECT_EQ(applied_from(""), ".|.|.|.|.|.|.");
    char table[7][ELOG_FIELD_SIZE] = {};
    elog_fill_from_pf(nullptr, "ELOG_TAG", table, kDefaults);
    EXPECT_STREQ(table[0], "");
}

TEST(ElogFillFromPf, ATextOf500CharactersIsCutTo47)
{
    const std::string text(500, 'x');
    EXPECT_EQ(applied_from(("ELOG_TAG &Arr{\nlog " + text + "\n}\n").c_str()),
              text.substr(0, 47) + "|d1|d2|d3|d4|d5|d6");
}

// The environment.

TEST(ElogInit, ADeliveryForEverythingPrintsLogMessagesAtOnce)
{
    const Ended ended = logged({"ELOG_DELIVER=stderr"}, [] {
        elog_log(0, "a");
        printf("%d", elog_mark());
    });
    EXPECT_EQ(ended.err, "elog_init_test: a\n");
    EXPECT_EQ(ended.out, "0");
}

TEST(ElogInit, ADeliveryForSomeLeavesTheOthersTheirDefaults)
{
    EXPECT_EQ(logged({"ELOG_DELIVER=stdout@c"}, [] { printf("%s", deliveries().c_str()); }).out,
              "|stderr|stderr|stderr|stdout|stderr|stderr");
}

TEST(ElogInit, AnEmptyDeliveryOrTagTakesTheDefaults)
{
    const Ended ended = logged({"ELOG_DELIVER=", "ELOG_TAG="}, [] {
        printf("%s %s", deliveries().c_str(), setting(ELOG_TAG_FIELD, 1).c_str());
    });
    EXPECT_EQ(ended.out, "|stderr|stderr|stderr|stderr|stderr|stderr %P *debug*");
}

TEST(ElogInit, TagsComeFromTheEnvironment)
{
    const Ended ended = logged({"ELOG_TAG=[%s] \\@home@cd"}, [] {
        elog_complain(0, "x");
        elog_notify(0, "y");
    });
    EXPECT_EQ(ended.err, "[complain] @home: x\nelog_init_test: y\n");
}

TEST(ElogInit, DebuggersHaveNoDefaultUnlessSelected)
{
    const auto debuggers = [] {
        for (int i = 4; i < 7; ++i)
            printf("[%s]", setting(ELOG_DEBUG_FIELD, i).c_str());
    };
    EXPECT_EQ(logged({}, debuggers).out, "[][][]");
    EXPECT_EQ(logged({"ELOG_DEBUG=@df"}, debuggers).out, "[][gdb %r %p][gdb %r %p]");
    EXPECT_EQ(logged({"ELOG_DEBUG=true@c"}, debuggers).out, "[true][][]");
}

TEST(ElogInit, AValueOf500CharactersIsCutTo47)
{
    const Ended ended =
        logged({"ELOG_TAG=" + std::string(500, 'x')}, [] { elog_complain(0, "m"); });
    EXPECT_EQ(ended.err, std::string(47, 'x') + ": m\n");
}

TEST(ElogInit, AnUnknownLetterInTheEnvironmentIsReportedAndNothingElseLost)
{
    const Ended ended = logged({"ELOG_DELIVER=stdout@c?"}, [] { elog_complain(0, "x"); });
    EXPECT_EQ(ended.err, "Unrecognized severity '?'\n");
    EXPECT_EQ(ended.out, "elog_init_test: x\n");
}

TEST(ElogInit, TheLimitComesFromTheEnvironmentOnceAsAnInteger)
{
    const auto limit = [](const char *value) {
        return logged({std::string("ELOG_MAXMSG=") + value},
                      [] {
                          elog_init(0, nullptr);
                          setenv("ELOG_MAXMSG", "77", 1);
                          elog_init(0, nullptr);
                          int now = 0;
                          elog_query(ELOG_MAXMSG_VALUE, 0, &now);
                          printf("%d", now);
                      })
            .out;
    };
    EXPECT_EQ(limit("12"), "12");
    EXPECT_EQ(limit("0"), "0");
    EXPECT_EQ(limit("-3"), "-3");
    EXPECT_EQ(limit("9999999999999999999"), "2147483647");
    EXPECT_EQ(limit("many"), "50");
    EXPECT_EQ(limit(""), "50");
}

TEST(ElogInit, LaterCallsFollowTheEnvironment)
{
    const Ended ended = logged({}, [] {
        elog_complain(0, "a");
        setenv("ELOG_DELIVER", "stdout@c", 1);
        elog_complain(0, "b");
        elog_init(0, nullptr);
        elog_complain(0, "c");
    });
    EXPECT_EQ(ended.err, "elog_init_test: a\nelog_init_test: b\n");
    EXPECT_EQ(ended.out, "elog_init_test: c\n");
}

TEST(ElogInit, LaterCallsFollowTheWaitOfTheEnvironment)
{
    const double before = std_now();
    const Ended ended = logged({"ELOG_WAIT=9"}, [] {
        elog_init(0, nullptr);
        setenv("ELOG_WAIT", "0", 1);
        elog_init(0, nullptr);
        _elog_debug("true");
    });
    EXPECT_EQ(ended.err, "Running debugger: 'true'\n");
    EXPECT_LT(std_now() - before, 8);
}

TEST(ElogInit, LaterCallsLeaveTheTracesAndTheSignalsAlone)
{
    const Ended ended = logged({"ELOG_SIGNALS=FPE"}, [] {
        elog_init(0, nullptr);
        setenv("ELOG_SIGNALS", "BUS", 1);
        setenv("ELOG_STACK", "c", 1);
        elog_init(0, nullptr);
        const char *signals = nullptr;
        elog_query(ELOG_SIGNAL_LIST, 0, &signals);
        elog_complain(0, "%s", signals);
    });
    EXPECT_EQ(ended.err, "elog_init_test: FPE\n");
}

TEST(ElogInit, LaterCallsRefreshTheReferenceTime)
{
    const Ended ended = logged({}, [] {
        elog_set(ELOG_REFERENCE, 0, 1.0);
        elog_init(0, nullptr);
        double now = 0, again = 0;
        elog_query(ELOG_REFERENCE, 0, &now);
        setenv("ELOG_REFERENCE_TIME", "2008-02-01 12:30:15.5", 1);
        elog_init(0, nullptr);
        elog_query(ELOG_REFERENCE, 0, &again);
        printf("%d %.1f", now > 1e9, again);
    });
    EXPECT_EQ(ended.out, "1 1201869015.5");
}

TEST(ElogInit, LaterCallsKeepWhatWasSet)
{
    const Ended ended = logged({}, [] {
        elog_set(ELOG_DELIVER_FIELD, 4, "stdout");
        elog_init(0, nullptr);
        elog_complain(0, "x");
    });
    EXPECT_EQ(ended.out, "elog_init_test: x\n");
}

TEST(ElogInit, TheSignalListComesFromTheEnvironment)
{
    const auto list = [] {
        const char *signals = nullptr;
        elog_query(ELOG_SIGNAL_LIST, 0, &signals);
        printf("[%s]", signals);
    };
    EXPECT_EQ(logged({}, list).out, "[ILL:TRAP:FPE:BUS:SEGV:SYS]");
    EXPECT_EQ(logged({"ELOG_SIGNALS=FPE"}, list).out, "[FPE]");
    EXPECT_EQ(logged({"ELOG_SIGNALS="}, list).out, "[]");
}

TEST(ElogInit, TheReferenceTimeIsNowWhenTheEnvironmentGivesNone)
{
    const auto is_now = [] {
        const double before = std_now();
        double reference = 0;
        elog_query(ELOG_REFERENCE, 0, &reference);
        printf("%d", reference >= before && reference <= std_now());
    };
    EXPECT_EQ(logged({}, is_now).out, "1");
    EXPECT_EQ(logged({"ELOG_REFERENCE_TIME="}, is_now).out, "1");
}

TEST(ElogInit, TheReferenceTimeIsThatOfTheEnvironment)
{
    const auto reference = [] {
        double time = 0;
        elog_query(ELOG_REFERENCE, 0, &time);
        printf("%.1f", time);
    };
    EXPECT_EQ(logged({"ELOG_REFERENCE_TIME=2008-02-01 12:30:15.5"}, reference).out, "1201869015.5");
}

TEST(ElogInit, LeavesErrnoAlone)
{
    const Ended ended = logged({"ELOG_MAXMSG=9999999999999999999"}, [] {
        errno = EDOM;
        const int status = elog_init(0, nullptr);
        printf("%d %d", status, errno == EDOM);
    });
    EXPECT_EQ(ended.out, "0 1");
}

// The command line.

TEST(ElogInit, KeepsACopyOfTheCommandLine)
{
    const Ended ended = logged({}, [] {
        char name[] = "p", argument[] = "arg";
        char *argv[] = {name, argument, nullptr};
        elog_init(2, argv);
        argument[0] = 'X';
        argv[1] = nullptr;
        char **kept = nullptr;
        int argc = 0;
        elog_query(ELOG_ARGV, 0, &kept);
        elog_query(ELOG_ARGC, 0, &argc);
        printf("%d %s %s %d", argc, kept[0], kept[1], kept[2] == nullptr);
    });
    EXPECT_EQ(ended.out, "2 p arg 1");
}

TEST(ElogInit, ANullArgumentEndsTheCommandLine)
{
    const Ended ended = logged({}, [] {
        char name[] = "p", argument[] = "arg";
        char *argv[] = {name, nullptr, argument, nullptr};
        elog_init(3, argv);
        char **kept = nullptr;
        int argc = 0;
        elog_query(ELOG_ARGV, 0, &kept);
        elog_query(ELOG_ARGC, 0, &argc);
        printf("%d %d", argc, kept[1] == nullptr);
    });
    EXPECT_EQ(ended.out, "1 1");
}

TEST(ElogInit, LaterCallsRefreshTheCommandLineOnlyWhenGivenOne)
{
    const Ended ended = logged({"ELOG_TAG=%a"}, [] {
        char name[] = "p", first[] = "first", second[] = "second";
        char *one[] = {name, first, nullptr};
        char *two[] = {name, second, nullptr};
        elog_init(2, one);
        elog_init(0, nullptr);
        elog_complain(0, "x");
        elog_init(2, two);
        elog_init(2, nullptr);
        elog_init(-1, one);
        elog_complain(0, "y");
    });
    EXPECT_EQ(ended.err, "first : x\nsecond : y\n");
}

TEST(ElogInit, TheProgramIsNamedAfterItsFileNotItsArgument)
{
    const Ended ended = logged({}, [] {
        char name[] = "another";
        char *argv[] = {name, nullptr};
        elog_init(1, argv);
        elog_complain(0, "x");
    });
    EXPECT_EQ(ended.err, "elog_init_test: x\n");
}

TEST(ElogInit, LaterCallsFindTheProgramsNameAnew)
{
    const Ended ended = logged({}, [] {
        elog_init(0, nullptr);
        static char moved[] = "/some/where/moved";
        program_invocation_short_name = moved;
        elog_init(0, nullptr);
        elog_complain(0, "x");
    });
    EXPECT_EQ(ended.err, "moved: x\n");
}

TEST(ElogInit, AProgramWithoutAPathIsUnknownWhateverItsArgument)
{
    const Ended ended = logged({}, [] {
        program_invocation_short_name = nullptr;
        char name[] = "p";
        char *argv[] = {name, nullptr};
        elog_init(1, argv);
        elog_complain(0, "x");
    });
    EXPECT_EQ(ended.err, "Unknown_Program: x\n");
}

TEST(ElogInit, AProgramWhosePathHasNoNameIsNamedAfterItsFirstArgument)
{
    const Ended ended = logged({}, [] {
        static char empty[] = "";
        program_invocation_short_name = empty;
        elog_init(0, nullptr);
        elog_complain(0, "x");
        char name[] = "some/p";
        char *argv[] = {name, nullptr};
        elog_init(1, argv);
        elog_complain(0, "y");
    });
    EXPECT_EQ(ended.err, "x\nsome/p: y\n");
}

TEST(Elog2stderr, SendsAllButLogToStandardErrorNowAndInChildren)
{
    const Ended ended = logged({"ELOG_DELIVER=stdout"}, [] {
        elog_init(0, nullptr);
        printf("%d ", elog2stderr());
        printf("%s %s", deliveries().c_str(), getenv("ELOG_DELIVER"));
    });
    EXPECT_EQ(ended.out, "0 stdout|stderr|stderr|stderr|stderr|stderr|stderr stderr@ncdfDa");
}

TEST(Elog2stderr, BeforeTheLogIsInitialisedOnlyTheVariableIsSet)
{
    const Ended ended = logged({"ELOG_DELIVER=stdout"}, [] {
        elog2stderr();
        elog_complain(0, "x");
        printf("%s", deliveries().c_str());
    });
    EXPECT_EQ(ended.err, "elog_init_test: x\n");
    EXPECT_EQ(ended.out, "|stderr|stderr|stderr|stderr|stderr|stderr");
}
