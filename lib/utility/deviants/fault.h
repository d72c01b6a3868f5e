// What the log's report of a fault asks of the platform layer: the texts that show_fault and
// show_stack_trace print, made without the heap.

#pragma once

#include <csignal>
#include <cstddef>

namespace stock {

// Writes what show_fault prints into a buffer of size bytes, at least one, and cuts what does
// not fit. Allocates nothing and changes nothing but the buffer.
void fault_text(int sig, const siginfo_t *info, char *buffer, std::size_t size);

// The return address of the handler that reports this thread's fault. A trace begins behind
// it, where the fault is; null, or an address that is not on the stack: with the caller of the
// trace. When a handler is interrupted by a further fault, the address stands on the stack once
// more: Trace_handlers counts these further handlers, and the trace begins behind the last.
extern constinit thread_local void *Trace_after __attribute__((tls_model("initial-exec")));
extern constinit thread_local int Trace_handlers __attribute__((tls_model("initial-exec")));

// Runs a function that uses the heap, which a fault may have broken. The log sets Try_on_heap
// while it reports a crash: then a second fault or a timeout in the function ends that function
// alone, and the result is false. Null at other times.
using Attempt = bool (*)(void (*function)(void *argument), void *argument);
extern constinit thread_local Attempt Try_on_heap __attribute__((tls_model("initial-exec")));

// Has the system load what its stack tracer needs now, because the loader must not run in a
// signal handler.
void prepare_stack_trace();

}  // namespace stock
