// Reading times that people write.
//
// The rows of one table, kRows, say which forms a part of a time may have. The text is cut into
// tokens by the patterns of these rows, and the action beside a pattern fills the fields of
// a ParsedTime. When the text has ended, the fields are completed (numbers without a meaning of
// their own, short years, am and pm), checked, and made a time, in UTC or in the zone named.

#include "stock/str2epoch.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string_view>

#include "base/alloc.h"
#include "base/ascii.h"
#include "base/environment.h"
#include "base/guards.h"
#include "base/number.h"
#include "deviants.h"
#include "stock/elog.h"
#include "stock/epoch.h"
#include "stock/h2e.h"
#include "stock/strings.h"
#include "stock/time.h"
#include "time/read_number.h"
#include "time/token_scanner.h"

using stock::saturated;

namespace {

constexpr double kNoEpoch = 1e-9;   // in ParsedTime::epoch: no token gave a whole epoch time
constexpr int kMaxZoneBytes = 256;  // a longer zone's name is cut
constexpr double kDaySeconds = 86400;

// What has been read of one text: its fields, and the problems that were found.
struct ParsedTime {
    // The fields of a text that sets none: 1 January 1970 00:00, with -1 for "not set" where
    // that makes a difference.
    int year = 1970;
    int month = -1;
    int day = -1;
    int doy = 0;  // day of the year from 1; 0: not set
    int hour = 0;
    int minute = 0;
    double second = 0;
    double epoch = kNoEpoch;
    double loose1 = 0;  // numbers that are a day, a year or an epoch time, which the other
    double loose2 = 0;  // fields decide at the end; 0: not set
    int am = -1;        // 1 am, 0 pm, -1 not set
    int weekday = -1;
    bool zone_named = false;
    char zone[kMaxZoneBytes + 1];  // "": the system's own

    int problems = 0;
    const bool logs;             // the first problem is to be logged
    stock::Owned<char> message;  // of the first problem

    explicit ParsedTime(bool logs_problem) : logs(logs_problem) { zone[0] = '\0'; }

    bool month_or_time_set() const
    {
        return month != -1 || hour != 0 || minute != 0 || second != 0 || doy != 0;
    }
    bool nothing_set() const
    {
        return year == 1970 && day == -1 && !month_or_time_set() && epoch == kNoEpoch &&
               loose1 == 0 && loose2 == 0 && am == -1 && weekday == -1 && !zone_named;
    }

    // Counts a problem. The first one's message is kept; _zstr2epoch logs it at the end.
    void problem(const char *format, ...) STOCK_PRINTF(2, 3);
};

void ParsedTime::problem(const char *format, ...)
{
    if (++problems != 1 || !logs)
        return;
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    const auto size = static_cast<std::size_t>(std::max(length, 0)) + 1;
    message.reset(static_cast<char *>(stock::allocate(size, "time problem")));
    std::vsnprintf(message.get(), size, format, again);
    va_end(again);
}

// The text of a token. whole() and real() read its numbers from left to right.
class TimeToken {
public:
    explicit TimeToken(std::string_view text) : text_(text), rest_(text) {}

    std::string_view text() const { return text_; }
    int length() const { return static_cast<int>(std::min<std::size_t>(text_.size(), INT_MAX)); }
    const char *data() const { return text_.data(); }

    // Whether a number was read that its field cannot hold.
    bool out_of_range() const { return out_of_range_; }

    // The next run of digits, or its first `most` digits, cut to INT_MAX.
    int whole(std::size_t most = SIZE_MAX)
    {
        skip_to_digit();
        const std::int64_t value = stock::take_whole(rest_, most);
        out_of_range_ |= value > INT_MAX;
        return stock::saturated_int(value);
    }

    // All that follows from the next digit on, as one number.
    double real()
    {
        skip_to_digit();
        return stock::read_number(rest_, out_of_range_);
    }

