/*
 * tbl.h - the ordered list.
 *
 * A Tbl grows at both ends and counts from 0. An indirect list holds pointers,
 * a direct list holds fixed-size records in place. Where an entry is passed or
 * returned it is, for an indirect list, the pointer itself, and for a direct
 * list the address of a record that is copied in or that lies in the list.
 *
 * Every list has a null value: what reading outside the list gives, and what
 * fills slots that exist but hold no entry. An ordinary indirect list reads
 * null pointers there.
 *
 * Popping and shifting move nothing. Appending and prepending take constant time
 * on average for a list that grows at that end: each end has an increment of its
 * own, which doubles whenever memory is added there. An end without a free slot
 * takes those of the other end instead when they are more than half its increment,
 * and moves all entries for it. So a queue, fed at one end and emptied at the
 * other, moves all its entries whenever as many have been added as it has free
 * slots. That is constant time on average, too, when it grew at the end where it
 * is fed. A queue that grew at the other end may have as few as 6 free slots, and
 * moves all entries every 6 steps: let inittbl give the end where it is fed an
 * increment of about its length.
 *
 * The address of a record in a direct list is valid until the list next grows,
 * or until an insertion, deletion or sort moves it.
 *
 * A list may live in a file (tblfile.h); all functions here work on it, and
 * growing it grows the file. Growing one that was opened read-only ends the
 * process with "*stack* Can't extend read-only list.\n".
 *
 * No list argument may be null, except freetbl's. Running out of memory ends the
 * process. Nothing here locks: threads that share a list lock it.
 */

#ifndef STOCK_TBL_H
#define STOCK_TBL_H

#include <stdint.h>

#include "export.h"

STOCK_BEGIN_DECLS

/* Read count where the number of entries is wanted; leave the rest to the functions. */
typedef struct Tbl {
    void *base;         /* address of entry 0 */
    void *mapaddr;      /* start of the file mapping, null for an ordinary list */
    void *null_value;   /* the list's own copy of its null value, or null */
    void *deleted;      /* what deltbl took from a direct list last, or null */
    int64_t left;       /* minus the number of free slots in front of entry 0 */
    int64_t count;      /* number of entries */
    int64_t nalloc;     /* slots from entry 0 to the end of the block */
    int32_t size;       /* bytes per entry, 8 for an indirect list */
    uint32_t direct;    /* not 0: records in place; 0: pointers */
    int64_t maplen;     /* bytes mapped, 0 when not mapped */
    int32_t fd;         /* descriptor of the backing file, or -1 */
    uint32_t prot;      /* protection of the mapping: 1 readable, 2 writable */
    int64_t left_grow;  /* slots added by the next reallocation at the front */
    int64_t right_grow; /* slots added by the next reallocation at the back */
} Tbl;

/*
 * A new, empty list. No memory is taken for entries yet.
 *
 * left_grow and right_grow are the slots that the first allocation at either
 * end adds, 10 when below 1; each doubles whenever its end is reallocated.
 * With direct not 0 entries are records of size bytes in place; a size below 1
 * then ends the process. With direct 0 entries are pointers of 8 bytes, whatever
 * size says. null_value, when not null, points at an entry to copy: a record, or
 * a pointer.
 *
 * Returns a list that the caller frees with freetbl.
 */
STOCK_API Tbl *inittbl(int64_t left_grow, int64_t right_grow, int direct, const void *null_value,
                       int size);

/* A new, empty list of pointers without a null value: inittbl(0, right_grow, 0, null, 8). */
STOCK_API Tbl *newtbl(int64_t right_grow);

/*
 * Stores an entry at index i, or behind the last one when i is negative, and
 * makes the list longer where that is needed. The slots in between become
 * entries that hold the null value, or on an indirect list what was popped or
 * truncated from them before. A null entry stores the null value (zero bytes
 * when there is none) in a direct list and a null pointer in an indirect one.
 * The entry may be a record of the same list.
 *
 * Returns the index used.
 */
