// Epoch times as text.
//
// A time is broken down into Fields, in UTC or in a zone, and each code of a format prints
// some of these: the table kCodes says which. The default formats are public variables; they are
// read from a parameter file when a function first needs one of them.

#include "stock/time.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <span>
#include <string_view>
#include <utility>

#include "base/alloc.h"
#include "base/environment.h"
#include "base/fixed_text.h"
#include "base/number.h"
#include "base/zone_name.h"
#include "stock/elog.h"
#include "stock/epoch.h"
#include "stock/h2e.h"
#include "stock/str2epoch.h"
#include "time/asks.h"
#include "time/time_state.h"

using stock::FixedText;
using stock::saturated;

const char *const Week[7] = {"Monday", "Tuesday",  "Wednesday", "Thursday",
                             "Friday", "Saturday", "Sunday"};
const char *const Month[12] = {"January",   "February", "March",    "April",
                               "May",       "June",     "July",     "August",
                               "September", "October",  "November", "December"};

const char *const MDtime_format = "%Y-%m-%d %T";
const char *const MD_format = "%Y-%m-%d";
const char *const YDtime_format = "%Y-%j %T";
const char *const YD_format = "%Y-%j";
const char *const ZMDtime_format = "%Y-%m-%d %T %z";
const char *const ZMD_format = "%Y-%m-%d %z";
const char *const ZYDtime_format = "%Y-%j %T %z";
const char *const ZYD_format = "%Y-%j %z";

