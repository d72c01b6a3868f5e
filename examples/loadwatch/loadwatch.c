/*
 * loadwatch - a daemon that watches the load and the memory of its machine.
 *
 *     loadwatch [--crash] [NAME]
 *
 * It takes a sample every few seconds, keeps the newest ones in a list file, raises an
 * alert when a limit is passed and says so when things are back to normal. The
 * parameter file NAME ("loadwatch" unless given) says how, and may change while the
 * daemon runs. What it remembers survives a restart and a crash. SIGTERM, SIGINT,
 * SIGHUP and SIGQUIT end it in order; with --crash it crashes after its first sample,
 * to show the report. It stays in the foreground and needs no terminal.
 *
 * This is the program to read first. Begin at the end, with main and run; the rest
 * stands above them by what it does, and shows how a program
 *
 *     reads parameters, and follows them         follow, with number, path and limits
 *     survives parameters that are wrong         unusable
 *     keeps records in a list that is a file     main (filetbl), keep_sample
 *     writes numbers that any machine can read   append_packed
 *     has one instance and a memory              remember (exhume), sample_once (bury)
 *     tells what an operator must know           compare, sample_once
 *     stops in order                             run (Stop), the end of main
 */

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "deviants.h"
#include "stock.h"

/* What is measured: its name in the parameter file, and how messages write it. */
enum { LOAD1, LOAD5, LOAD15, USED, QUANTITIES };
static const struct {
    const char *name, *unit;
    double scale;
} Quantity[QUANTITIES] = {
    {"load1", "", 1}, {"load5", "", 1}, {"load15", "", 1}, {"used", " MB", 1e6}};

/* A record of the list file: plain numbers, as it is written as it lies in memory. */
typedef struct Sample {
    double time;              /* seconds since 1970 */
    double value[QUANTITIES]; /* load averages of 1, 5 and 15 minutes; bytes of memory */
} Sample;

enum { PATH_SIZE = 1024 };

/* What loadwatch.pf says, under the same names; it tells what each is for. */
typedef struct Settings {
    char samples[PATH_SIZE], state[PATH_SIZE], packed[PATH_SIZE];
    char loadavg[PATH_SIZE], meminfo[PATH_SIZE];
    double interval, grace; /* seconds */
    double quiet_until;     /* seconds since 1970 */
    double keep;
    double limit[QUANTITIES]; /* infinite for what is not watched */
} Settings;

/* What is remembered from run to run: each variable has its line in the state file. */
static struct {
    int starts, samples, alerts;
    int raised;        /* bit i: an alert was raised for Quantity[i] and is not over */
    double started;    /* when the first run began */
    double time, load; /* of the last sample */
    char *alert;       /* the text of the last one */
} Kept = {.alert = "none"};

static const struct {
    const char *name;
    void *variable;
    int type;
} Relics[] = {
    {"starts", &Kept.starts, RELIC_INT},     {"samples", &Kept.samples, RELIC_INT},
    {"alerts", &Kept.alerts, RELIC_INT},     {"raised", &Kept.raised, RELIC_INT},
    {"started", &Kept.started, RELIC_TIME},  {"last_time", &Kept.time, RELIC_TIME},
    {"last_load", &Kept.load, RELIC_DOUBLE}, {"last_alert", &Kept.alert, RELIC_STRING},
};

/* The library's signal handler stores the number of the stop signal here. */
static volatile int Stop;

/* ---- Settings ---- */

/* How many parameters could not be used since somebody last looked. */
static int Unusable;

/*
 * A program dies of a missing parameter, unless it says otherwise. A daemon that has run
 * for a year should not die of a slip in an editor, so main makes the library call this
 * instead of dying; the getter then returns 0. The log keeps the reason until somebody
 * complains, and puts it in front of the complaint.
 */
static void unusable(Pf *pf, const char *key, int expected, int got, Pf **result)
{
    (void)pf, (void)expected, (void)result;
    elog_log(0, "parameter '%s' is %s", key, got == PFINVALID ? "missing" : "of the wrong kind");
    Unusable++;
}

static double number(Pf *pf, const char *key, double low, double high)
{
    const int before = Unusable;
    const double value = pfget_size(pf, key); /* "10k" is 10000 */
    if (Unusable == before && !(value >= low && value <= high)) {
        elog_log(0, "parameter '%s' is %g, not within %g and %g", key, value, low, high);
        Unusable++;
    }
    return value;
}

/* A text of the tree is gone when the file is read again, so it is copied. */
static void path(Pf *pf, const char *key, char *copy)
{
    const char *value = pfget_string(pf, key);
    if (!value || strlen(value) >= PATH_SIZE)
        unusable(pf, key, PFSTRING, value ? PFSTRING : PFINVALID, NULL);
    else
        strcpy(copy, value);
}

