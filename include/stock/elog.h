/*
 * elog.h - the message log.
 *
 * A report has a severity and a message. Messages of severity "log" wait on one
 * process-wide stack. A message of any other severity is delivered at once:
 * first what waits, oldest first, then itself, and the stack is empty again.
 * Whoever knows why something failed logs the reason; whoever decides that it
 * matters complains, and the user reads the whole chain in order.
 *
 *     elog_log(1, "can't open %s", path);          deep inside
 *     elog_complain(0, "no rain for %s", gauge);   further up
 *
 *     prog: can't open rain/x
 *             No such file or directory
 *     prog: no rain for x
 *
 * Every severity has three settings of at most 47 characters: where its messages
 * go, the template of their tag, and a debugger command. They come from elog.pf,
 * then from the environment, then from this table:
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
 * The debugger commands of the table hold only where ELOG_DEBUG selects them.
 *
 * One lock guards the stack and its delivery; a thread that holds it, because it
 * reports from inside a delivery or from the program's callback, never waits for
 * it. All functions may be called from any thread unless they say otherwise.
 * Running out of memory ends the process with a message and status 1, even when
 * there is no memory left to report it with.
 *
 * Environment: ELOG_DELIVER, ELOG_TAG and ELOG_DEBUG, see elog_fill_from_env;
 * ELOG_MAXMSG, the number of messages that may wait (50, below 1 any number);
 * ELOG_WAIT, seconds that a debugger is given; ELOG_REFERENCE_TIME, what %e
 * counts from; ELOG_SIGNALS, the faults to catch; ELOG_STACK, the severities that a
 * stack trace follows, see elog_setup_show_stack.
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

/* Bytes of one setting, the end of its text included; what is longer is cut. */
enum { ELOG_FIELD_SIZE = 48 };

/* The severities by name, where a number is asked for. */
enum {
    ELOG_LOG = 0,
    ELOG_DEBUG = 1,
    ELOG_NOTIFY = 2,
    ELOG_ALERT = 3,
    ELOG_COMPLAIN = 4,
    ELOG_DIE = 5,
    ELOG_FAULT = 6
};

/* One message: a record of the stack, which is a direct list of them. */
typedef struct Elog_msg {
    char *tag; /* owned: the expanded tag, or null; begins with a newline where the text did */
    char *msg; /* owned: the text, which ends in a newline */
    char *sys; /* owned: what errno meant, or null */
    int32_t severity; /* 0 .. 6 */
    int32_t count;    /* how many times in a row it was reported, 1 when made */
    uint64_t thread;  /* pthread_self() of the thread that reported it */
} Elog_msg;

/*
 * A program's own way to show messages; see ELOG_CALLBACK_FN.
 *
 * Gets the severity of the report (2 for elog_flush and elog_clear_register), the
 * text of all the messages, valid during the call, and the stack. Returns not 0
 * when it has dealt with the messages, which are then dropped. It runs with the
 * log's lock held; what it reports itself is delivered without calling it again.
 * It may throw, but not jump out (longjmp): the lock would be held for ever.
 */
typedef int (*Elog_callback)(int severity, const char *text, Tbl *stack);

/*
 * Reporting.
 *
 * The message is printed as by printf. A newline is added where it does not end
 * in one. Of a message that begins with a newline the tag takes the newline over,
 * so that an empty line comes first; an empty message, or a null format, is an
 * empty line without a tag. The same text logged twice or more in a row is kept
 * once and printed with "\t** repeated %d times".
 *
 * At most 10,237 characters are kept. A message that would need more than 10,240
 * is cut and ends in "\n\t...  ** truncated by elog ***\n" as its last 32 of
 * 10,239 characters.
 *
 * With flag not 0, and errno not 0, the meaning of errno follows the message on a
 * line of its own. A message or tag that begins with "*stack*" is followed by a
 * stack trace.
 *
 * errno is 0 afterwards.
 */

/* Keeps a message on the stack. With 50 messages there, or ELOG_MAXMSG, the process quits. */
STOCK_API void elog_log(int flag, const char *format, ...) STOCK_PRINTF(2, 3);

/* Delivers the stack and a message for the developer. */
STOCK_API void elog_debug(int flag, const char *format, ...) STOCK_PRINTF(2, 3);

/* Delivers the stack and a message that is no error. */
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
 * Reports with any severity and an argument list. Returns for 5 and 6 as well; a
 * severity that does not exist is delivered as a complaint.
 */
STOCK_API void elog(int severity, int flag, const char *format, va_list args) STOCK_PRINTF(3, 0);

/*
 * Prints the message, of any length and as it is, what errno means and the stack to
 * standard error and exits with status 1. For when the log itself cannot go on:
 * settings, tag and callback play no part, and no state is saved.
 */
