/*
 * pf.h - parameter files: configuration text and the tree that it is read into.
 *
 * Parameter text gives keys their values, one on a line:
 *
 *     # a comment reaches to the end of its line
 *     host        example.org
 *     "two words" a key in quotes may hold blanks
 *     gauges      &Tbl{
 *         north
 *         south
 *     }
 *     limits      &Arr{
 *         heavy   30
 *     }
 *     query       &Literal{
 *     select *
 *     }
 *
 * A value is a text, an ordered list (&Tbl{), a keyed table (&Arr{), a text
 * taken as it stands (&Literal), or a function to be evaluated later
 * (&name(argument)). &Undef{} takes an earlier value of its key away. Tables and
 * lists nest eleven deep. The first zero byte ends the text.
 *
 * Each value is a node of a tree. A container owns its children, and pffree of
 * the top frees them all. The tree is not locked: no thread may change it while
 * another reads it. Any number of threads may parse at once.
 * Running out of memory ends the process.
 */

#ifndef STOCK_PF_H
#define STOCK_PF_H

#include <stdint.h>
#include <stdio.h>

#include "arr.h"
#include "export.h"
#include "hook.h"
#include "tbl.h"

STOCK_BEGIN_DECLS

/* ---- Nodes ---- */

/* What a node is; the numbers are part of the interface. */
enum {
    PFEXEC_ERROR = -1, /* value.s: the output of a command that failed */
    PFFILE = 0,        /* value.arr: the top of a tree, otherwise as PFARR */
    PFSTRING = 1,      /* value.s: a text */
    PFTBL = 2,         /* value.tbl: an ordered list of nodes */
    PFARR = 3,         /* value.arr: a table of nodes by key */
    PFUNDEF = 4,       /* no value */
    PFINVALID = 5,     /* no value, or value.s */
    PFANY = 6,         /* no value: a placeholder; asked for, it means any type */
    PFFUNCTION = 7,    /* value.pffunct: a function still to be evaluated */
    PFGRAFT = 8        /* asked for only: a whole tree is put into another */
};

/* A function as it was written and what it last gave. */
typedef struct Pffunction {
    char *text;        /* owned: "&name(argument)" with the blanks and newline behind it */
    struct Pf *result; /* owned: the last result, or null */
    Hook *hook;        /* owned: for &file( and &filename( holds the name of the file */
                       /* that was being read, else null */
} Pffunction;

typedef struct Pf {
    int32_t type;  /* PFFILE, PFSTRING, ... */
    int32_t known; /* not 0 while pfupdate or the registry knows the tree; never set it */
    union {
        char *s;
        Tbl *tbl; /* of Pf * */
        Arr *arr; /* of Pf * */
        Pffunction *pffunct;
    } value;              /* owned; type says which */
    struct Pf *parent;    /* borrowed: the container that the node was read into, or null */
    const char *filename; /* borrowed: what a top node was read from, or null */
    char *filled_out;     /* owned: the value with its references expanded, or null */
} Pf;

/*
 * Makes a node with an empty value: an empty table for PFFILE and PFARR, an
 * empty list for PFTBL, an empty function for PFFUNCTION, else none.
 *
 * A node, and each text that it owns, is a block from malloc: a program may free a
 * text and set another, or make a node itself, zeroed, and set type and value.
 * A whole record may be written over that of a known tree. pffree no longer sees then
 * that it is known: only pfupdate or the registry may free it.
 *
 * The caller owns it until it is put into a tree; release it with pffree.
 */
STOCK_API Pf *pfnew(int type);

/*
 * Frees a node with everything under it; null is ignored. pfupdate and the registry
 * forget what they know of it: only for that a lock is taken.
 *
 * Of a node whose type has no value (PFUNDEF, PFANY, PFGRAFT, or no type at all)
 * it complains "pffree: didn't free type %d", leaves the value alone and frees
 * the rest.
 */
STOCK_API void pffree(Pf *pf);

/*
 * Copies a node with everything under it. parent, filename and filled_out of the
 * copies are null, and a PFINVALID copy has no value.
 *
 * The text of a function is not copied: the text of its copy is what the bytes at
 * the start of the function record give when they are read as a string.
 *
 * Returns the copy, which the caller frees with pffree; null for null. A node of
 * any other type than the containers, PFSTRING, PFFUNCTION and PFINVALID ends the
 * process with "Bad type in pfdup : %d\n".
 */
