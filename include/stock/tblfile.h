/*
 * tblfile.h - lists of records that live in files.
 *
 * A direct list can be saved as an image of its memory and brought back by
 * mapping the file. Opened writable, its record and its entries lie inside the
 * mapping: every change is a change to the file, seen by all who map it, and
 * growing the list grows the file. Opened read-only, the list is a private
 * record over a read-only mapping; growing it ends the process.
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
 * A growing list keeps its address. 64 GiB of addresses are set aside behind
 * each list that is opened writable, less where the process may not have so
 * many; memory is not. Space on the disk is taken when the list grows, so that
 * later changes never lack it. Growing ends the process, with all that the file
 * held before still in it, through one of
 *
 *     Couldn't lseek 640 bytes beyond end of file
 *     Couldn't write 1 byte to extend file by 640 bytes
 *     Couldn't remap tbl.
 *
 * Whatever a file holds, nothing outside it is read; but writing to the entries
 * of a read-only list, and cutting a file short that is mapped, end in a fault
 * signal.
 *
 * A file has one writer at a time: a list that is open for writing, in this
 * process or another, is refused to a second writer, and no savetbl overwrites
 * its file. The lock is advisory (flock) and lasts as long as the list is open; a
 * child made by fork shares list and lock until it closes the list, ends or
 * executes another program. A file system without locks refuses nobody. Readers
 * are never refused. What a reader has opened does not follow the writer's count:
 * it is the list as it was, over entries that change. Threads that share a list
 * lock it.
 */

#ifndef STOCK_TBLFILE_H
#define STOCK_TBLFILE_H

#include <stdint.h>
#include <stdio.h>

#include "export.h"
#include "tbl.h"

STOCK_BEGIN_DECLS

/*
 * Writes a list's image at the stream's position; comment may be null. Lists of
 * pointers are written as well, but cannot be read back.
 *
 * Returns 0, or -1 at the first write that fails.
 */
STOCK_API int writetbl(const Tbl *tbl, FILE *stream, const char *comment);

/*
 * Writes a list's image to a file and creates the directories that lead to it. A
 * file that is there is overwritten, unless it is the one that the list lives in, or
 * one that is open for writing.
 *
 * Returns 0, or -1 with one of these, or makedir's reasons, logged.
 *
 *     Can't open %s to write tbl.
 *     Errors while writing tbl to %s.
 *     Failed to close tbl file %s
 */
STOCK_API int savetbl(const Tbl *tbl, const char *path, const char *comment);

/*
 * Opens a list that lives in a file, for changes when writable is not 0. comment,
 * when not null, receives the comment's address inside the mapping, null when
 * there is none; it is valid as long as the list.
 *
 * Returns a list that the caller closes with freetbl, or null with one of these logged.
 *
 *     Can't open %s to read tbl.
 *     Can't open %s to write tbl: another writer has it open.
 *     Error trying to stat %s
 *     Error trying to read tbl %s.
 *     Error trying to mmap %s.
 *     Bad magic number while trying to read tbl. %s
 *     filetbl %s was probably created on a different architecture and won't work on ...
 *     Truncated header while trying to read tbl. %s       shorter than header and record
 *     Bad comment length while trying to read tbl. %s     no multiple of 8, no end within
 *     Indirect list while trying to read tbl. %s
 *     Bad entry size while trying to read tbl. %s         below 1
 *     Bad slot counts while trying to read tbl. %s        negative, or more entries than slots
 *     Bad growth while trying to read tbl. %s             negative, or beyond all memory
 *     Truncated slots while trying to read tbl. %s        more slots than the file holds
 */
STOCK_API Tbl *readtbl(const char *path, char **comment, int writable);

/*
 * Opens a list of records of size bytes in a file, writable, with at least so
 * many slots, and makes the file or a larger one where that is needed.
 *
 *     the file                     effect                             returns
 *     is missing or empty          is made, every slot the null       0
 *                                  value (zero bytes if null)
 *     is no list, is damaged or    keeps its bytes under its name     0
 *     another machine's            with "~" behind it, or the first
 *                                  of "~2", "~3" ... that is free;
 *                                  then as if it were missing
 *     has another comment, or      none, not a byte is written        -2
 *     none where one is given
 *     has slots enough             is opened as it is                 0
 *     has fewer slots              a larger one with its entries and  0
 *                                  the given comment takes its place
 *     ... and another size or      none; cattbl's message is logged   -1
 *     null value
 *     is open for writing, or      none; savetbl's or readtbl's       -1
 *     cannot be opened, read,      message is logged
 *     renamed or made
 *
 * What was renamed is told with elog_notify, behind the reason:
 *
 *     Bad magic number while trying to read tbl. rain
 *     rain is kept as rain~.
 *
 * comment may be null: any comment of the file will do, and a file that is made,
 * the larger one too, has none. A larger file is written beside the old one and
 * renamed over it; when that fails, the old one is left and the process ends with
 * "Couldn't extend list %s".
 *
 * tbl receives the list, which the caller closes with freetbl; null unless the
 * result is 0.
 */
STOCK_API int filetbl(const char *path, const char *comment, int64_t slots, const void *null_value,
                      int size, Tbl **tbl);

STOCK_END_DECLS

#endif
