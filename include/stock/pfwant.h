/*
 * pfwant.h - declare the parameters of a program in a table, and read and check them.
 *
 * A row of the table has the address of a value in the parameter file, its kind, the variable that
 * receives it, its default, its bounds, and a description:
 *
 *     static double interval;
 *     static int keep;
 *     static char *state;
 *     static Tbl *gauges;
 *
 *     static const Pfwant Wants[] = {
 *         {"interval", PFWANT_DURATION(&interval), "10 s", 0.1, 3600, "from sample to sample"},
 *         {"keep", PFWANT_INT(&keep), "100", 1, 1e6, "samples that are kept"},
 *         {"state", PFWANT_TEXT(&state), PFWANT_REQUIRED, 0, 0, "the state file"},
 *         {"gauges", PFWANT_LIST(&gauges, PFWANT_TEXT), "north\nsouth", 0, 0, "what is read"},
 *         PFWANT_END,
 *     };
 *
 * pfwant reads a tree into the variables, all of them or none. pffollow does so for the files of a
 * name whenever they change. pfwant_print writes a parameter file with the defaults. The library
 * checks the kind and the bounds of each value, that a number fits its variable and nothing follows
 * it, and that every key of the file is in the table.
 *
 * Variables. A variable of a text, list or table must be null at first, as static variables are.
 * The table owns what the variable points to: do not free or change it. It is valid until pfwant
 * returns 0 or pffollow returns 1; if the value is still the same, it remains valid. So read the
 * pointer from its variable again after such a call. pfwant_free frees all values.
 *
 * Problems. Each problem is logged as one message (elog_log); the program then complains or dies:
 *
 *     gauge.pf:12: limits{north}: 'abc' is not a number (0 to 1000)
 *     gauge.pf:3: intreval: nothing wants this; did you mean 'interval'?
 *
 * If the tree was not read from files by name, the message begins with the address. At most 20
 * problems are logged, and fewer if the log would become full, so that a bad file never ends a
 * program. The last message then says how many more there are.
 *
 * Threads. The variables are set without a lock: only one thread at a time may call these functions
 * for a table, and a thread that reads the variables meanwhile must share a lock with it. Running
 * out of memory ends the process.
 */

#ifndef STOCK_PFWANT_H
#define STOCK_PFWANT_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "export.h"
#include "pf.h"

STOCK_BEGIN_DECLS

/*
 * The kinds of values. Each has a macro of the same name that sets the kind and the variable of a
 * row, and does not compile with a variable of another type:
 *
 *     PFWANT_INT(&v)            int       4  -3  0x1f  010 (8, as in C)
 *     PFWANT_INT64(&v)          int64_t   the same
 *     PFWANT_DOUBLE(&v)         double    2.5  1e-3  inf, if there is no bound on that side
 *     PFWANT_BOOLEAN(&v)        int       1 for yes, true, on, ok, y, t, 1; 0 for no, false,
 *                                         off, n, f, 0
 *     PFWANT_TEXT(&v)           char *    any text; the bounds are those of its length
 *     PFWANT_WORD(&v, "a b")    int       one of the words: 0 for the first, 1 for the next
 *     PFWANT_SIZE(&v)           int64_t   bytes: 512  10 MB  64KiB  1.5G
 *     PFWANT_DURATION(&v)       double    seconds: 90 s  1 h 30 m  2d  250 ms  10
 *     PFWANT_TIME(&v)           double    seconds since 1970: any form of str2epoch
 *     PFWANT_LIST(&v, KIND)     Tbl *     a list of one of the above
 *     PFWANT_WORDS(&v, "a b")   Tbl *     a list of words
 *     PFWANT_TABLE(&v, KIND)    Arr *     a table of named values of one of the above
 *     PFWANT_RECORDS(&v, wants, Type)     Arr *: a table of named tables; each becomes a
 *                                         Type whose members the rows of wants describe
 *     PFWANT_ANY()                        a key that is allowed and not read; the address
 *                                         "*", or "limits{*}", means any key there
 *
 * Sizes: k (or K), M, G, T, P and E are powers of 1000, and Ki, Mi, Gi, Ti, Pi and Ei powers of
 * 1024. A B may follow, and there may be blanks between number and unit. A size must be a whole
 * number of bytes and not negative.
 *
 * Durations: numbers with the units w, d, h, m (or min), s (or sec), ms, us, ns or week(s), day(s),
 * hour(s), minute(s), second(s), larger units first. A number without a unit is in seconds. The
 * result is exact: the double nearest to the sum. A number with a unit has at most nine decimals. A
 * duration must not be negative, unless low is.
 *
 * A Tbl of texts holds char *; any other holds the values themselves: *(double *)gettbl(list, i).
 * An Arr maps a name to the text, to the address of the value (*(double *)getarr(table, "north"))
 * or to the record.
 *
 * White space around a value is ignored, except for PFWANT_TEXT. "nan" is not accepted as a number.
 */