STOCK_API Pf *pfdup(const Pf *pf);

/*
 * Prints one node to standard error for debugging: label, address, type, and
 * whichever of value, filename and filled_out are set. Null is printed as such.
 */
STOCK_API void showpf(const char *label, const Pf *pf);

/* ---- Reading text ---- */

/*
 * The text, as it is read:
 *
 * A key ends at a blank (space or tab) and is cut to 1023 bytes. Between quotes of
 * either kind it may hold anything but that quote. A later value of the same key
 * replaces the earlier one whole; tables are not merged. A line that begins with
 * "__END__", "__DATA__" or "__EOF__" where a key could stand ends the text.
 *
 * A value is the rest of the line, without the blanks around it. A "#" begins a
 * comment, and a key alone has the empty text. In keys and values a backslash
 * takes the meaning from the character behind it, except for these:
 *
 *     \n  newline          \b  backspace    \ and a newline: the value goes on
 *     \t  tab              \r  return       in the next line
 *     \101  three octal digits, one byte; \000 ends the text
 *
 * Every line of a list is an element: an empty line, or a comment that does not
 * begin in the first column, is the empty text.
 *
 * What follows "&Tbl{", "&Arr{", "&Undef{}" and "}" on their line is dropped. In a
 * list "&Undef{}" takes the last element away.
 *
 * A literal begins on the line behind "&Literal" and its opening delimiter and ends
 * at the closing one that balances it: {} () [] <> `' or another two characters, such
 * as "&Literal|!". Where a closing delimiter of the row stands as the opening one, the
 * next of the row closes it: "}" ends at "(", and "'" never. "&Literal" with a double
 * quote and a word ends at the first double quote with that word.
 *
 * A function ends its line: "&exec(date) # today" is a plain text.
 *
 * The last line should end with a newline. Without one a key alone is no key at all,
 * and a function is a plain text. Lines that end with "\r\n" are no lines of their own
 * kind: the "\r" is part of the text. It stays at the end of values and of keys that
 * stand alone, and makes a plain text of a function.
 */

/*
 * The name of what this thread's next pfinfd reads, for its messages and for the
 * functions &file( and &filename( in it. Borrowed until that pfinfd returns,
 * which sets it back to null; while it is null the name is "*pf filename
 * unknown*". Every thread has its own.
 */
STOCK_API extern __thread const char *Pffilename;

/*
 * Not 0: each value that replaces an earlier one of its key is reported to
 * standard error with "replacing key '%s' at line #%d of %s\n". The line is the
 * one that is read next, so a text given on line 2 is reported at line 3; a list
 * or table is reported at the line that opens it. Set it while no thread parses.
 */
STOCK_API extern int Pf_show_replacements;

/*
 * The four functions parse the text of a descriptor, a stream, a string, or the
 * first count bytes of a string.
 *
 * When *pf is null they make a tree and store it there; the caller frees it with
 * pffree. Otherwise the text is added to the tree in *pf, which must be a PFFILE
 * or PFARR: its keys replace whatever the tree holds under the same keys. The top
 * node is a PFFILE afterwards.
 *
 * Return 0; or -2 when the text has an error, cannot be read, or ends inside a
 * list, table or literal. The tree then holds what came before the error, and
 * the reasons have been logged:
 *
 *     *stack* invalid right brace at line #%d in pf file %s
 *     *stack* too many Lex_levels of nesting at line #%d in pf file %s
 *     *stack* Unterminated arrays or tables in parameter file %s at last line #%d: depth = %d
 *     *stack* Unterminated arrays or tables in input FILE at last line #%d: depth = %d
 *     *stack* Unterminated arrays or tables at last line #%d, depth = %d in input string \n%s\n
 *     read failed in pf input routine for file %s
 *
 * The third line is pfinfd's, the fourth pfin's, and the fifth that of the two
 * string forms, with the first five lines of the text.
 *
 * A value that holds "&Tbl{" or "&Arr{" is nearly always a slip: it is kept and
 * complained about with "value contains '&Tbl{'\n\t'%s'\n" or the same for
 * '&Arr{'.
 *
 * pfinfd reads in blocks from files, pipes, sockets and terminals alike, until
 * the end of the text; what lies behind an __END__ line may have been read with
 * its block. pfin reads line by line and leaves the stream just behind that line.
 */
