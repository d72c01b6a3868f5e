// Cleaning paths: as text against the standard library's, and with links followed
// against the system's realpath.

#include "stock/path.h"

#include <cstdlib>
#include <filesystem>
#include <string>

#include <benchmark/benchmark.h>

namespace {

namespace fs = std::filesystem;

// A directory `levels` deep, a straight path to it and one with "." and "..".
struct Tree {
    explicit Tree(int64_t levels)
    {
        std::string name = (fs::temp_directory_path() / "stock.XXXXXX").string();
        top = fs::canonical(mkdtemp(name.data()));
        straight = crooked = top;
        for (int64_t i = 0; i < levels; ++i) {
            straight += "/level" + std::to_string(i);
            crooked += "/./level" + std::to_string(i);
        }
        fs::create_directories(straight + "/side");
        crooked += "/side/..";
    }
    ~Tree() { fs::remove_all(top); }

    std::string top, straight, crooked;
};

std::string with_cleanpath(const std::string &path)
{
    char clean[1024];
    cleanpath(path.c_str(), 0, clean);
    return clean;
}

std::string with_cleanpath_and_links(const std::string &path)
{
    char clean[1024];
    cleanpath(path.c_str(), CLEANPATH_LINKS, clean);
    return clean;
}

std::string with_lexically_normal(const std::string &path)
{
    std::string clean = fs::path(path).lexically_normal().string();
    if (clean.ends_with('/'))
        clean.pop_back();
    return clean;
}

// cleanpath also tells whether every directory on the way exists.
std::string with_lexically_normal_and_exists(const std::string &path)
{
    const bool there = fs::exists(fs::path(path));
    benchmark::DoNotOptimize(there);
    return with_lexically_normal(path);
}

std::string with_realpath(const std::string &path)
{
    char clean[PATH_MAX];
    return realpath(path.c_str(), clean) ? clean : "";
}

void clean_path(benchmark::State &state, std::string (*run)(const std::string &))
{
    const Tree tree(state.range(0));
    if (run(tree.crooked) != tree.straight)
        return state.SkipWithError("wrong answer");
    for (auto _ : state)
        benchmark::DoNotOptimize(run(tree.crooked));
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

BENCHMARK_CAPTURE(clean_path, stock, with_cleanpath)->Arg(2)->Arg(8)->Arg(32);
BENCHMARK_CAPTURE(clean_path, lexically_normal, with_lexically_normal)->Arg(2)->Arg(8)->Arg(32);
BENCHMARK_CAPTURE(clean_path, lexically_normal_and_exists, with_lexically_normal_and_exists)
    ->Arg(2)
    ->Arg(8)
    ->Arg(32);
BENCHMARK_CAPTURE(clean_path, links_stock, with_cleanpath_and_links)
    ->Name("follow_links/stock")
    ->Arg(2)
    ->Arg(8)
    ->Arg(32);
BENCHMARK_CAPTURE(clean_path, links_realpath, with_realpath)
    ->Name("follow_links/realpath")
    ->Arg(2)
    ->Arg(8)
    ->Arg(32);
