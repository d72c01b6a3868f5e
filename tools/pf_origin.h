// Where the values of a parameter file come from, and where their references lead.

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pf_source.h"

// The files of a name, in the order in which they are read.
using Sources = std::vector<SourceText>;

// A value and the containers that it lies in. Borrowed from Sources.
struct PlacedValue {
    const SourceText *source = nullptr;
    const SourceEntry *entry = nullptr;       // null when there is no such value
    std::vector<const SourceEntry *> around;  // the tables and lists, the outermost first
};

constexpr int kMaxReferences = 10;  // that the library follows, each in the value of the last

// The value at an address that a program gets.
PlacedValue find_place(const Sources &sources, const std::vector<Step> &steps);

// What a reference in the value at `from` stands for: the text under that name in the
// nearest table around the value that has one, or in the top level.
PlacedValue find_reference(const Sources &sources, const PlacedValue &from,
                           const std::string &name);

// The references of a text, "&name" and "&{name}".
struct WrittenReference {
    std::string name;
    std::string written;
    size_t at;  // where it stands in the text
};
std::vector<WrittenReference> references_in(std::string_view text);

// The text of a value with its references replaced by what they stand for; nothing when
// one of them stands for a function, whose result is known only when it is evaluated.
std::optional<std::string> expanded(const Sources &sources, const PlacedValue &from);

// The argument of a function that begins with the prefix, such as "&ref("; empty when the
// function is another.
std::string argument_of(std::string_view function, std::string_view prefix);

// The file and the address of what stands between the parentheses of "&ref(".
std::pair<std::string, std::string> split_argument(std::string_view argument);

// Reads all files of a name in the order in which the library reads them. A name without
// files gives no sources and no complaint.
Sources read_sources(const char *name);

// "FILE:LINE" of a place in a file.
std::string file_and_line(const SourceText &source, size_t place);
