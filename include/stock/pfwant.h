/*
 * pfwant.h - the parameters that a program wants, declared once in a table.
 *
 * A row of the table says where a value stands in the parameter file, what it is and
 * which variable takes it, its default, its bounds, and a line for people:
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
 * pfwant reads a tree into the variables, all of them or none; pffollow does so for the
 * files of a name whenever they change; pfwant_print writes the file that says all this.
 * The library checks each value: its kind, its bounds, that the number fits and nothing
 * trails behind it, and that every key is one that somebody wants.
 *
 * Variables. Those of texts, lists and tables begin as null, as static ones do. What
 * they point to belongs to the table: do not free or change it. It stays where it is
 * until pfwant returns 0 or pffollow 1, and then too if its value is still the same; so
 * read a pointer from its variable again after such a call. pfwant_free frees it all.
 *
 * Problems. Each is one message that is logged (elog_log), for the program to go on with:
 *
 *     gauge.pf:12: limits{north}: 'abc' is not a number (0 to 1000)
 *     gauge.pf:3: intreval: nothing wants this; did you mean 'interval'?
 *
 * A tree that was not read from files by a name has no places: there the address comes
 * first. Of many problems the first 20 are told, and fewer when nearly as many messages
 * wait already as may wait, so a bad file never ends a program; the last message then
 * says how many more there are.
 *
 * Threads. These functions write the variables without a lock: one thread at a time
 * calls them for one table, and who reads the variables meanwhile shares a lock with it.
 * Running out of memory ends the process.
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
 * What a value is. Each has a macro of the same name that gives a row its kind and its
 * variable, and does not compile with a variable of another type:
 *
 *     PFWANT_INT(&v)            int       4  -3  0x1f  010 (8, as in C)
 *     PFWANT_INT64(&v)          int64_t   the same
 *     PFWANT_DOUBLE(&v)         double    2.5  1e-3  inf, where no bound is on that side
 *     PFWANT_BOOLEAN(&v)        int       1 for yes, true, on, ok, y, t, 1; 0 for no, false,
 *                                         off, n, f, 0
 *     PFWANT_TEXT(&v)           char *    any text; the bounds are those of its length
 *     PFWANT_WORD(&v, "a b")    int       one of the words: 0 for the first, 1 for the next
 *     PFWANT_SIZE(&v)           int64_t   bytes: 512  10 MB  64KiB  1.5G
 *     PFWANT_DURATION(&v)       double    seconds: 90 s  1 h 30 m  2d  250 ms  10
 *     PFWANT_TIME(&v)           double    seconds since 1970: what str2epoch reads
 *     PFWANT_LIST(&v, KIND)     Tbl *     a list of one of the above
 *     PFWANT_WORDS(&v, "a b")   Tbl *     a list of words
 *     PFWANT_TABLE(&v, KIND)    Arr *     a table of named values of one of the above
 *     PFWANT_RECORDS(&v, wants, Type)     Arr *: a table of named tables; each becomes a
 *                                         Type whose members the rows of wants fill
 *     PFWANT_ANY()                        a key that is allowed and not read; with the
 *                                         address "*", or "limits{*}", any key there
 *
 * Sizes: k (or K), M, G, T, P and E are powers of 1000, Ki, Mi, Gi, Ti, Pi and Ei of
 * 1024; a B may follow, and blanks stand between number and unit or not. The size must be
 * a whole number of bytes, and none is below 0.
 *
 * Durations: numbers with the units w, d, h, m (or min), s (or sec), ms, us, ns or
 * week(s), day(s), hour(s), minute(s), second(s), the larger ones first. A number alone
 * is seconds. They are read exactly: the result is the double nearest to the sum. A
 * number with a unit has at most nine decimals. None is below 0, but where low is.
 *
 * A Tbl of texts holds char *, any other holds the values in place:
 * *(double *)gettbl(list, i). An Arr leads from a name to the text, to the value
 * (*(double *)getarr(table, "north")) or to the record.
 *
 * White space around a text counts as nothing, but for PFWANT_TEXT. What is not a number
 * ("nan") is never one.
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

/* In C++ a row may leave members out without a warning. */
#ifdef __cplusplus
#define PFWANT_UNSET                                                                               \
    {                                                                                              \
    }
#else
#define PFWANT_UNSET
#endif