STOCK_API int pfinfd(int fd, Pf **pf);
STOCK_API int pfin(FILE *stream, Pf **pf);
STOCK_API int pfcompile(const char *text, Pf **pf);
STOCK_API int pfcompile_counted(const char *text, long count, Pf **pf);

/* ---- Finding and loading files ---- */

/*
 * A parameter file is known by a name, with or without its suffix ".pf". The name
 * stands for all files of that name in the directories of the environment variable
 * PFPATH, or, when that is unset, in "data/pf" of the installation root and then
 * in the working directory. They are read in that order into one tree, so a file
 * of the working directory overrides what was installed, key by key: a key that
 * two files give has the later one's whole value, and "&Undef{}" takes it away.
 * A name with a directory of its own adds the file that it leads to as the last.
 * With its suffix a name has at most 1023 bytes; a longer one finds nothing.
 */

/* A file and when it was changed; see pftimes. */
typedef struct Pftime {
    double mtime; /* seconds since 1970, fractions included */
    char *path;   /* owned */
} Pftime;

/*
 * Lists the paths of the files of a name in the order they are read. With all not
 * 0 it lists those too that cannot be read or are not there.
 *
 * Returns a new list; free it with freetbl(files, free). errno is left alone.
 */
STOCK_API Tbl *pffiles(const char *name, int all);

/*
 * Lists the files of a name that can be examined with the times of their last
 * change, as a direct list of Pftime.
 *
 * Returns a new list; free it with freetbl(times, pffree_time).
 */
STOCK_API Tbl *pftimes(const char *name);

/* Frees what a Pftime owns: the entry function for freetbl. */
STOCK_API void pffree_time(void *time);

/*
 * Reads all files of a name into a new tree, which it stores in *pf. The tree's
 * filename is the caller's name, borrowed: it must live as long as the tree.
 *
 * Returns 0; -1 when no file could be opened or the tree has no keys; else the sum
 * of -2 for each file that has an error. There is a tree in every case, and the
 * caller frees it with pffree.
 */
STOCK_API int pfread(const char *name, Pf **pf);

/*
 * Reads the one file that datapath finds for dir, subdir, name and the suffix "pf"
 * into a new tree, which it stores in *pf. Its filename is the caller's name,
 * borrowed.
 *
 * Returns 0; -2 for an error in the text; -1 when there is no such file, with
 * "Can't find parameter file %s/%s\n" logged, or it cannot be opened, with "can't
 * open '%s'" logged unless it vanished meanwhile. There is a tree in every case,
 * and the caller frees it with pffree.
 */
STOCK_API int pfload(const char *dir, const char *subdir, const char *name, Pf **pf);

/*
 * Finds the line that gives the value at an address its present text, among all files
 * of a name: the last one that sets the value, or a table or list around it, in the
 * order in which pfread reads them. It reads the files again, since a tree keeps no
 * places: of a file that was changed meanwhile it tells what stands there now.
 *
 * The address is that of pfresolve: "a", "a{b}", "a[2]". The line is that of the key, or
 * in a list of the element, counted from 1; of a list, a table, a literal and a value
 * that goes on in the next line it is the first. A reference or function in the value
 * is not followed.
 *
 * path has room for 1024 bytes. Null for path or line stores nothing there.
 *
 * Returns 0; or -1 after logging "no entry '%s' in parameter file %s" when there is no
 * such value, or no such address, or "can't find parameter file %s". What is wrong in
 * the text of a file is not told again: as for pfread, what stands before it counts.
 */
STOCK_API int pfwhere(const char *name, const char *address, char *path, int *line);

/*
 * Reads a name again when its files have changed: one was made, removed or given
 * another time. What was read last is remembered by the name and by the address of
 * the variable pf, so a program calls it with the same variable each time. The
 * first call always reads.
 *
 * When it reads, it frees the tree that is in *pf, unless it gave that one and it has
 * been freed or grafted since. Afterwards *pf is the tree that is up to date, or null
 * when the name was never read. The tree's filename lives as long as the program.
 *
 * Returns 1 when it has read the files, 0 when nothing changed, -1 when there is no
 * file, else what pfread returned. Several threads may call it at once.
 */
