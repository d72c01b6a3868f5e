// stock pf explain: where a value comes from and how its references are resolved.
//
// The files are read as SourceTexts for the places, and as one tree for the value that a
// program gets.

#include "pf_origin.h"
#include "pf_tool.h"

namespace {

constexpr const char *kHelp =
    "usage: stock pf explain NAME ADDRESS\n"
    "\n"
    "Prints every place in the files of a name, found along PFPATH, that says something\n"
    "of the value at an address, in the order of reading, with '*' before the one that\n"
    "wins; below it where each of its references leads, step by step; and last, behind\n"
    "'=', what a program gets when that differs from what is written.\n"
    "\n"
    "  /data/pf/x.pf:3: '/u'\n"
    "* ./x.pf:5: '&home/data'\n"
    "    &home is '/u/&user' of /data/pf/x.pf:1\n"
    "      &user is 'joe' of ./x.pf:2\n"
    "= '/u/joe/data'\n"
    "\n"
    "The exit status is 1 when there is no value.\n";

// The value as it is written, on one line; of a list or table its size.
std::string described(const SourceEntry &entry)
{
    switch (entry.kind) {
    case SourceEntry::Kind::text: return quoted(entry.text);
    case SourceEntry::Kind::undef: return "&Undef{}";
    case SourceEntry::Kind::list: return "a list of " + std::to_string(elements(entry).size());
    case SourceEntry::Kind::function: return entry.text.substr(0, entry.text.find_last_of(')') + 1);
    default: break;
    }
    size_t count = 0;
    for (const SourceEntry &child : entry.children)
        count += find_key(entry, child.key) == &child;
    return "a table of " + std::to_string(count);
}

std::string place_of(const SourceText &source, const SourceEntry &entry)
{
    return file_and_line(source, entry.begin);
}

// Prints every entry at an address, with a "*" before the one whose value a program gets.
class Explanation {
public:
    Explanation(const Sources &sources, const std::vector<Step> &steps)
        : sources_(sources), steps_(steps), winner_(find_place(sources, steps))
    {
    }

    const SourceEntry *winner() const { return winner_.entry; }

    void print() const
    {
        for (const SourceText &source : sources_)
            print_source(source);
    }

private:
    // Prints the entries of one file. When the file sets only a container around the value, it
    // tells that, because the container replaces those of earlier files.
    void print_source(const SourceText &source) const
    {
        bool any = false;
        for (const SourceEntry &entry : source.top.children)
            if (entry.key == steps_[0].key)
                any = print_below(source, entry, 1) || any;
        const SourceEntry *top = last_of(source.top, steps_[0].key);
        if (top && !any)
            printf("  %s: %s, without '%s' in it\n", place_of(source, *top).c_str(),
                   described(*top).c_str(), last_step().c_str());
    }

    std::string last_step() const
    {
        const Step &step = steps_.back();
        return step.index < 0 ? step.key : "[" + std::to_string(step.index) + "]";
    }

    // Prints the entries to which the steps from number `step` on lead. Whether there are any.
    bool print_below(const SourceText &source, const SourceEntry &entry, size_t step) const
    {
        // An "&Undef{}" of a table around the value takes the value away too.
        if (step == steps_.size() || entry.kind == SourceEntry::Kind::undef) {
            print_entry(source, entry);
            return true;
        }
        bool any = false;
        if (steps_[step].index >= 0) {
            const SourceEntry *element = take_step(entry, steps_[step]);
            return element && print_below(source, *element, step + 1);
        }
        for (const SourceEntry &child : entry.children)
            if (entry.kind == SourceEntry::Kind::table && child.key == steps_[step].key)
                any = print_below(source, child, step + 1) || any;
        return any;
    }

    // Prints one entry, and below the one that wins what its references stand for.
    void print_entry(const SourceText &source, const SourceEntry &entry) const
    {
        const bool wins = &entry == winner_.entry;
        printf("%c %s: %s\n", wins ? '*' : ' ', place_of(source, entry).c_str(),
               described(entry).c_str());
        if (wins)
            print_references(sources_, winner_, 1);
    }

