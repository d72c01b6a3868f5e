/*
 * pf.hpp - parameter trees as owners, and their values by type; see pf.h.
 */

#ifndef STOCK_PF_HPP
#define STOCK_PF_HPP

#include <chrono>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <ranges>
#include <string>
#include <string_view>
#include <type_traits>

#include "stock/epoch.hpp"
#include "stock/pf.h"
#include "stock/strings.hpp"
#include "stock/tbl.hpp"

namespace stock {

class params_view;
template <class T = std::string_view>
class params_list;

namespace detail {

template <class T>
inline constexpr bool is_sys_time = false;
template <class Duration>
inline constexpr bool is_sys_time<std::chrono::sys_time<Duration>> = true;

template <class T>
inline constexpr bool is_params_list = false;
template <class T>
inline constexpr bool is_params_list<params_list<T>> = true;

template <class T>
concept text_value = std::same_as<T, const char *> || std::same_as<T, std::string_view> ||
    std::same_as<T, std::string>;

template <class T>
concept container_value = std::same_as<T, params_view> || is_params_list<T>;

/* Characters are numbers to std::integral, but nobody means that here. */
template <class T>
concept integer_value = std::integral<T> && sizeof(T) > 1 && !std::same_as<T, wchar_t> &&
                        !std::same_as<T, char16_t> && !std::same_as<T, char32_t>;

}  // namespace detail

/*
 * What a value can be read as, and by which function:
 *
 *     int, long, unsigned ...     pfget_int; cut as by an assignment to the type; no
 *                                 integer of one byte
 *     double, float               pfget_double
 *     bool                        pfget_boolean, whose -1 is true
 *     std::string_view            pfget_string, borrowed from the tree; empty when missing
 *     const char *                pfget_string, the same; null when missing
 *     std::string                 pfget_string, a copy
 *     std::chrono::sys_time<D>    pfget_time, rounded as from_epoch does
 *     params_view                 _pfeval for a table, borrowed from the tree
 *     params_list<T>              _pfeval for a list whose elements are read as T, borrowed
 *
 * Any other type does not compile.
 */
template <class T>
concept parameter = std::same_as<T, bool> || detail::integer_value<T> || std::floating_point<T> ||
    detail::text_value<T> || detail::is_sys_time<T> || detail::container_value<T>;

namespace detail {

template <parameter T>
T read_parameter(Pf *pf, const char *address)
{
    if constexpr (std::same_as<T, bool>) {
        return pfget_boolean(pf, address) != 0;
    } else if constexpr (integer_value<T>) {
        return static_cast<T>(pfget_int(pf, address));
    } else if constexpr (std::floating_point<T>) {
        return static_cast<T>(pfget_double(pf, address));
    } else if constexpr (std::same_as<T, const char *>) {
        return pfget_string(pf, address);
    } else if constexpr (text_value<T>) {
        const char *value = pfget_string(pf, address);
        return value ? T(value) : T();
    } else if constexpr (is_sys_time<T>) {
        return from_epoch<typename T::duration>(pfget_time(pf, address));
    } else {
        Pf *node = nullptr;
        _pfeval(pf, address, &node, T::node_type);
        // An element of another type is passed over in silence: there is no such container.
        return T(node && node->type == T::node_type ? node : nullptr);
    }
}

/* What a function in the tree gave, read where it lies. */
template <parameter T>
T read_result(Pf *node)
{
    if constexpr (container_value<T>)
        return T(node);
    else
        return read_parameter<T>(node, nullptr);
}

template <parameter T>
constexpr int node_type_of()
{
    if constexpr (container_value<T>)
        return T::node_type;
    else
        return PFSTRING;
}

/* The value at an address of a table or index of a list; the fallback when there is none. */
template <parameter T>
T read_parameter(Pf *pf, const char *address, T fallback)
{
    Pf *node = nullptr;
    const bool evaluated = pfresolve(pf, address, 0, &node) == PFFUNCTION;
    if (!node || node->type == PFANY)
        return fallback;
    // Asking for it again would evaluate the function again.
    if (evaluated && node->type == node_type_of<T>())
        return read_result<T>(node);
    return read_parameter<T>(pf, address);
}

/* The getters, for an owner and for a view. */
template <class Self>
class params_getters {
public:
    /*
     * The value at an address such as "a{b}[2]", as a T. One that is missing goes
     * to the die function, unless T is a text or a bool, and so does one of the
     * wrong type; what can't be converted is complained about.
     */
    template <parameter T>
    T get(zstring address) const
    {
        return read_parameter<T>(node(), address.c_str());
    }

    /*
     * The same; the fallback when the value is missing, without a message. A
     * function is evaluated once; a complaint about what it gave names no address.
     */
    template <parameter T>
    T get(zstring address, std::type_identity_t<T> fallback) const
    {
        return read_parameter<T>(node(), address.c_str(), fallback);
    }

    /* pfget_size: a number with k, M, G, m or u behind it. */
    double get_size(zstring address) const { return pfget_size(node(), address.c_str()); }

    /* Whether there is a value, of any type, at an address; a function is evaluated. */
    bool contains(zstring address) const
    {
        Pf *found = nullptr;
        _pfeval(node(), address.c_str(), &found, PFANY);
        return found != nullptr;
    }

    /* pfkeys: the keys of the table, in order, borrowed from it. */
    list<const char *> keys() const { return list<const char *>(pfkeys(node())); }