STOCK_API int pfupdate(const char *name, Pf **pf);

/*
 * The registry: one tree for each name, shared by the whole program and owned by
 * the registry, which is locked; the trees are not.
 *
 * getPf gives the tree of a name, which it reads first when need be; null when the
 * files cannot be read or have an error. The filename of what it reads lives as long
 * as the program. existsPf never reads. putPf registers a tree and frees the one that
 * had the name; putPf_nofree leaves that to its owner. A registered tree that pffree
 * or pfupdate frees, or that is grafted, is registered no longer.
 */
STOCK_API Pf *getPf(const char *name);
STOCK_API Pf *existsPf(const char *name);
STOCK_API void putPf(const char *name, Pf *pf);
STOCK_API void putPf_nofree(const char *name, Pf *pf);

/*
 * Reads a registered name again when its files have changed, as pfupdate does, and
 * registers the new tree when it was read without an error (1); then the old one is
 * freed. Otherwise the registered tree stays as it was. Nothing may be borrowed from
 * the old one in another thread; several threads may update one name.
 *
 * Returns what pfupdate returns, and -1 when there is no tree.
 */
STOCK_API int updatePf(const char *name);

/* Frees the tree of a name. Returns 0, or -1 when the name was not registered. */
STOCK_API int freePf(const char *name);

/*
 * Checks that the parameter file of a name is at least as new as a program needs: the
 * text pf_revision_time of its last file is a time not before the date, a time string.
 *
 * Returns 0, or after logging the reason
 *
 *     -1  no pf_revision_time in the file '%s', \n\tbut program requires date after %s\n
 *     -2  pf_revision_time in the file '%s' has date %s, \n\tbut program requires date after %s\n
 *     -3  error in parameter file %s
 *     -4  can't find parameter file %s
 */
STOCK_API int pfrequire(const char *name, const char *date);

/* ---- Reading values ---- */

/*
 * A value is asked for by the address of pfresolve: "a" is a key of the tree,
 * "a{b}" a key of the table a, "a[2]" the third element of the list a. In a list
 * an index takes the place of the address: pfindex(i). Null or "" is a table itself.
 *
 * A text may refer to others: &name and &{name} stand for the text under that name
 * in the nearest enclosing table that has one; an unknown name stays as it stands.
 * A function is evaluated each time it is read:
 *
 *     &exec(command)        what a shell command prints, without the last newline
 *     &glob(pattern)        the list of file names that match
 *     &file(path)           the contents of a file, &filename(path) its path; a relative
 *                           path is seen from the file that holds the function
 *     &datafile(name)       the contents of a file of the data path,
 *     &datafilename(name)   and its path
 *     &env(name)            an environment variable, or nothing
 *     &ref(name, address)   a value of another parameter file, as it is now: a pfdup
 *                           of it, in whose texts "&name" stays as it stands, even
 *                           where that file defines name
 *     &ask(prompt)          what the user answers
 *     &undef()              no value at all
 *     &anything(else)       what "pfuser" of the user library makes of it
 *
 * A value that is missing or of the wrong type goes to the die function, which ends
 * the process with one of
 *
 *     program needs value for '%s', not found in parameter file '%s'
 *     wrong parameter type for '%s' : expected %s but got %s in '%s'
 *     wrong parameter type for #%ld : expected %s but got %s in '%s'
 *
 * The last tells that a list has no element of that index; of an element of another
 * type nothing is said. A program may set another with pfconfig; when that returns,
 * the getter goes on with the node it stored in *result, or else returns 0 or null.
 *
 * Texts are borrowed from the tree and stay valid until the same value is read
 * again, be it through a reference to it, or freed. Reading changes a tree: one
 * thread at a time may read in it.
 */

/* The index i as a key or address. */
STOCK_INLINE const char *pfindex(int64_t i)
{
    return STOCK_CAST(const char *, i);
}

/*
 * Looks up a direct child: a key of a table, an index (pfindex) of a list; a text or
 * function is its own child. A function is evaluated, a text expanded.
 *
 * Returns the type of what it found and stores the text of a PFSTRING, else the
 * node, in *value unless value is null; PFINVALID and null when there is nothing.
 * Of a node that can have no child it complains "*stack* unrecognized pf type %d in
 * pfget".
 */
