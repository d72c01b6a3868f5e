// stock time: reads times in any form of str2epoch and prints them in one form; prints
// intervals; waits until a time.
//
// The library reads and prints. This file adds the ISO 8601 form, with a calendar that is right
// in every year, and the column in which the text of a time becomes wrong.

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <unistd.h>

#include "base/ascii.h"
#include "command.h"
#include "deviants.h"
#include "stock.h"

namespace {

constexpr const char *kHelp =
    "usage: stock time [-f FORMAT | -e | -d | -i] [-z ZONE] [STRING...]\n"
    "       stock time --delta SECONDS\n"
    "       stock time --until STRING [COMMAND [ARGUMENT...]]\n\n"
    "Prints each time, one to a line; without a STRING the current one. A STRING is a\n"
    "time as people write it: '2008-02-01 12:30', 'Feb 1, 2008 12:30 pm', '-1:30',\n"
    "'2008032 12:30 US/Pacific'. The STRING '-' stands for standard input, one time to\n"
    "a line.\n\n"
    "  -f FORMAT   the form: %Y-%m-%d %H:%M:%S and so on\n"
    "  -e          epoch time, in seconds\n"
    "  -d          year-day: 2008032\n"
    "  -i          ISO 8601: 2008-02-01T12:30:00.000Z\n"
    "  -z ZONE     the zone to print in; LOCAL is this computer's\n\n"
    "  --delta     prints an interval in its largest unit\n"
    "  --until     waits for a time, then runs the command\n\n"
    "The status is 1 when one of the times cannot be read.\n";

struct Options {
    const char *format = nullptr;  // of zepoch2str; only print_format and print_dated use it
    const char *zone = nullptr;    // null: UTC
    void (*print)(double when, const Options &options);
};

void print_epoch(double when, const Options &)
{
    char text[400];
    const auto end = std::to_chars(text, text + sizeof text, when, std::chars_format::fixed);
    fwrite(text, 1, static_cast<size_t>(end.ptr - text), stdout);
}

void print_default(double when, const Options &options)
{
    char text[FMTTIME_SIZE];
    fmttime(text, 1, options.zone, when);
    fputs(text, stdout);
}

void print_format(double when, const Options &options)
{
    char *text = zepoch2str(options.format, options.zone, when);
    fputs(text, stdout);
    free(text);
}

// Whether the system gives the zone's rules; the reason is logged.
bool zone_is_readable(const char *zone)
{
    int year = 0, doy = 0, month = 0, day = 0, hour = 0, minute = 0;
    double second = 0;
    char *name = nullptr;
    const int status = e2hz(zone, &year, &doy, &month, &day, &hour, &minute, &second, &name, 0);
    free(name);
    return status == 0;
}

// Prints a date. A time that is out of range is printed as outside_range describes it.
void print_dated(double when, const Options &options)
{
    char text[OUTSIDE_RANGE_SIZE];
    outside_range(text, when) ? static_cast<void>(fputs(text, stdout))
                              : print_format(when, options);
}

constexpr int64_t kDaySeconds = 86400;

// Divides and rounds down, also if a is negative.
int64_t floor_div(int64_t a, int64_t b)
{
    return a / b - (a % b < 0);
}

struct Date {
    int64_t year;
    int month, day;  // from 1
};

// The date that is the given number of days after 1970-01-01 in the Gregorian calendar. It is
// right in every year; etoh is not. Years are counted from 1 March, so that a leap day is the
// last day of its year.
Date date_of(int64_t days)
{
    constexpr int64_t kEraDays = 146097;        // 400 years
    constexpr int64_t kFrom0000March = 719468;  // days from 0000-03-01 to 1970-01-01
    const int64_t from_march = days + kFrom0000March;
    const int64_t era = floor_div(from_march, kEraDays);
    const int64_t day = from_march - era * kEraDays;  // 0 .. 146096
    const int64_t year = (day - day / 1460 + day / 36524 - day / (kEraDays - 1)) / 365;
    const int64_t of_year = day - (year * 365 + year / 4 - year / 100);  // 0 .. 365
    const int64_t month = (5 * of_year + 2) / 153;                       // 0 is March
    return {era * 400 + year + (month >= 10), static_cast<int>(month < 10 ? month + 3 : month - 9),
            static_cast<int>(of_year - (153 * month + 2) / 5 + 1)};
}

// The zone's distance from UTC at a time, in minutes: ISO 8601 has no seconds there.
int64_t minutes_from_utc(const char *zone, int64_t seconds)
{
    int year = 0, doy = 0, month = 0, day = 0, hour = 0, minute = 0;
    double second = 0;
    char *name = nullptr;
    e2hz(zone, &year, &doy, &month, &day, &hour, &minute, &second, &name,
         static_cast<double>(seconds));
    free(name);
    const double days = year2days(year) + doy - 1;
    const double there = days * kDaySeconds + hour * 3600 + minute * 60 + second;
    return std::llround((there - static_cast<double>(seconds)) / 60);
}

// Computes in whole milliseconds, so that the fraction is neither negative nor rounded up to a
// whole second.
void print_iso(double when, const Options &options)
{
    char text[OUTSIDE_RANGE_SIZE];
    const double rounded = std::floor(when * 1000 + 0.5);
    if (outside_range(text, rounded / 1000)) {
        fputs(text, stdout);
        return;
    }
    const auto milliseconds = static_cast<int64_t>(rounded);
    const int64_t seconds = floor_div(milliseconds, 1000);
    const int64_t offset = options.zone ? minutes_from_utc(options.zone, seconds) : 0;
    const int64_t local = seconds + offset * 60;
    const Date date = date_of(floor_div(local, kDaySeconds));
    const auto of_day = static_cast<int>(local - floor_div(local, kDaySeconds) * kDaySeconds);
    const auto distance = static_cast<int>(std::abs(offset));
    printf("%s%04d-%02d-%02dT%02d:%02d:%02d.%03d", date.year < 0 ? "-" : "",
           static_cast<int>(std::abs(date.year)), date.month, date.day, of_day / 3600,
           of_day / 60 % 60, of_day % 60, static_cast<int>(milliseconds - seconds * 1000));
    if (options.zone)
        printf("%c%02d:%02d", offset < 0 ? '-' : '+', distance / 60, distance % 60);
    else
        putchar('Z');
}

// The message that the library logs for the first `length` bytes of the text; empty if none.
// Takes the message off the log's stack again.
std::string problem_of(const std::string &text, size_t length)
{
    const int mark = elog_mark();
    double ignored = 0;
    zstr2epoch(text.substr(0, length).c_str(), &ignored);
    char *logged = elog_string(mark);
    std::string problem = logged;
    free(logged);
    elog_truncate(mark);
    return problem;
}

// The column, from 1, where the text becomes wrong; 0 if that is not known.
//
// Finds the shortest beginning of the text that has the same problem as the whole text. If it
// ends with the words that the message quotes, they begin at the column; otherwise it ends
// there.
size_t column_of_problem(const std::string &text)
{
    constexpr size_t kLongest = 2000;  // bytes: every beginning is read once
    const std::string problem = problem_of(text, text.size());
    if (problem.empty() || text.size() > kLongest)
        return 0;
    size_t length = text.size();
    while (length > 1 && problem_of(text, length - 1) == problem)
        --length;
    const size_t open = problem.find('\'');
    const size_t close = problem.rfind('\'');
    if (open < close) {
        const std::string quoted = problem.substr(open + 1, close - open - 1);
        if (text.substr(0, length).ends_with(quoted))
            return length - quoted.size() + 1;
    }
    return length;
}

// Complains that the text is not a time, after the reason, which the library logs. line is the
// number of its line from 1, or 0 if the text does not come from standard input.
void complain(const std::string &text, long line)
{
    char where[64] = "";
    char from[64] = "";
    if (line > 0)
        snprintf(where, sizeof where, "line %ld: ", line);
    if (const size_t column = column_of_problem(text))
        snprintf(from, sizeof from, " from column %zu on", column);
    double ignored = 0;
    zstr2epoch(text.c_str(), &ignored);
    elog_complain(0, "%scan't read the time '%.500s'%s\n", where, text.c_str(), from);
}

// Reads one time and prints it. Complains and returns false if it is not one.
bool convert(const char *text, long line, const Options &options)
{
    double when = 0;
    if (!is_epoch_string(text, &when)) {
        fflush(stdout);
        complain(text, line);
        return false;
    }
    options.print(when, options);
    putchar_unlocked('\n');
    return true;
}

// The same for a line of standard input. A line with a zero byte is not a time.
bool convert_line(const char *text, size_t length, long line, const Options &options)
{
    if (!memchr(text, '\0', length))
        return convert(text, line, options);
    fflush(stdout);
    elog_complain(0, "line %ld: there is a zero byte behind '%.500s'\n", line, text);
    return false;
}

// Converts the lines of standard input as they arrive, until the input ends or the output fails.
// Returns false if a line was not a time or an error occurred.
//
// It calls read and not fgets, so that a line is answered before the next one is typed, and
// several lines that arrive together are answered with one write.
bool convert_lines(const Options &options)
{
    bool good = true;
    std::string text;  // the beginning of a line whose end has not yet been read
    char chunk[65536];
    for (long line = 1;;) {
        const ssize_t got = read(STDIN_FILENO, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            elog_complain(1, "can't read standard input");
        if (got <= 0) {
            const bool last =
                text.empty() || convert_line(text.c_str(), text.size(), line, options);
            return good && last && got == 0;
        }
        char *at = chunk;
        char *const end = chunk + got;
        while (auto *newline =
                   static_cast<char *>(memchr(at, '\n', static_cast<size_t>(end - at)))) {
            *newline = '\0';
            if (text.empty())
                good = convert_line(at, static_cast<size_t>(newline - at), line, options) && good;
            else
                good = convert_line(text.append(at, newline).c_str(), text.size(), line, options) &&
                       good;
            ++line;
            text.clear();
            at = newline + 1;
        }
        text.append(at, end);
        if (fflush(stdout) != 0 || ferror(stdout))
            return false;
    }
}

int print_interval(const char *text)
{
    char *end = nullptr;
    const double seconds = fix_strtod(text, &end);
    if (end == text || *end)
        return wrong_usage("stock time", "'%s' is no number of seconds", text);
    char *interval = strtdelta(seconds);
    strtrim(interval);
    puts(interval);
    free(interval);
    return kDone;
}

int wait_and_run(int argc, char **argv)
{
    double when = 0;
    if (!is_epoch_string(argv[0], &when)) {
        complain(argv[0], 0);
        return kFailed;
    }
    // A signal may end the sleep early.
    for (int verbose = 1; std_now() < when; verbose = 0)
        wait_for_time(verbose, when);
    if (argc == 1)
        return kDone;
    fflush(stdout);
    execvp(argv[1], argv + 1);
    elog_complain(1, "can't run '%s'", argv[1]);
    return kFailed;
}

// "-" is standard input, and "-1:30" and "-2days" are times.
bool is_option(const char *word)
{
    return word[0] == '-' && (stock::is_letter(word[1]) || word[1] == '-');
}

// Reads the options and removes them from argv. Returns null, or the first word that is wrong.
const char *read_options(int &argc, char **&argv, Options &options)
{
    for (; argc > 0 && is_option(argv[0]); --argc, ++argv) {
        const std::string word = argv[0];
        if (word == "--") {
            --argc;
            ++argv;
            return nullptr;
        }
        if (word == "-e") {
            options.print = print_epoch;
        } else if (word == "-d") {
            options.print = print_dated;
            options.format = "%Y%j";
        } else if (word == "-i") {
            options.print = print_iso;
        } else if ((word == "-f" || word == "-z") && argc > 1) {
            (word == "-f" ? options.format : options.zone) = argv[1];
            if (word == "-f")
                options.print = print_format;
            --argc;
            ++argv;
        } else {
            return argv[0];
        }
    }
    return nullptr;
}

}  // namespace

int cmd_time(int argc, char **argv)
{
    if (helped(argc, argv, kHelp))
        return kDone;
    if (argc == 3 && !strcmp(argv[1], "--delta"))
        return print_interval(argv[2]);
    if (argc > 2 && !strcmp(argv[1], "--until"))
        return wait_and_run(argc - 2, argv + 2);

    Options options;
    options.print = print_default;
    --argc;
    ++argv;
    if (const char *wrong = read_options(argc, argv, options))
        return wrong_usage("stock time", "what is '%s'?", wrong);
    if (options.zone && !strcmp(options.zone, "UTC"))
        options.zone = nullptr;
    if (options.zone && *options.zone && strcmp(options.zone, "LOCAL") != 0 &&
        !is_timezone(options.zone))
        return wrong_usage("stock time", "there is no time zone '%s'", options.zone);
    if (options.zone && !zone_is_readable(options.zone)) {
        elog_complain(0, "can't print in the time zone '%s'\n", options.zone);
        return kFailed;
    }
    if (argc == 0)
        return convert("now", 0, options) ? kDone : kFailed;
    bool good = true;
    for (; argc > 0; --argc, ++argv)
        good =
            (strcmp(argv[0], "-") ? convert(argv[0], 0, options) : convert_lines(options)) && good;
    return good ? kDone : kFailed;
}