/* The list "watch" names what is watched, the table "limits" says up to where. */
static void limits(Pf *pf, double *limit)
{
    for (int i = 0; i < QUANTITIES; i++)
        limit[i] = INFINITY;
    Pf *watch = NULL; /* the list itself: a getter takes an element of it like a value */
    _pfeval(pf, "watch", &watch, PFTBL);
    for (long n = 0; watch && n < pfmaxtbl(watch); n++) {
        const char *name = okstr(pfget_string(watch, pfindex(n))); /* it may be no text */
        int i = 0;
        while (i < QUANTITIES && strcmp(name, Quantity[i].name) != 0)
            i++;
        char address[64]; /* of a value in a table */
        snprintf(address, sizeof address, "limits{%s}", name);
        if (i < QUANTITIES)
            limit[i] = number(pf, address, 1e-3, 1e18);
        else
            unusable(pf, address, PFSTRING, PFINVALID, NULL);
    }
}

/*
 * Follows the parameter file, which pfupdate reads when it is new or has changed.
 * Returns 1 with new settings, 0 when nothing changed, -1 with the reasons logged and
 * the settings as they were.
 */
static int follow(const char *name, Settings *settings)
{
    static Pf *pf; /* pfupdate remembers it by its address */
    const int status = pfupdate(name, &pf);
    if (status <= 0)
        return status < 0 ? -1 : 0;

    Settings new = {0};
    Unusable = 0;
    path(pf, "samples", new.samples);
    path(pf, "state", new.state);
    path(pf, "packed", new.packed);
    path(pf, "loadavg", new.loadavg);
    path(pf, "meminfo", new.meminfo);
    new.interval = number(pf, "interval", 0.01, 86400);
    new.grace = number(pf, "grace", 1, 3600);
    new.keep = number(pf, "keep", 1, 1e9);
    new.quiet_until = pfget_time(pf, "quiet_until");
    limits(pf, new.limit);
    if (Unusable)
        return -1;
    *settings = new;
    return 1;
}

/* ---- Sampling ---- */

/* Reads the load averages from a line such as "0.57 0.75 0.37 2/95 14441". */
static int read_load(const char *file, double *load)
{
    char line[256];
    FILE *stream = fopen(file, "r");
    if (!stream) {
        elog_log(1, "can't open %s", file); /* 1: and why, as errno says */
        return -1;
    }
    const char *got = getaline(stream, line, sizeof line);
    fclose(stream);
    if (got && sscanf(line, "%lf %lf %lf", &load[0], &load[1], &load[2]) == 3)
        return 0;
    elog_log(0, "no load averages in %s", file);
    return -1;
}

/* Reads the bytes in use from lines such as "MemTotal:   24684084 kB". */
static int read_memory(const char *file, double *used)
{
    char line[256];
    double total = NAN, available = NAN;
    FILE *stream = fopen(file, "r");
    if (!stream) {
        elog_log(1, "can't open %s", file);
        return -1;
    }
    while (getaline(stream, line, sizeof line)) {
        sscanf(line, "MemTotal: %lf", &total);
        sscanf(line, "MemAvailable: %lf", &available);
    }
    fclose(stream);
    *used = (total - available) * 1024;
    if (!isnan(*used))
        return 0;
    elog_log(0, "no memory sizes in %s", file);
    return -1;
}

static int take_sample(const Settings *settings, Sample *sample)
{
    sample->time = std_now();
    if (read_load(settings->loadavg, &sample->value[LOAD1]) < 0)
        return -1;
    return read_memory(settings->meminfo, &sample->value[USED]);
}

/* ---- Keeping ---- */

/*
 * Appends a sample to a file that any machine can read, big-endian without gaps: the
 * time as a double, the load averages as floats, the memory as a 64-bit integer. Each
 * converter moves the pointer behind what it wrote; it returns -1 for a double that a
 * float only comes close to, which will do here.
 */
static int append_packed(const char *file, const Sample *sample)
{
    char record[28], *end = record;
    hd2md(&sample->time, &end, 1);
    hd2mf(&sample->value[LOAD1], &end, 3);
    hd2ml(&sample->value[USED], &end, 1);

    FILE *stream = fopen(file, "ab");
    const size_t put = stream ? fwrite(record, sizeof record, 1, stream) : 0;
    if (stream && fclose(stream) == 0 && put == 1)
        return 0;
    elog_log(1, "can't write to %s", file);
    return -1;
}

static int keep_sample(const Settings *settings, Tbl *list, const Sample *sample)
{
    pushtbl(list, sample); /* the list lies in the file: this writes it */
    while ((double)list->count > settings->keep)
        shifttbl(list);
    Kept.samples++;
    Kept.time = sample->time;
    Kept.load = sample->value[LOAD1];
    return *settings->packed ? append_packed(settings->packed, sample) : 0;
}

/* What the state file says besides the variables. */
static void sign(Pf *state)
{
    pfput_int(state, "process", getpid());
}

/* Locks the state file, so that there is one daemon to it, and restores what it holds. */
static void remember(const Settings *settings)
{
    const int status = exhume(settings->state, &Stop, (int)settings->grace, sign);
    if (status < 0)
        elog_die(1, "can't open the state file %s", settings->state);
    if (status == 2)
        elog_complain(0, "can't read the state file %s: starting afresh", settings->state);
    Kept.started = std_now();
    for (size_t i = 0; i < sizeof Relics / sizeof *Relics; i++)
        resurrect(Relics[i].name, Relics[i].variable, Relics[i].type);
    Kept.starts++;
}