    /* pf2string: the text that is read into an equal tree. */
    text str() const { return text(pf2string(node())); }

private:
    Pf *node() const noexcept { return static_cast<const Self *>(this)->pf(); }
};

}  // namespace detail

/*
 * A table of a tree, borrowed: valid until the table is freed or the function that
 * gave it is evaluated again. Without one (made of null) every value is missing, and
 * nothing is said about it.
 */
class params_view : public detail::params_getters<params_view> {
public:
    static constexpr int node_type = PFARR;

    params_view() = default;
    explicit params_view(Pf *pf) noexcept : pf_(pf) {}

    explicit operator bool() const noexcept { return pf_ != nullptr; }
    Pf *pf() const noexcept { return pf_; }

private:
    Pf *pf_ = nullptr;
};

/*
 * A list of a tree, borrowed, whose elements are read as T each time they are looked
 * at: a random-access range of values. Valid as a params_view is.
 *
 *     for (const int port : settings.get<stock::params_list<int>>("ports"))
 *         listen_on(port);
 */
template <class T>
class params_list {
    static_assert(parameter<T>, "the elements are of a type that parameters have");

public:
    static constexpr int node_type = PFTBL;

    class iterator {
    public:
        using iterator_concept = std::random_access_iterator_tag;
        using iterator_category = std::input_iterator_tag;  // it gives values, not references
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = T;

        iterator() = default;
        iterator(Pf *pf, difference_type i) noexcept : pf_(pf), i_(i) {}

        T operator*() const { return (*this)[0]; }
        T operator[](difference_type n) const
        {
            return detail::read_parameter<T>(pf_, pfindex(i_ + n));
        }

        iterator &operator+=(difference_type n) noexcept
        {
            i_ += n;
            return *this;
        }
        iterator &operator-=(difference_type n) noexcept { return *this += -n; }
        iterator &operator++() noexcept { return *this += 1; }
        iterator &operator--() noexcept { return *this -= 1; }
        iterator operator++(int) noexcept { return {pf_, i_++}; }
        iterator operator--(int) noexcept { return {pf_, i_--}; }

        friend iterator operator+(iterator a, difference_type n) noexcept { return a += n; }
        friend iterator operator+(difference_type n, iterator a) noexcept { return a += n; }
        friend iterator operator-(iterator a, difference_type n) noexcept { return a -= n; }
        friend difference_type operator-(const iterator &a, const iterator &b) noexcept
        {
            return a.i_ - b.i_;
        }
        friend bool operator==(const iterator &a, const iterator &b) noexcept
        {
            return a.i_ == b.i_;
        }
        friend auto operator<=>(const iterator &a, const iterator &b) noexcept
        {
            return a.i_ <=> b.i_;
        }

    private:
        Pf *pf_ = nullptr;
        difference_type i_ = 0;
    };
    using const_iterator = iterator;

    params_list() = default;
    explicit params_list(Pf *pf) noexcept : pf_(pf) {}

    explicit operator bool() const noexcept { return pf_ != nullptr; }
    Pf *pf() const noexcept { return pf_; }

    /* pfmaxtbl */
    std::size_t size() const noexcept { return static_cast<std::size_t>(pfmaxtbl(pf_)); }
    bool empty() const noexcept { return size() == 0; }
    iterator begin() const noexcept { return {pf_, 0}; }
    iterator end() const noexcept { return {pf_, pfmaxtbl(pf_)}; }
    /* Element i, counted from 0, which must be there. */
    T operator[](std::size_t i) const { return begin()[static_cast<std::ptrdiff_t>(i)]; }

private:
    Pf *pf_ = nullptr;
};

}  // namespace stock

/* Its iterators outlive it: they lead to the tree. */
template <class T>
inline constexpr bool std::ranges::enable_borrowed_range<stock::params_list<T>> = true;

namespace stock {

/*
 * Owns a tree of parameters and frees it with all that was borrowed from it.
 *
 * Reading expands and evaluates, which changes the tree underneath: only one thread
 * at a time may read in it, const or not. Without a tree (new, moved from) every value
 * is missing, and nothing is said about it.
 */
class params : public detail::params_getters<params> {
public:
    params() = default;
    /* Takes over a tree that a function returned, null too. */
    explicit params(Pf *owned) noexcept : pf_(owned) {}

    explicit operator bool() const noexcept { return pf_ != nullptr; }
    /* The top of the tree, which the owner keeps. */
    Pf *pf() const noexcept { return pf_.get(); }
    operator params_view() const noexcept { return params_view(pf()); }
    /* Gives the tree up: the caller frees it with pffree. */
    [[nodiscard]] Pf *release() noexcept { return pf_.release(); }

    /*
     * pfread: the tree becomes what all files of a name give. The name is borrowed
     * for as long as the tree lives. Returns 0, or what was wrong.
     */
    int read(const char *name)
    {
        Pf *pf = nullptr;
        const int status = pfread(name, &pf);
        pf_.reset(pf);
        return status;
    }

    /* pfcompile_counted: adds the text to the tree. Returns 0, or -2. */
    int compile(std::string_view parameters)
    {
        Pf *pf = pf_.release();
        const char *start = parameters.empty() ? "" : parameters.data();
        const int status = pfcompile_counted(start, static_cast<long>(parameters.size()), &pf);
        pf_.reset(pf);
        return status;
    }

    /* pfset: makes the value at an address the text. There must be a tree. */
    int set(zstring address, zstring value) { return pfset(pf(), address.c_str(), value.c_str()); }

    /* pfwrite: writes the tree to a file. */
    int write(zstring path) const { return pfwrite(path.c_str(), pf()); }

    /* pfdup */
    params copy() const { return params(pfdup(pf())); }

private:
    struct Free {
        void operator()(Pf *pf) const { pffree(pf); }
    };
    std::unique_ptr<Pf, Free> pf_;
};

}  // namespace stock

#endif
