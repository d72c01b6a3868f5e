// stock complete: prints the possible completions of the last word of a command line, for shells.
//
// It reads the help of the commands to learn their options and arguments, so that it needs no
// table of its own. The name of an argument there, such as FILE or MEMBER, says what to offer
// for it (kArguments).

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <unistd.h>

#include "base/ascii.h"
#include "command.h"
#include "deviants.h"
#include "pf_tool.h"
#include "stock.h"

namespace {

namespace fs = std::filesystem;

constexpr const char *kHelp =
    "usage: stock complete WORD...\n"
    "\n"
    "Prints what the last word of a command line may become, for a shell that completes\n"
    "it. The first WORD is 'stock', the last may be empty. Each line is a word, and what\n"
    "it means behind a tab; a line that begins with a tab names what the shell itself\n"
    "knows best: files, directories, variables, commands.\n";

// ---- Reading the help of a command ----

struct Option {
    std::string name;      // with its dashes
    std::string argument;  // empty if it takes none
};

// A line of the usage: one way to use a command.
struct Form {
    std::vector<Option> options;
    std::vector<std::string> arguments;
    bool repeats = false;  // the last argument may be repeated
};

struct Help {
    std::vector<std::pair<std::string, std::string>> commands;  // of a family, with summaries
    std::vector<Form> forms;
};

bool begins_upper(const std::string &word)
{
    return !word.empty() && stock::is_letter(word[0]) && stock::lower(word[0]) != word[0];
}

bool is_control(char c)
{
    return std::iscntrl(static_cast<unsigned char>(c)) != 0;
}

// Removes "..." from the end of the word. Returns false if there is none.
bool remove_dots(std::string &word)
{
    const bool dots = word.ends_with("...");
    if (dots)
        word.resize(word.size() - 3);
    return dots;
}

// Reads a usage such as "[--path VARIABLE] [-a | -b] NAME [FILE]...".
Form read_form(const std::string &usage)
{
    // "]" becomes a word of its own, so that an option does not take a word after the bracket
    // as its argument.
    std::string spaced;
    for (const char c : usage)
        spaced += c == '[' ? " " : c == ']' ? " ] " : std::string(1, c);
    std::istringstream in(spaced);
    Form form;
    bool may_take = false;
    for (std::string word; in >> word;) {
        const bool is_option = word[0] == '-';
        if (is_option) {
            form.options.push_back({word, ""});
        } else if (may_take && begins_upper(word)) {
            form.options.back().argument = word;
        } else {
            form.repeats = remove_dots(word) || form.repeats;
            if (begins_upper(word) && word != "OPTION")
                form.arguments.push_back(word);
        }
        may_take = is_option;
    }
    return form;
}

// Reads a line such as "  --path VARIABLE   where the search path is". If no usage line has the
// option, adds it to all of them.
void add_listed(Help &help, const std::string &line)
{
    std::istringstream in(line.substr(0, line.find("  ", 2)));
    Option option;
    in >> option.name >> option.argument;
    const auto is_it = [&](const Option &other) { return other.name == option.name; };
    for (const Form &form : help.forms)
        if (std::ranges::any_of(form.options, is_it))
            return;
    for (Form &form : help.forms)
        form.options.push_back(option);
}

// Reads the help text of a command such as "stock pf get".
Help read_help(const std::string &text, const std::string &command)
{
    Help help;
    bool is_family = false;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const bool is_usage = line.starts_with("usage: " + command);
        if (is_usage || line.starts_with("       " + command)) {
            const std::string usage = line.substr(strlen("usage: ") + command.size());
            is_family = is_family || usage.starts_with(" COMMAND ");
            help.forms.push_back(read_form(usage));
        } else if (is_family && line.starts_with("  ")) {
            // As print_help writes it: two blanks, the name and its arguments in at least 28
            // columns, a blank, and the summary.
            const auto name_end = line.find(' ', 2);
            const auto gap = line.size() > 31 ? line.find(' ', 30) : std::string::npos;
            help.commands.emplace_back(line.substr(2, name_end - 2),
                                       gap == std::string::npos ? "" : line.substr(gap + 1));
        } else if (line.starts_with("  -") && !line.starts_with("  - ")) {
            add_listed(help, line);
        }
    }
    return help;
}

// Runs the tool with these words and returns what it prints on standard output, which is
// redirected to a temporary file meanwhile.
std::string printed_for(std::vector<std::string> words)
{
    std::vector<char *> argv(words.size() + 1);
    std::ranges::transform(words, argv.begin(), [](std::string &word) { return word.data(); });
    FILE *kept = tmpfile();
    if (!kept)
        return "";
    fflush(stdout);
    const int out = dup(STDOUT_FILENO);
    dup2(fileno(kept), STDOUT_FILENO);
    run_tool(static_cast<int>(words.size()), argv.data());
    fflush(stdout);
    dup2(out, STDOUT_FILENO);
    close(out);
    rewind(kept);
    std::string text;
    for (int c = getc(kept); c != EOF; c = getc(kept))
        text += static_cast<char>(c);
    fclose(kept);
    return text;
}