namespace {

// The default formats are plain variables, so that programs may read and set them; here
// each is read and written whole, as other threads do so at the same time.
template <class T>
T read(const T &global)
{
    return __atomic_load_n(&global, __ATOMIC_ACQUIRE);
}
template <class T>
void write(T &global, T value)
{
    __atomic_store_n(&global, value, __ATOMIC_RELEASE);
}

// With Formats_lock held. Unset_formats comes last: a thread that reads 0 there sees all the
// other variables set.
void install(const stock::TimeFormats &formats)
{
    write(Strtime_format, formats.time);
    write(Strydtime_format, formats.ydtime);
    write(UStrydtime_format, formats.uydtime);
    write(Strdate_format, formats.date);
    write(ZStrtime_format, formats.ztime);
    write(ZStrydtime_format, formats.zydtime);
    write(UZStrydtime_format, formats.uzydtime);
    write(ZStrdate_format, formats.zdate);
    write(Month_first, formats.month_first);
    write(Unset_formats, 0);
}

// Reads the formats and installs them. When several threads need them for the first time, those
// of the first to have read them stay; `again` installs them in any case. The file is read
// without the lock: reading may report a message, and the message may print a time.
void load_formats(bool again)
{
    if (stock::Reading_formats)
        return;
    stock::Reading_formats = true;
    stock::TimeFormats formats = {};
    if (!stock::read_time_formats(formats))
        formats =
            std::getenv("EUROPEAN_DATE") ? stock::kDayFirstFormats : stock::kMonthFirstFormats;
    stock::Reading_formats = false;
    const std::lock_guard lock(stock::Formats_lock);
    if (again || read(Unset_formats))
        install(formats);
}

void need_formats()
{
    if (read(Unset_formats))
        load_formats(false);
}

// A time broken down: what the codes of a format print.
struct Fields {
    int year, doy, month, day, hour, minute;
    double second, epoch;
    std::string_view zone;  // its name as it is printed; not owned
};

int hour_of_12(const Fields &f)
{
    const int hour = f.hour % 12;
    return hour == 0 ? 12 : hour;
}

// Computed, not taken from the platform: 1970-01-01, day 3, is a Thursday.
const char *weekday(const Fields &f)
{
    const double days = std::floor(dtoepoch(f.year * 1000L + f.doy) / 86400) + 3;
    const auto day = saturated<std::int64_t>(days) % 7;
    return Week[day < 0 ? day + 7 : day];
}

// Nothing for a month that is none: ztime2str takes any number.
std::string_view month(const Fields &f)
{
    return f.month >= 1 && f.month <= 12 ? Month[f.month - 1] : "";
}

void add_date(FixedText &out, int first, int second, int year)
{
    out.blanks(first, 2);
    out.add('/');
    out.zeros(second, 2);
    out.add('/');
    out.zeros(year % 100, 2);
}

void add_ordinal(FixedText &out, int n)
{
    out.blanks(n, 0);
    out.add(ordinal(n));
}

double fraction_of_second(const Fields &f)
{
    return f.second - std::trunc(f.second);
}

// A letter that may stand behind "%" in a format, and what it prints.
struct Code {
    char letter;
    void (*print)(FixedText &out, const Fields &f);
};

// epoch2str(3) lists the codes with examples.
// clang-format off
constexpr Code kCodes[] = {
    {'A', [](FixedText &out, const Fields &f) { out.add(weekday(f)); }},
    {'a', [](FixedText &out, const Fields &f) { out.add(std::string_view(weekday(f), 3)); }},
    {'B', [](FixedText &out, const Fields &f) { out.add(month(f)); }},
    {'b', [](FixedText &out, const Fields &f) { out.add(month(f).substr(0, 3)); }},
    {'D', [](FixedText &out, const Fields &f) {
              is_month_first() ? add_date(out, f.month, f.day, f.year)
                               : add_date(out, f.day, f.month, f.year);
          }},
    {'d', [](FixedText &out, const Fields &f) { out.zeros(f.day, 2); }},
    {'e', [](FixedText &out, const Fields &f) { out.blanks(f.day, 2); }},
    {'E', [](FixedText &out, const Fields &f) { out.fixed(f.epoch, 15, 3); }},
    {'G', [](FixedText &out, const Fields &f) {
              out.zeros(f.year, 4);
              out.add('-');
              out.zeros(f.month, 2);
              out.add('-');
              out.zeros(f.day, 2);
          }},
    {'g', [](FixedText &out, const Fields &f) {
              out.zeros(f.year, 4);
              out.add('-');
              out.zeros(f.doy, 3);
          }},
    {'H', [](FixedText &out, const Fields &f) { out.zeros(f.hour, 2); }},
    {'k', [](FixedText &out, const Fields &f) { out.blanks(f.hour, 2); }},
    {'I', [](FixedText &out, const Fields &f) { out.zeros(hour_of_12(f), 2); }},
    {'l', [](FixedText &out, const Fields &f) { out.blanks(hour_of_12(f), 2); }},
    {'j', [](FixedText &out, const Fields &f) { out.zeros(f.doy, 3); }},
    {'L', [](FixedText &out, const Fields &f) { out.blanks(f.month, 2); }},
    {'m', [](FixedText &out, const Fields &f) { out.zeros(f.month, 2); }},
    {'M', [](FixedText &out, const Fields &f) { out.zeros(f.minute, 2); }},
    {'n', [](FixedText &out, const Fields &) { out.add('\n'); }},
    {'t', [](FixedText &out, const Fields &) { out.add('\t'); }},
    {'O', [](FixedText &out, const Fields &f) { add_ordinal(out, f.doy); }},
    {'o', [](FixedText &out, const Fields &f) { add_ordinal(out, f.day); }},
    {'p', [](FixedText &out, const Fields &f) { out.add(f.hour < 12 ? "AM" : "PM"); }},
    {'S', [](FixedText &out, const Fields &f) { out.zeros(saturated<int>(f.second), 2); }},
    // Meant: no upper bound, so 0.9996 s prints 1000.
    {'s', [](FixedText &out, const Fields &f) {
              out.zeros(saturated<int>(fraction_of_second(f) * 1000 + 0.5), 3);
          }},
    {'u', [](FixedText &out, const Fields &f) {
              out.zeros(std::min(saturated<int>(0.5 + 100000 * fraction_of_second(f)), 99999), 5);
          }},
    {'T', [](FixedText &out, const Fields &f) {
              out.zeros(f.hour, 2);
              out.add(':');
              out.zeros(f.minute, 2);
              out.add(':');
              out.fixed(f.second, 6, 3, '0');
          }},
    {'Y', [](FixedText &out, const Fields &f) { out.blanks(f.year, 4); }},
    {'y', [](FixedText &out, const Fields &f) { out.zeros(f.year % 100, 2); }},
    {'Z', [](FixedText &out, const Fields &f) { out.add(f.zone); }},
    {'z', [](FixedText &out, const Fields &f) { out.add(f.zone); }},
};
// clang-format on

// The same rows, one slot per byte. A letter given twice does not compile.
constexpr auto kPrint = [] {
    std::array<decltype(Code::print), 256> slots{};
    for (const Code &code : kCodes) {
        auto &slot = slots[static_cast<unsigned char>(code.letter)];
        slot = slot ? throw "letter given twice" : code.print;
    }
    return slots;
}();

// Adds the text of a format: its codes replaced, all other characters as they are.
void expand(FixedText &out, const char *format, const Fields &f)
{
    for (; *format; ++format) {
        if (*format != '%') {
            out.add(*format);
            continue;
        }
        if (!*++format)
            return;
        if (const auto print = kPrint[static_cast<unsigned char>(*format)])
            print(out, f);
        else
            out.add(*format);
    }
}

// ---- Times broken down ----

Fields utc_fields(double epoch)
{
    Caltime time;
    time.epoch = epoch;
    etoh(&time);
    return {time.year,   time.doy,    time.month, time.day, time.hour,
            time.minute, time.second, epoch,      "UTC"};
}

// The fields in the process's zone. The zone's name is the platform's own, which may change with
// the zone: with environment_lock held. A year that the platform refuses is broken down in UTC.
Fields local_fields(double epoch)
{
    const double whole = std::trunc(epoch);
    const auto clock = saturated<time_t>(whole);
    struct tm tm = {};
    Fields f = utc_fields(epoch);
    if (localtime_r(&clock, &tm)) {
        f = {tm.tm_year + 1900,
             tm.tm_yday + 1,
             tm.tm_mon + 1,
             tm.tm_mday,
             tm.tm_hour,
             tm.tm_min,
             tm.tm_sec + (epoch - whole),
             epoch,
             ""};
    }
    f.zone = tzname[tm.tm_isdst > 0];
    return f;
}

// Switches the process to a zone until restoreTZ; for "" and "LOCAL" leaves it in its own. Returns
// 0, or else the errno, which is ENOENT when the platform has no such zone, and leaves the process
// in its own too. With environment_lock held.
int switch_to(const char *zone)
{
    if (!*zone || std::strcmp(zone, "LOCAL") == 0)
        return 0;
    if (!stock::stays_inside_zones(zone))
        return ENOENT;
    switchTZ(zone);
    const int error = std::exchange(errno, 0);
    if (error != 0)
        restoreTZ();
    return error;
}

// A time broken down in a zone, and a copy of the zone's name.
class ZonedTime {
public:
    // A null zone is UTC, "" and "LOCAL" are the process's own. In place of a zone that the
    // platform does not have, which is reported, the process's own is used.
    ZonedTime(const char *zone, double epoch);
    ZonedTime(const ZonedTime &) = delete;
    ZonedTime &operator=(const ZonedTime &) = delete;