STOCK_NORETURN STOCK_API void elog_fatal(const char *format, ...) STOCK_PRINTF(1, 2);

/*
 * Makes the text of one message as it would be delivered: tag, message and, with
 * flag not 0, what errno means. Nothing is printed or kept and errno stays.
 *
 * Returns a new string that the caller frees with free.
 */
STOCK_API char *elogs(int severity, int flag, const char *format, va_list args) STOCK_PRINTF(3, 0);
STOCK_API char *elogstr(int severity, int flag, const char *format, ...) STOCK_PRINTF(3, 4);

/*
 * Starting.
 */

/*
 * Sets the log up: keeps a copy of the command line when argc is above 0, finds the
 * program's name, and reads the settings from elog.pf and the environment. Called
 * first thing in main; what needs the log before that calls it with 0 and null. A
 * later call follows the environment anew, but not ELOG_MAXMSG, ELOG_SIGNALS,
 * ELOG_STACK and elog.pf.
 *
 * Returns 0; errno stays. Does nothing while it already runs, and leaves the
 * settings alone while another thread delivers.
 */
STOCK_API int elog_init(int argc, char **argv);

/*
 * Sends all severities but "log" to standard error, now and, through the variable
 * ELOG_DELIVER, in programs that this one starts.
 *
 * Returns 0, or -1 when the variable could not be set.
 */
STOCK_API int elog2stderr(void);

/* Delivers the command line, as elog_commandline_str gives it, as severity "notify". */
STOCK_API void elog_commandline(void);

/*
 * Gives "\n--> ", the program's name and its arguments, each after a blank, and
 * " <#>\n\n", cut to 1023 characters.
 *
 * Returns a new string that the caller frees with free.
 */
STOCK_API char *elog_commandline_str(void);

/*
 * Gives the path of the running program, looked up along PATH where it is a bare
 * name, or "*?program?*" when it is not found. It is looked up once.
 *
 * Returns a string of the log's, valid until the process ends.
 */
STOCK_API const char *elog_cmdline(void);

/*
 * The stack. A mark is the number of messages at some moment; everything that a
 * mark is given to concerns the messages at that position and above. A negative
 * mark counts as 0.
 *
 *     int mark = elog_mark();
 *     if (try_one_way() == 0 || try_another() == 0)
 *         elog_flush(0, mark);        it worked: forget why one way did not
 *     else
 *         elog_complain(0, "...");    tell all of it
 */

/* Returns the number of messages on the stack. */
STOCK_API int elog_mark(void);

/* Frees the messages from mark on. */
STOCK_API void elog_truncate(int mark);

/* Frees all messages. errno is 0 afterwards. */
STOCK_API void elog_clear(void);

/*
 * Frees the messages from mark on. With deliver not 0 they are first shown to the
 * callback, if there are any, and, unless it deals with them, delivered where
 * complaints go.
 */
STOCK_API void elog_flush(int deliver, int mark);

/*
 * Frees all messages. With deliver not 0 they are first shown to the callback, even
 * an empty stack, and, unless it deals with them, delivered where complaints go.
 * errno is 0 afterwards.
 */
STOCK_API void elog_clear_register(int deliver);

/*
 * Prints the messages from mark on, which stay on the stack:
 *
 *     tag: message                   without "tag: " when there is no tag
 *     <tab>what errno meant          when that was asked for
 *     <tab>** repeated 3 times       when it was reported three times in a row
 *
 * Before it prints to standard error it flushes standard output; afterwards it
 * flushes the stream. A null stream is ignored.
 */
STOCK_API void elog_print(FILE *stream, int mark);

/*
 * Gives what elog_print prints.
 *
 * Returns a new string that the caller frees with free, empty when nothing is there.
 */
STOCK_API char *elog_string(int mark);

/*
 * Writes the messages from mark on, or one message, to a descriptor, each with one
 * write. The layout is that of elog_print but for "\t##=> " before what errno
 * meant. A negative descriptor is ignored, and so is what cannot be written.
 */
STOCK_API void elog_printfd(int fd, int mark);
STOCK_API void elog_msg_printfd(int fd, const Elog_msg *msg);

/*
 * Prints as fprintf does while nobody else can deliver messages.
 *
 * Returns what vfprintf returns, -1 for a null stream or format.
 */
STOCK_API int elog_fprintf(FILE *stream, const char *format, ...) STOCK_PRINTF(2, 3);

/* Returns the name of a severity, borrowed for good, or null outside 0 .. 6. */
STOCK_API const char *elog_severity(int severity);

/*
 * Frees the three strings of an Elog_msg, not the record: a free function for lists
 * of them. Null is ignored, as by free.
 */
STOCK_API void elog_free_msg(void *msg);

/*
 * Delivery.
 */

