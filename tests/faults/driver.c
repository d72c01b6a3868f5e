/*
 * One scenario for each family, for run.py and power.py to make fail.
 *
 *     driver list               the names of the scenarios
 *     driver make SCENARIO      makes the files it starts from, in the current
 * directory driver run SCENARIO       does it; prints what came of it driver
 * verify SCENARIO    prints the durable files: "FILE STATE", where a STATE that
 *                               begins with BAD is neither the old nor the new
 * content
 *
 * FAULTS_ROUNDS of the environment says how often it is done, once unless told
 * otherwise.
 *
 * Exit status of run: 0 when every call succeeded, 3 when one said that it
 * failed (its reasons are on standard error then). Results are printed with one
 * write at the end, so that a success with another result is seen by comparing.
 * 9 when a call of the driver's own failed. The driver itself allocates
 * nothing.
 */
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "deviants.h"
#include "stock.h"

static char Said[16384];
static size_t Length;
static int Failed;
static int Rounds = 1; /* how often it is done: FAULTS_ROUNDS */
static int Round = 1;

static void say(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int n = vsnprintf(Said + Length, sizeof Said - Length, format, args);
    va_end(args);
    if (n > 0 && Length + (size_t)n < sizeof Said)
        Length += (size_t)n;
}

/* Notes that a call said that it failed. Returns whether it succeeded. */
static int succeeded(int yes)
{
    Failed |= !yes;
    return yes;
}

static void take(char *text)
{
    say("%s\n", text ? text : "(null)");
    free(text);
}

static void put_file(const char *name, const char *text)
{
    const int fd = open(name, O_WRONLY | O_CREAT | O_TRUNC, 0640);
    if (fd < 0 || write(fd, text, strlen(text)) != (ssize_t)strlen(text) || close(fd) != 0)
        exit(9);
}

/* ---- Lists ---- */

enum { OLD = 40, NEW = 700 };

static Tbl *rain_list(int entries, double step)
{
    Tbl *tbl = inittbl(0, entries, 1, NULL, sizeof(double));
    for (int i = 0; i < entries; i++) {
        const double mm = i * step;
        pushtbl(tbl, &mm);
    }
    return tbl;
}

static void make_list(const char *name)
{
    Tbl *tbl = rain_list(OLD, 1.5);
    if (savetbl(tbl, name, "gauges") != 0)
        exit(9);
    freetbl(tbl, NULL);
}

/* Says what a list file holds: how many entries, in steps of which value. */
static void verify_list(const char *name, int may_grow)
{
    Tbl *tbl = readtbl(name, NULL, 0);
    if (!tbl) {
        say("%s BAD unreadable\n", name);
        return;
    }
    const double step = tbl->count > 1 ? ((double *)tbl->base)[1] : 0;
    int64_t right = 0;
    while (right < tbl->count && tbl->size == 8 &&
           ((double *)tbl->base)[right] == (double)right * step)
        right++;
    const int old = tbl->count == OLD && step == 1.5, renewed = tbl->count == NEW && step == 2.5;
    const int grown = may_grow && tbl->count >= OLD && right >= OLD && step == 1.5;
    if (grown || (right == tbl->count && (old || renewed)))
        say("%s %ld entries of %g\n", name, (long)tbl->count, step);
    else
        say("%s BAD %ld entries of %g, %ld right\n", name, (long)tbl->count, step, (long)right);
    freetbl(tbl, NULL);
}

static void list_save(void)
{
    Tbl *tbl = rain_list(NEW, 2.5);
    say("saved %d\n", succeeded(savetbl(tbl, "rain.tbl", "gauges") == 0));
    freetbl(tbl, NULL);
}

static void list_read(void)
{
    char *comment = NULL;
    Tbl *tbl = readtbl("rain.tbl", &comment, 0);
    if (succeeded(tbl != NULL))
        say("%ld %s %g\n", (long)tbl->count, comment, *(double *)gettbl(tbl, 39));
    freetbl(tbl, NULL);
}

static void list_open(void)
{
    Tbl *tbl = NULL;
    if (succeeded(filetbl("rain.tbl", "gauges", 10, NULL, 8, &tbl) == 0))
        say("%ld entries\n", (long)tbl->count);
    freetbl(tbl, NULL);
}

static void list_grow(void)
{
    Tbl *tbl = NULL;
    if (succeeded(filetbl("rain.tbl", "gauges", 5000 * Round, NULL, 8, &tbl) == 0))
        say("%ld entries\n", (long)tbl->count);
    freetbl(tbl, NULL);
}

