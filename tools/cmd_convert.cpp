// stock convert: converts packed numbers to lines of decimal text, or the reverse, with one
// converter of the library.
//
// A converter is found by its name with dlsym: the converters differ only in their names and
// types, and a name says the types. Values are converted in batches of kBatch. Only if a batch
// was not exact, its values are converted one by one to find those that were not.

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <dlfcn.h>

#include "base/ascii.h"
#include "command.h"
#include "stock.h"

namespace {

constexpr const char *kHelp =
    "usage: stock convert MEMBER\n"
    "\n"
    "Converts numbers with the library's function of that name, such as ms2hd or uhl2ab.\n"
    "A member Xt2hy reads packed numbers from standard input and prints one decimal\n"
    "number a line. A member hy2Xt reads one decimal number a line and writes them\n"
    "packed, up to the first line that is none. Empty lines are passed over.\n"
    "\n"
    "  X     order of the bytes: m most significant first, a or v least first\n"
    "  t, y  b, s, i, l: integers of 8, 16, 32, 64 bits; f, d: single and double precision\n"
    "  u...  in front: integers are unsigned (not when both types are floating)\n"
    "\n"
    "Exit status: 0 when every value arrived exactly, 1 when one did not, on a line that\n"
    "is no number of the type and on bytes left over at the end, 2 on wrong usage.\n";

constexpr const char *kName = "stock convert";
constexpr std::size_t kBatch = 4096;  // values that are converted at a time
constexpr std::string_view kTypeLetters = "bsilfd";

// One converter.
struct Member {
    const char *name;
    bool is_unsigned;
    bool reads;           // from packed numbers to the host's; false: the reverse
    char external, host;  // type letters of the two sides
    void *function;
};

bool is_one_of(std::string_view letters, char letter)
{
    return letters.find(letter) != std::string_view::npos;
}

bool is_floating(char type)
{
    return is_one_of("fd", type);
}

// The bytes of an external value.
std::size_t width_of(char type)
{
    return type == 'b' ? 1 : type == 's' ? 2 : is_one_of("if", type) ? 4 : 8;
}

// Splits a name, Xt2hy or hy2Xt with or without a u before it, and finds the function. Returns
// false if there is no such converter.
bool find_member(const char *name, Member *member)
{
    std::string_view rest = name;
    member->name = name;
    member->is_unsigned = rest.starts_with('u');
    rest.remove_prefix(member->is_unsigned);
    if (rest.size() != 5 || rest[2] != '2')
        return false;
    member->reads = rest[3] == 'h';
    const std::string_view host = rest.substr(member->reads ? 3 : 0, 2);
    const std::string_view external = rest.substr(member->reads ? 0 : 3, 2);
    member->external = external[1];
    member->host = host[1];
    if (host[0] != 'h' || !is_one_of("mav", external[0]) || !is_one_of(kTypeLetters, host[1]) ||
        !is_one_of(kTypeLetters, external[1]))
        return false;
    // Null for a u and two floating types: there is no such function.
    member->function = dlsym(RTLD_DEFAULT, name);
    return member->function;
}

// Counts all values, and those that were not converted exactly.
class Tally {
public:
    // Adds a batch of n values. If it was not exact, is_exact(i) converts value i alone.
    template <class Alone>
    void add(int n, bool exact, Alone is_exact)
    {
        for (int i = 0; !exact && i < n; ++i)
            if (!is_exact(i) && inexact_++ == 0)
                first_ = values_ + i + 1;
        values_ += n;
    }

