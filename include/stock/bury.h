/*
 * bury.h - a program's state, kept across restarts.
 *
 * A program names its state file once, registers the variables that are to survive,
 * and gets their values of the last run. The library writes them back when the
 * program says so, dies through elog_die, or is told to stop.
 *
 *     static volatile int stop;
 *     static int count;
 *     static double last;
 *
 *     exhume("state/counter", &stop, 5, NULL);
 *     resurrect("count", &count, RELIC_INT);
 *     resurrect("last", &last, RELIC_TIME);
 *     while (!stop)
 *         work();
 *     bury();
 *
 * The state file is parameter text, one entry per variable in the order of their
 * names. It is replaced as a whole: whenever the program or the machine stops, the
 * file holds the state of one bury, complete. It also serves as a lock, so that only
 * one process uses it at a time. The process must not open and close the state file
 * by itself: the system would take that for giving the lock up. Some network file
 * systems give no locks: there nothing keeps a second process out.
 *
 * A process made by fork does not have the lock, but would write the state file if it
 * buried or died through the log: it calls exec or _exit.
 *
 * A registered variable lives as long as the process and is read without a lock by
 * whichever thread buries. The functions may be called from any thread. Running
 * out of memory ends the process.
 */

#ifndef STOCK_BURY_H
#define STOCK_BURY_H

#include <stdio.h>

#include "arr.h"
#include "export.h"
#include "pf.h"

STOCK_BEGIN_DECLS

/* What a registered variable is; the numbers are part of the interface. */
enum {
    RELIC_INT = 0,    /* int */
    RELIC_DOUBLE = 1, /* double; 15 digits are kept */
    RELIC_STRING = 2, /* char *: the text; a null pointer is saved as the empty text */
    RELIC_TIME = 3    /* double: epoch seconds; milliseconds are kept */
};

/* The state file of a process. */
typedef struct Grave {
    char *name;                   /* owned */
    char *alternate;              /* owned: name and "+", what is written before it is renamed */
    FILE *stream;                 /* owned: the state file, open as long as the process lives */
    Arr *relics;                  /* of variables by name */
    Pf *saved;                    /* what the file held, or null */
    volatile int *stop_flag;      /* borrowed, or null */
    int grace_seconds;            /* see exhume */
    void (*extra_values)(Pf *pf); /* or null */
    int signalled;                /* 1 from a stop signal to the next bury */
} Grave;

/*
 * Opens, locks and reads the state file; directories that are missing on its path,
 * and the file, are made. The name is copied, and a relative one made absolute: it
 * holds when the program changes its directory.
 *
 * With a stop flag, which is set to 0 first, the signals SIGHUP, SIGINT, SIGQUIT and
 * SIGTERM store their number there and then do what the grace seconds say:
 *
 *     0       bury and exit with status 1, inside the signal handler
 *     -1      nothing: the program sees the flag, buries and ends by itself
 *     5       after 5 seconds without a bury: bury, and die with "quitting from
 *             resurrection alarm\n"
 *
 * The handler may interrupt anything, also malloc, and would then wait for ever. So
 * each step of the end has 10 seconds: saving the state, the last message, and what
 * runs at exit. When a step takes longer the process says so on standard error, prints
 * the messages that wait, and ends with status 1. The same holds for a bury that runs
 * when the grace is over: it has 10 seconds more. A program that can look at its flag
 * is better off with -1 or some seconds.
 *
 * extra_values may be null. Each bury calls it with the tree that it will write, to
 * put further values in; it may call the functions of this header except bury.
 *
 * Returns
 *
 *     1       the state file was read
 *     2       it is no parameter text: the reasons are logged, nothing is restored
 *     0       there was none, an empty one was made
 *     -1      it could not be opened or made, or is no regular file; bury will try to
 *             write it all the same, but replaces no device, pipe or directory
 *     -2      the process has a state file already
 *
 * A file that another process uses ends this one, with "*fatal* Can't lock state file
 * '%s' for exclusive use: it is already in use.\n" and status 1. From another host's
 * file system a file may not be lockable: it complains "Can't lock '%s' on an nfs
 * filesystem: proceeding without lock" and goes on.
 */
STOCK_API int exhume(const char *filename, volatile int *stop_flag, int grace_seconds,
                     void (*extra_values)(Pf *pf));

/*
 * Registers a variable under a name and stores its saved value in it. A second
 * registration of a name replaces the first. The text of a RELIC_STRING is a copy
 * that lives as long as the process.
 *
 * The name is an address of a parameter tree (pf.h): "a{b}" is entry b of table a. It
 * is written as it is. A name that would not be read back is refused: one that holds a
 * tab, a newline, "#" or a backslash, that begins with a double quote, whose first key
 * is longer than 1023 bytes, or that is nested deeper than 11 levels.
 *
 * The text of a RELIC_STRING comes back exactly, with one exception: "&name" or
 * "&{name}" in it, where name is that of another value of the file, stands for
 * that value, as everywhere in parameter text. A RELIC_TIME that is not finite or
 * lies before the year 0 does not come back.
 *
 * Returns 0 when there was a saved value, 1 when there was none and the variable
 * keeps its own, or -1: before exhume; without a name or an address, with a type that
 * there is not, or with a name that is refused, which is complained about.
 */
STOCK_API int resurrect(const char *name, void *address, int type);

/*
 * Writes the extra values and all registered variables to the state file: to the
 * alternate file first, which is made anew, flushed to the disk and takes the place of
 * the state file when it is complete. A file that has the alternate name is removed first;
 * a link there is not followed.
 *
 * Returns 0; or -1 before exhume, when it is called while the same thread is inside
 * it, or when it fails, and then the earlier state stays:
 *
 *     Can't write alternate state file %s
 *     Wrote %ld bytes to alternate state file %s instead of %ld
 *     Can't close alternate state file %s                        also when flushing fails
 *     failed to rename state file %s to %s
 *
 * A variable whose name does not fit between the others, such as "a{b}" beside "a",
 * is complained about with "Can't save '%s' in state file %s"; -1 is returned
 * though the rest was saved.
 */
STOCK_API int bury(void);

/*
 * Returns the name of the state file, which is absolute; before exhume the name that
 * custom_gravesite was given, or null. It is borrowed and stays valid.
 */
STOCK_API const char *gravesite(void);

/* Sets what gravesite returns before exhume. The name is not copied. */
STOCK_API void custom_gravesite(const char *filename);

/*
 * Locks the open state file; exhume does so. Ends the process or complains as told
 * there when the file is in use.
 */
STOCK_API void lockstate(Grave *grave);

/*
 * The handlers of exhume. signal_handler leaves errno alone; without exhume it dies.
 * alarm_handler buries and dies unless there was a bury since the signal. A bury that has
 * begun since and still runs gets 10 seconds.
 */
STOCK_API void signal_handler(int sig);
STOCK_API void alarm_handler(void);

STOCK_END_DECLS

#endif
