// The ordered list: one block of slots with free slots at both ends.
//
// base points at entry 0. Slots are counted from there: -left free slots lie in front of
// it, nalloc - count behind the last entry. When an end has no free slot, the entries move
// into free slots at the other end; when there are too few of those, the block grows by an
// increment that doubles each time. Everything else is arithmetic on base, left, count and
// nalloc, which always change together.

#include "stock/tbl.h"

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "base/alloc.h"
#include "base/regex.h"
#include "lists/mapped.h"
#include "stock/elog.h"
#include "stock/shellsort.h"
#include "stock/ssearch.h"

// Files hold this record as it lies in memory, and gettbl is inline in programs.
static_assert(sizeof(Tbl) == 96);
static_assert(offsetof(Tbl, null_value) == 16 && offsetof(Tbl, left) == 32);
static_assert(offsetof(Tbl, count) == 40 && offsetof(Tbl, nalloc) == 48);
static_assert(offsetof(Tbl, size) == 56 && offsetof(Tbl, direct) == 60);
static_assert(offsetof(Tbl, maplen) == 64 && offsetof(Tbl, fd) == 72);
static_assert(offsetof(Tbl, prot) == 76 && offsetof(Tbl, left_grow) == 80);

namespace {

using stock::bytes_for;

using FreeEntry = void (*)(void *entry);

constexpr int64_t kDefaultGrowth = 10;  // slots of the first growth at an end
constexpr int kPointerSize = 8;         // bytes of an entry of an indirect list

// The sum of two slot counts, or the largest number when it overflows. bytes_for makes
// that a size that no allocation gives, so it ends in the out-of-memory message.
int64_t capped_sum(int64_t a, int64_t b)
{
    int64_t sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? INT64_MAX : sum;
}

int64_t increment_or_default(int64_t increment)
{
    return increment < 1 ? kDefaultGrowth : increment;
}

// The address of slot i, left .. nalloc; free slots lie below 0 and from count on.
char *slot(const Tbl *tbl, int64_t i)
{
    return static_cast<char *>(tbl->base) + i * tbl->size;
}

// Bytes of so many slots, which exist: the product cannot overflow.
size_t slots_size(const Tbl *tbl, int64_t slots)
{
    return static_cast<size_t>(slots) * static_cast<size_t>(tbl->size);
}

char *block_start(const Tbl *tbl)
{
    return slot(tbl, tbl->left);
}

// What slot i of an indirect list stores.
void *&pointer(const Tbl *tbl, int64_t i)
{
    return static_cast<void **>(tbl->base)[i];
}

// Whether 0 <= i < count, in one comparison.
bool has(const Tbl *tbl, int64_t i)
{
    return static_cast<uint64_t>(i) < static_cast<uint64_t>(tbl->count);
}

// Entry i as callers see it: the stored pointer, or the record's address.
void *entry_at(const Tbl *tbl, int64_t i)
{
    return tbl->direct ? slot(tbl, i) : pointer(tbl, i);
}

// Copies the first slots, beginning with entry 0, to another place in the block.
void move_slots(Tbl *tbl, char *to, int64_t slots)
{
    if (slots > 0)
        std::memmove(to, tbl->base, slots_size(tbl, slots));
}

// Gives slots from .. to - 1 the null value, zero bytes when the list has none.
void fill_with_null(const Tbl *tbl, int64_t from, int64_t to)
{
    if (from >= to)
        return;
    if (!tbl->null_value) {
        std::memset(slot(tbl, from), 0, slots_size(tbl, to - from));
        return;
    }
    for (int64_t i = from; i < to; ++i)
        std::memcpy(slot(tbl, i), tbl->null_value, static_cast<size_t>(tbl->size));
}

// Puts the entry into slot i: the pointer itself, or a copy of the record at it. A null
// entry of a direct list is the null value.
void store(Tbl *tbl, int64_t i, const void *entry)
{
    if (!tbl->direct)
        pointer(tbl, i) = const_cast<void *>(entry);
    else if (entry)
        std::memmove(slot(tbl, i), entry, static_cast<size_t>(tbl->size));
    else
        fill_with_null(tbl, i, i + 1);
}

// An entry that is about to be stored. A record inside the list's own block, such as
// shifttbl returns, is copied first, because growing and moving would overwrite it.
class EntryToStore {
public:
    EntryToStore(const Tbl *tbl, const void *entry) : entry_(entry)
    {
        if (!tbl->direct || !lies_in_block(tbl, entry))
            return;
        const auto size = static_cast<size_t>(tbl->size);
        if (size > sizeof on_stack_)
            on_heap_.reset(static_cast<char *>(stock::allocate(size, "entry", "settbl")));
        entry_ = std::memcpy(on_heap_ ? on_heap_.get() : on_stack_, entry, size);
    }
    EntryToStore(const EntryToStore &) = delete;
    EntryToStore &operator=(const EntryToStore &) = delete;

