// show_fault: the cause of a fault, from the information that came with its signal.
//
// Tables give the text for each code. Their rows name the codes by the system's constants,
// because systems number them differently.

#include <csignal>
#include <cstdio>

#include "base/fixed_text.h"
#include "base/guards.h"
#include "deviants.h"
#include "deviants/fault.h"

namespace stock {

namespace {

// What a code of a signal means.
struct CodeMeaning {
    int code;
    const char *text;
};

// clang-format off
// Meant: "priviledged opcom" is spelt so.
constexpr CodeMeaning kIllMeanings[] = {
    {ILL_ILLOPC, "illegal opcode"},
    {ILL_PRVOPC, "priviledged opcom"},
    {ILL_ILLOPN, "illegal operand"},
    {ILL_ILLADR, "illegal addressing mode"},
    {ILL_PRVREG, "priviledged register"},
    {ILL_COPROC, "co-processor error"},
    {ILL_BADSTK, "internal stack error"},
};

constexpr CodeMeaning kFpeMeanings[] = {
    {FPE_FLTDIV, "floating point divide by zero"},
    {FPE_FLTOVF, "floating point overflow"},
    {FPE_FLTUND, "floating point underflow"},
    {FPE_FLTRES, "floating point inexact result"},
    {FPE_FLTINV, "floating point invalid operation"},
    {FPE_FLTSUB, "subscript out of range"},
    {FPE_INTDIV, "integer divide by zero"},
    {FPE_INTOVF, "integer overflow"},
};

constexpr CodeMeaning kBusMeanings[] = {
    {BUS_ADRALN, "invalid address alignment"},
    {BUS_ADRERR, "non-existent physical address"},
    {BUS_OBJERR, "object specific hardware error"},
};

constexpr CodeMeaning kSegvMeanings[] = {
    {SEGV_MAPERR, "address not mapped to object"},
    {SEGV_ACCERR, "invalid permissions for mapped object"},
};
// clang-format on

// The text of a code, or null when the table does not have it.
template <std::size_t size>
const char *meaning_of(const CodeMeaning (&meanings)[size], int code)
{
    for (const CodeMeaning &row : meanings)
        if (row.code == code)
            return row.text;
    return nullptr;
}

void add_address(FixedText &text, const siginfo_t &info)
{
    text.addf("  Attempt to reference address: %p\n", info.si_addr);
}

void add_ill(FixedText &text, const siginfo_t &info)
{
    const char *why = meaning_of(kIllMeanings, info.si_code);
    text.addf("  Reason:%s si_code=%d\n", why ? why : "unrecognized SIGILL", info.si_code);
}

void add_fpe(FixedText &text, const siginfo_t &info)
{
    const char *why = meaning_of(kFpeMeanings, info.si_code);
    text.addf("  %s si_code=%d\n", why ? why : "unrecognized SIGFPE", info.si_code);
}

void add_bus(FixedText &text, const siginfo_t &info)
{
    const char *why = meaning_of(kBusMeanings, info.si_code);
    if (!why)
        return;
    text.addf("  %s\n", why);
    if (info.si_code != BUS_ADRALN)
        add_address(text, info);
}

void add_segv(FixedText &text, const siginfo_t &info)
{
    if (const char *why = meaning_of(kSegvMeanings, info.si_code))
        text.addf("  %s\n", why);
    else
        text.addf("  unrecognized SIGSEGV si->si_code = %d\n", info.si_code);
    add_address(text, info);
}

// Meant: the type is always "unrecognized". Types are numbered from 0x10001 on, and only a
// negative code comes here.
void add_sender(FixedText &text, const siginfo_t &info)
{
    text.addf("  signal sent by pid %d, user %d\n", static_cast<int>(info.si_pid),
              static_cast<int>(info.si_uid));
    text.addf("  Type: unrecognized si->si_code = %d\n", info.si_code);
}

void add_fault(FixedText &text, int sig, const siginfo_t *info)
{
    if (info && info->si_code < 0)
        return add_sender(text, *info);
    switch (info ? sig : 0) {
    case SIGILL: return add_ill(text, *info);
    case SIGFPE: return add_fpe(text, *info);
    case SIGBUS: return add_bus(text, *info);
    case SIGSEGV: return add_segv(text, *info);
    default: text.addf("  no additional information available about signal\n");
    }
}

}  // namespace

void fault_text(int sig, const siginfo_t *info, char *buffer, std::size_t size)
{
    FixedText text(buffer, size);
    add_fault(text, sig, info);
    text.c_str();
}

}  // namespace stock

void show_fault(int sig, siginfo_t *info, void *)
{
    const stock::KeepErrno keep;
    char text[256];
    stock::fault_text(sig, info, text, sizeof text);
    std::fputs(text, stderr);
}
