// Values that are apt to go wrong when numbers change their type, packed in the
// host's order, and the letters that name types.

#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

inline const std::string kTypeLetters = "bsilfd";

inline size_t width_of(char type)
{
    return size_t{1} << (type == 'b' ? 0 : type == 's' ? 1 : type == 'i' || type == 'f' ? 2 : 3);
}

inline bool is_floating(char type)
{
    return type == 'f' || type == 'd';
}

template <class T>
void pack(std::string &bytes, T value)
{
    bytes.append(reinterpret_cast<const char *>(&value), sizeof value);
}

// Powers of two and their neighbours of either sign: every limit is among them.
template <class T>
std::string boundary_integers()
{
    std::string bytes;
    std::mt19937_64 random(1);
    for (int power = 0; power <= 64; ++power) {
        const uint64_t value = power == 64 ? 0 : uint64_t{1} << power;
        for (uint64_t step = 0; step <= 3; ++step) {
            pack(bytes, static_cast<T>(value + step));
            pack(bytes, static_cast<T>(value - step));
            pack(bytes, static_cast<T>(0 - value + step));
            pack(bytes, static_cast<T>(0 - value - step));
        }
        pack(bytes, static_cast<T>(random() >> (power % 64)));
        pack(bytes, static_cast<T>(0 - (random() >> (power % 64))));
    }
    return bytes;
}

// Around every power of two, by halves, quarters, ones and the least steps; then
// what is not a number, infinite, or next to nothing.
template <class T>
std::string boundary_floating()
{
    using Bits = std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>;
    using Limits = std::numeric_limits<T>;
    std::string bytes;
    const auto both_signs = [&](T value) {
        pack(bytes, value);
        pack(bytes, -value);
    };
    for (int power = -2; power <= 65; ++power) {
        const T limit = std::ldexp(T(1), power);
        for (T step : {T(0), T(0.25), T(0.5), T(0.75), T(1), T(1.5), T(2)}) {
            both_signs(limit + step);
            both_signs(limit - step);
        }
        both_signs(std::nextafter(limit, T(0)));
        both_signs(std::nextafter(limit, Limits::infinity()));
        both_signs(std::nextafter(limit - 1, T(0)));
        both_signs(std::nextafter(limit - 1, limit));
    }
    for (T value : {T(0), T(0.1), T(2.7), T(1e10), T(1e30), Limits::min(), Limits::max(),
                    Limits::denorm_min(), Limits::infinity(), std::nextafter(Limits::min(), T(0))})
        both_signs(value);
    // Where a double is rounded to a float: halfway cases, the greatest float, the subnormal ones.
    for (double value :
         {1.0, 1 + 0x1p-23, 0x1.fffffep127, 0x1p-126, 0x1p-149, 0x1p-150, 0x1.8p-149}) {
        for (double part : {0x1p-25, 0x1p-24, 0x1.8p-24, 0x1.000002p-24}) {
            const double near = value + value * part;
            both_signs(static_cast<T>(near));
            both_signs(static_cast<T>(std::nextafter(near, 0)));
            both_signs(static_cast<T>(std::nextafter(near, 1e300)));
        }
    }
    // NaN: quiet and signalling, with and without more bits, of either sign.
    const Bits infinity = std::bit_cast<Bits>(Limits::infinity());
    const Bits quiet = Bits{1} << (Limits::digits - 2);
    const Bits sign = Bits{1} << (8 * sizeof(T) - 1);
    for (Bits more : {quiet, Bits(quiet | 1), Bits(1), Bits(quiet >> 1), Bits(quiet - 1)}) {
        pack(bytes, Bits(infinity | more));
        pack(bytes, Bits(infinity | more | sign));
    }
    std::mt19937_64 random(2);
    for (int i = 0; i < 200; ++i)
        pack(bytes, static_cast<Bits>(random()));
    return bytes;
}

// Values of the type with that letter, packed in the host's order.
inline std::string boundary_values(char type)
{
    switch (type) {
    case 'b': return boundary_integers<uint8_t>();
    case 's': return boundary_integers<uint16_t>();
    case 'i': return boundary_integers<uint32_t>();
    case 'l': return boundary_integers<uint64_t>();
    case 'f': return boundary_floating<float>();
    default: return boundary_floating<double>();
    }
}
