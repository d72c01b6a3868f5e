// stock pf watch: what changes in a parameter file while it is watched.
//
// The times of the files are looked at again and again. When one differs, all files are read
// anew, and the values are compared by address.

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <utility>

#include "pf_tool.h"

namespace {

constexpr const char *kHelp =
    "usage: stock pf watch [--interval SECONDS] [--changes NUMBER] NAME\n"
    "\n"
    "Looks after the files of a name, found along PFPATH, and each time one is\n"
    "changed, made or removed prints a line with the time and what changed in the\n"
    "merged tree, by address:\n"
    "\n"
    "  # 2026-11-21 10:30:00 x\n"
    "  - a{b} '1'\n"
    "  + a{b} '2'\n"
    "\n"
    "  --interval SECONDS   look this often, 1 when not given\n"
    "  --changes NUMBER     end after so many changes; else it goes on until it is\n"
    "                       interrupted\n"
    "\n"
    "A NAME that begins with - stands behind --.\n";

using Values = std::map<std::string, std::string>;          // by address, as they are written
using Times = std::vector<std::pair<std::string, double>>;  // path and last change of each file

Times times_of(const char *name)
{
    Times times;
    Tbl *list = pftimes(name);
    for (int64_t i = 0; i < list->count; ++i) {
        const auto *time = static_cast<const Pftime *>(gettbl(list, i));
        times.emplace_back(time->path, time->mtime);
    }
    freetbl(list, pffree_time);
    return times;
}

// Adds the node at an address and all nodes under it. A container is added as well, by its
// mark, so that one that becomes empty, or changes its kind, is seen.
void add_values(Values &values, const std::string &address, const Pf *pf)
{
    switch (pf->type) {
    case PFFILE:
        for (const std::string &key : keys_of(pf))
            add_values(values, key, child_of(pf, key));
        break;
    case PFARR:
        values[address] = "&Arr{";
        for (const std::string &key : keys_of(pf))
            add_values(values, std::string(address).append("{").append(key).append("}"),
                       child_of(pf, key));
        break;
    case PFTBL:
        values[address] = "&Tbl{";
        for (int64_t i = 0; i < pfmaxtbl(pf); ++i)
            add_values(values, address + "[" + std::to_string(i) + "]",
                       static_cast<Pf *>(gettbl(pf->value.tbl, i)));
        break;
    case PFFUNCTION: {
        const std::string_view text = pf->value.pffunct->text;
        values[address] = text.substr(0, text.find_last_of(')') + 1);
        break;
    }
    default: values[address] = quoted(okstr(pf->value.s));
    }
}

// Parses the files into one tree and gives its values.
Values values_of(const Times &files)
{
    Pf *tree = pfnew(PFFILE);
    const PfPtr owner(tree);
    for (const auto &[file, time] : files)
        parse_file(file.c_str(), &tree);
    Values values;
    add_values(values, "", tree);
    return values;
}

std::string now()
{
    char text[32];
    const time_t seconds = time(nullptr);
    struct tm fields {};
    localtime_r(&seconds, &fields);
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &fields);
    return text;
}

// The lines that tell what differs, in the order of the addresses.
std::string differences(const Values &before, const Values &after)
{
    std::string out;
    Values all = before;
    all.insert(after.begin(), after.end());
    for (const auto &[address, value] : all) {
        const auto was = before.find(address);
        const auto is = after.find(address);
        if (was != before.end() && is != after.end() && was->second == is->second)
            continue;
        if (was != before.end())
            out += "- " + escaped(address) + " " + was->second + "\n";
        if (is != after.end())
            out += "+ " + escaped(address) + " " + is->second + "\n";
    }
    return out;
}

// Waits that long, signals or not.
void wait(double seconds)
{
    timespec left{};
    left.tv_sec = static_cast<time_t>(seconds);
    left.tv_nsec = static_cast<long>((seconds - std::floor(seconds)) * 1e9);
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

struct Options {
    double interval = 1;
    long changes = 0;  // 0: without end
    const char *name = nullptr;
};

// Reads a number from `least` to a million; false when the text is none.
bool read_number(const char *text, double least, double *number)
{
    char *end = nullptr;
    *number = strtod(text, &end);
    return end != text && !*end && *number >= least && *number <= 1e6;
}

// Reads the words of the command line. Gives the one that is wrong, or null.
const char *read_options(int argc, char **argv, Options &options)
{
    for (int i = 1; i < argc; ++i) {
        double number = 0;
        if (!strcmp(argv[i], "--interval") && i + 1 < argc) {
            if (!read_number(argv[++i], 0.001, &options.interval))
                return argv[i];
        } else if (!strcmp(argv[i], "--changes") && i + 1 < argc) {
            if (!read_number(argv[++i], 1, &number))
                return argv[i];
            options.changes = static_cast<long>(number);
        } else if (!strcmp(argv[i], "--") && !options.name && i + 2 == argc) {
            options.name = argv[++i];
        } else if (argv[i][0] == '-' || options.name) {
            return argv[i];
        } else {
            options.name = argv[i];
        }
    }
    return nullptr;
}

// Prints changes until there were as many as asked for. Files whose times changed but whose
// values did not are no change.
int watch(const Options &options)
{
    Times times = times_of(options.name);
    Values values = values_of(times);
    for (long seen = 0; options.changes == 0 || seen < options.changes;) {
        wait(options.interval);
        Times found = times_of(options.name);
        if (found == times)
            continue;
        times = std::move(found);
        Values read = values_of(times);
        const std::string lines = differences(values, read);
        values = std::move(read);
        if (lines.empty())
            continue;
        ++seen;
        printf("# %s %s\n%s", now().c_str(), options.name, lines.c_str());
        if (fflush(stdout) != 0)
            return kFailed;
    }
    return kDone;
}

}  // namespace

int pf_watch(int argc, char **argv)
{
    if (helped(argc, argv, kHelp))
        return kDone;
    Options options;
    if (const char *wrong = read_options(argc, argv, options))
        return wrong_usage("stock pf watch", "what is '%s'?", wrong);
    if (!options.name || !*options.name)
        return wrong_usage("stock pf watch", "which name?");
    return watch(options);
}