    const void *get() const { return entry_; }

private:
    static bool lies_in_block(const Tbl *tbl, const void *entry)
    {
        const auto *address = static_cast<const char *>(entry);
        return tbl->base && address >= block_start(tbl) && address < slot(tbl, tbl->nalloc);
    }

    const void *entry_;
    char on_stack_[256];
    stock::Owned<char> on_heap_;
};

// A first block for the list, of zero bytes.
void *new_block(const Tbl *tbl, int64_t slots, const char *function)
{
    return stock::allocate_zeroed(bytes_for(slots, tbl->size), "tbl->base.cp", function);
}

// Gives the whole block room for `slots` slots. The free slots in front stay as many.
void resize_block(Tbl *tbl, int64_t slots, const char *item, const char *function)
{
    void *block = stock::reallocate(block_start(tbl), bytes_for(slots, tbl->size), item, function);
    tbl->base = static_cast<char *>(block) - tbl->left * tbl->size;
}

// Moves the entries to the start of the block, so that the free slots in front of them stand
// behind them. The freed slots get the null value.
void use_front_slots(Tbl *tbl, int64_t increment)
{
    char *start = block_start(tbl);
    move_slots(tbl, start, tbl->count);
    tbl->base = start;
    tbl->nalloc -= tbl->left;
    tbl->left = 0;
    tbl->right_grow = increment;
    fill_with_null(tbl, tbl->count, tbl->nalloc);
}

// Appends `increment` slots. All slots behind the entries get the null value.
void add_back_slots(Tbl *tbl, int64_t increment)
{
    const int64_t before = tbl->nalloc;
    const bool zeroed = !tbl->base || tbl->mapaddr;  // the new slots are zero bytes already
    if (!tbl->base)
        tbl->base = new_block(tbl, increment, "right_growtbl");
    else if (tbl->mapaddr)
        stock::extend_mapped(tbl, increment, false);
    else
        resize_block(tbl, capped_sum(tbl->nalloc - tbl->left, increment), "prev", "right_growtbl");
    // Only now, because growing may end the process: the record of a list in a file must
    // not count slots that the file does not have.
    tbl->nalloc += increment;
    tbl->right_grow = capped_sum(increment, increment);
    fill_with_null(tbl, tbl->count, zeroed && !tbl->null_value ? before : tbl->nalloc);
}

// Makes free slots behind the entries. Moving the entries to the front may give fewer than
// `needed`; callers call again until they have enough.
void right_growtbl(Tbl *tbl, int64_t needed)
{
    stock::check_extensible(tbl);
    const int64_t increment = std::max(tbl->right_grow, needed);
    if (tbl->base && increment / 2 < -tbl->left)
        use_front_slots(tbl, increment);
    else
        add_back_slots(tbl, increment);
}

// Makes sure that slot i, which is not negative, exists.
void need_slot(Tbl *tbl, int64_t i)
{
    while (i >= tbl->nalloc)
        right_growtbl(tbl, capped_sum(i - tbl->nalloc, 1));
}

// Adds left_grow slots in front of the entries, all of them free.
void add_front_slots(Tbl *tbl)
{
    const int64_t increment = tbl->left_grow;
    if (!tbl->base)
        tbl->base = new_block(tbl, increment, "left_growtbl");
    else if (tbl->mapaddr)
        stock::extend_mapped(tbl, increment, true);
    else
        resize_block(tbl, capped_sum(increment, tbl->nalloc), "tbl->base.cp", "left_growtbl");
    char *first = slot(tbl, increment);
    move_slots(tbl, first, tbl->nalloc);
    tbl->base = first;
    tbl->left = -increment;
    tbl->left_grow = capped_sum(increment, increment);
}

// Moves the entries to the end of the block, so that the free slots behind them stand in
// front of them.
void use_back_slots(Tbl *tbl)
{
    const int64_t free_slots = tbl->nalloc - tbl->count;
    char *first = slot(tbl, free_slots);
    move_slots(tbl, first, tbl->count);
    tbl->base = first;
    tbl->left = -free_slots;
    tbl->nalloc = tbl->count;
}

// Makes at least one free slot in front of entry 0.
void left_growtbl(Tbl *tbl)
{
    stock::check_extensible(tbl);
    tbl->left_grow = std::max<int64_t>(tbl->left_grow, 1);  // a file may say 0
    if (tbl->nalloc - tbl->count <= tbl->left_grow / 2)
        add_front_slots(tbl);
    else
        use_back_slots(tbl);
}

// Compares the bytes with themselves, moved by one.
bool all_zero(const char *bytes, size_t n)
{
    return n == 0 || (bytes[0] == 0 && std::memcmp(bytes, bytes + 1, n - 1) == 0);
}

// Whether slot i holds no entry.
//
// Meant: an indirect list compares with the address of its null value, so slots that growth
// filled with a copy of the null value's bytes count as entries.
bool is_null_entry(const Tbl *tbl, int64_t i)
{
    if (!tbl->direct)
        return pointer(tbl, i) == tbl->null_value;
    const auto size = static_cast<size_t>(tbl->size);
    if (tbl->null_value)
        return std::memcmp(slot(tbl, i), tbl->null_value, size) == 0;
    return all_zero(slot(tbl, i), size);
}

void free_entries(const Tbl *tbl, FreeEntry free_entry)
{
    for (int64_t i = 0; i < tbl->count; ++i)
        if (!is_null_entry(tbl, i))
            free_entry(entry_at(tbl, i));
}

// An entry read as a string; a null entry is "". A record without a zero byte is copied to
// put one behind it.
class EntryText {
public:
    EntryText(const Tbl *tbl, int64_t i)
        : text_(static_cast<const char *>(entry_at(tbl, i))), length_(0)
    {
        if (!text_)
            text_ = "";
        else if (!tbl->direct)
            length_ = std::strlen(text_);
        else
            measure_record(static_cast<size_t>(tbl->size));
    }
    EntryText(const EntryText &) = delete;
    EntryText &operator=(const EntryText &) = delete;

