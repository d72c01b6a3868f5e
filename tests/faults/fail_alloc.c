/*
 * Preloaded by run.py: makes allocations fail.
 *
 *     FAIL_ALLOC_AT=N      the N-th allocation of the process fails, counted from 1
 *     FAIL_ALLOC_ON=1      and so does every later one
 *     FAIL_ALLOC_COUNT=F   the file F receives the number of allocations, 8 bytes
 *
 * Children that are other programs do not fail: the variables are taken out of the
 * environment. Memory that is mapped is not counted.
 */
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t n, size_t size);
void *__libc_realloc(void *block, size_t size);
void *__libc_memalign(size_t alignment, size_t size);

static long Own, *Count = &Own, At, On;

__attribute__((constructor)) static void begin(void)
{
    const char *at = getenv("FAIL_ALLOC_AT"), *on = getenv("FAIL_ALLOC_ON");
    const char *file = getenv("FAIL_ALLOC_COUNT");
    if (file) {
        const int fd = open(file, O_RDWR | O_CLOEXEC);
        void *map = mmap(NULL, sizeof *Count, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (map != MAP_FAILED)
            Count = map;
        close(fd);
    }
    *Count = 0;
    On = on != NULL;
    At = at ? atol(at) : 0;
    unsetenv("LD_PRELOAD");
    unsetenv("FAIL_ALLOC_AT");
}

static int fails(void)
{
    const long n = __atomic_add_fetch(Count, 1, __ATOMIC_RELAXED);
    if (!At || n < At || (n > At && !On))
        return 0;
    errno = ENOMEM;
    return 1;
}

void *malloc(size_t size)
{
    return fails() ? NULL : __libc_malloc(size);
}

void *calloc(size_t n, size_t size)
{
    return fails() ? NULL : __libc_calloc(n, size);
}

void *realloc(void *block, size_t size)
{
    return fails() ? NULL : __libc_realloc(block, size);
}

void *aligned_alloc(size_t alignment, size_t size)
{
    return fails() ? NULL : __libc_memalign(alignment, size);
}

int posix_memalign(void **block, size_t alignment, size_t size)
{
    void *made = fails() ? NULL : __libc_memalign(alignment, size);
    if (!made)
        return ENOMEM;
    *block = made;
    return 0;
}
