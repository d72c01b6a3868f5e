// Reading times that people write.
//
// The text is cut into tokens by the rows of one table; the action beside a row's
// pattern fills the fields of the parse. When the text has ended, loose numbers,
// short years and am and pm are settled, ranges are checked, and the fields
// become a time, in UTC or in the zone that was named.

#include "stock/str2epoch.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string_view>

#include "base/alloc.h"
#include "base/ascii.h"
#include "base/environment.h"
#include "base/number.h"
#include "deviants.h"
#include "numbers/decimal.h"
#include "stock/elog.h"
#include "stock/epoch.h"
#include "stock/h2e.h"
#include "stock/strings.h"
#include "stock/time.h"
#include "time/token_scanner.h"

using stock::saturated;

namespace {

constexpr double kUnset = 1e-9;   // the Etime that says there is none
constexpr int kZoneLength = 256;  // characters kept of a zone's name
constexpr double kDay = 86400;

// One parse: its fields and the problems that were found.
struct Parse {
    int Year = 1970;
    int Month = -1;
    int Day = -1;
    int Doy = 0;
    int Hour = 0;
    int Minute = 0;
    double Second = 0;
    double Etime = kUnset;
    double X1 = 0;
    double X2 = 0;
    int Am = -1;  // 1 am, 0 pm
    int Dow = -1;
    bool UsingTimezone = false;
    char Timezone[kZoneLength + 1];

    int Retcode = 0;  // problems
    bool Elog_ok;
    stock::Owned<char> message;  // of the first problem

    explicit Parse(bool log) : Elog_ok(log) { Timezone[0] = '\0'; }

    bool month_or_time_set() const
    {
        return Month != -1 || Hour != 0 || Minute != 0 || Second != 0 || Doy != 0;
    }
    bool nothing_set() const
    {
        return Year == 1970 && Day == -1 && !month_or_time_set() && Etime == kUnset && X1 == 0 &&
               X2 == 0 && Am == -1 && Dow == -1 && !UsingTimezone;
    }