    // The whole token as one number; `otherwise` when it holds no digit, as "-." does.
    double number_or(double otherwise)
    {
        const bool has_digit = std::any_of(text_.begin(), text_.end(), stock::is_digit);
        return has_digit ? stock::read_number(text_, out_of_range_) : otherwise;
    }

private:
    void skip_to_digit()
    {
        while (!rest_.empty() && !stock::is_digit(rest_.front()))
            rest_.remove_prefix(1);
    }

    std::string_view text_;
    std::string_view rest_;  // what whole() and real() have not read yet
    bool out_of_range_ = false;
};

// ---- Actions: what the token of a row sets, and what helps them ----

void bad_date(ParsedTime &p, const TimeToken &t)
{
    p.problem("str2epoch: Bad date format:'%.*s'", t.length(), t.data());
}

void check_date(ParsedTime &p, const TimeToken &t)
{
    if (p.month > 12 || p.day > 31)
        bad_date(p, t);
}

// Takes three numbers as a date: year, month, day when the first can be no day; else year last,
// month or day first as is_month_first() says.
void order_date(ParsedTime &p, const TimeToken &t, int first, int second, int third)
{
    if (first > 31) {
        p.year = first;
        p.month = second;
        p.day = third;
    } else {
        const bool month_first = is_month_first();
        p.month = month_first ? first : second;
        p.day = month_first ? second : first;
        p.year = third;
    }
    check_date(p, t);
}

void slashed_date(ParsedTime &p, TimeToken &t, int)
{
    const int first = t.whole();
    const int second = t.whole();
    order_date(p, t, first, second, t.whole());
}

// Meant: only the first number counts, taken with the day and the year as they are, as if they
// stood between slashes: 2008-1-1 is refused and 1-2-3 is 1 January 1970.
void hyphened_date(ParsedTime &p, TimeToken &t, int)
{
    order_date(p, t, t.whole(), p.day, p.year);
}

void iso_date(ParsedTime &p, TimeToken &t, int)
{
    p.year = t.whole();
    p.month = t.whole();
    p.day = t.whole();
    check_date(p, t);
}

void iso_day(ParsedTime &p, TimeToken &t, int)
{
    p.year = t.whole();
    p.doy = t.whole();
    if (p.doy >= 367)
        bad_date(p, t);
}

// `number` is the row's, 1 to 12.
void month(ParsedTime &p, TimeToken &, int number)
{
    p.month = number;
}

void now(ParsedTime &p, TimeToken &, int)
{
    p.epoch = std_now();
}

void weekday(ParsedTime &p, TimeToken &, int number)
{
    p.weekday = number;
}

void day(ParsedTime &p, TimeToken &t, int)
{
    p.day = t.whole();
}

void jdate(ParsedTime &p, TimeToken &t, int)
{
    p.year = t.whole(4);
    p.doy = t.whole(3);
    if (p.doy >= 367)
        p.problem("str2epoch: Bad jdate format:'%.*s'", t.length(), t.data());
}

void day_of_year(ParsedTime &p, TimeToken &t, int)
{
    p.doy = t.whole();
}

void minute_second(ParsedTime &p, TimeToken &t, int)
{
    p.minute = t.whole();
    p.second = t.real();
}

// An hour, a minute and a second, or 2008032:12:30: year and day, hour, minute.
void hour_minute_second(ParsedTime &p, TimeToken &t, int)
{
    const int first = t.whole();
    const int second = t.whole();
    const double third = t.real();
    if (first <= 24 && second < 60 && third < 60) {
        p.hour = first;
        p.minute = second;
        p.second = third;
    } else if (first > 1970000 && first < 2100000 && second < 25 && third < 60) {
        p.year = first / 1000;
        p.doy = first % 1000;
        p.hour = second;
        p.minute = static_cast<int>(third);
    } else {
        p.problem("str2epoch: bad input '%.*s'", t.length(), t.data());
    }
}

void jdate_and_time(ParsedTime &p, TimeToken &t, int)
{
    const int date = t.whole();
    p.year = date / 1000;
    p.doy = date % 1000;
    p.hour = t.whole();
    p.minute = t.whole();
    p.second = t.real();
}

void doy_and_time(ParsedTime &p, TimeToken &t, int)
{
    p.year = t.whole();
    p.doy = t.whole();
    p.hour = t.whole();
    p.minute = t.whole();
    p.second = t.real();
}

void doy_and_time_ms(ParsedTime &p, TimeToken &t, int)
{
    p.year = t.whole();
    p.doy = t.whole();
    p.hour = t.whole();
    p.minute = t.whole();
    const int seconds = t.whole();
    p.second = seconds + t.whole() / 1000.0;
}

void month_and_time(ParsedTime &p, TimeToken &t, int number)
{
    p.year = t.whole();
    p.month = number;
    p.day = t.whole();
    p.hour = t.whole();
    p.minute = t.whole();
    p.second = t.real();
}

void minute(ParsedTime &p, TimeToken &t, int)
{
    p.minute = t.whole();
}

void hour_minute(ParsedTime &p, TimeToken &t, int)
{
    p.hour = t.whole();
    p.minute = t.whole();
}

void minutes_from_now(ParsedTime &p, TimeToken &t, int sign)
{
    p.epoch = std_now() + sign * (t.whole() * 60.0);
}

void hours_from_now(ParsedTime &p, TimeToken &t, int sign)
{
    const double hours = t.whole();
    const double minutes = t.whole();
    p.epoch = std_now() + sign * (hours * 3600) + sign * (minutes * 60);
}

void seconds_from_now(ParsedTime &p, TimeToken &t, int sign)
{
    hours_from_now(p, t, sign);
    p.epoch += sign * static_cast<double>(t.whole());
}

// Sets the date to the day that holds a time.
void set_date(ParsedTime &p, double when)
{
    int hour = 0;
    int minute = 0;
    double second = 0;
    e2h(when, &p.year, &p.doy, &hour, &minute, &second);
}

void days_ago(ParsedTime &p, TimeToken &t, int)
{
    set_date(p, std::floor(std_now() / kDaySeconds) * kDaySeconds - t.whole() * kDaySeconds);
}

// Meant: from 1970, not from today: 2days is 1970-01-03.
void days_from_1970(ParsedTime &p, TimeToken &t, int)
{
    set_date(p, t.whole() * kDaySeconds);
}

void epoch_time(ParsedTime &p, TimeToken &t, int)
{
    p.epoch = t.number_or(p.epoch);
}

// A number that no other row takes; set_from_one_number and set_from_two_numbers decide later
// what it is.
// Meant: 0 is the value of a field that is not set, so a loose 0 is forgotten.
void loose_number(ParsedTime &p, TimeToken &t, int)
{
    if (p.loose1 == 0)
        p.loose1 = t.number_or(0);
    else if (p.loose2 == 0)
        p.loose2 = t.number_or(0);
    else
        p.problem("str2epoch: extra number '%.*s'", t.length(), t.data());
}

void half_of_day(ParsedTime &p, TimeToken &, int am)
{
    p.am = am;
}

void nothing(ParsedTime &, TimeToken &, int) {}

// A name that is no zone of the system also takes back the zone named before it.
void zone(ParsedTime &p, TimeToken &t, int)
{
    const std::size_t length = t.text().copy(p.zone, kMaxZoneBytes);
    p.zone[length] = '\0';
    p.zone_named = true;
    if (t.text() == "LOCAL") {
        p.zone[0] = '\0';
    } else if (!is_timezone(p.zone)) {
        p.problem("str2epoch: no timezone '%s'\n", p.zone);
        p.zone[0] = '\0';
        p.zone_named = false;
    }
}

// ---- The rows ----

// A form that a part of a time may have, and how its token changes the fields.
struct Row {
    std::string_view pattern;  // token_scanner.h says how patterns are written
    void (*action)(ParsedTime &, TimeToken &, int argument);
    int argument = 0;  // of the action: a month, a weekday, a sign, am
};

// The longest match wins; of rows that match the same text, the earlier one.
// clang-format off
constexpr std::array kRows = std::to_array<Row>({
    {"#+/#+/#+", slashed_date},                      // 2/1/2008, or 1/2/2008, or 2008/2/1
    {"####-##-##", iso_date},                        // 2008-02-01
    {"####-###", iso_day},                           // 2008-032
    {"#+-#+-#+", hyphened_date},                     // 2008-1-1
    {"jan{uary}", month, 1},                         // Jan, january
    {"feb{ruary}", month, 2},
    {"mar{ch}", month, 3},
    {"apr{il}", month, 4},
    {"may", month, 5},
    {"jun{e}", month, 6},
    {"jul{y}", month, 7},
    {"aug{ust}", month, 8},
    {"sep{tember}", month, 9},
    {"oct{ober}", month, 10},
    {"nov{ember}", month, 11},
    {"dec{ember}", month, 12},
    {"now", now},
    {"mon{day}", weekday, 1},                        // Mon, monday
    {"tue{sday}", weekday, 2},
    {"wed{nesday}", weekday, 3},
    {"thu{rsday}", weekday, 4},
    {"fri{day}", weekday, 5},
    {"sat{urday}", weekday, 6},
    {"sun{day}", weekday, 0},
    {"#+,", day},                                    // 1,
    {"19#####", jdate},                              // 1999032
    {"20#####", jdate},                              // 2008032
    {"(#+)", day_of_year},                           // (32)
    {":#+:#+{.#+}", minute_second},                  // :30:15.5
    {"#+:#+:#+{.#+}", hour_minute_second},           // 12:30:15.5
    {"#######:#+:#+:#+{.#+}", jdate_and_time},       // 2008032:12:30:15.5
    {"#+:#+:#+:#+:#+{.#+}", doy_and_time},           // 2008:032:12:30:15.5
    {"#+:#+:#+:#+:#+:#+", doy_and_time_ms},          // 2008:032:12:30:15:500
    {"#+:jan:#+:#+:#+:#+{.#+}", month_and_time, 1},  // 2008:jan:1:12:30:15.5
    {"#+:feb:#+:#+:#+:#+{.#+}", month_and_time, 2},
    {"#+:mar:#+:#+:#+:#+{.#+}", month_and_time, 3},
    {"#+:apr:#+:#+:#+:#+{.#+}", month_and_time, 4},
    {"#+:may:#+:#+:#+:#+{.#+}", month_and_time, 5},
    {"#+:jun:#+:#+:#+:#+{.#+}", month_and_time, 6},
    {"#+:jul:#+:#+:#+:#+{.#+}", month_and_time, 7},
    {"#+:aug:#+:#+:#+:#+{.#+}", month_and_time, 8},
    {"#+:sep:#+:#+:#+:#+{.#+}", month_and_time, 9},
    {"#+:oct:#+:#+:#+:#+{.#+}", month_and_time, 10},
    {"#+:nov:#+:#+:#+:#+{.#+}", month_and_time, 11},
    {"#+:dec:#+:#+:#+:#+{.#+}", month_and_time, 12},
    {":#+", minute},                                 // :30
    {"#+:#+", hour_minute},                          // 12:30
    {"-:#+", minutes_from_now, -1},                  // -:5, five minutes ago
    {"-#+:#+", hours_from_now, -1},                  // -1:30, an hour and a half ago
    {"-#+:#+:#+", seconds_from_now, -1},             // -1:30:10
    {"-#+day{s}", days_ago},                         // -2days
    {"#+day{s}", days_from_1970},                    // 2days
    {"+:#+", minutes_from_now, 1},                   // +:5, in five minutes
    {"+#+:#+", hours_from_now, 1},                   // +1:30
    {"+#+:#+:#+", seconds_from_now, 1},              // +1:30:10
    {"{-}{#+}.{#+}", epoch_time},                    // 1201869015.5
    {"-#+", epoch_time},                             // -5
    {"#+.#+e{~}#+", epoch_time},                     // 1.5e9
    {"#+", loose_number},                            // 2008, 1, 1201869015
    {"am", half_of_day, 1},
    {"pm", half_of_day, 0},
    {" ", nothing},
    {"\n", nothing},
    {"\t", nothing},
    {"@%+", zone},                                   // US/Pacific, LOCAL
});
// clang-format on

using Scanner = stock::TokenScanner<kRows>;
static_assert(stock::each_row_matches_its_pattern<kRows>());

// Counts the problem that no row matches a text that begins with this character. Returns false
// when reading has to stop there.
bool report_character(ParsedTime &p, char c)
{
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 32 || byte > 126) {
        p.problem("str2epoch: can't interpret character 0x%x\n", byte);
        return false;
    }
    p.problem("str2epoch: can't interpret '%c'\n", c);
    return true;
}

