/*
 * elog_fault.h - report crashes, print stack traces, start a debugger.
 *
 * elog_init catches the signals of ELOG_SIGNALS, by default ILL, TRAP, FPE, BUS, SEGV and SYS.
 * When one of them occurs, the log prints the stack of the thread that crashed and what the
 * system says about the fault. Then it delivers the messages that waited, the signal's
 * description and a message of severity "fault". Then the process aborts:
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
 * Link the program with -rdynamic so that the stack trace shows the names of its functions.
 *
 * A report is also made if the crash happened inside malloc or during a delivery. It uses the
 * heap for only two things: to show C++ names in readable form, and for the tag codes %r, %t and
 * %u. It omits these if the heap is locked or damaged. It waits one second if another thread is
 * delivering messages, and then goes on without the log's lock.
 *
 * The report runs on a stack of its own. elog_init prepares one for the thread that calls it;
 * any other thread gets one with its first report. In a thread that may overflow its stack, call
 * elog_mark early.
 *
 * If the report itself crashes, or has not finished after 5 seconds, the process prints what
 * was still missing to standard error, the stack first, and ends. During a report, the process's
 * interval timer, SIGALRM, SIGPIPE and SIGXFSZ are used by the report.
 *
 * Environment: ELOG_SIGNALS, see elog_setup_fault_handler; ELOG_STACK, see
 * elog_setup_show_stack; ELOG_WAIT, the seconds to wait for a debugger.
 */

#ifndef STOCK_ELOG_FAULT_H
#define STOCK_ELOG_FAULT_H

#include <signal.h>

#include "export.h"

STOCK_BEGIN_DECLS

#ifdef SI_USER /* in strict C, signal.h declares siginfo_t only if POSIX is requested */

/* A signal handler: called with the signal's number, its information and the machine's state. */
typedef void (*Fault_handler)(int sig, siginfo_t *info, void *context);

/*
 * Installs the handler for the signals of the list: names with or without "SIG", separated by
 * colons. It is called once for each signal: before the call, the signal gets its default action
 * again. It runs on the thread's alternate stack if there is one.
 *
 * The list is not copied. It must remain valid as long as elog_query returns it for
 * ELOG_SIGNAL_LIST. A null list sets that list to "" and changes nothing else.
 *
 * A signal that does not exist or cannot be caught is reported on standard error with "Couldn't
 * intercept signal %s\n". The others are caught.
 */
STOCK_API void setup_fault_handlers(Fault_handler handler, const char *list);

/*
 * The log's own signal handler: reports the fault and aborts the process. A second fault during
 * the report, in any thread, ends the process without a second report.
 */
STOCK_API void _elog_fault(int sig, siginfo_t *info, void *context);

#endif

/* Calls setup_fault_handlers with the log's handler, and prepares what its report needs. */
STOCK_API void elog_setup_fault_handler(const char *list);

/*
 * Reads letters of severities from the environment variable; from then on, a stack trace follows
 * each message of these severities. Other characters are ignored. It only switches traces on,
 * never off.
 *
 *     l log   D debug   n notify   c complain   d die   f fault   a fault as well: meant
 *
 *     ELOG_STACK=ca    after complaints and faults
 */
STOCK_API void elog_setup_show_stack(const char *variable);

/*
 * Runs the debugger command of severity "fault" as _elog_debug does. Does nothing if that command
 * is empty; it is empty unless ELOG_DEBUG or elog.pf sets it.
 */
STOCK_API void elog_debugger(void);

/*
 * Starts a debugger: expands the tag codes of the command, prints "Running debugger: '%s'\n" to
 * standard error, runs the command through the shell, and waits 10 seconds, or ELOG_WAIT. If a
 * debugger was started before, it stops the process instead, so that the debugger takes over;
 * when the process continues, it waits as above. If the command fails, ends the process with
 * "Can't run debugger '%s'\n" and status 1.
 *
 *     gdb %r %p    gdb /usr/bin/prog 1234
 */
STOCK_API void _elog_debug(const char *command);

STOCK_END_DECLS

#endif