static void list_fill(void)
{
    Tbl *tbl = readtbl("rain.tbl", NULL, 1);
    if (succeeded(tbl != NULL))
        while (tbl->count < 3000 * Round) {
            const double mm = (double)tbl->count * 1.5;
            pushtbl(tbl, &mm);
        }
    freetbl(tbl, NULL);
}

static void list_memory(void)
{
    Tbl *tbl = newtbl(2);
    const char *names[] = {"north", "south", "east", "west"};
    for (int i = 0; i < 40; i++)
        pushtbl(tbl, names[i % 4]);
    unshifttbl(tbl, "first");
    instbl(tbl, 3, "third");
    deltbl(tbl, 4);
    Tbl *copy = duptbl(tbl, NULL);
    succeeded(cattbl(copy, tbl) == 0);
    take(jointbl(copy, ","));
    Tbl *found = greptbl("n.*", copy);
    say("%ld\n", (long)found->count);
    freetbl(found, NULL);
    freetbl(copy, NULL);
    freetbl(tbl, NULL);
}

/* ---- Parameters ---- */

static const char Rain[] = "unit mm\nlimit 25.5\nwarn limit of &limit &unit\n"
                           "gauges &Arr{\n\tnorth 12.5\n\tsouth 3\n}\nnames "
                           "&Tbl{\n\tnorth\n\tsouth\n}\n";

static void verify_rain(const char *name)
{
    Pf *pf = NULL;
    FILE *stream = fopen(name, "r");
    if (!stream) {
        say("%s BAD missing\n", name);
        return;
    }
    const int status = pfin(stream, &pf);
    fclose(stream);
    char *text = status == 0 && pf ? pf2string(pf) : NULL;
    const int entries = pf && pf->type == PFFILE ? (int)cntarr(pf->value.arr) : -1;
    if (!text)
        say("%s BAD unreadable\n", name);
    else if (entries != 5 && entries != 4)
        say("%s BAD %d entries of 5\n", name, entries);
    else
        say("%s %d entries, limit %s\n", name, entries, pfget_string(pf, "limit"));
    free(text);
    pffree(pf);
}

static void params_parse(void)
{
    Pf *pf = NULL;
    if (!succeeded(pfcompile(Rain, &pf) == 0))
        return;
    say("%g %s %g\n", pfget_double(pf, "limit"), pfget_string(pf, "warn"),
        pfget_double(pf, "gauges{south}"));
    Tbl *names = pfget_tbl(pf, "names");
    take(jointbl(names, " "));
    freetbl(names, NULL);
    Tbl *keys = pfkeys(pf);
    say("%ld keys\n", (long)keys->count);
    freetbl(keys, NULL);
    pfput_double(pf, "limit", 30);
    pfput_string(pf, "note", "a \"quoted\" text");
    Pf *copy = pfdup(pf);
    take(pf2string(copy));
    pffree(copy);
    pffree(pf);
}

static void params_read(void)
{
    Pf *pf = NULL;
    if (succeeded(pfread("rain", &pf) >= 0 && pf)) {
        say("%s\n", pfget_string(pf, "warn"));
        Tbl *files = pffiles("rain", 1);
        say("%ld files\n", (long)files->count);
        freetbl(files, free);
    }
    pffree(pf);
}

static void params_write(void)
{
    Pf *pf = NULL;
    succeeded(pfcompile(Rain, &pf) == 0);
    if (pf) {
        pfput_string(pf, "limit", "99");
        say("written %d\n", succeeded(pfwrite("rain.pf", pf) == 0));
    }
    pffree(pf);
}

static void params_update(void)
{
    Pf *pf = NULL;
    const struct timespec past[2] = {{1000000, 0}, {1000000, 0}};
    for (int round = 0; round < 4; round++) {
        if (round == 2) {
            put_file("rain~", "limit 7\n");
            if (rename("rain~", "rain.pf") != 0)
                exit(9);
        } else if (round == 0) {
            utimensat(AT_FDCWD, "rain.pf", past, 0);
        }
        const int status = pfupdate("rain", &pf);
        succeeded(status >= 0);
    }
    /* The last round read the file as it is, whatever failed before. */
    say("limit %s\n", pf ? pfget_string(pf, "limit") : "none");
    pffree(pf);
}

