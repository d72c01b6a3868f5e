/*
 * pf.h - parameter files: read, get, change and write the configuration of a program.
 *
 * Parameter text contains keys and their values, one on each line:
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
 * A value is a text, an ordered list (&Tbl{), a table of keys and values (&Arr{), a literal text
 * (&Literal), or a function, which is evaluated whenever the value is read (&name(argument)).
 * &Undef{} removes an earlier value of its key. Tables and lists may be nested eleven deep. The
 * first zero byte ends the text.
 *
 * The text is read into a tree, in which each value is a node. A table or list owns its children,
 * so pffree of the top node frees the whole tree. The tree is not locked: no thread may change it
 * while another one reads it, and reading a value counts as a change. Any number of threads may
 * parse at the same time. Running out of memory ends the process.
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

/* The types of nodes. The numbers are part of the interface. */
enum {
    PFEXEC_ERROR = -1, /* value.s: the output of a command that failed */
    PFFILE = 0,        /* value.arr: the top of a tree: a table, like PFARR */
    PFSTRING = 1,      /* value.s: a text */
    PFTBL = 2,         /* value.tbl: an ordered list of nodes */
    PFARR = 3,         /* value.arr: a table of nodes by key */
    PFUNDEF = 4,       /* no value */
    PFINVALID = 5,     /* no value, or value.s: the text of an error */
    PFANY = 6,         /* no value: a placeholder; as an expected type, it means any type */
    PFFUNCTION = 7,    /* value.pffunct: a function that is evaluated when it is read */
    PFGRAFT = 8        /* only an argument of pfput: a whole tree is put into another one */
};

/* A function and its last result. */
typedef struct Pffunction {
    char *text;        /* owned: "&name(argument)" with the blanks and newline after it */
    struct Pf *result; /* owned: the last result, or null */
    Hook *hook;        /* owned: for &file( and &filename(, the name of the file that contains */
                       /* the function, else null */
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
    struct Pf *parent;    /* borrowed: the table or list that the node was read into, or null */
    const char *filename; /* borrowed: the file that a top node was read from, or null */
    char *filled_out;     /* owned: the value with its references expanded, or null */
} Pf;

/*
 * Creates a node with an empty value: an empty table for PFFILE and PFARR, an empty list for
 * PFTBL, an empty function for PFFUNCTION, and no value for the other types.
 *
 * A node, and each text that it owns, is a block from malloc. A program may free such a text and
 * store another one that it has allocated. It may also allocate a node itself, fill it with zeros,
 * and set its type and value. If a program writes a whole record over the top node of a known tree,
 * pffree cannot tell any more that the tree is known; then only pfupdate or the registry may free
 * that tree.
 *
 * Returns a node that the caller frees with pffree, unless it puts the node into a tree.
 */
STOCK_API Pf *pfnew(int type);

/*
 * Frees a node and everything under it; null is ignored. If pfupdate or the registry knows the
 * tree, they forget it; only then a lock is taken.
 *
 * For a node whose type has no value (PFUNDEF, PFANY, PFGRAFT, or an invalid type) it complains
 * "pffree: didn't free type %d", does not free the value, and frees the rest.
 */
STOCK_API void pffree(Pf *pf);

/*
 * Copies a node and everything under it. In the copies, parent, filename and filled_out are null,
 * and a PFINVALID node has no value.
 *
 * The text of a function is not copied: the text of its copy is the bytes at the start of the
 * function record, read as a string.
 *
 * Returns a copy that the caller frees with pffree; for null returns null. Types other than the
 * tables and lists, PFSTRING, PFFUNCTION and PFINVALID end the process with "Bad type in pfdup :
 * %d\n".
 */
STOCK_API Pf *pfdup(const Pf *pf);

/*
 * Prints one node to standard error for debugging: the label, the address, the type, and those of
 * value, filename and filled_out that are set. Null is printed as such.
 */
STOCK_API void showpf(const char *label, const Pf *pf);

/* ---- Reading text ---- */

