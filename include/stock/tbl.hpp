/*
 * tbl.hpp - the ordered list as an owner and a range; see tbl.h.
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

/* Free, for entries of type Entry, as freetbl and freearr take it. */
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
 * Owns a Tbl and frees it. The type says what kind of list it is:
 *
 *     list<char *>                an indirect list: pointers
 *     list<Sample>                a direct list: records in place, trivially copyable
 *     list<char *, std::free>     the same, and each entry is freed with the list
 *     list<Pftime, pffree_time>   for a direct list Free gets a record's address
 *
 * Free is what freetbl is given; by default nothing is, and entries stay whose they
 * are. Free is called for entries that are in the list when it is destroyed, assigned
 * to, cleared or truncated, and for no others: an entry that was popped, shifted,
 * taken out or overwritten is the caller's again.
 *
 * The entries lie one behind the other: a list is a contiguous range, and a plain
 * pointer its iterator. Iterators, references and addresses of entries are valid
 * until the list next grows, or an insertion, deletion or sort moves them.
 *
 *     stock::list<char *> words(split(line, ' '));
 *     std::ranges::sort(words, std::less{}, [](const char *s) { return std::string_view(s); });
 *     for (const char *word : words)
 *         puts(word);
 *
 * A const list gives no way to change its entries; what pointers lead to is another
 * matter. Indexes count from 0. Nothing locks.
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
    /* An entry as tbl.h passes and returns it: the pointer, or the address of the record. */
    using entry = std::conditional_t<is_direct, T *, T>;
    using const_entry = std::conditional_t<is_direct, const T *, T>;

    /* A new, empty list (inittbl). */
    list() : tbl_(inittbl(0, 0, is_direct, nullptr, sizeof(T))) {}

    /*
     * Takes over a list that a function returned, null too. It must be of the kind
     * that the type says: a direct one of records of this size, or an indirect one.
     */
    explicit list(Tbl *owned) noexcept : tbl_(owned)
    {
        assert(!owned || (owned->direct != 0) == is_direct);
        assert(!owned || !is_direct || owned->size == static_cast<int32_t>(sizeof(T)));
    }

    /* A new, empty list of records that reads as the null value outside its entries. */
    static list with_null_value(const T &null_value) requires(is_direct)
    {
        return list(inittbl(0, 0, is_direct, std::addressof(null_value), sizeof(T)));
    }

    /*
     * Whether there is a Tbl. A list without one (made of null, moved from, released)
     * is an empty list, without a null value; it makes its Tbl when it needs one.
     */
    explicit operator bool() const noexcept { return tbl_ != nullptr; }
    /* The Tbl, which the list keeps, and makes when there is none; of a const list maybe null. */
    Tbl *tbl()
    {
        if (!tbl_)
            *this = list();
        return tbl_.get();
    }
    const Tbl *tbl() const noexcept { return tbl_.get(); }
    /* Gives the Tbl up: the caller frees it with freetbl. */
    [[nodiscard]] Tbl *release() noexcept { return tbl_.release(); }

    std::size_t size() const noexcept { return tbl_ ? static_cast<std::size_t>(tbl_->count) : 0; }
    bool empty() const noexcept { return size() == 0; }
    T *data() noexcept { return tbl_ ? static_cast<T *>(tbl_->base) : nullptr; }
    const T *data() const noexcept { return tbl_ ? static_cast<const T *>(tbl_->base) : nullptr; }

    iterator begin() noexcept { return data(); }
    iterator end() noexcept { return data() + size(); }
    const_iterator begin() const noexcept { return data(); }
    const_iterator end() const noexcept { return data() + size(); }

    /* Entry i, which must be there. */
    T &operator[](std::size_t i) noexcept { return data()[i]; }
    const T &operator[](std::size_t i) const noexcept { return data()[i]; }
    /* Entry i, or the null value where there is none (gettbl): null when the list has none. */
    const_entry at(int64_t i) const noexcept
    {
        return static_cast<const_entry>(tbl_ ? gettbl(tbl_.get(), i) : nullptr);
    }

    /* settbl: at index i, making the list longer; returns the index. An old entry is not freed. */
    int64_t set(int64_t i, const T &value) { return settbl(tbl(), i, passed(value)); }
    /* pushtbl, unshifttbl, instbl */
    void push_back(const T &value) { pushtbl(tbl(), passed(value)); }
    void push_front(const T &value) { unshifttbl(tbl(), passed(value)); }
    int64_t insert(int64_t i, const T &value) { return instbl(tbl(), i, passed(value)); }

    /*
     * poptbl, shifttbl, deltbl: what is removed is returned and the caller's again;
     * the null value when there is nothing. Of a direct list it is the address of
     * the record, to be read before the list changes again.
     */
    entry pop_back() { return static_cast<entry>(poptbl(tbl())); }
    entry pop_front() { return static_cast<entry>(shifttbl(tbl())); }
    entry take(int64_t i) { return static_cast<entry>(deltbl(tbl(), i)); }

    /* trunctbl: entries from count on are given to Free. */
    void truncate(int64_t count) { trunctbl(tbl(), count, detail::untyped<Free, entry>()); }
    void clear() { clrtbl(tbl(), detail::untyped<Free, entry>()); }

    /* duptbl, cattbl: pointers are shared, which a list that frees them can't do. */
    list copy() const requires(std::is_null_pointer_v<decltype(Free)>)
    {
        return tbl_ ? list(duptbl(tbl_.get(), nullptr)) : list();
    }
    int append(const list &source) requires(std::is_null_pointer_v<decltype(Free)>)
    {
        return source ? cattbl(tbl(), source.tbl_.get()) : 0;
    }

    /* jointbl: the entries as strings, with the separator between them. */
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
