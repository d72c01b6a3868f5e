// Runs functions that end a process in a child, and keeps what the child printed.

#pragma once

#include <functional>
#include <string>
#include <vector>

// How a child ended and what it wrote, to the byte.
struct Ended {
    std::string out;  // standard output
    std::string err;  // standard error
    int status = -1;  // exit status, -1 when a signal ended it
    int signal = 0;   // the signal that ended it, else 0
};

// Runs the body in a child process. An expectation that fails there fails the test. When the body
// returns the child exits with status 0, through exit, so that streams are flushed and handlers
// run.
Ended in_child(const std::function<void()> &body);

// Runs a program found by its path, with the input on its standard input. Each
// setting is "NAME=value", or "NAME" to unset it.
Ended run_program(const std::vector<std::string> &argv, const std::string &input = {},
                  const std::vector<std::string> &settings = {});

// The path of the tool that this build made, and of a file of the source tree.
std::string tool_path();
std::string source_path(const std::string &relative);
