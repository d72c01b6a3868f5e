/*
 * elog.h - the message log.
 *
 * These functions report messages to the user of a program. Each message has a severity. A
 * message of severity "log" is not delivered at once: it waits on the log's stack, which the
 * whole process shares. A message of any other severity is delivered at once: first the waiting
 * messages, oldest first, and then the message itself. The stack is empty afterwards.
 *
 * So a function that finds the reason of a failure logs it and returns an error. Its caller
 * decides whether the failure matters, and complains if it does. The user then reads the reasons
 * and the consequence in order.
 *
 *     elog_log(1, "can't open %s", path);          in the function that finds the reason
 *     elog_complain(0, "no rain for %s", gauge);   in a caller
 *
 *     prog: can't open rain/x
 *             No such file or directory
 *     prog: no rain for x
 *
 * Every severity has three settings of at most 47 characters: where its messages go (the
 * delivery), what stands before them (the tag), and a debugger command. The settings come from
 * elog.pf, are overridden by the environment, and default to this table:
 *
 *     number  name       delivery   tag            debugger     afterwards
 *     0       log        (waits)    %P                          returns
 *     1       debug      stderr     %P *debug*                  returns
 *     2       notify     stderr     %P                          returns
 *     3       alert      stderr     %P *alert*                  returns
 *     4       complain   stderr     %P                          returns
 *     5       die        stderr     %P *fatal*     gdb %r %p    exits with status 1
 *     6       fault      stderr     %P *fault*     gdb %r %p    aborts
 *
 * The debugger commands of the table are used only if ELOG_DEBUG selects them.
 *
 * One lock protects the stack and the delivery of messages. A thread that already holds it,
 * because it reports during a delivery or from the program's callback, does not wait for it. All
 * functions may be called from any thread unless they say otherwise. Running out of memory ends
 * the process with a message and status 1, even if there is no memory left for the report.
 *
 * Environment: ELOG_DELIVER, ELOG_TAG and ELOG_DEBUG, see elog_fill_from_env; ELOG_MAXMSG, how
 * many messages may wait (50 by default; below 1 there is no limit); ELOG_WAIT, the seconds to
 * wait for a debugger; ELOG_REFERENCE_TIME, the time from which %e counts; ELOG_SIGNALS, the
 * faults to catch; ELOG_STACK, the severities after which a stack trace is printed, see
 * elog_setup_show_stack.
 */

#ifndef STOCK_ELOG_H
#define STOCK_ELOG_H

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

#include "export.h"
#include "tbl.h"

STOCK_BEGIN_DECLS

struct Pf; /* a parameter tree, see pf.h */

/* Bytes of one setting, including the terminator; a longer text is cut. */
enum { ELOG_FIELD_SIZE = 48 };

/* The severities. */
enum {
    ELOG_LOG = 0,
    ELOG_DEBUG = 1,
    ELOG_NOTIFY = 2,
    ELOG_ALERT = 3,
    ELOG_COMPLAIN = 4,
    ELOG_DIE = 5,
    ELOG_FAULT = 6
};

/* One waiting message. The stack is a direct list of these records. */
typedef struct Elog_msg {
    char *tag;        /* owned: the expanded tag, or null; has the newline that a text began with */
    char *msg;        /* owned: the text, which ends in a newline */
    char *sys;        /* owned: the meaning of errno, or null */
    int32_t severity; /* 0 .. 6 */
    int32_t count;    /* how often it was reported in a row; 1 at first */
    uint64_t thread;  /* pthread_self() of the reporting thread */
} Elog_msg;

/*
 * A callback, with which a program shows messages in its own way; see ELOG_CALLBACK_FN.
 *
 * It is called with the severity of the report (2 for elog_flush and elog_clear_register), the
 * text of all messages, which is valid during the call, and the stack. It returns 0 to have the
 * messages delivered, and another value if it has handled them; they are then dropped. It runs
 * with the log's lock held. What it reports itself is delivered without calling it again. It may
 * throw an exception, but must not leave with longjmp, because the lock would be held for ever.
 */
typedef int (*Elog_callback)(int severity, const char *text, Tbl *stack);

/*
 * Reporting.
 *
 * The message is formatted as by printf. If it does not end in a newline, one is added. If it
 * begins with a newline, an empty line is printed before it: the newline is moved to the tag. An
 * empty message, or a null format, is an empty line without a tag. If the same text is logged
 * several times in a row, it is kept once and printed with "\t** repeated %d times".
 *
 * A message of up to 10,237 characters is kept whole. From 10,238 to 10,240 characters, the first
 * 10,237 are kept, without a mark. Of a longer message the first 10,207 are kept, followed by
 * "\n\t...  ** truncated by elog ***\n".
 *
 * If flag is not 0 and errno is not 0, a line with the meaning of errno follows the message. A
 * message or tag that begins with "*stack*" is followed by a stack trace.
 *
 * errno is 0 afterwards.
 */