    // Complains if some values were not exact. Returns the exit status.
    int report(const char *member) const
    {
        if (inexact_ == 0)
            return kDone;
        elog_complain(0, "%s: %s: %ld of %ld values not exact, the first is number %ld", kName,
                      member, inexact_, values_, first_);
        return kFailed;
    }

private:
    long values_ = 0;
    long inexact_ = 0;
    long first_ = 0;  // the number, from 1, of the first value that was not exact
};

int cannot_read()
{
    elog_complain(1, "%s: can't read standard input", kName);
    return kFailed;
}

// Prints the shortest decimal number that is read back as the same value.
template <class H>
void print_line(H value)
{
    char text[64];
    char *const end = std::to_chars(text, text + sizeof text - 1, value).ptr;
    *end = '\n';
    fwrite(text, 1, static_cast<std::size_t>(end + 1 - text), stdout);
}

// Reads packed numbers and prints them as host type H, one on each line.
template <class H>
int read_all(const Member &member, const char *)
{
    const auto convert = reinterpret_cast<int (*)(char **, H *, int)>(member.function);
    const std::size_t width = width_of(member.external);
    std::vector<char> from(kBatch * width);
    std::vector<H> to(kBatch);
    const auto convert_from = [&](std::size_t index, int n) {
        char *cursor = from.data() + index * width;
        return convert(&cursor, &to[index], n) == 0;
    };
    Tally tally;
    std::size_t got;
    do {
        got = fread(from.data(), 1, from.size(), stdin);
        const int n = static_cast<int>(got / width);
        tally.add(n, n == 0 || convert_from(0, n),
                  [&](int i) { return convert_from(static_cast<std::size_t>(i), 1); });
        std::for_each(to.begin(), to.begin() + n, print_line<H>);
    } while (got == from.size() && !ferror(stdout));
    if (ferror(stdin))
        return cannot_read();
    const int status = tally.report(member.name);
    if (got % width == 0)
        return status;
    elog_complain(0, "%s: %s: %zu bytes left over at the end, a value has %zu", kName, member.name,
                  got % width, width);
    return kFailed;
}

// White space around a number. A newline ends the line and is never part of it.
bool is_space(char c)
{
    return is_one_of(" \t\r\f\v", c);
}

// Reads standard input line by line and skips blank lines.
class Lines {
public:
    // Reads the next line. Returns false at the end of input. A line of kLongest characters is
    // too long to be a number; only its beginning is kept.
    bool next()
    {
        do {
            if (!read_line())
                return false;
        } while (line_.empty());
        return true;
    }

    std::string_view line() const { return line_; }  // without white space around it
    long number() const { return number_; }          // from 1, blank lines included
    bool too_long() const { return too_long_; }

private:
    bool read_line()
    {
        std::size_t length = 0;
        int c;
        while ((c = getc_unlocked(stdin)) != EOF && c != '\n' && length < kLongest)
            text_[length++] = static_cast<char>(c);
        too_long_ = length == kLongest;
        line_ = stock::trimmed({text_, length}, is_space);
        // parse_floating needs a zero byte after the line.
        text_[line_.empty() ? 0 : line_.data() + line_.size() - text_] = '\0';
        ++number_;
        return c != EOF || length != 0;
    }

