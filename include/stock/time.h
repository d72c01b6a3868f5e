/*
 * time.h - print epoch times as text, in UTC and in time zones.
 *
 * A format is text with codes, which are replaced:
 *
 *     %A %a   Thursday, Thu          %H %k   hour: 07, blank 7
 *     %B %b   January, Jan           %I %l   hour of 12, 12 for 0: 07, blank 7
 *     %Y %y   1970, 70               %M      minute: 05
 *     %m %L   month: 01, blank 1     %S      whole seconds, cut: 09
 *     %d %e   day: 01, blank 1       %s      milliseconds, rounded: 250
 *     %j      day of the year: 001   %u      hundred-thousandths, rounded: 25000
 *     %o %O   day of month, of year: 1st, 32nd
 *     %p      AM, PM                 %T      07:05:09.250
 *     %G      1970-01-01             %g      1970-001
 *     %D      blank 1/01/70; is_month_first says whether month or day is first
 *     %E      the epoch time, 3 decimals, at least 15 wide
 *     %Z %z   the zone's name        %n %t   newline, tab
 *     other   the character itself: %% is %. A % that ends the format is dropped
 *
 * %s has no upper bound: it prints 1000 for 0.9996 s, meant. %u prints at most 99999. A text is cut
 * after 1023 characters, not counting the names of zones, which are never cut.
 *
 * If a time cannot be printed as a date, the functions that use the default formats print the text
 * of outside_range. Unless a function says otherwise, it returns a new string that the caller frees
 * with free. Running out of memory ends the process. The output does not depend on the locale.
 *
 * Any number of threads may print times in UTC at the same time. Threads that print in a zone wait
 * for each other, because printing in a zone changes TZ of the whole process while it lasts.
 */

#ifndef STOCK_TIME_H
#define STOCK_TIME_H

#include "export.h"

STOCK_BEGIN_DECLS

/* The full names; a week begins on Monday. */
STOCK_API extern const char *const Week[7];
STOCK_API extern const char *const Month[12];

/*
 * The default formats, which set_time_formats sets: date and time; date, day of the year and time;
 * the same with five decimals of the second; only the date. The second four also end in the zone's
 * name. They remain valid until the process ends.
 */
STOCK_API extern const char *Strtime_format;
STOCK_API extern const char *Strydtime_format;
STOCK_API extern const char *UStrydtime_format;
STOCK_API extern const char *Strdate_format;
STOCK_API extern const char *ZStrtime_format;
STOCK_API extern const char *ZStrydtime_format;
STOCK_API extern const char *UZStrydtime_format;
STOCK_API extern const char *ZStrdate_format;

STOCK_API extern int Month_first;   /* 1: dates are written month first */
STOCK_API extern int Unset_formats; /* 1 until the formats are loaded */

/*
 * The constant formats of fmttime: month and day with and without the time, and the same with the
 * day of the year. The second four also end in the zone's name.
 */
STOCK_API extern const char *const MDtime_format;
STOCK_API extern const char *const MD_format;
STOCK_API extern const char *const YDtime_format;
STOCK_API extern const char *const YD_format;
STOCK_API extern const char *const ZMDtime_format;
STOCK_API extern const char *const ZMD_format;
STOCK_API extern const char *const ZYDtime_format;
STOCK_API extern const char *const ZYD_format;

/*
 * Prints the given fields in a format. The fields are not checked; an invalid month has no name.
 * zone, which may be null, and epoch are only used for their codes.
 */
STOCK_API char *ztime2str(const char *format, int year, int doy, int month, int day, int hour,
                          int minute, const char *zone, double epoch, double second);

/*
 * Converts a time to date and time of day in a zone.
 *
 *     zone           the fields are in       *zonename, which the caller frees with free
 *     null           UTC                     UTC
 *     "" or LOCAL    the process's zone      the system's abbreviation
 *     US/Pacific     that zone               PST or PDT
 *
 * Returns 0. If the zone is not recognised, logs this, uses the zone of the process, and returns
 * -1. For a time before 1970 in a zone, the fraction of the second is negative: -0.5 is 00:00:00
 * and -0.5 s, meant.
 */
STOCK_API int e2hz(const char *zone, int *year, int *doy, int *month, int *day, int *hour,
                   int *minute, double *second, char **zonename, double epoch);

/* Print a time in a format, in UTC or in a zone, which is named as for e2hz. */
STOCK_API char *epoch2str(const char *format, double epoch);
STOCK_API char *zepoch2str(const char *format, const char *zone, double epoch);

/*
 * Print a time in UTC in the default formats: date and time; date, day of the year and time; date.
 * The first two round to the millisecond.
 */
STOCK_API char *strtime(double epoch);
STOCK_API char *strydtime(double epoch);
STOCK_API char *strdate(double epoch);

/* The same in the process's time zone, with the zone's name. */
STOCK_API char *strlocaltime(double epoch);
STOCK_API char *strlocalydtime(double epoch);
STOCK_API char *strlocaldate(double epoch);

/* The largest number of bytes that fmttime writes, including the terminator. */
enum { FMTTIME_SIZE = 1024 };

/*
 * Prints a time to buf in one of these styles, rounded to the millisecond (style 8: to 0.00001 s).
 * Returns 0.
 *
 *     1   2008-02-01 12:30:15.500     5   as strtime
 *     3   2008-02-01                  6   as strdate
 *     4   2008-032                    7   as strydtime
 *     8   as strydtime with five decimals
 *     any other   2008-032 12:30:15.500
 *
 * A null zone, or "UTC", is UTC. For any other zone, named as for e2hz, the zone's name is added,
 * cut if it does not fit into FMTTIME_SIZE bytes. buf must have room for the longest text of the
 * style; FMTTIME_SIZE bytes are always enough.
 */
STOCK_API int fmttime(char *buf, int style, const char *zone, double epoch);

/*
 * Prints an interval in its largest unit, padded with blanks to 21 characters.
 *
 *     303     "  5:03 minutes       "      100000   " 1 days 3.7 hours    "
 *     -303    " -5:03 minutes       "      1.5e-3   "   1.500 milliseconds"
 */
STOCK_API char *strtdelta(double seconds);

/*
 * Returns the suffix of an ordinal number, a constant string: "st", "nd", "rd" or "th". From 100
 * on, all numbers that end in 00 to 20 have "th", even 101: meant.
 */
STOCK_API const char *ordinal(int n);

/*
 * Loads the default formats. The printing functions and is_month_first do so on first use.
 *
 * The formats come from the parameter file time_formats.pf: time, ydtime, uydtime, date and
 * month_first, or the same keys in the table that its text location names. If EUROPEAN_DATE is set,
 * they come from the table european. A format that is missing ends the process. If there is no such
 * file, dates are written month first, or day first if EUROPEAN_DATE is set:
 *
 *     01/31/1970  00:00:00.000      31/01/1970  00:00:00.000
 *
 * Several threads may call it at the same time; one of them sets the formats, and threads that
 * print meanwhile use the old or the new ones.
 */
STOCK_API void set_time_formats(void);

/* Loads the formats if necessary and returns Month_first. */
STOCK_API int is_month_first(void);

STOCK_END_DECLS

#endif
