/*
 * ieee754.h - the values of a double that are not numbers of the usual kind.
 *
 * Each is known by its eight bytes in big-endian order:
 *
 *     an_infinity        7ff0000000000000
 *     -an_infinity       fff0000000000000
 *     a_signaling_nan    7ff0000000000001
 *     a_quiet_nan        7fffffffffffffff
 *
 * The tests give 1 or 0. All functions may be called from any thread.
 */

#ifndef STOCK_IEEE754_H
#define STOCK_IEEE754_H

#include <stdio.h>

#include "export.h"

STOCK_BEGIN_DECLS

STOCK_API double an_infinity(void);
STOCK_API double a_signaling_nan(void);
STOCK_API double a_quiet_nan(void);

/* The quiet one. */
STOCK_API double a_nan(void);

/* Whether x is plus infinity, minus infinity, either of them. */
STOCK_API int is_infinity(double x);
STOCK_API int is_negative_infinity(double x);
STOCK_API int is_inf(double x);

/* Whether the exponent field of x is all zeros: also true of zero. */
STOCK_API int is_denormalized(double x);

/*
 * Print a blank and the value's big-endian bytes, 16 or 8 digits. Return the
 * number of characters printed.
 */
STOCK_API int showdouble(FILE *stream, double x);
STOCK_API int showfloat(FILE *stream, float x);

STOCK_END_DECLS

#endif
