// Reading times, against strptime, Abseil, GLib and Howard Hinnant's date library. These are
// told the form of the text; stock finds it out.

#include "stock/str2epoch.h"

#include <cmath>
#include <ctime>
#include <sstream>
#include <string>

#include <benchmark/benchmark.h>

#if STOCK_HAVE_ABSL_TIME
#include <absl/time/time.h>
#endif
#if STOCK_HAVE_GLIB
#include <glib.h>
#endif
#if STOCK_HAVE_DATE
#include <date/date.h>
#endif

namespace {

constexpr double kHalf = 1201869015.5;  // 2008-02-01 12:30:15.5
constexpr double kMinute = 1201869000;  // 2008-02-01 12:30
constexpr double kPacific = 1201897815.5;

void stock(benchmark::State &state, const char *text, double expected)
{
    if (str2epoch(text) != expected)
        return state.SkipWithError("wrong answer");
    for (auto _ : state)
        benchmark::DoNotOptimize(str2epoch(text));
}

// Reads the fraction with strtod, because strptime reads none.
double by_strptime(const char *text, const char *format)
{
    struct tm fields = {};
    const char *rest = strptime(text, format, &fields);
    const auto whole = static_cast<double>(timegm(&fields));
    return *rest == '.' ? whole + strtod(rest, nullptr) : whole;
}

void strptime_known(benchmark::State &state, const char *text, const char *format, double expected)
{
    if (by_strptime(text, format) != expected)
        return state.SkipWithError("wrong answer");
    for (auto _ : state)
        benchmark::DoNotOptimize(by_strptime(text, format));
}

BENCHMARK_CAPTURE(stock, iso, "2008-02-01 12:30:15.5", kHalf)->Name("parse_iso/stock");
BENCHMARK_CAPTURE(strptime_known, iso, "2008-02-01 12:30:15.5", "%Y-%m-%d %H:%M:%S", kHalf)
    ->Name("parse_iso/strptime");
BENCHMARK_CAPTURE(stock, words, "Feb 1, 2008 12:30 pm", kMinute)->Name("parse_words/stock");
BENCHMARK_CAPTURE(strptime_known, words, "Feb 1, 2008 12:30 pm", "%b %d, %Y %I:%M %p", kMinute)
    ->Name("parse_words/strptime");
BENCHMARK_CAPTURE(stock, year_day, "2008032 12:30:15.5", kHalf)->Name("parse_year_day/stock");
BENCHMARK_CAPTURE(strptime_known, year_day, "2008032 12:30:15.5", "%Y%j %H:%M:%S", kHalf)
    ->Name("parse_year_day/strptime");
BENCHMARK_CAPTURE(stock, epoch, "1201869015.5", kHalf)->Name("parse_epoch/stock");
BENCHMARK_CAPTURE(stock, zone, "2008-02-01 12:30:15.5 US/Pacific", kPacific)
    ->Name("parse_zone/stock");

#if STOCK_HAVE_ABSL_TIME
double by_absl(const char *text, const char *format)
{
    absl::Time time;
    std::string error;
    absl::ParseTime(format, text, &time, &error);
    return absl::ToDoubleSeconds(time - absl::UnixEpoch());
}

void absl_ParseTime(benchmark::State &state, const char *text, const char *format, double expected)
{
    if (by_absl(text, format) != expected)
        return state.SkipWithError("wrong answer");
    for (auto _ : state)
        benchmark::DoNotOptimize(by_absl(text, format));
}

BENCHMARK_CAPTURE(absl_ParseTime, iso, "2008-02-01 12:30:15.5", "%Y-%m-%d %H:%M:%E*S", kHalf)
    ->Name("parse_iso/absl");
BENCHMARK_CAPTURE(absl_ParseTime, words, "Feb 1, 2008 12:30 pm", "%b %d, %Y %I:%M %p", kMinute)
    ->Name("parse_words/absl");
BENCHMARK_CAPTURE(absl_ParseTime, epoch, "1201869015", "%s", 1201869015)->Name("parse_epoch/absl");

// Cuts the zone's name off the end first, as a program that uses Abseil has to.
double in_zone_by_absl(const std::string &text)
{
    const size_t blank = text.rfind(' ');
    absl::TimeZone zone;
    absl::LoadTimeZone(text.substr(blank + 1), &zone);
    absl::Time time;
    std::string error;
    absl::ParseTime("%Y-%m-%d %H:%M:%E*S", text.substr(0, blank), zone, &time, &error);
    return absl::ToDoubleSeconds(time - absl::UnixEpoch());
}

void absl_ParseTime_zone(benchmark::State &state)
{
    const std::string text = "2008-02-01 12:30:15.5 US/Pacific";
    if (in_zone_by_absl(text) != kPacific)
        return state.SkipWithError("wrong answer");
    for (auto _ : state)
        benchmark::DoNotOptimize(in_zone_by_absl(text));
}
BENCHMARK(absl_ParseTime_zone)->Name("parse_zone/absl");
#endif

#if STOCK_HAVE_GLIB
// The zone is for texts that name none.
double by_glib(const char *text, GTimeZone *zone)
{
    GDateTime *time = g_date_time_new_from_iso8601(text, zone);
    const double epoch =
        static_cast<double>(g_date_time_to_unix(time)) + g_date_time_get_microsecond(time) / 1e6;
    g_date_time_unref(time);
    return epoch;
}

void glib_iso8601(benchmark::State &state)
{
    if (by_glib("2008-02-01T12:30:15.5Z", nullptr) != kHalf)
        return state.SkipWithError("wrong answer");
    for (auto _ : state)
        benchmark::DoNotOptimize(by_glib("2008-02-01T12:30:15.5Z", nullptr));
}
BENCHMARK(glib_iso8601)->Name("parse_iso/GDateTime");

void glib_iso8601_zone(benchmark::State &state)
{
    GTimeZone *zone = g_time_zone_new_identifier("US/Pacific");
    if (by_glib("2008-02-01T12:30:15.5", zone) != kPacific)
        state.SkipWithError("wrong answer");
    for (auto _ : state)
        benchmark::DoNotOptimize(by_glib("2008-02-01T12:30:15.5", zone));
    g_time_zone_unref(zone);
}
BENCHMARK(glib_iso8601_zone)->Name("parse_zone/GDateTime");
#endif

#if STOCK_HAVE_DATE
double by_date(const std::string &text)
{
    std::istringstream in(text);
    std::chrono::time_point<std::chrono::system_clock, std::chrono::milliseconds> time;
    in >> date::parse("%F %T", time);
    return static_cast<double>(time.time_since_epoch().count()) / 1000;
}

void date_parse(benchmark::State &state)
{
    const std::string text = "2008-02-01 12:30:15.5";
    if (by_date(text) != kHalf)
        return state.SkipWithError("wrong answer");
    for (auto _ : state)
        benchmark::DoNotOptimize(by_date(text));
}
BENCHMARK(date_parse)->Name("parse_iso/date");
#endif

}  // namespace
