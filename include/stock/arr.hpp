/*
 * arr.hpp - a class that owns an associative array and is a range of its entries; see arr.h.
 */

#ifndef STOCK_ARR_HPP
#define STOCK_ARR_HPP

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <type_traits>
#include <utility>

#include "stock/arr.h"
#include "stock/strings.hpp"
#include "stock/tbl.hpp"

namespace stock {

/* An entry, which an iterator over an array returns by value. */
template <class V>
struct array_entry {
    const char *key; /* borrowed: the array's own copy of the key */
    V value;
};

/* An iterator in the order of the keys. It is valid until a key is taken or erased. */
template <class V>
class array_iterator {
    struct Arrow {
        array_entry<V> entry;
        const array_entry<V> *operator->() const noexcept { return &entry; }
    };

public:
    using iterator_concept = std::bidirectional_iterator_tag;
    using iterator_category = std::input_iterator_tag;  // it returns values, not references
    using value_type = array_entry<V>;
    using difference_type = std::ptrdiff_t;
    using pointer = Arrow;
    using reference = array_entry<V>;

    array_iterator() = default;
    array_iterator(const Arr *arr, const Rbnode *node) noexcept : arr_(arr), node_(node) {}

    reference operator*() const noexcept
    {
        return {static_cast<const char *>(node_->key), static_cast<V>(node_->value)};
    }
    Arrow operator->() const noexcept { return {**this}; }

    array_iterator &operator++() noexcept
    {
        node_ = step<&Rbnode::right, &Rbnode::left>();
        return *this;
    }
    array_iterator &operator--() noexcept
    {
        node_ = node_ == rb_null ? outermost<&Rbnode::right>(arr_->root)
                                 : step<&Rbnode::left, &Rbnode::right>();
        return *this;
    }
    array_iterator operator++(int) noexcept
    {
        const array_iterator before = *this;
        ++*this;
        return before;
    }
    array_iterator operator--(int) noexcept
    {
        const array_iterator before = *this;
        --*this;
        return before;
    }

    friend bool operator==(const array_iterator &a, const array_iterator &b) noexcept
    {
        return a.node_ == b.node_;
    }

    /* The last node on one side of a subtree; rb_null for an empty one. */
    template <auto side>
    static const Rbnode *outermost(const Rbnode *node) noexcept
    {
        const Rbnode *const none = rb_null;
        const Rbnode *found = none;
        for (; node != none; node = node->*side)
            found = node;
        return found;
    }

private:
    // The next node on one side: the nearest one in the subtree on that side, or else the first
    // ancestor on that side, or rb_null if there is none.
    template <auto side, auto other>
    const Rbnode *step() const noexcept
    {
        const Rbnode *const none = rb_null;
        const Rbnode *next = node_->*side;
        if (next != none) {
            // The iteration visits each of these nodes later, and then needs its other child.
            for (; next->*other != none; next = next->*other)
                __builtin_prefetch(next->*side);
            return next;
        }
        const Rbnode *node = node_;
        for (next = node->up; node == next->*side; next = next->up)
            node = next;
        return next;
    }

    const Arr *arr_ = nullptr;
    const Rbnode *node_ = nullptr;
};

/*
 * Owns an Arr from strings to pointers of type V, and frees it.
 *
 *     array<Gauge *>                 the caller owns the values
 *     array<char *, std::free>       each value is freed with the array
 *
 * Free is called for the values in the array, including null values, when the array is destroyed
 * or assigned to, and for values that erase removes. A value that set or take returns belongs to
 * the caller again.
 *
 * It is a bidirectional range of keys and values in the order of strcmp:
 *
 *     for (const auto [key, value] : gauges)
 *         printf("%s %s\n", key, value->name);
 *
 * An iterator is two pointers and searches the tree for the next entry. This takes up to twice the
 * time that apply(), which calls applyarr, needs for one entry.
 *
 * The value of a key that the array has may be set during an iteration. Taking or erasing a key
 * makes all iterators invalid. An array without an Arr (made from null, moved from, released) is
 * empty, and creates its Arr when it needs one. Nothing here locks.
 */
template <class V, auto Free = nullptr>
class array {
    static_assert(std::is_pointer_v<V>, "the values of an array are pointers");

public:
    using value_type = array_entry<V>;
    using iterator = array_iterator<V>;
    using const_iterator = iterator;

