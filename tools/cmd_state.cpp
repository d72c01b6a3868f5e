// stock state: what a program keeps across restarts.

#include <cstring>
#include <string>

#include "command.h"
#include "pf_tool.h"

namespace {

constexpr const char *kHelp =
    "usage: stock state FILE\n"
    "\n"
    "Prints the values that a program saved in its state file: name, a tab and the\n"
    "text, one a line, in the order of their names. Values in tables and lists are\n"
    "named by their addresses, and newlines, other control characters and backslashes\n"
    "are written as escapes. References are expanded; functions are printed as they\n"
    "are written.\n"
    "\n"
    "The file - is standard input; another that begins with - stands behind --. A\n"
    "program that uses the state file meanwhile is not disturbed. The exit status is 1\n"
    "when the file cannot be read or is no parameter text; such a file restores nothing.\n";

// On one line, from which the text can be had again.
std::string one_line(std::string_view text)
{
    std::string doubled;
    for (const char c : text)
        doubled += c == '\\' ? std::string("\\\\") : std::string(1, c);
    return escaped(doubled);
}

void print(const std::string &address, std::string_view text)
{
    printf("%s\t%s\n", one_line(address).c_str(), one_line(text).c_str());
}

// A function as it was written, without the end of its line.
std::string_view call_of(const Pf *function)
{
    const std::string_view text = function->value.pffunct->text;
    return text.substr(0, text.find_last_not_of(" \t\n") + 1);
}

void print_node(const std::string &address, Pf *node)
{
    switch (node->type) {
    case PFSTRING: return print(address, okstr(pfexpand(node)));
    case PFFUNCTION: return print(address, call_of(node));
    case PFTBL:
        for (int64_t i = 0; i < node->value.tbl->count; ++i)
            print_node(address + "[" + std::to_string(i) + "]",
                       static_cast<Pf *>(gettbl(node->value.tbl, i)));
        return;
    default:
        for (const std::string &key : keys_of(node)) {
            std::string name = address;
            name += address.empty() ? key : "{" + key + "}";
            print_node(name, child_of(node, key));
        }
    }
}

}  // namespace

int cmd_state(int argc, char **argv)
{
    if (helped(argc, argv, kHelp))
        return kDone;
    int first = 1;
    if (argc > 1 && !strcmp(argv[1], "--"))
        first = 2;
    else if (argc > 1 && argv[1][0] == '-' && argv[1][1])
        return wrong_usage("stock state", "no option '%s'", argv[1]);
    if (argc - first != 1)
        return wrong_usage("stock state", argc > first ? "one file at a time" : "which file?");
    Pf *tree = pfnew(PFFILE);
    const bool parsed = parse_file(argv[first], &tree);
    const PfPtr owner(tree);
    if (!parsed)
        return kFailed;
    print_node("", tree);
    return kDone;
}
