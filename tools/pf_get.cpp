// stock pf files, get and shell: what a program finds under a name.
//
// The values are read with the getters of the library, so that the output and the complaints are
// what a program would get.

#include <algorithm>
#include <cstring>
#include <map>
#include <set>

#include "base/ascii.h"
#include "base/limits.h"
#include "pf_source.h"
#include "pf_tool.h"

// ---- files ----

namespace {

constexpr const char *kFilesHelp =
    "usage: stock pf files NAME\n"
    "\n"
    "Lists every file that NAME may stand for, in the order in which they are read: a\n"
    "later one overrides an earlier one. Before each stands the time of its last\n"
    "change, in UTC, or '-' when it is not there or cannot be read.\n"
    "\n"
    "The files are looked for in the directories of PFPATH; when that is unset, in\n"
    "data/pf of the installation root and in the working directory. The exit status\n"
    "is 1 when there is no file to read.\n";

constexpr const char *kTimeFormat = "%Y-%m-%d %H:%M:%S.%s";
constexpr int kTimeWidth = 23;  // characters of such a time

// When each file of a name was changed, by its path. Files that cannot be examined are missing.
std::map<std::string, double> times_of(const char *name)
{
    std::map<std::string, double> times;
    Tbl *read = pftimes(name);
    for (int64_t i = 0; i < read->count; ++i) {
        const auto *time = static_cast<const Pftime *>(gettbl(read, i));
        times[time->path] = time->mtime;
    }
    freetbl(read, pffree_time);
    return times;
}

}  // namespace

int pf_files(int argc, char **argv)
{
    if (helped(argc, argv, kFilesHelp))
        return kDone;
    if (argc != 2 || !*argv[1])
        return wrong_usage("stock pf files", argc > 2 ? "one name at a time" : "which name?");

    const std::map<std::string, double> times = times_of(argv[1]);
    Tbl *all = pffiles(argv[1], 1);
    for (int64_t i = 0; i < all->count; ++i) {
        const auto *path = static_cast<const char *>(gettbl(all, i));
        const auto found = times.find(path);
        if (found == times.end()) {
            printf("%-*s  %s\n", kTimeWidth, "-", path);
        } else {
            char *time = zepoch2str(kTimeFormat, "UTC", found->second);
            printf("%-*s  %s\n", kTimeWidth, time, path);
            free(time);
        }
    }
    freetbl(all, free);
    if (!times.empty())
        return kDone;
    elog_complain(0, "there is no parameter file '%s'\n", argv[1]);
    return kFailed;
}

// ---- get ----

