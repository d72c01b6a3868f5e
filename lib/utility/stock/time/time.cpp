// Epoch times as text.
//
// One table says what each code of a format prints. A time is broken down in UTC
// or in a zone, expanded into a line on the stack, and copied out once. The
// default formats stand in published globals, set together under one lock.

#include "stock/time.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string_view>

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

constexpr stock::TimeFormats kMonthFirst = {"%m/%d/%Y  %H:%M:%S.%s",
                                            "%m/%d/%Y  (%j) %H:%M:%S.%s",
                                            "%m/%d/%Y  (%j) %H:%M:%S.%u",
                                            "%m/%d/%Y",
                                            "%m/%d/%Y  %H:%M:%S.%s %z",
                                            "%m/%d/%Y  (%j) %H:%M:%S.%s %z",
                                            "%m/%d/%Y  (%j) %H:%M:%S.%u %z",
                                            "%m/%d/%Y %z",
                                            1};
constexpr stock::TimeFormats kDayFirst = {"%d/%m/%Y  %H:%M:%S.%s",
                                          "%d/%m/%Y  (%j) %H:%M:%S.%s",
                                          "%d/%m/%Y  (%j) %H:%M:%S.%u",
                                          "%d/%m/%Y",
                                          "%d/%m/%Y  %H:%M:%S.%s %z",
                                          "%d/%m/%Y  (%j) %H:%M:%S.%s %z",
                                          "%d/%m/%Y  (%j) %H:%M:%S.%u %z",
                                          "%d/%m/%Y %z",
                                          0};

}  // namespace

// Until they are set, what a program without its own formats prints in.
const char *Strtime_format = kMonthFirst.time;
const char *Strydtime_format = kMonthFirst.ydtime;
const char *UStrydtime_format = kMonthFirst.uydtime;
const char *Strdate_format = kMonthFirst.date;
const char *ZStrtime_format = kMonthFirst.ztime;
const char *ZStrydtime_format = kMonthFirst.zydtime;
const char *UZStrydtime_format = kMonthFirst.uzydtime;
const char *ZStrdate_format = kMonthFirst.zdate;
int Month_first = 1;
int Unset_formats = 1;

namespace {

constinit stock::OrderedLock formats_lock{stock::Place::formats};

// The globals are plain, so that programs may read and set them; here they are
// read and written whole.
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

// Reads the formats and installs them; the first thread to get there does where
// only unset ones are wanted. The file is read without the lock, for reading may
// report something, and reporting may print a time.
void load_formats(bool again)
{
    thread_local bool loading = false;
    if (loading)
        return;
    loading = true;
    stock::TimeFormats formats = {};
    if (!stock::read_time_formats(formats))
        formats = std::getenv("EUROPEAN_DATE") ? kDayFirst : kMonthFirst;
    loading = false;
    const std::lock_guard lock(formats_lock);
    if (again || read(Unset_formats))
        install(formats);
}

void need_formats()
{
    if (read(Unset_formats))
        load_formats(false);
}

// What the codes print.
struct Fields {
    int year, doy, month, day, hour, minute;
    double second, epoch;
    std::string_view zone;
};

constexpr std::size_t kTextSize = 1024;  // bytes for the text of a format, its zones not counted

// How many codes of the format print the zone.
std::size_t zone_codes(const char *format)
{
    std::size_t codes = 0;
    while ((format = std::strchr(format, '%')) && *++format)
        codes += *format++ == 'Z' || format[-1] == 'z';
    return codes;
}

// What the zones of the format may need besides kTextSize. Nothing for short ones: a short
// format leaves room for them.
std::size_t room_for_zones(const char *format, std::string_view zone)
{
    constexpr std::size_t kShortZone = 8;
    constexpr std::size_t kShortFormat = 64;
    if (zone.size() <= kShortZone && strnlen(format, kShortFormat + 1) <= kShortFormat)
        return 0;
    return zone_codes(format) * zone.size();
}

// The text of a format: cut at kTextSize - 1 characters, with the zone's name whole wherever
// it stands.
class Output : public stock::FixedText {
public:
    explicit Output(std::size_t for_zones = 0) : Output(more_room(for_zones), for_zones) {}

private:
    Output(char *more, std::size_t for_zones)
        : FixedText(more ? more : room_, kTextSize + for_zones), more_(more)
    {
    }
    static char *more_room(std::size_t for_zones)
    {
        void *room = for_zones ? stock::allocate(kTextSize + for_zones, "time text") : nullptr;
        return static_cast<char *>(room);
    }

