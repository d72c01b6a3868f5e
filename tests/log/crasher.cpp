// A program that crashes: usage: crasher SIGNAL SITUATION [FILE].
//
// It wraps malloc in a lock of its own, so that after a crash inside malloc every use of the
// heap blocks.

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include "deviants.h"
#include "stock.h"
#include "stock/elog_fault.h"

namespace {

volatile int Zero = 0;
int How;
bool Crash_in_malloc = false;
bool Stay_in_malloc = false;
bool In_a_hurry = false;  // an end is limited to one second
pthread_mutex_t Heap_lock = PTHREAD_MUTEX_INITIALIZER;

}  // namespace

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void __libc_free(void *block);
}

namespace crasher {

// Causes the signal: by a fault where it has one, else by raising it.
[[gnu::noinline]] void crash_here(int sig)
{
    switch (sig) {
    case SIGSEGV: *reinterpret_cast<volatile int *>(static_cast<intptr_t>(Zero)) = 1; break;
    case SIGFPE: {
#if defined(__x86_64__)
        volatile int result = 7 / Zero;
        (void)result;
#endif
        break;
    }
    case SIGBUS: {
        // The file is empty, and so shorter than the mapping.
        char name[] = "/tmp/crasher.XXXXXX";
        const int fd = mkstemp(name);
        unlink(name);
        void *memory = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        *static_cast<volatile char *>(memory) = 1;
        break;
    }
#if defined(__x86_64__)
    case SIGILL: asm volatile("ud2"); break;
    case SIGTRAP: asm volatile("int3"); break;
#endif
    default: break;
    }
    raise(sig);
    asm volatile("");  // keeps this function on the stack: raise is not its last call
}

class Heap {
public:
    Heap() { pthread_mutex_lock(&Heap_lock); }
    ~Heap() { pthread_mutex_unlock(&Heap_lock); }
};

}  // namespace crasher

extern "C" {

void *malloc(size_t size)
{
    const crasher::Heap heap;
    if (Crash_in_malloc)
        crasher::crash_here(How);
    while (Stay_in_malloc)
        pause();
    return __libc_malloc(size);
}

void *calloc(size_t count, size_t size)
{
    const crasher::Heap heap;
    return __libc_calloc(count, size);
}

void *realloc(void *block, size_t size)
{
    const crasher::Heap heap;
    return __libc_realloc(block, size);
}

void free(void *block)
{
    const crasher::Heap heap;
    __libc_free(block);
}

int setitimer(__itimer_which_t which, const struct itimerval *timer, struct itimerval *old) noexcept
{
    using Real = int(__itimer_which_t, const struct itimerval *, struct itimerval *);
    static const auto real = reinterpret_cast<Real *>(dlsym(RTLD_NEXT, "setitimer"));
    struct itimerval set = *timer;
    if (In_a_hurry && set.it_value.tv_sec == 10)
        set.it_value.tv_sec = 1;
    return real(which, &set, old);
}

}  // extern "C"

