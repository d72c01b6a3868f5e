// The actions that signals had before the log caught them.

#include <csignal>

#include <gtest/gtest.h>

#include "log/fault.h"
#include "stock/elog_fault.h"

using stock::logging::Old_handler;

namespace {

void former(int) {}
void ours(int, siginfo_t *, void *) {}

void *handler_of(const struct sigaction &action)
{
    return reinterpret_cast<void *>(action.sa_handler);
}

}  // namespace

TEST(OldHandler, HoldsWhatASignalHadBefore)
{
    signal(SIGUSR1, former);
    setup_fault_handlers(ours, "USR1:USR2:USR1");
    EXPECT_EQ(Old_handler[SIGUSR1].sa_handler, former);  // not what the first USR1 installed
    EXPECT_EQ(Old_handler[SIGUSR2].sa_handler, SIG_DFL);
    EXPECT_EQ(handler_of(Old_handler[SIGTERM]), nullptr);
}

TEST(OldHandler, IsClearedByEverySetup)
{
    signal(SIGUSR1, former);
    setup_fault_handlers(ours, "USR1");
    setup_fault_handlers(ours, nullptr);
    EXPECT_EQ(handler_of(Old_handler[SIGUSR1]), nullptr);
    setup_fault_handlers(ours, "USR1");
    EXPECT_EQ(Old_handler[SIGUSR1].sa_sigaction, ours);
}
