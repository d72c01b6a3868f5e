/*
 * deviants.h - the platform layer: what differs between operating systems.
 */

#ifndef DEVIANTS_H
#define DEVIANTS_H

#include <signal.h>
#include <stdint.h>

#include "stock/export.h"

STOCK_BEGIN_DECLS

/*
 * The name of the running program as the C library's start-up code recorded it:
 * the base name, not a path. Borrowed, valid as long as the program runs.
 */
STOCK_API char *getexecname(void);

/*
 * Writes the name of this host up to its first "." into a buffer that holds a
 * host name of the system's longest (256 bytes are enough everywhere).
 * Returns 0, or uname's negative result, with the buffer empty.
 */
STOCK_API int my_hostname(char *buffer);

/*
 * Writes the login name of the real user into a buffer that holds a login name of
 * the system's longest (1024 bytes are enough everywhere). It is found once and
 * then kept. Returns 0, or 1, with the buffer empty, when the user has no name.
 * May be called from any thread.
 */
STOCK_API int my_username(char *buffer);

/*
 * Whether memory can be read. Null: the n bytes at the address can be, as far
 * as is known; anything else, such as the first bad address, keeps the dumps
 * from touching it. What stands here knows nothing and says null. It is a weak
 * symbol: a program that knows its memory defines its own.
 */
STOCK_API void *nomem(const void *address, int n);

/* A signal by name, without the "SIG" in front, and number. */
typedef struct Signame {
    const char *name;
    int number;
} Signame;

/*
 * The signals that have a name here, Nsig of them, with this system's numbers. A
 * number is looked for from the first row on: 6 is IOT, not ABRT.
 */
STOCK_API extern const Signame Siglist[];
STOCK_API extern const int Nsig;

/*
 * Gives the number of a signal by name, with or without "SIG" in front; case
 * matters. Returns 0, or -1, with number left alone, for an unknown name.
 *
 *     name       number
 *     SEGV       11
 *     SIGSEGV    11
 *     segv       unknown
 */
STOCK_API int str2sig(const char *name, int *number);

/*
 * Writes "SIG" and the name of a signal into a buffer of at least 16 bytes.
 * Returns 0, or -1, with the buffer empty, for an unknown number.
 */
STOCK_API int sig2str(int number, char *buffer);

/*
 * Prints the calling thread's stack to standard error, innermost call first: the
 * heading "\n\nStack\n", then up to 128 lines as backtrace_symbols lays them out,
 * with the names of C++ in plain text. It begins with the caller; in a handler of
 * the log's with the place of the fault. Nothing is allocated for it but by the
 * system's demangler. errno is left alone.
 *
 *     ./prog(read_map+0x1f) [0x55d0c8a3f1ff]
 *
 * Functions of the program itself have names only when it was linked with -rdynamic.
 */
STOCK_API void show_stack_trace(void);

/*
 * Writes the same text into a buffer of size bytes. A line that does not fit is cut,
 * still ends in a newline, and is the last. The rest of the buffer is zero; nothing
 * is written when size is not positive.
 */
STOCK_API void show_stack_trace_string(int size, char *buffer);

#ifdef SI_USER /* strict C shows siginfo_t only to those who ask for POSIX */
/*
 * Prints to standard error what the information of a signal says about the fault:
 *
 *     signal        printed
 *     any           "  signal sent by pid %d, user %d\n" and a "  Type:" line, when the
 *                   code is negative
 *     SIGILL        "  Reason:illegal opcode si_code=%d\n" and others
 *     SIGFPE        "  integer divide by zero si_code=%d\n" and others
 *     SIGBUS        "  invalid address alignment\n" and others
 *     SIGSEGV       "  address not mapped to object\n" and others, and the address
 *     other         "  no additional information available about signal\n"
 *
 * The address stands in "  Attempt to reference address: %p\n". The context plays no
 * part. errno is left alone.
 */
STOCK_API void show_fault(int sig, siginfo_t *info, void *context);
#endif