/*
 * How the text is read:
 *
 * A key ends at a blank, that is, a space or a tab. It is cut to 1023 bytes. A key between quotes
 * of either kind may contain anything except that quote. If a key is given again, the later value
 * replaces the whole earlier value; tables are not merged. The text ends at a line that begins with
 * "__END__", "__DATA__" or "__EOF__" where a key could be.
 *
 * A value is the rest of the line, without the blanks around it. A "#" begins a comment. A key
 * without a value has the empty text. In keys and values a backslash makes the next character an
 * ordinary one, except in these sequences:
 *
 *     \n  newline          \b  backspace    \ and a newline: the value continues
 *     \t  tab              \r  return       on the next line
 *     \101  one byte, written in three octal digits; \000 ends the text
 *
 * Every line of a list is an element. An empty line is the empty text, and so is a comment that
 * does not begin in the first column.
 *
 * Anything after "&Tbl{", "&Arr{", "&Undef{}" or "}" on the same line is ignored. In a list
 * "&Undef{}" removes the last element.
 *
 * A literal begins on the line after "&Literal" and an opening delimiter, and ends at the matching
 * closing delimiter. The delimiters are one of the pairs {} () [] <> `', or any other two
 * characters, such as "&Literal|!". Delimiters inside the text must be balanced. If the opening
 * delimiter is a closing one of these pairs, the next character of that row closes the literal: "}"
 * ends at "(", and "'" never ends. "&Literal" with a double quote and a word ends at the first
 * double quote that is followed by that word.
 *
 * A function must end its line: "&exec(date) # today" is a plain text.
 *
 * The last line should end with a newline. Otherwise a key without a value on that line is ignored,
 * and a function there is read as a plain text. In lines that end with "\r\n", the "\r" is part of
 * the text: values and keys without values end with it, and a function is read as a plain text.
 */

/*
 * Names the input of this thread's next pfinfd, for its messages and for the functions &file( and
 * &filename( in the text. It is borrowed until that pfinfd returns, which sets it to null. If it is
 * null, the name is "*pf filename unknown*". Every thread has its own.
 */
STOCK_API extern __thread const char *Pffilename;

/*
 * If it is not 0, each value that replaces an earlier value of its key is reported on standard
 * error with "replacing key '%s' at line #%d of %s\n". For a list or table this is the line that
 * opens it; for a text it is the line after it. Set it while no thread parses.
 */
STOCK_API extern int Pf_show_replacements;

/*
 * Read parameter text into a tree: from a descriptor, a stream, a string, or the first count bytes
 * of a string.
 *
 * If *pf is null, they create a tree and store it there; the caller frees it with pffree.
 * Otherwise they add the text to the tree in *pf, which must be a PFFILE or PFARR. Its keys
 * replace the values of the same keys in the tree. Afterwards the top node is a PFFILE.
 *
 * They return 0, or -2 if the text has an error, cannot be read, or ends inside a list, table or
 * literal. In that case the tree holds what came before the error, and the reasons are logged:
 *
 *     *stack* invalid right brace at line #%d in pf file %s
 *     *stack* too many Lex_levels of nesting at line #%d in pf file %s
 *     *stack* Unterminated arrays or tables in parameter file %s at last line #%d: depth = %d
 *     *stack* Unterminated arrays or tables in input FILE at last line #%d: depth = %d
 *     *stack* Unterminated arrays or tables at last line #%d, depth = %d in input string \n%s\n
 *     read failed in pf input routine for file %s
 *
 * The third message is that of pfinfd, the fourth that of pfin, and the fifth that of the two
 * string forms, with the first five lines of the text.
 *
 * A value that contains "&Tbl{" or "&Arr{" is almost always a mistake. It is kept, with the
 * complaint "value contains '&Tbl{'\n\t'%s'\n" or the same for '&Arr{'.
 *
 * pfinfd reads in blocks, from files, pipes, sockets and terminals, until the end of the text. It
 * may read data after an __END__ line that is in the same block. pfin reads line by line and
 * leaves the stream after that line.
 */
STOCK_API int pfinfd(int fd, Pf **pf);
STOCK_API int pfin(FILE *stream, Pf **pf);
STOCK_API int pfcompile(const char *text, Pf **pf);
STOCK_API int pfcompile_counted(const char *text, long count, Pf **pf);

/* ---- Finding and loading files ---- */

/*
 * A program names a parameter file with or without its suffix ".pf". The name means all files of
 * that name in the directories of the environment variable PFPATH. If that is unset, it means those
 * in "data/pf" of the installation root and then in the working directory. All of them are read in
 * that order into one tree. So a file in the working directory overrides the installed one, key by
 * key: if two files have the same key, the later value replaces the whole earlier value. "&Undef{}"
 * removes a key. A name that contains a directory adds the file at that path as the last one. A
 * name, including its suffix, has at most 1023 bytes; no file is found for a longer one.
 */

