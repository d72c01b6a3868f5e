/*
 * xargs.h - running a command over a list of arguments.
 */

#ifndef STOCK_XARGS_H
#define STOCK_XARGS_H

#include "export.h"
#include "tbl.h"

STOCK_BEGIN_DECLS

enum { XARGS_MAX = 512 /* characters of a command line that no argument is added beyond */ };

/*
 * Runs a command through the shell with the arguments, in as many invocations
 * as it takes to keep each line near XARGS_MAX characters.
 *
 * A line is the command, a space, each argument with a space behind it, and the
 * trailer. If an argument would exceed XARGS_MAX, what is collected runs first. So
 * an argument too long for any line has the trailer alone run before it, and an
 * empty list runs the trailer alone. With
 * verbose not 0 each line is notified before it runs. What the commands return
 * is ignored.
 */
STOCK_API void xargs(const char *command, const Tbl *arguments, const char *trailer, int verbose);

STOCK_END_DECLS

#endif
