/*
 * loadwatch - a daemon that watches the load and the memory of its machine.
 *
 *     loadwatch [--crash] [NAME]
 *     loadwatch --parameters
 *
 * It takes a sample every few seconds, keeps the newest ones in a list file, raises an alert when
 * a limit is exceeded, and reports when the value is back to normal. Its settings are in the
 * parameter file NAME ("loadwatch" by default), which may change while the daemon runs. Its state
 * survives a restart and a crash. SIGTERM, SIGINT, SIGHUP and SIGQUIT stop it in an orderly way.
 * With --crash it crashes after its first sample, to show the crash report. --parameters prints a
 * parameter file with the defaults. It stays in the foreground and needs no terminal.
 *
 * This is the program to read first. Begin at the end, with main and run. The other functions are
 * grouped by their purpose, and show how a program
 *
 *     declares its parameters and follows them    Wants, run
 *     keeps records in a list in a file           main (filetbl), keep_sample
 *     writes numbers that any machine can read    append_packed
 *     runs only once and keeps its state          remember (exhume), sample_once (bury)
 *     reports what an operator must know          compare, sample_once
 *     stops in an orderly way                     run (Stop), the end of main
 */

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "deviants.h"
#include "stock.h"

/* The quantities that are measured. The parameter file uses the same names; messages use the units.
 */
enum { LOAD1, LOAD5, LOAD15, USED, QUANTITIES };
#define QUANTITY_NAMES "load1 load5 load15 used"
static const struct {
    const char *name, *unit;
    double scale;
} Quantity[QUANTITIES] = {
    {"load1", "", 1}, {"load5", "", 1}, {"load15", "", 1}, {"used", " MB", 1e6}};

/* A record of the list file. It has no pointers, because the file is an image of the memory. */
typedef struct Sample {
    double time;              /* seconds since 1970 */
    double value[QUANTITIES]; /* load averages of 1, 5 and 15 minutes; bytes of memory */
} Sample;

/* The present parameters. pffollow sets all of them, or none if the file has a mistake. */
static struct {
    char *samples, *state, *packed, *loadavg, *meminfo;
    double interval, grace; /* seconds */
    double quiet_until;     /* seconds since 1970 */
    int64_t keep;
    Tbl *watch;        /* of int: the quantities that are watched */
    double load[USED]; /* the limits of the load averages */
    int64_t used;      /* the limit of the memory in use, in bytes */
} Now;

/*
 * The parameters: the name, variable, default, bounds and meaning of each. loadwatch --parameters
 * prints them.
 */
static const Pfwant Wants[] = {
    {"samples", PFWANT_TEXT(&Now.samples), PFWANT_REQUIRED, 1, 1023, "the newest samples"},
    {"state", PFWANT_TEXT(&Now.state), PFWANT_REQUIRED, 1, 1023, "what stays from run to run"},
    {"packed", PFWANT_TEXT(&Now.packed), "", 0, 1023, "every sample as a packed record"},
    {"loadavg", PFWANT_TEXT(&Now.loadavg), PFWANT_REQUIRED, 1, 1023, "where the loads stand"},
    {"meminfo", PFWANT_TEXT(&Now.meminfo), PFWANT_REQUIRED, 1, 1023, "and the memory"},
    {"watch", PFWANT_WORDS(&Now.watch, QUANTITY_NAMES), PFWANT_REQUIRED, 0, 0, "what is watched"},
    {"limits{load1}", PFWANT_DOUBLE(&Now.load[LOAD1]), "inf", 1e-3, INFINITY, "of 1 minute"},
    {"limits{load5}", PFWANT_DOUBLE(&Now.load[LOAD5]), "inf", 1e-3, INFINITY, "of 5 minutes"},
    {"limits{load15}", PFWANT_DOUBLE(&Now.load[LOAD15]), "inf", 1e-3, INFINITY, "of 15 minutes"},
    {"limits{used}", PFWANT_SIZE(&Now.used), "1E", 1, INFINITY, "bytes of memory in use"},
    {"interval", PFWANT_DURATION(&Now.interval), PFWANT_REQUIRED, 0.01, 86400, "between samples"},
    {"grace", PFWANT_DURATION(&Now.grace), "5 s", 1, 3600, "to finish in after a stop signal"},
    {"quiet_until", PFWANT_TIME(&Now.quiet_until), "1 Jan 2008", 0, 0, "no alert before this"},
    {"keep", PFWANT_SIZE(&Now.keep), PFWANT_REQUIRED, 1, 1e9, "samples in the list"},
    {"directory", PFWANT_ANY(), NULL, 0, 0, "to refer to"},
    {"processors", PFWANT_ANY(), NULL, 0, 0, "to refer to"},
    PFWANT_END,
};

