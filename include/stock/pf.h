/*
 * pf.h - parameter files: configuration text and the tree that it is read into.
 *
 * Parameter text gives keys their values, one on a line:
 *
 *     # a comment reaches to the end of its line
 *     host        example.org
 *     "two words" a key in quotes may hold blanks
 *     stations    &Tbl{
 *         anmo
 *         kono
 *     }
 *     window      &Arr{
 *         length  600
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
 * another reads it. Parses take turns; any number of threads may start one.
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
    int32_t type; /* PFFILE, PFSTRING, ... */
    union {
        char *s;  /* may lie in the node's own block: never free or keep it */
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
 * The caller owns it until it is put into a tree; release it with pffree.
 */
STOCK_API Pf *pfnew(int type);

/*
 * Frees a node with everything under it; null is ignored.
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
 * Names of 1021 bytes or more find nothing.
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
 * Reads a name again when its files have changed: one was made, removed or given
 * another time. What was read last is remembered by the name and by the address of
 * the variable pf, so a program calls it with the same variable each time. The
 * first call always reads.
 *
 * When it reads, it frees the tree that is in *pf. Afterwards *pf is the tree that
 * is up to date, or null when the name was never read.
 *
 * Returns 1 when it has read the files, 0 when nothing changed, -1 when there is no
 * file, else what pfread returned. Calls in several threads take turns.
 */
STOCK_API int pfupdate(const char *name, Pf **pf);

/*
 * The registry: one tree for each name, shared by the whole program and owned by
 * the registry, which is locked; the trees are not.
 *
 * getPf gives the tree of a name, which it reads first when need be; null when the
 * files cannot be read or have an error. existsPf never reads. putPf registers a
 * tree and frees the one that had the name; putPf_nofree leaves that to its owner.
 */
STOCK_API Pf *getPf(const char *name);
STOCK_API Pf *existsPf(const char *name);
STOCK_API void putPf(const char *name, Pf *pf);
STOCK_API void putPf_nofree(const char *name, Pf *pf);

/*
 * Reads a registered name again when its files have changed; the old tree is freed.
 *
 * Returns what pfupdate returns, and -1 when there is no tree.
 */
STOCK_API int updatePf(const char *name);

/* Frees the tree of a name. Returns 0, or -1 when the name was not registered. */
STOCK_API int freePf(const char *name);

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
 * Writes a tree to a stream as parameter text that the parse functions read into
 * an equal tree: keys in order, four blanks of indentation per level, each value
 * written as str2pf does. Keys with special characters do not read back.
 *
 * A function is followed by an empty line. A placeholder writes its key and a tab
 * and nothing more, so that the next key follows on the same line.
 *
 * Returns 0, or -1 when pf or its value is null. Whether the stream took the text
 * is the stream's to say (ferror).
 */
STOCK_API int pfout(FILE *stream, const Pf *pf);

/*
 * Writes a tree as pfout does, but without indentation and with its keys as they
 * are. A PFFILE or PFARR is written without "&Arr{" and "}" around it.
 *
 * Returns a string that the caller frees with free; of null the empty string.
 */
STOCK_API char *pf2string(const Pf *pf);

/*
 * Appends the text of pf2string to a string stack. At a level above 0 a PFFILE or
 * PFARR stands between "&Arr{" and "}". A null pf appends nothing.
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
 * A text that itself looks like a list, table, literal, function or comment, such
 * as "&Tbl{", is written as it stands and does not read back as a text.
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