static void params_exec(void)
{
    Pf *pf = NULL;
    if (succeeded(pfcompile("drops &exec(echo 7)\nwhere &env(HOME)\n", &pf) == 0))
        say("%s %s\n", pfget_string(pf, "drops"), pfget_string(pf, "where"));
    pffree(pf);
}

/* ---- The log ---- */

static void log_file(void)
{
    for (int i = 0; i < 5; i++) {
        elog_log(0, "gauge %d is dry", i);
        elog_notify(0, "gauge %d is wet", i);
    }
}

static void verify_log(void)
{
    static char text[65536];
    const int fd = open("rain.log", O_RDONLY);
    const ssize_t n = fd < 0 ? 0 : read(fd, text, sizeof text - 1);
    text[n > 0 ? n : 0] = 0;
    say("rain.log");
    for (int i = 0; i < 5; i++)
        for (int wet = 0; wet < 2; wet++) {
            char line[40];
            snprintf(line, sizeof line, "gauge %d is %s\n", i, wet ? "wet" : "dry");
            say(" %s", strstr(text, line) ? "+" : "-");
        }
    say("\n");
}

static void log_stack(void)
{
    const int mark = elog_mark();
    for (int i = 0; i < 6; i++)
        elog_log(0, "gauge %d is dry", i);
    take(elog_string(mark));
    take(elogstr(ELOG_NOTIFY, 0, "%s", "wet"));
    char tag[200];
    elog_expand("%P %s %e", 3, tag, sizeof tag);
    say("%.8s\n", tag);
    elog_flush(0, mark);
    elog_complain(0, "all are dry");
}

/* ---- Times ---- */

static void times(void)
{
    double when = 0;
    say("%d\n", succeeded(zstr2epoch("2008-02-01 12:30 US/Pacific", &when) == 0));
    say("%.0f\n", when);
    take(zepoch2str("%Y-%m-%d %H:%M:%S %Z", "Europe/Paris", when));
    take(zepoch2str("%Y-%j %H:%M:%S %Z", "Asia/Kolkata", when));
    take(strtime(when));
    switchTZ("US/Pacific");
    say("%s\n", mygetTZ());
    restoreTZ();
    set_time_formats();
    say("%d\n", is_month_first());
}

/* ---- Files ---- */

static void mappings(void)
{
    void *address = NULL;
    Arr *cache = newarr(NULL);
    say("%ld\n", (long)mapfile("rain.pf", &address, cache));
    succeeded(address && address != (void *)-1);
    say("%ld\n", (long)wmapfile("rain.pf", &address, cache));
    succeeded(address && address != (void *)-1);
    say("%ld\n", (long)lmapfile("rain.pf", &address, 0, 8));
    if (succeeded(address && address != (void *)-1))
        say("%.8s\n", (char *)address);
    succeeded(unmaparr(cache) == 0);
    freearr(cache, NULL);
}

static int step(const char *path, const struct stat *status, void *argument)
{
    (void)argument;
    say("%s %d\n", path, (int)S_ISDIR(status->st_mode));
    return 1;
}

static void walks(void)
{
    say("made %d\n", succeeded(makedir("gauges/east/high") == 0));
    const int n = fstraverse("gauges", 0, step, NULL);
    say("walk %d\n", n);
    succeeded(n >= 0);
    Tbl *names = dirfiles("gauges", 3);
    take(jointbl(names, " "));
    freetbl(names, free);
    Arr *dirs = NULL, *files = NULL;
    succeeded(directory("gauges", &dirs, &files) == 0);
    say("%ld %ld\n", dirs ? (long)cntarr(dirs) : -1, files ? (long)cntarr(files) : -1);
    freearr(dirs, free);
    freearr(files, free);
}

static void asks(void)
{
    say("%d %d %d %d %ld\n", is_present("rain.pf"), is_file("rain.pf"), is_dir("gauges"),
        is_empty("rain.pf"), (long)filesize("rain.pf"));
}

static void names_of_paths(void)
{
    char out[1024];
    const int status = relpath("gauges/north", "rain.pf", out);
    if (succeeded(status == 0))
        say("%s\n", strrchr(out, '/') ? strrchr(out, '/') : out);
    if (succeeded(abspath("gauges", out) == 0))
        say("%d %s\n", out[0] == '/', strrchr(out, '/'));
    if (succeeded(cleanpath("link/../../gauges/./north", CLEANPATH_LINKS, out) == 0))
        say("%s\n", out);
    say("%d\n", samepath("rain.pf", "gauges/../rain.pf"));
    take(concatpaths("gauges", "north", NULL));
}