enum {
    PFWANT_INT = 1,
    PFWANT_INT64 = 2,
    PFWANT_DOUBLE = 3,
    PFWANT_BOOLEAN = 4,
    PFWANT_TEXT = 5,
    PFWANT_WORD = 6,
    PFWANT_SIZE = 7,
    PFWANT_DURATION = 8,
    PFWANT_TIME = 9,
    PFWANT_LIST = 10,
    PFWANT_TABLE = 11,
    PFWANT_RECORDS = 12,
    PFWANT_ANY = 13
};

/* Initializers, so that C++ does not warn if a row omits members. */
#ifdef __cplusplus
#define PFWANT_UNSET                                                                               \
    {                                                                                              \
    }
#else
#define PFWANT_UNSET
#endif

/*
 * A row. The library never changes or frees one. A table must remain valid as long as pffollow is
 * used with it.
 */
typedef struct Pfwant {
    const char *address PFWANT_UNSET; /* of pfresolve, without blanks: "a", "a{b}", "a[2]"; */
                                      /* null ends the table */
    int kind PFWANT_UNSET;            /* PFWANT_INT, ... */
    int of PFWANT_UNSET;              /* for a list or table: the kind of its elements */
    void *value PFWANT_UNSET;         /* the variable; in a row of a record PFWANT_AT, the */
                                      /* offset of the member */
    const char *words PFWANT_UNSET;   /* for PFWANT_WORD: the words, separated by blanks */
    const struct Pfwant *entries PFWANT_UNSET; /* for PFWANT_RECORDS: the rows of a record */
    size_t size PFWANT_UNSET;                  /* for PFWANT_RECORDS: the bytes of a record */
    /*
     * The default, read as if it were in the file: references such as &{directory}, also to other
     * defaults, are expanded and functions evaluated. For a list or table it is the text between
     * the braces: an element, or a name and a value, on each line. If it is null, the value is
     * required.
     */
    const char *fallback PFWANT_UNSET;
    /*
     * The lowest and highest value; for a list or table those of each element, for a text those of
     * its length in bytes. If both are 0, any value is accepted. If high is 0 and low above 0, or
     * either is infinite, there is no bound on that side. Bounds of durations are in seconds, of
     * times in seconds since 1970, of sizes in bytes.
     */
    double low PFWANT_UNSET;
    double high PFWANT_UNSET;
    const char *about PFWANT_UNSET; /* a description of one line, or null */
} Pfwant;

#undef PFWANT_UNSET

/* NOLINTBEGIN(bugprone-macro-parentheses): the name of a type stands in none. */

/* The pointer p; does not compile if it points to another type. */
#ifdef __cplusplus
#define PFWANT_CHECKED(type, p) (1 ? (p) : static_cast<type *>(nullptr))
#define PFWANT_NULL nullptr
#else
#define PFWANT_CHECKED(type, p) (1 ? (p) : (type *)0)
#define PFWANT_NULL NULL
#endif

/* A member of a record, for the rows of PFWANT_RECORDS: PFWANT_INT(PFWANT_AT(Limit, mm)) */
#ifdef __cplusplus
#define PFWANT_AT(type, member) (reinterpret_cast<decltype(type::member) *>(offsetof(type, member)))
#else
#define PFWANT_AT(type, member) ((__typeof__(((type *)0)->member) *)offsetof(type, member))
#endif

/* NOLINTEND(bugprone-macro-parentheses) */

#define PFWANT_SCALAR(kind, type, p) kind, 0, PFWANT_CHECKED(type, p), PFWANT_NULL, PFWANT_NULL, 0
#define PFWANT_INT(p) PFWANT_SCALAR(PFWANT_INT, int, p)
#define PFWANT_INT64(p) PFWANT_SCALAR(PFWANT_INT64, int64_t, p)
#define PFWANT_DOUBLE(p) PFWANT_SCALAR(PFWANT_DOUBLE, double, p)
#define PFWANT_BOOLEAN(p) PFWANT_SCALAR(PFWANT_BOOLEAN, int, p)
#define PFWANT_TEXT(p) PFWANT_SCALAR(PFWANT_TEXT, char *, p)
#define PFWANT_WORD(p, words) PFWANT_WORD, 0, PFWANT_CHECKED(int, p), words, PFWANT_NULL, 0
#define PFWANT_SIZE(p) PFWANT_SCALAR(PFWANT_SIZE, int64_t, p)
#define PFWANT_DURATION(p) PFWANT_SCALAR(PFWANT_DURATION, double, p)
#define PFWANT_TIME(p) PFWANT_SCALAR(PFWANT_TIME, double, p)
#define PFWANT_LIST(p, of) PFWANT_LIST, of, PFWANT_CHECKED(Tbl *, p), PFWANT_NULL, PFWANT_NULL, 0
#define PFWANT_WORDS(p, words)                                                                     \
    PFWANT_LIST, PFWANT_WORD, PFWANT_CHECKED(Tbl *, p), words, PFWANT_NULL, 0
