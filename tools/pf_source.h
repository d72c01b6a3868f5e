// A parameter file as it is written: every value with its place in the text.
//
// The library reads a text into a tree, which keeps no places. Commands that edit a file, or
// tell where something is, need them. A SourceText holds every value in the order of the text,
// those that a later one replaces among them.

#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct SourceEntry {
    enum class Kind { text, function, list, table, undef };

    bool is_container() const { return kind == Kind::list || kind == Kind::table; }

    Kind kind = Kind::table;
    std::string key;                     // empty in a list
    std::string text;                    // of a text: the value; of a function: as it is written
    std::vector<SourceEntry> children;   // of a list or table
    mutable std::vector<size_t> by_key;  // the children in the order of their keys: see last_of

    // Places, in bytes from the start of the text.
    size_t begin = 0;        // where the key begins; in a list where the value does
    size_t value_begin = 0;  // where the value begins,
    size_t value_end = 0;    // and where it ends, before blanks and a comment
    size_t end = 0;          // behind the newline of its last line
};

struct Problem {
    size_t place;  // in bytes from the start of the text
    std::string text;
};

struct SourceText {
    // The line of a place, counted from 1.
    int line_of(size_t place) const;

    std::string file;
    std::string text;              // all of the file
    std::vector<size_t> newlines;  // their places in it
    SourceEntry top;
    size_t text_end = 0;                    // where the end mark stands, or the end of the text
    std::optional<SourceEntry> unfinished;  // a key that the text ends in: the library drops it
    std::vector<Problem> problems;          // in the order in which they were found
    bool failed = false;                    // the library refuses the text
};

// Whether to stop at a syntax error, as the library does, or to look for more behind its line.
enum class OnError { stop, go_on };

SourceText scan_source(std::string text, OnError on_error);

// Reads from a descriptor to its end what the file holds; nothing, after a complaint,
// when it cannot be read.
std::optional<SourceText> read_descriptor(int fd, const std::string &file, OnError on_error);

// Reads a file; nothing, after a complaint, when it cannot be read.
std::optional<SourceText> read_source(const std::string &file, OnError on_error);

// The last entry of a key, which may be an "&Undef{}"; null when there is none.
const SourceEntry *last_of(const SourceEntry &table, std::string_view key);

// The value that a key has at the end of the table; null when it has none.
const SourceEntry *find_key(const SourceEntry &table, std::string_view key);

// The elements that a list has at its end: "&Undef{}" has taken others away.
std::vector<const SourceEntry *> elements(const SourceEntry &list);

// A step of an address: a key, or the index of a list's element.
struct Step {
    std::string key;
    long index = -1;  // below 0 for a key
};

// Cuts an address such as "a{b}[2]" into steps; nothing when it is no address.
std::optional<std::vector<Step>> parse_address(const char *address);

// Takes one step, or all steps from number `first` on; null when they lead nowhere.
const SourceEntry *take_step(const SourceEntry &from, const Step &step);
const SourceEntry *take_steps(const SourceEntry *from, const std::vector<Step> &steps,
                              size_t first);