namespace {

constexpr const char *kGetHelp =
    "usage: stock pf get [--type TYPE] NAME ADDRESS\n"
    "\n"
    "Prints the value at an address of a parameter file, found along PFPATH, as a\n"
    "program gets it: references are expanded and functions evaluated. A list or\n"
    "table is printed as parameter text.\n"
    "\n"
    "  a        the value of the key a\n"
    "  a{b}     the value of the key b in the table a\n"
    "  a[2]     the third element of the list a\n"
    "\n"
    "  --type TYPE   read it as this type, with what the library says of bad and of\n"
    "                missing values, and the line where a bad one is written:\n"
    "                  int, double, size, string\n"
    "                  time       printed in seconds since 1970\n"
    "                  boolean    printed as true or false\n"
    "                  tbl        printed as an element a line\n"
    "                  arr        printed as a key, a tab and its text a line\n"
    "\n"
    "A NAME that begins with - stands behind --. The exit status is 1 when there is no\n"
    "such value or it is not of the type. A function that fails may have the text of its\n"
    "error as its value, which is printed as any other.\n";

int no_entry(Pf *pf, const char *address)
{
    elog_complain(0, "no entry '%s' in parameter file %s", address, pf->filename);
    return kFailed;
}

void print_double(double value)
{
    char text[STRDBL_SIZE];
    puts(strdbl(text, value));
}

// What the command asks for. The functions below, which the library calls, use it.
struct {
    const char *name;
    const char *address;
    bool complained = false;  // the library has complained of the value
} Asked;

// The log's callback: notes complaints and worse, which have a severity above 1, and leaves
// their delivery to the log.
int watch_complaints(int severity, const char *, Tbl *)
{
    Asked.complained = Asked.complained || severity > 1;
    return 0;
}

// Prints the file and the line of a value that something is wrong with. A value that is
// missing has none.
void tell_place()
{
    char path[stock::kPathSize];
    int line = 0;
    const int mark = elog_mark();  // that pfwhere finds nothing is not to be reported
    const bool found = pfwhere(Asked.name, Asked.address, path, &line) == 0;
    elog_truncate(mark);
    if (found)
        elog_complain(0, "'%s' is written in %s:%d\n", Asked.address, path, line);
}

// The library's die function, called for a value that is missing or of the wrong type.
void die_with_place(Pf *pf, const char *address, int expected, int got, Pf **result)
{
    tell_place();
    _pfdie(pf, address, expected, got, result);
}

int get_int(Pf *pf, const char *address)
{
    printf("%ld\n", pfget_int(pf, address));
    return kDone;
}

int get_double(Pf *pf, const char *address)
{
    print_double(pfget_double(pf, address));
    return kDone;
}

int get_time(Pf *pf, const char *address)
{
    printf("%.5f\n", pfget_time(pf, address));
    return kDone;
}

int get_boolean(Pf *pf, const char *address)
{
    puts(pfget_boolean(pf, address) ? "true" : "false");
    return kDone;
}

int get_size(Pf *pf, const char *address)
{
    print_double(pfget_size(pf, address));
    return kDone;
}

int get_string(Pf *pf, const char *address)
{
    const char *text = pfget_string(pf, address);
    if (!text)
        return no_entry(pf, address);
    puts(text);
    return kDone;
}

// Prints the elements one by one: pfget_tbl does not tell texts and nodes apart.
int get_tbl(Pf *pf, const char *address)
{
    Pf *node = nullptr;
    _pfeval(pf, address, &node, PFANY);
    if (!node)
        return no_entry(pf, address);
    if (node->type != PFTBL) {
        freetbl(pfget_tbl(pf, address), nullptr);  // the library says what is wrong
        return kFailed;
    }
    for (int64_t i = 0; i < pfmaxtbl(node); ++i) {
        void *value = nullptr;
        if (pfget(node, pfindex(i), &value) == PFSTRING)
            puts(static_cast<char *>(value));
        else if (value)
            pfout(stdout, static_cast<Pf *>(value));
    }
    return kDone;
}

// Prints a key, a tab and its text a line.
int get_arr(Pf *pf, const char *address)
{
    Arr *values = pfget_arr(pf, address);
    if (!values)
        return no_entry(pf, address);
    Tbl *keys = keysarr(values);
    for (int64_t i = 0; i < keys->count; ++i) {
        const auto *key = static_cast<const char *>(gettbl(keys, i));
        printf("%s\t%s\n", key, static_cast<char *>(getarr(values, key)));
    }
    freetbl(keys, nullptr);
    freearr(values, nullptr);
    return kDone;
}

// Prints a value of any type.
int get_any(Pf *pf, const char *address)
{
    Pf *node = nullptr;
    _pfeval(pf, address, &node, PFANY);
    if (!node)
        return no_entry(pf, address);
    switch (node->type) {
    case PFSTRING: puts(pfexpand(node)); return kDone;
    case PFFILE:
    case PFARR:
    case PFTBL: pfout(stdout, node); return kDone;
    case PFEXEC_ERROR: puts(okstr(node->value.s)); break;
    default:
        if (node->value.s)
            elog_log(0, "%s", node->value.s);
    }
    elog_complain(0, "can't evaluate '%s' of parameter file %s", address, pf->filename);
    return kFailed;
}

// A type that --type takes.
struct Type {
    const char *name;
    int (*print)(Pf *pf, const char *address);  // prints the value; gives the exit status
};

constexpr Type kTypes[] = {
    {"int", get_int},   {"double", get_double}, {"time", get_time}, {"boolean", get_boolean},
    {"size", get_size}, {"string", get_string}, {"tbl", get_tbl},   {"arr", get_arr},
};

const Type *find_type(const char *name)
{
    for (const Type &type : kTypes)
        if (!strcmp(type.name, name))
            return &type;
    return nullptr;
}

}  // namespace

std::vector<const char *> pf_types()
{
    std::vector<const char *> names;
    for (const Type &type : kTypes)
        names.push_back(type.name);
    return names;
}

namespace {

// Reads the files of the name and prints the value at the address as the type says.
int get_value(int (*print)(Pf *pf, const char *address), const char *name, const char *address)
{
    PfPtr tree;
    const bool whole = read_name(name, tree);
    if (!tree)
        return kFailed;
    Asked = {name, address};
    pfconfig("die", reinterpret_cast<void *>(die_with_place));
    elog_set(ELOG_CALLBACK_FN, 0, watch_complaints);
    const int status = print(tree.get(), address);
    elog_set(ELOG_CALLBACK_FN, 0, static_cast<Elog_callback>(nullptr));
    if (Asked.complained)
        tell_place();
    return whole && !Asked.complained ? status : kFailed;
}

}  // namespace

