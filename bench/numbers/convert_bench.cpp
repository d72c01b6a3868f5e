// Number converters against memcpy, plain loops, HDF5 and XDR, in cache and in memory.
//
// Every contestant fills the same bytes from the same source. The plain loops are
// what one writes by hand: swap, convert, compare, saturate, value by value, left
// to the compiler as it compiles this file. HDF5 converts in place, so its time
// includes the copy to where it converts; XDR packs a short into four bytes and is
// asked for the wider types only.

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

#include <benchmark/benchmark.h>

#include "stock/convert.h"

#if STOCK_HAVE_HDF5
#include <hdf5.h>
#endif
#if STOCK_HAVE_TIRPC
#include <rpc/xdr.h>
#endif

namespace {

// Converts n values and gives the status that the members give.
using Run = int (*)(const char *from, char *to, int n);

// Two buffers for the widest run. Their pages are touched before the clock starts.
struct Places {
    std::vector<char> from = std::vector<char>(256 << 20, 1);
    std::vector<char> to = std::vector<char>(256 << 20, 1);
};

Places &places()
{
    static Places both;
    return both;
}

template <class T>
T swapped(T value)
{
    if constexpr (sizeof(T) == 1)
        return value;
    else if constexpr (sizeof(T) == 2)
        return std::bit_cast<T>(__builtin_bswap16(std::bit_cast<std::uint16_t>(value)));
    else if constexpr (sizeof(T) == 4)
        return std::bit_cast<T>(__builtin_bswap32(std::bit_cast<std::uint32_t>(value)));
    else
        return std::bit_cast<T>(__builtin_bswap64(std::bit_cast<std::uint64_t>(value)));
}

// Reading by hand: external values of the other order into host values.
template <class E, class H>
int plain_read(const char *from, char *to, int n)
{
    H *const dst = reinterpret_cast<H *>(to);
    int result = 0;
    for (int i = 0; i < n; ++i) {
        E value;
        memcpy(&value, from + static_cast<std::size_t>(i) * sizeof value, sizeof value);
        value = swapped(value);
        dst[i] = static_cast<H>(value);
        if (static_cast<E>(dst[i]) != value)
            result = -1;
    }
    return result;
}

// Writing by hand: host values into external ones, swapped or not.
template <class E, class H, bool swap>
int plain_write(const char *from, char *to, int n)
{
    const H *const src = reinterpret_cast<const H *>(from);
    using Limits = std::numeric_limits<E>;
    int result = 0;
    for (int i = 0; i < n; ++i) {
        E value;
        if (std::is_integral_v<E> && src[i] < static_cast<H>(Limits::min())) {
            value = Limits::min();
            result = -1;
        } else if (std::is_integral_v<E> && src[i] > static_cast<H>(Limits::max())) {
            value = Limits::max();
            result = -1;
        } else {
            value = static_cast<E>(src[i]);
            if (std::is_floating_point_v<E> && static_cast<H>(value) != src[i])
                result = -1;
        }
        if (swap)
            value = swapped(value);
        memcpy(to + static_cast<std::size_t>(i) * sizeof value, &value, sizeof value);
    }
    return result;
}

template <std::size_t width>
int copied(const char *from, char *to, int n)
{
    memcpy(to, from, static_cast<std::size_t>(n) * width);
    return 0;
}

#if STOCK_HAVE_HDF5
template <class T>
hid_t big()
{
    return std::is_same_v<T, short>   ? H5T_STD_I16BE
           : std::is_same_v<T, int>   ? H5T_STD_I32BE
           : std::is_same_v<T, float> ? H5T_IEEE_F32BE
                                      : H5T_IEEE_F64BE;
}

template <class T>
hid_t native()
{
    return std::is_same_v<T, short>   ? H5T_NATIVE_SHORT
           : std::is_same_v<T, int>   ? H5T_NATIVE_INT
           : std::is_same_v<T, float> ? H5T_NATIVE_FLOAT
                                      : H5T_NATIVE_DOUBLE;
}

int hdf5(const char *from, char *to, int n, std::size_t width, hid_t from_type, hid_t to_type)
{
    const auto count = static_cast<std::size_t>(n);
    memcpy(to, from, count * width);
    return H5Tconvert(from_type, to_type, count, to, nullptr, H5P_DEFAULT);
}

template <class E, class H>
constexpr Run hdf5_read = [](const char *from, char *to, int n) {
    return hdf5(from, to, n, sizeof(E), big<E>(), native<H>());
};
template <class E, class H>
constexpr Run hdf5_write = [](const char *from, char *to, int n) {
    return hdf5(from, to, n, sizeof(H), native<H>(), big<E>());
};
#else
template <class E, class H>
constexpr Run hdf5_read = nullptr;
template <class E, class H>
constexpr Run hdf5_write = nullptr;
#endif

#if STOCK_HAVE_TIRPC
template <class T, bool_t (*element)(XDR *, T *)>
int xdr(const char *from, char *to, int n)
{
    XDR stream;
    const auto count = static_cast<u_int>(n);
    xdrmem_create(&stream, const_cast<char *>(from), count * static_cast<u_int>(sizeof(T)),
                  XDR_DECODE);
    return xdr_vector(&stream, to, count, sizeof(T), reinterpret_cast<xdrproc_t>(element)) ? 0 : -1;
}
constexpr Run xdr_ints = xdr<int, xdr_int>;
constexpr Run xdr_doubles = xdr<double, xdr_double>;
#else
constexpr Run xdr_ints = nullptr;
constexpr Run xdr_doubles = nullptr;
#endif

// Small values of either sign, or of none, that every type holds.
template <class From>
void fill(char *from, int n, bool swap)
{
    std::minstd_rand random(1);
    for (int i = 0; i < n; ++i) {
        const int small = static_cast<int>(random() % 100);
        From value = static_cast<From>(std::is_unsigned_v<From> ? small : small - 50);
        if (swap)
            value = swapped(value);
        memcpy(from + static_cast<std::size_t>(i) * sizeof value, &value, sizeof value);
    }
}

// state.range(0) is how many bytes the wider side has.
template <class From, class To>
void convert(benchmark::State &state, bool swap_from, Run run, Run plain)
{
    const auto n = static_cast<int>(static_cast<std::size_t>(state.range(0)) /
                                    std::max(sizeof(From), sizeof(To)));
    char *const from = places().from.data(), *const to = places().to.data();
    fill<From>(from, n, swap_from);
    const auto bytes = static_cast<std::ptrdiff_t>(n) * static_cast<std::ptrdiff_t>(sizeof(To));
    const int status = plain(from, to, n);
    const std::vector<char> expected(to, to + bytes);
    std::fill(to, to + bytes, '\0');
    if (run(from, to, n) != status || !std::equal(expected.begin(), expected.end(), to))
        return state.SkipWithError("wrong answer");
    for (auto _ : state) {
        benchmark::DoNotOptimize(run(from, to, n));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

template <class H, int (*member)(char **, H *, int)>
int reads(const char *from, char *to, int n)
{
    char *cursor = const_cast<char *>(from);
    return member(&cursor, reinterpret_cast<H *>(to), n);
}

template <class H, int (*member)(const H *, char **, int)>
int writes(const char *from, char *to, int n)
{
    return member(reinterpret_cast<const H *>(from), &to, n);
}

struct Contestant {
    const char *name;
    Run run;  // null when it is not installed
};

// The second contestant is the plain loop, which gives the answers.
template <class From, class To>
void race(const std::string &member, bool swap_from, std::initializer_list<Contestant> contestants)
{
    const Run plain = contestants.begin()[1].run;
    for (const Contestant &c : contestants)
        if (c.run)
            benchmark::RegisterBenchmark((member + "/" + c.name).c_str(), convert<From, To>,
                                         swap_from, c.run, plain)
                ->Arg(16 << 10)
                ->Arg(256 << 20);
}

// Big-endian E read into the host's H, and H written as big-endian E.
template <class E, class H, int (*member)(char **, H *, int)>
void race_reading(const std::string &name, Run other = nullptr)
{
    race<E, H>(name, true,
               {{"stock", reads<H, member>},
                {"plain", plain_read<E, H>},
                {"hdf5", hdf5_read<E, H>},
                {"xdr", other}});
}

template <class E, class H, int (*member)(const H *, char **, int)>
void race_writing(const std::string &name)
{
    race<H, E>(name, false,
               {{"stock", writes<H, member>},
                {"plain", plain_write<E, H, true>},
                {"hdf5", hdf5_write<E, H>}});
}

// memcpy shows the best that a converter of that many bytes can reach.
template <class T, int (*member)(char **, T *, int)>
void race_copying(const std::string &name)
{
    race<T, T>(name, false, {{"stock", reads<T, member>}, {"memcpy", copied<sizeof(T)>}});
}

const bool registered = [] {
    race_reading<short, short, ms2hs>("ms2hs");
    race_reading<int, int, mi2hi>("mi2hi", xdr_ints);
    race_reading<double, double, md2hd>("md2hd", xdr_doubles);
    race_reading<short, double, ms2hd>("ms2hd");
    race_reading<int, short, mi2hs>("mi2hs");
    race_writing<int, double, hd2mi>("hd2mi");
    race_writing<float, double, hd2mf>("hd2mf");
    race_writing<short, float, hf2ms>("hf2ms");
    race<unsigned long, unsigned char>(
        "uhl2ab", false,
        {{"stock", writes<unsigned long, uhl2ab>},
         {"plain", plain_write<unsigned char, unsigned long, false>}});
    race_copying<short, as2hs>("as2hs");
    race_copying<int, ai2hi>("ai2hi");
    race_copying<double, ad2hd>("ad2hd");
    return true;
}();

}  // namespace
