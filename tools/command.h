// What a command of the tool is made of.

#pragma once

#include <cstdio>
#include <string>
#include <vector>

// A command gets its own words only: argv[0] is its name. It returns the tool's
// exit status: 0, 1 when what was asked for failed, 2 on wrong usage.
struct Command {
    const char *name;
    const char *arguments;  // as shown behind the name in a usage line
    const char *summary;    // one line, no full stop
    int (*run)(int argc, char **argv);
};

enum { kDone = 0, kFailed = 1, kUsage = 2 };

// Prints the wrong word and where help is to the log; gives kUsage.
int wrong_usage(const char *command, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Prints the help and is true when the first word asks for it.
bool helped(int argc, char **argv, const char *help);

// Runs the command that argv[1] names out of a family such as "stock pf", or
// prints the family's help.
int run_family(const char *family, const Command *commands, int argc, char **argv);

// Runs the whole tool: argv[1] is the command.
int run_tool(int argc, char **argv);

// The names that "stock convert" takes.
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