STOCK_API int64_t settbl(Tbl *tbl, int64_t i, const void *entry);

/*
 * Entry i, or the list's null value (its address, in a direct list) when i is
 * outside 0 .. count-1. The list keeps what is returned. Compilers may put it in
 * place; the library exports it as well.
 */
STOCK_API inline void *gettbl(const Tbl *tbl, int64_t i)
{
    if (i < 0 || i >= tbl->count)
        return tbl->null_value;
    return tbl->direct ? STOCK_CAST(char *, tbl->base) + i * tbl->size
                       : STOCK_CAST(void **, tbl->base)[i];
}

/*
 * The address of slot i: of the record, or of the stored pointer. Null when i
 * is outside 0 .. count-1.
 */
STOCK_API void *addrtbl(const Tbl *tbl, int64_t i);

/* Appends as settbl does. Returns the new entry's index, the old count. */
STOCK_API int64_t pushtbl(Tbl *tbl, const void *entry);

/*
 * Removes the last entry and returns it, or the null value when the list is
 * empty. From an indirect list it is the stored pointer, the caller's again;
 * its slot keeps it. From a direct list it is the address of the record, still
 * in the list's memory: read it before the list changes again.
 */
STOCK_API void *poptbl(Tbl *tbl);

/* Prepends: every index goes up by one. Returns 0. */
STOCK_API int64_t unshifttbl(Tbl *tbl, const void *entry);

/*
 * Removes the first entry and returns it, or the null value when the list is
 * empty. Every index goes down by one; nothing is moved. From a direct list it
 * is the address of the record, still in the list's memory: read it before the
 * list changes again.
 */
STOCK_API void *shifttbl(Tbl *tbl);

/*
 * Inserts before index i and moves the later entries up. A negative i prepends
 * and an i of count or more appends.
 *
 * Returns the index at which the entry now is.
 */
STOCK_API int64_t instbl(Tbl *tbl, int64_t i, const void *entry);

/*
 * Removes entry i, moves the later ones down and fills the slot behind the last
 * with the null value or zero bytes. With i outside 0 .. count-1 nothing changes
 * and the null value is returned.
 *
 * Returns the removed entry. From an indirect list it is the stored pointer,
 * the caller's again. From a direct list it is a copy that the list owns: read
 * it before the next deltbl on the same list, and never free it.
 */
STOCK_API void *deltbl(Tbl *tbl, int64_t i);

/*
 * Frees the list; null is ignored. free_entry, when not null, is first called
 * with each entry, in order, except those that hold no entry: in an indirect
 * list those equal to the address of the null value (null pointers when there
 * is none), in a direct list those equal to the null value (zero bytes).
 *
 * A list that lives in a file is closed instead: free_entry is never called and
 * the entries stay in the file. A failing munmap is complained of.
 */
STOCK_API void freetbl(Tbl *tbl, void (*free_entry)(void *entry));

/*
 * Shortens the list to so many entries: a negative count is 0, one that is not
 * below the present count changes nothing. free_entry is called as by freetbl
 * with each entry that goes; a direct list's record is then reset to the null
 * value or zero bytes, before the next one is passed. An indirect list's slots
 * keep their pointers, which are no longer in the list when the first is passed.
 */
STOCK_API void trunctbl(Tbl *tbl, int64_t count, void (*free_entry)(void *entry));

/* trunctbl to 0. */
STOCK_API void clrtbl(Tbl *tbl, void (*free_entry)(void *entry));

/*
 * Calls function(entry, argument) with each entry that is not a null pointer,
 * in order. How many there are is settled before the first call.
 *
 * Returns the sum of the results, in 32 bits.
 */
STOCK_API int applytbl(Tbl *tbl, int (*function)(void *entry, void *argument), void *argument);