    const char *get() const { return text_; }
    size_t length() const { return length_; }

private:
    // Finds the length of a record of `size` bytes.
    void measure_record(size_t size)
    {
        length_ = strnlen(text_, size);
        if (length_ < size)
            return;
        copy_.reset(static_cast<char *>(stock::allocate_zeroed(size + 1, "s")));
        text_ = static_cast<char *>(std::memcpy(copy_.get(), text_, size));
    }

    const char *text_;
    size_t length_;
    stock::Owned<char> copy_;
};

// Copies n bytes and returns the place behind the copy.
char *append(char *to, const char *bytes, size_t n)
{
    std::memcpy(to, bytes, n);
    return to + n;
}

// Prints an entry on a line, with the caller's function if there is one. Returns the result
// of the function that printed.
int print_entry(const Tbl *tbl, int64_t i, int (*print)(const void *entry))
{
    if (print)
        return print(entry_at(tbl, i));
    return std::puts(EntryText(tbl, i).get());
}

bool same_null_value(const Tbl *a, const Tbl *b)
{
    if (!a->null_value || !b->null_value)
        return a->null_value == b->null_value;
    return std::memcmp(a->null_value, b->null_value, static_cast<size_t>(a->size)) == 0;
}

// Whether the entries of two lists may stand in one. If not, the reason is logged.
bool compatible(const Tbl *a, const Tbl *b)
{
    if (a->size != b->size) {
        elog_log(0, "tbl lists have different entry sizes: %d %d\n", a->size, b->size);
        return false;
    }
    if (!a->direct != !b->direct) {
        elog_log(0, "tbl lists are not both direct or indirect.\n");
        return false;
    }
    if (!same_null_value(a, b)) {
        elog_log(0, "tbl lists have different null values.\n");
        return false;
    }
    return true;
}

// Meant: pushes the index itself, not an address: greptbl of "b" over a, b gives 1.
void push_index(Tbl *tbl, int64_t i)
{
    pushtbl(tbl, reinterpret_cast<const void *>(i));
}

// The header defines gettbl. Naming it here makes the library export it.
[[gnu::used]] constexpr auto kExported = &gettbl;

}  // namespace

Tbl *inittbl(int64_t left_grow, int64_t right_grow, int direct, const void *null_value, int size)
{
    if (direct && size < 1)
        elog_die(0, "inittbl needs an entry size of at least 1, not %d\n", size);
    auto *tbl = static_cast<Tbl *>(stock::allocate_zeroed(sizeof(Tbl), "tbl"));
    tbl->fd = -1;
    tbl->left_grow = increment_or_default(left_grow);
    tbl->right_grow = increment_or_default(right_grow);
    tbl->direct = direct != 0;
    tbl->size = direct ? size : kPointerSize;
    if (null_value) {
        const auto bytes = static_cast<size_t>(tbl->size);
        tbl->null_value = stock::allocate_zeroed(bytes, "null_value");
        std::memcpy(tbl->null_value, null_value, bytes);
    }
    return tbl;
}

