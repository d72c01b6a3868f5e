// Conversions between kinds of numbers that are defined for every value.

#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace stock {

// The value cut to the limits of I, its fraction dropped; 0 for what is not a number.
template <class I>
constexpr I saturated(double value)
{
    // The upper limit may not be a double itself; the power of two above it is.
    constexpr double end = -static_cast<double>(std::numeric_limits<I>::min());
    if (value != value)
        return 0;
    if (value >= end)
        return std::numeric_limits<I>::max();
    if (value <= -end)
        return std::numeric_limits<I>::min();
    return static_cast<I>(value);
}

// The same for a whole number.
constexpr int saturated_int(std::int64_t value)
{
    if (value > std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    if (value < std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    return static_cast<int>(value);
}

// The quotient rounded down.
constexpr std::int64_t floor_div(std::int64_t value, std::int64_t by)
{
    const std::int64_t quotient = value / by;
    return quotient - (quotient * by > value);
}
inline double floor_div(double value, double by)
{
    return std::floor(value / by);
}

}  // namespace stock