/* Adds a message to the stack. If ELOG_MAXMSG messages (50) wait already, the process quits. */
STOCK_API void elog_log(int flag, const char *format, ...) STOCK_PRINTF(2, 3);

/* Delivers the stack and a message for the developer. */
STOCK_API void elog_debug(int flag, const char *format, ...) STOCK_PRINTF(2, 3);

/* Delivers the stack and a message that is not an error. */
STOCK_API void elog_notify(int flag, const char *format, ...) STOCK_PRINTF(2, 3);

/* Delivers the stack and a message that somebody should see. */
STOCK_API void elog_alert(int flag, const char *format, ...) STOCK_PRINTF(2, 3);

/* Delivers the stack and an error. */
STOCK_API void elog_complain(int flag, const char *format, ...) STOCK_PRINTF(2, 3);

/* Delivers the stack and the message, saves the program's state and exits with status 1. */
STOCK_NORETURN STOCK_API void elog_die(int flag, const char *format, ...) STOCK_PRINTF(2, 3);

/* Delivers the stack and the message and aborts the process. */
STOCK_NORETURN STOCK_API void elog_fault(int flag, const char *format, ...) STOCK_PRINTF(2, 3);

/*
 * Reports a message of any severity with an argument list; for functions that wrap the log. It
 * returns for ELOG_DIE and ELOG_FAULT too. Any other number is delivered as a complaint.
 */
STOCK_API void elog(int severity, int flag, const char *format, va_list args) STOCK_PRINTF(3, 0);

/*
 * Prints the message unchanged and in full, the meaning of errno and the stack to standard error,
 * and exits with status 1. It is for the case that the log itself cannot go on: it uses no
 * settings, tag or callback, and saves no state.
 */
STOCK_NORETURN STOCK_API void elog_fatal(const char *format, ...) STOCK_PRINTF(1, 2);

/*
 * Return the text of one message as it would be delivered: tag, message and, if flag is not 0,
 * the meaning of errno. They print and keep nothing, and leave errno unchanged.
 *
 * Returns a new string that the caller frees with free.
 */
STOCK_API char *elogs(int severity, int flag, const char *format, va_list args) STOCK_PRINTF(3, 0);
STOCK_API char *elogstr(int severity, int flag, const char *format, ...) STOCK_PRINTF(3, 4);

/*
 * Starting.
 */

/*
 * Sets the log up: finds the program's name, reads the settings from elog.pf and the environment,
 * and keeps a copy of the command line if argc is above 0. Call it first in main. Code that needs
 * the log earlier calls it with 0 and null.
 *
 * A later call reads the environment again, except for ELOG_MAXMSG, ELOG_SIGNALS and ELOG_STACK;
 * it does not read elog.pf again. A call does nothing while another call is still running, and
 * does not change the settings while another thread delivers.
 *
 * Returns 0 and leaves errno unchanged.
 */
STOCK_API int elog_init(int argc, char **argv);

/*
 * Sends the messages of all severities except "log" to standard error. Also sets the variable
 * ELOG_DELIVER, so that programs started by this one do the same.
 *
 * Returns 0, or -1 if the variable could not be set.
 */
STOCK_API int elog2stderr(void);

/* Reports the command line, the text of elog_commandline_str, with severity "notify". */
STOCK_API void elog_commandline(void);

/*
 * Returns "\n--> ", the program's name and its arguments, each after a blank, and " <#>\n\n", cut
 * to 1023 characters. The caller frees the string with free.
 */
STOCK_API char *elog_commandline_str(void);

/*
 * Looks up the program's name along PATH, once, and returns the path. If it is not found there,
 * which may happen if the program was started by a path, returns "*?program?*".
 *
 * The log owns the string, which is valid until the process ends.
 */
STOCK_API const char *elog_cmdline(void);

/*
 * The stack. A mark is the number of messages on the stack at some moment. A function that takes
 * a mark works on the messages from that position on: those that were logged after the mark was
 * taken. A negative mark counts as 0.
 *
 *     int mark = elog_mark();
 *     if (try_one_way() == 0 || try_another() == 0)
 *         elog_flush(0, mark);        it worked: drop the messages
 *     else
 *         elog_complain(0, "...");    deliver the messages and this one
 */

/* Returns the number of messages on the stack. */
STOCK_API int elog_mark(void);

/* Frees the messages from mark on. */
STOCK_API void elog_truncate(int mark);

