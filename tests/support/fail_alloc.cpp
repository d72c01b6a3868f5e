// Replaces the C library's allocation functions for the whole program.

#include "support/fail_alloc.h"

#include <atomic>
#include <cerrno>
#include <cstdint>

extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
}

namespace {

thread_local long successes_left = -1;  // negative: no limit
std::atomic<std::size_t> largest{SIZE_MAX};

bool refused(std::size_t bytes)
{
    if (bytes >= largest || successes_left == 0) {
        errno = ENOMEM;
        return true;
    }
    if (successes_left > 0)
        --successes_left;
    return false;
}

}  // namespace

void fail_allocations_after(long successes)
{
    successes_left = successes;
}
void fail_allocations_from(std::size_t bytes)
{
    largest = bytes;
}

extern "C" {

void *malloc(size_t bytes)
{
    return refused(bytes) ? nullptr : __libc_malloc(bytes);
}

void *calloc(size_t count, size_t size)
{
    size_t bytes = 0;
    if (__builtin_mul_overflow(count, size, &bytes))
        bytes = SIZE_MAX;
    return refused(bytes) ? nullptr : __libc_calloc(count, size);
}

void *realloc(void *block, size_t bytes)
{
    return refused(bytes) ? nullptr : __libc_realloc(block, bytes);
}
}