Help help_of(const std::vector<std::string> &command)
{
    std::string name;
    for (const std::string &word : command)
        name += (name.empty() ? "" : " ") + word;
    std::vector<std::string> words = command;
    words.push_back("--help");
    return read_help(printed_for(words), name);
}

// ---- Offering completions of an argument ----

// Prints the completions of one word. Each is a line: the completion, a tab and its meaning. A
// line that begins with a tab tells the shell what to complete itself.
class Offer {
public:
    Offer(std::string word, std::string before) : word_(std::move(word)), before_(std::move(before))
    {
    }

    // Prints the text if it continues the word. Omits texts with control characters: they would
    // break the line.
    void word(const std::string &text, const std::string &meaning = "") const
    {
        if (text.starts_with(word_) && std::ranges::none_of(text, is_control))
            printf("%s\t%s\n", text.c_str(), meaning.c_str());
    }
    // Tells the shell to complete "files", "directories", "variables" or "commands".
    void kind(const char *name) const { printf("\t%s\n", name); }
    bool goes_on_from(const std::string &text) const { return word_.starts_with(text); }
    const std::string &before() const { return before_; }  // the word before; may be empty
    bool has_directory() const { return word_.find('/') != std::string::npos; }

private:
    std::string word_;
    std::string before_;
};

std::vector<std::string> pf_directories()
{
    const char *path = getenv("PFPATH");
    std::istringstream in(path ? path : gettaluvine() + std::string("/data/pf:."));
    std::vector<std::string> directories;
    for (std::string directory; std::getline(in, directory, ':');)
        directories.push_back(directory);
    return directories;
}

void offer_pf_names(const Offer &offer)
{
    std::set<std::string> names;
    for (const std::string &directory : pf_directories()) {
        std::error_code ignored;
        for (const auto &entry : fs::directory_iterator(directory, ignored))
            if (entry.path().extension() == ".pf")
                names.insert(entry.path().stem().string());
    }
    for (const std::string &name : names)
        offer.word(name, "parameter file");
}

void offer_names_and_files(const Offer &offer)
{
    if (!offer.has_directory())
        offer_pf_names(offer);
    offer.kind("files");
}

// Whether a shell and an address take the key as it is.
bool needs_no_quotes(const std::string &key)
{
    return std::ranges::all_of(
        key, [](char c) { return stock::is_letter_or_digit(c) || (c && strchr("_.,:+-@%/", c)); });
}

std::string step(std::string address, const char *open, const std::string &text, const char *close)
{
    return address.append(open).append(text).append(close);
}

// Offers the addresses of the values in a table or list at the given address, and, where the
// word already contains such an address and a bracket, of the values under it.
void offer_addresses(const Offer &offer, const Pf *pf, const std::string &address)
{
    const auto add = [&](const std::string &place, const Pf *child) {
        offer.word(place);
        if (offer.goes_on_from(place + "{") || offer.goes_on_from(place + "["))
            offer_addresses(offer, child, place);
    };
    if (pf->type == PFTBL)
        for (int64_t i = 0; i < pfmaxtbl(pf); ++i)
            add(step(address, "[", std::to_string(i), "]"),
                static_cast<const Pf *>(gettbl(pf->value.tbl, i)));
    else if (pf->type == PFARR || pf->type == PFFILE)
        for (const std::string &key : keys_of(pf))
            if (needs_no_quotes(key))
                add(address.empty() ? key : step(address, "{", key, "}"), child_of(pf, key));
}

void offer_addresses_of_name(const Offer &offer)
{
    PfPtr tree;
    read_name(offer.before().c_str(), tree);
    if (tree)
        offer_addresses(offer, tree.get(), "");
}

void offer_addresses_of_file(const Offer &offer)
{
    std::error_code ignored;
    Pf *pf = nullptr;
    if (fs::is_regular_file(offer.before(), ignored))
        parse_file(offer.before().c_str(), &pf);
    if (const PfPtr tree(pf); tree)
        offer_addresses(offer, pf, "");
}

void offer_converters(const Offer &offer)
{
    for (const std::string &name : converter_names())
        offer.word(name);
}

void offer_types(const Offer &offer)
{
    for (const char *name : pf_types())
        offer.word(name);
}

void offer_signals(const Offer &offer)
{
    for (int i = 0; i < Nsig; ++i)
        offer.word(Siglist[i].name, "signal");
}

void offer_severities(const Offer &offer)
{
    for (int i = 0; const char *name = elog_severity(i); ++i)
        offer.word(name);
}

void offer_zones(const Offer &offer)
{
    offer.word("LOCAL", "this computer's zone");
    const fs::path root = "/usr/share/zoneinfo";
    std::set<std::string> zones;
    std::error_code ignored;
    for (const auto &entry : fs::recursive_directory_iterator(root, ignored)) {
        const std::string name = entry.path().lexically_relative(root).string();
        if (begins_upper(name) && !entry.is_directory(ignored))
            zones.insert(name);
    }
    for (const std::string &zone : zones)
        offer.word(zone);
}