/* Frees all messages. errno is 0 afterwards. */
STOCK_API void elog_clear(void);

/*
 * Frees the messages from mark on. If deliver is not 0 and there are any, they are first passed
 * to the callback and, unless the callback handles them, delivered where complaints go.
 */
STOCK_API void elog_flush(int deliver, int mark);

/*
 * Frees all messages. If deliver is not 0, they are first passed to the callback, even if there
 * are none, and, unless the callback handles them, delivered where complaints go. errno is 0
 * afterwards.
 */
STOCK_API void elog_clear_register(int deliver);

/*
 * Prints the messages from mark on, which stay on the stack:
 *
 *     tag: message                   without "tag: " if there is no tag
 *     <tab>meaning of errno          if it was asked for
 *     <tab>** repeated 3 times       if it was reported three times in a row
 *
 * If the stream is standard error, flushes standard output first. Flushes the stream at the end.
 * A null stream is ignored.
 */
STOCK_API void elog_print(FILE *stream, int mark);

/*
 * Returns the text that elog_print prints as a new string that the caller frees with free. It is
 * empty if there are no messages.
 */
STOCK_API char *elog_string(int mark);

/*
 * Write the messages from mark on, or one message, to a descriptor, each with one write. The
 * layout is that of elog_print, with "\t##=> " before the meaning of errno. A negative descriptor
 * and errors of writing are ignored.
 */
STOCK_API void elog_printfd(int fd, int mark);
STOCK_API void elog_msg_printfd(int fd, const Elog_msg *msg);

/*
 * Prints as fprintf does, and holds the log's lock meanwhile, so that no other thread delivers
 * messages.
 *
 * Returns the result of vfprintf, or -1 for a null stream or format.
 */
STOCK_API int elog_fprintf(FILE *stream, const char *format, ...) STOCK_PRINTF(2, 3);

/* Returns the name of a severity, a constant string, or null outside 0 .. 6. */
STOCK_API const char *elog_severity(int severity);

/*
 * Frees the three strings of an Elog_msg, but not the record. Pass it to freetbl to free a list
 * of messages. Null is ignored.
 */
STOCK_API void elog_free_msg(void *msg);

/*
 * Delivery.
 */

/*
 * Delivers the waiting messages from mark on, and then msg unless it is null. The delivery is a
 * list of words separated by blanks or tabs. All messages go to the first word, then to the next
 * one, and so on:
 *
 *     stderr, stdout    the stream
 *     /path, .path      a file; it is created if necessary, and the messages are appended
 *     /dev/null         nowhere; the messages are dropped
 *     qel:target        the messaging library, as by call_qelelog, without the log's lock
 *     log               nowhere; the messages are kept
 *     o...              the same, for any word that begins with "o"
 *
 * Any other word is reported on standard error. So is a file that cannot be opened, written or
 * closed. The meaning of errno and the stack are printed after that report, and the stack is
 * cleared: the following words get only msg. Afterwards msg is dropped, unless the bad word
 * begins with "l".
 *
 * The messages that were delivered are freed: those of the stack, and the strings of msg, whose
 * pointers become null. If they were not delivered anywhere, the stack stays and msg is moved
 * onto it; the process quits if ELOG_MAXMSG messages are there already.
 */
STOCK_API void elog_deliver(const char *delivery, int mark, Elog_msg *msg);

/*
 * Passes a text to the messaging library: calls the routine qelelog(target, program, text) of
 * lib/libqel under the installation root, which returns an int. The library is loaded on first
 * use. If the library or the routine does not exist, this is reported once on standard error, and
 * the text is printed there after the program's name and ": ".
 *
 * Returns the result of the routine, or 0 if there is no routine.
 */
STOCK_API int call_qelelog(const char *target, const char *program, const char *text);

/*
 * Tags.
 */

/*
 * Writes a template to out, which has room for max bytes, and replaces these codes:
 *
 *     %P    the program's name           %s    the severity's name, <BAD> outside 0 .. 6
 *     %p    the process id               %h    the host's name up to the first dot
 *     %T    the thread, pthread_self()   %a    the arguments, each followed by a blank
 *     %r    the program's path, the result of elog_cmdline
 *     %e    seconds since the reference time, as %10.6f
 *     %t    the local time, as "%a %b %e %H:%M:%S %Y" or as t_format of elog.pf
 *     %u    the UTC, as "%Y-%j %H:%M:%S" or as u_format of elog.pf
 *     %%    a percent sign; any other character after % also stands for itself
 *
 * If a character or code brings the text to more than max - 100 characters, the text ends there
 * with " *..." appended. It is always terminated within max bytes.
 */