namespace crasher {

void plainly()
{
    crash_here(How);
}

// Uses up the stack of this thread but for a little.
[[gnu::noinline]] void with_a_full_stack(const char *end)
{
    volatile char frame[512];
    frame[0] = 1;
    if (How != SIGSEGV && reinterpret_cast<const char *>(const_cast<char *>(frame)) - end < 16384)
        crash_here(How);
    if (frame[0] == 1)
        with_a_full_stack(end);
    frame[1] = 1;
}

void overflowing()
{
    pthread_attr_t attributes;
    void *end = nullptr;
    size_t size = 0;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstack(&attributes, &end, &size);
    with_a_full_stack(static_cast<const char *>(end));
}

void inside_malloc()
{
    Crash_in_malloc = true;
    void *volatile block = malloc(10);  // volatile: a compiler may omit a block that is only freed
    free(block);
}

// Overwrites malloc's own records of free memory.
void with_a_broken_heap()
{
    char *block = static_cast<char *>(malloc(1 << 16));  // the last block of the heap
    memset(block, 0xa5, static_cast<size_t>(static_cast<char *>(sbrk(0)) - block));
    if (How == SIGABRT)
        block = static_cast<char *>(malloc(1 << 17));  // malloc finds out and aborts
    *block = 1;
    crash_here(How);
}

int callback_that_crashes(int, const char *, Tbl *)
{
    crash_here(How);
    return 0;
}

void holding_lock()
{
    elog_set(ELOG_CALLBACK_FN, 0, callback_that_crashes);
    elog_complain(0, "this does not come out");
}

std::atomic<bool> Lock_is_held{false};

int callback_that_waits(int, const char *, Tbl *)
{
    while (!Lock_is_held.exchange(true))
        for (;;)
            pause();
    return 0;
}

int callback_that_takes_a_while(int, const char *, Tbl *)
{
    if (!Lock_is_held.exchange(true))
        usleep(300000);
    return 0;
}

void *report(void *)
{
    elog_complain(0, "a complaint");
    return nullptr;
}

void while_another_reports(Elog_callback callback)
{
    elog_set(ELOG_CALLBACK_FN, 0, callback);
    pthread_t thread;
    pthread_create(&thread, nullptr, report, nullptr);
    while (!Lock_is_held)
        usleep(1000);
    crash_here(How);
}

void while_another_holds_lock()
{
    while_another_reports(callback_that_waits);
}

void while_another_holds_lock_for_a_moment()
{
    while_another_reports(callback_that_takes_a_while);
}

void run_in_threads(int count, void (*function)())
{
    pthread_t threads[2];
    static void (*run)();
    run = function;
    for (int i = 0; i < count; ++i)
        pthread_create(
            &threads[i], nullptr,
            +[](void *) -> void * {
                elog_mark();
                run();
                return nullptr;
            },
            nullptr);
    for (int i = 0; i < count; ++i)
        pthread_join(threads[i], nullptr);
}

void in_a_thread()
{
    run_in_threads(1, plainly);
}

void in_a_thread_overflowing()
{
    run_in_threads(1, overflowing);
}

void in_a_thread_inside_malloc()
{
    run_in_threads(1, inside_malloc);
}

pthread_barrier_t Both;

void in_two_threads()
{
    pthread_barrier_init(&Both, nullptr, 2);
    run_in_threads(2, [] {
        pthread_barrier_wait(&Both);
        crash_here(How);
    });
}

// The report itself causes a second fault.
int callback_of_fault(int severity, const char *, Tbl *)
{
    if (severity == 6)
        crash_here(How == SIGSEGV ? SIGFPE : SIGSEGV);
    return 0;
}

void twice()
{
    elog_set(ELOG_CALLBACK_FN, 0, callback_of_fault);
    crash_here(How);
}

int callback_of_the_same_fault(int severity, const char *, Tbl *)
{
    if (severity == 6)
        crash_here(How);
    return 0;
}

void again()
{
    elog_set(ELOG_CALLBACK_FN, 0, callback_of_the_same_fault);
    crash_here(How);
}

int callback_that_blocks(int severity, const char *, Tbl *)
{
    while (severity == 6)
        pause();
    return 0;
}

void blocking()
{
    elog_set(ELOG_CALLBACK_FN, 0, callback_that_blocks);
    crash_here(How);
}

void redirected(int fd)
{
    dup2(fd, STDERR_FILENO);
    crash_here(How);
}

void without_stderr()
{
    close(STDERR_FILENO);
    crash_here(How);
}

void into_a_closed_pipe()
{
    int fds[2];
    if (pipe(fds) != 0)
        exit(9);
    close(fds[0]);
    redirected(fds[1]);
}

void into_a_full_pipe()
{
    int fds[2];
    if (pipe2(fds, O_NONBLOCK) != 0)
        exit(9);
    char block[4096] = "";
    while (write(fds[1], block, sizeof block) > 0) {
    }
    fcntl(fds[1], F_SETFL, 0);
    redirected(fds[1]);
}

void onto_a_full_disk()
{
    redirected(open("/dev/full", O_WRONLY));
}

const char *File;

void beyond_the_size_of_a_file()
{
    const rlimit limit = {100, 100};
    setrlimit(RLIMIT_FSIZE, &limit);
    redirected(open(File, O_WRONLY | O_CREAT | O_APPEND, 0600));
}

void exiting()
{
    atexit(plainly);
    exit(0);
}

void with_many_messages()
{
    for (int i = 0; i < 48; ++i)
        elog_log(0, "message %d", i);
    crash_here(How);
}

// The program's own handler of SIGABRT never returns.
void refusing_to_abort()
{
    signal(
        SIGABRT, +[](int) {
            for (;;)
                pause();
        });
    crash_here(How);
}

// The report blocks before it has printed anything.
int callback_that_blocks_at_once(int, const char *, Tbl *)
{
    for (;;)
        pause();
}

void blocking_at_once()
{
    elog_set(ELOG_CALLBACK_FN, 0, callback_that_blocks_at_once);
    crash_here(How);
}

// While the report is made, another thread faults. It then waits for the process's end.
std::atomic<bool> Second_is_due{false};

int callback_of_a_fault_elsewhere(int severity, const char *, Tbl *)
{
    if (severity == 6) {
        Second_is_due = true;
        usleep(500000);
    }
    return 0;
}

void while_it_is_reported(int second)
{
    static int Second;
    Second = second;
    elog_set(ELOG_CALLBACK_FN, 0, callback_of_a_fault_elsewhere);
    pthread_t thread;
    pthread_create(
        &thread, nullptr,
        +[](void *) -> void * {
            while (!Second_is_due)
                usleep(1000);
            crash_here(Second);
            return nullptr;
        },
        nullptr);
    crash_here(How);
}

void while_another_crashes()
{
    while_it_is_reported(How == SIGSEGV ? SIGFPE : SIGSEGV);
}

// The report sets no handler of its own for this signal, so the log's is called.
void while_another_is_signalled()
{
    while_it_is_reported(SIGUSR1);
}

// ---- Ends that a timer begins ----

void dying_inside_malloc()
{
    In_a_hurry = true;
    die_soon(0.05);
    Stay_in_malloc = true;
    void *volatile block = malloc(10);  // as above
    free(block);
}

void dying_inside_malloc_by_grace()
{
    static volatile int flag;
    In_a_hurry = true;
    setup_signals(&flag, nullptr, 1);
    raise(SIGTERM);
    Stay_in_malloc = true;
    void *volatile block = malloc(10);  // as above
    free(block);
}

// The alarm may interrupt this anywhere.
void dying_at_work()
{
    In_a_hurry = true;
    die_soon(atof(File));
    for (;;) {
        void *volatile block = malloc(100);
        free(block);
        setenv("TZ", "UTC", 1);
        tzset();
    }
}

// clang-format off
const struct {
    const char *name;
    void (*crash)();
} kSituations[] = {
    {"plain",           plainly},
    {"overflow",        overflowing},
    {"malloc",          inside_malloc},
    {"heap",            with_a_broken_heap},
    {"lock",            holding_lock},
    {"otherlock",       while_another_holds_lock},
    {"moment",          while_another_holds_lock_for_a_moment},
    {"thread",          in_a_thread},
    {"threadoverflow",  in_a_thread_overflowing},
    {"threadmalloc",    in_a_thread_inside_malloc},
    {"two",             in_two_threads},
    {"twice",           twice},
    {"again",           again},
    {"block",           blocking},
    {"closed",          without_stderr},
    {"closedpipe",      into_a_closed_pipe},
    {"fullpipe",        into_a_full_pipe},
    {"full",            onto_a_full_disk},
    {"fsize",           beyond_the_size_of_a_file},
    {"exit",            exiting},
    {"many",            with_many_messages},
    {"noabort",         refusing_to_abort},
    {"blockatonce",     blocking_at_once},
    {"elsewhere",       while_another_crashes},
    {"signalelsewhere", while_another_is_signalled},
    {"diemalloc",       dying_inside_malloc},
    {"gracemalloc",     dying_inside_malloc_by_grace},
    {"die",             dying_at_work},
};
// clang-format on

}  // namespace crasher

int main(int argc, char **argv)
{
    if (argc < 3 || str2sig(argv[1], &How) != 0)
        return 9;
    const rlimit no_core = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    crasher::File = argv[3];
    elog_init(argc, argv);
    elog_log(0, "waiting message");
    for (const auto &situation : crasher::kSituations)
        if (!strcmp(situation.name, argv[2]))
            situation.crash();
    return 8;
}