    /* A new, empty array (newarr). */
    array() : arr_(newarr(nullptr)) {}
    /* Takes over an array that a function returned; it may be null. */
    explicit array(Arr *owned) noexcept : arr_(owned) {}

    explicit operator bool() const noexcept { return arr_ != nullptr; }
    /*
     * The Arr, which the array still owns. Creates it if there is none; a const array may return
     * null.
     */
    Arr *arr()
    {
        if (!arr_)
            *this = array();
        return arr_.get();
    }
    const Arr *arr() const noexcept { return arr_.get(); }
    /* Returns the Arr, or null, and leaves the array empty. The caller frees it with freearr. */
    [[nodiscard]] Arr *release() noexcept { return arr_.release(); }

    iterator begin() const noexcept
    {
        return {arr_.get(),
                arr_ ? iterator::template outermost<&Rbnode::left>(arr_->root) : rb_null};
    }
    iterator end() const noexcept { return {arr_.get(), rb_null}; }
    bool empty() const noexcept { return !arr_ || arr_->root == rb_null; }
    /* cntarr: counts the entries one by one, so it is not called size(). */
    int64_t count() const noexcept { return cntarr(arr_.get()); }

    /* getarr: returns the value, or null. */
    V get(zstring key) const { return static_cast<V>(getarr(arr_.get(), key.c_str())); }
    bool contains(zstring key) const { return rbfind(key.c_str(), arr_.get()) != nullptr; }
    /* setarr: stores a value under a copy of the key. Returns the earlier value, or null. */
    V set(zstring key, V value)
    {
        return static_cast<V>(setarr(arr(), key.c_str(), untyped(value)));
    }
    /* delarr: removes a key. Returns its value, or null. */
    V take(zstring key) { return static_cast<V>(delarr(arr_.get(), key.c_str())); }
    /* Removes a key and frees its value with Free. */
    void erase(zstring key)
    {
        const Rbnode *removed = rbdelete(key.c_str(), arr_.get());
        if (!removed)
            return;
        std::free(std::exchange(arr_->removed.key, nullptr));
        if constexpr (owns)
            detail::untyped<Free, V>()(removed->value);
    }

    /* applyarr: calls function(key, value) with each entry in the order of the keys. */
    template <class Function>
    void apply(Function &&function) const
    {
        applyarr(
            arr_.get(),
            [](void *key, void *value, void *called) {
                (*static_cast<std::remove_reference_t<Function> *>(called))(
                    static_cast<const char *>(key), static_cast<V>(value));
                return 0;
            },
            const_cast<void *>(static_cast<const void *>(std::addressof(function))));
    }

    /* keysarr, valsarr: lists in the order of the keys; the keys are borrowed from the array. */
    list<const char *> keys() const { return list<const char *>(keysarr(arr_.get())); }
    list<V> values() const { return list<V>(valsarr(arr_.get())); }

    /* duparr: both arrays share the values, so it exists only for arrays that do not free them. */
    array copy() const requires(std::is_null_pointer_v<decltype(Free)>)
    {
        return array(duparr(arr_.get(), nullptr));
    }

private:
    static constexpr bool owns = !std::is_null_pointer_v<decltype(Free)>;

    // An Arr stores pointers as void *, also pointers to constants.
    static void *untyped(V value) noexcept
    {
        return const_cast<void *>(static_cast<const void *>(value));
    }

    struct FreeArr {
        void operator()(Arr *arr) const { freearr(arr, detail::untyped<Free, V>()); }
    };
    std::unique_ptr<Arr, FreeArr> arr_;
};

}  // namespace stock

#endif