STOCK_API void elog_expand(const char *text, int severity, char *out, int max);

/*
 * Applies a value such as that of ELOG_DELIVER to a table of seven settings, one for each
 * severity.
 *
 * The value consists of groups separated by blanks. A group is a text, "@", and the letters of
 * the severities that get the text. Without letters, all seven severities get it. Without a text,
 * they get their defaults. A backslash makes the next character part of the text, whatever it is.
 * A group without "@" extends to the end of the value, and its text may contain blanks.
 *
 *     letter    l log   D debug   n notify   a alert   c complain   d die   f fault
 *
 *     stderr                   everything to standard error
 *     stderr@ncdfDa            everything but "log"
 *     /tmp/x.log stderr@c      complaints to a file and to standard error
 *     @df                      the defaults of "die" and "fault"
 *     %P \@home                "%P @home" for all
 *
 * An unknown letter is reported on standard error and counts as a repetition of the letter before
 * it. An empty value makes the seven settings empty. If the value is null, nothing changes,
 * except that if fill_defaults is not 0 each empty setting gets its default.
 *
 * elog_init applies each variable to its table. Deliveries and tags that are empty then get their
 * defaults.
 */
STOCK_API void elog_fill_from_env(const char *value, char (*table)[ELOG_FIELD_SIZE],
                                  const char *const *defaults, int fill_defaults);

/*
 * Applies an array of a parameter tree to a table of seven settings. name is the key of the
 * array, or its address. The keys of the array are the names of the severities; a severity that
 * is missing gets its default. If there is no such array, nothing changes. A value that is not a
 * string, or a value that is not an array, is complained about by name and ignored.
 *
 *     ELOG_TAG &Arr{
 *         complain    [%s] %P
 *     }
 */
STOCK_API void elog_fill_from_pf(struct Pf *pf, const char *name, char (*table)[ELOG_FIELD_SIZE],
                                 const char *const *defaults);

/*
 * Questions and settings.
 */

/*
 * The codes of elog_query and elog_set. Each remark has the type of the value, what elog_query
 * stores, and after the semicolon what elog_set does; "-" means that the code cannot be set.
 */
enum {
    ELOG_TBL = 0,      /* Tbl *: the stack itself; becomes the stack, a direct list of Elog_msg */
    ELOG_TBL_COPY = 1, /* Tbl *: a deep copy, the caller's; - */
    ELOG_TBL_TAKE = 2, /* Tbl *: a deep copy of the stack, which is then cleared; - */
    ELOG_ARGV = 3,     /* char **: the log's command line; replaces it, not copied */
    ELOG_ARGC = 4,     /* int: the number of arguments; replaces it */
    ELOG_COUNT = 5,    /* int: messages on the stack; truncates it */
    ELOG_MAXMSG_VALUE = 7,  /* int: messages that may wait, below 1 any number; replaces it */
    ELOG_TAG_FIELD = 8,     /* char *: the severity's tag; copied, outside 0 .. 6 for all seven */
    ELOG_DELIVER_FIELD = 9, /* char *: the severity's delivery; copied */
    ELOG_DEBUG_FIELD = 10,  /* char *: the severity's debugger command; copied */
    ELOG_SIGNAL_LIST = 11,  /* char *: the faults that are caught; catches these, not copied */
    ELOG_CALLBACK_FN = 12,  /* Elog_callback: the program's callback; replaces it, null for none */
    ELOG_STRING_FROM = 13,  /* char *: elog_string with the severity as the mark, the caller's; - */
    ELOG_REFERENCE = 14,    /* double: the time that %e counts from; replaces it */
    ELOG_PROGRAM_NAME = 15, /* char *: the program's name; - */
    ELOG_REFUSED = 32       /* int: deliveries that a file or stream did not take; - */
};

/*
 * Stores the item that the code selects in *result, which must have the type of the code. The
 * severity matters only for the codes that name it. Tags, deliveries and debugger commands are
 * borrowed from the log: they are valid until they are set again. The caller frees a copy of the
 * stack with freetbl(copy, elog_free_msg).
 *
 * Returns 0. Returns -1 and stores nothing if the code is unknown, result is null, or the
 * severity of a setting does not exist.
 */
STOCK_API int elog_query(int code, int severity, void *result);

/*
 * Sets the item that the code selects to the argument after severity, which must have the type of
 * the code.
 *
 * Returns 0. Returns -1 and changes nothing if the code is unknown or cannot be set, a setting is
 * null, a list cannot be the stack, or the severity of a delivery or debugger command does not
 * exist.
 */
STOCK_API int elog_set(int code, int severity, ...);

STOCK_END_DECLS

#endif
