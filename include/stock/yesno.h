/*
 * yesno.h - yes and no in words.
 */

#ifndef STOCK_YESNO_H
#define STOCK_YESNO_H

#include "export.h"

STOCK_BEGIN_DECLS

/*
 * Tells true words from false ones, in either case of letters.
 *
 *     word                           result
 *     yes ok y true 1 on t           -1
 *     no n false 0 off f             0
 *     anything else, also null       1
 *
 * The whole string is the word: blanks around it make it something else.
 */
STOCK_API int yesno(const char *string);

STOCK_END_DECLS

#endif