    const Fields &fields() const { return fields_; }
    bool zone_known() const { return zone_error_ == 0; }

private:
    std::size_t break_down(const char *zone, double epoch, std::span<char> name);

    Fields fields_;  // its zone lies in one of the two names
    int zone_error_ = 0;
    char short_name_[64];
    stock::Owned<char> long_name_;
};

ZonedTime::ZonedTime(const char *zone, double epoch) : fields_(zone ? Fields() : utc_fields(epoch))
{
    if (!zone)
        return;
    std::span<char> name = short_name_;
    std::size_t length = break_down(zone, epoch, name);
    while (length > name.size()) {
        long_name_.reset(static_cast<char *>(stock::allocate(length, "zone name")));
        name = {long_name_.get(), length};
        length = break_down(zone, epoch, name);
    }
    fields_.zone = {name.data(), length};
    if (zone_error_ == EMFILE || zone_error_ == ENFILE || zone_error_ == ENOMEM ||
        zone_error_ == EACCES || zone_error_ == EIO) {
        errno = zone_error_;
        elog_log(1, "Can't read timezone '%s'\n", zone);
    } else if (zone_error_ != 0) {
        elog_log(0, "Unrecognized timezone '%s'\n", zone);
    }
}

// Sets the fields and copies the zone's name into `name`. Returns the length of the name: when it
// does not fit, the caller asks for memory, which it may not with the lock held, and calls again.
std::size_t ZonedTime::break_down(const char *zone, double epoch, std::span<char> name)
{
    const std::lock_guard lock(stock::environment_lock);
    zone_error_ = switch_to(zone);
    fields_ = local_fields(epoch);
    fields_.zone.copy(name.data(), name.size());
    restoreTZ();
    return fields_.zone.size();
}

constexpr std::size_t kTextBytes = 1024;  // for the text of a format, its zones not counted

// How many codes of the format, %Z and %z, print the zone.
std::size_t zone_codes(const char *format)
{
    std::size_t codes = 0;
    while ((format = std::strchr(format, '%')) && *++format)
        codes += *format++ == 'Z' || format[-1] == 'z';
    return codes;
}

// The bytes that the zones in a format's text may need besides kTextBytes: 0 where the format is
// so short that they fit in any case.
std::size_t bytes_for_zones(const char *format, std::string_view zone)
{
    constexpr std::size_t kShortZone = 8;
    constexpr std::size_t kShortFormat = 64;
    if (zone.size() <= kShortZone && strnlen(format, kShortFormat + 1) <= kShortFormat)
        return 0;
    return zone_codes(format) * zone.size();
}

char *copied(std::string_view text)
{
    auto *copy = static_cast<char *>(stock::allocate(text.size() + 1, "time text"));
    text.copy(copy, text.size());
    copy[text.size()] = '\0';
    return copy;
}

// The text of a format, which the caller frees. It is cut at kTextBytes - 1 characters and those
// that the zones need, so that a long zone's name stands there whole.
char *formatted(const char *format, const Fields &f)
{
    char memory[kTextBytes];
    stock::Owned<char> more_memory;
    const std::size_t size = kTextBytes + bytes_for_zones(format, f.zone);
    if (size > kTextBytes)
        more_memory.reset(static_cast<char *>(stock::allocate(size, "time text")));
    FixedText out(more_memory ? more_memory.get() : memory, size);
    expand(out, format, f);
    return copied(out.view());
}

char *printed(const char *format, const char *zone, double epoch)
{
    return formatted(format, ZonedTime(zone, epoch).fields());
}

// Times are rounded before they are broken down, so that 59.9996 s prints as the next minute.
double to_millisecond(double epoch)
{
    return std::floor(epoch * 1000 + 0.5) / 1000;
}

// What the default printers return: a text of its own for a time that is no date, else the time
// in the format. `format` is one of the public variables, read after they are set.
char *printed_by_default(const char *const &format, const char *zone, double epoch, bool rounds)
{
    need_formats();
    char text[OUTSIDE_RANGE_SIZE];
    if (outside_range(text, epoch))
        return copied(text);
    return printed(read(format), zone, rounds ? to_millisecond(epoch) : epoch);
}

}  // namespace

