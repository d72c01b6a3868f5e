// What the information of a signal says about a fault.
//
// The rows go by the system's names of the codes; systems number them differently.

#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <iterator>

#include "base/guards.h"
#include "deviants.h"
#include "deviants/fault.h"

namespace stock {

namespace {

// A text that grows in a buffer and is cut at its end.
class Text {
public:
    Text(char *buffer, std::size_t size) : at_(buffer), room_(size)
    {
        if (room_ > 0)
            *at_ = '\0';
    }

    [[gnu::format(printf, 2, 3)]] void add(const char *format, ...)
    {
        va_list args;
        va_start(args, format);
        const int length = std::vsnprintf(at_, room_, format, args);
        va_end(args);
        if (length < 0 || room_ == 0)
            return;
        const std::size_t moved =
            static_cast<std::size_t>(length) < room_ ? static_cast<std::size_t>(length) : room_ - 1;
        at_ += moved;
        room_ -= moved;
    }

private:
    char *at_;
    std::size_t room_;
};

struct Reason {
    int code;
    const char *text;
};

// clang-format off
// The spelling is meant.
constexpr Reason kIll[] = {
    {ILL_ILLOPC, "illegal opcode"},
    {ILL_PRVOPC, "priviledged opcom"},
    {ILL_ILLOPN, "illegal operand"},
    {ILL_ILLADR, "illegal addressing mode"},
    {ILL_PRVREG, "priviledged register"},
    {ILL_COPROC, "co-processor error"},
    {ILL_BADSTK, "internal stack error"},
};

constexpr Reason kFpe[] = {
    {FPE_FLTDIV, "floating point divide by zero"},
    {FPE_FLTOVF, "floating point overflow"},
    {FPE_FLTUND, "floating point underflow"},
    {FPE_FLTRES, "floating point inexact result"},
    {FPE_FLTINV, "floating point invalid operation"},
    {FPE_FLTSUB, "subscript out of range"},
    {FPE_INTDIV, "integer divide by zero"},
    {FPE_INTOVF, "integer overflow"},
};

constexpr Reason kBus[] = {
    {BUS_ADRALN, "invalid address alignment"},
    {BUS_ADRERR, "non-existent physical address"},
    {BUS_OBJERR, "object specific hardware error"},
};

constexpr Reason kSegv[] = {
    {SEGV_MAPERR, "address not mapped to object"},
    {SEGV_ACCERR, "invalid permissions for mapped object"},
};
// clang-format on

// How a signal was sent, by its code less kFirstType.
constexpr const char *kTypes[] = {"SI_USER", "SI_QUEUE", "SI_TIMER", "SI_ASYNCIO", "SI_MESGQ"};
constexpr std::int64_t kFirstType = 0x10001;

template <std::size_t size>
const char *reason(const Reason (&reasons)[size], int code)
{
    for (const Reason &row : reasons)
        if (row.code == code)
            return row.text;
    return nullptr;
}

void address(Text &text, const siginfo_t &info)
{
    text.add("  Attempt to reference address: %p\n", info.si_addr);
}

void ill(Text &text, const siginfo_t &info)
{
    const char *why = reason(kIll, info.si_code);
    text.add("  Reason:%s si_code=%d\n", why ? why : "unrecognized SIGILL", info.si_code);
}

void fpe(Text &text, const siginfo_t &info)
{
    const char *why = reason(kFpe, info.si_code);
    text.add("  %s si_code=%d\n", why ? why : "unrecognized SIGFPE", info.si_code);
}

void bus(Text &text, const siginfo_t &info)
{
    const char *why = reason(kBus, info.si_code);
    if (!why)
        return;
    text.add("  %s\n", why);
    if (info.si_code != BUS_ADRALN)
        address(text, info);
}

void segv(Text &text, const siginfo_t &info)
{
    if (const char *why = reason(kSegv, info.si_code))
        text.add("  %s\n", why);
    else
        text.add("  unrecognized SIGSEGV si->si_code = %d\n", info.si_code);
    address(text, info);
}

// Meant: only a negative code counts as sent by a process, and its name is looked for
// from 0x10001 on, also where those codes are positive.
void sent(Text &text, const siginfo_t &info)
{
    const std::int64_t type = info.si_code - kFirstType;
    const bool known = type >= 0 && type < std::ssize(kTypes);
    text.add("  signal sent by pid %d, user %d\n", static_cast<int>(info.si_pid),
             static_cast<int>(info.si_uid));
    text.add("  Type: %s si->si_code = %d\n", known ? kTypes[type] : "unrecognized", info.si_code);
}

}  // namespace

void fault_text(int sig, const siginfo_t *info, char *buffer, std::size_t size)
{
    Text text(buffer, size);
    if (info && info->si_code < 0)
        return sent(text, *info);
    switch (info ? sig : 0) {
    case SIGILL: return ill(text, *info);
    case SIGFPE: return fpe(text, *info);
    case SIGBUS: return bus(text, *info);
    case SIGSEGV: return segv(text, *info);
    default: text.add("  no additional information available about signal\n");
    }
}

}  // namespace stock

void show_fault(int sig, siginfo_t *info, void *)
{
    const stock::KeepErrno keep;
    char text[256];
    stock::fault_text(sig, info, text, sizeof text);
    std::fputs(text, stderr);
}