/*
 * Loads a shared library of the suite, its symbols bound when they are first
 * used. A name that begins with "/" is a path; any other name is that of
 * ROOT/lib/libNAME with the system's ending, ROOT being the installation root.
 *
 * Returns the handle, or null: why is for dlerror to say, nothing is logged. A
 * null name, and one whose path exceeds 1023 bytes, is refused with null.
 */
STOCK_API void *std_dlopen(const char *name);

/* The current time: seconds since 1970-01-01 00:00:00 UTC, to the microsecond. */
STOCK_API double std_now(void);

/* The same for Fortran. */
STOCK_API double now_(void);

/*
 * Whether the system knows a time zone: 1 when the directory that the environment
 * variable ZONEINFO names, else /usr/share/zoneinfo, holds a regular file of
 * that name, else 0. The directory is found at the first call and kept.
 *
 * A name that would leave the directory is no zone: an absolute path, a
 * component that is empty, "." or "..", null. Neither is one whose path exceeds
 * 1023 bytes. errno is left alone. May be called from any thread.
 */
STOCK_API int is_timezone(const char *name);

/* The numbers of a file system. */
typedef struct Statvfs {
    uint64_t bsize;  /* bytes that are best moved at a time */
    uint64_t frsize; /* bytes in a block of the counts below */
    uint64_t blocks; /* all blocks */
    uint64_t bfree;  /* free blocks */
    uint64_t bavail; /* free blocks that ordinary users may take */
    uint64_t files;  /* all slots for files */
    uint64_t ffree;  /* free slots */
    uint64_t favail; /* free slots that ordinary users may take */
    uint64_t fsid;   /* the file system's identifier */
} Statvfs;

/* Where the file system of a path comes from, and how much room it has. */
typedef struct Infopath {
    uint32_t fsid;      /* the low half of the file system's identifier */
    char host[256];     /* empty when the file system is of this host */
    char path[1024];    /* what is mounted, as that host calls it */
    double bytes_avail; /* that ordinary users may take */
    double bytes_total;
    double files_avail; /* slots for files that ordinary users may take */
    double files_total;
} Infopath;

/*
 * Fills *out with the numbers of the file system that holds path. Returns what
 * the system's query returns: 0, or -1 with errno set and *out unchanged.
 */
STOCK_API int std_statvfs(const char *path, Statvfs *out);

/*
 * Finds what is mounted where path is, and splits it into the host that it comes
 * from (at most 255 bytes) and the path there (at most 1023); more is cut.
 *
 *     mounted              host      fspath
 *     server:/export       server    /export
 *     [fe80::1]:/export    [fe80::1] /export
 *     /dev/sda1                      /dev/sda1
 *     tmpfs                          tmpfs
 *
 * Returns 0, or -1 with both buffers unchanged after logging "can't statfs %s"
 * with the system's reason.
 */
STOCK_API int fspath(const char *path, char *host, char *fspath);

/*
 * Puts together what fspath and std_statvfs say of a path; one that begins with
 * "~" is expanded first, as cleanpath does.
 *
 * Returns a new record that the caller frees with free, or null after logging
 * "can't resolve host, filesystem for %s" behind fspath's reason, or "statvfs
 * on '%s' fails" with the system's.
 */
STOCK_API Infopath *infopath(const char *path);

/*
 * Whether a path's file system is mounted from another host: NFS, SMB and CIFS,
 * AFS, Ceph and their kind, told by the file system's type. Returns 1, 0 when
 * it is local, or -1 when it cannot be examined. errno is left as it was found.
 */
STOCK_API int is_nfs(const char *path);

/*
 * Lets the handler be called on SIGALRM, once, when so many seconds of real time
 * have passed; there is no upper bound but the system's. Parts of a microsecond
 * are dropped, and what is left when that is 0 stops the timer. A process has one
 * such timer: setting it again replaces what was set before.
 *
 * Returns 0, or -1 with the reason logged: seconds that are negative, no number
 * or beyond what the system counts. Ends the process with "Couldn't intercept
 * signal SIGALRM" when the handler cannot be installed.
 */
STOCK_API int std_set_timer(void (*handler)(int signal), double seconds);

STOCK_END_DECLS

#endif
