/*
 * datasearch.h - data files along a search path of directories.
 *
 * A path list names directories, or files themselves, separated by ":". Nothing
 * is logged: a file that is not there is a null result or an empty list. A
 * candidate of more than 1023 bytes is passed over, never cut. errno is left
 * alone. Running out of memory ends the process. All functions may be called
 * from any thread once the installation root is known.
 */

#ifndef STOCK_DATASEARCH_H
#define STOCK_DATASEARCH_H

#include <stdint.h>

#include "export.h"
#include "tbl.h"

STOCK_BEGIN_DECLS

/* Flags of datasearch, to be added. */
enum {
    DATASEARCH_EXPAND = 1, /* environment variables in the path list are expanded */
    DATASEARCH_ANY = 2     /* candidates need not be readable, nor exist */
};

/*
 * Lists what a file name may mean along a path list, in the list's order.
 *
 * A null or empty path list is the value of DATAPATH, or else the directory
 * "data" of the installation root. A null or empty subdirectory is none.
 *
 *     element of the list     candidates, when they can be read
 *     a directory             element/subdirectory/name, then, for a name with a
 *                             directory part, element/subdirectory/base of name
 *     a file                  the element itself, when it begins with "/"
 *     begins with "~"         as above from the home directory, links resolved
 *     what does not exist     none
 *
 * Returns a new list of new strings, which may be empty; the caller frees it with
 * freetbl(tbl, free).
 */
STOCK_API Tbl *datasearch(const char *paths, const char *subdir, const char *name, uint32_t flags);

/*
 * Finds a data file: the first candidate of datasearch for the name, with "." and
 * the suffix behind it unless that is null or empty.
 *
 * The path list is the value of the environment variable that is named, when it is
 * set; DATAPATH is then not tried. Otherwise (a null or empty name, a variable that
 * is not set or is empty) it is DATAPATH or the root's data. Variables in it are
 * expanded.
 *
 * Returns a new string that the caller frees with free, or null.
 */
STOCK_API char *datapath(const char *variable, const char *subdir, const char *name,
                         const char *suffix);

/* The same without subdirectory and suffix. */
STOCK_API char *datafile(const char *variable, const char *name);

STOCK_END_DECLS

#endif