/* The state that survives a restart: each variable has a line in the state file. */
static struct {
    int starts, samples, alerts;
    int raised;        /* bit i: an alert was raised for Quantity[i] and is not over */
    double started;    /* the start of the first run */
    double time, load; /* of the last sample */
    char *alert;       /* the text of the last alert */
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

/* ---- Sampling ---- */

/* Reads the load averages from a line such as "0.57 0.75 0.37 2/95 14441". */
static int read_load(const char *file, double *load)
{
    char line[256];
    FILE *stream = fopen(file, "r");
    if (!stream) {
        elog_log(1, "can't open %s", file); /* 1: adds the meaning of errno */
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

static int take_sample(Sample *sample)
{
    sample->time = std_now();
    if (read_load(Now.loadavg, &sample->value[LOAD1]) < 0)
        return -1;
    return read_memory(Now.meminfo, &sample->value[USED]);
}

/* ---- Keeping samples and state ---- */

/*
 * Appends a sample to a file that any machine can read, big-endian without gaps: the time as a
 * double, the load averages as floats, the memory as a 64-bit integer. Each converter moves the
 * pointer to the end of what it wrote. It returns -1 for a double that a float can only
 * approximate, which is good enough here.
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

static int keep_sample(Tbl *list, const Sample *sample)
{
    pushtbl(list, sample); /* the list is the mapped file: this writes to the file */
    while (list->count > Now.keep)
        shifttbl(list);
    Kept.samples++;
    Kept.time = sample->time;
    Kept.load = sample->value[LOAD1];
    return *Now.packed ? append_packed(Now.packed, sample) : 0;
}

/* Adds a value to the state file that is not one of the variables. */
static void sign(Pf *state)
{
    pfput_int(state, "process", getpid());
}

/* Locks the state file, so that only one daemon uses it, and restores the saved state. */
static void remember(void)
{
    const int status = exhume(Now.state, &Stop, (int)Now.grace, sign);
    if (status < 0)
        elog_die(1, "can't open the state file %s", Now.state);
    if (status == 2)
        elog_complain(0, "can't read the state file %s: starting afresh", Now.state);
    Kept.started = std_now();
    for (size_t i = 0; i < sizeof Relics / sizeof *Relics; i++)
        resurrect(Relics[i].name, Relics[i].variable, Relics[i].type);
    Kept.starts++;
}

/* ---- Watching ---- */

static void raise_alert(int i, double value, double limit)
{
    static char message[128]; /* static, because bury reads it when it writes the state file */
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

/* The limit above which an alert is raised; infinite for a quantity that is not watched. */
static double limit_of(int i)
{
    for (int64_t n = 0; n < Now.watch->count; n++)
        if (*(int *)gettbl(Now.watch, n) == i)
            return i == USED ? (double)Now.used : Now.load[i];
    return INFINITY;
}

/* Reports each change once: the first sample above a limit, and the first one below it again. */
static void compare(const Sample *sample)
{
    const int quiet = sample->time < Now.quiet_until;
    for (int i = 0; i < QUANTITIES; i++) {
        const int above = sample->value[i] > limit_of(i);
        const int raised = Kept.raised >> i & 1;
        if (above && !raised && !quiet)
            raise_alert(i, sample->value[i], limit_of(i));
        else if (raised && !above)
            end_alert(i, sample->value[i]);
    }
}

/* Takes and keeps one sample. A failure is reported when it begins and when it ends. */
static void sample_once(Tbl *list)
{
    static int failing;
    Sample sample;
    int status = take_sample(&sample);
    if (status == 0) {
        compare(&sample);
        status = keep_sample(list, &sample);
    }
    if (status < 0 && !failing && !Stop) /* a stop signal may have interrupted it */
        elog_complain(0, "sampling fails; trying on");
    if (status == 0 && failing)
        elog_notify(0, "sampling works again");
    elog_clear(); /* drops the reasons of a failure that was reported before */
    failing = status < 0;
    bury(); /* saves the state now, so that it survives a crash */
}

/*
 * These functions are not static so that the crash report shows their names. The program must be
 * linked with -rdynamic (in CMake: ENABLE_EXPORTS).
 */
void crash_on_purpose(Tbl *list);
void run(const char *name, Tbl *list, int crash);

/* Writes to a null pointer, which gettbl returns outside the entries of a list. */
__attribute__((noinline)) void crash_on_purpose(Tbl *list)
{
    elog_log(0, "about to write behind the last sample");
    Sample *sample = gettbl(list, list->count);
    sample->time = 0;
}

/* Takes samples and follows the parameters until a stop signal arrives. */
void run(const char *name, Tbl *list, int crash)
{
    const double nap = 0.2; /* seconds; short, because a signal just before it does not end it */
    double last = -INFINITY;
    while (!Stop) {
        const double now = std_now();
        if (now >= last + Now.interval || now < last) { /* or the clock was set back */
            last = now;
            sample_once(list);
            if (crash)
                crash_on_purpose(list);
        }
        const int followed = pffollow(name, Wants);
        if (followed > 0)
            elog_notify(0, "parameters of %s read again", name);
        else if (followed < 0)
            elog_complain(0, "can't use the parameters of %s: the old ones stay", name);
        elog_clear();
        if (!Stop)
            snooze(fmin(nap, Now.interval));
    }
}

int main(int argc, char **argv)
{
    elog_init(argc, argv); /* sets up the log and the crash report */
    int next = 1;
    const int crash = next < argc && strcmp(argv[next], "--crash") == 0;
    next += crash;
    if (argc == 2 && strcmp(argv[1], "--parameters") == 0)
        return pfwant_print(Wants, stdout) == 0 ? 0 : 1;
    const char *name = next < argc ? argv[next++] : "loadwatch";
    if (next < argc || !*name || *name == '-') {
        fprintf(stderr, "usage: %s [--parameters | [--crash] [NAME]]\n", argv[0]);
        return 2;
    }

    if (pffollow(name, Wants) < 0)
        elog_die(0, "can't start without the parameters of %s", name);
    remember();

    Tbl *list = NULL;
    if (filetbl(Now.samples, "loadwatch", 64, NULL, sizeof(Sample), &list) < 0)
        elog_die(0, "%s is no list of samples", Now.samples);
    char *since = strtime(Kept.started);
    elog_notify(0, "start %d: %d samples and %d alerts since %s, the last: %s", Kept.starts,
                Kept.samples, Kept.alerts, since, Kept.alert);
    free(since);

    run(name, list, crash);

    const int status = bury(); /* first of all, because the grace period has begun */
    freetbl(list, NULL);
    pfwant_free(Wants);
    elog_notify(0, "stopped by %s after %d samples", signal_bysig(Stop)->name, Kept.samples);
    return status == 0 ? 0 : 1;
}