char *ztime2str(const char *format, int year, int doy, int month, int day, int hour, int minute,
                const char *zone, double epoch, double second)
{
    const std::string_view name = zone ? zone : std::string_view();
    return formatted(format, {year, doy, month, day, hour, minute, second, epoch, name});
}

int e2hz(const char *zone, int *year, int *doy, int *month, int *day, int *hour, int *minute,
         double *second, char **zonename, double epoch)
{
    const ZonedTime time(zone, epoch);
    const Fields &f = time.fields();
    *year = f.year;
    *doy = f.doy;
    *month = f.month;
    *day = f.day;
    *hour = f.hour;
    *minute = f.minute;
    *second = f.second;
    *zonename = copied(f.zone);
    return time.zone_known() ? 0 : -1;
}

char *epoch2str(const char *format, double epoch)
{
    return printed(format, nullptr, epoch);
}

char *zepoch2str(const char *format, const char *zone, double epoch)
{
    return printed(format, zone, epoch);
}

char *strtime(double epoch)
{
    return printed_by_default(Strtime_format, nullptr, epoch, true);
}

char *strydtime(double epoch)
{
    return printed_by_default(Strydtime_format, nullptr, epoch, true);
}

char *strdate(double epoch)
{
    return printed_by_default(Strdate_format, nullptr, epoch, false);
}