    static void indent(int depth) { printf("%*s", 2 + 2 * depth, ""); }

    static void print_references(const Sources &sources, const PlacedValue &from, int depth)
    {
        const std::string &text = from.entry->text;
        for (const WrittenReference &reference : references_in(text)) {
            const PlacedValue to = find_reference(sources, from, reference.name);
            indent(depth);
            printf("%s ", reference.written.c_str());
            print_target(sources, to, depth);
        }
        const std::string argument = argument_of(text, "&ref(");
        if (from.entry->kind == SourceEntry::Kind::function && !argument.empty())
            print_other_file(sources, from, depth);
    }

    // Prints what a reference stands for, and the references in it.
    static void print_target(const Sources &sources, const PlacedValue &to, int depth)
    {
        if (!to.entry) {
            puts("leads to nothing");
            return;
        }
        printf("is %s of %s\n", described(*to.entry).c_str(),
               place_of(*to.source, *to.entry).c_str());
        if (depth < kMaxReferences)
            return print_references(sources, to, depth + 1);
        indent(depth + 1);
        puts("and so on, too deep");
    }

    // Prints where "&ref(file, address)" leads. References in its argument are expanded first.
    static void print_other_file(const Sources &sources, const PlacedValue &from, int depth)
    {
        indent(depth);
        const auto text = expanded(sources, from);
        const std::string &shown = text ? *text : from.entry->text;
        printf("%s ", shown.substr(0, shown.find_last_of(')') + 1).c_str());
        if (!text) {
            puts("is known only when it is evaluated");
            return;
        }
        const auto [file, address] = split_argument(argument_of(*text, "&ref("));
        const Sources others = read_sources(file.c_str());
        const auto steps = parse_address(address.c_str());
        if (address.empty() && !others.empty())
            puts("is the whole file");
        else
            print_target(others, steps ? find_place(others, *steps) : PlacedValue{}, depth);
    }

    const Sources &sources_;
    const std::vector<Step> &steps_;
    PlacedValue winner_;
};

// Prints the value that a program gets.
int print_value(Pf *tree, const char *address)
{
    // An error and a value that is missing are printed too, but the exit status tells.
    Pf *node = nullptr;
    _pfeval(tree, address, &node, PFANY);
    const bool is_text =
        node && (node->type == PFSTRING || node->type == PFEXEC_ERROR || node->type == PFINVALID);
    if (is_text) {
        const char *text = node->type == PFSTRING ? pfexpand(node) : node->value.s;
        printf("= %s\n", quoted(text ? text : "").c_str());
    } else if (node) {
        printf("= ");
        pfout(stdout, node);
    } else {
        puts("= nothing");
    }
    return node && (!is_text || node->type == PFSTRING) ? kDone : kFailed;
}

}  // namespace

int pf_explain(int argc, char **argv)
{
    if (helped(argc, argv, kHelp))
        return kDone;
    if (argc != 3)
        return wrong_usage("stock pf explain", "a name and an address, please");
    const auto steps = parse_address(argv[2]);
    if (!steps)
        return wrong_usage("stock pf explain", "'%s' is no address", argv[2]);

    PfPtr tree;
    const bool whole = read_name(argv[1], tree);
    if (!tree)
        return kFailed;
    const Sources sources = read_sources(argv[1]);
    const Explanation explanation(sources, *steps);
    explanation.print();
    const SourceEntry *winner = explanation.winner();
    if (!winner) {
        elog_complain(0, "no entry '%s' in parameter file %s", argv[2], argv[1]);
        return kFailed;
    }
    int status = whole ? kDone : kFailed;
    if (!winner->is_container() && winner->text.find('&') != std::string::npos)
        if (print_value(tree.get(), argv[2]) != kDone)
            status = kFailed;
    return status;
}
