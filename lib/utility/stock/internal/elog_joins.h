// Where other families join the log. One function each; until a family is there
// its function does what is so without it.

#pragma once

namespace stock::logging {

// Saves the program's state file: bury.
void join_bury();

// Prints the calling thread's stack: show_stack_trace.
void join_stack_trace();

// Runs the severity's debugger command when there is one: _elog_debug.
void join_debugger(int severity);

// Sets up fault handlers for a list of signals, whose text is kept, not copied:
// elog_setup_fault_handler.
void join_fault_handlers(const char *list);

}  // namespace stock::logging