/* A file and the time of its last change; see pftimes. */
typedef struct Pftime {
    double mtime; /* seconds since 1970, fractions included */
    char *path;   /* owned */
} Pftime;

/*
 * Lists the paths of the files of a name in the order in which they are read. If all is not 0, also
 * lists files that cannot be read or do not exist. errno is left unchanged.
 *
 * Returns a new list of new strings that the caller frees with freetbl(files, free).
 */
STOCK_API Tbl *pffiles(const char *name, int all);

/*
 * Lists the files of a name that exist, with the times of their last change, as a direct list of
 * Pftime.
 *
 * Returns a new list that the caller frees with freetbl(times, pffree_time).
 */
STOCK_API Tbl *pftimes(const char *name);

/* Frees the path of a Pftime. Pass it to freetbl. */
STOCK_API void pffree_time(void *time);

/*
 * Reads all files of a name into a new tree, which it stores in *pf. The tree's filename is the
 * caller's name, not a copy: it must remain valid as long as the tree.
 *
 * Returns 0. Returns -1 if no file could be opened or the tree has no keys, and otherwise the sum
 * of -2 for each file that has an error. It creates a tree in every case, and the caller frees it
 * with pffree.
 */
STOCK_API int pfread(const char *name, Pf **pf);

/*
 * Reads the one file that datapath finds for dir, subdir, name and the suffix "pf" into a new tree,
 * which it stores in *pf. The tree's filename is the caller's name, not a copy.
 *
 * Returns 0, or -2 if the text has an error. Returns -1 if there is no such file, after logging
 * "Can't find parameter file %s/%s\n", or if it cannot be opened, after logging "can't open '%s'"
 * unless the file vanished meanwhile. It creates a tree in every case, and the caller frees it with
 * pffree.
 */
STOCK_API int pfload(const char *dir, const char *subdir, const char *name, Pf **pf);

/*
 * Finds the file and line that give the value at an address its present text. Of all files of a
 * name, in the order in which pfread reads them, it is the last one that sets the value, or the
 * table or list that contains it. A tree does not keep lines, so pfwhere reads the files again; if
 * a file was changed meanwhile, the result is that of the changed file.
 *
 * The address is that of pfresolve: "a", "a{b}", "a[2]". The line is that of the key, or of the
 * element of a list, counted from 1. For a list, a table, a literal and a value of several lines it
 * is the first line. References and functions in the value are not followed.
 *
 * path must have room for 1024 bytes. path and line may be null.
 *
 * Returns 0. Returns -1 after logging "no entry '%s' in parameter file %s" if there is no such
 * value or the address is invalid, or "can't find parameter file %s". Errors in the text of a file
 * are not logged again; as for pfread, only what comes before the error counts.
 */
STOCK_API int pfwhere(const char *name, const char *address, char *path, int *line);

/*
 * Reads the files of a name again if one of them was created, removed or given another time since
 * the last call. It identifies the last call by the name and by the address of the variable pf, so
 * a program passes the same variable each time. The first call always reads the files.
 *
 * When it reads the files, it frees the tree in *pf, unless that tree came from pfupdate and was
 * freed or grafted since. Afterwards *pf is the current tree, or null if the name was never read.
 * The tree's filename is never freed.
 *
 * Returns 1 if it has read the files, 0 if nothing changed, and -1 if there is no file; otherwise
 * the result of pfread. Several threads may call it at the same time.
 */
STOCK_API int pfupdate(const char *name, Pf **pf);

/*
 * The registry: one tree for each name, which the whole program shares. The registry owns its
 * trees. It is locked, but the trees are not.
 *
 * getPf returns the tree of a name, and first reads it if necessary; null if the files cannot be
 * read or have an error. The filename of a tree that it reads is never freed. existsPf returns the
 * tree without reading, or null if the name is not registered. Both results are borrowed from the
 * registry. putPf registers a tree and frees the earlier tree of that name; putPf_nofree does not
 * free the earlier tree, which its owner keeps. A registered tree is removed from the registry if
 * pffree or pfupdate frees it or pfput grafts it into another one.
 */
