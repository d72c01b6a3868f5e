/*
 * deviants.h - the platform layer: functions that are written anew for each operating system.
 *
 * Every function may be called from any thread. The timer and its handler belong to the whole
 * process, and for std_dlopen the same holds as for gettaluvine.
 */

#ifndef DEVIANTS_H
#define DEVIANTS_H

#include <signal.h>
#include <stdint.h>

#include "stock/export.h"

STOCK_BEGIN_DECLS

/*
 * Returns the name of the running program as the C library's start-up code recorded it: the base
 * name, not a path. It is borrowed and valid as long as the program runs.
 */
STOCK_API char *getexecname(void);

/*
 * Writes the name of this host up to its first "." to a buffer, which must have room for the
 * longest host name of the system; 256 bytes are enough everywhere. Returns 0, or uname's negative
 * result with the buffer empty.
 */
STOCK_API int my_hostname(char *buffer);

/*
 * Writes the login name of the real user to a buffer, which must have room for the longest login
 * name of the system; 1024 bytes are enough everywhere. The name is looked up once and then kept.
 * Returns 0, or 1 with the buffer empty if the user has no name.
 */
STOCK_API int my_username(char *buffer);

/*
 * Tells whether n bytes of memory can be read. Returns null if they can, as far as is known, and
 * otherwise a pointer that is not null, such as the first bad address. The dumps call it and do
 * not touch memory that cannot be read. The library's function always returns null. It is a weak
 * symbol, so that a program can define its own.
 */
STOCK_API void *nomem(const void *address, int n);

/* The name of a signal, without "SIG", and its number. */
typedef struct Signame {
    const char *name;
    int number;
} Signame;

/*
 * The table of the named signals, with Nsig rows and the numbers on this system. If several rows
 * have the same number, the first one counts: 6 is IOT, not ABRT.
 */
STOCK_API extern const Signame Siglist[];
STOCK_API extern const int Nsig;

/*
 * Finds the number of a signal by its name, with or without "SIG". Case matters. Returns 0, or -1
 * with *number unchanged for an unknown name.
 *
 *     name       number
 *     SEGV       11
 *     SIGSEGV    11
 *     segv       unknown
 */
STOCK_API int str2sig(const char *name, int *number);

/*
 * Writes "SIG" and the name of a signal to a buffer of at least 16 bytes. Returns 0, or -1 with the
 * buffer empty for an unknown number.
 */
STOCK_API int sig2str(int number, char *buffer);

/*
 * Prints the calling thread's stack to standard error, innermost call first: "\n\nStack\n" and up
 * to 128 lines in the layout of backtrace_symbols, with C++ names in readable form. The trace
 * begins with the caller; in a fault handler of the log it begins where the fault happened. Only
 * the system's function that makes C++ names readable allocates memory. errno is left unchanged.
 *
 *     ./prog(read_map+0x1f) [0x55d0c8a3f1ff]
 *
 * Functions of the program itself have names only if it was linked with -rdynamic.
 */
STOCK_API void show_stack_trace(void);

/*
 * Writes the same text to a buffer of size bytes. A line that does not fit is cut, ends in a
 * newline, and is the last line. The rest of the buffer is filled with zeros. If size is not
 * positive, nothing is written.
 */
STOCK_API void show_stack_trace_string(int size, char *buffer);

#ifdef SI_USER /* in strict C, signal.h declares siginfo_t only if POSIX is requested */
/*
 * Prints to standard error what info says about the fault:
 *
 *     signal        printed
 *     any           "  signal sent by pid %d, user %d\n" and a "  Type:" line, if the code is
 *                   negative
 *     SIGILL        "  Reason:illegal opcode si_code=%d\n" and others
 *     SIGFPE        "  integer divide by zero si_code=%d\n" and others
 *     SIGBUS        "  invalid address alignment\n" and others
 *     SIGSEGV       "  address not mapped to object\n" and others, and the address
 *     other         "  no additional information available about signal\n"
 *
 * The address is printed as "  Attempt to reference address: %p\n". context is not used. errno is
 * left unchanged.
 */
