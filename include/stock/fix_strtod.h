/*
 * fix_strtod.h - text to a double.
 */

#ifndef STOCK_FIX_STRTOD_H
#define STOCK_FIX_STRTOD_H

#include "export.h"

STOCK_BEGIN_DECLS

/*
 * Reads the number that s starts with, behind white space, as strtod does, but
 * with a decimal point in every locale, and special values that end where their
 * name does:
 *
 *     text, in either case    value                       left over
 *     Inf, -Inf               the infinities
 *     Infinity                plus infinity               inity
 *     NaN                     the quiet NaN
 *     -NaN                    the quiet NaN, negated
 *     1.5e3km                 1500                        km
 *     0x1p4                   16
 *     1e400, 1e-400           infinity, 0; errno is ERANGE
 *     anything else           0                           all of it
 *
 * *end receives the address of what is left over; end may be null. A null s is
 * taken as an empty one, and *end is null then. May be called from any thread.
 */
STOCK_API double fix_strtod(const char *s, char **end);

STOCK_END_DECLS

#endif