STOCK_API Pf *getPf(const char *name);
STOCK_API Pf *existsPf(const char *name);
STOCK_API void putPf(const char *name, Pf *pf);
STOCK_API void putPf_nofree(const char *name, Pf *pf);

/*
 * Reads a registered name again if its files have changed, as pfupdate does. If there was no error,
 * it registers the new tree and then frees the old one; otherwise the old tree stays registered. No
 * other thread may use values borrowed from the old tree. Several threads may update the same name.
 *
 * Returns what pfupdate returns, and -1 if the name has no tree.
 */
STOCK_API int updatePf(const char *name);

/* Frees the tree of a name. Returns 0, or -1 if the name was not registered. */
STOCK_API int freePf(const char *name);

/*
 * Checks that the parameter file of a name is at least as new as a program needs: the last file of
 * that name must have a text pf_revision_time, a time that is not before date. Both are times in
 * any form of str2epoch.
 *
 * Returns 0. Otherwise logs the reason and returns
 *
 *     -1  no pf_revision_time in the file '%s', \n\tbut program requires date after %s\n
 *     -2  pf_revision_time in the file '%s' has date %s, \n\tbut program requires date after %s\n
 *     -3  error in parameter file %s
 *     -4  can't find parameter file %s
 */
STOCK_API int pfrequire(const char *name, const char *date);

/* ---- Reading values ---- */

/*
 * An address names a value, see pfresolve: "a" is a key of the tree, "a{b}" a key of the table a,
 * and "a[2]" the third element of the list a. If the tree is a list, pass an index instead of an
 * address: pfindex(i). Null or "" is the tree itself. A null tree has no values, and no message is
 * reported for it.
 *
 * A text may refer to other texts: &name and &{name} are replaced by the text of that name in the
 * nearest enclosing table that has one. If there is none, they remain unchanged. A function is
 * evaluated each time it is read:
 *
 *     &exec(command)        the output of a shell command, without the last newline
 *     &glob(pattern)        the list of the file names that match
 *     &file(path)           the contents of a file, &filename(path) its path; a relative
 *                           path is relative to the file that contains the function
 *     &datafile(name)       the contents of a file on the data path,
 *     &datafilename(name)   and its path
 *     &env(name)            the value of an environment variable, or nothing
 *     &ref(name, address)   the current value at an address of another parameter file: a
 *                           pfdup of it, in whose texts "&name" is not expanded, even if
 *                           that file defines name
 *     &ask(prompt)          the user's answer on the terminal
 *     &undef()              no value
 *     &anything(else)       the result of the function "pfuser" of the user library
 *
 * If a value is missing or of the wrong type, the getters call the die function, which ends the
 * process with one of
 *
 *     program needs value for '%s', not found in parameter file '%s'
 *     wrong parameter type for '%s' : expected %s but got %s in '%s'
 *     wrong parameter type for #%ld : expected %s but got %s in '%s'
 *
 * The last one means that the list has no element with that index; for an element of another type
 * there is no message. A program may set its own die function with pfconfig. If that function
 * returns, the getter uses the node that it stored in *result, or else returns 0 or null.
 *
 * A text that a getter returns is borrowed from the tree. It is valid until the same value is read
 * again, directly or through a reference, or freed. Reading a value changes the tree, so only one
 * thread at a time may read values of a tree.
 */

/* Returns the index i as a key or address. */
STOCK_INLINE const char *pfindex(int64_t i)
{
    return STOCK_CAST(const char *, i);
}

/*
 * Looks up a direct child: a key of a table, or an index (pfindex) of a list. A text or function
 * counts as its own child. A function is evaluated, and a text is expanded.
 *
 * Returns the type of the node that it found, and stores the text of a PFSTRING, or else the node,
 * in *value. If there is none, stores null and returns PFINVALID. value may be null. For a node
 * that cannot have children it complains "*stack* unrecognized pf type %d in pfget".
 */
STOCK_API int pfget(Pf *pf, const char *key, void **value);

/*
 * Stores the text at an address in *value and returns 0. If there is no text, stores null and
 * returns -1. For the top of a tree it stores null and returns 0. value may be null.
 */
STOCK_API int pfeval(Pf *pf, const char *address, char **value);

/*
 * Stores the node at an address in *node, or null if there is none. Evaluates a function. node may
 * be null. If expected is a type other than PFANY and the node has another type, the die function
 * is called. It may store another node; if it returns without doing so, the node is kept.
 */
