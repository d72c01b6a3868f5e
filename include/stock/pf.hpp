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
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "stock/elog.h"
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
 *     int, long, unsigned ...     pfget_int; what the type does not hold is complained
 *                                 about, "Integer value %ld for %s is out of range %ld
 *                                 to %ld", and is the nearer of these two; no integer
 *                                 of one byte
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

/* Whether every From is a T: as many digits, and a sign where it has one. */
template <class From, class T>
constexpr bool fits_in()
{
    return std::numeric_limits<From>::digits <= std::numeric_limits<T>::digits &&
           (std::is_signed_v<T> || !std::is_signed_v<From>);
}

/*
 * Whether an F may be the fallback of a T: it is a T, or becomes one that means the
 * same and leads to nothing that is gone behind the call.
 */
template <class F, class T>
constexpr bool is_fallback()
{
    using From = std::remove_cvref_t<F>;
    if constexpr (std::same_as<From, T>)
        return true;
    else if constexpr (std::same_as<T, bool> || !std::convertible_to<F, T>)
        return false;
    else if constexpr (std::is_arithmetic_v<T>)
        // Every From is a T: 3 is a long and a double, but no unsigned and no float.
        return (integer_value<From> && !std::same_as<From, bool> && fits_in<From, T>()) ||
               (std::floating_point<From> && std::floating_point<T> && fits_in<From, T>());
    else if constexpr (std::same_as<T, std::string_view> || std::same_as<T, params_view>)
        return std::convertible_to<F, const char *> ? !std::is_null_pointer_v<From>
                                                    : std::is_lvalue_reference_v<F>;
    else
        return !std::same_as<T, std::string> || !std::is_null_pointer_v<From>;
}

template <class F, class T>
concept fallback_for = is_fallback<F, T>();

inline void complain_range(long number, long least, long most, const Pf *pf, const char *address)
{
    constexpr const char *range = "is out of range";
    if (pf && pf->type == PFTBL)
        elog_complain(0, "Integer value %ld for #%lld %s %ld to %ld", number,
                      static_cast<long long>(reinterpret_cast<std::intptr_t>(address)), range,
                      least, most);
    else
        elog_complain(0, "Integer value %ld for %s %s %ld to %ld", number, okstr(address), range,
                      least, most);
}

/*
 * The number as a T. The address is null for the value pf itself, and an index where
 * pf is a list, as in the getters.
 */
template <integer_value T>
T checked(long number, const Pf *pf, const char *address)
{
    constexpr bool is_signed = std::is_signed_v<T>;
    constexpr bool is_short = sizeof(T) < sizeof(long);
    constexpr long least = !is_signed ? 0
                           : is_short ? static_cast<long>(std::numeric_limits<T>::min())
                                      : std::numeric_limits<long>::min();
    constexpr long most = is_short ? static_cast<long>(std::numeric_limits<T>::max())
                                   : std::numeric_limits<long>::max();
    if (number >= least && number <= most) [[likely]]
        return static_cast<T>(number);
    complain_range(number, least, most, pf, address);
    return static_cast<T>(number < least ? least : most);
}

template <parameter T>
T read_parameter(Pf *pf, const char *address)
{
    if constexpr (std::same_as<T, bool>) {
        return pfget_boolean(pf, address) != 0;
    } else if constexpr (integer_value<T>) {
        return checked<T>(pfget_int(pf, address), pf, address);
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
template <parameter T, class F>
T read_parameter(Pf *pf, const char *address, F &&fallback)
{
    Pf *node = nullptr;
    const bool evaluated = pfresolve(pf, address, 0, &node) == PFFUNCTION;
    if (!node || node->type == PFANY)
        return static_cast<T>(std::forward<F>(fallback));
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
     *
     * A fallback is of the type, or of one that loses nothing: 3 for a long or a
     * double, a constant for a text. For a std::string_view, a string that ends with
     * the call does not compile; for the others, no other kind does.
     */
    template <parameter T, class F = T>
    requires fallback_for<F, T> T get(zstring address, F &&fallback)
    const { return read_parameter<T>(node(), address.c_str(), std::forward<F>(fallback)); }

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
    Pf *node() const { return static_cast<const Self *>(this)->node(); }
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
    friend class detail::params_getters<params_view>;
    Pf *node() const noexcept { return pf_; }

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

/* Where a value is written. */
struct params_place {
    std::string path;
    int line = 0; /* counted from 1 */
};

/*
 * Owns a tree of parameters and frees it with all that was borrowed from it.
 *
 * Reading expands and evaluates, which changes the tree underneath: only one thread
 * at a time may read in it, const or not. An owner without a tree (made of null, moved
 * from, released) is an empty tree, and makes it when it needs one: to get a number
 * from it ends in the die function, as from any tree that has none.
 */
class params : public detail::params_getters<params> {
public:
    /* A new, empty tree. */
    params() : params(pfnew(PFFILE)) {}
    /* Takes over a tree that a function returned, null too. */
    explicit params(Pf *owned) noexcept : pf_(owned) {}

    explicit operator bool() const noexcept { return pf_ != nullptr; }
    /* The top of the tree, which the owner keeps. */
    Pf *pf() { return node(); }
    const Pf *pf() const { return node(); }
    operator params_view() const { return params_view(node()); }

    /*
     * Gives the tree up: the caller frees it with pffree. Its filename is null when it
     * was read by read(), whose copy of the name goes.
     */
    [[nodiscard]] Pf *release() noexcept
    {
        Pf *pf = pf_.release();
        if (const text name = std::move(pf_.get_deleter().name); pf && name)
            pf->filename = nullptr;
        return pf;
    }

    /*
     * pfread: the tree becomes what all files of a name give. The owner keeps a copy
     * of the name. Returns 0, or what was wrong; the tree is then what could be read.
     */
    int read(zstring name)
    {
        text copy(static_cast<char *>(memdup(name.c_str(), std::strlen(name.c_str()) + 1)));
        Pf *pf = nullptr;
        const int status = pfread(copy.c_str(), &pf);
        pf_.reset(pf);
        pf_.get_deleter().name = std::move(copy);
        return status;
    }

    /*
     * pfwhere: the file and line that give the value at an address its text, among the
     * files that read() reads. Nothing when there is no such value, or nothing was read.
     */
    std::optional<params_place> where(zstring address) const
    {
        char path[1024];
        params_place place;
        const char *name = node()->filename;
        if (!name || pfwhere(name, address.c_str(), path, &place.line) != 0)
            return {};
        place.path = path;
        return place;
    }

    /* pfcompile_counted: adds the text to the tree. Returns 0, or -2. */
    int compile(std::string_view parameters)
    {
        Pf *pf = node();
        const char *start = parameters.empty() ? "" : parameters.data();
        return pfcompile_counted(start, static_cast<long>(parameters.size()), &pf);
    }

    /* pfset: makes the value at an address the text. */
    int set(zstring address, zstring value)
    {
        return pfset(node(), address.c_str(), value.c_str());
    }

    /* pfwrite: writes the tree to a file. */
    int write(zstring path) const { return pfwrite(path.c_str(), node()); }

    /* pfdup */
    params copy() const { return params(pfdup(node())); }

private:
    friend class detail::params_getters<params>;

    struct Free {
        text name; /* the tree's filename, of one that was read */
        void operator()(Pf *pf) const { pffree(pf); }
    };

    Pf *node() const
    {
        if (!pf_)
            pf_.reset(pfnew(PFFILE));
        return pf_.get();
    }

    mutable std::unique_ptr<Pf, Free> pf_; /* made by whoever needs it first */
};

}  // namespace stock

#endif
