// Dumps and their readers, numbers to text and back, beside printf and scanf. How
// the command stock dump compares with others is timed by bench/dumps/dump_race.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "stock.h"

namespace {

constexpr int kBytes = 1 << 20;

std::string noise()
{
    std::string bytes(kBytes, 0);
    uint32_t state = 1;
    for (char &c : bytes) {
        state = state * 1664525U + 1013904223U;
        c = static_cast<char>(state >> 24);
    }
    return bytes;
}

void with_hexdump(FILE *stream, const std::string &bytes)
{
    hexdump(stream, bytes.data(), static_cast<int>(bytes.size()));
}

void with_printf(FILE *stream, const std::string &bytes)
{
    for (std::size_t at = 0; at < bytes.size(); at += 16) {
        std::fprintf(stream, "\t%08zx  ", at);
        for (std::size_t i = at; i < at + 16; ++i)
            std::fprintf(stream, "%02x%s", static_cast<unsigned char>(bytes[i]), i % 2 ? " " : "");
        for (std::size_t i = at; i < at + 16; ++i)
            std::fputc(bytes[i] >= 32 && bytes[i] <= 126 ? bytes[i] : '_', stream);
        std::fputc('\n', stream);
    }
}

std::string dump_of(const std::string &bytes, void (*run)(FILE *, const std::string &))
{
    char *text = nullptr;
    std::size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    run(stream, bytes);
    std::fclose(stream);
    std::string dump(text, size);
    std::free(text);
    return dump;
}

void dump_bytes(benchmark::State &state, void (*run)(FILE *, const std::string &))
{
    const std::string bytes = noise();
    if (dump_of(bytes, run) != dump_of(bytes, with_hexdump))
        return state.SkipWithError("wrong answer");
    FILE *stream = std::fopen("/dev/null", "w");
    for (auto _ : state)
        run(stream, bytes);
    std::fclose(stream);
    state.SetBytesProcessed(state.iterations() * kBytes);
}
BENCHMARK_CAPTURE(dump_bytes, stock, with_hexdump);
BENCHMARK_CAPTURE(dump_bytes, printf, with_printf);

int with_read_hexdump(FILE *stream, unsigned char *buffer)
{
    return read_hexdump(stream, buffer, kBytes);
}

int with_scanf(FILE *stream, unsigned char *buffer)
{
    char line[256];
    int count = 0;
    while (std::fgets(line, sizeof line, stream)) {
        const char *at = line + 11;
        unsigned pair[2];
        for (int i = 0; i < 8 && std::sscanf(at, "%2x%2x", pair, pair + 1) == 2; ++i, at += 5) {
            buffer[count++] = static_cast<unsigned char>(pair[0]);
            buffer[count++] = static_cast<unsigned char>(pair[1]);
        }
    }
    return count;
}

void read_bytes(benchmark::State &state, int (*run)(FILE *, unsigned char *))
{
    const std::string bytes = noise();
    std::vector<unsigned char> buffer(kBytes);
    FILE *stream = std::tmpfile();
    with_hexdump(stream, bytes);
    std::rewind(stream);
    if (run(stream, buffer.data()) != kBytes ||
        std::memcmp(buffer.data(), bytes.data(), kBytes) != 0)
        state.SkipWithError("wrong answer");
    for (auto _ : state) {
        std::rewind(stream);
        benchmark::DoNotOptimize(run(stream, buffer.data()));
    }
    std::fclose(stream);
    state.SetBytesProcessed(state.iterations() * kBytes);
}
BENCHMARK_CAPTURE(read_bytes, stock, with_read_hexdump);
BENCHMARK_CAPTURE(read_bytes, scanf, with_scanf);

// Numbers of all sizes as text, and back.

const std::vector<std::string> &numbers()
{
    static const std::vector<std::string> texts = [] {
        std::vector<std::string> made;
        uint32_t state = 1;
        for (int i = 0; i < 1000; ++i) {
            state = state * 1664525U + 1013904223U;
            char text[64];
            std::snprintf(text, sizeof text, "%.*g", i % 15 + 1,
                          (state >> 8) * (i % 3 ? 1.0 / 4096 : 1e7));
            made.emplace_back(text);
        }
        return made;
    }();
    return texts;
}

void read_numbers(benchmark::State &state, double (*run)(const char *, char **))
{
    for (const std::string &text : numbers())
        if (run(text.c_str(), nullptr) != std::strtod(text.c_str(), nullptr))
            return state.SkipWithError("wrong answer");
    for (auto _ : state)
        for (const std::string &text : numbers())
            benchmark::DoNotOptimize(run(text.c_str(), nullptr));
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(numbers().size()));
}
BENCHMARK_CAPTURE(read_numbers, stock, fix_strtod);
BENCHMARK_CAPTURE(read_numbers, strtod, std::strtod);

char *with_snprintf(char *buffer, double x)
{
    std::snprintf(buffer, STRDBL_SIZE, "%.15g", x);
    return buffer;
}

void write_numbers(benchmark::State &state, char *(*run)(char *, double))
{
    std::vector<double> values;
    char buffer[STRDBL_SIZE];
    for (const std::string &text : numbers())
        values.push_back(std::strtod(text.c_str(), nullptr));
    for (const double x : values)
        if (std::abs(std::strtod(run(buffer, x), nullptr) - x) > 1e-14 * x)
            return state.SkipWithError("wrong answer");
    for (auto _ : state)
        for (const double x : values)
            benchmark::DoNotOptimize(run(buffer, x));
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(values.size()));
}
BENCHMARK_CAPTURE(write_numbers, stock, strdbl);
BENCHMARK_CAPTURE(write_numbers, snprintf, with_snprintf);

}  // namespace