    // Counts a problem. The first one's message is kept, to be logged at the end.
    void problem(const char *format, ...) STOCK_PRINTF(2, 3);
};

void Parse::problem(const char *format, ...)
{
    if (++Retcode != 1 || !Elog_ok)
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

// How far the first digit that is not 0 stands before the point, from 1 on, or behind it,
// from 0 down. The text is digits and perhaps a point.
int64_t first_digit_place(std::string_view text)
{
    const std::size_t point = std::min(text.find('.'), text.size());
    const std::size_t first = std::min(text.find_first_of("123456789"), text.size());
    return static_cast<int64_t>(point) - static_cast<int64_t>(first) + (first > point);
}

// What a real number is that a double cannot hold: infinite or 0.
double beyond_double(std::string_view text)
{
    const bool negative = text.starts_with('-');
    text.remove_prefix(negative);
    const std::size_t e = std::min(text.find_first_of("eE"), text.size());
    const std::string_view exponent = text.substr(std::min(e + 1, text.size()));
    int64_t power = 0;
    for (const char c : exponent)
        if (stock::is_digit(c) && power < INT_MAX)
            power = power * 10 + (c - '0');
    if (exponent.starts_with('-'))
        power = -power;
    const double value = first_digit_place(text.substr(0, e)) + power > 0 ? HUGE_VAL : 0;
    return negative ? -value : value;
}

// A token: what the row matched, and its numbers from left to right.
class Token {
public:
    explicit Token(std::string_view text) : text_(text) {}

    std::string_view text() const { return text_; }
    int length() const { return static_cast<int>(std::min<std::size_t>(text_.size(), INT_MAX)); }
    const char *data() const { return text_.data(); }
    bool out_of_range() const { return out_of_range_; }

    // The next run of digits, or its first `most` digits; what stands before it is skipped.
    int whole(std::size_t most = SIZE_MAX)
    {
        to_digit();
        const std::size_t end = text_.size() - at_ > most ? at_ + most : text_.size();
        std::int64_t value = 0;
        for (; at_ < end && stock::is_digit(text_[at_]); ++at_)
            if (value <= INT_MAX)
                value = value * 10 + (text_[at_] - '0');
        out_of_range_ |= value > INT_MAX;
        return stock::saturated_int(value);
    }

    // The next run of digits and all that follows it as one number.
    double real()
    {
        to_digit();
        return number(text_.substr(at_));
    }

    // The whole token as one number; `other` when it is none.
    double number_or(double other)
    {
        const bool some = std::any_of(text_.begin(), text_.end(), stock::is_digit);
        return some ? number(text_) : other;
    }

private:
    void to_digit()
    {
        while (at_ < text_.size() && !stock::is_digit(text_[at_]))
            ++at_;
    }

    double number(std::string_view text)
    {
        double value = 0;
        if (short_number(text, value))
            return value;
        const auto result = stock::read_decimal(text.data(), text.data() + text.size(), value);
        if (result.ec != std::errc::result_out_of_range)
            return value;
        out_of_range_ |= text.find('.') == text.npos;
        return beyond_double(text);
    }

    // Digits and perhaps a point, so few that a whole number and a power of ten hold them
    // exactly: their quotient is the nearest double. Else false.
    static bool short_number(std::string_view text, double &value)
    {
        static constexpr double kTens[] = {1,   1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                           1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
        if (text.size() >= std::size(kTens))
            return false;
        std::int64_t digits = 0;
        std::size_t behind = 0;  // digits behind the point, and one
        for (const char c : text) {
            if (c == '.' && !behind)
                behind = 1;
            else if (!stock::is_digit(c))
                return false;
            else
                digits = digits * 10 + (c - '0'), behind += behind > 0;
        }
        value = static_cast<double>(digits) / kTens[behind ? behind - 1 : 0];
        return true;
    }

    std::string_view text_;
    std::size_t at_ = 0;
    bool out_of_range_ = false;
};

void bad_date(Parse &p, const Token &t)
{
    p.problem("str2epoch: Bad date format:'%.*s'", t.length(), t.data());
}

void check_date(Parse &p, const Token &t)
{
    if (p.Month > 12 || p.Day > 31)
        bad_date(p, t);
}

// Three numbers in the order that the first one and the formats ask for.
void order_date(Parse &p, const Token &t, int first, int second, int third)
{
    if (first > 31) {
        p.Year = first;
        p.Month = second;
        p.Day = third;
    } else {
        const bool month_first = is_month_first();
        p.Month = month_first ? first : second;
        p.Day = month_first ? second : first;
        p.Year = third;
    }
    check_date(p, t);
}

void slashed_date(Parse &p, Token &t, int)
{
    const int first = t.whole();
    const int second = t.whole();
    order_date(p, t, first, second, t.whole());
}

// Meant: read as if it had slashes, so only its first number counts and day and
// year stay as they are: 2008-1-1 is refused and 1-2-3 is 1 January 1970.
void hyphened_date(Parse &p, Token &t, int)
{
    order_date(p, t, t.whole(), p.Day, p.Year);
}

void iso_date(Parse &p, Token &t, int)
{
    p.Year = t.whole();
    p.Month = t.whole();
    p.Day = t.whole();
    check_date(p, t);
}

void iso_day(Parse &p, Token &t, int)
{
    p.Year = t.whole();
    p.Doy = t.whole();
    if (p.Doy >= 367)
        bad_date(p, t);
}

void month(Parse &p, Token &, int number)
{
    p.Month = number;
}

void now(Parse &p, Token &, int)
{
    p.Etime = std_now();
}

void weekday(Parse &p, Token &, int number)
{
    p.Dow = number;
}

void day(Parse &p, Token &t, int)
{
    p.Day = t.whole();
}

void jdate(Parse &p, Token &t, int)
{
    p.Year = t.whole(4);
    p.Doy = t.whole(3);
    if (p.Doy >= 367)
        p.problem("str2epoch: Bad jdate format:'%.*s'", t.length(), t.data());
}

void day_of_year(Parse &p, Token &t, int)
{
    p.Doy = t.whole();
}

void minute_second(Parse &p, Token &t, int)
{
    p.Minute = t.whole();
    p.Second = t.real();
}

void hour_minute_second(Parse &p, Token &t, int)
{
    const int first = t.whole();
    const int second = t.whole();
    const double third = t.real();
    if (first <= 24 && second < 60 && third < 60) {
        p.Hour = first;
        p.Minute = second;
        p.Second = third;
    } else if (first > 1970000 && first < 2100000 && second < 25 && third < 60) {
        p.Year = first / 1000;
        p.Doy = first % 1000;
        p.Hour = second;
        p.Minute = static_cast<int>(third);
    } else {
        p.problem("str2epoch: bad input '%.*s'", t.length(), t.data());
    }
}

void jdate_and_time(Parse &p, Token &t, int)
{
    const int date = t.whole();
    p.Year = date / 1000;
    p.Doy = date % 1000;
    p.Hour = t.whole();
    p.Minute = t.whole();
    p.Second = t.real();
}

void doy_and_time(Parse &p, Token &t, int)
{
    p.Year = t.whole();
    p.Doy = t.whole();
    p.Hour = t.whole();
    p.Minute = t.whole();
    p.Second = t.real();
}

void doy_and_time_ms(Parse &p, Token &t, int)
{
    p.Year = t.whole();
    p.Doy = t.whole();
    p.Hour = t.whole();
    p.Minute = t.whole();
    const int seconds = t.whole();
    p.Second = seconds + t.whole() / 1000.0;
}

void month_and_time(Parse &p, Token &t, int number)
{
    p.Year = t.whole();
    p.Month = number;
    p.Day = t.whole();
    p.Hour = t.whole();
    p.Minute = t.whole();
    p.Second = t.real();
}

void minute(Parse &p, Token &t, int)
{
    p.Minute = t.whole();
}

void hour_minute(Parse &p, Token &t, int)
{
    p.Hour = t.whole();
    p.Minute = t.whole();
}

void minutes_from_now(Parse &p, Token &t, int sign)
{
    p.Etime = std_now() + sign * (t.whole() * 60.0);
}

void hours_from_now(Parse &p, Token &t, int sign)
{
    const double hours = t.whole();
    const double minutes = t.whole();
    p.Etime = std_now() + sign * (hours * 3600) + sign * (minutes * 60);
}

void seconds_from_now(Parse &p, Token &t, int sign)
{
    hours_from_now(p, t, sign);
    p.Etime += sign * static_cast<double>(t.whole());
}

void date_of(Parse &p, double when)
{
    int hour = 0;
    int minute = 0;
    double second = 0;
    e2h(when, &p.Year, &p.Doy, &hour, &minute, &second);
}

void days_ago(Parse &p, Token &t, int)
{
    date_of(p, std::floor(std_now() / kDay) * kDay - t.whole() * kDay);
}

// Meant: from 1970, not from today: 2days is 1970-01-03.
void days_from_1970(Parse &p, Token &t, int)
{
    date_of(p, t.whole() * kDay);
}

void epoch_time(Parse &p, Token &t, int)
{
    p.Etime = t.number_or(p.Etime);
}

// Meant: 0 marks a free place, so a loose 0 is forgotten.
void loose_number(Parse &p, Token &t, int)
{
    if (p.X1 == 0)
        p.X1 = t.number_or(0);
    else if (p.X2 == 0)
        p.X2 = t.number_or(0);
    else
        p.problem("str2epoch: extra number '%.*s'", t.length(), t.data());
}

void half_of_day(Parse &p, Token &, int am)
{
    p.Am = am;
}

void nothing(Parse &, Token &, int) {}

void zone(Parse &p, Token &t, int)
{
    const std::size_t length = t.text().copy(p.Timezone, kZoneLength);
    p.Timezone[length] = '\0';
    p.UsingTimezone = true;
    if (t.text() == "LOCAL") {
        p.Timezone[0] = '\0';
    } else if (!is_timezone(p.Timezone)) {
        p.problem("str2epoch: no timezone '%s'\n", p.Timezone);
        p.Timezone[0] = '\0';
        p.UsingTimezone = false;
    }
}

struct Row {
    std::string_view pattern;
    void (*action)(Parse &, Token &, int argument);
    int argument = 0;
};

// How patterns are written: token_scanner.h. Of two that match the same text the
// earlier one wins.
// clang-format off
constexpr std::array kRows = std::to_array<Row>({
    {"#+/#+/#+", slashed_date},
    {"####-##-##", iso_date},
    {"####-###", iso_day},
    {"#+-#+-#+", hyphened_date},
    {"jan{uary}", month, 1},
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
    {"mon{day}", weekday, 1},
    {"tue{sday}", weekday, 2},
    {"wed{nesday}", weekday, 3},
    {"thu{rsday}", weekday, 4},
    {"fri{day}", weekday, 5},
    {"sat{urday}", weekday, 6},
    {"sun{day}", weekday, 0},
    {"#+,", day},
    {"19#####", jdate},
    {"20#####", jdate},
    {"(#+)", day_of_year},
    {":#+:#+{.#+}", minute_second},
    {"#+:#+:#+{.#+}", hour_minute_second},
    {"#######:#+:#+:#+{.#+}", jdate_and_time},
    {"#+:#+:#+:#+:#+{.#+}", doy_and_time},
    {"#+:#+:#+:#+:#+:#+", doy_and_time_ms},
    {"#+:jan:#+:#+:#+:#+{.#+}", month_and_time, 1},
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
    {":#+", minute},
    {"#+:#+", hour_minute},
    {"-:#+", minutes_from_now, -1},
    {"-#+:#+", hours_from_now, -1},
    {"-#+:#+:#+", seconds_from_now, -1},
    {"-#+day{s}", days_ago},
    {"#+day{s}", days_from_1970},
    {"+:#+", minutes_from_now, 1},
    {"+#+:#+", hours_from_now, 1},
    {"+#+:#+:#+", seconds_from_now, 1},
    {"{-}{#+}.{#+}", epoch_time},
    {"-#+", epoch_time},
    {"#+.#+e{~}#+", epoch_time},
    {"#+", loose_number},
    {"am", half_of_day, 1},
    {"pm", half_of_day, 0},
    {" ", nothing},
    {"\n", nothing},
    {"\t", nothing},
    {"@%+", zone},
});
// clang-format on

using Scanner = stock::TokenScanner<kRows>;
static_assert(stock::each_row_matches_its_pattern<kRows>());

// What no row matches: one character. False when reading has to stop there.
bool strange_character(Parse &p, char c)
{
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 32 || byte > 126) {
        p.problem("str2epoch: can't interpret character 0x%x\n", byte);
        return false;
    }
    p.problem("str2epoch: can't interpret '%c'\n", c);
    return true;
}

void take(Parse &p, const Row &row, std::string_view text)
{
    Token token(text);
    const int before = p.Retcode;
    row.action(p, token, row.argument);
    if (token.out_of_range() && p.Retcode == before)
        p.problem("str2epoch: bad input '%.*s'", token.length(), token.data());
}

void scan(Parse &p, const char *text)
{
    while (*text) {
        const auto match = Scanner::next(text);
        if (match.row != Scanner::kNoRow)
            take(p, kRows[match.row], {text, match.length});
        else if (!strange_character(p, *text))
            return;
        text += std::max<std::size_t>(match.length, 1);
    }
}

void settle_two_numbers(Parse &p)
{
    const auto [smaller, larger] = std::minmax(p.X1, p.X2);
    p.Year = saturated<int>(larger);
    p.Day = saturated<int>(smaller);
    if (larger > INT_MAX)
        p.problem("str2epoch: number %f not understood", larger);
    if (p.Day > 31)
        p.problem("str2epoch: number %d not understood", p.Day);
}

void settle_one_number(Parse &p)
{
    if (p.X1 < 32) {
        p.Day = static_cast<int>(p.X1);
    } else if (p.X1 > 1900000 && p.X1 < 2200001) {
        p.Year = static_cast<int>(p.X1) / 1000;
        p.Doy = static_cast<int>(p.X1) % 1000;
    } else if (p.X1 < 2200) {
        p.Year = static_cast<int>(p.X1);
    } else {
        p.problem("str2epoch: number %f not understood", p.X1);
    }
}

void settle_fields(Parse &p)
{
    if (p.X2 != 0)
        settle_two_numbers(p);
    else if (p.X1 != 0)
        settle_one_number(p);

    if (p.Year >= 69 && p.Year <= 99)
        p.Year += 1900;
    else if (p.Year < 69)
        p.Year += 2000;
    if (p.Month == -1)
        p.Month = 1;
    if (p.Day == -1)
        p.Day = 1;
    if (p.Am == 1 && p.Hour == 12)
        p.Hour = 0;
    else if (p.Am == 0 && p.Hour < 12)
        p.Hour += 12;
}

void check_ranges(Parse &p)
{
    const bool only_time = p.Doy == 0 && p.Month == 1 && p.Day == 1 && p.Year == 1970;
    if (p.Day >= 32)
        p.problem("str2epoch: day = %d is too large", p.Day);
    else if (p.Month >= 13)
        p.problem("str2epoch: Month = %d is too large", p.Month);
    else if (p.Minute >= 61)
        p.problem("str2epoch: Minute = %d is too large", p.Minute);
    else if (p.Second > 60)
        p.problem("str2epoch: Second = %.5f is too large", p.Second);
    else if (p.Hour >= 25 && !(only_time && p.Hour <= 168))
        p.problem("str2epoch: Hour = %d is too large", p.Hour);
}

double composed(Parse &p)
{
    settle_fields(p);
    check_ranges(p);
    if (p.Doy > 366)
        p.problem("str2epoch: Doy = %d is too large", p.Doy);
    const int doy = p.Doy ? p.Doy : mday2doy(p.Year, p.Month, p.Day);
    return h2e(p.Year, doy, p.Hour, p.Minute, p.Second);
}

// What the platform makes of a wall-clock time in the zone now in force.
double wall_clock(double when)
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

void convert_to_zone(Parse &p)
{
    double there = 0;
    {
        const std::lock_guard lock(stock::environment_lock);
        switchTZ(p.Timezone);
        there = wall_clock(p.Etime);
        restoreTZ();  // before another thread can see it
    }
    // Meant: the last second of 1969 in UTC is -1 too, and is refused like a failure.
    if (there == -1) {
        p.problem("str2epoch: Can't convert to local timezone before 1970\n");
    } else if (std::fabs(there - p.Etime) > kDay) {
        const stock::Owned<char> difference(strtdelta(there - p.Etime));
        p.problem("str2epoch: invalid timezone difference = %s", difference.get());
    } else {
        p.Etime = there + (p.Etime - std::floor(p.Etime));
    }
}

void parse(Parse &p, const char *text)
{
    if (whitespace(text))
        ++p.Retcode;
    scan(p, text);
    if (p.nothing_set())
        ++p.Retcode;
    if (p.X1 != 0 && p.X2 == 0 && !p.month_or_time_set())
        p.Etime = p.X1;
    if (p.Etime == kUnset)
        p.Etime = composed(p);
    if (p.UsingTimezone)
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
    Parse p(log != 0);
    parse(p, text);
    restoreTZ();
    *epoch = p.Etime;
    if (p.message)
        elog_log(0, "%s", p.message.get());
    return -p.Retcode;
}

namespace {

// The zone switch of the process, under environment_lock.
std::atomic<bool> ChangedTZ = false;  // read without it: no thread misses a switch of its own
char *OldTZ = nullptr;                // the environment's entry before the first switch, or null
char *NewTZ = nullptr;                // the entry installed last, owned

constexpr std::size_t kSwitchLength = 61;  // characters of a zone that count

void install(char *entry)
{
    if (putenv(entry) == 0)
        return;
    stock::environment_lock.give_up();
    elog_die(1, "*stack*Unexpected failure: %s in file %s, line %d\n", "switchTZ", "str2epoch",
             __LINE__);
}

// The entry must be out of the environment.
void free_installed()
{
    std::free(NewTZ);
    NewTZ = nullptr;
}

}  // namespace

void switchTZ(const char *zone)
{
    const std::lock_guard lock(stock::environment_lock);
    if (!ChangedTZ)
        OldTZ = const_cast<char *>(mygetTZ());
    ChangedTZ = true;
    if (zone && *zone) {
        constexpr std::string_view kName = "TZ=";
        const std::size_t length = strnlen(zone, kSwitchLength);
        const std::size_t size = kName.size() + length + 1;
        auto *entry = static_cast<char *>(std::malloc(size));
        if (!entry) {
            stock::environment_lock.give_up();
            stock::out_of_memory(size, "time zone");
        }
        kName.copy(entry, kName.size());
        std::memcpy(entry + kName.size(), zone, length);
        entry[kName.size() + length] = '\0';
        install(entry);
        free_installed();
        NewTZ = entry;
    } else {
        unsetenv("TZ");
    }
    errno = 0;
    tzset();
}

void restoreTZ(void)
{
    if (!ChangedTZ)
        return;
    const std::lock_guard lock(stock::environment_lock);
    if (!ChangedTZ)
        return;
    if (OldTZ)
        install(OldTZ);
    else
        unsetenv("TZ");
    errno = 0;
    tzset();
    free_installed();
    ChangedTZ = false;
}

const char *mygetTZ(void)
{
    const char *value = std::getenv("TZ");
    return value && *value ? value - 3 : nullptr;
}
