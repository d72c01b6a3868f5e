// Conversions between types of numbers that are defined for every value.

#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace stock {

// The value without its fraction, cut to the limits of the integer type I; 0 for NaN.
template <class I>
constexpr I saturated(double value)
{
    // A double may not hold the upper limit, but it holds the power of two above it.
    constexpr double end = -static_cast<double>(std::numeric_limits<I>::min());
    if (value != value)
        return 0;
    if (value >= end)
        return std::numeric_limits<I>::max();
    if (value <= -end)
        return std::numeric_limits<I>::min();
    return static_cast<I>(value);
}

// A whole number cut to the limits of int.
constexpr int saturated_int(std::int64_t value)
{
    if (value > std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    if (value < std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    return static_cast<int>(value);
}

// The quotient rounded down, where the language's integer division rounds towards 0.
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