STOCK_API void _pfeval(Pf *pf, const char *address, Pf **node, int expected);

/* Returns the text at an address, borrowed from the tree, or null if it is missing. */
STOCK_API char *pfget_string(Pf *pf, const char *address);

/*
 * Return the number at an address. fix_strtod reads the double, strtol in base 0 the int. If the
 * text is not a number, they complain "Bad floating point value '%s' for %s" or "Bad integer value
 * '%s' for %s" and return what they could read of it. A whole number that a long cannot hold
 * becomes the largest or smallest long, without a complaint. For an element of a list, these
 * messages end with "#%ld", its index.
 */
STOCK_API double pfget_double(Pf *pf, const char *address);
STOCK_API long pfget_int(Pf *pf, const char *address);

/*
 * Returns the time at an address as an epoch time, read by str2epoch. Complains "Bad time value
 * '%s' for %s".
 */
STOCK_API double pfget_time(Pf *pf, const char *address);

/*
 * Returns -1 for a word that yesno takes as true, and 0 for one that it takes as false or if the
 * value is missing. For any other word it complains "Bad boolean value '%s' for %s" and returns 0.
 */
STOCK_API int pfget_boolean(Pf *pf, const char *address);

/* Returns the size at an address, read by sz2dbl. Never complains about the text. */
STOCK_API double pfget_size(Pf *pf, const char *address);

/*
 * Returns the elements of a list: expanded texts, and the nodes of all other elements; null if the
 * list is missing. The caller frees the list with freetbl(tbl, 0); its entries are borrowed from
 * the tree.
 */
STOCK_API Tbl *pfget_tbl(Pf *pf, const char *address);

/*
 * Returns the texts of a table by key, without its other values; null if the table is missing. The
 * caller frees the array with freearr(arr, 0); its values are borrowed from the tree.
 */
STOCK_API Arr *pfget_arr(Pf *pf, const char *address);

/* Returns the number of elements of a list, and 0 for any other node. */
STOCK_API long pfmaxtbl(const Pf *pf);

/*
 * Returns the keys of a table in order, and null for any other node. The caller frees the list with
 * freetbl(keys, 0); the keys are borrowed from the tree.
 */
STOCK_API Tbl *pfkeys(const Pf *pf);

/*
 * Reads the parameter file of a name and prints the text at an address, with a newline, to standard
 * output. Complains "no entry '%s' in parameter file %s" or "Can't read parameter file %s".
 */
STOCK_API void pfprint(const char *name, const char *address);

/*
 * Sets a function of the program. The code "die" sets the die function, a void (*)(Pf *pf, const
 * char *address, int expected, int got, Pf **result); the default is _pfdie. The code "ask" sets
 * the function that answers &ask, a char *(*)(const char *prompt) that returns a string from
 * malloc. Null restores the default. Set these functions before threads start.
 *
 * Returns 0. For any other code logs "pfconfig: unrecognized code '%s'" and returns -1.
 */
STOCK_API int pfconfig(const char *code, void *function);

/* The default die function. got is PFINVALID if there is no value. */
STOCK_API void _pfdie(Pf *pf, const char *address, int expected, int got, Pf **result);

/*
 * Expands the references in a PFSTRING, or in the text of a PFFUNCTION.
 *
 * Returns the text itself if it has no references, and otherwise the node's filled_out, which is
 * valid until the node is expanded again or freed. Returns null for any other node.
 *
 * References may be nested ten deep; each thread counts for itself. The eleventh becomes "** error
 * ** pf massive recursion". The same text replaces further references of a text whose nested
 * references have expanded to 64 MB: otherwise a few short lines that name each other many times
 * would fill the memory.
 */
STOCK_API char *pfexpand(Pf *node);

/*
 * Evaluates a PFFUNCTION.
 *
 * Returns its result, which the function owns; it is valid until the function is evaluated again
 * or freed. Returns null for &undef and for any other node. If a command fails, the result is a
 * node of type PFEXEC_ERROR. If a reference cannot be resolved, it is one of type PFINVALID with
 * the reason as its text. A reference to a command that failed ends the process, because pfdup
 * cannot copy that node. If the value of a function is a function, whose value is a function,
 * whose value is again a function, the result is "pf recursion too deep"; so it is if references
 * lead through ten files.
 */
STOCK_API Pf *pfinterpret(Pf *function);