char *strlocaltime(double epoch)
{
    return printed_by_default(ZStrtime_format, "", epoch, true);
}

char *strlocalydtime(double epoch)
{
    return printed_by_default(ZStrydtime_format, "", epoch, true);
}

char *strlocaldate(double epoch)
{
    return printed_by_default(ZStrdate_format, "", epoch, false);
}

namespace {

// The formats of a style of fmttime, for a time in UTC and for one in a zone.
struct Style {
    int style;
    const char *const *utc;
    const char *const *zone;
};

// The last row is for every other style.
// clang-format off
constexpr Style kStyles[] = {
    {1, &MDtime_format, &ZMDtime_format},
    {3, &MD_format, &ZMD_format},
    {4, &YD_format, &ZYD_format},
    {5, &Strtime_format, &ZStrtime_format},
    {6, &Strdate_format, &ZStrdate_format},
    {7, &Strydtime_format, &ZStrydtime_format},
    {8, &UStrydtime_format, &UZStrydtime_format},
    {0, &YDtime_format, &ZYDtime_format},
};
// clang-format on

const Style &style_of(int style)
{
    const Style *row = kStyles;
    while (row->style != style && row->style != 0)
        ++row;
    return *row;
}

}  // namespace

int fmttime(char *buf, int style, const char *zone, double epoch)
{
    need_formats();
    if (outside_range(buf, epoch))
        return 0;
    // Style 8 shows five decimals, the others three at most.
    const double rounded =
        style == 8 ? std::floor(0.5 + epoch * 100000) / 100000 : to_millisecond(epoch);
    const bool utc = !zone || std::strcmp(zone, "UTC") == 0;
    const Style &row = style_of(style);
    const ZonedTime time(utc ? nullptr : zone, rounded);
    static_assert(kTextBytes <= FMTTIME_SIZE);
    FixedText out(buf, kTextBytes);
    expand(out, read(utc ? *row.utc : *row.zone), time.fields());
    out.c_str();  // ends the text in buf
    return 0;
}

