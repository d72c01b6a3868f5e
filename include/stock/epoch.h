/*
 * epoch.h - calendar arithmetic on epoch times.
 *
 * An epoch time is a double: seconds since 1970-01-01 00:00:00 UTC, with
 * fractions, negative before 1970. The calendar is the proleptic Gregorian one,
 * always in UTC, without leap seconds. A year-day integer packs a date as
 * year * 1000 + day of the year, which counts from 1: 2008032 is 2008-02-01.
 *
 * Nothing is range-checked: day 0 is the last of the year before, hour 25 the
 * first of the next day. No number is too large either: what cannot be held by
 * an int is cut to INT_MIN or INT_MAX, and a time that is not finite has the
 * time of day 00:00:00.
 *
 * Nothing here locks, and every function may be called from any thread. Pointers
 * must not be null, except where it is said.
 */

#ifndef STOCK_EPOCH_H
#define STOCK_EPOCH_H

#include "export.h"

STOCK_BEGIN_DECLS

/* A time broken down into the calendar of UTC. */
typedef struct Caltime {
    double epoch;  /* seconds since 1970 */
    long date;     /* year-day integer */
    int year;      /* in full: 2008 */
    int month;     /* 1 .. 12 */
    char mname[4]; /* "Jan" .. "Dec", terminated */
    int day;       /* of the month, from 1 */
    int doy;       /* day of the year, from 1 */
    int hour;      /* 0 .. 23 */
    int minute;    /* 0 .. 59 */
    double second; /* 0 .. below 60, with its fraction */
} Caltime;

/* The months' lengths, February without its leap day, and their short names, from January. */
STOCK_API extern const int days_in_month[12];
STOCK_API extern const char *const month_name[12];

/* Returns the epoch time at which the day of a year-day integer begins. */
STOCK_API double epoch(int yyyyddd);
STOCK_API double dtoepoch(long yyyyddd);

/* Returns the year-day integer of the day that holds a time. */
STOCK_API int yearday(double when);

/* Returns the year-day integer of the current day in UTC. */
STOCK_API long todaysdate(void);

/* Returns 1 for a leap year, else 0; the Gregorian rule holds for every year, negative ones too. */
STOCK_API int isleap(int year);

/* Returns the days from 1970-01-01 to 1 January of the year; negative before 1970. */
STOCK_API double year2days(double year);

/*
 * Fills every other field from time->epoch. Returns 0.
 *
 *     epoch        fields
 *     -1           1969-12-31, day 365, 23:59:59
 *     -1e-20       1969-12-31 24:00:00, as the rest of the day rounds up: meant
 *
 * The year is estimated and corrected once. Some 1,500 years from 1970 the
 * estimate is off by more: the time then falls on 1 January of a wrong year.
 */
STOCK_API int etoh(Caltime *time);

/* Computes time->epoch from date, hour, minute and second; no other field is read. Returns 0. */
STOCK_API int htoe(Caltime *time);

/* Fills the record with midnight of the current day in UTC. Returns 0. */
STOCK_API int zh_today(Caltime *time);

/*
 * Fills month, mname and day from year and doy. Returns 0. A day beyond the
 * year's end counts on in December from that end: day 366 of 2003 gives 12 and 1.
 */
STOCK_API int month_day(Caltime *time);

/* Fills doy and date from year, month and day; months before 1 or after 12 have no days. Returns 0.
 */
STOCK_API int mdtodate(Caltime *time);

/* Prints the record on one line of the standard output. Returns 0. */
STOCK_API int timeprint(const Caltime *time);

/*
 * Reads a duration written as hours, minutes and seconds with any character
 * between them, and returns it in seconds. Null is 0.
 *
 *     text         seconds
 *     1:30:15.5    5415.5
 *     1h30         5400
 *     2            7200
 *
 * A text of more than 19 characters ends the process with a message.
 */
STOCK_API double timecon(const char *text);

/* Stores str2epoch(text) in *when. Returns 1, whatever the text. */
STOCK_API int time_string2epoch(const char *text, double *when);

/* The least size of outside_range's buffer, in bytes; more is never written. */
enum { OUTSIDE_RANGE_SIZE = 64 };

/*
 * Tells whether a time is too far from 1970 to be printed as a date. If so, buf
 * receives what is printed in its place and 1 is returned; else 0, and buf is left
 * alone. Some 1,500 years from 1970 on etoh gets the date wrong, which does not
 * count: the year 5000 gives 0, and is printed as 01/01/5002.
 *
 *     when                         buf
 *     +infinity                    ** The End of Time (+infinity) **
 *     -infinity                    ** The Beginning of Time (-infinity) **
 *     not a number                 ** Nan **
 *     after the year 9994          **  31709 years ahead **  and a blank
 *     as long before 1970          **  -8031 years ago **    and a blank; the sign is meant
 */
STOCK_API int outside_range(char *buf, double when);

/*
 * Picks evenly spaced times for the ticks of an axis from t0 to t1 with about n
 * of them: *start receives the first and *increment the spacing in seconds, a
 * round number of seconds, minutes, hours or days. Returns 0.
 *
 * Multiples of the increment are counted from the start of a period: the minute,
 * the hour or the day of t0, or the day before its year. A t0 on a multiple is the
 * first tick; at the start of its period, t0 + increment is, unless that is one
 * minute or hour.
 *
 * With t1 = t0, n < 1, or a distance that is not finite or too small to divide,
 * *start is 0 and *increment is left alone.
 */
STOCK_API int get_nice_times(double t0, double t1, int n, double *start, double *increment);

STOCK_END_DECLS

#endif
