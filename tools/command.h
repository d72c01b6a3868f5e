// What all sources of the tool share: a row in the table of commands, the exit statuses,
// help and usage, and the function of each command.

#pragma once

#include <cstdio>
#include <string>
#include <vector>

// A row in a table of commands; an empty row ends the table.
struct Command {
    const char *name;
    const char *arguments;  // printed after the name in a usage line
    const char *summary;    // one line, without a full stop
    // Gets the words of the command, argv[0] being its name. Returns the tool's exit status.
    int (*run)(int argc, char **argv);
};

// Exit statuses: success, failure, a wrong command line.
enum { kDone = 0, kFailed = 1, kUsage = 2 };

// Complains about a wrong command line and says how to get help. Returns kUsage.
int wrong_usage(const char *command, const char *format, ...) __attribute__((format(printf, 2, 3)));

// If the first word is --help or -h, prints the help and returns true.
bool helped(int argc, char **argv, const char *help);

// Runs the command of a family, such as "stock pf", that argv[1] names, or prints the
// family's help. Returns the exit status.
int run_family(const char *family, const Command *commands, int argc, char **argv);

// Runs the tool with the command argv[1]. "stock complete" calls it to read the help of
// other commands.
int run_tool(int argc, char **argv);

// The names of all converters that "stock convert" accepts.
std::vector<std::string> converter_names();

int cmd_complete(int argc, char **argv);
int cmd_convert(int argc, char **argv);
int cmd_dump(int argc, char **argv);
int cmd_find(int argc, char **argv);
int cmd_fs(int argc, char **argv);
int cmd_log(int argc, char **argv);
int cmd_path(int argc, char **argv);
int cmd_pf(int argc, char **argv);
int cmd_root(int argc, char **argv);
int cmd_signals(int argc, char **argv);
int cmd_state(int argc, char **argv);
int cmd_tbl(int argc, char **argv);
int cmd_time(int argc, char **argv);
int cmd_undump(int argc, char **argv);
