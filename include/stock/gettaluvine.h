/*
 * gettaluvine.h - find the installation root.
 *
 * The installation root is the directory that contains bin, lib, data and the other directories
 * of the suite. It is searched for once and then kept. Call gettaluvine once before threads
 * start, because it reads without a lock what puttaluvine writes. A root longer than 1023 bytes
 * is cut.
 */

#ifndef STOCK_GETTALUVINE_H
#define STOCK_GETTALUVINE_H

#include "export.h"

STOCK_BEGIN_DECLS

/*
 * The root if it is known, and empty otherwise. Only puttaluvine should change it. If a program
 * empties it, the root is searched for again.
 */
STOCK_API extern char Taluvine_path[1024];

/* The default root. */
STOCK_API extern const char Default_taluvinepath[];

/* The beginning of the root's entry in the environment: "TALUVINE=". */
STOCK_API extern const char Taluvine[];

/* The entry in the environment that the first puttaluvine creates; null until then, never freed. */
STOCK_API extern char *Setenv;

/*
 * Returns the installation root. If it is not yet known, the root is the first of these: the
 * value of the environment variable TALUVINE; the default root, if it is a directory; the result
 * of from_exec; the result of guess_taluvine. It is recorded with puttaluvine.
 *
 * The result is Taluvine_path, which is empty if no root was found.
 */
STOCK_API char *gettaluvine(void);

/*
 * Records the root in Taluvine_path. The first call in a process also sets TALUVINE to that root
 * in the environment; later calls do not change the environment: meant. A null root is ignored.
 * It may be called from any thread.
 */
STOCK_API void puttaluvine(const char *root);

/*
 * Writes the root of the running program to a buffer of at least 1024 bytes: for ROOT/bin/program
 * it is ROOT. It looks the program up by its name along PATH; if it is not found there, it asks
 * the system for the path.
 *
 * Returns the buffer, or null with the buffer empty if the program is not in a directory called
 * bin.
 */
STOCK_API char *from_exec(char *buffer);

/*
 * Searches the standard installation directories and writes the root to a buffer of at least
 * 1024 bytes: of the directories that match /opt/taluvine/[1-9].[0-9][a-z]*, the last one in
 * sorting order. If no directory matches, the buffer is not changed. Returns the buffer.
 */
STOCK_API char *guess_taluvine(char *buffer);

STOCK_END_DECLS

#endif
