// The text functions beside those of the C library and std::string.

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include <benchmark/benchmark.h>
#include <regex.h>

#include "stock.h"

namespace {

// Splitting: a line of words of three to nine letters.

std::string words(int64_t count)
{
    std::string text;
    for (int64_t i = 0; i < count; ++i)
        text += std::string(static_cast<std::size_t>(3 + i * 5 % 7), 'w') + " ";
    return text;
}

int64_t with_split(char *text)
{
    Tbl *fields = split(text, ' ');
    const int64_t count = fields->count;
    freetbl(fields, nullptr);
    return count;
}

// The same result: a list of the fields.
int64_t with_strtok_r(char *text)
{
    Tbl *fields = newtbl(5);
    char *rest = nullptr;
    for (char *field = strtok_r(text, " ", &rest); field; field = strtok_r(nullptr, " ", &rest))
        pushtbl(fields, field);
    const int64_t count = fields->count;
    freetbl(fields, nullptr);
    return count;
}

void split_line(benchmark::State &state, int64_t (*run)(char *))
{
    const std::string text = words(state.range(0));
    std::string work = text;
    if (run(work.data()) != state.range(0))
        return state.SkipWithError("wrong answer");
    for (auto _ : state) {
        work = text;  // both write into the text
        benchmark::DoNotOptimize(run(work.data()));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK_CAPTURE(split_line, stock, with_split)->Range(8, 4096);
BENCHMARK_CAPTURE(split_line, strtok_r, with_strtok_r)->Range(8, 4096);

// Building a text from pieces of 20 characters.

constexpr char kPiece[] = "twenty characters it";

std::size_t with_pushstr(int64_t pieces)
{
    void *stack = nullptr;
    for (int64_t i = 0; i < pieces; ++i)
        pushstr(&stack, kPiece);
    char *text = popstr(&stack, 1);
    benchmark::DoNotOptimize(text);
    const std::size_t length = std::strlen(text);
    std::free(text);
    return length;
}

std::size_t with_string(int64_t pieces)
{
    std::string text;
    for (int64_t i = 0; i < pieces; ++i)
        text.append(kPiece);
    benchmark::DoNotOptimize(text.data());
    return std::strlen(text.c_str());
}

void build_text(benchmark::State &state, std::size_t (*run)(int64_t))
{
    const auto length = static_cast<std::size_t>(state.range(0)) * (sizeof kPiece - 1);
    if (run(state.range(0)) != length)
        return state.SkipWithError("wrong answer");
    for (auto _ : state)
        benchmark::DoNotOptimize(run(state.range(0)));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(length));
}
BENCHMARK_CAPTURE(build_text, stock, with_pushstr)->Range(8, 32768);
BENCHMARK_CAPTURE(build_text, std_string, with_string)->Range(8, 32768);

// Matching a host name against a pattern again and again.

constexpr char kPattern[] = "[a-z]+[0-9]*(\\.[a-z]+)*";
constexpr char kHost[] = "server12.example.org";

int with_strmatches(Hook **hook)
{
    return strmatches(kHost, kPattern, hook);
}

int with_regcomp(Hook **)
{
    regex_t compiled;
    regmatch_t match[1];
    regcomp(&compiled, kPattern, REG_EXTENDED);
    const bool found = regexec(&compiled, kHost, 1, match, 0) == 0;
    regfree(&compiled);
    return found && match[0].rm_so == 0 && kHost[match[0].rm_eo] == 0;
}

void match_text(benchmark::State &state, int (*run)(Hook **))
{
    Hook *hook = nullptr;
    if (run(&hook) != 1)
        return state.SkipWithError("wrong answer");
    for (auto _ : state)
        benchmark::DoNotOptimize(run(&hook));
    free_hook(&hook);
}
BENCHMARK_CAPTURE(match_text, stock, with_strmatches);
BENCHMARK_CAPTURE(match_text, regcomp_each_time, with_regcomp);

// Trimming a line that is mostly text.

void with_strtrim(char *text)
{
    strtrim(text);
}

void with_string_erase(char *text)
{
    std::string copy = text;
    copy.erase(copy.find_last_not_of(" \t\n") + 1);
    copy.erase(0, copy.find_first_not_of(" \t\n"));
    std::memcpy(text, copy.c_str(), copy.size() + 1);
}

void trim_line(benchmark::State &state, void (*run)(char *))
{
    const auto length = static_cast<std::size_t>(state.range(0));
    const std::string text = "  \t" + std::string(length, 'x') + "  \n";
    std::string work = text;
    run(work.data());
    if (work.c_str() != std::string(length, 'x'))
        return state.SkipWithError("wrong answer");
    for (auto _ : state) {
        std::memcpy(work.data(), text.c_str(), text.size() + 1);
        run(work.data());
        benchmark::DoNotOptimize(work.data());
    }
}
BENCHMARK_CAPTURE(trim_line, stock, with_strtrim)->Arg(10)->Arg(1000);
BENCHMARK_CAPTURE(trim_line, std_string, with_string_erase)->Arg(10)->Arg(1000);

// Reading a file of lines of 60 characters.

int64_t with_intactline(FILE *stream)
{
    char *line = nullptr;
    int64_t size = 0;
    int64_t bytes = 0;
    while (intactline(stream, &line, &size))
        bytes += line[0];
    std::free(line);
    return bytes;
}

int64_t with_getline(FILE *stream)
{
    char *line = nullptr;
    std::size_t size = 0;
    int64_t bytes = 0;
    for (ssize_t n = 0; (n = getline(&line, &size, stream)) > 0;) {
        if (line[n - 1] == '\n')
            line[n - 1] = 0;
        bytes += line[0];
    }
    std::free(line);
    return bytes;
}

void read_lines(benchmark::State &state, int64_t (*run)(FILE *))
{
    constexpr int64_t kLines = 10'000;
    FILE *stream = std::tmpfile();
    for (int64_t i = 0; i < kLines; ++i)
        std::fprintf(stream, "%s\n", std::string(60, 'A').c_str());
    std::rewind(stream);
    if (run(stream) != kLines * 'A')
        state.SkipWithError("wrong answer");
    for (auto _ : state) {
        std::rewind(stream);
        benchmark::DoNotOptimize(run(stream));
    }
    state.SetItemsProcessed(state.iterations() * kLines);
    std::fclose(stream);
}
BENCHMARK_CAPTURE(read_lines, stock, with_intactline);
BENCHMARK_CAPTURE(read_lines, getline, with_getline);

}  // namespace
