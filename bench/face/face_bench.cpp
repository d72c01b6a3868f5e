// The C++ face (stock) against the plain functions that it stands for (plain): walking and
// filling lists, walking arrays, reading parameters, converting numbers, keeping messages.

#include <bit>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <benchmark/benchmark.h>

#include "stock.hpp"

namespace {

stock::list<int64_t> numbers(int64_t n)
{
    stock::list<int64_t> list;
    for (int64_t i = 1; i <= n; ++i)
        list.push_back(i);
    return list;
}

// walk(list) adds the numbers up.
template <class Walk>
void list_walk(benchmark::State &state, Walk walk)
{
    const int64_t n = state.range(0);
    const auto list = numbers(n);
    for (auto _ : state)
        if (walk(list) != n * (n + 1) / 2)
            return state.SkipWithError("wrong answer");
    state.SetItemsProcessed(state.iterations() * n);
}

int64_t list_walk_stock(const stock::list<int64_t> &list)
{
    int64_t sum = 0;
    for (const int64_t number : list)
        benchmark::DoNotOptimize(sum += number);
    return sum;
}

int64_t list_walk_plain(const stock::list<int64_t> &list)
{
    const Tbl *tbl = list.tbl();
    int64_t sum = 0;
    for (int64_t i = 0; i < tbl->count; ++i)
        benchmark::DoNotOptimize(sum += *static_cast<const int64_t *>(gettbl(tbl, i)));
    return sum;
}

template <class Fill>
void list_fill(benchmark::State &state, Fill fill)
{
    const int64_t n = state.range(0);
    for (auto _ : state)
        if (fill(n) != n)
            return state.SkipWithError("wrong answer");
    state.SetItemsProcessed(state.iterations() * n);
}

int64_t list_fill_stock(int64_t n)
{
    return static_cast<int64_t>(numbers(n).size());
}

int64_t list_fill_plain(int64_t n)
{
    Tbl *tbl = inittbl(0, 0, 1, nullptr, sizeof(int64_t));
    for (int64_t i = 1; i <= n; ++i)
        pushtbl(tbl, &i);
    const int64_t count = tbl->count;
    freetbl(tbl, nullptr);
    return count;
}

// walk(array) adds up the values.
template <class Walk>
void array_walk(benchmark::State &state, Walk walk)
{
    const int64_t n = state.range(0);
    auto list = numbers(n);
    stock::array<int64_t *> array;
    for (int64_t &number : list)
        array.set(std::to_string(number), &number);
    for (auto _ : state)
        if (walk(array) != n * (n + 1) / 2)
            return state.SkipWithError("wrong answer");
    state.SetItemsProcessed(state.iterations() * n);
}

int64_t array_walk_stock(const stock::array<int64_t *> &array)
{
    int64_t sum = 0;
    for (const auto [key, value] : array)
        sum += *value;
    return sum;
}

int64_t array_walk_plain(const stock::array<int64_t *> &array)
{
    int64_t sum = 0;
    applyarr(
        array.arr(),
        [](void *, void *value, void *total) {
            *static_cast<int64_t *>(total) += *static_cast<int64_t *>(value);
            return 0;
        },
        &sum);
    return sum;
}

int64_t array_apply_stock(const stock::array<int64_t *> &array)
{
    int64_t sum = 0;
    array.apply([&sum](const char *, const int64_t *value) { sum += *value; });
    return sum;
}

template <class Get>
void params_get(benchmark::State &state, Get get)
{
    stock::params tree;
    tree.compile("a &Arr{\n b 7\n c 2.5\n d text\n}\nl &Tbl{\n 1\n 2\n}\n");
    for (auto _ : state)
        if (get(tree) != 7 + 5 + 4)
            return state.SkipWithError("wrong answer");
    state.SetItemsProcessed(state.iterations() * 3);
}

int64_t params_get_stock(const stock::params &tree)
{
    return tree.get<int>("a{b}") + static_cast<int64_t>(2 * tree.get<double>("a{c}")) +
           static_cast<int64_t>(tree.get<std::string_view>("a{d}").size());
}

int64_t params_get_plain(stock::params &tree)
{
    Pf *pf = tree.pf();
    return pfget_int(pf, "a{b}") + static_cast<int64_t>(2 * pfget_double(pf, "a{c}")) +
           static_cast<int64_t>(std::string_view(pfget_string(pf, "a{d}")).size());
}

// With a default, of which one is needed.
int64_t params_default_stock(const stock::params &tree)
{
    return tree.get<int>("a{b}", 1) + tree.get<int>("a{x}", 5) + tree.get<int>("x{y}", 4);
}

long int_or(Pf *pf, const char *address, long fallback)
{
    Pf *node = nullptr;
    pfresolve(pf, address, 0, &node);
    return node ? pfget_int(pf, address) : fallback;
}

int64_t params_default_plain(stock::params &tree)
{
    Pf *pf = tree.pf();
    return int_or(pf, "a{b}", 1) + int_or(pf, "a{x}", 5) + int_or(pf, "x{y}", 4);
}

struct Samples {
    std::vector<std::byte> bytes;
    std::vector<double> doubles;
};

template <class Convert>
void convert(benchmark::State &state, Convert run)
{
    const auto n = static_cast<size_t>(state.range(0));
    Samples samples{std::vector<std::byte>(2 * n, std::byte{1}), std::vector<double>(n)};
    for (auto _ : state) {
        run(samples);
        benchmark::ClobberMemory();
        if (samples.doubles[n - 1] != 0x0101)
            return state.SkipWithError("wrong answer");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void convert_stock(Samples &samples)
{
    benchmark::DoNotOptimize(
        stock::convert<std::endian::big, int16_t>(samples.bytes, samples.doubles));
}

void convert_plain(Samples &samples)
{
    char *from = reinterpret_cast<char *>(samples.bytes.data());
    benchmark::DoNotOptimize(
        ms2hd(&from, samples.doubles.data(), static_cast<int>(samples.doubles.size())));
}

template <class Log>
void message(benchmark::State &state, Log log)
{
    const std::string name = "stations.tab";
    for (auto _ : state) {
        log(name);
        elog_clear();
    }
}

void message_stock(const std::string &name)
{
    stock::report::log("can't open %s: %d", name, 5);
}

void message_plain(const std::string &name)
{
    elog_log(0, "can't open %s: %d", name.c_str(), 5);
}

}  // namespace

#define RACE(action) BENCHMARK_CAPTURE(action, stock, action##_stock)
#define PLAIN(action) BENCHMARK_CAPTURE(action, plain, action##_plain)

RACE(list_walk)->Arg(100)->Arg(20'000);
PLAIN(list_walk)->Arg(100)->Arg(20'000);
RACE(list_fill)->Arg(100)->Arg(20'000);
PLAIN(list_fill)->Arg(100)->Arg(20'000);
RACE(array_walk)->Arg(100)->Arg(20'000);
PLAIN(array_walk)->Arg(100)->Arg(20'000);
BENCHMARK_CAPTURE(array_walk, stock, array_apply_stock)
    ->Name("array_apply/stock")
    ->Arg(100)
    ->Arg(20'000);
BENCHMARK_CAPTURE(array_walk, plain, array_walk_plain)
    ->Name("array_apply/plain")
    ->Arg(100)
    ->Arg(20'000);
RACE(params_get);
PLAIN(params_get);
BENCHMARK_CAPTURE(params_get, stock, params_default_stock)->Name("params_get_default/stock");
BENCHMARK_CAPTURE(params_get, plain, params_default_plain)->Name("params_get_default/plain");
RACE(convert)->Arg(10)->Arg(1000)->Arg(100'000);
PLAIN(convert)->Arg(10)->Arg(1000)->Arg(100'000);
RACE(message);
PLAIN(message);
