/*
 * wait_for_time.h - let a thread sleep for some seconds or until a time.
 *
 * A signal ends a sleep early: the functions do not go back to sleep. Any thread may call them;
 * only that thread sleeps.
 */

#ifndef STOCK_WAIT_FOR_TIME_H
#define STOCK_WAIT_FOR_TIME_H

#include "export.h"

STOCK_BEGIN_DECLS

/*
 * Sleeps for a number of seconds, rounded to the nanosecond. errno is left unchanged.
 *
 * For zero, infinity and NaN it returns at once. For a negative number it complains, "*stack*
 * invalid argument to snooze: -1.000", and returns at once. If the system refuses to sleep, it
 * complains.
 */
STOCK_API void snooze(double seconds);

/*
 * Sleeps until an epoch time; returns at once if it has passed. If verbose is not 0, prints a line
 * to standard error:
 *
 *     waiting 90.000 seconds (  1:30 minutes       ) until 02/01/2008  12:30:15.500
 */
STOCK_API void wait_for_time(int verbose, double when);

STOCK_END_DECLS

#endif