/* ---- Watching ---- */

static void raise_alert(int i, double value, double limit)
{
    static char message[128]; /* stays, for the state file is written from it */
    const double scale = Quantity[i].scale;
    const char *unit = Quantity[i].unit;
    snprintf(message, sizeof message, "%s is %.2f%s, above %.2f%s", Quantity[i].name, value / scale,
             unit, limit / scale, unit);
    elog_alert(0, "%s", message);
    Kept.alert = message;
    Kept.alerts++;
    Kept.raised |= 1 << i;
}

static void end_alert(int i, double value)
{
    elog_notify(0, "%s is back to normal: %.2f%s", Quantity[i].name, value / Quantity[i].scale,
                Quantity[i].unit);
    Kept.raised &= ~(1 << i);
}

/* Tells each change once: the first sample above a limit, and the first one back. */
static void compare(const Settings *settings, const Sample *sample)
{
    const int quiet = sample->time < settings->quiet_until;
    for (int i = 0; i < QUANTITIES; i++) {
        const int above = sample->value[i] > settings->limit[i];
        const int raised = Kept.raised >> i & 1;
        if (above && !raised && !quiet)
            raise_alert(i, sample->value[i], settings->limit[i]);
        else if (raised && !above)
            end_alert(i, sample->value[i]);
    }
}

/* One round. A failure is told when it begins and when it is over, not each time. */
static void sample_once(const Settings *settings, Tbl *list)
{
    static int failing;
    Sample sample;
    int status = take_sample(settings, &sample);
    if (status == 0) {
        compare(settings, &sample);
        status = keep_sample(settings, list, &sample);
    }
    if (status < 0 && !failing && !Stop) /* a stop signal may have cut it short */
        elog_complain(0, "sampling fails; trying on");
    if (status == 0 && failing)
        elog_notify(0, "sampling works again");
    elog_clear(); /* the reasons of what was told before */
    failing = status < 0;
    bury(); /* not even a crash makes it forget this sample now */
}

/*
 * The report of a crash names functions that are not static, in a program that is linked
 * with -rdynamic (in CMake: ENABLE_EXPORTS).
 */
void crash_on_purpose(Tbl *list);
void run(const char *name, Settings *settings, Tbl *list, int crash);

/* Outside its entries, a list without a null value gives a null pointer. */
__attribute__((noinline)) void crash_on_purpose(Tbl *list)
{
    elog_log(0, "about to write behind the last sample");
    Sample *sample = gettbl(list, list->count);
    sample->time = 0;
}

/* Samples and follows the parameters until a stop signal comes. */
void run(const char *name, Settings *settings, Tbl *list, int crash)
{
    const double nap = 0.2; /* short, lest a signal that comes just before it waits long */
    double last = -INFINITY;
    int followed = 0;
    while (!Stop) {
        const double now = std_now();
        if (now >= last + settings->interval || now < last) { /* or the clock was set back */
            last = now;
            sample_once(settings, list);
            if (crash)
                crash_on_purpose(list);
        }
        const int before = followed;
        followed = follow(name, settings);
        if (followed > 0)
            elog_notify(0, "parameters of %s read again", name);
        else if (followed < 0 && before >= 0)
            elog_complain(0, "can't use the parameters of %s: the old ones stay", name);
        elog_clear();
        if (!Stop)
            snooze(fmin(nap, settings->interval));
    }
}

int main(int argc, char **argv)
{
    elog_init(argc, argv); /* first of all: the log, and the report of crashes */
    int next = 1;
    const int crash = next < argc && strcmp(argv[next], "--crash") == 0;
    next += crash;
    const char *name = next < argc ? argv[next++] : "loadwatch";
    if (next < argc || !*name || *name == '-') {
        fprintf(stderr, "usage: %s [--crash] [NAME]\n", argv[0]);
        return 2;
    }

    Settings settings = {0};
    pfconfig("die", (void *)unusable);
    if (follow(name, &settings) < 0)
        elog_die(0, "can't start without the parameters of %s", name);
    remember(&settings);

    Tbl *list = NULL;
    if (filetbl(settings.samples, "loadwatch", 64, NULL, sizeof(Sample), &list) < 0)
        elog_die(0, "%s is no list of samples", settings.samples);
    char *since = strtime(Kept.started);
    elog_notify(0, "start %d: %d samples and %d alerts since %s, the last: %s", Kept.starts,
                Kept.samples, Kept.alerts, since, Kept.alert);
    free(since);

    run(name, &settings, list, crash);

    const int status = bury(); /* first what is remembered: the grace time is running */
    freetbl(list, NULL);
    elog_notify(0, "stopped by %s after %d samples", signal_bysig(Stop)->name, Kept.samples);
    return status == 0 ? 0 : 1;
}