// Changes the fields by one token. A number out of range is a problem, unless the action found
// another one.
void take(ParsedTime &p, const Row &row, std::string_view text)
{
    TimeToken token(text);
    const int before = p.problems;
    row.action(p, token, row.argument);
    if (token.out_of_range() && p.problems == before)
        p.problem("str2epoch: bad input '%.*s'", token.length(), token.data());
}

void scan(ParsedTime &p, const char *text)
{
    while (*text) {
        const auto match = Scanner::next(text);
        if (match.row != Scanner::kNoRow)
            take(p, kRows[match.row], {text, match.length});
        else if (!report_character(p, *text))
            return;
        text += std::max<std::size_t>(match.length, 1);
    }
}

// ---- What the fields mean together ----

// The larger of two loose numbers is the year, the smaller the day.
void set_from_two_numbers(ParsedTime &p)
{
    const auto [smaller, larger] = std::minmax(p.loose1, p.loose2);
    p.year = saturated<int>(larger);
    p.day = saturated<int>(smaller);
    if (larger > INT_MAX)
        p.problem("str2epoch: number %f not understood", larger);
    if (p.day > 31)
        p.problem("str2epoch: number %d not understood", p.day);
}

// One loose number is a day, a year and day of the year, or a year, by its size.
void set_from_one_number(ParsedTime &p)
{
    if (p.loose1 < 32) {
        p.day = static_cast<int>(p.loose1);
    } else if (p.loose1 > 1900000 && p.loose1 < 2200001) {
        p.year = static_cast<int>(p.loose1) / 1000;
        p.doy = static_cast<int>(p.loose1) % 1000;
    } else if (p.loose1 < 2200) {
        p.year = static_cast<int>(p.loose1);
    } else {
        p.problem("str2epoch: number %f not understood", p.loose1);
    }
}

