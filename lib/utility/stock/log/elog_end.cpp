// How the process ends inside the log.
//
// One thread ends it. Another thread that comes here meanwhile waits for that end. When a
// function that runs at exit ends the process once more, its thread leaves at once, because
// exit may be called only once.

#include "stock/elog.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#include "base/alloc.h"
#include "base/file_size_signal.h"
#include "base/guards.h"
#include "log/asks.h"
#include "log/end.h"
#include "log/fault.h"
#include "log/log.h"

namespace stock::logging {

namespace {

constexpr int kOtherEndSeconds = 10;  // that the end by another thread may take

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
    wait_until(kOtherEndSeconds, [] { return false; });
    ::_exit(1);
}

// Makes this thread the one that ends the process. Does not return in any other thread. The
// lock is given up, because a function that runs at exit may wait for a thread that needs it.
void begin_to_end()
{
    Lock.release();
    This_thread.changes = 0;
    This_thread.owed = nullptr;
    The_end.wanted = true;
    if (This_thread.ending) {
        flush_all();
        ::_exit(1);
    }
    if (The_end.begun.exchange(true))
        await_the_end();
    This_thread.ending = true;
}

[[noreturn]] void flush_and_exit()
{
    limit_step(kNotExited);
    const FileSizeSignalBlocked blocked;  // also while the system flushes the streams at exit
    flush_all();
    std::exit(1);
}

// Called when memory runs out while that is being reported: prints the text straight to
// standard error and ends. When that needs memory too, the second attempt goes without a tag,
// and the third ends the process.
[[noreturn]] void say_last_words(const char *text)
{
    const int attempt = ++This_thread.last_words;
    if (attempt > 2)
        ::_exit(1);
    char tag[kTagSize + 1] = "";
    if (attempt == 1)
        elog_expand(tag_of(ELOG_DIE).text, ELOG_DIE, tag, kTagSize);
    char error[kErrorSize];
    const Elog_msg msg = {.tag = tag,
                          .msg = const_cast<char *>(text),
                          .sys = describe(ENOMEM, error, sizeof error),
                          .severity = ELOG_DIE,
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

void forget_other_threads()
{
    keep_own_reasons();
    if (!This_thread.initialising)
        The_startup.running.clear();
    if (This_thread.ending || crashing())
        return;
    The_end.begun = false;
    The_end.wanted = false;
    The_end.no_reader = false;
    if (This_thread.owed)
        move_limit(The_end.seconds);  // a child has none of its parent's timers
    else
        lift_limit();
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
    ask_to_save_state();
    flush_and_exit();
}

}  // namespace stock::logging

using namespace stock::logging;

// A port of base/alloc.h. A thread that runs out of memory again while it reports the first
// time prints the first text without the log and ends.
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