int pf_get(int argc, char **argv)
{
    if (helped(argc, argv, kGetHelp))
        return kDone;
    auto *print = get_any;
    int first = 1;
    if (argc > 2 && !strcmp(argv[1], "--type")) {
        const Type *type = find_type(argv[2]);
        if (!type)
            return wrong_usage("stock pf get", "no type '%s'", argv[2]);
        print = type->print;
        first = 3;
    }
    if (argc > first && !strcmp(argv[first], "--"))
        ++first;
    else if (argc > first && argv[first][0] == '-')
        return wrong_usage("stock pf get", "no option '%s'", argv[first]);
    if (argc - first != 2)
        return wrong_usage("stock pf get", "a name and an address, please");
    // The library would print stray marks to standard output.
    const char *address = argv[first + 1];
    if (*address && !parse_address(address))
        return wrong_usage("stock pf get", "'%s' is no address", address);

    return get_value(print, argv[first], address);
}

// ---- shell ----

namespace {

constexpr const char *kShellHelp =
    "usage: stock pf shell NAME PREFIX\n"
    "\n"
    "Prints the values of a parameter file, found along PFPATH, as assignments for a\n"
    "Bourne shell, which takes them with\n"
    "\n"
    "  eval \"$(stock pf shell NAME PREFIX)\"\n"
    "\n"
    "References are expanded and functions evaluated. The variables are\n"
    "\n"
    "  PREFIXa      the text a\n"
    "  PREFIXa_b    the text b of the table a\n"
    "  PREFIXa      how many elements the list a has\n"
    "  PREFIXa_0    its first element\n"
    "\n"
    "with _ for what cannot stand in the name of a variable. PREFIX is a letter or _\n"
    "with letters, digits and _ behind it. When two values have the same variable,\n"
    "or one has no value, that is reported, the first is printed, and the exit\n"
    "status is 1.\n";

// Whether c may stand in the name of a shell variable; a digit not at its start.
bool is_name_character(char c)
{
    return stock::is_letter_or_digit(c) || c == '_';
}

bool is_variable_name(std::string_view text)
{
    return !text.empty() && !stock::is_digit(text[0]) &&
           std::ranges::all_of(text, is_name_character);
}

// Prints the assignments and remembers which variables it gave.
class Shell {
public:
    // Prints the texts of a node as variables that begin with the name. The separator stands
    // between the name and a key: nothing at the top, "_" below it.
    void print(const std::string &name, const char *separator, Pf *node)
    {
        Pf *value = node->type == PFFUNCTION ? pfinterpret(node) : node;
        if (!value || value->type == PFINVALID || value->type == PFEXEC_ERROR)
            return fail("can't evaluate what is the value of", name);
        if (value->type == PFSTRING)
            return assign(name, pfexpand(value));
        if (value->type == PFTBL)
            assign(name, std::to_string(pfmaxtbl(value)));
        for (int64_t i = 0; i < pfmaxtbl(value); ++i)
            print(name + "_" + std::to_string(i), "_",
                  static_cast<Pf *>(gettbl(value->value.tbl, i)));
        for (const std::string &key : keys_of(value))
            print(name + separator + variable(key), "_", child_of(value, key));
    }

    int status() const { return status_; }

private:
    // The key as a part of a variable's name: other characters become "_".
    static std::string variable(std::string key)
    {
        for (char &c : key)
            if (!is_name_character(c))
                c = '_';
        return key;
    }

    // Prints name='text'. A single quote in the text ends the quoted string, stands escaped,
    // and begins the next one: '\''.
    void assign(const std::string &name, const std::string &text)
    {
        if (!given_.insert(name).second)
            return fail("two values would be", name);
        std::string out = name + "='";
        for (const char c : text)
            out += c == '\'' ? std::string("'\\''") : std::string(1, c);
        printf("%s'\n", out.c_str());
    }

    void fail(const char *what, const std::string &name)
    {
        elog_complain(0, "%s '%s'\n", what, name.c_str());
        status_ = kFailed;
    }

    std::set<std::string> given_;  // the variables that were printed
    int status_ = kDone;
};

}  // namespace

int pf_shell(int argc, char **argv)
{
    if (helped(argc, argv, kShellHelp))
        return kDone;
    if (argc != 3)
        return wrong_usage("stock pf shell", "a name and a prefix, please");
    if (!is_variable_name(argv[2]))
        return wrong_usage("stock pf shell", "'%s' can't begin a variable", argv[2]);
    PfPtr tree;
    const bool whole = read_name(argv[1], tree);
    if (!tree)
        return kFailed;
    Shell shell;
    shell.print(argv[2], "", tree.get());
    return whole ? shell.status() : kFailed;
}
