/*
 * epoch.hpp - convert between the library's epoch times and those of std::chrono.
 *
 * Both count from 1970-01-01 00:00:00 UTC without leap seconds; an epoch time is a
 * double in seconds, and near the present exact to 0.24 microseconds.
 */

#ifndef STOCK_EPOCH_HPP
#define STOCK_EPOCH_HPP

#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "stock/epoch.h"

namespace stock {

/*
 * Returns the epoch time that is nearest to a time point. Whole seconds are exact; milliseconds are
 * exact if they are converted back with from_epoch.
 */
template <class Duration>
double to_epoch(std::chrono::sys_time<Duration> time)
{
    using Period = typename Duration::period;
    using Rep = typename Duration::rep;
    if constexpr (std::is_floating_point_v<Rep>) {
        return std::chrono::duration<double>(time.time_since_epoch()).count();
    } else {
        constexpr auto den = static_cast<std::int64_t>(Period::den);
        const auto count = static_cast<std::int64_t>(time.time_since_epoch().count());
        constexpr auto exact = std::int64_t{1} << 53;  // as far as doubles hold every integer
        if (Period::den == 1 || (count <= exact && count >= -exact))
            return static_cast<double>(count) * static_cast<double>(Period::num) /
                   static_cast<double>(Period::den);
        return static_cast<double>(count / den) * static_cast<double>(Period::num) +
               static_cast<double>(count % den) * static_cast<double>(Period::num) /
                   static_cast<double>(Period::den);
    }
}

/*
 * Returns the time point of an epoch time, rounded to the nearest tick of Duration; a half is
 * rounded to the later tick, also before 1970. For a time that Duration cannot hold, returns its
 * first or last time point; for NaN the first. If Duration has a floating type, nothing is
 * rounded.
 *
 *     from_epoch<std::chrono::milliseconds>(1201869015.5)    2008-02-01 12:30:15.500
 *     from_epoch<std::chrono::seconds>(-0.5)                 1970-01-01 00:00:00
 */
template <class Duration>
std::chrono::sys_time<Duration> from_epoch(double epoch)
{
    using Time = std::chrono::sys_time<Duration>;
    using Period = typename Duration::period;
    using Rep = typename Duration::rep;
    if constexpr (std::is_floating_point_v<Rep>) {
        return Time(std::chrono::duration_cast<Duration>(std::chrono::duration<double>(epoch)));
    } else {
        static_assert(Period::num == 1 || Period::den == 1,
                      "a tick is a part or a multiple of a second");
        static_assert(Period::den <= 1'000'000'000, "a tick is a nanosecond or longer");
        constexpr auto per_second = static_cast<double>(Period::den);
        constexpr auto length = static_cast<double>(Period::num);
        // The limit of a 64-bit count is no double: what is not below it is beyond it.
        constexpr auto last = static_cast<double>(std::numeric_limits<Rep>::max());
        const double ticks = epoch / length * per_second;
        if (!(ticks > static_cast<double>(std::numeric_limits<Rep>::min())))
            return Time::min();
        if (ticks >= last)
            return Time::max();
        // The whole part and the rest apart: both are exact.
        const double whole = std::trunc(epoch / length) * length;
        const double rest = (epoch - whole) * per_second;
        const double below = std::floor(rest / length);
        const double error = std::fma(epoch - whole, per_second, -rest);
        const double past_half = (rest - below * length) - length / 2;
        const bool up = past_half > 0 || (past_half == 0 && error >= 0);
        return Time(Duration(static_cast<Rep>(whole / length) * static_cast<Rep>(Period::den) +
                             static_cast<Rep>(below) + Rep{up}));
    }
}

}  // namespace stock

#endif
