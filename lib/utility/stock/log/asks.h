// Ports: what the log asks of higher rooms. It calls these functions, and joins/log_asks.cpp
// defines them with the public functions of those rooms.

#pragma once

#include <cstddef>

#include "base/limits.h"
#include "stock/elog.h"

namespace stock::logging {

inline constexpr int kSeverities = 7;

// The text of one setting of one severity.
using Field = char[ELOG_FIELD_SIZE];

// A setting that each severity has. `name` is its key in elog.pf and its environment variable.
struct SettingTable {
    const char *name;
    const char *const *defaults;
    Field fields[kSeverities];
};

// What elog.pf sets. The log's lock guards it.
struct Settings {
    SettingTable deliver;  // where messages go
    SettingTable tag;      // the template of what stands in front of them
    SettingTable debug;    // the debugger command that follows them
    int max_messages;      // that may wait on the stack; below 1 any number
    double wait_seconds;   // that a debugger is given
    const char *t_format;  // of the tag code %t; what elog.pf gives is never freed
    const char *u_format;  // of the tag code %u; likewise
};

// Reads elog.pf into the settings. What the file lacks stays as it is. The caller holds the
// log's lock. Does nothing while a parameter file is being parsed.
//
// Returns the file's list of signals to catch, "" when it has none, as a new string that the
// caller frees, or null when the file was not read.
char *ask_settings_file(Settings &settings);

// Saves the variables of the state file: bury().
void ask_to_save_state();

// Writes the current time as zepoch2str prints it, cut to the size.
void ask_time(const char *format, const char *zone, char *out, std::size_t size);

// The time that a text stands for: str2epoch().
double ask_reference_time(const char *text);

// The part of a path behind its last slash. A path that is too long gives "" and is logged.
void ask_base_name(const char *path, char (&name)[kPathSize]);

// The path of the first file with this name along PATH, as a new string that the caller
// frees, or null.
char *ask_program_path(const char *name);

// The number of the signal with this name, -1 for an unknown one. False when the program
// has put a signal_byname of its own in place of the library's and that gave null.
bool ask_signal_number(const char *name, int &number);

// A signal's name, such as "SIGBUS", and its description, until the next call. Both are null
// when the program has put a signal_bysig of its own in place of the library's and that gave
// null.
struct SignalWords {
    const char *name;
    const char *description;
};
SignalWords ask_signal_words(int sig);

}  // namespace stock::logging
