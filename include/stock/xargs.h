/*
 * xargs.h - run a command with the strings of a list as arguments.
 */

#ifndef STOCK_XARGS_H
#define STOCK_XARGS_H

#include "export.h"
#include "tbl.h"

STOCK_BEGIN_DECLS

enum { XARGS_MAX = 512 /* characters of a command line; no argument is added beyond them */ };

/*
 * Runs a command through the shell with the arguments, several times if necessary to keep each
 * command line near XARGS_MAX characters.
 *
 * A command line is the command, a space, each argument with a space after it, and the trailer. If
 * another argument would make the line longer than XARGS_MAX, the line is run first, and the
 * argument begins a new one. So if the first argument is too long for any line, the trailer alone
 * is run before it, without the command; for an empty list, too, the trailer alone is run. If
 * verbose is not 0, each line is reported as a notice before it is run. The results of the
 * commands are ignored. Arguments are not quoted, and the shell interprets them.
 */
STOCK_API void xargs(const char *command, const Tbl *arguments, const char *trailer, int verbose);

STOCK_END_DECLS

#endif
