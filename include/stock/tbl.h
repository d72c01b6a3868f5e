/*
 * tbl.h - ordered lists, with sorting and searching.
 *
 * A Tbl can grow at both ends; its indexes count from 0. An indirect list holds pointers, and a
 * direct list holds records of one size. Where a function takes or returns an entry, it is the
 * pointer itself for an indirect list. For a direct list it is the address of a record: of one that
 * the function copies into the list, or of one in the list.
 *
 * Every list has a null value. Reading outside the list returns it, and it fills slots that exist
 * but hold no entry. The null value of an ordinary indirect list is the null pointer.
 *
 * Removing an entry at either end moves no other entry. Adding an entry at one end takes constant
 * time on average if the list grows at that end: each end has its own increment, which doubles
 * whenever memory is added there. If an end has no free slot, but the other end has more free slots
 * than half the increment, the list moves all entries and uses those instead.
 *
 * So a queue that is filled at one end and emptied at the other moves all its entries when it has
 * used up its free slots. This also takes constant time on average if the list grew at the end
 * where it is filled. A queue that grew at the other end may have as few as 6 free slots, and then
 * moves all entries every 6 steps: to avoid this, pass inittbl an increment of about the length of
 * the queue for the end where it is filled.
 *
 * The address of a record in a direct list is valid until the list next grows, or until an
 * insertion, deletion or sort moves the record.
 *
 * A list can be kept in a file (tblfile.h). All functions here work on it, and when it grows, the
 * file grows. Growing a list that was opened read-only ends the process with "*stack* Can't extend
 * read-only list.\n".
 *
 * A list argument must not be null, except for freetbl. Running out of memory ends the process.
 * Nothing here locks: threads that share a list must lock it.
 */

#ifndef STOCK_TBL_H
#define STOCK_TBL_H

#include <stdint.h>

#include "export.h"

STOCK_BEGIN_DECLS

/* Programs may read count; they leave the other members to the functions. */
typedef struct Tbl {
    void *base;         /* address of entry 0 */
    void *mapaddr;      /* start of the file mapping, null for an ordinary list */
    void *null_value;   /* the list's own copy of its null value, or null */
    void *deleted;      /* the copy that the last deltbl on a direct list returned, or null */
    int64_t left;       /* minus the number of free slots before entry 0 */
    int64_t count;      /* number of entries */
    int64_t nalloc;     /* slots from entry 0 to the end of the block */
    int32_t size;       /* bytes per entry, 8 for an indirect list */
    uint32_t direct;    /* not 0: records in place; 0: pointers */
    int64_t maplen;     /* bytes mapped, 0 when not mapped */
    int32_t fd;         /* descriptor of the backing file, or -1 */
    uint32_t prot;      /* protection of the mapping: 1 readable, 2 writable */
    int64_t left_grow;  /* slots that the next growth at the front adds */
    int64_t right_grow; /* slots that the next growth at the back adds */
} Tbl;

/*
 * Creates an empty list. No memory is allocated for entries yet.
 *
 * left_grow and right_grow are the numbers of slots that the first allocation at each end adds;
 * values below 1 mean 10. Each doubles whenever memory is added at its end. If direct is not 0, the
 * entries are records of size bytes; a size below 1 ends the process. If direct is 0, the entries
 * are pointers of 8 bytes, and size is ignored. If null_value is not null, it points to an entry, a
 * record or a pointer, which is copied.
 *
 * Returns a list that the caller frees with freetbl.
 */
STOCK_API Tbl *inittbl(int64_t left_grow, int64_t right_grow, int direct, const void *null_value,
                       int size);

/*
 * Creates an empty list of pointers without a null value: inittbl(0, right_grow, 0, NULL, 8).
 *
 * Returns a list that the caller frees with freetbl.
 */
STOCK_API Tbl *newtbl(int64_t right_grow);

