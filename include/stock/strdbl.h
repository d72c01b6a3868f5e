/*
 * strdbl.h - write a double as short text in the same way in every locale.
 */

#ifndef STOCK_STRDBL_H
#define STOCK_STRDBL_H

#include "export.h"

STOCK_BEGIN_DECLS

enum { STRDBL_SIZE = 32 /* bytes that hold the text of any double */ };

/*
 * Writes x with up to 15 digits to buf, which must have STRDBL_SIZE bytes. Above 1e10 and below
 * 1e-3 it is written with an exponent that is a multiple of three. The decimal point is a point in
 * every locale.
 *
 *     0, -0       0             1e10      10000000000
 *     1234        1234          1.5e12    1.5e12
 *     0.5         .5            2e-5      20e-6
 *     -0.5        -0.5          1e-100    .1e-99          as of 1e-99: meant
 *     infinity    Inf, -Inf     NaN       Nan
 *
 * Returns buf. It may be called from any thread.
 */
STOCK_API char *strdbl(char *buf, double x);

STOCK_END_DECLS

#endif