namespace {

using IntervalText = stock::FixedTextOf<50>;

constexpr double kHourSeconds = 3600;
constexpr double kDaySeconds = 86400;
constexpr double kYearSeconds = 365 * kDaySeconds;

void print_years(IntervalText &out, double dt)
{
    const double years = std::floor(dt / kYearSeconds);
    double rest = dt - years * kYearSeconds;
    if (!(rest <= kYearSeconds))
        rest = 0;
    const double days = std::floor(rest / kDaySeconds);
    // Meant: a million years alone is 1e+06, a million years and some days is 1000000.
    if (days == 0 ? years < 1000000 : !(years > 1000000))
        out.fixed(years, 0, 0);
    else
        out.general(years, 6);
    out.add(" years");
    if (days != 0) {
        out.add(' ');
        out.fixed(days, 0, 0);
        out.add(" days");
    }
}

void print_days(IntervalText &out, double dt)
{
    const double days = std::floor(dt / kDaySeconds);
    const double hours = std::floor((dt - days * kDaySeconds) * 10 / kHourSeconds) / 10;
    out.fixed(days, 0, 0);
    out.add(" days");
    if (hours != 0) {
        out.add(' ');
        out.fixed(hours, 0, 1);
        out.add(" hours");
    }
}

// The two parts of an interval that is told as hours:minutes or minutes:seconds.
void print_pair(IntervalText &out, double first, double second, std::string_view unit)
{
    out.fixed(first, 2, 0);
    out.add(':');
    out.fixed(second, 2, 0, '0');
    out.add(unit);
}

void print_hours(IntervalText &out, double dt)
{
    const double rounded = std::floor(0.5 + dt / 60) * 60;
    const double hours = std::floor(rounded / kHourSeconds);
    print_pair(out, hours, std::floor((rounded - hours * kHourSeconds) / 60), " hours");
}

void print_minutes(IntervalText &out, double dt)
{
    const double rounded = std::floor(dt + 0.5);
    const double minutes = std::floor(rounded / 60);
    print_pair(out, minutes, rounded - minutes * 60, " minutes");
}

struct IntervalUnit {
    double least;  // the shortest interval in seconds that is told in this unit
    void (*print)(IntervalText &out, double dt);
};

// First row that fits wins.
// clang-format off
constexpr IntervalUnit kIntervalUnits[] = {
    {kYearSeconds, print_years},
    {kDaySeconds, print_days},
    {kHourSeconds, print_hours},
    {60, print_minutes},
    {1, [](IntervalText &out, double dt) { out.fixed(dt, 6, 3); out.add(" seconds"); }},
    {0.001, [](IntervalText &out, double dt) { out.fixed(dt * 1000, 7, 3); out.add(" milliseconds"); }},
    {0.000001, [](IntervalText &out, double dt) { out.fixed(dt * 1000000, 7, 3); out.add(" microseconds"); }},
    {0.000000001, [](IntervalText &out, double dt) { out.fixed(dt * 1000000000, 7, 3); out.add(" nanoseconds"); }},
};
// clang-format on

void print_interval(IntervalText &out, double dt)
{
    for (const IntervalUnit &unit : kIntervalUnits)
        if (dt >= unit.least)
            return unit.print(out, dt);
    if (dt == 0)
        return out.add(" 0 seconds");
    out.general(dt * 1000000000000, 5);
    out.add(" picoseconds");
}

}  // namespace

char *strtdelta(double seconds)
{
    constexpr std::size_t kWidth = 21;  // characters, with blanks behind a shorter text
    IntervalText out;
    out.add(seconds < 0 ? '-' : ' ');
    print_interval(out, std::fabs(seconds));
    out.fill(kWidth, ' ');
    // The sign stands in front, blanks behind it: swaps it with the last of these.
    char *text = out.data();
    const std::size_t blanks = out.view().find_first_not_of(' ', 1) - 1;
    std::swap(text[0], text[blanks]);
    return copied(out.view());
}

// Meant: from 100 on, an ending of 00 to 20 always takes "th": 101 gives "101th".
const char *ordinal(int n)
{
    if (n % 100 <= 20 && n >= 4)
        return "th";
    switch (n % 10) {
    case 1: return "st";
    case 2: return "nd";
    case 3: return "rd";
    default: return "th";
    }
}

void set_time_formats(void)
{
    load_formats(true);
}

int is_month_first(void)
{
    need_formats();
    return read(Month_first);
}