// Gives every field the value that the text as a whole means.
void complete_fields(ParsedTime &p)
{
    if (p.loose2 != 0)
        set_from_two_numbers(p);
    else if (p.loose1 != 0)
        set_from_one_number(p);

    if (p.year >= 69 && p.year <= 99)
        p.year += 1900;
    else if (p.year < 69)
        p.year += 2000;
    if (p.month == -1)
        p.month = 1;
    if (p.day == -1)
        p.day = 1;
    if (p.am == 1 && p.hour == 12)
        p.hour = 0;
    else if (p.am == 0 && p.hour < 12)
        p.hour += 12;
}

// Counts the first field that is too large as a problem. Without a date, hours may go on for a
// week.
void check_ranges(ParsedTime &p)
{
    const bool only_time = p.doy == 0 && p.month == 1 && p.day == 1 && p.year == 1970;
    if (p.day >= 32)
        p.problem("str2epoch: day = %d is too large", p.day);
    else if (p.month >= 13)
        p.problem("str2epoch: Month = %d is too large", p.month);
    else if (p.minute >= 61)
        p.problem("str2epoch: Minute = %d is too large", p.minute);
    else if (p.second > 60)
        p.problem("str2epoch: Second = %.5f is too large", p.second);
    else if (p.hour >= 25 && !(only_time && p.hour <= 168))
        p.problem("str2epoch: Hour = %d is too large", p.hour);
}