/*
 * Appends all entries of source, which may be the same list. Pointers are
 * shared, not what they point at. The growth increments become the larger ones
 * of both lists.
 *
 * Returns 0. Lists of unlike entries are left alone: one of these is logged,
 * and 1 returned.
 *
 *     tbl lists have different entry sizes: 8 16
 *     tbl lists are not both direct or indirect.
 *     tbl lists have different null values.
 */
STOCK_API int cattbl(Tbl *tbl, const Tbl *source);

/*
 * Compares the bytes of all entries, which are the pointers themselves in an
 * indirect list.
 *
 * Returns 0 when they are equal, 1 when the counts or entry sizes differ, else
 * what memcmp returns.
 */
STOCK_API int cmptbl(const Tbl *a, const Tbl *b);

/*
 * Looks for all entries equal to the key in a list that is sorted in the same
 * order. compare is called with the key, the address of an entry's slot (in an
 * indirect list of strings: of a char *) and pvt.
 *
 * Returns how many there are; first and last receive the indexes of the first
 * and last of them. When there is none, first is where the key would be
 * inserted and last is one less.
 */
STOCK_API int64_t searchtbl(const void *key, const Tbl *tbl,
                            int (*compare)(const void *key, const void *entry, void *pvt),
                            void *pvt, int64_t *first, int64_t *last);

/*
 * Sorts in place. compare is called with the addresses of two entries' slots
 * (in an indirect list of strings: two char **) and pvt, and returns less than,
 * equal to or more than 0. Equal entries end in no particular order.
 */
STOCK_API void sorttbl(Tbl *tbl, int (*compare)(const void *a, const void *b, void *pvt),
                       void *pvt);

/*
 * A copy with the same kind, size, null value and growth increments. copy, when
 * not null, is called with each entry that freetbl would free. In an indirect
 * list what it returns is stored; in a direct list it is given the copied
 * record, to mend in place, and its result is not used. A list that lives in a
 * file gives an ordinary one.
 *
 * Returns a list that the caller frees with freetbl.
 */
STOCK_API Tbl *duptbl(const Tbl *tbl, void *(*copy)(void *entry));

/*
 * A list of the strings given, which end with a null pointer. The strings are
 * not copied. With first null the list holds one null entry.
 *
 * Returns a list that the caller frees with freetbl.
 */
STOCK_API Tbl *strtbl(const char *first, ...) STOCK_SENTINEL;

/*
 * The entries, read as strings, with the separator between them. A null entry
 * or separator counts as "", and a direct record ends with its last byte.
 *
 *     entries    separator    result
 *     a b c      ", "         a, b, c
 *     a          ", "         a
 *     none       ", "         (empty)
 *
 * Returns text that the caller frees with free.
 */
STOCK_API char *jointbl(const Tbl *tbl, const char *separator);

/*
 * The indexes of the entries, read as strings, that the POSIX extended regular
 * expression matches whole.
 *
 *     pattern    entries       result
 *     a.*        abc xabc a    0 2
 *     (          ( a           none: it does not compile
 *
 * Returns an indirect list that the caller frees with freetbl. Its entries are
 * the indexes themselves: (int64_t)gettbl(found, 0).
 */
STOCK_API Tbl *greptbl(const char *pattern, const Tbl *tbl);

/*
 * The other way round: the indexes of the patterns that match the whole text.
 * Patterns that do not compile are skipped.
 */
STOCK_API Tbl *tblgrep(const Tbl *patterns, const char *text);

/*
 * Prints the list on standard output for debugging: the title, when it is not
 * null or empty, on a line of its own, then each entry behind its index as
 * "%3ld : ". print is called with the entry, or for an empty list with
 * "  ** no entries in list **\n". With print null the entries are strings, one a line.
 *
 * Returns what the last call of print returned.
 */
STOCK_API int dumptbl(const char *title, const Tbl *tbl, int (*print)(const void *entry));

STOCK_END_DECLS

#endif