/*
 * Reads a number with a factor after it. There is no error.
 *
 *     4k    4000       5m    0.005
 *     2M    2e6        7u    7e-6
 *     1.5G  1.5e9      3K    3        only these letters, in this case
 *     2MB   2          abc   0        the rest of the text is ignored
 */
STOCK_API double sz2dbl(const char *text);

/* ---- Addressing and changing values ---- */

/*
 * Finds the node at an address.
 *
 *     a            the key a of the tree; blanks in it and around it are part of the key
 *     a{b}         the key b of the table a; blanks around b are ignored
 *     a[2]         the third element of the list a; a[-1] never exists, and is appended
 *                  to the list if create is not 0
 *     a{b}[2]{c}   and so on, one step after another
 *     {a}          the key a
 *
 * If the tree is a list, pass an index (pfindex) instead of an address. A step that leads to a
 * function, and is followed by other steps, stays at the function. A function that is found is
 * evaluated.
 *
 * If create is not 0, missing steps are created as placeholders (PFANY), which become tables and
 * lists as the address requires, down to 1000 levels. For a deeper step it logs "pf tree is more
 * than %d levels deep".
 *
 * Stores the node, which is borrowed from the tree, in *node and returns its type, or PFFUNCTION
 * if it was evaluated. node may be null. If there is no such node, stores null and returns -31 if
 * a step was not found, and -32 if a step does not fit its node: a key in braces on a node that is
 * not a PFARR, an index on one that is not a PFTBL, or a step to be created on one that has a
 * value. A "[" without an index is reported on standard error with "unmatched char '%c'\n" and
 * skipped; any other stray bracket or brace is printed to standard output.
 */
STOCK_API int pfresolve(Pf *pf, const char *address, int create, Pf **node);

/*
 * Stores a value under a direct key of a table or at an index (pfindex) of a list, and frees the
 * earlier value. A table has no null key: with a null key the new value is freed.
 *
 *     type          value                 what becomes of it
 *     PFSTRING      char *, text          copied
 *     PFFUNCTION    char *, its text      copied
 *     PFTBL         Tbl * of Pf *         taken over
 *     PFARR         Arr * of Pf *         taken over
 *     PFFILE        Arr * of Pf *         taken over
 *     PFGRAFT       Pf *, a tree          taken over; a PFFILE becomes a PFARR
 *
 * Any other type ends the process with "Bad type in pfput : %d\n". A pf that is not a table or list
 * ends it with "Bad pf pointer in pfput.\n".
 */
STOCK_API void pfput(Pf *pf, const char *key, void *value, int type);

/*
 * The same for values of one type, which are stored as text: a text, a number with "%ld", a number
 * with strdbl, "True" or "False", and a time in UTC such as
 *
 *     1201869015.500 (032) 2008-02-01  12:30:15.500 UTC Friday
 *
 * The last two store a list and an array of strings, which are copied.
 */
STOCK_API void pfput_string(Pf *pf, const char *key, const char *value);
STOCK_API void pfput_int(Pf *pf, const char *key, long value);
STOCK_API void pfput_double(Pf *pf, const char *key, double value);
STOCK_API void pfput_boolean(Pf *pf, const char *key, int value);
STOCK_API void pfput_time(Pf *pf, const char *key, double value);
STOCK_API void pfput_tbl(Pf *pf, const char *key, const Tbl *values);
STOCK_API void pfput_arr(Pf *pf, const char *key, const Arr *values);

/*
 * Stores a copy of the text at an address. Creates missing steps of the address, and frees the
 * earlier value, whatever its type; text may be that value's own text. If the tree is a list, pass
 * an index (pfindex) of an existing element instead of an address.
 *
 * Returns 0, or -1 if the address does not fit the tree or names the tree itself.
 */
STOCK_API int pfset(Pf *pf, const char *address, const char *text);

/*
 * Removes the child under a direct key or at an index (pfindex).
 *
 * Returns the child, which the caller frees with pffree, or null if there is none.
 */
STOCK_API Pf *pfdel(Pf *pf, const char *key);

/*
 * Stores the child under a direct key or at an index (pfindex) in *node, neither expanded nor
 * evaluated, and returns 1. If there is none, stores null and returns 0. If pf is a PFSTRING,
 * stores null and returns 1; if it is a PFFUNCTION, stores pf and returns 7. Any other type ends
 * the process with "invalid pf type = %d\n".
 */
