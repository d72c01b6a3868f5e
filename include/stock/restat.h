/*
 * restat.h - make system calls, and repeat them if a signal interrupts them.
 *
 * Each function makes the system call whose name follows "re", with the same arguments, and
 * repeats it as long as it fails with EINTR. It returns the last result and leaves errno as the
 * call set it. A call that succeeds in part is not repeated: reread and rewrite may still move
 * fewer bytes than requested.
 *
 * A null path fails with EFAULT. Nothing here locks or logs; every function may be called from any
 * thread and from a signal handler.
 */

#ifndef STOCK_RESTAT_H
#define STOCK_RESTAT_H

#include <stddef.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>

#include "export.h"

STOCK_BEGIN_DECLS

/* Fills status with the data of the file that the path leads to. Returns 0 or -1. */
STOCK_API int restat(const char *path, struct stat *status);

/* The same, but examines the link itself if the path is a link. Returns 0 or -1. */
STOCK_API int relstat(const char *path, struct stat *status);

/* The same for an open descriptor. Returns 0 or -1. */
STOCK_API int refstat(int fd, struct stat *status);

/*
 * Moves the descriptor's position to offset, counted from the place that whence selects: SEEK_SET,
 * SEEK_CUR or SEEK_END. Returns the new position in bytes from the start of the file, or -1.
 */
STOCK_API off_t relseek(int fd, off_t offset, int whence);

/*
 * Reads at most size bytes into buffer. Returns the number of bytes read, 0 at the end of the
 * file, or -1. Sets errno to 0 before each attempt, so that it is 0 after a success.
 */
STOCK_API ssize_t reread(int fd, void *buffer, size_t size);

/*
 * Writes at most size bytes of buffer. Returns the number of bytes written, or -1. Sets errno to 0
 * before each attempt, so that it is 0 after a success.
 */
STOCK_API ssize_t rewrite(int fd, const void *buffer, size_t size);

/*
 * Closes the descriptor. Returns 0 or -1.
 *
 * Some systems close the descriptor although the call was interrupted, and the repeated call then
 * fails with EBADF. In a program with several threads, the number may belong to another file by
 * then: use close if that can happen.
 */
STOCK_API int reclose(int fd);

/*
 * Opens the file at path. If flags contains O_CREAT (or Linux's O_TMPFILE), one more argument is
 * required: the permissions of the new file, a mode_t or an int. Returns the descriptor, or -1.
 */
STOCK_API int reopen(const char *path, int flags, ...);

/*
 * Locks, tests or unlocks size bytes from the descriptor's position on, or all that follow if size
 * is 0. command is F_LOCK, F_TLOCK, F_TEST or F_ULOCK of unistd.h. Returns 0 or -1.
 */
STOCK_API int relockf(int fd, int command, off_t size);

/*
 * Accepts the next connection that waits on a listening socket. address and length receive the
 * address of the other side; both may be null. Returns the descriptor of the connection, or -1.
 */
STOCK_API int reaccept(int fd, struct sockaddr *address, socklen_t *length);

/*
 * Connects a socket to an address. Returns 0 or -1.
 *
 * An interrupted attempt continues in the background. On Linux the repeated call waits for it and
 * returns its result. On other systems the repeated call may fail with EALREADY or EISCONN.
 */
STOCK_API int reconnect(int fd, const struct sockaddr *address, socklen_t length);

STOCK_END_DECLS

#endif
