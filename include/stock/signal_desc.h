/*
 * signal_desc.h - signals with their names and descriptions.
 *
 * Names come from the table of deviants.h, descriptions from the system
 * (strsignal). signal_bysig and signal_byname each fill one record of their own,
 * which the next call overwrites: they are meant for start-up and for the report
 * of a fault, not for several threads at once.
 */

#ifndef STOCK_SIGNAL_DESC_H
#define STOCK_SIGNAL_DESC_H

#include "export.h"

STOCK_BEGIN_DECLS

enum { SIGNAL_NAME_SIZE = 64 }; /* what signal_desc needs before it writes a name */

typedef struct Signal {
    int number;              /* -1 for an unknown name */
    const char *name;        /* "SIGHUP"; the number in decimal when it has no name */
    const char *description; /* never null */
} Signal;

/*
 * Describes the signal with this number.
 *
 *     sig    name      description
 *     1      SIGHUP    Hangup
 *     99     99        Unknown signal 99
 *
 * Returns a record that lasts until the next call, never null. Where the system
 * has no description it is "no description for signal".
 */
STOCK_API Signal *signal_bysig(int sig);

/*
 * Describes the signal with this name, given with or without "SIG".
 *
 *     name      number    description
 *     HUP       1         Hangup
 *     SIGHUP    1         Hangup
 *     hup       -1        no description for unrecognized signal
 *
 * Returns a record that lasts until the next call, never null; its name is the
 * caller's text, as given, and must live as long as the record is used.
 */
STOCK_API Signal *signal_byname(const char *name);

/*
 * Writes the name of a signal (its number in decimal when it has none) and right
 * behind it, without a separator, its description: "SIGHUPHangup" for 1: meant.
 * With a size below 64 the description alone is written.
 *
 * The text is cut after size - 1 bytes; nothing is written when size is not
 * positive. Returns the buffer. May be called from any thread.
 */
STOCK_API char *signal_desc(int sig, char *buffer, int size);

STOCK_END_DECLS

#endif
