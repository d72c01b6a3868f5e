// The message log: a message logged and cleared, a complaint to /dev/null,
// which has no peer and is timed by `make bench` alone.
//
// Peers: what a program would do without a log, print the text into a copy; and
// GLib's log with a handler that drops the message.

#include "stock/elog.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <benchmark/benchmark.h>

#if STOCK_HAVE_GLIB
#include <glib.h>
#endif

namespace {

constexpr const char *kFormat = "can't read record %d of %s";
constexpr const char *kFile = "/opt/data/day/2008/032/stations.map";

// Settings of the environment would change what is measured.
const int Ready = [] {
    for (const char *name : {"ELOG_DELIVER", "ELOG_TAG", "ELOG_DEBUG", "ELOG_MAXMSG"})
        unsetenv(name);
    elog_set(ELOG_DELIVER_FIELD, 4, "/dev/null");
    return elog_init(0, nullptr);
}();

bool keeps_what_is_logged()
{
    elog_log(0, kFormat, 7, kFile);
    char *text = elog_string(0);
    const bool right = std::strstr(text, ": can't read record 7 of /opt/data/day/2008/032/");
    std::free(text);
    elog_clear();
    return right && elog_mark() == 0;
}

void logged_and_cleared(benchmark::State &state)
{
    if (Ready != 0 || !keeps_what_is_logged())
        return state.SkipWithError("wrong answer");
    int i = 0;
    for (auto _ : state) {
        elog_log(0, kFormat, ++i, kFile);
        elog_clear();
    }
}
BENCHMARK(logged_and_cleared)->Name("log_and_clear/stock");

// Ten messages logged above a mark and dropped, as a library does whose third way works.
void logged_and_flushed(benchmark::State &state)
{
    if (Ready != 0 || !keeps_what_is_logged())
        return state.SkipWithError("wrong answer");
    for (auto _ : state) {
        const int mark = elog_mark();
        for (int i = 0; i < 10; ++i)
            elog_log(0, kFormat, i, kFile);
        elog_flush(0, mark);
    }
}
BENCHMARK(logged_and_flushed)->Name("log_ten_and_flush/stock");

void complaint_to_dev_null(benchmark::State &state)
{
    if (Ready != 0 || !keeps_what_is_logged())
        return state.SkipWithError("wrong answer");
    int i = 0;
    for (auto _ : state)
        elog_complain(0, kFormat, ++i, kFile);
}
BENCHMARK(complaint_to_dev_null)->Name("complain/stock");

void printed_and_copied(benchmark::State &state)
{
    int i = 0;
    for (auto _ : state) {
        char text[1024];
        std::snprintf(text, sizeof text, kFormat, ++i, kFile);
        char *copy = strdup(text);
        benchmark::DoNotOptimize(copy);
        std::free(copy);
    }
}
BENCHMARK(printed_and_copied)->Name("log_and_clear/snprintf_strdup");

#if STOCK_HAVE_GLIB
void glib_message_dropped(benchmark::State &state)
{
    const guint handler = g_log_set_handler(
        "bench", G_LOG_LEVEL_MESSAGE, [](const gchar *, GLogLevelFlags, const gchar *, gpointer) {},
        nullptr);
    int i = 0;
    for (auto _ : state)
        g_log("bench", G_LOG_LEVEL_MESSAGE, kFormat, ++i, kFile);
    g_log_remove_handler("bench", handler);
}
BENCHMARK(glib_message_dropped)->Name("log_and_clear/g_log_dropped");
#endif

}  // namespace
