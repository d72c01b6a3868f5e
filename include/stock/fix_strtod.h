/*
 * fix_strtod.h - read a double from text in the same way in every locale.
 */

#ifndef STOCK_FIX_STRTOD_H
#define STOCK_FIX_STRTOD_H

#include "export.h"

STOCK_BEGIN_DECLS

/*
 * Reads the number at the beginning of s, after white space. It reads numbers as strtod does, but
 * the decimal point is a point in every locale, and a special value ends where its name ends:
 *
 *     text, in either case    value                       rest
 *     Inf, -Inf               the infinities
 *     Infinity                plus infinity               inity
 *     NaN                     the quiet NaN
 *     -NaN                    the quiet NaN, negated
 *     1.5e3km                 1500                        km
 *     0x1p4                   16
 *     1e400, 1e-400           infinity, 0; errno is ERANGE
 *     anything else           0                           all of it
 *
 * If end is not null, *end receives the address of the rest of the text. A null s counts as an
 * empty one, and *end is then null. It may be called from any thread.
 */
STOCK_API double fix_strtod(const char *s, char **end);

STOCK_END_DECLS

#endif
