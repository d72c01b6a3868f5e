/*
 * epoch.h - convert between epoch times and calendar dates.
 *
 * An epoch time is a double: seconds since 1970-01-01 00:00:00 UTC, with fractions, negative
 * before 1970. The calendar is the proleptic Gregorian calendar, always in UTC, without leap
 * seconds. A year-day integer is a date as year * 1000 + day of the year; days count from 1, so
 * 2008032 is 2008-02-01.
 *
 * Ranges are not checked: day 0 is the last day of the year before, and hour 25 is the first
 * hour of the next day. A result that an int cannot hold becomes INT_MIN or INT_MAX. A time that
 * is not finite has the time of day 00:00:00.
 *
 * Every function may be called from any thread; only time_string2epoch locks, as str2epoch does.
 * Pointers must not be null unless stated otherwise.
 */

#ifndef STOCK_EPOCH_H
#define STOCK_EPOCH_H

#include "export.h"

STOCK_BEGIN_DECLS

/* A time as date and time of day in UTC. */
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

/* The lengths of the months and their short names, from January. February has no leap day. */
STOCK_API extern const int days_in_month[12];
STOCK_API extern const char *const month_name[12];

/* Returns the epoch time at which the day of a year-day integer begins. */
STOCK_API double epoch(int yyyyddd);
STOCK_API double dtoepoch(long yyyyddd);

/* Returns the year-day integer of the day that contains a time. */
STOCK_API int yearday(double when);

/* Returns the year-day integer of the current day in UTC. */
STOCK_API long todaysdate(void);

/* Returns 1 for a leap year, else 0. Uses the Gregorian rule for every year, also negative ones. */
STOCK_API int isleap(int year);

/* Returns the number of days from 1970-01-01 to 1 January of the year; negative before 1970. */
STOCK_API double year2days(double year);

/*
 * Sets all other members from time->epoch. Returns 0.
 *
 *     epoch        members
 *     -1           1969-12-31, day 365, 23:59:59
 *     -1e-20       1969-12-31 24:00:00, because the seconds of the day are rounded up: meant
 *
 * The year is estimated and corrected by one year at most. About 1,500 years before or after
 * 1970 the estimate is off by more: the date is then 1 January of a wrong year.
 */
STOCK_API int etoh(Caltime *time);

/* Computes time->epoch from date, hour, minute and second, and reads no other member. Returns 0. */
STOCK_API int htoe(Caltime *time);

/* Sets the record to midnight of the current day in UTC. Returns 0. */
STOCK_API int zh_today(Caltime *time);

/*
 * Sets month, mname and day from year and doy. Returns 0. For a day after the end of the year,
 * the month is December and the day counts from that end: day 366 of 2003 becomes 12 and 1.
 */
STOCK_API int month_day(Caltime *time);

/*
 * Sets doy and date from year, month and day. Months before 1 or after 12 count as months
 * without days. Returns 0.
 */
STOCK_API int mdtodate(Caltime *time);

/*
 * Prints the record on one line of the standard output, with a decimal point in every locale.
 * Returns 0.
 */
STOCK_API int timeprint(const Caltime *time);

/*
 * Reads a duration, written as hours, minutes and seconds with any character between them, and
 * returns it in seconds. Null is 0.
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

/* Bytes of the buffer of outside_range. */
enum { OUTSIDE_RANGE_SIZE = 64 };

/*
 * Tells whether a time is too far from 1970 to be printed as a date. If it is, stores the text
 * that is printed instead in buf, which must have OUTSIDE_RANGE_SIZE bytes, and returns 1.
 * Otherwise leaves buf unchanged and returns 0. The limit is not the one of etoh: the year 5000
 * gives 0, and is printed as 01/01/5002.
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
 * Chooses evenly spaced times for about n ticks of an axis from t0 to t1. *start receives the
 * first tick, and *increment the distance in seconds: a round number of seconds, minutes, hours
 * or days. Returns 0.
 *
 * The ticks are multiples of the increment, counted from the start of a period: the minute, the
 * hour or the day of t0, or the day before its year. If t0 is such a multiple, it is the first
 * tick. But if t0 is the start of its period, the first tick is t0 + increment, unless the
 * increment is one minute or one hour.
 *
 * If t1 equals t0, n is below 1, or the distance is not finite or too small to divide, *start
 * becomes 0 and *increment is not changed.
 */
STOCK_API int get_nice_times(double t0, double t1, int n, double *start, double *increment);

STOCK_END_DECLS

#endif
