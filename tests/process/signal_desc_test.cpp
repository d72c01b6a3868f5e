// Signals by number and by name.

#include "stock/signal_desc.h"

#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "deviants.h"

namespace {

using namespace std::string_literals;

bool has_no_description = false;

std::string described(int sig, int size)
{
    std::vector<char> buffer(static_cast<size_t>(size), '#');
    EXPECT_EQ(signal_desc(sig, buffer.data(), size), buffer.data());
    return buffer.data();
}

class Signals : public testing::Test {
protected:
    Signals() { has_no_description = false; }
};

using Str2sig = Signals;
using Sig2str = Signals;
using SignalDesc = Signals;
using SignalRecord = Signals;

}  // namespace

// Replaces the system's strsignal: gives its description, or null when a test wants that.
extern "C" char *strsignal(int sig) noexcept
{
    static char text[64];
    const char *known = sigdescr_np(sig);
    if (has_no_description)
        return nullptr;
    if (known)
        snprintf(text, sizeof text, "%s", known);
    else
        snprintf(text, sizeof text, "Unknown signal %d", sig);
    return text;
}

TEST_F(Str2sig, KnowsEveryRowOfTheTable)
{
    const struct {
        const char *name;
        int number;
    } rows[] = {
        {"HUP", 1},   {"KILL", 9},  {"STOP", 19},   {"IO", 29},   {"INT", 2},   {"QUIT", 3},
        {"ILL", 4},   {"TRAP", 5},  {"IOT", 6},     {"ABRT", 6},  {"FPE", 8},   {"BUS", 7},
        {"SEGV", 11}, {"SYS", 31},  {"PIPE", 13},   {"ALRM", 14}, {"TERM", 15}, {"USR1", 10},
        {"USR2", 12}, {"CHLD", 17}, {"WINCH", 28},  {"URG", 23},  {"TSTP", 20}, {"CONT", 18},
        {"TTIN", 21}, {"TTOU", 22}, {"VTALRM", 26}, {"PROF", 27}, {"XCPU", 24}, {"XFSZ", 25},
    };
    ASSERT_EQ(static_cast<size_t>(Nsig), std::size(rows));
    for (int i = 0; i < Nsig; ++i) {
        SCOPED_TRACE(rows[i].name);
        EXPECT_STREQ(Siglist[i].name, rows[i].name);
        EXPECT_EQ(Siglist[i].number, rows[i].number);
        for (const std::string &name : {rows[i].name + ""s, "SIG"s + rows[i].name}) {
            int number = 0;
            EXPECT_EQ(str2sig(name.c_str(), &number), 0);
            EXPECT_EQ(number, rows[i].number);
        }
    }
}

TEST_F(Str2sig, KnowsNothingElse)
{
    for (const char *name : {"segv", "Segv", "sigSEGV", "SIG", "", "SIGSIGSEGV", "SEGV ", "EMT",
                             "INFO", "SIGINFO", "11", "SEG", "SEGVX"}) {
        SCOPED_TRACE(name);
        int number = 77;
        EXPECT_EQ(str2sig(name, &number), -1);
        EXPECT_EQ(number, 77);
    }
    EXPECT_EQ(str2sig(nullptr, nullptr), -1);
}

TEST_F(Sig2str, NamesTheFirstRowWithTheNumber)
{
    char name[16];
    EXPECT_EQ(sig2str(6, name), 0);
    EXPECT_STREQ(name, "SIGIOT");
    EXPECT_EQ(sig2str(26, name), 0);
    EXPECT_STREQ(name, "SIGVTALRM");
}

TEST_F(Sig2str, NamesAndNumbersGoThereAndBack)
{
    for (int i = 0; i < Nsig; ++i) {
        SCOPED_TRACE(Siglist[i].name);
        char name[16];
        int number = 0;
        ASSERT_EQ(sig2str(Siglist[i].number, name), 0);
        ASSERT_EQ(str2sig(name, &number), 0);
        EXPECT_EQ(number, Siglist[i].number);
    }
}

TEST_F(Sig2str, AnUnknownNumberLeavesTheBufferEmpty)
{
    for (int number : {99, 0, -1, 16, 1'000'000}) {
        SCOPED_TRACE(number);
        char name[16] = "before";
        EXPECT_EQ(sig2str(number, name), -1);
        EXPECT_STREQ(name, "");
    }
}

