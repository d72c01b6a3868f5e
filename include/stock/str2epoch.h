/*
 * str2epoch.h - reading times that people write, and switching time zones.
 *
 * A time is any sequence of the tokens below with blanks, tabs and newlines
 * between them; the longest token wins. Words count in capital and small letters
 * alike, but for the names of zones, which are written as the system has them.
 * What is not said is 1970, 1 January, 00:00:00. Times are in UTC unless a zone is
 * named; LOCAL is the system's own zone, as switchTZ("") sets it, whatever TZ says.
 *
 *     2008-02-01   2/1/2008   1/2/2008   2008/2/1        month or day first as is_month_first says
 *     2008032   2008-032   (32)                          year and day of the year
 *     Feb 1, 2008   1 February 2008   friday             the weekday is read and ignored
 *     12:30   12:30:15.5   :30:15   12:30 pm             up to 168 hours where there is no date
 *     2008:032:12:30:15.5   2008:feb:1:12:30:15.5   2008032:12:30:15.5
 *     1201869015.5   -5   1.5e9                          epoch times; so is a whole number alone
 *     now   -1:30   +0:00:10   -:5                       from now: h:m, h:m:s, :m
 *     -2days   2days                                     the date 2 days ago; day 2 after
 * 1970-01-01
 *     ... US/Pacific   ... LOCAL                         the fields count in that zone
 *
 * Several readings are narrower than they look, and meant: "2008-1-1" is no
 * date, "0" and "00:00" set nothing and count as a problem, and a two-digit
 * year below 69 lies in this century. Neither the "T", "Z" and offsets of ISO 8601
 * nor the comma and offsets of dates in mail are read. A whole number that its
 * field cannot hold is a problem; a number with a point that a double cannot hold
 * is 0 or infinite.
 *
 * Reading does not depend on the locale and takes time in proportion to the
 * text, of any length and any bytes. Any number of threads may
 * read. A null text is an empty one.
 */

#ifndef STOCK_STR2EPOCH_H
#define STOCK_STR2EPOCH_H

#include "export.h"

STOCK_BEGIN_DECLS

/*
 * Returns the epoch time of a text. Nothing is logged; of a text with problems
 * the result is whatever could be computed, so ask is_epoch_string first.
 */
STOCK_API double str2epoch(const char *text);

/*
 * Stores the epoch time of a text. Returns 0, or the negated count of problems,
 * the first of which is logged:
 *
 *     str2epoch: Bad date format:'13/13/2008'       rows of digits with "/" or "-"
 *     str2epoch: Bad jdate format:'2008367'         year and day of the year in 7 digits
 *     str2epoch: bad input '25:00:00'               also a number that is out of range
 *     str2epoch: extra number '7'                   more than two loose numbers
 *     str2epoch: number 40 not understood           a loose number that is no day or year
 *     str2epoch: no timezone 'foo'
 *     str2epoch: can't interpret '!'
 *     str2epoch: can't interpret character 0x7      reading stops there
 *     str2epoch: day = 32 is too large              Month, Minute, Second, Hour, Doy alike
 *     str2epoch: Can't convert to local timezone before 1970
 *     str2epoch: invalid timezone difference = ...
 *
 * A text that is empty or sets nothing counts without a message.
 */
STOCK_API int zstr2epoch(const char *text, double *epoch);

/* Stores the epoch time of a text and logs nothing. Returns 1 when there was no problem, else 0. */
STOCK_API int is_epoch_string(const char *text, double *epoch);

/* zstr2epoch, which logs only when log is not 0. */
STOCK_API int _zstr2epoch(const char *text, double *epoch, int log);

/*
 * Sets the time zone of the whole process, through its environment variable TZ,
 * until restoreTZ. An empty zone, or null, is the system's own. errno is 0
 * afterwards when the platform found a file for the zone. No more than 61
 * characters of the name count. A failure to change the environment ends the
 * process.
 *
 * Threads that read the time zone or the environment at the same moment see it
 * changed.
 */
STOCK_API void switchTZ(const char *zone);

/*
 * Puts back the time zone of before the first switchTZ; without one, does nothing.
 * Every reading of a time ends with it.
 */
STOCK_API void restoreTZ(void);

/*
 * Returns the environment's entry for the time zone, "TZ=" and its value, or
 * null when TZ is unset or empty. Borrowed from the environment, valid until it
 * is changed.
 */
STOCK_API const char *mygetTZ(void);

STOCK_END_DECLS

#endif
