// What the commands of "stock pf" share.

#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "command.h"
#include "stock.h"

struct FreePf {
    void operator()(Pf *pf) const { pffree(pf); }
};
using PfPtr = std::unique_ptr<Pf, FreePf>;

// Parses one file into the tree; "-" is standard input. The reasons of a failure
// are in the log.
bool parse_file(const char *path, Pf **pf);

// The files of a name along PFPATH, in the order in which they are read.
std::vector<std::string> files_of(const char *name);

// Reads all files of a name. Without a file it complains, and the tree is null. False then, and
// when one of the files has an error.
bool read_name(const char *name, PfPtr &tree);

// The keys of a table, in order.
std::vector<std::string> keys_of(const Pf *table);
Pf *child_of(const Pf *table, const std::string &key);

// Appends the tree as it was written, in JSON.
void add_json(std::string &out, const Pf *pf, int level);
void add_json_string(std::string &out, std::string_view text);

// The text on one line: newlines and other control characters are written as escapes.
std::string escaped(std::string_view text);

// The text on one line as above, between single quotes.
std::string quoted(std::string_view text);

// The types that a value may be read as.
std::vector<const char *> pf_types();

int pf_check(int argc, char **argv);
int pf_del(int argc, char **argv);
int pf_explain(int argc, char **argv);
int pf_files(int argc, char **argv);
int pf_get(int argc, char **argv);
int pf_set(int argc, char **argv);
int pf_shell(int argc, char **argv);
int pf_show(int argc, char **argv);
int pf_watch(int argc, char **argv);