STOCK_API int pfget(Pf *pf, const char *key, void **value);

/*
 * Stores the text at an address in *value, unless value is null, and returns 0; -1
 * and null when there is no text. The top of a tree gives 0 and null.
 */
STOCK_API int pfeval(Pf *pf, const char *address, char **value);

/*
 * Stores the node at an address, its function evaluated, in *node, unless node is
 * null; null when there is none. With an expected type other than PFANY the die
 * function hears of a node of another type and may store one in its place; when it
 * returns and stores none, the node stays.
 */
STOCK_API void _pfeval(Pf *pf, const char *address, Pf **node, int expected);

/* The text at an address, borrowed; null, silently, when it is missing. */
STOCK_API char *pfget_string(Pf *pf, const char *address);

/*
 * A number at an address: fix_strtod reads the double, strtol in base 0 the int.
 * What is no number is complained about, "Bad floating point value '%s' for %s" or
 * "Bad integer value '%s' for %s", and what could be read of it is returned; of a
 * whole number that a long does not hold, silently, the largest or smallest long. For
 * an element of a list, asked for by its index, these messages end with "#%ld".
 */
STOCK_API double pfget_double(Pf *pf, const char *address);
STOCK_API long pfget_int(Pf *pf, const char *address);

/* A time at an address, as epoch time. Complains "Bad time value '%s' for %s". */
STOCK_API double pfget_time(Pf *pf, const char *address);

/*
 * -1 for a word that yesno takes as true, 0 for one that it takes as false or when
 * the value is missing. Any other word is 0 and complained about, "Bad boolean
 * value '%s' for %s".
 */
STOCK_API int pfget_boolean(Pf *pf, const char *address);

/* A size at an address, converted by sz2dbl, which complains of nothing. */
STOCK_API double pfget_size(Pf *pf, const char *address);

/*
 * The elements of a list: its texts, expanded, and the nodes of what is no text.
 * Null when it is missing. Free the list with freetbl(tbl, 0), not its entries.
 */
STOCK_API Tbl *pfget_tbl(Pf *pf, const char *address);

/*
 * The texts of a table by key; what is no text is left out. Null when it is
 * missing. Free the array with freearr(arr, 0), not its values.
 */
STOCK_API Arr *pfget_arr(Pf *pf, const char *address);

/* The number of elements of a list; 0 of anything else. */
STOCK_API long pfmaxtbl(const Pf *pf);

/*
 * The keys of a table in order, borrowed from it; null of anything else. Free the
 * list with freetbl(keys, 0).
 */
STOCK_API Tbl *pfkeys(const Pf *pf);

/*
 * Prints the text at an address of a parameter file and a newline to standard
 * output; or complains "no entry '%s' in parameter file %s" or "Can't read
 * parameter file %s".
 */
STOCK_API void pfprint(const char *name, const char *address);

/*
 * Sets a function of the program's: "die", void (*)(Pf *pf, const char *address, int
 * expected, int got, Pf **result), null for the default _pfdie; or "ask", char
 * *(*)(const char *prompt), whose answer malloc made. Set them before threads start.
 *
 * Returns 0; -1 for any other code, with "pfconfig: unrecognized code '%s'" logged.
 */
STOCK_API int pfconfig(const char *code, void *function);

/* The default die function; got is PFINVALID when there is no value. */
STOCK_API void _pfdie(Pf *pf, const char *address, int expected, int got, Pf **result);

/*
 * Expands the references in a PFSTRING, or in the text of a PFFUNCTION.
 *
 * Returns the text itself when it refers to nothing, else the node's filled_out:
 * borrowed until the node is expanded again or freed. Null of any other node.
 *
 * References nest ten deep, counted in each thread for itself; the eleventh gives
 * "** error ** pf massive recursion". That text stands also for each further
 * reference of a text once its nested references have come to 64 MB: a few short
 * lines that name each other many times would else fill the memory.
 */
STOCK_API char *pfexpand(Pf *node);

/*
 * Evaluates a PFFUNCTION.
 *
 * Returns its result, which the function owns until it is evaluated again or freed;
 * null for &undef and for any other node. A command that failed gives a node of type
 * PFEXEC_ERROR, a reference that leads nowhere one of type PFINVALID with the
 * reason as its text; a reference to a command that failed ends the process, for
 * pfdup takes no such node. A function that gives a function that gives a function that
 * gives a function gives "pf recursion too deep"; so do references that are ten
 * files deep.
 */
