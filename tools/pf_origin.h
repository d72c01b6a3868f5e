// Where the values of a parameter file come from, and where their references lead.

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pf_source.h"

// The files of a name, in the order in which they are read.
using Sources = std::vector<Source>;

// A value with what stands around it; entry is null when there is none.
struct Place {
    const Source *source = nullptr;
    const Entry *entry = nullptr;
    std::vector<const Entry *> around;  // the tables and lists, the outermost first
};

constexpr int kMaxReferences = 10;  // in each other, as far as the library goes

// The value at an address in the end.
Place find_place(const Sources &sources, const std::vector<Step> &steps);

// What a reference in the value means: the text of that name in the nearest table
// around it that has one.
Place find_reference(const Sources &sources, const Place &from, const std::string &name);

// The references of a text, "&name" and "&{name}".
struct Reference {
    std::string name;
    std::string written;
    size_t at;  // where it stands in the text
};
std::vector<Reference> references_in(std::string_view text);

// The text of a value with its references replaced by what they stand for; nothing
// when that is known only to who evaluates it, as with the result of a function.
std::optional<std::string> expanded(const Sources &sources, const Place &from);

// The argument of a function that is written with this prefix, such as "&ref("; the
// whole result is empty when it is another.
std::string argument_of(std::string_view function, std::string_view prefix);

// The file and the address of what stands between the parentheses of "&ref(".
std::pair<std::string, std::string> split_argument(std::string_view argument);

// Reads all files of a name as the library does; none, without complaint, when there
// are none.
Sources read_sources(const char *name);

// "FILE:LINE" of a place in a file.
std::string file_and_line(const Source &source, size_t place);
