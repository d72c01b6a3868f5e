/*
 * gettaluvine.h - the installation root.
 *
 * Below one directory, the root, lie bin, lib, data and what else belongs to
 * the suite. It is found once and then kept. The first discovery should happen
 * before threads start: gettaluvine reads what puttaluvine writes without
 * locking. A root longer than 1023 bytes is cut.
 */

#ifndef STOCK_GETTALUVINE_H
#define STOCK_GETTALUVINE_H

#include "export.h"

STOCK_BEGIN_DECLS

/*
 * The root once it is known, empty until then. To be changed by puttaluvine alone; a
 * program that empties it has the root found anew.
 */
STOCK_API extern char Taluvine_path[1024];

/* The root that is taken when it is there and nothing else was said. */
STOCK_API extern const char Default_taluvinepath[];

/* What stands before the root in the environment: "TALUVINE=". */
STOCK_API extern const char Taluvine[];

/* The environment's entry, made by the first puttaluvine; null until then, never freed. */
STOCK_API extern char *Setenv;

/*
 * Finds the installation root: the one that is known already, else the value of
 * the environment variable TALUVINE, else the default root when it is a
 * directory, else what from_exec gives, else what guess_taluvine gives. What was
 * found is recorded with puttaluvine.
 *
 * Returns Taluvine_path; it is empty when nothing was found.
 */
STOCK_API char *gettaluvine(void);

/*
 * Records the root in Taluvine_path and, the first time in a process, puts
 * TALUVINE with that root into the environment. Later calls leave the environment
 * alone: meant. A null root is ignored. May be called from any thread.
 */
STOCK_API void puttaluvine(const char *root);

/*
 * Derives the root from where the running program lies, into a buffer of at least
 * 1024 bytes: for ROOT/bin/program it is ROOT. The program is looked up by its
 * name along PATH; one that is not found there is asked of the system.
 *
 * Returns the buffer, or null, with the buffer empty, for a program that lies in
 * no directory called bin.
 */
STOCK_API char *from_exec(char *buffer);

/*
 * Guesses the root from the standard installation directories, into a buffer of
 * at least 1024 bytes: the last in sorting order of the directories that match
 * /opt/taluvine/[1-9].[0-9][a-z]*. Without one the buffer is left as it was.
 * Returns the buffer.
 */
STOCK_API char *guess_taluvine(char *buffer);

STOCK_END_DECLS

#endif
