// Parameter files against the readers that a program would otherwise take: the same
// document in each of their syntaxes, parsed, written and asked.
//
// A document is tables of 28 values: 25 texts, an integer, a number and a truth
// value. It grows by the number of its tables, 200 for 5,600 values and 20,000 for
// 560,000. A parse is timed with the freeing of what it made.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <sstream>
#include <string>

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include "stock.h"

#if STOCK_HAVE_GLIB
#include <glib.h>
#endif
#if STOCK_HAVE_LIBCONFIG
#include <libconfig.h>
#endif
#if STOCK_HAVE_RAPIDJSON
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#endif
#if STOCK_HAVE_TOMLPLUSPLUS
#include <toml++/toml.h>
#endif
#if STOCK_HAVE_YAML_CPP
#include <yaml-cpp/yaml.h>
#endif

namespace {

constexpr int kValues = 28;
constexpr int64_t kSmall = 200;    // tables
constexpr int64_t kLarge = 20000;  // tables

// How a syntax writes a table, its values, and what stands around and between them.
struct Syntax {
    const char *table, *text, *bare, *end;
    const char *between = "", *before = "", *behind = "";
};

// clang-format off
constexpr Syntax kPf = {"table%d &Arr{\n", "    %s    value %d of table %d\n", "    %s    %s\n", "}\n"};
constexpr Syntax kKeyFile = {"[table%d]\n", "%s=value %d of table %d\n", "%s=%s\n", "\n"};
[[maybe_unused]] constexpr Syntax kToml =
    {"[table%d]\n", "%s = \"value %d of table %d\"\n", "%s = %s\n", "\n"};
[[maybe_unused]] constexpr Syntax kBraces =
    {"table%d = {\n", "    %s = \"value %d of table %d\";\n", "    %s = %s;\n", "};\n"};
[[maybe_unused]] constexpr Syntax kYaml =
    {"table%d:\n", "    %s: value %d of table %d\n", "    %s: %s\n", ""};
[[maybe_unused]] constexpr Syntax kJson =
    {"\"table%d\": {", "\"%s\": \"value %d of table %d\"", "\"%s\": %s", "}", ",\n", "{", "}"};
// clang-format on

std::string document(const Syntax &syntax, int64_t tables)
{
    static constexpr const char *kBare[][2] = {
        {"count", "12345"}, {"rate", "12.345"}, {"enabled", "true"}};
    constexpr int kTexts = kValues - static_cast<int>(std::size(kBare));
    std::string text = syntax.before;
    char line[100];
    const auto add = [&](auto... arguments) {
        text.append(line, static_cast<size_t>(snprintf(line, sizeof line, arguments...)));
    };
    for (int t = 0; t < tables; ++t) {
        if (t > 0)
            text += syntax.between;
        add(syntax.table, t);
        for (const auto &bare : kBare) {
            add(syntax.bare, bare[0], bare[1]);
            text += syntax.between;
        }
        for (int v = 0; v < kTexts; ++v) {
            char key[16];
            snprintf(key, sizeof key, "key_%02d", v);
            if (v > 0)
                text += syntax.between;
            add(syntax.text, key, v, t);
        }
        text += syntax.end;
    }
    return text + syntax.behind;
}

constexpr char kSample[] = "value 24 of table 100";

// ---- The readers ----
//
// Each parses a text into itself and frees it at its end. text, integer, number and
// truth ask for one value of table 100; written gives the whole as text again.

struct Stock {
    static constexpr Syntax kSyntax = kPf;
    explicit Stock(const std::string &text)
    {
        pfcompile_counted(text.data(), static_cast<long>(text.size()), &pf);
    }
    ~Stock() { pffree(pf); }
    Stock(const Stock &) = delete;
    Stock &operator=(const Stock &) = delete;

    std::string text() const { return pfget_string(pf, "table100{key_24}"); }
    const char *borrowed() const { return pfget_string(pf, "table100{key_24}"); }
    long integer() const { return pfget_int(pf, "table100{count}"); }
    double number() const { return pfget_double(pf, "table100{rate}"); }
    bool truth() const { return pfget_boolean(pf, "table100{enabled}") != 0; }
    size_t written() const
    {
        char *text = pf2string(pf);
        const size_t size = strlen(text);
        free(text);
        return size;
    }

