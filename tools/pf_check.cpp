// stock pf check: what is wrong, or looks wrong, in parameter files.
//
// A SourceText brings the problems of its text. Check adds keys that are given twice and
// references that lead to nothing, and prints all in the order of the file.

#include <algorithm>
#include <cstring>
#include <map>
#include <utility>

#include <unistd.h>

#include "base/ascii.h"
#include "pf_origin.h"
#include "pf_tool.h"
#include "pf_wants.h"

namespace {

constexpr const char *kHelp =
    "usage: stock pf check [--with TABLE] FILE...\n"
    "\n"
    "Prints a line FILE:LINE: MESSAGE for all that is wrong in parameter files; \"-\" is\n"
    "standard input, and a FILE that begins with - stands behind --:\n"
    "\n"
    "  - errors of syntax, behind which the library stops reading\n"
    "  - a zero byte, which ends the text\n"
    "  - lists, tables and literals that the end of the file leaves open\n"
    "  - values that swallow the beginning of a list, table or literal\n"
    "  - keys and values that are cut because the last line has no newline\n"
    "  - values that end in a carriage return\n"
    "  - keys that a file gives twice\n"
    "  - references &name, &ref(file, address), &file(path) and &datafile(name) that\n"
    "    lead to nothing, and references in references more than 10 deep, such as one\n"
    "    that leads back to its own value\n"
    "\n"
    "With --with the values are held to TABLE, a parameter file that a program has written\n"
    "with pfwant_print: what is missing, keys that nothing wants, and values that are not of\n"
    "their kind or out of their range. No function is evaluated.\n"
    "\n"
    "Several files are read in this order into one tree: a reference may lead to a\n"
    "value of another of them. The exit status is 1 when there is anything.\n";

class Check {
public:
    Check(const Sources &sources, const SourceText &source) : sources_(sources), source_(source)
    {
        found_ = source.problems;
        PlacedValue top{&source, &source.top, {}};
        container(top);
    }

    // Adds those of its problems that others have found.
    void add(const std::vector<ValueProblem> &problems)
    {
        for (const ValueProblem &one : problems)
            if (one.source == &source_)
                found_.push_back(one.problem);
    }

    // Prints the problems in the order of the file. Whether there are any.
    bool print()
    {
        std::stable_sort(found_.begin(), found_.end(),
                         [](const Problem &a, const Problem &b) { return a.place < b.place; });
        for (const Problem &problem : found_)
            printf("%s: %s\n", file_and_line(source_, problem.place).c_str(),
                   escaped(problem.text).c_str());
        return !found_.empty();
    }

private:
    void add(const SourceEntry &entry, std::string text)
    {
        found_.push_back({entry.begin, std::move(text)});
    }

    void container(const PlacedValue &place)
    {
        std::map<std::string, const SourceEntry *> given;
        const bool table = place.entry->kind == SourceEntry::Kind::table;
        for (const SourceEntry &entry : place.entry->children) {
            if (table)
                once(given, entry);
            PlacedValue child{place.source, &entry, place.around};
            if (place.entry != &source_.top)
                child.around.push_back(place.entry);
            if (entry.is_container())
                container(child);
            else
                references(child);
        }
    }

    // Complains of a key that was given before. Behind its "&Undef{}" it may be given again.
    void once(std::map<std::string, const SourceEntry *> &given, const SourceEntry &entry)
    {
        if (entry.kind == SourceEntry::Kind::undef) {
            given.erase(entry.key);
            return;
        }
        const SourceEntry *&first = given[entry.key];
        if (first)
            add(entry, "key " + quoted(entry.key) + " is given again, first on line " +
                           std::to_string(source_.line_of(first->begin)));
        first = &entry;
    }

    // Whether the writer meant a reference. "&1" in "2>&1" is none, and a swallowed "&Tbl{"
    // is a problem of the source already.
    static bool is_meant(const WrittenReference &reference)
    {
        for (const char *mark : {"&Tbl", "&Arr", "&Literal"})
            if (reference.written == mark)
                return false;
        const char c = reference.written[1];
        return c == '{' || c == '_' || stock::is_letter(c);
    }

