// stock state: what a program keeps across restarts.

#include <string>

#include "command.h"
#include "pf_tool.h"

namespace {

constexpr const char *kHelp =
    "usage: stock state FILE\n"
    "\n"
    "Prints the values that a program saved in its state file: name, a tab and the\n"
    "text, one a line, in the order of their names. Values in tables and lists are\n"
    "named by their addresses, and newlines and other control characters are written\n"
    "as escapes. References are expanded; functions are printed as they are written.\n"
    "\n"
    "The file - is standard input. A program that uses the state file meanwhile is not\n"
    "disturbed. The exit status is 1 when the file cannot be read or is no parameter\n"
    "text; such a file restores nothing.\n";

void print(const std::string &address, std::string_view text)
{
    std::string line = quoted(text);
    line = line.substr(1, line.size() - 2);
    printf("%s\t%s\n", address.c_str(), line.c_str());
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
    if (argc > 1 && argv[1][0] == '-' && argv[1][1])
        return wrong_usage("stock state", "no option '%s'", argv[1]);
    if (argc != 2)
        return wrong_usage("stock state", argc > 2 ? "one file at a time" : "which file?");
    Pf *tree = pfnew(PFFILE);
    const bool parsed = parse_file(argv[1], &tree);
    const PfPtr owner(tree);
    if (!parsed)
        return kFailed;
    print_node("", tree);
    return kDone;
}
