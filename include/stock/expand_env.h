/*
 * expand_env.h - replace references to environment variables in text.
 */

#ifndef STOCK_EXPAND_ENV_H
#define STOCK_EXPAND_ENV_H

#include "export.h"

STOCK_BEGIN_DECLS

/*
 * Copies the text and replaces references to environment variables by their values.
 *
 * Any name may be enclosed in "${" and "}"; if the "}" is missing, the name extends to the end of
 * the text. A name without braces consists of letters and digits, without underscores. Names are
 * cut to 1023 characters. If a variable is not set, or a name is empty, the reference is not
 * replaced. If a variable is set to the empty text, the reference is removed. References in
 * values are not replaced.
 *
 *     text            with HOME=/h and NOPE unset
 *     ${HOME}/x       /h/x
 *     $HOME_DIR/x     /h_DIR/x
 *     ${HOME          /h
 *     ${NOPE}/x       ${NOPE}/x
 *     a$              a$
 *
 * Returns a new string that the caller frees with free; for null, an empty one. Running out of
 * memory ends the process. It must not run while another thread changes the environment.
 */
STOCK_API char *expand_env(const char *string);

STOCK_END_DECLS

#endif
