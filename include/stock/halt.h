/*
 * halt.h - stopping in order, without a state file.
 *
 * A stop signal (SIGHUP, SIGINT, SIGQUIT, SIGTERM) sets a flag of the program's
 * and gives it some seconds to finish; then it is ended. Programs that save their
 * state are stopped by bury.h instead.
 *
 *     static volatile int stop;
 *
 *     setup_signals(&stop, NULL, 5);
 *     while (!stop)
 *         work();
 *
 * A process has one timer (std_set_timer), and whoever sets it last has it. When it
 * runs out the process is ended from a signal handler, through elog_die. The handler
 * may have interrupted anything, also malloc, and would then wait for ever. So each step
 * of the end has 10 seconds: the mortician, the last message, saving the state of
 * bury.h, and what runs at exit. When a step takes longer the process prints that message,
 * or what it could not do, and the messages that wait on standard error, and ends with
 * status 1.
 */

#ifndef STOCK_HALT_H
#define STOCK_HALT_H

#include "export.h"
#include "pf.h"

STOCK_BEGIN_DECLS

/*
 * Lets a signal set *flag to 1 and end the process so many seconds later; with less
 * than one second nothing is ended. The mortician, when there is one, is called
 * before that with a new, empty tree, freed afterwards. The flag, which may be null,
 * is not changed here. A later call replaces all three values.
 *
 * Returns 0; ends the process as setup_signal_handlers does.
 */
STOCK_API int setup_signals(volatile int *flag, void (*mortician)(Pf *pf), int seconds);

/*
 * Installs a handler for SIGHUP, SIGINT, SIGQUIT and SIGTERM. System calls that the
 * signal interrupts fail with EINTR. The handlers that were there are not kept.
 *
 * Returns 0. When the system refuses a signal it ends the process with "Couldn't
 * intercept signal SIGHUP\n", or with the name of the other signal.
 */
STOCK_API int setup_signal_handlers(void (*handler)(int sig));

/*
 * Ends the process after a time, parts of a second included, with "quitting from
 * die_soon alarm\n" and status 1. A program that is done before that exits.
 *
 * Returns 0. Where the timer cannot be started it sleeps for the time itself and
 * ends the process with "failed to setup timer to die".
 */
STOCK_API int die_soon(double seconds);

/*
 * The handlers of setup_signals and of die_soon. halt_signal_handler leaves errno
 * alone, and ends the process with "received signal #%d but failed to set alarm
 * timer" when the timer cannot be set. The other two end the process.
 */
STOCK_API void halt_signal_handler(int sig);
STOCK_NORETURN STOCK_API void halt_alarm_handler(void);
STOCK_NORETURN STOCK_API void die_now(void);

STOCK_END_DECLS

#endif
