/*
 * expand_env.h - environment variables in text.
 */

#ifndef STOCK_EXPAND_ENV_H
#define STOCK_EXPAND_ENV_H

#include "export.h"

STOCK_BEGIN_DECLS

/*
 * Replaces references to environment variables by their values.
 *
 * "${" and "}" enclose any name, and without a "}" the name runs to the end.
 * Without braces a name is the longest run of letters and digits: no
 * underscore. Names are cut to 1023 characters. A variable that is not set and
 * an empty name leave the reference as it stands. Values are not searched again.
 *
 *     text            with HOME=/h and NOPE unset
 *     ${HOME}/x       /h/x
 *     $HOME_DIR/x     /h_DIR/x
 *     ${HOME          /h
 *     ${NOPE}/x       ${NOPE}/x
 *     a$              a$
 *
 * Returns a new string that the caller frees with free; for null, an empty one.
 * Running out of memory ends the process. Must not run while another thread
 * changes the environment.
 */
STOCK_API char *expand_env(const char *string);

STOCK_END_DECLS

#endif