    char room_[kTextSize];
    stock::Owned<char> more_;
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

std::string_view month(const Fields &f)
{
    return f.month >= 1 && f.month <= 12 ? Month[f.month - 1] : "";
}

void add_date(Output &out, int first, int second, int year)
{
    out.blanks(first, 2);
    out.add('/');
    out.zeros(second, 2);
    out.add('/');
    out.zeros(year % 100, 2);
}

void add_ordinal(Output &out, int n)
{
    out.blanks(n, 0);
    out.add(ordinal(n));
}

double fraction(const Fields &f)
{
    return f.second - std::trunc(f.second);
}

struct Code {
    char letter;
    void (*print)(Output &out, const Fields &f);
};

// clang-format off
constexpr Code kCodes[] = {
    {'A', [](Output &out, const Fields &f) { out.add(weekday(f)); }},
    {'a', [](Output &out, const Fields &f) { out.add(std::string_view(weekday(f), 3)); }},
    {'B', [](Output &out, const Fields &f) { out.add(month(f)); }},
    {'b', [](Output &out, const Fields &f) { out.add(month(f).substr(0, 3)); }},
    {'D', [](Output &out, const Fields &f) {
              is_month_first() ? add_date(out, f.month, f.day, f.year)
                               : add_date(out, f.day, f.month, f.year);
          }},
    {'d', [](Output &out, const Fields &f) { out.zeros(f.day, 2); }},
    {'e', [](Output &out, const Fields &f) { out.blanks(f.day, 2); }},
    {'E', [](Output &out, const Fields &f) { out.fixed(f.epoch, 15, 3); }},
    {'G', [](Output &out, const Fields &f) {
              out.zeros(f.year, 4);
              out.add('-');
              out.zeros(f.month, 2);
              out.add('-');
              out.zeros(f.day, 2);
          }},
    {'g', [](Output &out, const Fields &f) {
              out.zeros(f.year, 4);
              out.add('-');
              out.zeros(f.doy, 3);
          }},
    {'H', [](Output &out, const Fields &f) { out.zeros(f.hour, 2); }},
    {'k', [](Output &out, const Fields &f) { out.blanks(f.hour, 2); }},
    {'I', [](Output &out, const Fields &f) { out.zeros(hour_of_12(f), 2); }},
    {'l', [](Output &out, const Fields &f) { out.blanks(hour_of_12(f), 2); }},
    {'j', [](Output &out, const Fields &f) { out.zeros(f.doy, 3); }},
    {'L', [](Output &out, const Fields &f) { out.blanks(f.month, 2); }},
    {'m', [](Output &out, const Fields &f) { out.zeros(f.month, 2); }},
    {'M', [](Output &out, const Fields &f) { out.zeros(f.minute, 2); }},
    {'n', [](Output &out, const Fields &) { out.add('\n'); }},
    {'t', [](Output &out, const Fields &) { out.add('\t'); }},
    {'O', [](Output &out, const Fields &f) { add_ordinal(out, f.doy); }},
    {'o', [](Output &out, const Fields &f) { add_ordinal(out, f.day); }},
    {'p', [](Output &out, const Fields &f) { out.add(f.hour < 12 ? "AM" : "PM"); }},
    {'S', [](Output &out, const Fields &f) { out.zeros(saturated<int>(f.second), 2); }},
    // Meant: no upper bound, so 0.9996 s prints 1000.
    {'s', [](Output &out, const Fields &f) {
              out.zeros(saturated<int>(fraction(f) * 1000 + 0.5), 3);
          }},
    {'u', [](Output &out, const Fields &f) {
              out.zeros(std::min(saturated<int>(0.5 + 100000 * fraction(f)), 99999), 5);
          }},
    {'T', [](Output &out, const Fields &f) {
              out.zeros(f.hour, 2);
              out.add(':');
              out.zeros(f.minute, 2);
              out.add(':');
              out.fixed(f.second, 6, 3, '0');
          }},
    {'Y', [](Output &out, const Fields &f) { out.blanks(f.year, 4); }},
    {'y', [](Output &out, const Fields &f) { out.zeros(f.year % 100, 2); }},
    {'Z', [](Output &out, const Fields &f) { out.add(f.zone); }},
    {'z', [](Output &out, const Fields &f) { out.add(f.zone); }},
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

void expand(Output &out, const char *format, const Fields &f)
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

Fields utc_fields(double epoch)
{
    Caltime time;
    time.epoch = epoch;
    etoh(&time);
    return {time.year,   time.doy,    time.month, time.day, time.hour,
            time.minute, time.second, epoch,      "UTC"};
}

// A zone's name as the platform abbreviates it, of any length.
class ZoneName {
public:
    // Keeps a copy of the name. False when there is no room for it: then make_room, and again.
    bool keep(std::string_view name)
    {
        length_ = name.size();
        if (length_ > (longer_ ? longer_size_ : sizeof short_))
            return false;
        name.copy(longer_ ? longer_.get() : short_, length_);
        return true;
    }

    void make_room()
    {
        longer_size_ = length_;
        longer_.reset(static_cast<char *>(stock::allocate(length_, "zone name")));
    }

    std::string_view text() const { return {longer_ ? longer_.get() : short_, length_}; }

private:
    std::size_t length_ = 0;
    std::size_t longer_size_ = 0;
    stock::Owned<char> longer_;
    char short_[64];
};

// The fields in the zone now in force but its name, which the platform keeps until the zone
// changes. A year that the platform refuses is broken down in UTC.
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

// The fields in the named zone, the process's own for "" and "LOCAL"; known is
// false when the platform has no such zone.
Fields zone_fields(const char *zone, double epoch, ZoneName &name, bool &known)
{
    std::unique_lock lock(stock::environment_lock);
    known = true;
    if (*zone && std::strcmp(zone, "LOCAL") != 0) {
        known = stock::stays_inside_zones(zone);
        if (known)
            switchTZ(zone);
        if (known && errno != 0) {
            known = false;
            errno = 0;
            restoreTZ();
        }
    }
    Fields f = local_fields(epoch);
    const bool kept = name.keep(f.zone);
    restoreTZ();
    lock.unlock();
    if (!kept) {
        name.make_room();
        return zone_fields(zone, epoch, name, known);
    }
    f.zone = name.text();
    return f;
}

Fields fields_in(const char *zone, double epoch, ZoneName &name, int &result)
{
    bool known = true;
    const Fields f = zone ? zone_fields(zone, epoch, name, known) : utc_fields(epoch);
    if (!known)
        elog_log(0, "Unrecognized timezone '%s'\n", zone);
    result = known ? 0 : -1;
    return f;
}

char *copied(std::string_view text)
{
    auto *copy = static_cast<char *>(stock::allocate(text.size() + 1, "time text"));
    text.copy(copy, text.size());
    copy[text.size()] = '\0';
    return copy;
}

char *printed(const char *format, const char *zone, double epoch)
{
    ZoneName name;
    int result = 0;
    const Fields f = fields_in(zone, epoch, name, result);
    Output out(room_for_zones(format, f.zone));
    expand(out, format, f);
    return copied(out.view());
}

double to_millisecond(double epoch)
{
    return std::floor(epoch * 1000 + 0.5) / 1000;
}

// A default printer: the text for what is no date, else the time in the format.
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
    Output out(room_for_zones(format, name));
    expand(out, format, {year, doy, month, day, hour, minute, second, epoch, name});
    return copied(out.view());
}

int e2hz(const char *zone, int *year, int *doy, int *month, int *day, int *hour, int *minute,
         double *second, char **zonename, double epoch)
{
    ZoneName name;
    int result = 0;
    const Fields f = fields_in(zone, epoch, name, result);
    *year = f.year;
    *doy = f.doy;
    *month = f.month;
    *day = f.day;
    *hour = f.hour;
    *minute = f.minute;
    *second = f.second;
    *zonename = copied(f.zone);
    return result;
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

struct Style {
    int style;
    const char *const *utc;
    const char *const *zone;
};

// The last row is that of any other style.
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
    const double rounded =
        style == 8 ? std::floor(0.5 + epoch * 100000) / 100000 : to_millisecond(epoch);
    const bool utc = !zone || std::strcmp(zone, "UTC") == 0;
    const Style &row = style_of(style);
    ZoneName name;
    int result = 0;
    const Fields f = fields_in(utc ? nullptr : zone, rounded, name, result);
    static_assert(kTextSize <= FMTTIME_SIZE);
    Output out;
    expand(out, read(utc ? *row.utc : *row.zone), f);
    std::memcpy(buf, out.c_str(), out.size() + 1);
    return 0;
}

namespace {

// An interval's text has at most 49 characters.
using Interval = stock::Line<50>;

constexpr double kYear = 31536000;

void print_years(Interval &out, double dt)
{
    const double years = std::floor(dt / kYear);
    double rest = dt - years * kYear;
    if (!(rest <= kYear))
        rest = 0;
    const double days = std::floor(rest / 86400);
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

void print_days(Interval &out, double dt)
{
    const double days = std::floor(dt / 86400);
    const double hours = std::floor((dt - days * 86400) * 10 / 3600) / 10;
    out.fixed(days, 0, 0);
    out.add(" days");
    if (hours != 0) {
        out.add(' ');
        out.fixed(hours, 0, 1);
        out.add(" hours");
    }
}

void print_pair(Interval &out, double first, double second, std::string_view unit)
{
    out.fixed(first, 2, 0);
    out.add(':');
    out.fixed(second, 2, 0, '0');
    out.add(unit);
}

void print_hours(Interval &out, double dt)
{
    const double rounded = std::floor(0.5 + dt / 60) * 60;
    const double hours = std::floor(rounded / 3600);
    print_pair(out, hours, std::floor((rounded - hours * 3600) / 60), " hours");
}

void print_minutes(Interval &out, double dt)
{
    const double rounded = std::floor(dt + 0.5);
    const double minutes = std::floor(rounded / 60);
    print_pair(out, minutes, rounded - minutes * 60, " minutes");
}

struct Unit {
    double least;
    void (*print)(Interval &out, double dt);
};

// First row that fits wins.
// clang-format off
constexpr Unit kUnits[] = {
    {kYear, print_years},
    {86400, print_days},
    {3600, print_hours},
    {60, print_minutes},
    {1, [](Interval &out, double dt) { out.fixed(dt, 6, 3); out.add(" seconds"); }},
    {0.001, [](Interval &out, double dt) { out.fixed(dt * 1000, 7, 3); out.add(" milliseconds"); }},
    {0.000001, [](Interval &out, double dt) { out.fixed(dt * 1000000, 7, 3); out.add(" microseconds"); }},
    {0.000000001, [](Interval &out, double dt) { out.fixed(dt * 1000000000, 7, 3); out.add(" nanoseconds"); }},
};
// clang-format on

void print_interval(Interval &out, double dt)
{
    for (const Unit &unit : kUnits)
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
    constexpr std::size_t kWidth = 21;
    Interval out;
    out.add(seconds < 0 ? '-' : ' ');
    print_interval(out, std::fabs(seconds));
    out.fill(kWidth, ' ');
    // The sign moves to where the number begins.
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