TEST_F(SignalRecord, ByNumberHasNameAndDescription)
{
    const Signal *signal = signal_bysig(SIGSEGV);
    EXPECT_EQ(signal->number, 11);
    EXPECT_STREQ(signal->name, "SIGSEGV");
    EXPECT_STREQ(signal->description, "Segmentation fault");
}

TEST_F(SignalRecord, ByAnUnknownNumberIsCalledByTheNumber)
{
    const Signal *signal = signal_bysig(99);
    EXPECT_EQ(signal->number, 99);
    EXPECT_STREQ(signal->name, "99");
    EXPECT_STREQ(signal->description, "Unknown signal 99");
    EXPECT_STREQ(signal_bysig(-2147483647 - 1)->name, "-2147483648");
}

TEST_F(SignalRecord, ByNameKeepsTheNameAsGiven)
{
    const char *short_name = "HUP";
    const Signal *signal = signal_byname(short_name);
    EXPECT_EQ(signal->number, 1);
    EXPECT_EQ(signal->name, short_name);
    EXPECT_STREQ(signal->description, "Hangup");
    EXPECT_STREQ(signal_byname("SIGHUP")->name, "SIGHUP");
}

TEST_F(SignalRecord, ByAnUnknownNameHasNumberMinusOne)
{
    for (const char *name : {"hup", ""}) {
        const Signal *signal = signal_byname(name);
        EXPECT_EQ(signal->number, -1);
        EXPECT_EQ(signal->name, name);
        EXPECT_STREQ(signal->description, "no description for unrecognized signal");
    }
    EXPECT_EQ(signal_byname(nullptr)->number, -1);
}

TEST_F(SignalRecord, TellsWhenTheSystemHasNoDescription)
{
    has_no_description = true;
    EXPECT_STREQ(signal_bysig(1)->description, "no description for signal");
    EXPECT_STREQ(signal_byname("HUP")->description, "no description for signal");
}

TEST_F(SignalRecord, EachFunctionHasOneRecordOfItsOwn)
{
    Signal *by_number = signal_bysig(1);
    Signal *by_name = signal_byname("INT");
    EXPECT_NE(by_number, by_name);
    EXPECT_EQ(by_number->number, 1);
    EXPECT_EQ(signal_bysig(2), by_number);
    EXPECT_STREQ(by_number->name, "SIGINT");
    EXPECT_EQ(signal_byname("HUP"), by_name);
}

TEST_F(SignalRecord, NoOtherFunctionTouchesARecord)
{
    const Signal *by_number = signal_bysig(99);
    const Signal *by_name = signal_byname("HUP");
    described(98, 64);
    EXPECT_STREQ(by_number->description, "Unknown signal 99");
    EXPECT_STREQ(by_name->description, "Hangup");
}

TEST_F(SignalDesc, WritesNameAndDescriptionWithoutASeparator1GivesSighupHangup)
{
    EXPECT_EQ(described(1, 64), "SIGHUPHangup");
    EXPECT_EQ(described(99, 64), "99Unknown signal 99");
}

TEST_F(SignalDesc, BelowASizeOf64WritesTheDescriptionAlone)
{
    EXPECT_EQ(described(1, 63), "Hangup");
}

TEST_F(SignalDesc, CutsWhatDoesNotFit)
{
    EXPECT_EQ(described(1, 7), "Hangup");
    EXPECT_EQ(described(1, 6), "Hangu");
    EXPECT_EQ(described(1, 1), "");
}

TEST_F(SignalDesc, WritesNothingWithoutRoom)
{
    char buffer[] = "before";
    EXPECT_EQ(signal_desc(1, buffer, 0), buffer);
    EXPECT_EQ(signal_desc(1, buffer, -5), buffer);
    EXPECT_STREQ(buffer, "before");
    EXPECT_EQ(signal_desc(1, nullptr, 100), nullptr);
}

TEST_F(SignalDesc, WithoutADescriptionTheNameStandsAlone)
{
    has_no_description = true;
    EXPECT_EQ(described(1, 64), "SIGHUP");
    EXPECT_EQ(described(1, 10), "");
}
