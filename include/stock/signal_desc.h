/*
 * signal_desc.h - look up signals by number or name, with their descriptions.
 *
 * The names come from the table in deviants.h, the descriptions from the system (strsignal).
 * signal_bysig and signal_byname each have one record, which the next call overwrites: call them
 * at start-up or when reporting a fault, not in several threads at once.
 */

#ifndef STOCK_SIGNAL_DESC_H
#define STOCK_SIGNAL_DESC_H

#include "export.h"

STOCK_BEGIN_DECLS

enum { SIGNAL_NAME_SIZE = 64 }; /* bytes of the buffer from which on signal_desc writes a name */

typedef struct Signal {
    int number;              /* -1 for an unknown name */
    const char *name;        /* "SIGHUP", or the number in decimal if the signal has no name */
    const char *description; /* never null */
} Signal;

/*
 * Returns the description of the signal with a number.
 *
 *     sig    name      description
 *     1      SIGHUP    Hangup
 *     99     99        Unknown signal 99
 *
 * The record is valid until the next call, and never null. If the system has no description, it is
 * "no description for signal".
 */
STOCK_API Signal *signal_bysig(int sig);

/*
 * Returns the description of the signal with a name, with or without "SIG". Case matters.
 *
 *     name      number    description
 *     HUP       1         Hangup
 *     SIGHUP    1         Hangup
 *     hup       -1        no description for unrecognized signal
 *
 * The record is valid until the next call, and never null. Its name is the caller's string, not a
 * copy: it must remain valid as long as the record is used.
 */
STOCK_API Signal *signal_byname(const char *name);

/*
 * Writes the name of a signal (or its number in decimal), immediately followed by its description,
 * to a buffer of size bytes: "SIGHUPHangup" for 1: meant. If size is below SIGNAL_NAME_SIZE, writes
 * only the description.
 *
 * The text is cut after size - 1 bytes. If size is not positive, nothing is written. Returns the
 * buffer. It may be called from any thread.
 */
STOCK_API char *signal_desc(int sig, char *buffer, int size);

STOCK_END_DECLS

#endif