/*
 * Stores an entry at index i, or after the last entry if i is negative. The list grows if
 * necessary. New entries between the old end and i hold the null value; in an indirect list they
 * may hold pointers that were popped or truncated before. A null entry stores the null value in a
 * direct list (zero bytes if it has none), and a null pointer in an indirect list. The entry may be
 * a record of the same list.
 *
 * Returns the index of the entry.
 */
STOCK_API int64_t settbl(Tbl *tbl, int64_t i, const void *entry);

/*
 * Returns entry i. If i is outside 0 .. count-1, returns the null value (for a direct list, its
 * address). The list still owns the entry. The function is inline; the library also exports it.
 */
STOCK_API inline void *gettbl(const Tbl *tbl, int64_t i)
{
    if (i < 0 || i >= tbl->count)
        return tbl->null_value;
    return tbl->direct ? STOCK_CAST(char *, tbl->base) + i * tbl->size
                       : STOCK_CAST(void **, tbl->base)[i];
}

/*
 * Returns the address of slot i: the address of the record, or of the stored pointer. Returns null
 * if i is outside 0 .. count-1.
 */
STOCK_API void *addrtbl(const Tbl *tbl, int64_t i);

/*
 * Appends an entry, as settbl does with a negative index. Returns the index of the entry, which is
 * the old count.
 */
STOCK_API int64_t pushtbl(Tbl *tbl, const void *entry);

/*
 * Removes the last entry and returns it, or returns the null value if the list is empty. For an
 * indirect list it is the stored pointer, which the caller owns again; the slot still contains it.
 * For a direct list it is the address of the record in the list's memory: read it before the list
 * changes again.
 */
STOCK_API void *poptbl(Tbl *tbl);

/* Adds an entry before the first one: every index goes up by one. Returns 0. */
STOCK_API int64_t unshifttbl(Tbl *tbl, const void *entry);

/*
 * Removes the first entry and returns it as poptbl does, or returns the null value if the list is
 * empty. Every index goes down by one, and no entry is moved.
 */
STOCK_API void *shifttbl(Tbl *tbl);

/*
 * Inserts an entry before index i and moves the later entries up. If i is negative, the entry
 * becomes the first one; if it is count or more, the last one.
 *
 * Returns the index of the entry.
 */
STOCK_API int64_t instbl(Tbl *tbl, int64_t i, const void *entry);

/*
 * Removes entry i and moves the later entries down. The slot after the last entry is filled with
 * the null value or zero bytes. If i is outside 0 .. count-1, nothing changes and the null value is
 * returned.
 *
 * Returns the removed entry. For an indirect list it is the stored pointer, which the caller owns
 * again. For a direct list it is a copy that the list owns: read it before the next deltbl on the
 * same list, and never free it.
 */
STOCK_API void *deltbl(Tbl *tbl, int64_t i);

/*
 * Frees the list; null is ignored. If free_entry is not null, it is first called with each entry,
 * in order. It is not called for empty slots: those that equal the address of the null value in an
 * indirect list (null pointers if it has none), and those that equal the null value in a direct
 * list (zero bytes if it has none).
 *
 * A list in a file is closed instead: free_entry is never called, and the entries stay in the file.
 * If munmap fails, this is complained about.
 */
STOCK_API void freetbl(Tbl *tbl, void (*free_entry)(void *entry));

/*
 * Shortens the list to count entries. A negative count means 0; a count that is not below the
 * present one changes nothing. free_entry is called, as by freetbl, with each entry that is
 * removed. In a direct list the record is then reset to the null value or zero bytes, before the
 * call for the next one. In an indirect list the slots still contain their pointers, but the list
 * has been shortened before the first call.
 */
STOCK_API void trunctbl(Tbl *tbl, int64_t count, void (*free_entry)(void *entry));

/* The same as trunctbl with a count of 0. */
STOCK_API void clrtbl(Tbl *tbl, void (*free_entry)(void *entry));

/*
 * Calls function(entry, argument) with each entry that is not a null pointer, in order. Entries
 * that are added meanwhile are not visited.
 *
 * Returns the sum of the results, in 32 bits.
 */
