// Epoch times to calendar fields and back, against the C library's gmtime_r and timegm.

#include <cmath>
#include <cstdint>
#include <ctime>
#include <vector>

#include <benchmark/benchmark.h>

#include "stock/epoch.h"
#include "stock/h2e.h"

namespace {

// Times spread over the years 1901 to 2099, so that the processor cannot predict branches.
std::vector<double> spread_times()
{
    std::vector<double> times(4096);
    std::uint64_t state = 1;
    for (double &time : times) {
        state = state * 6364136223846793005 + 1442695040888963407;
        time = static_cast<double>(state >> 33) * 2.92 - 2177366400.0;
        time = std::floor(time);
    }
    return times;
}

struct tm broken_down(double when)
{
    const auto whole = static_cast<time_t>(when);
    struct tm fields = {};
    gmtime_r(&whole, &fields);
    return fields;
}

bool agrees(double when)
{
    Caltime time;
    time.epoch = when;
    etoh(&time);
    struct tm fields = broken_down(when);
    return time.year == fields.tm_year + 1900 && time.month == fields.tm_mon + 1 &&
           time.day == fields.tm_mday && time.doy == fields.tm_yday + 1 &&
           time.hour == fields.tm_hour && time.minute == fields.tm_min &&
           time.second == fields.tm_sec &&
           h2e(time.year, time.doy, time.hour, time.minute, time.second) == when &&
           timegm(&fields) == static_cast<time_t>(when);
}

template <class Run>
void over_times(benchmark::State &state, Run run)
{
    const std::vector<double> times = spread_times();
    for (const double when : times)
        if (!agrees(when))
            return state.SkipWithError("wrong answer");
    std::vector<struct tm> broken;
    for (const double when : times)
        broken.push_back(broken_down(when));
    std::size_t i = 0;
    for (auto _ : state) {
        run(times[i], broken[i]);
        i = (i + 1) % times.size();
    }
    state.SetItemsProcessed(state.iterations());
}

void fields_stock(benchmark::State &state)
{
    over_times(state, [](double when, const struct tm &) {
        Caltime time;
        time.epoch = when;
        etoh(&time);
        benchmark::DoNotOptimize(time);
    });
}

void fields_gmtime_r(benchmark::State &state)
{
    over_times(state, [](double when, const struct tm &) {
        const auto whole = static_cast<time_t>(when);
        struct tm fields;
        gmtime_r(&whole, &fields);
        benchmark::DoNotOptimize(fields);
    });
}

void compose_stock(benchmark::State &state)
{
    over_times(state, [](double, const struct tm &f) {
        benchmark::DoNotOptimize(
            h2e(f.tm_year + 1900, f.tm_yday + 1, f.tm_hour, f.tm_min, f.tm_sec));
    });
}

void compose_stock_from_month(benchmark::State &state)
{
    over_times(state, [](double, const struct tm &f) {
        const int year = f.tm_year + 1900;
        benchmark::DoNotOptimize(
            h2e(year, mday2doy(year, f.tm_mon + 1, f.tm_mday), f.tm_hour, f.tm_min, f.tm_sec));
    });
}

void compose_timegm(benchmark::State &state)
{
    over_times(state, [](double, const struct tm &f) {
        struct tm fields = f;
        benchmark::DoNotOptimize(timegm(&fields));
    });
}

BENCHMARK(fields_stock)->Name("fields/stock");
BENCHMARK(fields_gmtime_r)->Name("fields/gmtime_r");
BENCHMARK(compose_stock)->Name("compose/stock");
BENCHMARK(compose_stock_from_month)->Name("compose_from_month/stock");
BENCHMARK(compose_timegm)->Name("compose/timegm");
BENCHMARK(compose_timegm)->Name("compose_from_month/timegm");

}  // namespace
