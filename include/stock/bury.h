/*
 * bury.h - keep variables of a program across restarts, in a state file.
 *
 * A program names its state file once (exhume) and registers the variables that are to survive
 * (resurrect), which restores their saved values. The library saves them when the program asks
 * for it (bury), dies through elog_die, or is told to stop by a signal.
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
 * The state file is parameter text with one entry per variable, in the order of their names.
 * It is always replaced as a whole: whenever the program or the machine stops, the file holds
 * the complete state of one bury. It also serves as a lock, so that only one process uses it at
 * a time. The process must not open and close the state file by itself, because the system
 * would then release the lock. On network file systems that have no locks, nothing prevents a
 * second process from using the file.
 *
 * A child made by fork does not have the lock. It must call exec or _exit: if it called bury or
 * died through the log, it would write the state file.
 *
 * A registered variable must remain valid until the process ends. The thread that calls bury
 * reads it without a lock. The functions may be called from any thread. Running out of memory
 * ends the process.
 */

#ifndef STOCK_BURY_H
#define STOCK_BURY_H

#include <stdio.h>

#include "arr.h"
#include "export.h"
#include "pf.h"

STOCK_BEGIN_DECLS

/* The type of a registered variable. The numbers are part of the interface. */
enum {
    RELIC_INT = 0,    /* int */
    RELIC_DOUBLE = 1, /* double; 15 digits are kept */
    RELIC_STRING = 2, /* char *: a text; a null pointer is saved as the empty text */
    RELIC_TIME = 3    /* double: epoch seconds; milliseconds are kept */
};

/* The state file of a process. */
typedef struct Grave {
    char *name;                   /* owned */
    char *alternate;              /* owned: name and "+", the file that is written and renamed */
    FILE *stream;                 /* owned: the state file, open until the process ends */
    Arr *relics;                  /* owned: the registered variables by name */
    Pf *saved;                    /* owned: what exhume read from the file, or null */
    volatile int *stop_flag;      /* borrowed, or null */
    int grace_seconds;            /* see exhume */
    void (*extra_values)(Pf *pf); /* see exhume; or null */
    int signalled;                /* 1 from a stop signal to the next bury */
} Grave;

/*
 * Opens, locks and reads the state file. Creates the file and missing directories on its path.
 * The name is copied and made absolute, so that it remains right when the program changes its
 * directory.
 *
 * If stop_flag is not null, it is set to 0, and the signals SIGHUP, SIGINT, SIGQUIT and SIGTERM
 * store their number in it. What the signal does then depends on grace_seconds:
 *
 *     0       the signal handler saves the state and exits with status 1
 *     -1      nothing more: the program sees the flag, saves its state and ends by itself
 *     5       if the program has not called bury after 5 seconds, the state is saved and the
 *             process dies with "quitting from resurrection alarm\n"
 *
 * The handler can interrupt any function, for example malloc, and then wait for ever. Therefore
 * each step of the end may take 10 seconds: saving the state, the last message, and the exit
 * functions. If a step takes longer, the process says so on standard error, prints the waiting
 * messages, and ends with status 1. A bury that is running when the grace period ends also gets
 * 10 more seconds. A program that can look at its flag should use -1 or some seconds rather
 * than 0.
 *
 * extra_values may be null. Otherwise each bury calls it with the tree that it is going to
 * write, so that the program can add values. It may call the functions of this header except
 * bury.
 *
 * Returns
 *
 *     1       the state file was read
 *     2       the file is not parameter text: the reasons are logged, nothing is restored
 *     0       there was no state file; an empty one was created
 *     -1      the file could not be opened or created, or is not a regular file; bury will
 *             still try to write it, but replaces no device, pipe or directory
 *     -2      the process already has a state file
 *
 * If another process uses the file, this process ends with status 1 and "*fatal* Can't lock
 * state file '%s' for exclusive use: it is already in use.\n". If the file is on a network file
 * system without locks, exhume complains "Can't lock '%s' on an nfs filesystem: proceeding
 * without lock" and goes on.
 */
STOCK_API int exhume(const char *filename, volatile int *stop_flag, int grace_seconds,
                     void (*extra_values)(Pf *pf));

/*
 * Registers a variable under a name and stores its saved value in it. A second registration of
 * the same name replaces the first. The restored text of a RELIC_STRING is a copy that is never
 * freed.
 *
 * The name is an address in a parameter tree (pf.h): "a{b}" is the entry b of the table a. It
 * is written unchanged. A name is refused if it would not be read back: if it contains a tab, a
 * newline, "#" or a backslash, begins with a double quote, has a first key of more than 1023
 * bytes, or is nested deeper than 11 levels.
 *
 * A text is restored exactly, with one exception: if it contains "&name" or "&{name}" and the
 * state file has a value of that name, the value takes its place, as everywhere in parameter
 * text. A RELIC_TIME that is not finite, or lies before the year 0, is not restored.
 *
 * Returns 0 if there was a saved value, and 1 if there was none and the variable keeps its
 * value. Returns -1 before exhume, and, with a complaint, if the name or the address is
 * missing, the type does not exist, or the name is refused.
 */
STOCK_API int resurrect(const char *name, void *address, int type);

/*
 * Writes the extra values and all registered variables to a new alternate file, flushes it to
 * the disk, and renames it to the state file when it is complete. Any file that had the
 * alternate name is removed; a link is not followed.
 *
 * Returns 0 if the state was saved. Returns -1 before exhume and if the same thread is already
 * inside bury. Also returns -1 if it fails, with one of these complaints; the earlier state
 * then remains:
 *
 *     Can't write alternate state file %s
 *     Wrote %ld bytes to alternate state file %s instead of %ld
 *     Can't close alternate state file %s                        also if flushing fails
 *     failed to rename state file %s to %s
 *
 * If a name contradicts another one, such as "a{b}" and "a", bury complains "Can't save '%s' in
 * state file %s", saves the other values, and returns -1.
 */
STOCK_API int bury(void);

/*
 * Returns the absolute name of the state file; before exhume, the name that custom_gravesite was
 * given, or null. The name is borrowed and valid until the process ends.
 */
STOCK_API const char *gravesite(void);

/* Sets what gravesite returns before exhume. The name is not copied. */
STOCK_API void custom_gravesite(const char *filename);

/*
 * Locks the open state file; exhume calls it. If the file is in use, ends the process or
 * complains as described there.
 */
STOCK_API void lockstate(Grave *grave);

/*
 * The signal handlers that exhume installs. signal_handler handles the stop signals; it leaves
 * errno unchanged, and dies if exhume was not called. alarm_handler handles the end of the grace
 * period: it saves the state and dies, unless bury was called since the signal. A bury that has
 * begun since gets 10 seconds.
 */
STOCK_API void signal_handler(int sig);
STOCK_API void alarm_handler(void);

STOCK_END_DECLS

#endif
