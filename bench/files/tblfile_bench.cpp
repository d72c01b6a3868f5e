// Appending records of 64 bytes to a list that lives in a file against writing
// the same records, one system call each or through a stream.

#include "stock/tblfile.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kSize = 64;

struct Record {
    int64_t number;
    char rest[kSize - sizeof(int64_t)];
};

Record record_of(int64_t i)
{
    Record record;
    std::memset(&record, 'r', sizeof record);
    record.number = i;
    return record;
}

// The size of the file, or -1. Removes the file.
int64_t remove_file(const char *path)
{
    struct stat status;
    const int64_t size = stat(path, &status) == 0 ? status.st_size : -1;
    unlink(path);
    return size;
}

bool with_list(const char *path, int64_t n)
{
    Tbl *tbl = nullptr;
    if (filetbl(path, nullptr, 10, nullptr, kSize, &tbl) != 0)
        return false;
    for (int64_t i = 0; i < n; ++i) {
        const Record record = record_of(i);
        pushtbl(tbl, &record);
    }
    const bool right =
        tbl->count == n && static_cast<Record *>(gettbl(tbl, n - 1))->number == n - 1;
    freetbl(tbl, nullptr);
    return right;
}

bool with_write(const char *path, int64_t n)
{
    const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    bool right = true;
    for (int64_t i = 0; i < n; ++i) {
        const Record record = record_of(i);
        right = write(fd, &record, sizeof record) == kSize && right;
    }
    return close(fd) == 0 && right;
}

bool with_fwrite(const char *path, int64_t n)
{
    FILE *stream = std::fopen(path, "w");
    bool right = stream != nullptr;
    for (int64_t i = 0; right && i < n; ++i) {
        const Record record = record_of(i);
        right = std::fwrite(&record, sizeof record, 1, stream) == 1;
    }
    return stream && std::fclose(stream) == 0 && right;
}

void append(benchmark::State &state, bool (*run)(const char *path, int64_t n))
{
    char path[] = "stock_bench.XXXXXX";
    close(mkstemp(path));
    unlink(path);
    for (auto _ : state) {
        const bool right = run(path, state.range(0));
        state.PauseTiming();
        if (remove_file(path) < state.range(0) * kSize || !right)
            state.SkipWithError("wrong answer");
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetBytesProcessed(state.iterations() * state.range(0) * kSize);
}

}  // namespace

BENCHMARK_CAPTURE(append, stock, with_list)->Arg(1000)->Arg(1'000'000)->UseRealTime();
BENCHMARK_CAPTURE(append, write, with_write)->Arg(1000)->Arg(1'000'000)->UseRealTime();
BENCHMARK_CAPTURE(append, fwrite, with_fwrite)->Arg(1000)->Arg(1'000'000)->UseRealTime();
