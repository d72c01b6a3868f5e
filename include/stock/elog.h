/*
 * elog.h - the message log.
 *
 * Messages of severity "log" wait on one process-wide stack. A message of any
 * other severity is delivered at once: first what waits, oldest first, then
 * itself. Whoever knows why something failed logs the reason; whoever decides
 * that it matters complains, and the user reads the whole chain in order.
 */

#ifndef STOCK_ELOG_H
#define STOCK_ELOG_H

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

#include "export.h"
#include "tbl.h"

STOCK_BEGIN_DECLS

/* One message of the stack. */
typedef struct Elog_msg {
    char *tag; /* owned: the expanded tag, or null */
    char *msg; /* owned: the text, which ends in a newline */
    char *sys; /* owned: what errno meant, or null */
    int32_t severity;
    int32_t count;   /* how many times in a row it was reported */
    uint64_t thread; /* the thread that reported it */
} Elog_msg;

/* Bytes of one field of the delivery, tag and debugger tables, the end of the text included. */
enum { ELOG_FIELD_SIZE = 48 };

typedef int (*Elog_callback)(int severity, const char *text, Tbl *stack);

enum {
    ELOG_TBL = 0,
    ELOG_TBL_COPY = 1,
    ELOG_TBL_TAKE = 2,
    ELOG_ARGV = 3,
    ELOG_ARGC = 4,
    ELOG_COUNT = 5,
    ELOG_MAXMSG_VALUE = 7,
    ELOG_TAG_FIELD = 8,
    ELOG_DELIVER_FIELD = 9,
    ELOG_DEBUG_FIELD = 10,
    ELOG_SIGNAL_LIST = 11,
    ELOG_CALLBACK_FN = 12,
    ELOG_STRING_FROM = 13,
    ELOG_REFERENCE = 14,
    ELOG_PROGRAM_NAME = 15
};

STOCK_API int elog_init(int argc, char **argv);

STOCK_API void elog(int severity, int flag, const char *format, va_list args) STOCK_PRINTF(3, 0);
STOCK_API void elog_log(int flag, const char *format, ...) STOCK_PRINTF(2, 3);
STOCK_API void elog_debug(int flag, const char *format, ...) STOCK_PRINTF(2, 3);
STOCK_API void elog_notify(int flag, const char *format, ...) STOCK_PRINTF(2, 3);
STOCK_API void elog_alert(int flag, const char *format, ...) STOCK_PRINTF(2, 3);
STOCK_API void elog_complain(int flag, const char *format, ...) STOCK_PRINTF(2, 3);
STOCK_NORETURN STOCK_API void elog_die(int flag, const char *format, ...) STOCK_PRINTF(2, 3);
STOCK_NORETURN STOCK_API void elog_fault(int flag, const char *format, ...) STOCK_PRINTF(2, 3);
STOCK_NORETURN STOCK_API void elog_fatal(const char *format, ...) STOCK_PRINTF(1, 2);

STOCK_API int elog_mark(void);
STOCK_API void elog_truncate(int mark);
STOCK_API void elog_clear(void);
STOCK_API void elog_flush(int deliver, int mark);
STOCK_API void elog_clear_register(int deliver);
STOCK_API void elog_print(FILE *stream, int mark);
STOCK_API char *elog_string(int mark);
STOCK_API const char *elog_severity(int severity);
STOCK_API void elog_free_msg(void *msg);

STOCK_API void elog_deliver(const char *delivery, int mark, Elog_msg *msg);
STOCK_API void elog_expand(const char *text, int severity, char *out, int max);
STOCK_API void elog_fill_from_env(const char *value, char (*table)[ELOG_FIELD_SIZE],
                                  const char *const *defaults, int fill_defaults);
STOCK_API char *elogs(int severity, int flag, const char *format, va_list args) STOCK_PRINTF(3, 0);
STOCK_API char *elogstr(int severity, int flag, const char *format, ...) STOCK_PRINTF(3, 4);
STOCK_API int elog_fprintf(FILE *stream, const char *format, ...) STOCK_PRINTF(2, 3);
STOCK_API void elog_commandline(void);
STOCK_API char *elog_commandline_str(void);
STOCK_API const char *elog_cmdline(void);
STOCK_API int elog2stderr(void);
STOCK_API void elog_printfd(int fd, int mark);
STOCK_API void elog_msg_printfd(int fd, const Elog_msg *msg);
STOCK_API int call_qelelog(const char *target, const char *program, const char *text);

STOCK_API int elog_query(int code, int severity, void *result);
STOCK_API int elog_set(int code, int severity, ...);

STOCK_END_DECLS

#endif
