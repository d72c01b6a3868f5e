// Where other families join the log: one function for each.

#pragma once

#include <cstddef>

namespace stock::logging {

// The state file joins here: bury() saves it before the process ends.
void join_bury();

// Stack traces join here: show_stack_trace() after a message that asks for one.
void join_stack_trace();

// Whether every message of the severity asks for a stack trace: Show_stack, which
// elog_setup_show_stack fills from the letters of the variable ELOG_STACK.
void join_show_stack(const char *variable);
bool join_shows_stack(int severity);

// Fault handlers join here: elog_setup_fault_handler(list) installs them. The text
// of the list is kept, not copied.
void join_fault_handlers(const char *list);

// The debugger joins here: _elog_debug(command) after a message was delivered.
void join_debugger(const char *command);

// The current time as zepoch2str puts it, for the codes %t and %u.
void join_time(const char *format, const char *zone, char *out, std::size_t size);

// The time of ELOG_REFERENCE_TIME: str2epoch.
double join_reference_time(const char *text);

// Takes what "elog.pf" sets, unless a parameter file is being read at the moment.
// Returns the signal list of the file, "" when the file has none, as a new string that
// the caller frees, or null when there was no file.
char *join_settings_file();

}  // namespace stock::logging