// The epoch time of the fields, in UTC.
double epoch_of_fields(ParsedTime &p)
{
    complete_fields(p);
    check_ranges(p);
    if (p.doy > 366)
        p.problem("str2epoch: Doy = %d is too large", p.doy);
    const int doy = p.doy ? p.doy : mday2doy(p.year, p.month, p.day);
    return h2e(p.year, doy, p.hour, p.minute, p.second);
}

// The epoch time at which clocks in the process's zone show the fields that UTC shows at `when`;
// -1 when the platform cannot tell. With environment_lock held.
double time_on_local_clocks(double when)
{
    int year = 0;
    int doy = 0;
    double second = 0;
    struct tm fields = {};
    e2h(when, &year, &doy, &fields.tm_hour, &fields.tm_min, &second);
    doy2mday(doy, year, &fields.tm_mon, &fields.tm_mday);
    fields.tm_year = std::max(year, INT_MIN + 1900) - 1900;
    --fields.tm_mon;
    fields.tm_sec = static_cast<int>(second);
    fields.tm_isdst = -1;
    return static_cast<double>(mktime(&fields));
}

// Takes the fields of the epoch time, which were read as UTC, as those of the zone named.
void convert_to_zone(ParsedTime &p)
{
    double there = 0;
    int error = 0;
    {
        const stock::KeepErrno keep;
        const std::lock_guard lock(stock::environment_lock);
        switchTZ(p.zone);
        error = errno;
        there = time_on_local_clocks(p.epoch);
        restoreTZ();  // with the lock still held, so that no other thread works in this zone
    }
    // The platform then took the zone for UTC.
    if (error == EMFILE || error == ENFILE || error == ENOMEM || error == EACCES || error == EIO)
        return p.problem("str2epoch: Can't read timezone '%s'", p.zone);
    // Meant: the last second of 1969 in UTC is -1 too, and is refused like a failure.
    if (there == -1) {
        p.problem("str2epoch: Can't convert to local timezone before 1970\n");
    } else if (std::fabs(there - p.epoch) > kDaySeconds) {
        const stock::Owned<char> difference(strtdelta(there - p.epoch));
        p.problem("str2epoch: invalid timezone difference = %s", difference.get());
    } else {
        p.epoch = there + (p.epoch - std::floor(p.epoch));
    }
}

