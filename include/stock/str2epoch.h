/*
 * str2epoch.h - read times in almost any form, and switch time zones.
 *
 * A time is a sequence of the tokens below, separated by blanks, tabs and newlines. If several
 * tokens fit, the longest one is taken. Words may be in upper or lower case, except the names of
 * zones, which must be written as the system has them. Missing parts are taken from 1970, 1
 * January, 00:00:00. Times are in UTC unless the text names a zone. LOCAL is the system's own zone,
 * which switchTZ("") sets, whatever TZ says.
 *
 *     2008-02-01   2/1/2008   1/2/2008   2008/2/1     a date; is_month_first says which is first
 *     2008032   2008-032   (32)                       year and day of the year
 *     Feb 1, 2008   1 February 2008   friday          the weekday is read and ignored
 *     12:30   12:30:15.5   :30:15   12:30 pm          up to 168 hours if there is no date
 *     2008:032:12:30:15.5   2008:feb:1:12:30:15.5   2008032:12:30:15.5
 *     1201869015.5   -5   1.5e9                       an epoch time; also a single whole number
 *     now   -1:30   +0:00:10   -:5                    relative to now: h:m, h:m:s, :m
 *     -2days   2days                                  the date 2 days ago; day 2 after 1970-01-01
 *     ... US/Pacific   ... LOCAL                      the time is in that zone
 *
 * Some forms are not read as one might expect: meant. "2008-1-1" is not a date. "0" and "00:00"
 * set nothing and count as a problem. A two-digit year below 69 is in this century. The "T", "Z"
 * and offsets of ISO 8601, and the comma and offsets of dates in mail, are not read. A whole
 * number that is too large for its field is a problem; a number with a decimal point that a double
 * cannot hold becomes 0 or infinite.
 *
 * Reading does not depend on the locale. The text may have any length and contain any bytes; the
 * time that reading takes is proportional to its length. A null text counts as an empty one. Any
 * number of threads may read times at the same time.
 */

#ifndef STOCK_STR2EPOCH_H
#define STOCK_STR2EPOCH_H

#include "export.h"

STOCK_BEGIN_DECLS

/*
 * Returns the epoch time of a text. Logs nothing. If the text has problems, the result is whatever
 * could be computed, so call is_epoch_string first.
 */
STOCK_API double str2epoch(const char *text);

/*
 * Stores the epoch time of a text. Returns 0, or the negated number of problems, the first of which
 * is logged:
 *
 *     str2epoch: Bad date format:'13/13/2008'       numbers separated by "/" or "-"
 *     str2epoch: Bad jdate format:'2008367'         year and day of the year in 7 digits
 *     str2epoch: bad input '25:00:00'               also a number that is out of range
 *     str2epoch: extra number '7'                   more than two single numbers
 *     str2epoch: number 40 not understood           a single number is neither day nor year
 *     str2epoch: no timezone 'foo'
 *     str2epoch: can't interpret '!'
 *     str2epoch: can't interpret character 0x7      reading stops there
 *     str2epoch: day = 32 is too large              Month, Minute, Second, Hour, Doy alike
 *     str2epoch: Can't convert to local timezone before 1970
 *     str2epoch: invalid timezone difference = ...
 *
 * A text that is empty or sets nothing counts as a problem, but is not logged.
 */
STOCK_API int zstr2epoch(const char *text, double *epoch);

/* Stores the epoch time of a text and logs nothing. Returns 1 if there was no problem, else 0. */
STOCK_API int is_epoch_string(const char *text, double *epoch);

/* The same as zstr2epoch, but logs only if log is not 0. */
STOCK_API int _zstr2epoch(const char *text, double *epoch, int log);

/*
 * Sets the time zone of the whole process, through the environment variable TZ, until restoreTZ.
 * An empty zone, or null, means the system's own. Only the first 61 characters of the name are
 * used. errno is 0 afterwards if the system has a file for the zone. If the environment cannot be
 * changed, the process ends.
 *
 * While it is in effect, all threads see the changed time zone and environment.
 */
STOCK_API void switchTZ(const char *zone);

/*
 * Restores the time zone that was set before the first switchTZ; does nothing if there was none.
 * Every function that reads a time calls it at its end.
 */
STOCK_API void restoreTZ(void);

/*
 * Returns the environment's entry for the time zone, "TZ=" and its value, or null if TZ is unset or
 * empty. It is borrowed from the environment and valid until the environment is changed.
 */
STOCK_API const char *mygetTZ(void);

STOCK_END_DECLS

#endif
