// Calendar arithmetic on epoch times.
//
// A time is cut into whole days since 1970 and the seconds of its day. The year of a day is
// estimated with 365 days a year, then corrected by one; the month of a day of the year is
// found by a shift and one look into a table. Days are whole numbers and computed as integers;
// seconds have fractions and stay doubles.

#include "stock/epoch.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

#include "base/ascii.h"
#include "base/fixed_text.h"
#include "base/number.h"
#include "stock/elog.h"
#include "time/read_number.h"

using stock::floor_div;
using stock::saturated;
using stock::saturated_int;

constexpr int days_in_month[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
const char *const month_name[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                    "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

namespace {

constexpr double kDaySeconds = 86400;

constexpr bool leap(std::int64_t year)
{
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

// Days from 1970-01-01 to 1 January of the year, in whole numbers or in doubles.
template <class N>
constexpr N days_before(N year)
{
    return (year - 1970) * 365 + floor_div(year - 1969, N{4}) - floor_div(year - 1901, N{100}) +
           floor_div(year - 1601, N{400});
}

// kEnd[leap][m]: the days of the year up to the end of month m, 1 .. 12.
constexpr auto kEnd = [] {
    std::array<std::array<short, 13>, 2> ends{};
    for (int is_leap = 0; is_leap < 2; ++is_leap)
        for (int month = 1, end = 0; month <= 12; ++month) {
            end += days_in_month[month - 1] + (month == 2 ? is_leap : 0);
            ends[static_cast<std::size_t>(is_leap)][static_cast<std::size_t>(month)] =
                static_cast<short>(end);
        }
    return ends;
}();

struct YearDay {
    double year;
    int doy;  // day of the year from 1
};

// The year that holds a day counted from 1970.
YearDay year_of(double days)
{
    // So far from 1970 the estimate below is always wrong by years.
    if (!(std::fabs(days) < 1e12))
        return {1970 + std::floor(days / 365), 1};
    const auto whole = static_cast<std::int64_t>(days);
    std::int64_t year = 1970 + floor_div(whole, 365);
    std::int64_t d = whole - days_before(year);
    // Meant: an estimate that is off by years is left, on 1 January: 1e12 gives the year 33679.
    if (d < -366)
        d = 0;
    if (d < 0) {
        --year;
        d += leap(year) ? 366 : 365;
    } else if (d >= 730) {
        d = 0;
    } else if (d > (leap(year) ? 365 : 364)) {
        d -= leap(year) ? 366 : 365;
        ++year;
    }
    return {static_cast<double>(year), static_cast<int>(d) + 1};
}

// The day that holds a time, from 1970: floor(when / kDaySeconds) without calling floor.
double day_of(double when)
{
    const double days = when / kDaySeconds;
    if (!(std::fabs(days) < 1e15))
        return std::floor(days);
    const auto whole = static_cast<double>(static_cast<std::int64_t>(days));
    return whole - (whole > days);
}

// The month, 1 .. 12, that holds a day of the year; `day` is set to its day of the month. A day
// before 1 counts as one of January, a day behind the last as one of December.
int month_of(int year, int doy, int &day)
{
    const auto &end = kEnd[leap(year)];
    if (doy < 1) {
        day = doy;
        return 1;
    }
    if (doy > end[12]) {
        day = doy - end[12];
        return 12;
    }
    // Months have 28 to 31 days, so dividing by 32 gives the month or the one before, from 0.
    auto month = static_cast<std::size_t>((doy - 1) >> 5);
    month += doy > end[month + 1];
    day = doy - end[month];
    return static_cast<int>(month) + 1;
}

// The epoch time of the date and the time of day.
double seconds_of(const Caltime &time)
{
    return dtoepoch(time.date) + time.hour * 3600.0 + time.minute * 60.0 + time.second;
}

}  // namespace

double epoch(int yyyyddd)
{
    return dtoepoch(yyyyddd);
}

double dtoepoch(long yyyyddd)
{
    const long year = yyyyddd / 1000;
    return static_cast<double>(days_before<std::int64_t>(year) + (yyyyddd % 1000 - 1)) *
           kDaySeconds;
}

int yearday(double when)
{
    Caltime time;
    time.epoch = when;
    etoh(&time);
    return saturated_int(time.date);
}

long todaysdate(void)
{
    const time_t now = time(nullptr);
    struct tm fields = {};
    gmtime_r(&now, &fields);
    return (fields.tm_yday + 1) + fields.tm_year * 1000L + 1900000;
}

int isleap(int year)
{
    return leap(year);
}

double year2days(double year)
{
    return days_before(year);
}

int etoh(Caltime *time)
{
    const double days = day_of(time->epoch);
    double rest = time->epoch - days * kDaySeconds;
    if (!(rest >= 0 && rest <= kDaySeconds))
        rest = 0;
    // Meant: -1e-20 leaves a rest of 86400, which is hour 24.
    const int whole = static_cast<int>(rest);
    time->hour = whole / 3600;
    time->minute = whole % 3600 / 60;
    time->second = rest - time->hour * 3600 - time->minute * 60;

    const YearDay date = year_of(days);
    time->year = saturated<int>(date.year);
    time->doy = date.doy;
    time->date = time->doy + time->year * 1000L;
    return month_day(time);
}

int htoe(Caltime *time)
{
    time->epoch = seconds_of(*time);
    return 0;
}

int zh_today(Caltime *time)
{
    time->epoch = dtoepoch(todaysdate());
    return etoh(time);
}

int month_day(Caltime *time)
{
    time->month = month_of(time->year, time->doy, time->day);
    std::memcpy(time->mname, month_name[time->month - 1], sizeof time->mname);
    return 0;
}

int mdtodate(Caltime *time)
{
    const int before = time->month < 1 ? 0 : time->month > 12 ? 12 : time->month - 1;
    const std::int64_t doy =
        std::int64_t{kEnd[leap(time->year)][static_cast<std::size_t>(before)]} + time->day;
    time->doy = saturated_int(doy);
    time->date = doy + time->year * 1000L;
    return 0;
}

int timeprint(const Caltime *time)
{
    // As printf prints "%15.3f %8ld %.3s %2d,%4d %2d:%02d:%02.3f\n" in the C locale.
    stock::FixedTextOf<1024> line;
    line.fixed(time->epoch, 15, 3);
    line.add(' ');
    line.blanks(time->date, 8);
    line.add(' ');
    line.add(std::string_view(time->mname, strnlen(time->mname, 3)));
    line.add(' ');
    line.blanks(time->day, 2);
    line.add(',');
    line.blanks(time->year, 4);
    line.add(' ');
    line.blanks(time->hour, 2);
    line.add(':');
    line.zeros(time->minute, 2);
    line.add(':');
    line.fixed(time->second, 2, 3, '0');
    line.add('\n');
    std::fwrite(line.data(), 1, line.size(), stdout);
    return 0;
}

namespace {

constexpr std::size_t kDurationSize = 20;  // bytes of a duration's text, its NUL included

// Takes the digits that the text begins with, with `points` the points among them too, and
// returns their value. Meant: 1.2.3 is 1.2.
double take_number(std::string_view &text, bool points)
{
    std::size_t length = 0;
    while (length < text.size() &&
           (stock::is_digit(text[length]) || (points && text[length] == '.')))
        ++length;
    bool out_of_range = false;  // never: there are fewer than kDurationSize digits
    const double value = stock::read_number(text.substr(0, length), out_of_range);
    text.remove_prefix(length);
    return value;
}

}  // namespace

double timecon(const char *text)
{
    std::string_view rest = text ? text : "";
    if (rest.size() >= kDurationSize)
        elog_die(0, "timecon: duration '%s' is longer than %d characters\n", text,
                 static_cast<int>(kDurationSize) - 1);
    double seconds = 3600 * take_number(rest, false);
    for (const double unit : {60.0, 1.0}) {
        if (rest.empty())
            break;
        rest.remove_prefix(1);
        seconds += unit * take_number(rest, unit == 1);
    }
    return seconds;
}

int outside_range(char *buf, double when)
{
    constexpr double kLastTime = 253244534400;  // the first second of the year 9995
    const char *text = nullptr;
    if (when == HUGE_VAL)
        text = "** The End of Time (+infinity) **";
    else if (when == -HUGE_VAL)
        text = "** The Beginning of Time (-infinity) **";
    else if (std::isnan(when))
        text = "** Nan **";
    if (text) {
        std::strcpy(buf, text);
        return 1;
    }
    if (std::fabs(when) <= kLastTime)
        return 0;
    // Meant: the count of a time before 1970 keeps its sign: -8031 years ago.
    const double years = std::floor(std::floor(when / kDaySeconds) / 365);
    char count[32];
    *std::to_chars(count, count + sizeof count - 1, years, std::chars_format::general, 6).ptr = 0;
    std::snprintf(buf, OUTSIDE_RANGE_SIZE, "** %6s years %s ** ", count,
                  when > 0 ? "ahead" : "ago");
    return 1;
}

namespace {

// Seconds since the minute, hour, day or year of a time began.
double in_minute(const Caltime &t)
{
    return t.second;
}
double in_hour(const Caltime &t)
{
    return t.second + 60 * t.minute;
}
double in_day(const Caltime &t)
{
    return t.second + 60 * (t.minute + 60 * t.hour);
}
// Meant: the day of the year counts from 1, so this is a day too much, and ticks of days are
// aligned to the day before 1 January.
double in_year(const Caltime &t)
{
    return t.second + 60 * (t.minute + 60 * (t.hour + 24.0 * t.doy));
}

// Rounds d, which is at most 1, up to one of 1, 0.5, 0.2, 0.1, 0.05 ...
double decimal_increment(double d)
{
    for (double scale = 1;; scale *= 0.1, d *= 10) {
        if (d > 0.5)
            return scale;
        if (d > 0.2)
            return scale * 0.5;
        if (d > 0.1)
            return scale * 0.2;
    }
}

// Rounds d, in seconds, up to 2, 5, 10, 20, 50 ... days.
double days_increment(double d)
{
    d /= kDaySeconds;
    double scale = 1;
    while (d > 2) {
        if (d <= 5)
            return 5 * scale * kDaySeconds;
        if (d <= 10)
            return 10 * scale * kDaySeconds;
        scale *= 10;
        d *= 0.1;
    }
    return 2 * scale * kDaySeconds;
}

// A spacing of ticks that a wanted one is rounded up to, and the time that ticks are aligned to.
struct Spacing {
    double most;                          // the largest spacing wanted that takes this row
    double (*increment)(double wanted);   // null: most itself
    double (*offset)(const Caltime &t0);  // the seconds by which t0 is later than that time
    bool keeps_start = false;             // a t0 at offset 0 is the first tick, not one later
};

// The first row whose `most` is large enough is taken.
// clang-format off
constexpr Spacing kSpacings[] = {
    {1, decimal_increment, in_minute},
    {2, nullptr, in_minute}, {5, nullptr, in_minute}, {10, nullptr, in_minute},
    {15, nullptr, in_minute}, {20, nullptr, in_minute}, {30, nullptr, in_minute},
    {60, nullptr, in_minute, true},
    {120, nullptr, in_hour}, {300, nullptr, in_hour}, {600, nullptr, in_hour},
    {900, nullptr, in_hour}, {1200, nullptr, in_hour}, {1800, nullptr, in_hour},
    {3600, nullptr, in_hour, true},
    {7200, nullptr, in_day}, {14400, nullptr, in_day}, {21600, nullptr, in_day},
    {28800, nullptr, in_day}, {43200, nullptr, in_day}, {86400, nullptr, in_day},
    {HUGE_VAL, days_increment, in_year},
};
// clang-format on

// The first tick at t0 or later.
double first_tick(double t0, double offset, double increment, bool keeps_start)
{
    if (keeps_start)
        return offset == 0 ? t0 : t0 - offset + increment;
    // Meant: 0.0001 less, so an offset of exactly 0 gives t0 + increment.
    const double k = std::trunc(offset / increment - 0.0001) + 1;
    return t0 + k * increment - offset;
}

}  // namespace

int get_nice_times(double t0, double t1, int n, double *start, double *increment)
{
    *start = 0;
    if (t1 == t0 || n < 1)
        return 0;
    const double wanted = std::fabs(t1 - t0) / n;
    if (!std::isfinite(wanted) || wanted == 0)
        return 0;
    Caltime fields;
    fields.epoch = t0;
    etoh(&fields);
    const Spacing *row = kSpacings;
    while (wanted > row->most)
        ++row;
    *increment = row->increment ? row->increment(wanted) : row->most;
    *start = first_tick(t0, row->offset(fields), *increment, row->keeps_start);
    return 0;
}