    static constexpr std::size_t kLongest = 4096;
    char text_[kLongest + 1];
    std::string_view line_;
    long number_ = 0;
    bool too_long_ = false;
};

// strtof and strtod: not every standard library has std::from_chars for floating types. The
// tool's locale is "C", so the decimal point is a point.
char *parse_floating(const char *text, float *value)
{
    char *end;
    *value = strtof(text, &end);
    return end;
}

char *parse_floating(const char *text, double *value)
{
    char *end;
    *value = strtod(text, &end);
    return end;
}

// Reads the whole text, which a zero byte follows, as a number. Returns false if it is not one.
template <class H>
bool parse_number(std::string_view text, H *value)
{
    const char *const end = text.data() + text.size();
    if constexpr (std::is_floating_point_v<H>) {
        errno = 0;
        return parse_floating(text.data(), value) == end &&
               !(errno == ERANGE && std::isinf(*value));
    } else {
        if (text.starts_with('+') && !text.starts_with("+-"))
            text.remove_prefix(1);
        const auto [stop, error] = std::from_chars(text.data(), end, *value);
        return error == std::errc() && stop == end;
    }
}

// Reads up to kBatch numbers. Returns false at a line that is not a number.
template <class H>
bool parse_batch(Lines *lines, std::vector<H> *numbers)
{
    numbers->clear();
    H value;
    while (numbers->size() < kBatch && lines->next()) {
        if (lines->too_long() || !parse_number(lines->line(), &value))
            return false;
        numbers->push_back(value);
    }
    return true;
}

int no_number(const Lines &lines, const char *type)
{
    const int shown = static_cast<int>(std::min<std::size_t>(lines.line().size(), 60));
    elog_complain(0, "%s: line %ld: '%.*s%s' is no %s", kName, lines.number(), shown,
                  lines.line().data(), lines.line().size() > 60 ? "..." : "", type);
    return kFailed;
}

// Reads one decimal number of host type H from each line and writes packed numbers.
template <class H>
int write_all(const Member &member, const char *type)
{
    const auto convert = reinterpret_cast<int (*)(const H *, char **, int)>(member.function);
    const std::size_t width = width_of(member.external);
    std::vector<H> from;
    std::vector<char> to(kBatch * width);
    const auto convert_from = [&](std::size_t index, int n) {
        char *cursor = &to[index * width];
        return convert(&from[index], &cursor, n) == 0;
    };
    Tally tally;
    Lines lines;
    bool parsed;
    do {
        parsed = parse_batch(&lines, &from);
        const int n = static_cast<int>(from.size());
        tally.add(n, n == 0 || convert_from(0, n),
                  [&](int i) { return convert_from(static_cast<std::size_t>(i), 1); });
        fwrite(to.data(), width, from.size(), stdout);
    } while (parsed && from.size() == kBatch && !ferror(stdout));
    if (ferror(stdin))
        return cannot_read();
    const int status = tally.report(member.name);
    return parsed ? status : no_number(lines, type);
}

// A host type, with the functions that convert from and to it.
struct Type {
    char letter;
    bool is_unsigned;
    const char *name;  // in messages
    int (*read)(const Member &, const char *);
    int (*write)(const Member &, const char *);
};

template <class H>
constexpr Type type(char letter, const char *name)
{
    return {letter, std::is_unsigned_v<H>, name, read_all<H>, write_all<H>};
}

constexpr Type kTypes[] = {
    type<signed char>('b', "8-bit integer"),
    type<short>('s', "16-bit integer"),
    type<int>('i', "32-bit integer"),
    type<long>('l', "64-bit integer"),
    type<unsigned char>('b', "unsigned 8-bit integer"),
    type<unsigned short>('s', "unsigned 16-bit integer"),
    type<unsigned int>('i', "unsigned 32-bit integer"),
    type<unsigned long>('l', "unsigned 64-bit integer"),
    type<float>('f', "single precision number"),
    type<double>('d', "double precision number"),
};

int run(const Member &member)
{
    // The u of uas2hd is about the external integers: the host's doubles have no sign to drop.
    const bool is_unsigned = member.is_unsigned && !is_floating(member.host);
    const Type *const type = std::find_if(std::begin(kTypes), std::end(kTypes), [&](const Type &t) {
        return t.letter == member.host && t.is_unsigned == is_unsigned;
    });
    return (member.reads ? type->read : type->write)(member, type->name);
}

}  // namespace

std::vector<std::string> converter_names()
{
    std::vector<std::string> names;
    char name[16];
    const auto add = [&](const char *sign, char a, char b, char c, char d) {
        snprintf(name, sizeof name, "%s%c%c2%c%c", sign, a, b, c, d);
        if (Member member; find_member(name, &member))
            names.emplace_back(name);
    };
    for (const char *sign : {"", "u"})
        for (const char order : std::string_view("mav"))
            for (const char external : kTypeLetters)
                for (const char host : kTypeLetters) {
                    add(sign, order, external, 'h', host);
                    add(sign, 'h', host, order, external);
                }
    return names;
}

int cmd_convert(int argc, char **argv)
{
    if (helped(argc, argv, kHelp))
        return kDone;
    if (argc != 2)
        return wrong_usage(kName, argc < 2 ? "which member?" : "one member at a time");
    Member member;
    if (!find_member(argv[1], &member))
        return wrong_usage(kName, "no member '%s'", argv[1]);
    return run(member);
}
