/*
 * time.h - epoch times as text.
 *
 * A format is copied, except for its codes:
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
 *     %D      blank 1/01/70, month or day first as is_month_first says
 *     %E      the epoch time, 3 decimals, at least 15 wide
 *     %Z %z   the zone's name        %n %t   newline, tab
 *     other   the character itself: %% is %. A % that ends the format is dropped
 *
 * %s has no upper bound and prints 1000 for 0.9996 s: meant. %u stops at 99999.
 * A text has at most 1023 characters and its zones' names; what is longer is cut.
 * A zone's name is whole, however long it is.
 *
 * Times that cannot be printed as a date come out of the printers that use the
 * default formats as outside_range puts them. Strings that are returned are the
 * caller's, who frees them with free; running out of memory ends the process. No
 * output depends on the locale.
 *
 * Threads: what prints in UTC may run in any number of threads at once. What
 * prints in a zone takes turns, as it changes the TZ of the whole process for
 * its span.
 */

#ifndef STOCK_TIME_H
#define STOCK_TIME_H

#include "export.h"

STOCK_BEGIN_DECLS

/* Names in full; a week begins on Monday. */
STOCK_API extern const char *const Week[7];
STOCK_API extern const char *const Month[12];

/*
 * The default formats, which set_time_formats sets: date and time; date, day of
 * the year and time; the same with five decimals of the second; date alone. The
 * second four end in the zone's name. They stay valid as long as the process.
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
STOCK_API extern int Unset_formats; /* 1 until the formats are set */

/* The formats of fmttime that nothing changes: month and day, day of the year; without, with time.
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
 * Expands a format from fields as they are given; nothing is checked, and a
 * month that is none has no name. The zone, which may be null, and the epoch time
 * are printed by their codes only.
 */
STOCK_API char *ztime2str(const char *format, int year, int doy, int month, int day, int hour,
                          int minute, const char *zone, double epoch, double second);

/*
 * Breaks a time down into the fields of a zone.
 *
 *     zone           fields                  *zonename, which the caller frees
 *     null           UTC                     UTC
 *     "" or LOCAL    the process's zone      the platform's abbreviation
 *     US/Pacific     that zone               PST or PDT
 *
 * Returns 0, or -1 for a zone that is not recognised: that is logged, and the
 * fields are those of the zone then in force. Of a time before 1970 in a zone
 * the fraction of the second is negative: -0.5 is 00:00:00 and -0.5 s, meant.
 */
STOCK_API int e2hz(const char *zone, int *year, int *doy, int *month, int *day, int *hour,
                   int *minute, double *second, char **zonename, double epoch);

/* Prints a time in UTC, or in a zone as e2hz names it. */
STOCK_API char *epoch2str(const char *format, double epoch);
STOCK_API char *zepoch2str(const char *format, const char *zone, double epoch);

/* Print a time in UTC in the default formats; the first two round to the millisecond. */
STOCK_API char *strtime(double epoch);
STOCK_API char *strydtime(double epoch);
STOCK_API char *strdate(double epoch);

/* The same in the process's time zone, with its name. */
STOCK_API char *strlocaltime(double epoch);
STOCK_API char *strlocalydtime(double epoch);
STOCK_API char *strlocaldate(double epoch);

/* What fmttime writes at most, with the NUL that ends it, in bytes. */
enum { FMTTIME_SIZE = 1024 };

/*
 * Prints a time into buf in one of these styles, rounded to the millisecond (8:
 * to 0.00001 s). Returns 0.
 *
 *     1   2008-02-01 12:30:15.500     5   as strtime
 *     3   2008-02-01                  6   as strdate
 *     4   2008-032                    7   as strydtime
 *     8   as strydtime with five decimals
 *     any other   2008-032 12:30:15.500
 *
 * A null zone, or "UTC", is UTC; with any other, as for e2hz, the zone's name is
 * added. buf has room for the longest text of the style; FMTTIME_SIZE always is.
 */
STOCK_API int fmttime(char *buf, int style, const char *zone, double epoch);

/*
 * Prints an interval in its largest unit, filled with blanks to 21 characters.
 *
 *     303     "  5:03 minutes       "      100000   " 1 days 3.7 hours    "
 *     -303    " -5:03 minutes       "      1.5e-3   "   1.500 milliseconds"
 */
STOCK_API char *strtdelta(double seconds);

/*
 * Returns the ending of an ordinal number, a constant: "st", "nd", "rd" or "th".
 * From 100 on, numbers that end in 00 to 20 have "th": 101 gives "th", meant.
 */
STOCK_API const char *ordinal(int n);

/*
 * Loads the default formats; the printers and is_month_first do so on first use.
 *
 * They come from the parameter file time_formats.pf: time, ydtime, uydtime, date
 * and month_first, or the same in an array that its string location names; with
 * EUROPEAN_DATE in the environment that is european. A missing one ends the
 * process. Without the file dates are month first, or day first with EUROPEAN_DATE:
 *
 *     01/31/1970  00:00:00.000      31/01/1970  00:00:00.000
 *
 * May run in several threads at once; one of them sets the formats. Threads that
 * print meanwhile use old or new ones.
 */
STOCK_API void set_time_formats(void);

/* Returns Month_first, the formats loaded if need be. */
STOCK_API int is_month_first(void);

STOCK_END_DECLS

#endif
