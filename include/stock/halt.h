/*
 * halt.h - stop a program in an orderly way, without a state file.
 *
 * A stop signal (SIGHUP, SIGINT, SIGQUIT, SIGTERM) sets a flag, and the program gets some seconds
 * to finish before it is ended. Programs that save their state use bury.h instead.
 *
 *     static volatile int stop;
 *
 *     setup_signals(&stop, NULL, 5);
 *     while (!stop)
 *         work();
 *
 * A process has one timer (std_set_timer); setting it again replaces the earlier setting. When
 * the timer expires, a signal handler ends the process through elog_die.
 *
 * The handler can have interrupted a function such as malloc and then wait for ever. Therefore
 * each step of the end may take 10 seconds: the mortician, the last message, saving the state of
 * bury.h, and the exit functions. If a step takes longer, the process prints the message, or what
 * it could not do, and the waiting messages on standard error, and ends with status 1.
 *
 * The flag, the handlers and the timer belong to the whole process: call setup_signals and
 * setup_signal_handlers before threads start.
 */

#ifndef STOCK_HALT_H
#define STOCK_HALT_H

#include "export.h"
#include "pf.h"

STOCK_BEGIN_DECLS

/*
 * Arranges that a stop signal sets *flag to 1 and ends the process the given number of seconds
 * later. With less than one second the process is not ended. If mortician is not null, it is
 * called before the end with a new, empty tree, which is freed afterwards. The call itself does
 * not change the flag; flag may be null. A later call replaces all three values.
 *
 * Returns 0; can end the process as setup_signal_handlers does.
 */
STOCK_API int setup_signals(volatile int *flag, void (*mortician)(Pf *pf), int seconds);

/*
 * Installs a handler for SIGHUP, SIGINT, SIGQUIT and SIGTERM. System calls that the signal
 * interrupts fail with EINTR. The earlier handlers are not kept.
 *
 * Returns 0. If the system refuses, ends the process with "Couldn't intercept signal SIGHUP\n",
 * or the name of the other signal.
 */
STOCK_API int setup_signal_handlers(void (*handler)(int sig));

/*
 * Ends the process after a time, which may have a fraction of a second, with "quitting from
 * die_soon alarm\n" and status 1. A program that finishes earlier simply exits.
 *
 * Returns 0. If the timer cannot be started, sleeps for the time and ends the process with
 * "failed to setup timer to die".
 */
STOCK_API int die_soon(double seconds);

/*
 * The signal handlers that setup_signals installs (the first two) and die_soon (the third).
 * halt_signal_handler leaves errno unchanged; if the timer cannot be set, it ends the process
 * with "received signal #%d but failed to set alarm timer". The other two end the process.
 */
STOCK_API void halt_signal_handler(int sig);
STOCK_NORETURN STOCK_API void halt_alarm_handler(void);
STOCK_NORETURN STOCK_API void die_now(void);

STOCK_END_DECLS

#endif