    void references(const PlacedValue &place)
    {
        const std::string &text = place.entry->text;
        bool plain = true;
        for (const WrittenReference &reference : references_in(text)) {
            plain = false;
            if (is_meant(reference) && !find_reference(sources_, place, reference.name).entry)
                add(*place.entry, quoted(reference.written) + " leads to nothing");
        }
        if (!plain && is_too_deep(place))
            add(*place.entry, "references in references, more than 10 deep");
        // With a reference in it, the argument of a function is known only when it is
        // evaluated.
        if (place.entry->kind == SourceEntry::Kind::function && plain && !leads_somewhere(text))
            add(*place.entry,
                quoted(text.substr(0, text.find_last_of(')') + 1)) + " leads to nothing");
    }

    // Whether the library refuses to expand it ("massive recursion"), as when a reference
    // leads back to its own value.
    bool is_too_deep(const PlacedValue &place) { return leads_on(place, kMaxReferences + 1); }

    // Whether a chain of `count` references begins in the value, each in the value that the
    // last one stands for.
    bool leads_on(const PlacedValue &place, int count)
    {
        if (count == 0)
            return true;
        const auto [known, added] = leads_on_.try_emplace({place.entry, count}, false);
        if (!added)
            return known->second;
        for (const WrittenReference &reference : references_in(place.entry->text))
            if (const PlacedValue to = find_reference(sources_, place, reference.name);
                to.entry && leads_on(to, count - 1))
                return leads_on_[{place.entry, count}] = true;
        return false;
    }

    // The files of a name, read once.
    const Sources &files_named(const std::string &name)
    {
        const auto [files, added] = named_.try_emplace(name);
        if (added)
            files->second = read_sources(name.c_str());
        return files->second;
    }

    bool leads_somewhere(const std::string &function)
    {
        if (const std::string path = argument_of(function, "&file("); !path.empty())
            return is_there(path);
        if (const std::string name = argument_of(function, "&datafile("); !name.empty()) {
            const std::unique_ptr<char, decltype(&free)> path(datafile("", name.c_str()), free);
            return path != nullptr;
        }
        const std::string argument = argument_of(function, "&ref(");
        if (argument.empty())
            return true;
        const auto [file, address] = split_argument(argument);
        const Sources &other = files_named(file);
        const auto steps = parse_address(address.c_str());
        return !other.empty() && (address.empty() || (steps && find_place(other, *steps).entry));
    }

    // Whether the file is there. A relative path begins in the directory of the source.
    bool is_there(const std::string &argument) const
    {
        const std::unique_ptr<char, decltype(&free)> path(expand_env(argument.c_str()), free);
        const size_t slash = source_.file.rfind('/');
        const bool alone = *path == '/' || slash == std::string::npos;
        const std::string file =
            alone ? std::string(path.get()) : source_.file.substr(0, slash + 1) + path.get();
        return is_present(file.c_str()) && !is_dir(file.c_str());
    }

    const Sources &sources_;
    const SourceText &source_;
    std::vector<Problem> found_;
    std::map<std::pair<const SourceEntry *, int>, bool> leads_on_;  // results of leads_on()
    std::map<std::string, Sources> named_;                          // the files of other names
};

std::optional<SourceText> read(const std::string &file)
{
    return file == "-" ? read_descriptor(STDIN_FILENO, file, OnError::go_on)
                       : read_source(file, OnError::go_on);
}

}  // namespace

int pf_check(int argc, char **argv)
{
    if (helped(argc, argv, kHelp))
        return kDone;
    int first = 1;
    const char *table = nullptr;
    if (argc > 1 && !strcmp(argv[1], "--with")) {
        if (argc == 2)
            return wrong_usage("stock pf check", "with which table?");
        table = argv[2];
        first = 3;
    }
    if (argc > first && !strcmp(argv[first], "--"))
        ++first;
    else if (argc > first && argv[first][0] == '-' && argv[first][1])
        return wrong_usage("stock pf check", "no option '%s'", argv[first]);
    if (first == argc)
        return wrong_usage("stock pf check", "which file?");

    std::optional<std::vector<WantedValue>> wanted;
    if (table && !(wanted = read_wanted(table)))
        return kFailed;
    int status = kDone;
    Sources sources;
    for (int i = first; i < argc; ++i)
        if (auto source = read(argv[i]))
            sources.push_back(std::move(*source));
        else
            status = kFailed;
    // Of a text that the library does not read to its end the rest would be missing.
    std::vector<ValueProblem> problems;
    if (wanted && status == kDone && std::ranges::none_of(sources, &SourceText::failed))
        problems = check_values(sources, *wanted);
    for (const SourceText &source : sources) {
        Check check(sources, source);
        check.add(problems);
        if (check.print())
            status = kFailed;
    }
    return status;
}