STOCK_API int pfvalue(Pf *pf, const char *key, Pf **node);

/*
 * Store a new placeholder under a key of a table, or at an index of a list; an index below 0
 * appends. If pf is itself a placeholder, it first becomes the table or list.
 *
 * Return 0, or -1 if pf is of any other type.
 */
STOCK_API int pfadd_arr(Pf *pf, const char *key);
STOCK_API int pfadd_tbl(Pf *pf, int index);

/* ---- Writing text ---- */

/*
 * Writes a tree in the form of pfout to a file, which it creates or replaces as a whole: the old
 * file stays until the new one is on the disk.
 *
 * Returns 0. If the file cannot be opened or written, logs "Can't open %s for writing.\n" or "Can't
 * close %s.\n" with the reason and returns -1. If pf or its value is null, leaves an empty file and
 * returns -1.
 */
STOCK_API int pfwrite(const char *path, const Pf *pf);

/*
 * Writes a tree to a stream as parameter text: keys in order, four blanks of indentation per level,
 * and each value in the form of str2pf. The functions that parse read an equal tree from it, with
 * these exceptions:
 *
 *     a text that looks like a list, table,   is read as that: "&Tbl{", "&Undef{}",
 *     deletion, literal or function           "&env(x)"
 *     a key that is empty, begins with a      is cut, ends the text or is read as
 *     quote, contains a tab, a newline, or    another key
 *     a blank together with any of # } \ or
 *     with both quotes, is longer than 1023
 *     bytes, or is "__END__" or the like
 *     a function in a list                    is followed by an empty element, because
 *                                             an empty line is written after it
 *     a null text                             becomes the empty text
 *     a node of any other type                only the key and a tab are written, so the
 *                                             next key follows on the same line
 *     more than eleven nested tables and      are written completely, but cannot be read
 *     lists
 *
 * For the last it complains "pf tree is %d levels deep: its text does not read back, only %d are
 * read".
 *
 * Returns 0, or -1 if the stream, pf or its value is null. Call ferror to find out whether writing
 * to the stream failed.
 */
STOCK_API int pfout(FILE *stream, const Pf *pf);

/*
 * Returns the text of a tree in the form of pfout, but without indentation and with its keys
 * unchanged: a key without a blank is not read back if it contains a "#" or a backslash, or begins
 * with a "}". There is no "&Arr{" and "}" around the text of a PFFILE or PFARR.
 *
 * The caller frees the string with free. For null it is the empty string.
 */
STOCK_API char *pf2string(const Pf *pf);

/*
 * Appends the text of pf2string to a string stack (pushstr.h). At a level above 0, the text of a
 * PFFILE or PFARR is enclosed in "&Arr{" and "}". If pf or stack is null, nothing is appended.
 */
STOCK_API void pfappend(void **stack, int level, const Pf *pf);

/*
 * Returns a text in the form of a value, so that it is read back unchanged.
 *
 *     plain text             plain text
 *     a#b                    a\#b
 *     x{y}                   x{y}
 *     x}                     x\}
 *     " lead"                &Literal{\n lead}
 *     one\ntwo               &Literal{\none\ntwo}
 *     one\ntwo}              &Literal(\none\ntwo})
 *
 * A text that looks like a list, table, literal or function, such as "&Tbl{", is not changed and is
 * not read back as a text.
 *
 * The caller frees the string with free. A null text counts as the empty one.
 */
STOCK_API char *str2pf(const char *text);

/*
 * Returns the text with a backslash before each newline, "#" and backslash, and before each "}"
 * that does not close an earlier "{".
 *
 * The caller frees the string with free. For null it is the empty string.
 */
STOCK_API char *pfescape_special_chars(const char *text);

/*
 * Returns the text as a literal if it contains a newline or mode is 2, and otherwise escaped as by
 * pfescape_special_chars.
 *
 * The literal is enclosed in the first of the pairs {} () [] <> `' that is balanced in the text. If
 * there is none, it ends with a word that the text does not contain: "EndOfLiteral, "EndOfLiteral0,
 * "EndOfLiteral1 and so on.
 *
 * The caller frees the string with free. A null text counts as the empty one.
 */
STOCK_API char *pfoutput_literal(const char *text, int mode);

STOCK_END_DECLS

#endif
