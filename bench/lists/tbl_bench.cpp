// The list against std::vector, std::deque and GLib's pointer array and queue:
// appending, prepending, both ends as a queue, reading by index, and sorting
// against qsort_r.

#include "stock/tbl.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>
#if STOCK_HAVE_GLIB
#include <glib.h>
#endif

namespace {

void *number(int64_t n)
{
    return reinterpret_cast<void *>(n);
}

struct StockTbl {
    Tbl *tbl = newtbl(0);
    ~StockTbl() { freetbl(tbl, nullptr); }
    void push_back(void *entry) { pushtbl(tbl, entry); }
    void push_front(void *entry) { unshifttbl(tbl, entry); }
    void *pop_front() { return shifttbl(tbl); }
    void *at(int64_t i) const { return gettbl(tbl, i); }
    int64_t apply()
    {
        return applytbl(
            tbl,
            [](void *entry, void *) { return static_cast<int>(reinterpret_cast<int64_t>(entry)); },
            nullptr);
    }
};

template <class Container>
struct Std {
    Container list;
    void push_back(void *entry) { list.push_back(entry); }
    void push_front(void *entry) { list.insert(list.begin(), entry); }
    void *pop_front()
    {
        void *entry = list.front();
        list.erase(list.begin());
        return entry;
    }
    void *at(int64_t i) const { return list[static_cast<size_t>(i)]; }
};
using StdVector = Std<std::vector<void *>>;
using StdDeque = Std<std::deque<void *>>;

#if STOCK_HAVE_GLIB
struct GlibArray {
    GPtrArray *array = g_ptr_array_new();
    ~GlibArray() { g_ptr_array_free(array, TRUE); }
    void push_back(void *entry) { g_ptr_array_add(array, entry); }
    void push_front(void *entry) { g_ptr_array_insert(array, 0, entry); }
    void *pop_front() { return g_ptr_array_remove_index(array, 0); }
    void *at(int64_t i) const { return g_ptr_array_index(array, static_cast<guint>(i)); }
    int64_t apply()
    {
        int64_t sum = 0;
        g_ptr_array_foreach(
            array,
            [](gpointer entry, gpointer argument) {
                *static_cast<int64_t *>(argument) += reinterpret_cast<int64_t>(entry);
            },
            &sum);
        return sum;
    }
};

struct GlibQueue {
    GQueue *queue = g_queue_new();
    ~GlibQueue() { g_queue_free(queue); }
    void push_back(void *entry) { g_queue_push_tail(queue, entry); }
    void push_front(void *entry) { g_queue_push_head(queue, entry); }
    void *pop_front() { return g_queue_pop_head(queue); }
    void *at(int64_t i) const { return g_queue_peek_nth(queue, static_cast<guint>(i)); }
};
#endif

template <class List>
void append(benchmark::State &state)
{
    const int64_t n = state.range(0);
    for (auto _ : state) {
        List list;
        for (int64_t i = 1; i <= n; ++i)
            list.push_back(number(i));
        if (list.at(n - 1) != number(n))
            state.SkipWithError("wrong answer");
    }
    state.SetItemsProcessed(state.iterations() * n);
}

template <class List>
void prepend(benchmark::State &state)
{
    const int64_t n = state.range(0);
    for (auto _ : state) {
        List list;
        for (int64_t i = 1; i <= n; ++i)
            list.push_front(number(i));
        if (list.at(0) != number(n))
            state.SkipWithError("wrong answer");
    }
    state.SetItemsProcessed(state.iterations() * n);
}

// n entries pass through a queue that holds a hundred.
template <class List>
void queue(benchmark::State &state)
{
    const int64_t n = state.range(0);
    for (auto _ : state) {
        List list;
        for (int64_t i = 1; i <= 100; ++i)
            list.push_back(number(i));
        for (int64_t i = 1; i <= n; ++i) {
            if (list.pop_front() != number(i))
                state.SkipWithError("wrong answer");
            list.push_back(number(i + 100));
        }
    }
    state.SetItemsProcessed(state.iterations() * n);
}

template <class List>
void read(benchmark::State &state)
{
    const int64_t n = state.range(0);
    List list;
    for (int64_t i = 1; i <= n; ++i)
        list.push_back(number(i));
    for (auto _ : state) {
        int64_t sum = 0;
        for (int64_t i = 0; i < n; ++i)
            benchmark::DoNotOptimize(sum += reinterpret_cast<int64_t>(list.at(i)));
        if (sum != n * (n + 1) / 2)
            state.SkipWithError("wrong answer");
    }
    state.SetItemsProcessed(state.iterations() * n);
}

template <class List>
void apply(benchmark::State &state)
{
    const int64_t n = state.range(0);
    List list;
    for (int64_t i = 1; i <= n; ++i)
        list.push_back(number(i));
    for (auto _ : state)
        if (static_cast<int>(list.apply()) != static_cast<int>(n * (n + 1) / 2))
            state.SkipWithError("wrong answer");
    state.SetItemsProcessed(state.iterations() * n);
}

int by_number(const void *a, const void *b, void *)
{
    const int64_t left = *static_cast<const int64_t *>(a);
    const int64_t right = *static_cast<const int64_t *>(b);
    return (left > right) - (left < right);
}

void sort_tbl(void *base, int64_t n)
{
    Tbl list{};
    list.base = base;
    list.count = n;
    list.size = sizeof(int64_t);
    sorttbl(&list, by_number, nullptr);
}

void sort_qsort_r(void *base, int64_t n)
{
    qsort_r(base, static_cast<size_t>(n), sizeof(int64_t), by_number, nullptr);
}

void sort(benchmark::State &state, void (*run)(void *base, int64_t n))
{
    std::mt19937_64 random(1);
    std::vector<int64_t> numbers(static_cast<size_t>(state.range(0)));
    for (int64_t &value : numbers)
        value = static_cast<int64_t>(random());
    std::vector<int64_t> work = numbers;
    run(work.data(), state.range(0));
    if (!std::is_sorted(work.begin(), work.end()))
        return state.SkipWithError("wrong answer");
    for (auto _ : state) {
        work = numbers;
        run(work.data(), state.range(0));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace

#define LIST_BENCH(what, sizes)                                                                    \
    BENCHMARK_TEMPLATE(what, StockTbl)->Name(#what "/stock")->Apply(sizes);                        \
    BENCHMARK_TEMPLATE(what, StdVector)->Name(#what "/std::vector")->Apply(sizes);                 \
    BENCHMARK_TEMPLATE(what, StdDeque)->Name(#what "/std::deque")->Apply(sizes)
#if STOCK_HAVE_GLIB
#define GLIB_BENCH(what, sizes)                                                                    \
    BENCHMARK_TEMPLATE(what, GlibArray)->Name(#what "/GPtrArray")->Apply(sizes);                   \
    BENCHMARK_TEMPLATE(what, GlibQueue)->Name(#what "/GQueue")->Apply(sizes)
#else
#define GLIB_BENCH(what, sizes) static_assert(true)
#endif

static void sizes(benchmark::internal::Benchmark *bench)
{
    bench->Arg(100)->Arg(20'000);
}

LIST_BENCH(append, sizes);
GLIB_BENCH(append, sizes);
LIST_BENCH(prepend, sizes);
GLIB_BENCH(prepend, sizes);
LIST_BENCH(queue, sizes);
GLIB_BENCH(queue, sizes);
LIST_BENCH(read, sizes);
BENCHMARK_TEMPLATE(apply, StockTbl)->Name("apply/stock")->Apply(sizes);
#if STOCK_HAVE_GLIB
BENCHMARK_TEMPLATE(read, GlibArray)->Name("read/GPtrArray")->Apply(sizes);
BENCHMARK_TEMPLATE(apply, GlibArray)->Name("apply/GPtrArray")->Apply(sizes);
#endif
BENCHMARK_CAPTURE(sort, stock, sort_tbl)->Apply(sizes);
BENCHMARK_CAPTURE(sort, qsort_r, sort_qsort_r)->Apply(sizes);