    Pf *pf = nullptr;
};

#if STOCK_HAVE_GLIB
struct KeyFile {
    static constexpr Syntax kSyntax = kKeyFile;
    explicit KeyFile(const std::string &text)
    {
        g_key_file_load_from_data(file, text.data(), text.size(), G_KEY_FILE_NONE, nullptr);
    }
    ~KeyFile() { g_key_file_free(file); }
    KeyFile(const KeyFile &) = delete;
    KeyFile &operator=(const KeyFile &) = delete;

    std::string text() const
    {
        gchar *found = g_key_file_get_string(file, "table100", "key_24", nullptr);
        std::string text = found;
        g_free(found);
        return text;
    }
    std::unique_ptr<gchar, void (*)(void *)> borrowed() const
    {
        return {g_key_file_get_string(file, "table100", "key_24", nullptr), g_free};
    }
    long integer() const { return g_key_file_get_integer(file, "table100", "count", nullptr); }
    double number() const { return g_key_file_get_double(file, "table100", "rate", nullptr); }
    bool truth() const { return g_key_file_get_boolean(file, "table100", "enabled", nullptr); }
    size_t written() const
    {
        gsize size = 0;
        g_free(g_key_file_to_data(file, &size, nullptr));
        return size;
    }

    GKeyFile *file = g_key_file_new();
};
#endif

#if STOCK_HAVE_LIBCONFIG
struct Libconfig {
    static constexpr Syntax kSyntax = kBraces;
    explicit Libconfig(const std::string &text)
    {
        config_init(&config);
        config_read_string(&config, text.c_str());
    }
    ~Libconfig() { config_destroy(&config); }
    Libconfig(const Libconfig &) = delete;
    Libconfig &operator=(const Libconfig &) = delete;

    std::string text() const { return borrowed(); }
    const char *borrowed() const
    {
        const char *found = "";
        config_lookup_string(&config, "table100.key_24", &found);
        return found;
    }
    long integer() const
    {
        int found = 0;
        config_lookup_int(&config, "table100.count", &found);
        return found;
    }
    double number() const
    {
        double found = 0;
        config_lookup_float(&config, "table100.rate", &found);
        return found;
    }
    bool truth() const
    {
        int found = 0;
        config_lookup_bool(&config, "table100.enabled", &found);
        return found != 0;
    }
    size_t written() const
    {
        char *text = nullptr;
        size_t size = 0;
        FILE *stream = open_memstream(&text, &size);
        config_write(&config, stream);
        fclose(stream);
        free(text);
        return size;
    }

    config_t config;
};
#endif

#if STOCK_HAVE_TOMLPLUSPLUS
struct Toml {
    static constexpr Syntax kSyntax = kToml;
    explicit Toml(const std::string &text) : table(toml::parse(text)) {}

    std::string text() const { return std::string(borrowed()); }
    std::string_view borrowed() const
    {
        return table["table100"]["key_24"].value_or(std::string_view());
    }
    long integer() const { return table["table100"]["count"].value_or(0L); }
    double number() const { return table["table100"]["rate"].value_or(0.0); }
    bool truth() const { return table["table100"]["enabled"].value_or(false); }
    size_t written() const
    {
        std::ostringstream out;
        out << table;
        return out.str().size();
    }

    toml::table table;
};
#endif

#if STOCK_HAVE_YAML_CPP
struct Yaml {
    static constexpr Syntax kSyntax = kYaml;
    explicit Yaml(const std::string &text) : node(YAML::Load(text)) {}

    std::string text() const { return borrowed(); }
    std::string borrowed() const { return node["table100"]["key_24"].as<std::string>(); }
    long integer() const { return node["table100"]["count"].as<long>(); }
    double number() const { return node["table100"]["rate"].as<double>(); }
    bool truth() const { return node["table100"]["enabled"].as<bool>(); }
    size_t written() const
    {
        YAML::Emitter out;
        out << node;
        return out.size();
    }

