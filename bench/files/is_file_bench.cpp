// Listings against scandir, and the walk of a tree of 50,000 files against nftw
// and the standard library's iterator. Everybody takes one status per entry.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "stock.h"

namespace {

namespace fs = std::filesystem;

// A directory with files in subdirectories, removed when the program ends.
class Tree {
public:
    Tree(int dirs, int files_each) : dirs_(dirs), files_each_(files_each)
    {
        std::string name = (fs::temp_directory_path() / "stock_bench.XXXXXX").string();
        path_ = mkdtemp(name.data());
        for (int d = 0; d < dirs; ++d) {
            const std::string dir = path_ + "/directory" + std::to_string(d);
            fs::create_directory(dir);
            for (int f = 0; f < files_each; ++f)
                close(open((dir + "/file" + std::to_string(f) + ".dat").c_str(), O_CREAT, 0644));
        }
    }
    ~Tree()
    {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    Tree(const Tree &) = delete;
    Tree &operator=(const Tree &) = delete;

    const std::string &path() const { return path_; }
    std::string first() const { return path_ + "/directory0"; }
    int64_t entries() const { return int64_t{dirs_} * files_each_ + dirs_; }

private:
    int dirs_, files_each_;
    std::string path_;
};

const Tree &tree()
{
    static const Tree planted(500, 100);
    return planted;
}

int64_t link_counts = 0;  // the sum of all link counts: every walk must take each status

int add_stock(const char *, const struct stat *status, void *argument)
{
    *static_cast<int64_t *>(argument) += status->st_nlink;
    return 1;
}

int64_t walk_stock(const char *path)
{
    int64_t links = 0;
    const int entries = fstraverse(path, 0, add_stock, &links);
    link_counts += links;
    return entries;
}

int64_t walk_nftw(const char *path)
{
    static int64_t entries = 0;
    entries = -1;  // the root is counted, too
    const auto add = [](const char *, const struct stat *status, int, struct FTW *) {
        link_counts += static_cast<int64_t>(status->st_nlink);
        ++entries;
        return 0;
    };
    nftw(path, add, 64, 0);
    return entries;
}

int64_t walk_iterator(const char *path)
{
    int64_t entries = 0;
    const auto follow = fs::directory_options::follow_directory_symlink;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(path, follow)) {
        struct stat status;
        if (stat(entry.path().c_str(), &status) == 0)
            link_counts += static_cast<int64_t>(status.st_nlink);
        ++entries;
    }
    return entries;
}

void walk(benchmark::State &state, int64_t (*run)(const char *))
{
    const char *path = tree().path().c_str();
    if (run(path) != tree().entries())
        return state.SkipWithError("wrong answer");
    for (auto _ : state)
        benchmark::DoNotOptimize(run(path));
    state.SetItemsProcessed(state.iterations() * tree().entries());
}

int64_t list_stock(const char *dir)
{
    Tbl *names = dirfiles(dir, 0);
    const int64_t count = names->count;
    freetbl(names, std::free);
    return count;
}

int64_t list_scandir(const char *dir)
{
    struct dirent **names = nullptr;
    const auto is_name = [](const struct dirent *entry) {
        return int(entry->d_name[0] != '.' ||
                   (entry->d_name[1] && (entry->d_name[1] != '.' || entry->d_name[2])));
    };
    const int count = scandir(dir, &names, is_name, alphasort);
    for (int i = 0; i < count; ++i)
        std::free(names[i]);
    std::free(names);
    return count;
}

void list(benchmark::State &state, int64_t (*run)(const char *))
{
    const auto files = static_cast<int>(state.range(0));
    const Tree one(1, files);
    const std::string dir = one.first();
    if (run(dir.c_str()) != files)
        return state.SkipWithError("wrong answer");
    for (auto _ : state)
        benchmark::DoNotOptimize(run(dir.c_str()));
    state.SetItemsProcessed(state.iterations() * files);
}

BENCHMARK_CAPTURE(walk, stock, walk_stock)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(walk, nftw, walk_nftw)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(walk, recursive_directory_iterator, walk_iterator)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(list, stock, list_stock)->Arg(10)->Arg(1000)->Arg(50000);
BENCHMARK_CAPTURE(list, scandir, list_scandir)->Arg(10)->Arg(1000)->Arg(50000);

}  // namespace
