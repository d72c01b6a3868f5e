/*
 * wait_for_time.h - pausing a program.
 *
 * A sleep that a signal interrupts is over: nothing here goes back to sleep. Any
 * thread may sleep; only that thread does.
 */

#ifndef STOCK_WAIT_FOR_TIME_H
#define STOCK_WAIT_FOR_TIME_H

#include "export.h"

STOCK_BEGIN_DECLS

/*
 * Sleeps for a number of seconds, rounded to the nanosecond; errno is left alone.
 *
 * Zero, infinity and what is not a number return at once. So does a negative
 * number, with the complaint "*stack* invalid argument to snooze: -1.000". A
 * system that refuses to sleep is complained about.
 */
STOCK_API void snooze(double seconds);

/*
 * Sleeps until an epoch time; returns at once when it has passed. With verbose
 * not 0 it says so on the standard error:
 *
 *     waiting 90.000 seconds (  1:30 minutes       ) until 02/01/2008  12:30:15.500
 */
STOCK_API void wait_for_time(int verbose, double when);

STOCK_END_DECLS

#endif
