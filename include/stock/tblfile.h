/*
 * tblfile.h - keep lists of records in files.
 *
 * A direct list can be kept in a file, which is an image of its memory and is read by mapping it.
 * If a list is opened writable, its record and its entries are in the mapping: every change of the
 * list changes the file and is visible to all who map it, and when the list grows, the file grows.
 * If it is opened read-only, only the entries are mapped, and growing the list ends the process.
 *
 *     offset         bytes     content, in this machine's byte order and widths
 *     0              8         "#FileTbl"
 *     8              4         K: the comment, its zero byte and zeros up to the next
 *                              multiple of 8; 0 without a comment
 *     12             4         zero
 *     16             K         the comment
 *     16 + K         96        the Tbl record; its pointers mean nothing, but a null_value
 *                              that is not zero says that a null value follows
 *     112 + K        N         the null value, filled up to a multiple of 8, or nothing
 *     112 + K + N              all nalloc - left slots
 *
 * The address of a list in a file does not change when it grows. For this, 64 GiB of addresses, but
 * no memory, are reserved after each list that is opened writable; less if the process may not
 * reserve so many. Disk space is allocated when the list grows, so that later changes cannot fail
 * for lack of it. If growing fails, the process ends with one of these messages; the file still
 * contains everything that it contained before:
 *
 *     Couldn't lseek 640 bytes beyond end of file
 *     Couldn't write 1 byte to extend file by 640 bytes
 *     Couldn't remap tbl.
 *
 * Whatever a file contains, nothing outside it is read. Writing to the entries of a read-only list
 * raises a fault signal; so does accessing a part of the list after the file was cut short.
 *
 * A file has one writer at a time: if a list is open for writing, in this process or another one, a
 * second writer is refused, and savetbl does not overwrite the file. The lock is advisory (flock)
 * and is held as long as the list is open; a child made by fork shares list and lock until it
 * closes the list, ends or executes another program. On a file system without locks no writer is
 * refused. Readers are never refused. A list that is open for reading does not follow the writer's
 * count, but its entries change when the writer changes them. Threads that share a list must lock
 * it.
 */

#ifndef STOCK_TBLFILE_H
#define STOCK_TBLFILE_H

#include <stdint.h>
#include <stdio.h>

#include "export.h"
#include "tbl.h"

STOCK_BEGIN_DECLS

/*
 * Writes the image of a list at the stream's position. comment may be null. Lists of pointers can
 * be written, but not read again.
 *
 * Returns 0, or -1 at the first write that fails.
 */
STOCK_API int writetbl(const Tbl *tbl, FILE *stream, const char *comment);

/*
 * Writes the image of a list to a file, and creates the directories that lead to it. An existing
 * file is replaced as a whole, unless it is the file of this list, or a list that is open for
 * writing: the old file stays until the new one is on the disk.
 *
 * Returns 0. Otherwise returns -1 and logs a message of makedir or one of these:
 *
 *     Can't open %s to write tbl.
 *     Errors while writing tbl to %s.
 *     Failed to close tbl file %s
 */
STOCK_API int savetbl(const Tbl *tbl, const char *path, const char *comment);

/*
 * Opens a list in a file. If writable is not 0, the list can be changed. If comment is not null,
 * *comment receives the address of the comment, or null if there is none; it is valid as long as
 * the list.
 *
 * Returns a list that the caller closes with freetbl. Otherwise returns null and logs one of these:
 *
 *     Can't open %s to read tbl.
 *     Can't open %s to write tbl: another writer has it open.
 *     Error trying to stat %s
 *     Error trying to read tbl %s.
 *     Error trying to mmap %s.
 *     Bad magic number while trying to read tbl. %s
 *     filetbl %s was probably created on a different architecture and won't work on ...
 *     Truncated header while trying to read tbl. %s       shorter than header and record
 *     Bad comment length while trying to read tbl. %s     not a multiple of 8, or no end in it
 *     Indirect list while trying to read tbl. %s
 *     Bad entry size while trying to read tbl. %s         below 1
 *     Bad slot counts while trying to read tbl. %s        negative, or more entries than slots
 *     Bad growth while trying to read tbl. %s             negative, or more than all memory
 *     Truncated slots while trying to read tbl. %s        more slots than the file contains
 *
 * A list that was cut while it grew is opened with the entries that are whole, after logging
 * "Tbl %s was cut short: its last %ld entries are lost.\n".
 */
STOCK_API Tbl *readtbl(const char *path, char **comment, int writable);

/*
 * Opens a list of records of size bytes in a file, writable, with at least slots slots. Creates the
 * file, or a larger one, if necessary.
 *
 *     the file                     what happens                       returns
 *     is missing or empty          it is created; every slot holds    0
 *                                  the null value (or zero bytes)
 *     is not a list, is damaged    it is renamed to its name with     0
 *     or of another machine        "~" added, or the first of "~2",
 *                                  "~3" ... that does not exist;
 *                                  then as if it were missing
 *     has another comment, or      nothing is changed                 -2
 *     none and one is given
 *     has enough slots             it is opened as it is              0
 *     has fewer slots              a larger file with its entries     0
 *                                  and the given comment replaces it
 *     ... and another size or      nothing is changed; a message of   -1
 *     null value                   cattbl is logged
 *     is open for writing, or      nothing is changed; a message of   -1
 *     cannot be opened, read,      savetbl or readtbl is logged
 *     renamed or created
 *
 * A file that was renamed is reported with elog_notify, after the reason:
 *
 *     Bad magic number while trying to read tbl. rain
 *     rain is kept as rain~.
 *
 * If comment is null, any comment of the file is accepted, and a file that is created, including a
 * larger one, has none. A larger file is written beside the old one and renamed over it. If that
 * fails, the old file remains and the process ends with "Couldn't extend list %s".
 *
 * *tbl receives the list, which the caller closes with freetbl, or null unless the result is 0.
 */
STOCK_API int filetbl(const char *path, const char *comment, int64_t slots, const void *null_value,
                      int size, Tbl **tbl);

STOCK_END_DECLS

#endif
