// stock state: prints the values in the state file of a program.
//
// The file is parsed into a tree, and the tree is printed depth first, each value with its
// address. The file is not locked.

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

// Escapes the text so that it stays on one line and can be read back: escaped() leaves
// backslashes alone, so they are doubled first.
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

// The text of a function without the blanks and the newline after it.
std::string_view call_of(const Pf *function)
{
    const std::string_view text = function->value.pffunct->text;
    return text.substr(0, text.find_last_not_of(" \t\n") + 1);
}

// Prints a node and everything under it; the address of the top node is empty.
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
