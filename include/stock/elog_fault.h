/*
 * elog_fault.h - crashes: catching fault signals, stack traces, the debugger.
 *
 * elog_init catches the signals of ELOG_SIGNALS, by default ILL, TRAP, FPE, BUS, SEGV
 * and SYS. A caught fault prints, in this order, the stack of the thread that took
 * it, what the system says about the fault, and then the messages that waited, the
 * signal's description and the fault message, delivered as any other; the process
 * then aborts:
 *
 *     Stack
 *     ./prog(read_map+0x1f) [0x55d0c8a3f1ff]
 *     ./prog(main+0x4e) [0x55d0c8a3f24e]
 *     ...
 *       address not mapped to object
 *       Attempt to reference address: (nil)
 *     prog: opening map 3
 *
 *     prog: Segmentation fault
 *     prog *fault*: Signal SIGSEGV : Segmentation fault
 *
 * Functions of the program have names there when it is linked with -rdynamic.
 *
 * The report also comes from a crash inside malloc or in the middle of a delivery. It
 * uses the heap for two things only, names of C++ in plain text and the tag codes %r, %t
 * and %u, and goes without when the heap is locked or broken. It waits a second for
 * another thread's delivery, and then goes on without the log's lock. It runs
 * on a stack of its own, which elog_init prepares for the thread that calls it and any
 * first report for another: in a thread that may overflow its stack, call elog_mark
 * first. A second crash, or a report that has not come to its end after 5 seconds,
 * ends the process with what it still had to say on standard error, the stack first. While a report
 * is made the process's interval timer, SIGALRM, SIGPIPE and SIGXFSZ belong to it.
 *
 * Environment: ELOG_SIGNALS, see elog_setup_fault_handler; ELOG_STACK, see
 * elog_setup_show_stack; ELOG_WAIT, the seconds that a debugger is given.
 */

#ifndef STOCK_ELOG_FAULT_H
#define STOCK_ELOG_FAULT_H

#include <signal.h>

#include "export.h"

STOCK_BEGIN_DECLS

#ifdef SI_USER /* strict C shows siginfo_t only to those who ask for POSIX */

/* Handles a signal: its number, what the system says of it, the state of the machine. */
typedef void (*Fault_handler)(int sig, siginfo_t *info, void *context);

/*
 * Lets the handler be called for the signals of the list, names with or without
 * "SIG" between colons. It is called once for each: when it is called the signal has
 * its default action again. It runs on the thread's alternate stack if there is one.
 *
 * The list is not copied: it stays the caller's and must live as long as it is the one
 * that ELOG_SIGNAL_LIST gives. A null list makes that "" and changes nothing else.
 *
 * A signal that does not exist or cannot be caught is reported on standard error with
 * "Couldn't intercept signal %s\n", and the others are caught all the same.
 */
STOCK_API void setup_fault_handlers(Fault_handler handler, const char *list);

/*
 * The log's own handler: reports the fault and aborts the process. A second fault that
 * comes meanwhile, in whatever thread, ends the process without a report of its own.
 */
STOCK_API void _elog_fault(int sig, siginfo_t *info, void *context);

#endif

/* Calls setup_fault_handlers with the log's handler and prepares for its report. */
STOCK_API void elog_setup_fault_handler(const char *list);

/*
 * Lets a stack trace follow each message of the severities whose letters stand in the
 * environment variable; other characters are ignored. Nothing is switched off.
 *
 *     l log   D debug   n notify   c complain   d die   f fault   a fault as well: meant
 *
 *     ELOG_STACK=ca    after complaints and faults
 */
STOCK_API void elog_setup_show_stack(const char *variable);

/*
 * Runs the debugger command of severity "fault" as _elog_debug does; nothing when it
 * is empty, as it is unless ELOG_DEBUG or elog.pf sets it.
 */
STOCK_API void elog_debugger(void);

/*
 * Starts a debugger: expands the tag codes of the command, prints "Running debugger:
 * '%s'\n" to standard error, runs it through the shell and waits Elog_wait seconds
 * (10, or ELOG_WAIT). When one was started before, the process is stopped instead, so
 * that the debugger takes over, and waits when it goes on. A command that fails ends
 * the process with "Can't run debugger '%s'\n" and status 1.
 *
 *     gdb %r %p    gdb /usr/bin/prog 1234
 */
STOCK_API void _elog_debug(const char *command);

STOCK_END_DECLS

#endif
