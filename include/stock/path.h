/*
 * path.h - clean, join and split path names, and create directories.
 *
 * A path is a string. Every output buffer must have at least 1024 bytes, including the
 * terminator. For cleanpath, abspath and relpath it may be the memory of the path itself; for the
 * other functions it must be different memory. A path is never shortened, because it would then
 * name another file: if a result does not fit, the buffers are empty and a message is logged.
 *
 * Reasons of failures are logged with elog_log. Running out of memory ends the process. Every
 * function may be called from any thread.
 */

#ifndef STOCK_PATH_H
#define STOCK_PATH_H

#include <stdint.h>

#include "export.h"

STOCK_BEGIN_DECLS

/* Flag of cleanpath: symbolic links are replaced by what they point to. */
enum { CLEANPATH_LINKS = 1 };

/*
 * Normalises a path: removes empty and "." components, and removes ".." together with the
 * component before it. Replaces a first component "~" by the home directory of the current user,
 * and "~name" by that of the user with the login name. With CLEANPATH_LINKS follows symbolic
 * links.
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
 * Without CLEANPATH_LINKS, ".." is treated as text, as if there were no links.
 *
 * Returns 0. Returns -1 if a component before the last one could not be examined (the rest is then
 * cleaned as text), if a link could not be read, if there are more than 11 links on the way or 40
 * at the end of the path, or if the result is too long. clean receives the path, as far as it could
 * be cleaned; components after an unreadable link are unchanged. It is empty if the result is too
 * long or path is null. errno is left unchanged.
 */
STOCK_API int cleanpath(const char *path, uint32_t flags, char *clean);

/*
 * Joins its arguments, up to a null pointer, with "/" and cleans the result as cleanpath does
 * without following links. An argument that begins with "/" replaces everything before it. An
 * empty first argument is the current directory, ".".
 *
 *     parts             result
 *     "/a", "b", "c"    /a/b/c
 *     "/a", "b", "/c"   /c
 *     "", "x"           x
 *
 * Returns a new string that the caller frees with free. It is empty if the result is too long,
 * which is logged.
 */
STOCK_API char *concatpaths(const char *first, ...) STOCK_SENTINEL;

/*
 * Makes a path absolute and cleans it as cleanpath does without following links. A path that
 * begins with neither "/" nor "~" is relative to the current directory.
 *
 * Returns the result of cleanpath, or -1 with the path unchanged if the current directory is
 * unknown. errno is left unchanged.
 */
STOCK_API int abspath(const char *path, char *absolute);

/*
 * Finds the relative path from a directory to another path, which need not exist. Both are first
 * made absolute, without following links.
 *
 *     from     to          relative
 *     /a/b     /a/c/d      ../c/d
 *     /a/b     /a/b/c      c
 *     /a/b     /a/b        .
 *
 * Returns 0. Returns -1 if from does not exist or is not a directory; the result then starts from
 * the directory that contains from. Returns -1 with a message and an empty result if a path or the
 * result is too long, the current directory is unknown, or the user in a first component "~name"
 * is unknown. errno is left unchanged.
 */
STOCK_API int relpath(const char *from, const char *to, char *relative);

/*
 * Splits a path at its last "/" into directory and base. If suffix is not null, also splits the
 * base at its last ".", unless that is the first character.
 *
 *     path           dir    base        suffix
 *     /d/f.tar.gz    /d     f.tar       gz
 *     .profile       .      .profile
 *     /x                    x                     dirbase gives "/": meant
 *
 * If a part is longer than 1023 bytes, this is logged and all parts are empty. A null path counts
 * as an empty one. Returns suffix, also if it is null.
 */
STOCK_API char *parsepath(const char *path, char *dir, char *base, char *suffix);

/*
 * Splits a path at its last "/" into directory and base.
 *
 *     path     dir    base
 *     /d/f     /d     f
 *     f        .      f
 *     /x       /      x
 *
 * If a part is longer than 1023 bytes, this is logged and both parts are empty. A null path counts
 * as an empty one.
 */
STOCK_API void dirbase(const char *path, char *dir, char *base);

/*
 * Tells whether two paths are equal after both are made absolute and clean. Links are not
 * followed. Returns 1 or 0; a path that is null or too long equals no other path. errno is left
 * unchanged.
 */
STOCK_API int samepath(const char *a, const char *b);

/*
 * Finds the home directory of a user by login name; null or an empty name means
 * the user who runs the program.
 *
 * Returns a new string that the caller frees with free, or null if there is no such user or the
 * user's entry needs more than 1024 bytes.
 */
STOCK_API char *homedir(const char *user);

/*
 * Creates a directory, and missing directories above it, with the permissions 0775 less the
 * process's mask. It is not an error if the directory exists.
 *
 * Returns 0 if the directory exists and the effective user may write to it. Otherwise returns -1
 * and logs the reason for it and for each directory above it that failed. A path of more than 1023
 * bytes is refused like one that cannot be created.
 */
STOCK_API int makedir(const char *dir);

/*
 * Creates the directories that lead to a file: calls makedir with everything before the path's
 * last "/", or with "/" if that is empty. Returns the result of makedir, or 0 for a path without
 * "/".
 */
STOCK_API int make_pathdirs(const char *path);

STOCK_END_DECLS

#endif
