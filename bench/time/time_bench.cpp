// Printing times as text in the heap, against strftime, Abseil, {fmt}, GLib and Howard Hinnant's
// date library.

#include "stock/time.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include <benchmark/benchmark.h>

#if STOCK_HAVE_ABSL_TIME
#include <absl/time/time.h>
#endif
#if STOCK_HAVE_FMT
#include <fmt/chrono.h>
#endif
#if STOCK_HAVE_GLIB
#include <glib.h>
#endif
#if STOCK_HAVE_DATE
#include <date/date.h>
#endif

namespace {

constexpr time_t kTime = 1201869015;  // 2008-02-01 12:30:15
constexpr char kUtc[] = "2008-02-01 12:30:15";
constexpr char kPacific[] = "2008-02-01 04:30:15 PST";

template <class Print>
void print(benchmark::State &state, Print run, const char *expected)
{
    if (run(kTime) != std::string(expected))
        return state.SkipWithError("wrong answer");
    time_t when = kTime;
    for (auto _ : state)
        benchmark::DoNotOptimize(run(++when));
}

// Owns a text of stock's and frees it, as the others' strings free theirs.
struct Given {
    char *text;
    explicit Given(char *given) : text(given) {}
    ~Given() { std::free(text); }
    Given(const Given &) = delete;
    Given &operator=(const Given &) = delete;
    bool operator!=(const std::string &other) const { return other != text; }
};

void utc_stock(benchmark::State &state)
{
    print(
        state,
        [](time_t when) {
            return Given(epoch2str("%Y-%m-%d %H:%M:%S", static_cast<double>(when)));
        },
        kUtc);
}
BENCHMARK(utc_stock)->Name("print_utc/stock");

void utc_strftime(benchmark::State &state)
{
    print(
        state,
        [](time_t when) {
            struct tm fields;
            gmtime_r(&when, &fields);
            char text[64];
            strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &fields);
            return Given(strdup(text));
        },
        kUtc);
}
BENCHMARK(utc_strftime)->Name("print_utc/strftime");

void local_stock(benchmark::State &state)
{
    setenv("TZ", "US/Pacific", 1);
    tzset();
    print(
        state,
        [](time_t when) {
            return Given(zepoch2str("%Y-%m-%d %H:%M:%S %z", "", static_cast<double>(when)));
        },
        kPacific);
}
BENCHMARK(local_stock)->Name("print_local/stock");

void local_strftime(benchmark::State &state)
{
    setenv("TZ", "US/Pacific", 1);
    tzset();
    print(
        state,
        [](time_t when) {
            struct tm fields;
            localtime_r(&when, &fields);
            char text[64];
            strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %Z", &fields);
            return Given(strdup(text));
        },
        kPacific);
    unsetenv("TZ");
}
BENCHMARK(local_strftime)->Name("print_local/strftime");

void zone_stock(benchmark::State &state)
{
    print(
        state,
        [](time_t when) {
            return Given(
                zepoch2str("%Y-%m-%d %H:%M:%S %z", "US/Pacific", static_cast<double>(when)));
        },
        kPacific);
}
BENCHMARK(zone_stock)->Name("print_zone/stock");

#if STOCK_HAVE_ABSL_TIME
void utc_absl(benchmark::State &state)
{
    print(
        state,
        [](time_t when) {
            return absl::FormatTime("%Y-%m-%d %H:%M:%S", absl::FromTimeT(when),
                                    absl::UTCTimeZone());
        },
        kUtc);
}
BENCHMARK(utc_absl)->Name("print_utc/absl");

void zone_absl(benchmark::State &state)
{
    absl::TimeZone zone;
    absl::LoadTimeZone("US/Pacific", &zone);
    print(
        state,
        [&](time_t when) {
            return absl::FormatTime("%Y-%m-%d %H:%M:%S %Z", absl::FromTimeT(when), zone);
        },
        kPacific);
}
BENCHMARK(zone_absl)->Name("print_zone/absl");
#endif

#if STOCK_HAVE_FMT
void utc_fmt(benchmark::State &state)
{
    print(
        state, [](time_t when) { return fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::gmtime(when)); },
        kUtc);
}
BENCHMARK(utc_fmt)->Name("print_utc/fmt");
#endif

#if STOCK_HAVE_GLIB
void utc_glib(benchmark::State &state)
{
    print(
        state,
        [](time_t when) {
            GDateTime *time = g_date_time_new_from_unix_utc(when);
            Given text(g_date_time_format(time, "%Y-%m-%d %H:%M:%S"));
            g_date_time_unref(time);
            return std::string(text.text);
        },
        kUtc);
}
BENCHMARK(utc_glib)->Name("print_utc/GDateTime");
#endif

#if STOCK_HAVE_DATE
void utc_date(benchmark::State &state)
{
    print(
        state,
        [](time_t when) {
            return date::format("%F %T", date::sys_seconds(std::chrono::seconds(when)));
        },
        kUtc);
}
BENCHMARK(utc_date)->Name("print_utc/date");
#endif

}  // namespace