STOCK_API Pf *pfinterpret(Pf *function);

/*
 * Reads a number with a factor behind it; there is no error.
 *
 *     4k    4000       5m    0.005
 *     2M    2e6        7u    7e-6
 *     1.5G  1.5e9      3K    3        only these letters, in this case
 *     2MB   2          abc   0        what follows the number is not looked at
 */
STOCK_API double sz2dbl(const char *text);

/* ---- Addressing and changing values ---- */

/*
 * Finds the node at an address.
 *
 *     a            the key a of the tree; blanks in it and around it count
 *     a{b}         the key b of the table a; blanks around b do not count
 *     a[2]         the third element of the list a; a[-1] is never there, and made
 *                  behind the last element where create asks for that
 *     a{b}[2]{c}   and so on
 *     {a}          the key a
 *
 * In a list, an index (pfindex) takes the place of the address. A step at a function
 * stays at the function, and a function that is found is evaluated.
 *
 * With create not 0, steps that are missing are made as placeholders (PFANY), which
 * become tables and lists as the address demands, down to 1000 levels; a step beyond
 * them logs "pf tree is more than %d levels deep".
 *
 * Stores the node, borrowed from the tree, unless node is null, and returns its type
 * (PFFUNCTION when it was evaluated). Otherwise stores null and returns -31 when a step
 * was not found, -32 when it does not fit the node: a key in braces asked of what is no
 * PFARR, an index of what is no PFTBL, a new step of what has a value already. A "[" without
 * an index is reported to standard error, "unmatched char '%c'\n", and skipped; any
 * other stray mark goes to standard output.
 */
STOCK_API int pfresolve(Pf *pf, const char *address, int create, Pf **node);

/*
 * Puts a value under a direct key of a table or at an index (pfindex) of a list; what
 * stood there is freed. A table has no null key: the value itself is freed then.
 *
 *     type          value                 what becomes of it
 *     PFSTRING      char *, text          copied
 *     PFFUNCTION    char *, its text      copied
 *     PFTBL         Tbl * of Pf *         taken over
 *     PFARR         Arr * of Pf *         taken over
 *     PFFILE        Arr * of Pf *         taken over
 *     PFGRAFT       Pf *, a tree          taken over; a PFFILE becomes a PFARR
 *
 * Any other type ends the process with "Bad type in pfput : %d\n", and a pf that is no
 * container with "Bad pf pointer in pfput.\n".
 */
STOCK_API void pfput(Pf *pf, const char *key, void *value, int type);

/*
 * pfput of a text: as it is, with "%ld", by strdbl, as "True" or "False", a time in UTC
 * such as "1201869015.500 (032) 2008-02-01  12:30:15.500 UTC Friday"; of a list and of
 * an array of strings, which are copied.
 */
STOCK_API void pfput_string(Pf *pf, const char *key, const char *value);
STOCK_API void pfput_int(Pf *pf, const char *key, long value);
STOCK_API void pfput_double(Pf *pf, const char *key, double value);
STOCK_API void pfput_boolean(Pf *pf, const char *key, int value);
STOCK_API void pfput_time(Pf *pf, const char *key, double value);
STOCK_API void pfput_tbl(Pf *pf, const char *key, const Tbl *values);
STOCK_API void pfput_arr(Pf *pf, const char *key, const Arr *values);

/*
 * Makes the value at an address the text, a copy of it; steps that are missing are
 * made. A value that stands there, of any type, is freed; the text may be its own. In
 * a list an index (pfindex) takes the place of the address: an element must be there.
 *
 * Returns 0, or -1 when the address does not fit the tree or names the tree itself.
 */
STOCK_API int pfset(Pf *pf, const char *address, const char *text);

/*
 * Takes out the child under a direct key or at an index (pfindex).
 *
 * Returns it, to be freed with pffree; null when there is none.
 */
STOCK_API Pf *pfdel(Pf *pf, const char *key);

/*
 * Stores the child under a direct key or at an index (pfindex), as it stands, and
 * returns 1; null and 0 when there is none. Of a PFSTRING it stores null and returns
 * 1, of a PFFUNCTION it stores the node itself and returns 7. Any other type ends the
 * process with "invalid pf type = %d\n".
 */