/* A row. The library never changes or frees one; a table outlives what follows it. */
typedef struct Pfwant {
    const char *address PFWANT_UNSET; /* of pfresolve, without blanks: "a", "a{b}", "a[2]"; */
                                      /* null ends the table */
    int kind PFWANT_UNSET;            /* PFWANT_INT, ... */
    int of PFWANT_UNSET;              /* of a list or a table: the kind of its elements */
    void *value PFWANT_UNSET;         /* the variable; in a row of a record the member, as */
                                      /* PFWANT_AT gives it: its offset */
    const char *words PFWANT_UNSET;   /* of PFWANT_WORD: the words, with blanks between them */
    const struct Pfwant *entries PFWANT_UNSET; /* of PFWANT_RECORDS: the rows of a record, */
    size_t size PFWANT_UNSET;                  /* and the bytes of one */
    /*
     * The default, read as if it stood in the file: references such as &{directory} and
     * functions count. Of a list or table it is what stands between the braces: an
     * element, or a name and a value, on each line. Null: the value is required.
     */
    const char *fallback PFWANT_UNSET;
    /*
     * The lowest and the highest value, of a list or table those of each element; of texts
     * bytes. Both 0: any value. high 0 with low above 0, or an infinity: no bound on that
     * side. Durations are bounded in seconds, times in seconds since 1970, sizes in bytes.
     */
    double low PFWANT_UNSET;
    double high PFWANT_UNSET;
    const char *about PFWANT_UNSET; /* one line that says what it is for, or null */
} Pfwant;

#undef PFWANT_UNSET

/* p, which must lead to a type. */
#ifdef __cplusplus
#define PFWANT_CHECKED(type, p) (1 ? (p) : static_cast<type *>(nullptr))
#define PFWANT_NULL nullptr
#else
#define PFWANT_CHECKED(type, p) (1 ? (p) : (type *)0)
#define PFWANT_NULL NULL
#endif

/* The member of a record, for the rows of PFWANT_RECORDS: PFWANT_INT(PFWANT_AT(Limit, mm)) */
#ifdef __cplusplus
#define PFWANT_AT(type, member) reinterpret_cast<decltype(type::member) *>(offsetof(type, member))
#else
#define PFWANT_AT(type, member) ((__typeof__(((type *)0)->member) *)offsetof(type, member))
#endif

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

/* In the place of a default: the file must give the value. */
#define PFWANT_REQUIRED PFWANT_NULL

/* The last row. */
#define PFWANT_END                                                                                 \
    {                                                                                              \
        PFWANT_NULL, 0, 0, PFWANT_NULL, PFWANT_NULL, PFWANT_NULL, 0, PFWANT_NULL, 0, 0,            \
            PFWANT_NULL                                                                            \
    }

/*
 * Reads what the table wants from a tree, each value once, into its variables. Null is
 * a tree without values: every variable takes its default.
 *
 * A key that no row wants is a problem, in the tree as in its tables that rows lead
 * into; but pf_revision_time is not, nor is a key that a reference of the tree names.
 *
 * Returns 0 with all variables set; -1 with the problems logged and no variable changed.
 */
STOCK_API int pfwant(Pf *pf, const Pfwant *wants);

/*
 * Reads the parameter files of a name (see pfread) as pfwant does when one is new, was
 * changed or replaced, or is gone. A daemon calls it in every round.
 *
 * A change is seen by the paths of the files, their times, sizes and inodes and, while
 * the change is less than some seconds old, by their bytes; none is lost because it
 * came in the same moment as another. Files that changed within the last tenth of a
 * second may still be written: then it waits until they have been left alone for so
 * long, one second at most; beyond that the next call looks again.
 *
 * A file that is not whole is not used: one with an error in its text, that cannot be
 * opened, is empty, holds a zero byte, or whose last line has no newline.
 *
 * Returns
 *
 *      1  with all values new, after the first reading, a change of values, or one
 *         that ends a -1. Each value that changed is one logged message:
 *         "interval: 5 -> 10"
 *      0  when nothing changed, in the files or in any value
 *     -1  with the problems logged and all variables as they were: once for each change
 *         of the files. When there is no file at all, that is a problem.
 *
 * Report or clear (elog_clear) what was logged after each call that did not return 0.
 */
STOCK_API int pffollow(const char *name, const Pfwant *wants);

/*
 * The tree that the variables of the table were read from by pffollow, for what is not
 * in the table. Null before pffollow has returned 1. Borrowed until it does again.
 */
STOCK_API Pf *pffollowed(const char *name, const Pfwant *wants);

/*
 * Frees the texts, lists and tables of the table's variables, which are null
 * afterwards, and what pffollow keeps for the table.
 */
STOCK_API void pfwant_free(const Pfwant *wants);

/*
 * Writes the parameter file that gives each value its default, with what the table says
 * in comments; a required value stands behind a "#". What is written is read by pfwant
 * with the same table, and "stock pf check --with" checks files by its lines "#: ".
 *
 *     # from sample to sample
 *     #: interval: duration, 0.1 s to 3600 s
 *     interval    10 s
 *
 * Returns 0, or -1 for a null stream or table. Whether the stream took the text is the
 * stream's to say (ferror).
 */
STOCK_API int pfwant_print(const Pfwant *wants, FILE *stream);

/*
 * One value at an address, or at an index (pfindex) of a list; the fallback, silently,
 * when it is missing. The value is evaluated once. One that cannot be read as what it
 * should be is complained about as a problem of pfwant is, with file and line, and the
 * fallback is returned. Kinds and spellings are those of pfwant: "1 h 30 m", "64 KiB";
 * pfget_boolean_or gives 1 or 0.
 *
 * A text is borrowed as from pfget_string, or the fallback itself, which may be null.
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
