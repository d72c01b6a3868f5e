/*
 * mapfile.h - whole files as memory, kept in a cache of mappings.
 *
 * A cache is an Arr from a file's name, as it was given, to its mapping record.
 * Every function but lmapfile takes one. With null it works on the cache of the
 * process, which a mutex guards; a cache of the caller's own (newarr(NULL)) is
 * the caller's to guard, and to free: unmaparr(cache), then freearr(cache, NULL).
 *
 * A mapping stays as it is until it is unmapped: a file that was replaced or has
 * grown since is seen as it was. What is read behind the end of a file that was
 * cut short meanwhile raises SIGBUS, as with every mapping.
 *
 * What fails logs why and returns -1 or null. Running out of memory ends the
 * process.
 */

#ifndef STOCK_MAPFILE_H
#define STOCK_MAPFILE_H

#include <stdint.h>

#include "arr.h"
#include "export.h"

STOCK_BEGIN_DECLS

/* One mapping of a cache. */
typedef struct Mapdata {
    void *address;   /* where the file's content begins; null when released */
    uint64_t size;   /* in bytes */
    int used;        /* the process's count of mappings and reuses when last asked for */
    int writable;    /* not 0: mapped for reading and writing, by wmapfile */
    uint64_t device; /* which file it is: what stat gave as st_dev ... */
    uint64_t inode;  /* ... and st_ino */
} Mapdata;

/*
 * Maps the whole file for reading, or finds its mapping in the cache. Sets
 * *address to where the content begins, borrowed from the cache until the file
 * is unmapped. Returns its size in bytes.
 *
 * Returns -1 with *address -1 after logging
 *
 *     Couldn't open %s        with the system's reason
 *     fstat failed for '%s'   likewise
 *     '%s' is empty
 *     Can't map file %s       with the system's reason
 */
STOCK_API int64_t mapfile(const char *file, void **address, Arr *cache);

/*
 * The same, but the file is opened and mapped for reading and writing: what is
 * written there is written to the file, and seen by all who map it.
 *
 * A mapping that mapfile made before is given again, writable now, where it is:
 * its readers go on reading the same file. Returns -1 when that file may not be
 * written. When the file has been replaced or removed since, the caller is given
 * that mapping as it is, the old content and for reading only: a write there ends
 * in a fault signal, and writable of the record stays 0. To write to the file
 * that has the name now, call unmapfile first.
 */
STOCK_API int64_t wmapfile(const char *file, void **address, Arr *cache);

/*
 * Maps like mapfile, but when the system has no room for another mapping
 * releases those of the cache, least recently used first, until it has: room in
 * memory, and in the number of mappings that a process may have (65,530 on most
 * systems). Of that number 64 are left to the rest of the process,
 * but for the moment in which vmapfile finds out how many are left.
 *
 * Returns the mapping record, borrowed from the cache until unmapfile or
 * unmaparr. Its address is good until the next vmapfile or vunmapfile on the
 * same cache may release it: null tells so, and another vmapfile of the file
 * maps it again. Null after logging as mapfile does.
 */
STOCK_API Mapdata *vmapfile(const char *file, Arr *cache);

/*
 * Maps at most length bytes of the file from offset onward, for reading, in the
 * one view that the process has: the view before it is unmapped first, also
 * when the call then fails. Sets *address to where the byte at offset is.
 * Returns how many bytes are mapped: fewer than length at the end of the file.
 *
 * offset must be a multiple of the system's page size and lie before the end of
 * the file. Returns -1 with *address -1 after logging as mapfile does, or
 *
 *     Failed to unmap file %s    with the system's reason; names the file before
 *
 * The view has a mutex of its own, but whoever reads it must know that no other
 * thread calls lmapfile.
 */
STOCK_API int64_t lmapfile(const char *file, void **address, int64_t offset, int64_t length);

/*
 * Unmaps one file and drops it from the cache. Returns 0, or -1: for a file
 * that is not in the cache without a message, and after logging "Failed to
 * unmap file %s" when the system refuses.
 */
STOCK_API int unmapfile(const char *file, Arr *cache);

/*
 * Releases the mapping of the cache that was used least recently; its record
 * stays, with a null address. Returns 0, or -1 when nothing is mapped or the
 * system refuses.
 */
STOCK_API int vunmapfile(Arr *cache);

/*
 * Unmaps every file of the cache and leaves it empty. Returns 0, or -1 when the
 * system refused any, each with the message of unmapfile.
 */
STOCK_API int unmaparr(Arr *cache);

/* A mapping record with all fields 0. The caller frees it with free. */
STOCK_API Mapdata *new_Mapdata(void);

STOCK_END_DECLS

#endif
