/*
 * yesno.h - recognise words for yes and no.
 */

#ifndef STOCK_YESNO_H
#define STOCK_YESNO_H

#include "export.h"

STOCK_BEGIN_DECLS

/*
 * Recognises words for true and false, in upper or lower case.
 *
 *     word                           result
 *     yes ok y true 1 on t           -1
 *     no n false 0 off f             0
 *     anything else, also null       1
 *
 * The word must be the whole string, without blanks around it. It may be called from any thread.
 */
STOCK_API int yesno(const char *string);

STOCK_END_DECLS

#endif
