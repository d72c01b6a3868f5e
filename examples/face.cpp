// Example of the C++ interface: reads gauges from parameter text, sorts them, and prints them with
// their times and samples.

#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string_view>

#include "stock.hpp"

using namespace std::chrono_literals;
using Time = std::chrono::sys_time<std::chrono::milliseconds>;

namespace report = stock::report;

static constexpr std::string_view kSettings = "interval  10     # seconds\n"
                                              "gauges &Arr{\n"
                                              "    north &Arr{\n"
                                              "        since 2008-02-01 12:30:15.5\n"
                                              "        limits &Tbl{\n"
                                              "            2\n"
                                              "            8\n"
                                              "            5\n"
                                              "        }\n"
                                              "    }\n"
                                              "    south &Arr{\n"
                                              "        since 2003-11-23\n"
                                              "        limits &Tbl{\n"
                                              "            1\n"
                                              "        }\n"
                                              "    }\n"
                                              "}\n";

struct Gauge {
    const char *name;  // borrowed from the settings
    Time since;
    int limit;
};

static stock::list<Gauge> read_gauges(stock::params_view table)
{
    stock::list<Gauge> gauges;
    for (const char *name : table.keys()) {
        const auto gauge = table.get<stock::params_view>(name);
        const auto limits = gauge.get<stock::params_list<int>>("limits");
        gauges.push_back({name, gauge.get<Time>("since"), std::ranges::max(limits)});
    }
    std::ranges::sort(gauges, std::greater{}, &Gauge::since);
    return gauges;
}

static void print(const Gauge &gauge)
{
    const stock::text since(epoch2str("%Y-%m-%d %T", stock::to_epoch(gauge.since)));
    std::printf("%-6s %s  limit %d\n", gauge.name, since.c_str(), gauge.limit);
}

int main(int argc, char **argv)
{
    elog_init(argc, argv);

    stock::params settings;
    if (settings.compile(kSettings) != 0)
        report::die("the settings can't be read");
    std::printf("every %d s, at most %d times\n", settings.get<int>("interval"),
                settings.get<int>("limit", 3));

    const auto gauges = read_gauges(settings.get<stock::params_view>("gauges"));
    std::ranges::for_each(gauges, print);

    // Samples as a gauge sends them: 16 bits each, the most significant byte first.
    constexpr std::array packet{std::byte{0}, std::byte{1}, std::byte{0xff}, std::byte{0xfe}};
    std::array<double, 2> samples{};
    if (stock::convert<std::endian::big, std::int16_t>(packet, samples) != stock::converted::exact)
        report::complain("%zu samples did not all arrive", samples.size());
    std::printf("samples %g %g\n", samples[0], samples[1]);

    stock::array<const Gauge *> by_name;
    for (const Gauge &gauge : gauges)
        by_name.set(gauge.name, &gauge);
    for (const auto [name, gauge] : by_name)
        std::printf("%s: limit %d\n", name, gauge->limit);
    return 0;
}
