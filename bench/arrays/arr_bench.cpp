// The associative array against std::map and GLib's balanced tree: filling it in
// random order, finding every key in another random order, walking it.

#include "stock/arr.h"

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#if STOCK_HAVE_GLIB
#include <glib.h>
#endif

namespace {

using Keys = std::vector<std::string>;

Keys shuffled_keys(int64_t n, unsigned seed)
{
    Keys keys;
    for (int64_t i = 0; i < n; ++i)
        keys.push_back("station_" + std::to_string(i * 7));
    std::shuffle(keys.begin(), keys.end(), std::mt19937(seed));
    return keys;
}

void *value_of(const std::string &key)
{
    return const_cast<char *>(key.data());
}

struct StockArr {
    Arr *arr = newarr(nullptr);
    ~StockArr() { freearr(arr, nullptr); }
    void insert(const std::string &key) { setarr(arr, key.c_str(), value_of(key)); }
    void *find(const std::string &key) const { return getarr(arr, key.c_str()); }
    int64_t walk() const
    {
        int64_t sum = 0;
        applyarr(
            arr,
            [](void *key, void *, void *argument) {
                *static_cast<int64_t *>(argument) += *static_cast<const char *>(key);
                return 0;
            },
            &sum);
        return sum;
    }
};

struct StdMap {
    std::map<std::string, void *> map;
    void insert(const std::string &key) { map.insert_or_assign(key, value_of(key)); }
    void *find(const std::string &key) const
    {
        const auto found = map.find(key);
        return found == map.end() ? nullptr : found->second;
    }
    int64_t walk() const
    {
        int64_t sum = 0;
        for (const auto &entry : map)
            sum += entry.first[0];
        return sum;
    }
};

#if STOCK_HAVE_GLIB
struct GlibTree {
    GTree *tree = g_tree_new_full(
        [](gconstpointer a, gconstpointer b, gpointer) {
            return strcmp(static_cast<const char *>(a), static_cast<const char *>(b));
        },
        nullptr, g_free, nullptr);
    ~GlibTree() { g_tree_destroy(tree); }
    void insert(const std::string &key)
    {
        g_tree_replace(tree, g_strdup(key.c_str()), value_of(key));
    }
    void *find(const std::string &key) const { return g_tree_lookup(tree, key.c_str()); }
    int64_t walk() const
    {
        int64_t sum = 0;
        g_tree_foreach(
            tree,
            [](gpointer key, gpointer, gpointer argument) -> gboolean {
                *static_cast<int64_t *>(argument) += *static_cast<const char *>(key);
                return FALSE;
            },
            &sum);
        return sum;
    }
};
#endif

template <class Map>
bool right(const Map &map, const Keys &keys)
{
    for (const std::string &key : keys)
        if (map.find(key) == nullptr)
            return false;
    return map.find("station") == nullptr && map.walk() == 's' * static_cast<int64_t>(keys.size());
}

template <class Map>
void insert(benchmark::State &state)
{
    const Keys keys = shuffled_keys(state.range(0), 1);
    for (auto _ : state) {
        Map map;
        for (const std::string &key : keys)
            map.insert(key);
        state.PauseTiming();
        if (!right(map, keys))
            state.SkipWithError("wrong answer");
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Map>
void find(benchmark::State &state)
{
    Map map;
    const Keys filled = shuffled_keys(state.range(0), 1);
    for (const std::string &key : filled)
        map.insert(key);
    const Keys keys = shuffled_keys(state.range(0), 2);
    if (!right(map, keys))
        return state.SkipWithError("wrong answer");
    for (auto _ : state)
        for (const std::string &key : keys)
            benchmark::DoNotOptimize(map.find(key));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Map>
void walk(benchmark::State &state)
{
    Map map;
    const Keys keys = shuffled_keys(state.range(0), 1);
    for (const std::string &key : keys)
        map.insert(key);
    if (!right(map, keys))
        return state.SkipWithError("wrong answer");
    for (auto _ : state)
        benchmark::DoNotOptimize(map.walk());
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void sizes(benchmark::internal::Benchmark *bench)
{
    bench->Arg(100)->Arg(20'000)->Arg(1'000'000);
}

}  // namespace

BENCHMARK_TEMPLATE(insert, StockArr)->Name("insert/stock")->Apply(sizes);
BENCHMARK_TEMPLATE(insert, StdMap)->Name("insert/std::map")->Apply(sizes);
BENCHMARK_TEMPLATE(find, StockArr)->Name("find/stock")->Apply(sizes);
BENCHMARK_TEMPLATE(find, StdMap)->Name("find/std::map")->Apply(sizes);
BENCHMARK_TEMPLATE(walk, StockArr)->Name("walk/stock")->Apply(sizes);
BENCHMARK_TEMPLATE(walk, StdMap)->Name("walk/std::map")->Apply(sizes);
#if STOCK_HAVE_GLIB
BENCHMARK_TEMPLATE(insert, GlibTree)->Name("insert/GTree")->Apply(sizes);
BENCHMARK_TEMPLATE(find, GlibTree)->Name("find/GTree")->Apply(sizes);
BENCHMARK_TEMPLATE(walk, GlibTree)->Name("walk/GTree")->Apply(sizes);
#endif
