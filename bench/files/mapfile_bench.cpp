// Finding a mapped file in the cache, against mapping it each time.

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "stock.h"

namespace {

constexpr int kSize = 10000;

// Files of kSize bytes, removed by the destructor.
class FilesOnDisk {
public:
    explicit FilesOnDisk(int64_t count)
    {
        char name[] = "/tmp/stock_bench.XXXXXX";
        dir_ = mkdtemp(name);
        for (int64_t i = 0; i < count; ++i) {
            paths.push_back(dir_ + "/file" + std::to_string(i));
            std::ofstream(paths.back()) << std::string(kSize, 'x');
        }
    }
    ~FilesOnDisk()
    {
        for (const std::string &path : paths)
            unlink(path.c_str());
        rmdir(dir_.c_str());
    }
    FilesOnDisk(const FilesOnDisk &) = delete;
    FilesOnDisk &operator=(const FilesOnDisk &) = delete;

    std::vector<std::string> paths;

private:
    std::string dir_;
};

int64_t with_cache(const char *path)
{
    void *address = nullptr;
    const int64_t size = mapfile(path, &address, nullptr);
    return size - (static_cast<const char *>(address)[size - 1] != 'x');
}

int64_t with_mmap(const char *path)
{
    const int fd = open(path, O_RDONLY);
    struct stat status;
    fstat(fd, &status);
    const auto size = static_cast<size_t>(status.st_size);
    void *address = mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
    close(fd);
    const int64_t result = status.st_size - (static_cast<const char *>(address)[size - 1] != 'x');
    munmap(address, size);
    return result;
}

void map(benchmark::State &state, int64_t (*run)(const char *))
{
    const FilesOnDisk files(state.range(0));
    for (const std::string &path : files.paths)
        if (run(path.c_str()) != kSize)
            return state.SkipWithError("wrong answer");
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(run(files.paths[i].c_str()));
        i = i + 1 < files.paths.size() ? i + 1 : 0;
    }
    unmaparr(nullptr);
}

BENCHMARK_CAPTURE(map, stock, with_cache)->Arg(1)->Arg(1000);
BENCHMARK_CAPTURE(map, open_mmap, with_mmap)->Arg(1)->Arg(1000);

}  // namespace
