// stock pf show: the tree that files give together.
//
// The files are parsed one after the other into one tree. For --from, each value of the top
// level is marked with the file after whose parse it was new.

#include <cctype>
#include <cstring>

#include <unistd.h>

#include "pf_tool.h"

namespace {

constexpr const char *kHelp =
    "usage: stock pf show [--from] [--json] FILE|NAME...\n"
    "\n"
    "Reads parameter files, one after the other, into one tree and prints it in\n"
    "the syntax of parameter files, indented, with the keys in order. What a later\n"
    "file gives replaces what an earlier one gave. A word that is a readable file is\n"
    "read, and - is standard input; any other is a name that is looked for along\n"
    "PFPATH and stands for all the files that it finds.\n"
    "\n"
    "  --from    tell which file gave each value of the top level\n"
    "  --json    print JSON: functions as they are written, bytes that are not UTF-8\n"
    "            as U+FFFD\n"
    "\n"
    "Of a file with an error the part before the error is used. The exit status is\n"
    "1 when a file had one or could not be read.\n";

struct Options {
    bool from = false;
    bool json = false;
    int first = 1;  // the first word that names a file
};

// Reads the options. Gives the first word that begins with "-" and is no option, or null.
const char *read_options(int argc, char **argv, Options &options)
{
    for (int &i = options.first; i < argc && argv[i][0] == '-' && argv[i][1]; ++i) {
        if (!strcmp(argv[i], "--")) {
            ++i;
            break;
        }
        if (!strcmp(argv[i], "--from"))
            options.from = true;
        else if (!strcmp(argv[i], "--json"))
            options.json = true;
        else
            return argv[i];
    }
    return nullptr;
}

// The files that a word of the command line stands for: the word itself when it is a readable
// file, or else the files of that name, or the word again when there are none.
std::vector<std::string> files_of_word(const char *word)
{
    if (!strcmp(word, "-") || (is_present(word) && !is_dir(word) && access(word, R_OK) == 0))
        return {word};
    std::vector<std::string> files = files_of(word);
    if (files.empty())
        files.emplace_back(word);
    return files;
}

// Notes the file as the filename of the values of the top level that have none: these were
// read from it, while values of earlier files are marked already.
void mark_new(const Pf *tree, const char *file)
{
    for (const std::string &key : keys_of(tree))
        if (Pf *value = child_of(tree, key); !value->filename)
            value->filename = file;
}

std::string without_controls(std::string text)
{
    for (char &c : text)
        if (iscntrl(static_cast<unsigned char>(c)))
            c = '?';
    return text;
}

// Prints each value behind a comment that names its file.
void print_with_files(const Pf *tree)
{
    for (const std::string &key : keys_of(tree)) {
        Pf *value = child_of(tree, key);
        printf("# %s\n", without_controls(value->filename).c_str());
        const PfPtr alone(pfnew(PFFILE));
        setarr(alone->value.arr, key.c_str(), value);
        pfout(stdout, alone.get());
        delarr(alone->value.arr, key.c_str());
    }
}

void print_json_with_files(const Pf *tree)
{
    std::string out = "{";
    for (const std::string &key : keys_of(tree)) {
        const Pf *value = child_of(tree, key);
        out += out.size() > 1 ? ",\n    " : "\n    ";
        add_json_string(out, key);
        out += ": {\n        \"file\": ";
        add_json_string(out, value->filename);
        out += ",\n        \"value\": ";
        add_json(out, value, 2);
        out += "\n    }";
    }
    out += out.size() > 1 ? "\n}\n" : "}\n";
    fwrite(out.data(), 1, out.size(), stdout);
}

void print_json(const Pf *tree)
{
    std::string out;
    add_json(out, tree, 0);
    out += '\n';
    fwrite(out.data(), 1, out.size(), stdout);
}

void print(const Pf *tree, const Options &options)
{
    if (options.json && options.from)
        print_json_with_files(tree);
    else if (options.json)
        print_json(tree);
    else if (options.from)
        print_with_files(tree);
    else
        pfout(stdout, tree);
}

}  // namespace

int pf_show(int argc, char **argv)
{
    if (helped(argc, argv, kHelp))
        return kDone;
    Options options;
    if (const char *wrong = read_options(argc, argv, options))
        return wrong_usage("stock pf show", "no option '%s'", wrong);
    if (options.first >= argc)
        return wrong_usage("stock pf show", "which file?");

    std::vector<std::string> files;
    for (int i = options.first; i < argc; ++i)
        for (std::string &file : files_of_word(argv[i]))
            files.push_back(std::move(file));

    Pf *tree = pfnew(PFFILE);
    const PfPtr owner(tree);
    int status = kDone;
    for (const std::string &file : files) {
        if (!parse_file(file.c_str(), &tree))
            status = kFailed;
        if (options.from)
            mark_new(tree, file == "-" ? "standard input" : file.c_str());
    }
    print(tree, options);
    return status;
}
