// Parsing parameter text, and writing it, against the readers that a program would
// otherwise take: the same tables of 28 values in each of their syntaxes.

#include <cstdio>
#include <cstdlib>
#include <string>

#include <benchmark/benchmark.h>

#include "stock.h"

#if STOCK_HAVE_GLIB
#include <glib.h>
#endif
#if STOCK_HAVE_LIBCONFIG
#include <libconfig.h>
#endif
#if STOCK_HAVE_TOMLPLUSPLUS
#include <toml++/toml.h>
#endif

namespace {

constexpr int kValues = 28;

// How a syntax writes a table, one of its values, and the end of the table.
struct Syntax {
    const char *table, *value, *end;
};

constexpr Syntax kPf = {"table%d &Arr{\n", "    key_%02d    value %d of table %d\n", "}\n"};
constexpr Syntax kSections = {"[table%d]\n", "key_%02d=value %d of table %d\n", "\n"};
constexpr Syntax kToml = {"[table%d]\n", "key_%02d = \"value %d of table %d\"\n", "\n"};
constexpr Syntax kBraces = {"table%d = {\n", "    key_%02d = \"value %d of table %d\";\n", "};\n"};

std::string document(const Syntax &syntax, int64_t tables)
{
    std::string text;
    char line[100];
    for (int t = 0; t < tables; ++t) {
        text.append(line, static_cast<size_t>(snprintf(line, sizeof line, syntax.table, t)));
        for (int v = 0; v < kValues; ++v)
            text.append(line,
                        static_cast<size_t>(snprintf(line, sizeof line, syntax.value, v, v, t)));
        text += syntax.end;
    }
    return text;
}

constexpr const char *kSample = "value 27 of table 199";

// Parses the document once and asks for the last value of table 199, then races.
template <class Parse>
void parse(benchmark::State &state, const Syntax &syntax, Parse run)
{
    const int64_t tables = state.range(0);
    const std::string text = document(syntax, tables);
    if (run(text) != kSample)
        return state.SkipWithError("wrong answer");
    for (auto _ : state)
        benchmark::DoNotOptimize(run(text));
    state.SetItemsProcessed(state.iterations() * tables * kValues);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}

std::string with_pf(const std::string &text)
{
    Pf *pf = nullptr;
    pfcompile_counted(text.data(), static_cast<long>(text.size()), &pf);
    const auto *table = static_cast<Pf *>(getarr(pf->value.arr, "table199"));
    std::string value = static_cast<Pf *>(getarr(table->value.arr, "key_27"))->value.s;
    pffree(pf);
    return value;
}
void parse_stock(benchmark::State &state)
{
    parse(state, kPf, with_pf);
}
BENCHMARK(parse_stock)->Arg(200)->Unit(benchmark::kMicrosecond);

#if STOCK_HAVE_GLIB
std::string with_key_file(const std::string &text)
{
    GKeyFile *file = g_key_file_new();
    g_key_file_load_from_data(file, text.data(), text.size(), G_KEY_FILE_NONE, nullptr);
    gchar *found = g_key_file_get_string(file, "table199", "key_27", nullptr);
    std::string value = found;
    g_free(found);
    g_key_file_free(file);
    return value;
}
void parse_glib_key_file(benchmark::State &state)
{
    parse(state, kSections, with_key_file);
}
BENCHMARK(parse_glib_key_file)->Arg(200)->Unit(benchmark::kMicrosecond);
#endif

#if STOCK_HAVE_LIBCONFIG
std::string with_libconfig(const std::string &text)
{
    config_t config;
    config_init(&config);
    config_read_string(&config, text.c_str());
    const char *found = "";
    config_lookup_string(&config, "table199.key_27", &found);
    std::string value = found;
    config_destroy(&config);
    return value;
}
// Only 200 tables: it looks through all of them for each that it adds.
void parse_libconfig(benchmark::State &state)
{
    parse(state, kBraces, with_libconfig);
}
BENCHMARK(parse_libconfig)->Arg(200)->Unit(benchmark::kMicrosecond);
#endif

#if STOCK_HAVE_TOMLPLUSPLUS
std::string with_toml(const std::string &text)
{
    const toml::table table = toml::parse(text);
    return std::string(table["table199"]["key_27"].value_or(""));
}
void parse_tomlplusplus(benchmark::State &state)
{
    parse(state, kToml, with_toml);
}
BENCHMARK(parse_tomlplusplus)->Arg(200)->Unit(benchmark::kMicrosecond);
#endif

void parse_stock_descriptor(benchmark::State &state)
{
    FILE *file = tmpfile();
    const std::string text = document(kPf, state.range(0));
    fwrite(text.data(), 1, text.size(), file);
    fflush(file);
    parse(state, kPf, [&](const std::string &) {
        Pf *pf = nullptr;
        rewind(file);
        pfinfd(fileno(file), &pf);
        const auto *table = static_cast<Pf *>(getarr(pf->value.arr, "table199"));
        std::string value = static_cast<Pf *>(getarr(table->value.arr, "key_27"))->value.s;
        pffree(pf);
        return value;
    });
    fclose(file);
}
BENCHMARK(parse_stock_descriptor)->Arg(200)->Unit(benchmark::kMicrosecond);

// ---- Writing ----

void write_stock(benchmark::State &state)
{
    Pf *pf = nullptr;
    pfcompile(document(kPf, state.range(0)).c_str(), &pf);
    for (auto _ : state)
        free(pf2string(pf));
    state.SetItemsProcessed(state.iterations() * state.range(0) * kValues);
    pffree(pf);
}
BENCHMARK(write_stock)->Arg(200)->Unit(benchmark::kMicrosecond);

#if STOCK_HAVE_GLIB
void write_glib_key_file(benchmark::State &state)
{
    const std::string text = document(kSections, state.range(0));
    GKeyFile *file = g_key_file_new();
    g_key_file_load_from_data(file, text.data(), text.size(), G_KEY_FILE_NONE, nullptr);
    for (auto _ : state)
        g_free(g_key_file_to_data(file, nullptr, nullptr));
    state.SetItemsProcessed(state.iterations() * state.range(0) * kValues);
    g_key_file_free(file);
}
BENCHMARK(write_glib_key_file)->Arg(200)->Unit(benchmark::kMicrosecond);
#endif

// ---- Large texts, last: they leave the heap in pieces for what follows ----

// One value of many megabytes: as plain text, escaped, and as a literal.
void parse_long_value(benchmark::State &state, const char *before, const char *unit,
                      const char *behind)
{
    std::string text = before;
    const size_t size = static_cast<size_t>(state.range(0)) << 20;
    while (text.size() < size)
        text += unit;
    text += behind;
    for (auto _ : state) {
        Pf *pf = nullptr;
        if (pfcompile_counted(text.data(), static_cast<long>(text.size()), &pf) != 0)
            state.SkipWithError("wrong answer");
        pffree(pf);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK_CAPTURE(parse_long_value, plain, "k ", "some plain text ", "\n")->Arg(1)->Arg(16);
BENCHMARK_CAPTURE(parse_long_value, escaped, "k ", "\\#", "\n")->Arg(1)->Arg(16);
BENCHMARK_CAPTURE(parse_long_value, literal, "k &Literal{\n", "some { literal } text\n", "}\n")
    ->Arg(1)
    ->Arg(16);
BENCHMARK_CAPTURE(parse_long_value, here_document, "k &Literal\"E\n", "some \"literal\" text\n",
                  "\"E\n")
    ->Arg(1)
    ->Arg(16);

BENCHMARK(parse_stock)->Arg(20000)->Unit(benchmark::kMicrosecond);
BENCHMARK(parse_stock_descriptor)->Arg(20000)->Unit(benchmark::kMicrosecond);
BENCHMARK(write_stock)->Arg(20000)->Unit(benchmark::kMicrosecond);
#if STOCK_HAVE_GLIB
BENCHMARK(parse_glib_key_file)->Arg(20000)->Unit(benchmark::kMicrosecond);
BENCHMARK(write_glib_key_file)->Arg(20000)->Unit(benchmark::kMicrosecond);
#endif
#if STOCK_HAVE_TOMLPLUSPLUS
BENCHMARK(parse_tomlplusplus)->Arg(20000)->Unit(benchmark::kMicrosecond);
#endif

}  // namespace