STOCK_API void show_fault(int sig, siginfo_t *info, void *context);
#endif

/*
 * Loads a shared library of the suite. Its symbols are bound when they are first used. A name that
 * begins with "/" is a path; any other name means ROOT/lib/libNAME with the system's suffix, where
 * ROOT is the installation root.
 *
 * Returns the handle, or null if the name is null, its path exceeds 1023 bytes, or the library
 * cannot be loaded. Nothing is logged; dlerror returns the reason.
 */
STOCK_API void *std_dlopen(const char *name);

/* Returns the current time: seconds since 1970-01-01 00:00:00 UTC, to the microsecond. */
STOCK_API double std_now(void);

/* The same for Fortran. */
STOCK_API double now_(void);

/*
 * Tells whether the system knows a time zone: returns 1 if the directory that the environment
 * variable ZONEINFO names, or else /usr/share/zoneinfo, contains a regular file of that name, and
 * otherwise 0. The directory is looked up at the first call and then kept.
 *
 * A name that would lead out of the directory is not a zone: null, an absolute path, or a path
 * with a component that is empty, "." or "..". Nor is a name whose path exceeds 1023 bytes. errno
 * is left unchanged.
 */
STOCK_API int is_timezone(const char *name);

/* The numbers of a file system. */
typedef struct Statvfs {
    uint64_t bsize;  /* the best number of bytes to move at a time */
    uint64_t frsize; /* bytes in a block of the counts below */
    uint64_t blocks; /* all blocks */
    uint64_t bfree;  /* free blocks */
    uint64_t bavail; /* free blocks that ordinary users may take */
    uint64_t files;  /* all slots for files */
    uint64_t ffree;  /* free slots */
    uint64_t favail; /* free slots that ordinary users may take */
    uint64_t fsid;   /* the file system's identifier */
} Statvfs;

/* The host of a path's file system, and its size and free space. */
typedef struct Infopath {
    uint32_t fsid;      /* the low half of the file system's identifier */
    char host[256];     /* empty if the file system belongs to this host */
    char path[1024];    /* what is mounted, by its name on that host */
    double bytes_avail; /* bytes that ordinary users may take */
    double bytes_total;
    double files_avail; /* slots for files that ordinary users may take */
    double files_total;
} Infopath;

/*
 * Fills *out with the numbers of the file system that contains path. Returns 0, or -1 with errno
 * set and *out unchanged.
 */
STOCK_API int std_statvfs(const char *path, Statvfs *out);

/*
 * Finds what is mounted where path is, and splits it into the host that it comes from (at most 255
 * bytes) and the path on that host (at most 1023 bytes). The rest is cut.
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
 * Combines the results of fspath and std_statvfs for a path. A path that begins with "~" is
 * expanded first, as by cleanpath.
 *
 * Returns a new record that the caller frees with free. If it fails, returns null after logging
 * "can't resolve host, filesystem for %s" after the reason of fspath, or "statvfs on '%s' fails"
 * with the system's reason.
 */
STOCK_API Infopath *infopath(const char *path);

/*
 * Tells whether a path's file system is mounted from another host: whether the type of the file
 * system is NFS, SMB or CIFS, AFS, Ceph or another network type. Returns 1, 0 if it is local, or -1
 * if it cannot be examined. errno is left unchanged.
 */
STOCK_API int is_nfs(const char *path);

/*
 * Arranges that handler is called once, on SIGALRM, when the given seconds of real time have
 * passed. Fractions of a microsecond are dropped; if the result is 0, the timer is stopped. A
 * process has one such timer: setting it again replaces the earlier setting.
 *
 * Returns 0. Returns -1 with the reason logged if the seconds are negative, NaN or more than the
 * system can count. Ends the process with "Couldn't intercept signal SIGALRM" if the handler cannot
 * be installed.
 */
STOCK_API int std_set_timer(void (*handler)(int signal), double seconds);

STOCK_END_DECLS

#endif
