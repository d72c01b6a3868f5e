/*
 * is_file.h - questions about files, listings of directories and walks of trees.
 *
 * Links are followed everywhere: what counts is the file that a path leads to.
 * No function changes a file. All may be called from any thread.
 *
 * The questions leave errno as they find it, so they may be asked between a
 * call that failed and its report. A path that is null or empty, or that leads
 * nowhere, is simply not there; nothing is logged.
 *
 * Listings and walks take names of any length and directories of any size, also
 * while others change them: an entry that appears or goes during the reading
 * may be found or not, and none is found twice. Running out of memory ends the
 * process.
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

/* 1 when the path leads to anything that can be examined, else 0. */
STOCK_API int is_present(const char *path);

/* 1 for a regular file, else 0. */
STOCK_API int is_file(const char *path);

/* 1 for a directory, else 0. */
STOCK_API int is_dir(const char *path);

/* 1 for a regular file that its owner, its group or others may execute, else 0. */
STOCK_API int is_executable_file(const char *path);

/*
 * 1 for a regular file that the process may write, or for a path where nothing
 * is yet and in whose directory the process may create it; else 0. What counts
 * is the effective user. Where nothing is, a path of more than 1,023 characters
 * gives 0.
 */
STOCK_API int is_writable_file(const char *path);

/* 1 when the name begins with "/", "./" or "../", else 0; looks at the text only. */
STOCK_API int is_filename(const char *name);

/*
 * 1 for a directory without entries and for a regular file of size 0, -1 for a
 * directory that cannot be read, 0 for everything else and where nothing is.
 */
STOCK_API int is_empty(const char *path);

/* When the content changed last, in whole seconds since 1970; 0 where nothing is. */
STOCK_API int64_t filetime(const char *path);

/* The size of a regular file in bytes; 0 for every other kind. */
STOCK_API int64_t filesize(const char *path);

/* The mode of a regular file, its type bits included (st_mode); 0 for every other kind. */
STOCK_API mode_t filemode(const char *path);

/* A number of bytes in decimal units: divided by 1e9, 1e6 and 1e3. */
STOCK_API double Gbytes(double x);
STOCK_API double Mbytes(double x);
STOCK_API double kbytes(double x);

/*
 * Lists a directory: its names in byte order, without "." and "..".
 *
 *     which    entries
 *     0        all
 *     1        regular files
 *     2        directories
 *     3        both of these
 *
 * Only bits 1 and 2 of which count. Returns a new list of new strings:
 * the caller frees it with freetbl(names, free). It is empty when dir is not a
 * directory or cannot be read.
 */
STOCK_API Tbl *dirfiles(const char *dir, int which);

/*
 * Examines all entries of a directory. *dirs and *files become new arrays from
 * an entry's name to its status, a struct stat of the entry's own: one for the
 * subdirectories, one for the regular files. Other entries, and those that
 * cannot be examined, are left out. A null dirs or files is not filled.
 *
 * The caller frees each with freearr(arr, free). Returns 0, or -1 with empty
 * arrays and errno set when dir is not a directory or cannot be read.
 */
STOCK_API int directory(const char *dir, Arr **dirs, Arr **files);

/* What fstraverse leaves out and in which order it goes; bits of flags. */
enum {
    FSTRAVERSE_NO_DIRS = 1,    /* the function is not called for directories */
    FSTRAVERSE_NO_FILES = 2,   /* the function is not called for regular files */
    FSTRAVERSE_DEPTH_FIRST = 4 /* what a subdirectory holds comes before itself */
};

/*
 * Walks the tree below path and calls function for the subdirectories and the
 * regular files in it; path itself is not among them.
 *
 * Each directory is examined as a whole before the first call for it, and taken
 * in the order of its names: its files, then each subdirectory followed by what
 * it holds. With FSTRAVERSE_DEPTH_FIRST each subdirectory comes behind what it
 * holds, and the files last. A directory that the walk is already inside of
 * (device and inode tell) is reported but not entered again, so every walk ends.
 *
 * Links are followed: what is counted and reported is what they lead to.
 *
 * The function gets the entry's path, which is path and the names below it
 * joined and cleaned as by concatpaths, and its status. Both are borrowed for
 * the call. Entries deep in a tree may have paths of more than 1,023 characters.
 * The function may change and remove what it is shown; it must not change the
 * current directory when path is relative.
 *
 * The directory that is read is path as it stands, but cleaning takes it as text:
 * of "~" it makes the home directory, and "link/.." it takes for the directory of
 * the link. So for a path with a "~" in front or a ".." behind a link the function
 * would get paths of other files: pass what cleanpath with CLEANPATH_LINKS makes
 * of it.
 *
 * Returns the sum of the function's results, at most INT_MAX and at least
 * INT_MIN, or -1 when any directory on the way could not be read: the reason is
 * logged, and the rest is walked all the same. A path of more than 1,000
 * characters gives -1 and a message. No depth of the tree needs more stack.
 */
STOCK_API int fstraverse(const char *path, int flags,
                         int (*function)(const char *path, const struct stat *status,
                                         void *argument),
                         void *argument);

STOCK_END_DECLS

#endif