    const YAML::Node node;
};
#endif

#if STOCK_HAVE_RAPIDJSON
struct Json {
    static constexpr Syntax kSyntax = kJson;
    explicit Json(const std::string &text) { json.Parse(text.data(), text.size()); }

    std::string text() const { return borrowed(); }
    const char *borrowed() const { return json["table100"]["key_24"].GetString(); }
    long integer() const { return json["table100"]["count"].GetInt(); }
    double number() const { return json["table100"]["rate"].GetDouble(); }
    bool truth() const { return json["table100"]["enabled"].GetBool(); }
    size_t written() const
    {
        rapidjson::StringBuffer out;
        rapidjson::Writer<rapidjson::StringBuffer> writer(out);
        json.Accept(writer);
        return out.GetSize();
    }

    rapidjson::Document json;
};
#endif

void count_values(benchmark::State &state, int64_t tables)
{
    state.SetItemsProcessed(state.iterations() * tables * kValues);
}

// Whether the reader gives the values of the document; otherwise the benchmark is skipped.
template <class Reader>
bool reads_right(benchmark::State &state, const Reader &reader)
{
    const bool right = reader.text() == kSample && reader.integer() == 12345 &&
                       reader.number() == 12.345 && reader.truth();
    if (!right)
        state.SkipWithError("wrong answer");
    return right;
}

// ---- Parsing and freeing, writing ----

template <class Reader>
void parse(benchmark::State &state)
{
    const std::string text = document(Reader::kSyntax, state.range(0));
    if (!reads_right(state, Reader(text)))
        return;
    for (auto _ : state) {
        const Reader reader(text);
        benchmark::DoNotOptimize(&reader);
    }
    count_values(state, state.range(0));
}

template <class Reader>
void write(benchmark::State &state)
{
    const Reader reader(document(Reader::kSyntax, state.range(0)));
    if (!reads_right(state, reader))
        return;
    for (auto _ : state)
        benchmark::DoNotOptimize(reader.written());
    count_values(state, state.range(0));
}

// ---- One value at an address of two levels, in the middle of the document ----

template <class Reader, class Get>
void get(benchmark::State &state, Get one)
{
    const Reader reader(document(Reader::kSyntax, state.range(0)));
    if (!reads_right(state, reader))
        return;
    for (auto _ : state)
        benchmark::DoNotOptimize(one(reader));
}
template <class Reader>
void get_string(benchmark::State &state)
{
    get<Reader>(state, [](const Reader &reader) { return reader.borrowed(); });
}
template <class Reader>
void get_int(benchmark::State &state)
{
    get<Reader>(state, [](const Reader &reader) { return reader.integer(); });
}
template <class Reader>
void get_double(benchmark::State &state)
{
    get<Reader>(state, [](const Reader &reader) { return reader.number(); });
}
template <class Reader>
void get_boolean(benchmark::State &state)
{
    get<Reader>(state, [](const Reader &reader) { return reader.truth(); });
}

// ---- Memory ----

// What malloc has handed out, in its own blocks and in mapped ones.
size_t in_use()
{
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// bytes_per_value: what a parsed document holds of the heap. The time is of no interest.
template <class Reader>
void memory(benchmark::State &state)
{
    const std::string text = document(Reader::kSyntax, state.range(0));
    {
        const Reader first(text);
    }  // what the reader keeps for itself
    size_t bytes = 0;
    for (auto _ : state) {
        const size_t before = in_use();
        const Reader reader(text);
        bytes = in_use() - before;
    }
    state.counters["bytes_per_value"] =
        static_cast<double>(bytes) / static_cast<double>(state.range(0) * kValues);
}

#define RACE(READER, NAME, SIZES)                                                                  \
    BENCHMARK_TEMPLATE(parse, READER)->Name("parse/" NAME)->SIZES->Unit(benchmark::kMicrosecond);  \
    BENCHMARK_TEMPLATE(write, READER)->Name("write/" NAME)->SIZES->Unit(benchmark::kMicrosecond);  \
    BENCHMARK_TEMPLATE(memory, READER)->Name("memory/" NAME)->SIZES->Iterations(1);                \
    BENCHMARK_TEMPLATE(get_string, READER)->Name("get_string/" NAME)->Arg(kSmall);                 \
    BENCHMARK_TEMPLATE(get_int, READER)->Name("get_int/" NAME)->Arg(kSmall);                       \
    BENCHMARK_TEMPLATE(get_double, READER)->Name("get_double/" NAME)->Arg(kSmall);                 \
    BENCHMARK_TEMPLATE(get_boolean, READER)->Name("get_boolean/" NAME)->Arg(kSmall)

RACE(Stock, "stock", Arg(kSmall)->Arg(kLarge));
#if STOCK_HAVE_GLIB
RACE(KeyFile, "GKeyFile", Arg(kSmall)->Arg(kLarge));
#endif
#if STOCK_HAVE_LIBCONFIG
RACE(Libconfig, "libconfig", Arg(kSmall));  // it looks through all tables for each that it adds
#endif
#if STOCK_HAVE_TOMLPLUSPLUS
RACE(Toml, "toml++", Arg(kSmall)->Arg(kLarge));
#endif
#if STOCK_HAVE_YAML_CPP
RACE(Yaml, "yaml-cpp", Arg(kSmall)->Arg(kLarge));
#endif
#if STOCK_HAVE_RAPIDJSON
RACE(Json, "RapidJSON", Arg(kSmall)->Arg(kLarge));
#endif

// ---- Files ----

// Four directories on PFPATH with a file of the name in each: a document of 50
// tables, the later ones replacing the tables of the first.
class Directories {
public:
    Directories()
    {
        if (!mkdtemp(top_))
            std::abort();
        std::string path;
        for (int i = 0; i < 4; ++i) {
            const std::string dir = std::string(top_) + "/" + std::to_string(i);
            mkdir(dir.c_str(), 0700);
            const std::string text = document(kPf, kTables);
            FILE *file = fopen((dir + "/race.pf").c_str(), "w");
            fwrite(text.data(), 1, text.size(), file);
            fclose(file);
            path += (i ? ":" : "") + dir;
        }
        setenv("PFPATH", path.c_str(), 1);
    }
    ~Directories()
    {
        unsetenv("PFPATH");
        for (int i = 0; i < 4; ++i) {
            const std::string dir = std::string(top_) + "/" + std::to_string(i);
            unlink((dir + "/race.pf").c_str());
            rmdir(dir.c_str());
        }
        rmdir(top_);
    }
    Directories(const Directories &) = delete;
    Directories &operator=(const Directories &) = delete;

    static constexpr int64_t kTables = 50;

private:
    char top_[40] = "/tmp/pf_bench.XXXXXX";
};

void load_four_directories(benchmark::State &state)
{
    const Directories directories;
    for (auto _ : state) {
        Pf *pf = nullptr;
        if (pfread("race", &pf) != 0)
            state.SkipWithError("wrong answer");
        pffree(pf);
    }
    count_values(state, 4 * Directories::kTables);
}
BENCHMARK(load_four_directories)->Name("load_four_files/stock")->Unit(benchmark::kMicrosecond);

#if STOCK_HAVE_GLIB
// The key file takes the first file that it finds and merges nothing, so that here the
// four are read one by one.
void load_four_key_files(benchmark::State &state)
{
    const Directories directories;
    const std::string path = getenv("PFPATH");
    for (size_t at = 0; at != path.npos; at = path.find(':', at + 1)) {
        const size_t from = at + (at > 0);
        const std::string name = path.substr(from, path.find(':', from) - from) + "/race.pf";
        const std::string text = document(kKeyFile, Directories::kTables);
        FILE *file = fopen(name.c_str(), "w");
        fwrite(text.data(), 1, text.size(), file);
        fclose(file);
    }
    for (auto _ : state) {
        for (size_t at = 0; at != path.npos; at = path.find(':', at + 1)) {
            const size_t from = at + (at > 0);
            const std::string name = path.substr(from, path.find(':', from) - from) + "/race.pf";
            GKeyFile *file = g_key_file_new();
            if (!g_key_file_load_from_file(file, name.c_str(), G_KEY_FILE_NONE, nullptr))
                state.SkipWithError("wrong answer");
            g_key_file_free(file);
        }
    }
    count_values(state, 4 * Directories::kTables);
}
BENCHMARK(load_four_key_files)->Name("load_four_files/GKeyFile")->Unit(benchmark::kMicrosecond);
#endif

void pfupdate_of_nothing_new(benchmark::State &state)
{
    const Directories directories;
    Pf *pf = nullptr;
    if (pfupdate("race", &pf) != 1 || pfupdate("race", &pf) != 0)
        return state.SkipWithError("wrong answer");
    for (auto _ : state)
        benchmark::DoNotOptimize(pfupdate("race", &pf));
    pffree(pf);
}
BENCHMARK(pfupdate_of_nothing_new)
    ->Name("pfupdate_of_nothing_new/stock")
    ->Unit(benchmark::kMicrosecond);

void parse_descriptor(benchmark::State &state)
{
    FILE *file = tmpfile();
    const std::string text = document(kPf, state.range(0));
    fwrite(text.data(), 1, text.size(), file);
    fflush(file);
    for (auto _ : state) {
        Pf *pf = nullptr;
        rewind(file);
        if (pfinfd(fileno(file), &pf) != 0)
            state.SkipWithError("wrong answer");
        pffree(pf);
    }
    count_values(state, state.range(0));
    fclose(file);
}
BENCHMARK(parse_descriptor)
    ->Name("parse_descriptor/stock")
    ->Arg(kSmall)
    ->Arg(kLarge)
    ->Unit(benchmark::kMicrosecond);

// ---- One value of many megabytes: as plain text, escaped, and as a literal ----

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
BENCHMARK_CAPTURE(parse_long_value, plain, "k ", "some plain text ", "\n")
    ->Name("parse_long_plain/stock")
    ->Arg(1)
    ->Arg(16);
BENCHMARK_CAPTURE(parse_long_value, escaped, "k ", "\\#", "\n")
    ->Name("parse_long_escaped/stock")
    ->Arg(1)
    ->Arg(16);
BENCHMARK_CAPTURE(parse_long_value, literal, "k &Literal{\n", "some { literal } text\n", "}\n")
    ->Name("parse_long_literal/stock")
    ->Arg(1)
    ->Arg(16);
BENCHMARK_CAPTURE(parse_long_value, here_document, "k &Literal\"E\n", "some \"literal\" text\n",
                  "\"E\n")
    ->Name("parse_long_here_document/stock")
    ->Arg(1)
    ->Arg(16);

// ---- Time per value of small and large documents ----
//
// The parse alone, without the freeing, in two settings of malloc. By default malloc gives the
// pages of a large tree back to the system and takes them again for the next tree. With the
// pages kept, the difference between small and large documents is the parse's own. These run
// last, because the setting stays.

// The processor time of this process, because other processes may run beside it.
double processor_time()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void linear(benchmark::State &state, bool keep_pages)
{
    if (keep_pages) {
        mallopt(M_TRIM_THRESHOLD, 2'000'000'000);
        mallopt(M_MMAP_THRESHOLD, 2'000'000'000);
    }
    const std::string text = document(kPf, state.range(0));
    double best = 1e9;
    for (auto _ : state) {
        Pf *pf = nullptr;
        const double start = processor_time();
        pfcompile_counted(text.data(), static_cast<long>(text.size()), &pf);
        const double took = processor_time() - start;
        best = std::min(best, took);
        state.SetIterationTime(took);
        pffree(pf);
    }
    count_values(state, state.range(0));
    const auto values = static_cast<double>(state.range(0) * kValues);
    state.counters["best_ns_per_value"] = best * 1e9 / values;
}
BENCHMARK_CAPTURE(linear, pages_as_they_come, false)
    ->Name("linear_parse/stock")
    ->Arg(kSmall)
    ->Arg(kLarge)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(linear, pages_kept, true)
    ->Name("linear_parse_pages_kept/stock")
    ->Arg(kSmall)
    ->Arg(kLarge)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