Tbl *newtbl(int64_t right_grow)
{
    return inittbl(0, right_grow, 0, nullptr, kPointerSize);
}

int64_t settbl(Tbl *tbl, int64_t i, const void *entry)
{
    if (i < 0)
        i = tbl->count;
    if (i < tbl->nalloc) {
        store(tbl, i, entry);  // nothing moves, so the entry may lie in the block
    } else {
        const EntryToStore kept(tbl, entry);
        need_slot(tbl, i);
        store(tbl, i, kept.get());
    }
    tbl->count = std::max(tbl->count, i + 1);
    return i;
}

void *addrtbl(const Tbl *tbl, int64_t i)
{
    return has(tbl, i) ? slot(tbl, i) : nullptr;
}

int64_t pushtbl(Tbl *tbl, const void *entry)
{
    const int64_t i = tbl->count;
    // A pointer that has a slot is stored right here, for speed.
    if (tbl->direct || i >= tbl->nalloc)
        return settbl(tbl, i, entry);
    pointer(tbl, i) = const_cast<void *>(entry);
    tbl->count = i + 1;
    return i;
}

void *poptbl(Tbl *tbl)
{
    if (tbl->count < 1)
        return tbl->null_value;
    return entry_at(tbl, --tbl->count);
}

int64_t unshifttbl(Tbl *tbl, const void *entry)
{
    const EntryToStore kept(tbl, entry);
    if (tbl->left == 0)
        left_growtbl(tbl);
    tbl->base = slot(tbl, -1);
    ++tbl->count;
    ++tbl->nalloc;
    ++tbl->left;
    store(tbl, 0, kept.get());
    return 0;
}

void *shifttbl(Tbl *tbl)
{
    if (tbl->count < 1)
        return tbl->null_value;
    void *entry = entry_at(tbl, 0);  // a record stays valid: its slot is only free from now on
    tbl->base = slot(tbl, 1);
    --tbl->count;
    --tbl->nalloc;
    --tbl->left;
    return entry;
}

int64_t instbl(Tbl *tbl, int64_t i, const void *entry)
{
    if (i < 0)
        return unshifttbl(tbl, entry);
    if (i >= tbl->count)
        return pushtbl(tbl, entry);
    const EntryToStore kept(tbl, entry);
    need_slot(tbl, tbl->count);
    std::memmove(slot(tbl, i + 1), slot(tbl, i), slots_size(tbl, tbl->count - i));
    ++tbl->count;
    store(tbl, i, kept.get());
    return i;
}

void *deltbl(Tbl *tbl, int64_t i)
{
    if (!has(tbl, i))
        return tbl->null_value;
    void *entry = entry_at(tbl, i);
    if (tbl->direct) {
        const auto size = static_cast<size_t>(tbl->size);
        if (!tbl->deleted)
            tbl->deleted = stock::allocate(size, "tbl->deleted");
        entry = std::memcpy(tbl->deleted, entry, size);
    }
    --tbl->count;
    std::memmove(slot(tbl, i), slot(tbl, i + 1), slots_size(tbl, tbl->count - i));
    fill_with_null(tbl, tbl->count, tbl->count + 1);
    return entry;
}

void freetbl(Tbl *tbl, void (*free_entry)(void *entry))
{
    if (!tbl)
        return;
    if (tbl->mapaddr) {
        stock::release_mapped(tbl);
        return;
    }
    if (free_entry)
        free_entries(tbl, free_entry);
    if (tbl->base)
        std::free(block_start(tbl));
    std::free(tbl->null_value);
    std::free(tbl->deleted);
    std::free(tbl);
}

void trunctbl(Tbl *tbl, int64_t count, void (*free_entry)(void *entry))
{
    count = std::max<int64_t>(count, 0);
    const int64_t before = tbl->count;
    if (count >= before)
        return;
    // A free function that looks at the list finds no freed entry: pointers, which stay in
    // their slots, are outside it already, and records are reset one by one.
    if (!tbl->direct)
        tbl->count = count;
    for (int64_t i = count; free_entry && i < before; ++i) {
        if (is_null_entry(tbl, i))
            continue;
        free_entry(entry_at(tbl, i));
        if (tbl->direct)
            fill_with_null(tbl, i, i + 1);
    }
    tbl->count = count;
}

void clrtbl(Tbl *tbl, void (*free_entry)(void *entry))
{
    trunctbl(tbl, 0, free_entry);
}