static void method(void)
{
    int (*version)(void) = (int (*)(void))usermethod("version");
    if (succeeded(version != NULL))
        say("%d\n", version());
}

static void searches(void)
{
    setenv("DATAPATH", "gauges:.", 1);
    char *file = datafile("DATAPATH", "rain.pf");
    succeeded(file != NULL);
    take(file);
    Tbl *all = datasearch("gauges:.", NULL, "north", 0);
    say("%ld\n", all ? (long)all->count : -1);
    freetbl(all, free);
    say("%d\n", gettaluvine() != NULL);
}

/* ---- The rest ---- */

static int Relic;
static char *Note;

static void state(void)
{
    const int status = exhume("state/rain", NULL, 0, NULL);
    succeeded(status >= 0 && status != 2);
    succeeded(resurrect("rounds", &Relic, RELIC_INT) >= 0);
    succeeded(resurrect("note", &Note, RELIC_STRING) >= 0);
    say("%d %s\n", Relic, Note ? Note : "none");
    Relic = 2;
    Note = (char *)"a later and somewhat longer note about the gauges, north and "
                   "south";
    for (; Round <= Rounds; Round++)
        say("buried %d\n", succeeded(bury() == 0));
}

static void state_told(void)
{
    state();
    succeeded(bury() == 0);             /* which opens the file anew, where a descriptor is free */
    elog_complain(0, "gauge 1 is dry"); /* into no file of the library */
}

static void verify_state(void)
{
    Pf *pf = NULL;
    FILE *stream = fopen("state/rain", "r");
    const int status = stream ? pfin(stream, &pf) : -1;
    char *rounds = pf && status == 0 ? pfget_string(pf, "rounds") : NULL;
    char *note = pf && status == 0 ? pfget_string(pf, "note") : NULL;
    if (!rounds || !note || cntarr(pf->value.arr) != 2 ||
        strncmp(note, *rounds == '2' ? "a later" : "none yet", 7) != 0 ||
        (*rounds == '2' && !strstr(note, "and south")))
        say("state BAD\n");
    else
        say("state %s\n", rounds);
    if (stream)
        fclose(stream);
    pffree(pf);
}

static void texts(void)
{
    char line[] = "north south east west", source[] = "rain at $HOME";
    Tbl *words = splitws(line);
    take(jointbl(words, "/"));
    freetbl(words, NULL);
    void *stack = NULL;
    for (int i = 0; i < 60; i++)
        pushstr(&stack, "millimetres ");
    char *all = popstr(&stack, 1);
    say("%zu\n", strlen(all));
    free(all);
    char out[256];
    take(strconcat("no", "rth", NULL));
    say("%s\n", strsub(source, "rain", "snow", out));
    say("%s\n", szcopy(out, "south", 4));
}

static void arrays(void)
{
    Arr *arr = newarr(NULL);
    char key[20];
    for (int i = 0; i < 40; i++) {
        snprintf(key, sizeof key, "gauge%d", i * 7 % 40);
        setarr(arr, key, (void *)"mm");
    }
    delarr(arr, "gauge3");
    Arr *copy = duparr(arr, NULL);
    Tbl *keys = keysarr(copy);
    take(jointbl(keys, " "));
    freetbl(keys, NULL);
    freearr(copy, NULL);
    freearr(arr, NULL);
}

static void dumps(void)
{
    take(hexdump_string(0, "rain\1north", 10));
    FILE *stream = tmpfile();
    if (!stream)
        exit(9);
    hexdump(stream, "rain and snow north and south", 29);
    unsigned char back[40] = {0};
    if (fflush(stream) != 0 || fseek(stream, 0, SEEK_SET) != 0)
        exit(9);
    const int n = read_hexdump(stream, back, 29);
    if (ferror(stream))
        exit(9);
    say("%d %s\n", n, back);
    fclose(stream);
}

/* What a scenario starts from. */
enum { RAIN = 1, LIST = 2, TREE = 4, STATE = 8, LINKED = 16 };