STOCK_API int applytbl(Tbl *tbl, int (*function)(void *entry, void *argument), void *argument);

/*
 * Appends all entries of source, which may be the same list. Pointers are copied, but not what they
 * point to. Each growth increment becomes the larger one of the two lists.
 *
 * Returns 0. If the lists hold different kinds of entries, appends nothing, logs one of these, and
 * returns 1:
 *
 *     tbl lists have different entry sizes: 8 16
 *     tbl lists are not both direct or indirect.
 *     tbl lists have different null values.
 */
STOCK_API int cattbl(Tbl *tbl, const Tbl *source);

/*
 * Compares the bytes of all entries. In an indirect list these are the pointers, not what they
 * point to.
 *
 * Returns 0 if the lists are equal, 1 if their counts or entry sizes differ, and otherwise the
 * result of memcmp.
 */
STOCK_API int cmptbl(const Tbl *a, const Tbl *b);

/*
 * Searches a sorted list for all entries that equal a key. compare is called with the key, the
 * address of the slot of an entry (in an indirect list of strings: of a char *) and pvt; the list
 * must be sorted in that order.
 *
 * Returns the number of entries found. *first and *last receive the indexes of the first and last
 * of them. If there is none, *first is the index at which the key would be inserted, and *last one
 * less.
 */
STOCK_API int64_t searchtbl(const void *key, const Tbl *tbl,
                            int (*compare)(const void *key, const void *entry, void *pvt),
                            void *pvt, int64_t *first, int64_t *last);

/*
 * Sorts in place. compare is called with the addresses of the slots of two entries (in an indirect
 * list of strings: two char **) and pvt, and returns less than, equal to or more than 0. Equal
 * entries end up in no particular order.
 */
STOCK_API void sorttbl(Tbl *tbl, int (*compare)(const void *a, const void *b, void *pvt),
                       void *pvt);

/*
 * Copies a list, with its kind, size, null value and growth increments. If copy is not null, it is
 * called with each entry that freetbl would free. For an indirect list, its result is stored in the
 * copy. For a direct list, it is called with the address of the copied record, which it may change,
 * and its result is ignored. The copy of a list in a file is an ordinary list.
 *
 * Returns a list that the caller frees with freetbl.
 */
STOCK_API Tbl *duptbl(const Tbl *tbl, void *(*copy)(void *entry));

/*
 * Creates a list of the strings given. The arguments end with a null pointer. The strings are not
 * copied. If first is null, the list has one null entry.
 *
 * Returns a list that the caller frees with freetbl.
 */
STOCK_API Tbl *strtbl(const char *first, ...) STOCK_SENTINEL;

/*
 * Joins the entries, read as strings, with the separator between them. A null entry or separator
 * counts as an empty string. A record without a zero byte ends with its last byte.
 *
 *     entries    separator    result
 *     a b c      ", "         a, b, c
 *     a          ", "         a
 *     none       ", "         (empty)
 *
 * Returns a new string that the caller frees with free.
 */
STOCK_API char *jointbl(const Tbl *tbl, const char *separator);

/*
 * Finds the entries, read as strings, that match the POSIX extended regular expression as a whole.
 * Returns their indexes.
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
 * The reverse: finds the patterns in a list that the text matches as a whole, and returns their
 * indexes in a list like that of greptbl. Patterns that do not compile are skipped.
 */
STOCK_API Tbl *tblgrep(const Tbl *patterns, const char *text);

/*
 * Prints the list on standard output for debugging: the title on a line of its own, unless it is
 * null or empty, and then each entry after its index as "%3ld : ". print is called to print an
 * entry; for an empty list it is called with "  ** no entries in list **\n". If print is null, the
 * entries are printed as strings, one on each line.
 *
 * Returns the result of the last call of print.
 */
STOCK_API int dumptbl(const char *title, const Tbl *tbl, int (*print)(const void *entry));

STOCK_END_DECLS

#endif
