/*
 * path.h - path names as text.
 *
 * A path is plain text that ends in a zero byte. Every output buffer holds at
 * least 1024 bytes, terminator included; cleanpath, abspath and relpath may be
 * given the path's own memory, the buffers of the others are apart. A path is
 * never cut into another one: what does not fit is refused, with a message, and
 * the buffers are empty.
 *
 * Reasons of failures go to the message log with elog_log. Running out of
 * memory ends the process. Every function may be called from any thread.
 */

#ifndef STOCK_PATH_H
#define STOCK_PATH_H

#include <stdint.h>

#include "export.h"

STOCK_BEGIN_DECLS

/* Flag of cleanpath: symbolic links are replaced by what they name. */
enum { CLEANPATH_LINKS = 1 };

/*
 * Normalises path: drops empty and "." components, lets ".." take the component
 * before it away, puts a home directory for a first component "~" (that of the
 * current user) or "~name", and with CLEANPATH_LINKS follows symbolic links.
 *
 *     path             clean
 *     a/./b/../c       a/c
 *     ./x              x
 *     ../../x          ../../x
 *     /..              /
 *     (empty), a/..    .
 *     //a//b/          /a/b
 *     ~/x              /home/me/x
 *     ~nosuchuser/x    ~nosuchuser/x
 *
 * Without CLEANPATH_LINKS a ".." is taken as text, as if there were no links.
 *
 * Returns 0, or -1 when a component that others follow could not be examined
 * (the rest is then cleaned as text), when a link could not be read, when more
 * than 11 links on the way or 40 at the end of the path would have to be
 * followed, or when the result is too long. clean receives the best path built,
 * the components behind an unreadable link unchanged; it is empty for a result
 * that is too long and for a null path. errno is left alone.
 */
STOCK_API int cleanpath(const char *path, uint32_t flags, char *clean);

/*
 * Joins the parts, up to a null pointer, with "/" and cleans the result as
 * cleanpath does without following links. A part that begins with "/" replaces
 * everything before it; an empty first part is the current
 * directory, ".".
 *
 *     parts             result
 *     "/a", "b", "c"    /a/b/c
 *     "/a", "b", "/c"   /c
 *     "", "x"           x
 *
 * Returns a new string that the caller frees with free; it is empty for a result
 * that is too long, which is reported.
 */
STOCK_API char *concatpaths(const char *first, ...) STOCK_SENTINEL;

/*
 * Makes path absolute, starting from the current directory unless it begins with
 * "/" or "~", and cleans it as cleanpath does without following links.
 *
 * Returns what cleanpath returns, also for a result that is too long; -1 with the
 * path unchanged when the current directory is unknown. errno is left alone.
 */
STOCK_API int abspath(const char *path, char *absolute);

/*
 * Gives the way from the directory from to the path to. Both are made absolute
 * first, without following links; to need not exist.
 *
 *     from     to          relative
 *     /a/b     /a/c/d      ../c/d
 *     /a/b     /a/b/c      c
 *     /a/b     /a/b        .
 *
 * Returns 0, or -1 when from does not exist, or is not a directory (the way then
 * starts from the directory that holds it). -1, a report, and an empty result when
 * there is no way to give: a path or the way is too long, the current directory is
 * unknown, or nobody knows the user of a "~name" in front. errno is left alone.
 */
STOCK_API int relpath(const char *from, const char *to, char *relative);

/*
 * Splits path at its last "/" into directory and base and, when suffix is not
 * null, cuts the base at its last "." unless that is its first character.
 *
 *     path           dir    base        suffix
 *     /d/f.tar.gz    /d     f.tar       gz
 *     .profile       .      .profile
 *     /x                    x                     dirbase gives "/": meant
 *
 * When a part is longer than 1023 bytes, that is reported and all are empty. A null
 * path is taken for an empty one. Returns suffix, null when that is null.
 */
STOCK_API char *parsepath(const char *path, char *dir, char *base, char *suffix);

/*
 * Splits path at its last "/" into directory and base.
 *
 *     path     dir    base
 *     /d/f     /d     f
 *     f        .      f
 *     /x       /      x
 *
 * When a part is longer than 1023 bytes, that is reported and both are empty. A null
 * path is taken for an empty one.
 */
STOCK_API void dirbase(const char *path, char *dir, char *base);

/*
 * Whether two paths are the same text once both are absolute and clean; links
 * are not followed. Returns 1, or 0; a path that is null or too long is the
 * same as no other. errno is left alone.
 */
STOCK_API int samepath(const char *a, const char *b);

/*
 * Finds the home directory of a user by login name; null or an empty name means
 * the user who runs the program.
 *
 * Returns a new string that the caller frees with free, or null when there is no
 * such user or the entry needs more than 1024 bytes.
 */
STOCK_API char *homedir(const char *user);

/*
 * Creates a directory, and those above it that are missing, with permissions
 * 0775 less the process's mask. One that is there already is fine.
 *
 * Returns 0 when there is a directory that the process may write to (the effective
 * user counts), else -1 with the reason logged for it and for each directory above
 * that failed. A path of more than 1023 bytes is refused like one that cannot be
 * created.
 */
STOCK_API int makedir(const char *dir);

/*
 * Creates the directories that lead to a file: makedir of everything before the
 * path's last "/", of "/" when that is empty. Returns what makedir returns; 0
 * for a path without "/". A path that is too long is refused as makedir does.
 */
STOCK_API int make_pathdirs(const char *path);

STOCK_END_DECLS

#endif
