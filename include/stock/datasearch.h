/*
 * datasearch.h - find data files along a search path.
 *
 * A search path is a list of directories or files, separated by ":". If no file is found, the
 * result is null or an empty list, and nothing is logged. A path of more than 1023 bytes is
 * skipped, never shortened. errno is left unchanged. Running out of memory ends the process.
 * All functions may be called from any thread once the installation root is known.
 */

#ifndef STOCK_DATASEARCH_H
#define STOCK_DATASEARCH_H

#include <stdint.h>

#include "export.h"
#include "tbl.h"

STOCK_BEGIN_DECLS

/* Flags of datasearch, to be added. */
enum {
    DATASEARCH_EXPAND = 1, /* expand environment variables in the search path */
    DATASEARCH_ANY = 2     /* also list files that cannot be read or do not exist */
};

/*
 * Lists the files that a name may mean along a search path, in the order of the path.
 *
 * If paths is null or empty, the search path is the value of DATAPATH, or else the directory
 * "data" of the installation root. subdir may be null or empty.
 *
 *     element of the path     files that are listed if they can be read
 *     a directory             element/subdirectory/name, then, for a name with a
 *                             directory part, element/subdirectory/base of name
 *     a file                  the element itself, if it begins with "/"
 *     begins with "~"         as above from the home directory, links resolved
 *     does not exist          none
 *
 * Returns a new list of new strings, which may be empty; the caller frees it with
 * freetbl(tbl, free).
 */
STOCK_API Tbl *datasearch(const char *paths, const char *subdir, const char *name, uint32_t flags);

/*
 * Finds a data file: the first file that datasearch lists for the name. If suffix is neither
 * null nor empty, "." and the suffix are added to the name.
 *
 * If the environment variable of the given name is set and not empty, its value is the search
 * path, and DATAPATH is not used. Otherwise the search path is DATAPATH or the directory "data"
 * of the installation root. Variables in the search path are expanded.
 *
 * Returns a new string that the caller frees with free, or null.
 */
STOCK_API char *datapath(const char *variable, const char *subdir, const char *name,
                         const char *suffix);

/* The same without subdirectory and suffix. */
STOCK_API char *datafile(const char *variable, const char *name);

STOCK_END_DECLS

#endif