static const struct Scenario {
    const char *name;
    int files;
    void (*run)(void);
} Scenarios[] = {
    {"log_file", 0, log_file},
    {"log_stack", 0, log_stack},
    {"params_parse", 0, params_parse},
    {"params_read", RAIN, params_read},
    {"params_write", RAIN, params_write},
    {"params_write_linked", RAIN | LINKED, params_write},
    {"params_update", RAIN, params_update},
    {"params_exec", 0, params_exec},
    {"times", 0, times},
    {"list_memory", 0, list_memory},
    {"list_save", LIST, list_save},
    {"list_save_linked", LIST | LINKED, list_save},
    {"list_read", LIST, list_read},
    {"list_open", LIST, list_open},
    {"list_grow", LIST, list_grow},
    {"list_fill", LIST, list_fill},
    {"mappings", RAIN, mappings},
    {"walks", TREE, walks},
    {"asks", RAIN | TREE, asks},
    {"paths", RAIN | TREE, names_of_paths},
    {"method", 0, method},
    {"state", STATE, state},
    {"state_told", STATE, state_told},
    {"state_linked", STATE | LINKED, state},
    {"texts", 0, texts},
    {"arrays", 0, arrays},
    {"dumps", 0, dumps},
    {"searches", RAIN | TREE, searches},
};

static void make(const struct Scenario *scenario)
{
    const int linked = scenario->files & LINKED;
    if (scenario->files & RAIN) {
        put_file("rain.pf", Rain);
        if (linked && link("rain.pf", "snow.pf") != 0)
            exit(9);
    }
    if (scenario->files & LIST) {
        make_list("rain.tbl");
        if (linked && link("rain.tbl", "snow.tbl") != 0)
            exit(9);
    }
    if (scenario->files & TREE) {
        if (makedir("gauges/north/high") != 0 || makedir("gauges/south") != 0 ||
            symlink("gauges/north", "link") != 0)
            exit(9);
        put_file("gauges/north/rain", "12.5\n");
        put_file("gauges/south/rain", "3\n");
    }
    if (scenario->files & STATE) {
        if (makedir("state") != 0)
            exit(9);
        put_file("state/rain", "note none yet\nrounds 1\n");
        if (linked && link("state/rain", "state/snow") != 0)
            exit(9);
    }
}

static void verify(const struct Scenario *scenario)
{
    const int linked = scenario->files & LINKED;
    if (scenario->run == log_file)
        verify_log();
    if ((scenario->files & RAIN) && scenario->run != params_update) {
        verify_rain("rain.pf");
        if (linked)
            verify_rain("snow.pf");
    }
    if (scenario->files & LIST) {
        verify_list("rain.tbl", scenario->run == list_fill);
        if (linked)
            verify_list("snow.tbl", 0);
    }
    if (scenario->files & STATE)
        verify_state();
}

/* Prints all that was said, and how many descriptors are open. */
static int tell(int status)
{
    struct pollfd open_ones[256];
    for (int i = 0; i < 256; i++)
        open_ones[i] = (struct pollfd){.fd = i};
    int n = 0;
    if (poll(open_ones, 256, 0) >= 0) { /* where so many may be open */
        for (int i = 0; i < 256; i++)
            n += !(open_ones[i].revents & POLLNVAL);
        say("descriptors %d\n", n);
    }
    signal(SIGXFSZ, SIG_IGN); /* what the driver writes itself is not under test */
    for (size_t at = 0, tries = 0; at < Length && tries < 9; tries++) {
        const ssize_t put = write(STDOUT_FILENO, Said + at, Length - at);
        at += put > 0 ? (size_t)put : 0;
        if (put <= 0)
            status = 5; /* its own */
    }
    return status;
}

int main(int argc, char **argv)
{
    const char *mode = argc > 1 ? argv[1] : "", *name = argc > 2 ? argv[2] : "";
    for (size_t i = 0; i < sizeof Scenarios / sizeof *Scenarios; i++) {
        const struct Scenario *scenario = &Scenarios[i];
        if (!strcmp(mode, "list"))
            say("%s\n", scenario->name);
        if (strcmp(name, scenario->name) != 0)
            continue;
        if (!strcmp(mode, "make")) {
            make(scenario);
        } else if (!strcmp(mode, "verify")) {
            verify(scenario);
        } else if (!strcmp(mode, "run")) {
            elog_init(argc, argv);
            if (getenv("FAULTS_ROUNDS"))
                Rounds = atoi(getenv("FAULTS_ROUNDS"));
            for (; Round <= Rounds; Round++)
                scenario->run();
            if (Failed)
                elog_clear_register(1); /* the reasons */
            return tell(Failed ? 3 : 0);
        }
    }
    return write(STDOUT_FILENO, Said, Length) == (ssize_t)Length ? 0 : 9;
}