#define PFWANT_TABLE(p, of) PFWANT_TABLE, of, PFWANT_CHECKED(Arr *, p), PFWANT_NULL, PFWANT_NULL, 0
#define PFWANT_RECORDS(p, wants, type)                                                             \
    PFWANT_RECORDS, 0, PFWANT_CHECKED(Arr *, p), PFWANT_NULL, wants, sizeof(type)
#define PFWANT_ANY() PFWANT_ANY, 0, PFWANT_NULL, PFWANT_NULL, PFWANT_NULL, 0

/* Instead of a default: the file must have the value. */
#define PFWANT_REQUIRED PFWANT_NULL

/* The last row. */
#define PFWANT_END                                                                                 \
    {                                                                                              \
        PFWANT_NULL, 0, 0, PFWANT_NULL, PFWANT_NULL, PFWANT_NULL, 0, PFWANT_NULL, 0, 0,            \
            PFWANT_NULL                                                                            \
    }

/*
 * Reads the values of a tree into the variables of a table, each value once. A null tree has no
 * values, so that every variable gets its default.
 *
 * A key that no row names is a problem, in the tree and in the tables whose values rows name. Not a
 * problem are pf_revision_time and keys that a reference in the tree names.
 *
 * Returns 0 if all variables are set. Otherwise logs the problems, changes no variable and returns
 * -1.
 */
STOCK_API int pfwant(Pf *pf, const Pfwant *wants);

/*
 * Reads the parameter files of a name (see pfread) as pfwant does, if one of them is new, was
 * changed or replaced, or was removed. A daemon calls it in every round of its loop.
 *
 * It recognises a change by the paths, times, sizes and inodes of the files. For some seconds
 * after a change it also compares their bytes, so that no change is lost that happens at the same
 * moment as another. If a file changed within the last tenth of a second, a program may still be
 * writing it: pffollow then waits until the files have not changed for that long, but one second
 * at most. If they still change, the next call checks again.
 *
 * A file is not used if it has an error in its text, cannot be opened, is empty, contains a zero
 * byte, or its last line has no newline.
 *
 * Returns
 *
 *      1  all values were read: for the first time, because a value changed, or because a
 *         problem was corrected. Each value that changed is logged: "interval: 5 -> 10"
 *      0  neither the files nor any value in them changed
 *     -1  the files changed and have a problem, which is logged; no variable is changed. It
 *         is a problem if there is no file at all. As long as the files do not change,
 *         further calls return 0
 *
 * After any other result than 0, report the logged messages, or drop them with elog_clear.
 */
STOCK_API int pffollow(const char *name, const Pfwant *wants);

/*
 * Returns the tree from which pffollow read the variables, for values that are not in the table. It
 * is borrowed until pffollow returns 1 again. Returns null before pffollow has returned 1.
 */
STOCK_API Pf *pffollowed(const char *name, const Pfwant *wants);

/*
 * Frees the texts, lists and tables of the table's variables, and what pffollow keeps for the
 * table. The variables are null afterwards.
 */
STOCK_API void pfwant_free(const Pfwant *wants);

/*
 * Writes a parameter file with the default of each value, and with the kinds, bounds and
 * descriptions as comments. A required value is written as a comment. pfwant can read the file
 * with the same table, and "stock pf check --with" checks other files by the lines that begin with
 * "#: ".
 *
 *     # from sample to sample
 *     #: interval: duration, 0.1 s to 3600 s
 *     interval    10 s
 *
 * Returns 0, or -1 for a null stream or table. Call ferror to find out whether writing to the
 * stream failed.
 */
STOCK_API int pfwant_print(const Pfwant *wants, FILE *stream);

/*
 * Return one value at an address, or at an index (pfindex) of a list. If it is missing, they
 * return the fallback, without a message. The value is evaluated once. If it cannot be read, they
 * complain with a problem of pfwant, with file and line, and return the fallback. The forms of the
 * values are those of pfwant: "1 h 30 m", "64 KiB". pfget_boolean_or returns 1 or 0 for a value.
 *
 * A text is borrowed from the tree as that of pfget_string, or is the fallback itself, which may be
 * null.
 */
STOCK_API long pfget_int_or(Pf *pf, const char *address, long fallback);
STOCK_API double pfget_double_or(Pf *pf, const char *address, double fallback);
STOCK_API int pfget_boolean_or(Pf *pf, const char *address, int fallback);
STOCK_API const char *pfget_string_or(Pf *pf, const char *address, const char *fallback);
STOCK_API int64_t pfget_size_or(Pf *pf, const char *address, int64_t fallback);
STOCK_API double pfget_time_or(Pf *pf, const char *address, double fallback);
STOCK_API double pfget_duration_or(Pf *pf, const char *address, double fallback);

STOCK_END_DECLS

#endif
