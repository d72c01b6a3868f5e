/*
 * ieee754.h - infinities, NaN and denormalized numbers: make, recognise and print them.
 *
 * The special values have these bytes in big-endian order:
 *
 *     an_infinity        7ff0000000000000
 *     -an_infinity       fff0000000000000
 *     a_signaling_nan    7ff0000000000001
 *     a_quiet_nan        7fffffffffffffff
 *
 * The functions is_... return 1 or 0. All functions may be called from any thread.
 */

#ifndef STOCK_IEEE754_H
#define STOCK_IEEE754_H

#include <stdio.h>

#include "export.h"

STOCK_BEGIN_DECLS

STOCK_API double an_infinity(void);
STOCK_API double a_signaling_nan(void);
STOCK_API double a_quiet_nan(void);

/* Returns the quiet NaN. */
STOCK_API double a_nan(void);

/* Tell whether x is plus infinity, minus infinity, or either of them. */
STOCK_API int is_infinity(double x);
STOCK_API int is_negative_infinity(double x);
STOCK_API int is_inf(double x);

/* Tells whether all bits of the exponent of x are zero; this is also true for zero. */
STOCK_API int is_denormalized(double x);

/*
 * Print a blank and the bytes of the value in big-endian order, 16 or 8 digits. Return the
 * number of characters printed.
 */
STOCK_API int showdouble(FILE *stream, double x);
STOCK_API int showfloat(FILE *stream, float x);

STOCK_END_DECLS

#endif