int applytbl(Tbl *tbl, int (*function)(void *entry, void *argument), void *argument)
{
    unsigned sum = 0;  // wraps around instead of overflowing
    const int64_t count = tbl->count;
    for (int64_t i = 0; i < count; ++i)
        if (void *entry = gettbl(tbl, i))
            sum += static_cast<unsigned>(function(entry, argument));
    return static_cast<int>(sum);
}

int cattbl(Tbl *tbl, const Tbl *source)
{
    if (!compatible(tbl, source))
        return 1;
    const int64_t added = source->count;
    tbl->left_grow = std::max(tbl->left_grow, source->left_grow);
    tbl->right_grow = std::max(tbl->right_grow, source->right_grow);
    while (tbl->nalloc - tbl->count < added)
        right_growtbl(tbl, added);
    if (added > 0)
        std::memcpy(slot(tbl, tbl->count), source->base, slots_size(tbl, added));
    tbl->count += added;
    return 0;
}

int cmptbl(const Tbl *a, const Tbl *b)
{
    if (a->count != b->count || a->size != b->size)
        return 1;
    return a->count == 0 ? 0 : std::memcmp(a->base, b->base, slots_size(a, a->count));
}

int64_t searchtbl(const void *key, const Tbl *tbl,
                  int (*compare)(const void *key, const void *entry, void *pvt), void *pvt,
                  int64_t *first, int64_t *last)
{
    return ssearch(key, tbl->size, tbl->base, tbl->count, 0, compare, pvt, first, last);
}

void sorttbl(Tbl *tbl, int (*compare)(const void *a, const void *b, void *pvt), void *pvt)
{
    shellsort(tbl->base, tbl->count, tbl->size, compare, pvt);
}

Tbl *duptbl(const Tbl *tbl, void *(*copy)(void *entry))
{
    Tbl *dup = inittbl(tbl->left_grow, tbl->right_grow, static_cast<int>(tbl->direct),
                       tbl->null_value, tbl->size);
    cattbl(dup, tbl);
    if (!copy)
        return dup;
    const int64_t count = tbl->count;
    for (int64_t i = 0; i < count; ++i) {
        // Asked of the source, because the copy has a null value at another address.
        if (is_null_entry(tbl, i))
            continue;
        void *entry = copy(entry_at(dup, i));
        if (!dup->direct)
            settbl(dup, i, entry);
    }
    return dup;
}

Tbl *strtbl(const char *first, ...)
{
    Tbl *tbl = newtbl(0);
    va_list args;
    va_start(args, first);
    pushtbl(tbl, first);
    // A null first text is pushed, and ends the arguments.
    for (const char *text = first; text && (text = va_arg(args, const char *));)
        pushtbl(tbl, text);
    va_end(args);
    return tbl;
}

char *jointbl(const Tbl *tbl, const char *separator)
{
    if (!separator)
        separator = "";
    const size_t gap = std::strlen(separator);
    size_t bytes = gap * static_cast<size_t>(tbl->count) + 1;
    for (int64_t i = 0; i < tbl->count; ++i)
        bytes += EntryText(tbl, i).length();
    auto *joined = static_cast<char *>(stock::allocate_zeroed(bytes, "s"));
    char *end = joined;
    for (int64_t i = 0; i < tbl->count; ++i) {
        const EntryText text(tbl, i);
        if (i > 0)
            end = append(end, separator, gap);
        end = append(end, text.get(), text.length());
    }
    return joined;
}

Tbl *greptbl(const char *pattern, const Tbl *tbl)
{
    Tbl *found = newtbl(0);
    if (!pattern)
        return found;
    const stock::Regex regex(pattern);
    for (int64_t i = 0; i < tbl->count; ++i)
        if (regex.matches(EntryText(tbl, i).get()))
            push_index(found, i);
    return found;
}

Tbl *tblgrep(const Tbl *patterns, const char *text)
{
    Tbl *found = newtbl(0);
    for (int64_t i = 0; text && i < patterns->count; ++i)
        if (stock::Regex(EntryText(patterns, i).get()).matches(text))
            push_index(found, i);
    return found;
}

int dumptbl(const char *title, const Tbl *tbl, int (*print)(const void *entry))
{
    static const char kNone[] = "  ** no entries in list **\n";
    if (title && *title)
        std::puts(title);
    if (tbl->count < 1)
        return print ? print(kNone) : std::puts(kNone);
    int result = 0;
    for (int64_t i = 0; i < tbl->count; ++i) {
        std::printf("%3ld : ", static_cast<long>(i));
        result = print_entry(tbl, i, print);
    }
    return result;
}
