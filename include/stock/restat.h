/*
 * restat.h - system calls that are repeated when a signal interrupts them.
 *
 * Each function makes the system call whose name follows its "re", with that
 * call's arguments, again and again for as long as it fails with EINTR, and
 * gives back the last result with errno as the call left it. What succeeds in
 * part is not repeated: reread and rewrite may still move fewer bytes than asked.
 *
 * A null path fails with EFAULT. Nothing here locks or logs; every function may
 * be called from any thread and from a signal handler.
 */

#ifndef STOCK_RESTAT_H
#define STOCK_RESTAT_H

#include <stddef.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>

#include "export.h"

STOCK_BEGIN_DECLS

/* Fills status with what is known of the file at path; links are followed. 0, or -1. */
STOCK_API int restat(const char *path, struct stat *status);

/* The same, but a link at the end of the path is examined itself. 0, or -1. */
STOCK_API int relstat(const char *path, struct stat *status);

/* The same for an open descriptor. 0, or -1. */
STOCK_API int refstat(int fd, struct stat *status);

/*
 * Moves the descriptor's position to offset, counted from where whence says:
 * SEEK_SET, SEEK_CUR or SEEK_END. Returns the new position from the start of
 * the file in bytes, or -1.
 */
STOCK_API off_t relseek(int fd, off_t offset, int whence);

/*
 * Reads at most size bytes into buffer. Returns how many arrived, 0 at the end
 * of the file, or -1. errno is 0 before each attempt, so that it is 0 after a
 * read that went well.
 */
STOCK_API ssize_t reread(int fd, void *buffer, size_t size);

/*
 * Writes at most size bytes of buffer. Returns how many were taken, or -1.
 * errno is 0 before each attempt, so that it is 0 after a write that went well.
 */
STOCK_API ssize_t rewrite(int fd, const void *buffer, size_t size);

/*
 * Closes the descriptor. 0, or -1.
 *
 * A system that lets go of a descriptor although its close was interrupted
 * answers the repeated call with EBADF. In a program with several threads the
 * number may by then be another file's: use close where that can happen.
 */
STOCK_API int reclose(int fd);

/*
 * Opens the file at path. The permissions of a new file, one further argument
 * of type mode_t (an int will do), are read only when flags hold O_CREAT (or
 * Linux's O_TMPFILE), and must be given then. Returns the descriptor, or -1.
 */
STOCK_API int reopen(const char *path, int flags, ...);

/*
 * Locks, tests or unlocks size bytes from the descriptor's position onward
 * (0: all that follow): command is F_LOCK, F_TLOCK, F_TEST or F_ULOCK of
 * unistd.h. 0, or -1.
 */
STOCK_API int relockf(int fd, int command, off_t size);

/*
 * Takes the next connection that waits on a listening socket. address and
 * length receive the peer's address; both may be null. Returns the new
 * connection's descriptor, or -1.
 */
STOCK_API int reaccept(int fd, struct sockaddr *address, socklen_t *length);

/*
 * Connects a socket to an address. 0, or -1.
 *
 * An interrupted attempt goes on in the background. Where the system waits for
 * it in the repeated call (Linux), the result is that of the attempt; elsewhere
 * the repeated call may fail with EALREADY or EISCONN.
 */
STOCK_API int reconnect(int fd, const struct sockaddr *address, socklen_t length);

STOCK_END_DECLS

#endif
