/*
 * h2e.h - convert between epoch times and year, day and time of day, for C and for Fortran.
 *
 * The calendar is that of epoch.h: UTC, proleptic Gregorian, no leap seconds. Ranges are not
 * checked, and nothing overflows. The names with an underscore are the same functions for Fortran
 * programs, with every argument passed by pointer.
 *
 * Nothing here locks, and every function may be called from any thread. Pointers must not be null.
 */

#ifndef STOCK_H2E_H
#define STOCK_H2E_H

#include "export.h"

STOCK_BEGIN_DECLS

/*
 * Returns the epoch time of a year, day of the year (from 1) and time of day. Values beyond their
 * range carry over.
 *
 * Year and day are first combined into one year-day integer, so year -1, day 1 counts as year 0,
 * day -999: meant.
 */
STOCK_API double h2e(int year, int doy, int hour, int minute, double second);

/* Converts a time to year, day of the year and time of day. Returns 0. */
STOCK_API int e2h(double when, int *year, int *doy, int *hour, int *minute, double *second);

/* Converts a day of the year to month and day of the month, as month_day does. Returns 0. */
STOCK_API int doy2mday(int doy, int year, int *month, int *day);

/* Returns the day of the year for a month and day, as mdtodate does. */
STOCK_API int mday2doy(int year, int month, int day);

STOCK_API double h2e_(const int *year, const int *doy, const int *hour, const int *minute,
                      const double *second);
STOCK_API int e2h_(const double *when, int *year, int *doy, int *hour, int *minute, double *second);
STOCK_API int doy2mday_(const int *doy, const int *year, int *month, int *day);
STOCK_API int mday2doy_(const int *year, const int *month, const int *day);

STOCK_END_DECLS

#endif