STOCK_API int pfvalue(Pf *pf, const char *key, Pf **node);

/*
 * Put a new placeholder under a key of a table or at an index of a list; an index
 * below 0 appends. A placeholder given as pf becomes the table or list first.
 *
 * Return 0, or -1 when pf is anything else.
 */
STOCK_API int pfadd_arr(Pf *pf, const char *key);
STOCK_API int pfadd_tbl(Pf *pf, int index);

/* ---- Writing text ---- */

/*
 * Writes a tree to a file, which is made or emptied first, in the form of pfout.
 *
 * Returns 0. A file that cannot be opened or does not take the text logs "Can't
 * open %s for writing.\n" or "Can't close %s.\n" with the reason and gives -1; so
 * does a null pf or value, which leaves the file empty.
 */
STOCK_API int pfwrite(const char *path, const Pf *pf);

/*
 * Writes a tree to a stream as parameter text: keys in order, four blanks of
 * indentation per level, each value written as str2pf does. The parse functions read
 * an equal tree from it, save for these:
 *
 *     a text that looks like a list, table,   is read as that: "&Tbl{", "&Undef{}",
 *     deletion, literal or function           "&env(x)"
 *     a key that is empty, begins with a      is cut, ends the text or is read as
 *     quote, holds a tab, a newline, or a     another key
 *     blank together with any of # } \ or
 *     with both quotes, is longer than 1023
 *     bytes, or is "__END__" or the like
 *     a function in a list                    has an empty text behind it, as the line
 *                                             behind a function is empty
 *     a text that is null                     is the empty text
 *     a node of any other type                is nothing but its key and a tab: the next
 *                                             key follows on the same line
 *     more than eleven tables and lists       are written whole, but not read
 *     around each other
 *
 * Of the last it complains "pf tree is %d levels deep: its text does not read back,
 * only %d are read".
 *
 * Returns 0, or -1 when the stream, pf or its value is null. Whether the stream took
 * the text is the stream's to say (ferror).
 */
STOCK_API int pfout(FILE *stream, const Pf *pf);

/*
 * Writes a tree as pfout does, but without indentation and with its keys as they
 * are, so that one with a "#", or a "}" at its start or a backslash, but no blank, does
 * not read back. A PFFILE or PFARR is written without "&Arr{" and "}" around it.
 *
 * Returns a string that the caller frees with free; of null the empty string.
 */
STOCK_API char *pf2string(const Pf *pf);

/*
 * Appends the text of pf2string to a string stack. At a level above 0 a PFFILE or
 * PFARR stands between "&Arr{" and "}". A null pf or stack appends nothing.
 */
STOCK_API void pfappend(void **stack, int level, const Pf *pf);

/*
 * Writes text as the value of a key, so that it reads back the same.
 *
 *     plain text             plain text
 *     a#b                    a\#b
 *     x{y}                   x{y}
 *     x}                     x\}
 *     " lead"                &Literal{\n lead}
 *     one\ntwo               &Literal{\none\ntwo}
 *     one\ntwo}              &Literal(\none\ntwo})
 *
 * A text that itself looks like a list, table, literal or function, such as "&Tbl{",
 * is written as it stands and does not read back as a text.
 *
 * Returns a string that the caller frees with free; a null text is written as the
 * empty one.
 */
STOCK_API char *str2pf(const char *text);

/*
 * Puts a backslash before each newline, "#" and backslash of text, and before
 * each "}" that closes no "{" before it.
 *
 * Returns a string that the caller frees with free; of null the empty string.
 */
STOCK_API char *pfescape_special_chars(const char *text);

/*
 * Writes text as a literal when it holds a newline or mode is 2, else escaped as
 * pfescape_special_chars does.
 *
 * The literal stands between the first of the pairs {} () [] <> `' that are
 * balanced in text; when none is, it ends with a word that text does not hold:
 * "EndOfLiteral, "EndOfLiteral0, "EndOfLiteral1 and so on.
 *
 * Returns a string that the caller frees with free; null is taken as the empty
 * text.
 */
STOCK_API char *pfoutput_literal(const char *text, int mode);

STOCK_END_DECLS

#endif
