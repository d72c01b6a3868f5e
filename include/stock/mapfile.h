/*
 * mapfile.h - map files into memory, with a cache of mappings.
 *
 * A cache is an Arr from the name of a file, as the caller passed it, to a mapping record. Every
 * function except lmapfile takes one. If it is null, the function uses the cache of the process,
 * which a mutex protects. A program can create a cache of its own with newarr(NULL). It must lock
 * that cache itself, and free it with unmaparr(cache), then freearr(cache, NULL).
 *
 * A mapping does not change until it is unmapped: if the file is replaced or grows, the mapping
 * still shows the old file with its old size. If the file is cut short, reading after its new end
 * raises SIGBUS, as with every mapping.
 *
 * A function that fails logs the reason and returns -1 or null. Running out of memory ends the
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
    void *address;   /* the beginning of the content; null after it was released */
    uint64_t size;   /* in bytes */
    int used;        /* the process's counter of mappings and reuses at the last request */
    int writable;    /* not 0: wmapfile mapped it for reading and writing */
    uint64_t device; /* identify the file: st_dev ... */
    uint64_t inode;  /* ... and st_ino of stat */
} Mapdata;

/*
 * Maps the whole file for reading, or finds its mapping in the cache. Sets *address to the
 * beginning of the content, which is borrowed from the cache until the file is unmapped. Returns
 * the size of the file in bytes.
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
 * The same, but for reading and writing: a change of the memory changes the file and is visible
 * to all who map it.
 *
 * If mapfile has mapped the file before, that mapping becomes writable at the same address, and
 * its readers continue to read the same file. Returns -1 if the file may not be written. If the
 * file was replaced or removed since, the caller gets the old mapping unchanged: it shows the old
 * content, writing to it raises a fault signal, and writable of the record remains 0. To write to
 * the new file, call unmapfile first.
 */
STOCK_API int64_t wmapfile(const char *file, void **address, Arr *cache);

/*
 * Maps a file like mapfile, but if the system cannot map another file, it first releases mappings
 * of the cache, the least recently used one first. The limit may be memory, or the number of
 * mappings that a process may have (65,530 on most systems); 64 of that number are left for the
 * rest of the process, except for the moment in which vmapfile checks how many there are.
 *
 * Returns the mapping record, which is borrowed from the cache until unmapfile or unmaparr. The
 * next vmapfile or vunmapfile on the same cache may release the mapping: its address is then null,
 * and another vmapfile maps the file again. If it fails, logs a message of mapfile and returns
 * null.
 */
STOCK_API Mapdata *vmapfile(const char *file, Arr *cache);

/*
 * Maps at most length bytes of the file from offset on, for reading. The process has one such
 * view: the earlier view is unmapped first, even if the call then fails. Sets *address to the
 * address of the byte at offset. Returns the number of bytes mapped, which is smaller than length
 * at the end of the file.
 *
 * offset must be a multiple of the system's page size and must be before the end of the file.
 * If it fails, sets *address to -1 and returns -1 after logging a message of mapfile, or
 *
 *     Failed to unmap file %s    with the system's reason and the name of the earlier file
 *
 * A mutex protects the call, but a thread that reads the view must make sure that no other thread
 * calls lmapfile meanwhile.
 */
STOCK_API int64_t lmapfile(const char *file, void **address, int64_t offset, int64_t length);

/*
 * Unmaps one file and removes it from the cache. Returns 0. Returns -1 without a message if the
 * file is not in the cache, and -1 after logging "Failed to unmap file %s" if the system refuses.
 */
STOCK_API int unmapfile(const char *file, Arr *cache);

/*
 * Releases the least recently used mapping of the cache. Its record remains, with a null address.
 * Returns 0, or -1 if nothing is mapped or the system refuses.
 */
STOCK_API int vunmapfile(Arr *cache);

/*
 * Unmaps every file of the cache and leaves the cache empty. Returns 0, or -1 if the system
 * refused to unmap a file, after logging the message of unmapfile.
 */
STOCK_API int unmaparr(Arr *cache);

/* Creates a mapping record with all members 0. The caller frees it with free. */
STOCK_API Mapdata *new_Mapdata(void);

STOCK_END_DECLS

#endif