struct Argument {
    std::string_view after;  // the command or argument that must come before it; empty: any
    std::string_view name;   // in the usage line
    void (*offer)(const Offer &offer);
};

// The first row that fits counts.
// clang-format off
constexpr Argument kArguments[] = {
    {"FILE", "ADDRESS",     offer_addresses_of_file},
    {"NAME", "ADDRESS",     offer_addresses_of_name},
    {"",     "COMMAND",     [](const Offer &offer) { offer.kind("commands"); }},
    {"",     "FILE",        [](const Offer &offer) { offer.kind("files"); }},
    {"",     "FILE|NAME",   offer_names_and_files},
    {"",     "FROM",        [](const Offer &offer) { offer.kind("directories"); }},
    {"",     "MEMBER",      offer_converters},
    {"pf",   "NAME",        offer_pf_names},
    {"",     "NAME|NUMBER", offer_signals},
    {"",     "PATH",        [](const Offer &offer) { offer.kind("files"); }},
    {"",     "SEVERITY",    offer_severities},
    {"",     "TO",          [](const Offer &offer) { offer.kind("files"); }},
    {"",     "TYPE",        offer_types},
    {"",     "VARIABLE",    [](const Offer &offer) { offer.kind("variables"); }},
    {"",     "ZONE",        offer_zones},
};
// clang-format on

void offer_argument(const Offer &offer, const std::string &after, const std::string &name)
{
    for (const Argument &argument : kArguments)
        if (argument.name == name && (argument.after.empty() || argument.after == after))
            return argument.offer(offer);
}

// ---- Finding what the last word is ----

const Option *find_option(const Form &form, const std::string &name)
{
    for (const Option &option : form.options)
        if (option.name == name)
            return &option;
    return nullptr;
}

// The words before the last one, read as options and arguments of a form.
struct FormWords {
    bool fits = true;                // the form has all options among the words
    const Option *taking = nullptr;  // the option whose argument is the last word, or null
    std::size_t arguments = 0;       // the number of arguments among the words

    FormWords(const Form &form, const std::vector<std::string> &words)
    {
        for (const std::string &word : words) {
            if (std::exchange(taking, nullptr))
                continue;
            if (arguments == 0 && word.size() > 1 && word[0] == '-') {
                const Option *option = find_option(form, word);
                fits = fits && option;
                taking = option && !option->argument.empty() ? option : nullptr;
            } else {
                ++arguments;
            }
        }
    }
};

void offer_options(const Offer &offer, const std::vector<Form> &forms,
                   const std::vector<std::string> &before)
{
    std::set<std::string> names;
    for (const Form &form : forms)
        if (const FormWords words(form, before); words.fits && words.arguments == 0)
            for (const Option &option : form.options)
                names.insert(option.name);
    if (before.empty())
        names.insert("--help");
    for (const std::string &name : names)
        offer.word(name);
}

// Completes the word with the first form that has all options among the words before it.
void complete_arguments(const Help &help, const std::string &family,
                        const std::vector<std::string> &before, const std::string &word)
{
    const Offer offer(word, before.empty() ? "" : before.back());
    for (const Form &form : help.forms) {
        const FormWords words(form, before);
        if (!words.fits)
            continue;
        if (words.taking)
            return offer_argument(offer, family, words.taking->argument);
        if (word.starts_with('-'))
            return offer_options(offer, help.forms, before);
        const std::size_t count = form.arguments.size();
        if (words.arguments < count)
            return offer_argument(offer,
                                  words.arguments ? form.arguments[words.arguments - 1] : family,
                                  form.arguments[words.arguments]);
        if (form.repeats && count > 0)
            offer_argument(offer, family, form.arguments[count - 1]);
        return;
    }
}

// Completes the last of the words after "stock".
void complete(const std::vector<std::string> &words)
{
    std::vector<std::string> command = {"stock"};
    Help help = help_of(command);
    auto word = words.begin();
    for (; !help.commands.empty() && word + 1 != words.end(); ++word) {
        const auto is_it = [&](const auto &row) { return row.first == *word; };
        if (std::ranges::none_of(help.commands, is_it))
            return;
        command.push_back(*word);
        help = help_of(command);
    }
    const std::string &last = words.back();
    if (help.commands.empty()) {
        complete_arguments(help, command[1], {word, words.end() - 1}, last);
        return;
    }
    const Offer offer(last, "");
    for (const auto &[name, summary] : help.commands)
        offer.word(name, summary);
    if (last.starts_with('-')) {
        offer.word("--help");
        if (words.size() == 1)
            offer.word("--version");
    }
}

}  // namespace

int cmd_complete(int argc, char **argv)
{
    if (argc == 2 && helped(argc, argv, kHelp))
        return kDone;
    if (argc < 3)
        return wrong_usage("stock complete", "which words?");
    complete({argv + 2, argv + argc});
    return kDone;
}
