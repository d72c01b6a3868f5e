/*
 * is_file.h - answer questions about files, list directories, walk directory trees.
 *
 * All functions follow links: the file that a path leads to is examined. No function changes a
 * file. All may be called from any thread.
 *
 * The functions up to filemode leave errno unchanged, so they can be called between a failed call
 * and its report. A path that is null or empty counts as one that does not exist. They log
 * nothing.
 *
 * For listings and walks, names may have any length and directories any size. If a directory is
 * changed while it is read, an entry that appears or disappears meanwhile may or may not be found,
 * but no entry is found twice. Running out of memory ends the process.
 */

#ifndef STOCK_IS_FILE_H
#define STOCK_IS_FILE_H

#include <stdint.h>

#include <sys/stat.h>
#include <sys/types.h>

#include "arr.h"
#include "export.h"
#include "tbl.h"

STOCK_BEGIN_DECLS

/* Returns 1 if the path leads to something that can be examined, else 0. */
STOCK_API int is_present(const char *path);

/* Returns 1 for a regular file, else 0. */
STOCK_API int is_file(const char *path);

/* Returns 1 for a directory, else 0. */
STOCK_API int is_dir(const char *path);

/* Returns 1 for a regular file that its owner, its group or others may execute, else 0. */
STOCK_API int is_executable_file(const char *path);

/*
 * Returns 1 for a regular file that the process may write, and for a path that does not exist and
 * may be created by the process; else 0. The effective user is used. A path that does not exist
 * and has more than 1,023 characters gives 0.
 */
STOCK_API int is_writable_file(const char *path);

/* Returns 1 if the name begins with "/", "./" or "../", else 0. It looks only at the text. */
STOCK_API int is_filename(const char *name);

/*
 * Returns 1 for a directory without entries and for a regular file of size 0, -1 for a directory
 * that cannot be read, and 0 for everything else.
 */
STOCK_API int is_empty(const char *path);

/*
 * Returns the time of the last change of the content, in whole seconds since 1970; 0 if the path
 * does not exist.
 */
STOCK_API int64_t filetime(const char *path);

/* Returns the size of a regular file in bytes; 0 for every other kind. */
STOCK_API int64_t filesize(const char *path);

/* Returns the mode of a regular file with its type bits (st_mode); 0 for every other kind. */
STOCK_API mode_t filemode(const char *path);

/* Return a number of bytes in decimal units: divided by 1e9, 1e6 and 1e3. */
STOCK_API double Gbytes(double x);
STOCK_API double Mbytes(double x);
STOCK_API double kbytes(double x);

/*
 * Lists the names in a directory in byte order, without "." and "..".
 *
 *     which    entries
 *     0        all
 *     1        regular files
 *     2        directories
 *     3        both of these
 *
 * Other bits of which are ignored. Returns a new list of new strings that the caller frees with
 * freetbl(names, free). It is empty if dir is not a directory or cannot be read.
 */
STOCK_API Tbl *dirfiles(const char *dir, int which);

/*
 * Examines all entries of a directory. *dirs and *files receive new arrays from the name of an
 * entry to its own struct stat: one array for the subdirectories, and one for the regular files.
 * Other entries, and those that cannot be examined, are omitted. dirs or files may be null.
 *
 * Returns 0, or -1 with empty arrays and errno set if dir is not a directory or cannot be read.
 * In both cases the caller frees each array with freearr(arr, free).
 */
STOCK_API int directory(const char *dir, Arr **dirs, Arr **files);

/* Bits of the flags of fstraverse: what it omits, and its order. */
enum {
    FSTRAVERSE_NO_DIRS = 1,    /* the function is not called for directories */
    FSTRAVERSE_NO_FILES = 2,   /* the function is not called for regular files */
    FSTRAVERSE_DEPTH_FIRST = 4 /* each subdirectory comes after its contents, the files last */
};

/*
 * Walks the tree below path and calls function for each subdirectory and regular file in it, but
 * not for path itself.
 *
 * Each directory is examined as a whole before the first call for it. The order is that of the
 * names: first the files of a directory, and then each subdirectory, followed by its contents.
 * With FSTRAVERSE_DEPTH_FIRST each subdirectory comes after its contents, and the files come last.
 * If the walk reaches a directory that it is already inside of, by device and inode, it reports
 * the directory but does not enter it again, so every walk ends.
 *
 * function is called with the entry's path, its status, and argument. The path is path and the
 * names below it, joined and cleaned as by concatpaths. Path and status are valid during the call.
 * Entries deep in a tree may have paths of more than 1,023 characters. The function may change and
 * remove the entry. If path is relative, it must not change the current directory.
 *
 * path is opened as it is, but it is cleaned as text for the function: "~" becomes the home
 * directory, and "link/.." becomes the directory of the link. So with a "~" at the beginning, or a
 * ".." after a link, the function would get paths of other files: pass the result of cleanpath
 * with CLEANPATH_LINKS instead.
 *
 * Returns the sum of the function's results, within INT_MIN and INT_MAX. If a directory cannot be
 * read, logs the reason, walks the rest, and returns -1. For a path of more than 1,000 characters
 * logs a message and returns -1. Deep trees do not need more stack.
 */
STOCK_API int fstraverse(const char *path, int flags,
                         int (*function)(const char *path, const struct stat *status,
                                         void *argument),
                         void *argument);

STOCK_END_DECLS

#endif
