// What a program wants of its parameter files, as it printed it: the lines "#: " of a table
// that pfwant_print has written.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "pf_origin.h"
#include "stock.h"

// A line "#: ADDRESS: KIND, BOUNDS, required". In the address "{*}" is any key of a table of
// records.
struct WantedValue {
    std::string address;
    int kind = 0;
    int of = 0;  // of a list or table
    std::string words;
    double low = 0;
    double high = 0;
    bool is_required = false;
};

// Reads such lines; nothing, after a complaint, when there is none or one cannot be read.
std::optional<std::vector<WantedValue>> read_wanted(const std::string &file);

// A problem of a value, and the source that it stands in.
struct ValueProblem {
    const SourceText *source;
    Problem problem;
};

// Holds the values of the sources to what is wanted. What functions give is not known: no
// function is evaluated, and no value that refers to one is looked at.
std::vector<ValueProblem> check_values(const Sources &sources,
                                       const std::vector<WantedValue> &wanted);
