// How the process ends inside the log.
//
// One thread ends it. Another that gets here meanwhile waits for that end, and
// the ending thread itself, back from something that runs at exit, leaves at
// once: exit is called only once.

#include "stock/elog.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <time.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/guards.h"
#include "log/asks.h"
#include "log/last_limit.h"
#include "log/log.h"

namespace stock::logging {

constinit thread_local Thread This_thread;

namespace {

std::atomic<bool> Ending{false};

constexpr int kPatience = 1000;  // hundredths of a second that another thread's end may take

void flush_all()
{
    const int result = std::fflush(nullptr);
    if (result == 0)
        return;
    char buffer[kErrorSize];
    std::fprintf(stderr, "fflush(0) failed: %ld : %s\n", static_cast<long>(result),
                 describe(errno, buffer, sizeof buffer));
}

[[noreturn]] void await_the_end()
{
    const timespec hundredth{0, 10'000'000};
    for (int i = 0; i < kPatience; ++i)
        ::nanosleep(&hundredth, nullptr);
    ::_exit(1);
}

// Makes this thread the one that ends the process; does not return to any other.
// The lock is given up: what runs at exit may wait for threads that need it.
void begin_to_end()
{
    Lock.release();
    This_thread.changing = 0;
    This_thread.owed = nullptr;
    if (This_thread.ending) {
        flush_all();
        ::_exit(1);
    }
    if (Ending.exchange(true))
        await_the_end();
    This_thread.ending = true;
}

[[noreturn]] void flush_and_exit()
{
    limit_step(kNotExited);
    flush_all();
    std::exit(1);
}

// What is left when memory runs out in the middle of saying so: the text goes
// straight to standard error. Should even its tag need memory it goes without.
[[noreturn]] void say_last_words(const char *text)
{
    const int attempt = ++This_thread.last_words;
    if (attempt > 2)
        ::_exit(1);
    char tag[kTagMax + 1] = "";
    if (attempt == 1)
        elog_expand(tag_of(kDie).text, kDie, tag, kTagMax);
    char error[kErrorSize];
    const Elog_msg msg = {.tag = tag,
                          .msg = const_cast<char *>(text),
                          .sys = describe(ENOMEM, error, sizeof error),
                          .severity = kDie,
                          .count = 1,
                          .thread = 0};
    {
        const Holding hold(Lock);
        print_batch(stderr, batch_from(0, &msg));
    }
    end_with_state();
}

}  // namespace

void end_as_owed()
{
    const KeepErrno keep;
    const auto end = This_thread.owed;
    This_thread.owed = nullptr;
    lock_order::forget();
    end();
}

void end_process()
{
    begin_to_end();
    flush_and_exit();
}

void end_with_state()
{
    This_thread.out_of_memory = nullptr;
    begin_to_end();
    limit_step(kNotSaved);
    join_bury();
    flush_and_exit();
}

}  // namespace stock::logging

using namespace stock::logging;

// Declared in base/alloc.h. A thread that runs out of memory a second time, while it reports
// the first, prints the text without the log and ends.
void stock::report_out_of_memory(const char *text)
{
    if (This_thread.out_of_memory)
        say_last_words(This_thread.out_of_memory);
    This_thread.out_of_memory = text;
    elog_die(1, "%s", text);
}

void elog_fatal(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    elog_vfail(format, args);
    va_end(args);
    end_process();
}
