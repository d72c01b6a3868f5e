// The C++ face: stations of a parameter file, sorted, with their times and samples.

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
                                              "stations &Arr{\n"
                                              "    north &Arr{\n"
                                              "        since 2008-02-01 12:30:15.5\n"
                                              "        gains &Tbl{\n"
                                              "            2\n"
                                              "            8\n"
                                              "            5\n"
                                              "        }\n"
                                              "    }\n"
                                              "    east &Arr{\n"
                                              "        since 2003-11-23\n"
                                              "        gains &Tbl{\n"
                                              "            1\n"
                                              "        }\n"
                                              "    }\n"
                                              "}\n";

struct Station {
    const char *name;  // borrowed from the settings
    Time since;
    int gain;
};

static stock::list<Station> read_stations(stock::params_view table)
{
    stock::list<Station> stations;
    for (const char *name : table.keys()) {
        const auto station = table.get<stock::params_view>(name);
        const auto gains = station.get<stock::params_list<int>>("gains");
        stations.push_back({name, station.get<Time>("since"), std::ranges::max(gains)});
    }
    std::ranges::sort(stations, std::greater{}, &Station::since);
    return stations;
}

static void print(const Station &station)
{
    const stock::text since(epoch2str("%Y-%m-%d %T", stock::to_epoch(station.since)));
    std::printf("%-6s %s  gain %d\n", station.name, since.c_str(), station.gain);
}

int main(int argc, char **argv)
{
    elog_init(argc, argv);

    stock::params settings;
    if (settings.compile(kSettings) != 0)
        report::die("the settings can't be read");
    std::printf("every %d s, at most %d times\n", settings.get<int>("interval"),
                settings.get<int>("limit", 3));

    const auto stations = read_stations(settings.get<stock::params_view>("stations"));
    std::ranges::for_each(stations, print);

    // A packet's samples: 16 bits each, the most significant byte first.
    constexpr std::array packet{std::byte{0}, std::byte{1}, std::byte{0xff}, std::byte{0xfe}};
    std::array<double, 2> samples{};
    if (stock::convert<std::endian::big, std::int16_t>(packet, samples) != stock::converted::exact)
        report::complain("%zu samples did not all arrive", samples.size());
    std::printf("samples %g %g\n", samples[0], samples[1]);

    stock::array<const Station *> by_name;
    for (const Station &station : stations)
        by_name.set(station.name, &station);
    for (const auto [name, station] : by_name)
        std::printf("%s: gain %d\n", name, station->gain);
    return 0;
}