void parse(ParsedTime &p, const char *text)
{
    if (whitespace(text))
        ++p.problems;
    scan(p, text);
    if (p.nothing_set())
        ++p.problems;
    // A number alone is an epoch time.
    if (p.loose1 != 0 && p.loose2 == 0 && !p.month_or_time_set())
        p.epoch = p.loose1;
    if (p.epoch == kNoEpoch)
        p.epoch = epoch_of_fields(p);
    if (p.zone_named)
        convert_to_zone(p);
}

}  // namespace

double str2epoch(const char *text)
{
    double epoch = 0;
    _zstr2epoch(text, &epoch, 0);
    return epoch;
}

int zstr2epoch(const char *text, double *epoch)
{
    return _zstr2epoch(text, epoch, 1);
}

int is_epoch_string(const char *text, double *epoch)
{
    return _zstr2epoch(text, epoch, 0) == 0;
}

int _zstr2epoch(const char *text, double *epoch, int log)
{
    text = text ? text : "";
    ParsedTime p(log != 0);
    parse(p, text);
    restoreTZ();  // of a switch that the caller made, too
    *epoch = p.epoch;
    if (p.message)
        elog_log(0, "%s", p.message.get());
    return -p.problems;
}

int time_string2epoch(const char *text, double *when)
{
    *when = str2epoch(text);
    return 1;
}
