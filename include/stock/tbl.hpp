/*
 * tbl.hpp - a class that owns an ordered list and is a range of its entries; see tbl.h.
 */

#ifndef STOCK_TBL_HPP
#define STOCK_TBL_HPP

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "stock/strings.hpp"
#include "stock/tbl.h"

namespace stock {

namespace detail {

/* The function Free for entries of type Entry, as a function that freetbl and freearr accept. */
template <auto Free, class Entry>
constexpr auto untyped() noexcept -> void (*)(void *)
{
    if constexpr (std::is_convertible_v<decltype(Free), void (*)(void *)>)
        return Free;
    else
        return [](void *entry) { Free(static_cast<Entry>(entry)); };
}

}  // namespace detail

/*
 * Owns a Tbl and frees it. The template arguments say what kind of list it is:
 *
 *     list<char *>                an indirect list of pointers
 *     list<Sample>                a direct list of records, which must be trivially copyable
 *     list<char *, std::free>     an indirect list whose entries are freed with the list
 *     list<Pftime, pffree_time>   for a direct list, Free gets the address of a record
 *
 * Free is passed to freetbl. By default there is none, and the caller owns what the entries point
 * to. Free is called for the entries in the list when the list is destroyed, assigned to, cleared
 * or truncated, and for no others: an entry that was popped, taken out or overwritten belongs to
 * the caller again.
 *
 * A list is a contiguous range, and a pointer is its iterator. Iterators, references and addresses
 * of entries are valid until the list next grows, or an insertion, deletion or sort moves them.
 *
 *     stock::list<char *> words(split(line, ' '));
 *     std::ranges::sort(words, std::less{}, [](const char *s) { return std::string_view(s); });
 *     for (const char *word : words)
 *         puts(word);
 *
 * The entries of a const list cannot be changed, but what they point to can. Indexes count from 0.
 * Nothing here locks.
 */
template <class T, auto Free = nullptr>
class list {
    static_assert(std::is_trivially_copyable_v<T> && !std::is_const_v<T>,
                  "a list holds pointers, or records that may be copied byte by byte");
    static_assert(alignof(T) <= alignof(std::max_align_t), "records lie where malloc puts them");

public:
    static constexpr bool is_direct = !std::is_pointer_v<T>;

    using value_type = T;
    using iterator = T *;
    using const_iterator = const T *;
    /* An entry in the form of tbl.h: the pointer, or the address of the record. */
    using entry = std::conditional_t<is_direct, T *, T>;
    using const_entry = std::conditional_t<is_direct, const T *, T>;

    /* A new, empty list (inittbl). */
    list() : tbl_(inittbl(0, 0, is_direct, nullptr, sizeof(T))) {}

    /*
     * Takes over a list that a function returned; it may be null. It must be of the right kind: a
     * direct list of records of this size, or an indirect list.
     */
    explicit list(Tbl *owned) noexcept : tbl_(owned)
    {
        assert(!owned || (owned->direct != 0) == is_direct);
        assert(!owned || !is_direct || owned->size == static_cast<int32_t>(sizeof(T)));
    }

    /* A new, empty list of records with a null value, which reading outside the list returns. */
    static list with_null_value(const T &null_value) requires(is_direct)
    {
        return list(inittbl(0, 0, is_direct, std::addressof(null_value), sizeof(T)));
    }

    /*
     * Whether there is a Tbl. A list without one (made from null, moved from, released) is empty
     * and has no null value; it creates its Tbl when it needs one.
     */
    explicit operator bool() const noexcept { return tbl_ != nullptr; }
    /*
     * The Tbl, which the list still owns. Creates it if there is none; a const list may return
     * null.
     */
    Tbl *tbl()
    {
        if (!tbl_)
            *this = list();
        return tbl_.get();
    }
    const Tbl *tbl() const noexcept { return tbl_.get(); }
    /* Returns the Tbl, or null, and leaves the list empty. The caller frees it with freetbl. */
    [[nodiscard]] Tbl *release() noexcept { return tbl_.release(); }

    std::size_t size() const noexcept { return tbl_ ? static_cast<std::size_t>(tbl_->count) : 0; }
    bool empty() const noexcept { return size() == 0; }
    T *data() noexcept { return tbl_ ? static_cast<T *>(tbl_->base) : nullptr; }
    const T *data() const noexcept { return tbl_ ? static_cast<const T *>(tbl_->base) : nullptr; }

    iterator begin() noexcept { return data(); }
    iterator end() noexcept { return data() + size(); }
    const_iterator begin() const noexcept { return data(); }
    const_iterator end() const noexcept { return data() + size(); }

    /* Entry i, which must exist. */
    T &operator[](std::size_t i) noexcept { return data()[i]; }
    const T &operator[](std::size_t i) const noexcept { return data()[i]; }
    /* gettbl: entry i, or the null value if there is none; null if the list has no null value. */
    const_entry at(int64_t i) const noexcept
    {
        return static_cast<const_entry>(tbl_ ? gettbl(tbl_.get(), i) : nullptr);
    }

    /*
     * settbl: stores at index i; the list grows if necessary. Returns the index. An earlier entry
     * is not freed.
     */
    int64_t set(int64_t i, const T &value) { return settbl(tbl(), i, passed(value)); }
    /* pushtbl, unshifttbl, instbl */
    void push_back(const T &value) { pushtbl(tbl(), passed(value)); }
    void push_front(const T &value) { unshifttbl(tbl(), passed(value)); }
    int64_t insert(int64_t i, const T &value) { return instbl(tbl(), i, passed(value)); }

    /*
     * poptbl, shifttbl, deltbl: return the removed entry, which belongs to the caller again, or
     * the null value if there is none. For a direct list it is the address of the record: read it
     * before the list changes again.
     */
    entry pop_back() { return static_cast<entry>(poptbl(tbl())); }
    entry pop_front() { return static_cast<entry>(shifttbl(tbl())); }
    entry take(int64_t i) { return static_cast<entry>(deltbl(tbl(), i)); }

    /* trunctbl, clrtbl: the entries that are removed are freed with Free. */
    void truncate(int64_t count) { trunctbl(tbl(), count, detail::untyped<Free, entry>()); }
    void clear() { clrtbl(tbl(), detail::untyped<Free, entry>()); }

    /*
     * duptbl, cattbl: both lists share what the pointers point to, so these exist only for lists
     * that do not free their entries.
     */
    list copy() const requires(std::is_null_pointer_v<decltype(Free)>)
    {
        return tbl_ ? list(duptbl(tbl_.get(), nullptr)) : list();
    }
    int append(const list &source) requires(std::is_null_pointer_v<decltype(Free)>)
    {
        return source ? cattbl(tbl(), source.tbl_.get()) : 0;
    }

    /* jointbl: joins the entries, which are strings, with the separator between them. */
    text join(zstring separator) const
        requires(std::is_same_v<std::remove_cv_t<std::remove_pointer_t<T>>, char> && !is_direct)
    {
        return text(tbl_ ? jointbl(tbl_.get(), separator.c_str()) : nullptr);
    }

private:
    static const void *passed(const T &value) noexcept
    {
        if constexpr (is_direct)
            return std::addressof(value);
        else
            return value;
    }

    struct FreeTbl {
        void operator()(Tbl *tbl) const { freetbl(tbl, detail::untyped<Free, entry>()); }
    };
    std::unique_ptr<Tbl, FreeTbl> tbl_;
};

}  // namespace stock

#endif
