// What the report of a fault shares with the platform layer.

#pragma once

#include <csignal>
#include <cstddef>

namespace stock {

// Writes what show_fault prints into a buffer, cut where it does not fit. Allocates
// nothing and touches nothing but its arguments.
void fault_text(int sig, const siginfo_t *info, char *buffer, std::size_t size);

// Where the traces of this thread begin: behind this return address, if it is among
// those of the stack. Null: with the caller of the trace.
// As many handlers as Trace_handlers run on top of that one, each with this address.
extern constinit thread_local void *Trace_after __attribute__((tls_model("initial-exec")));
extern constinit thread_local int Trace_handlers __attribute__((tls_model("initial-exec")));

// Runs the function, whose heap may be broken; set by who knows a way out when it
// faults or blocks. False when it did not come to its end.
using Attempt = bool (*)(void (*function)(void *argument), void *argument);
extern constinit thread_local Attempt Try_on_heap __attribute__((tls_model("initial-exec")));

// Lets the system load now what a trace needs, which must not wait for a fault.
void prepare_stack_trace();

}  // namespace stock