/*
 * Delivers the stack from mark on, then msg unless it is null. The delivery is a list
 * of words between blanks or tabs, taken from left to right, each of which gets all
 * of it:
 *
 *     stderr, stdout    the stream
 *     /path, .path      the file, appended to and created as needed
 *     /dev/null         nowhere, and the messages are gone
 *     qel:target        the messaging library, as call_qelelog; the lock is free meanwhile
 *     log               nowhere, and the messages are kept
 *     o...              the same; no other word may begin with it
 *
 * Any other word is reported on standard error, as is a file that cannot be opened
 * or closed, together with errno and the stack, which is then cleared. The message
 * counts as delivered all the same, except for a word that begins with "l".
 *
 * What was delivered is freed: the messages of the stack and the strings of msg,
 * whose pointers become null. When it went nowhere the stack stays and msg is moved
 * onto it, and the process quits when ELOG_MAXMSG messages are there already.
 */
STOCK_API void elog_deliver(const char *delivery, int mark, Elog_msg *msg);

/*
 * Hands a text to the messaging library: to the routine qelelog(target, program,
 * text) of lib/libqel under the installation root, which returns an int. The
 * library is loaded when it is first needed. When it or the routine is not there
 * that is told once on standard error, and the text goes there after the program's
 * name and ": ".
 *
 * Returns what the routine returned, 0 without one.
 */
STOCK_API int call_qelelog(const char *target, const char *program, const char *text);

/*
 * Tags.
 */

/*
 * Expands the codes of a template into out, which holds max bytes:
 *
 *     %P    the program's name           %s    the severity's name, <BAD> outside 0 .. 6
 *     %p    the process id               %h    the host's name up to the first dot
 *     %T    the thread, pthread_self()   %a    the arguments, a blank after each
 *     %r    the program's path, as elog_cmdline gives it
 *     %e    seconds since the reference time, as %10.6f
 *     %t    the local time, as "%a %b %e %H:%M:%S %Y" or as t_format of elog.pf
 *     %u    the UTC, as "%Y-%j %H:%M:%S" or as u_format of elog.pf
 *     %%    a percent sign; likewise any other character stands for itself
 *
 * Expansion stops with the character or code that makes more than max - 100
 * characters, and " *..." is appended. The text always ends within max bytes.
 */
STOCK_API void elog_expand(const char *text, int severity, char *out, int max);

/*
 * Applies a value such as that of ELOG_DELIVER to a table of seven settings.
 *
 * The value is a sequence of groups between blanks: a text, "@" and the letters of
 * the severities that get it. Without letters all seven do; without a text they get
 * their defaults. A backslash takes the next character as it is. A group without "@"
 * runs on to the end of the value, for its text may hold blanks.
 *
 *     letter    l log   D debug   n notify   a alert   c complain   d die   f fault
 *
 *     stderr                   everything to standard error
 *     stderr@ncdfDa            everything but "log"
 *     /tmp/x.log stderr@c      complaints to a file and to standard error
 *     @df                      the defaults of "die" and "fault"
 *     %P \@home                "%P @home" for all
 *
 * An unknown letter is reported on standard error and repeats the letter before it.
 * An empty value empties the seven settings. With a null value nothing changes,
 * except that with fill_defaults not 0 each empty setting takes its default.
 *
 * elog_init applies the variables to their tables, and in those of deliveries and
 * tags what is empty then takes its default.
 */
STOCK_API void elog_fill_from_env(const char *value, char (*table)[ELOG_FIELD_SIZE],
                                  const char *const *defaults, int fill_defaults);

/*
 * Applies the array at name, a key or an address, in a parameter tree to a table of
 * seven settings. It is keyed by the names of the severities, and what it lacks takes
 * its default. Without it nothing changes. A value that is no string, or something
 * else in the array's place, is complained about by name and ignored.
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

/* The codes of elog_query and elog_set: the type of the value, what query gives, what set does. */
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
    ELOG_PROGRAM_NAME = 15  /* char *: the program's name; - */
};

/*
 * Stores what the code asks for in *result, an object of the code's type. The
 * severity matters for the three settings, whose fields are borrowed: read them
 * before they are set again. The copies of the stack are freed with
 * freetbl(copy, elog_free_msg).
 *
 * Returns 0, or -1 and nothing stored for an unknown code, a null result or a
 * setting of a severity that does not exist.
 */
STOCK_API int elog_query(int code, int severity, void *result);

/*
 * Sets what the code names to the value after severity, an argument of the code's type.
 *
 * Returns 0, or -1 and nothing changed for an unknown code, one that only answers
 * questions, a null setting, a list that cannot be the stack, or a delivery or
 * debugger command for a severity that does not exist.
 */
STOCK_API int elog_set(int code, int severity, ...);

STOCK_END_DECLS

#endif
